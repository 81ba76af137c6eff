// seek_cost FILE [SEEKS]: the cost of a seek measured in decoded frames.
//
// Opens FILE through the decoder object on the core library's file stream, as a
// host would, and measures in process CPU time:
//   1. decoding the whole file in 4,608-byte requests, giving the cost of one frame;
//   2. on a freshly opened decoder, SEEKS (default 1,000) random SetCurrentPosition
//      calls from the start (positions uniform over the stream, fixed seed), each
//      followed by reading 4,608 bytes; a fresh decoder has indexed no frame yet, so
//      the scans that build the frame index are part of the cost, as in a player.
// It prints both and the mean cost of one seek divided by the cost of one frame.
// bench/compare.sh makes the 10-minute files this is meant for (vbr2.mp3).
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "engine/tables.h"
#include "host/kxcore.h"
#include "plugin/kxmp3.h"

namespace {

double CpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "seek_cost: %s\n", what.c_str());
  std::exit(1);
}

// A decoder opened on `path` through the core library's file stream.
Class_KXMP3* Open(const std::string& path) {
  void* object = nullptr;
  if (ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object) != AF_S_OK || object == nullptr) {
    Fail("the core library made no file stream");
  }
  auto* stream = static_cast<Class_ZStream*>(object);
  std::u16string wide(static_cast<size_t>(ZCoreUtf8ToUtf16(nullptr, 0, path.c_str(), -1)), u'\0');
  ZCoreUtf8ToUtf16(wide.data(), static_cast<int32_t>(wide.size()), path.c_str(), -1);
  ZStreamOpenRecord record{};
  record.tag = FOURCC_ZSTM;
  record.size = sizeof(record);
  record.mode = ZS_MODE_READ;
  record.source = wide.c_str();
  if (stream->Create(&record) != AF_S_OK) Fail("cannot open " + path);

  Class_ZCOM* zcom = nullptr;
  if (CreateInstance_KXMP3(&zcom) != AF_S_OK) Fail("no decoder object");
  auto* decoder = dynamic_cast<Class_KXMP3*>(zcom);
  OpenParams params{};
  params.tag = FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = OPEN_FLAG_STREAM;
  params.source = stream;  // the decoder takes the reference over
  params.requestedBits = 16;
  if (decoder == nullptr || decoder->Create(&params) != AF_S_OK) Fail("the decoder cannot open " + path);
  return decoder;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: seek_cost FILE [SEEKS]\n");
    return 2;
  }
  const std::string path = argv[1];
  const int seeks = argc > 2 ? std::atoi(argv[2]) : 1000;
  kxmp3::InitDecoderTables();  // the module's load does this; here the plug-in is linked in
  constexpr int32_t kRequest = 4608;
  std::vector<uint8_t> buffer(kRequest);

  // 1. The whole file: the cost of one frame.
  Class_KXMP3* decoder = Open(path);
  PCMWAVEFORMAT format{};
  decoder->GetPCMWaveFormat(&format);
  QWUNION total{};
  decoder->GetCurrentPosition(&total, AF_ORIGIN_END);  // at the start: the total length
  uint64_t bytes = 0;
  const double decodeStart = CpuSeconds();
  for (;;) {
    int32_t written = 0;
    const KxResult rc = decoder->DecodeToPCMData(buffer.data(), kRequest, &written);
    bytes += static_cast<uint64_t>(written);
    if (rc == AF_S_END_OF_DATA) break;
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR) Fail("decoding failed");
  }
  const double decodeSeconds = CpuSeconds() - decodeStart;
  decoder->Release();
  // One frame's bytes: 1152 sample frames for MPEG-1, 576 for MPEG-2 and 2.5.
  const uint32_t frameBytes = (format.nSamplesPerSec >= 32000 ? 1152u : 576u) * format.nBlockAlign;
  const double frames = static_cast<double>(bytes) / frameBytes;
  const double frameCost = decodeSeconds / frames;

  // 2. Random seeks on a fresh decoder, each followed by one request.
  decoder = Open(path);
  std::mt19937_64 gen(12345);
  std::uniform_int_distribution<uint64_t> where(0, total.u == 0 ? 0 : total.u - 1);
  int failures = 0;
  const double seekStart = CpuSeconds();
  for (int i = 0; i < seeks; ++i) {
    QWUNION target{};
    target.u = where(gen);
    if (decoder->SetCurrentPosition(target, AF_ORIGIN_START) != AF_S_OK) ++failures;
    int32_t written = 0;
    decoder->DecodeToPCMData(buffer.data(), kRequest, &written);
  }
  const double seekSeconds = CpuSeconds() - seekStart;
  decoder->Release();
  const double seekCost = seekSeconds / seeks;

  std::printf("file: %s\n", path.c_str());
  std::printf("decode: %.0f frames in %.3f s CPU, %.2f us per frame\n", frames, decodeSeconds, frameCost * 1e6);
  std::printf("seeks: %d random seeks + %d-byte reads in %.3f s CPU, %.2f us per seek (%d refused)\n", seeks,
              kRequest, seekSeconds, seekCost * 1e6, failures);
  std::printf("seek / frame: %.2f\n", seekCost / frameCost);
  return failures == 0 ? 0 : 1;
}
