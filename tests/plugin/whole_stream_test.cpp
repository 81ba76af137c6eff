// Whole streams through the decoder object as a host plays them: Create on the
// core library's file stream (a UTF-16 path, no stream handed in), DecodeToPCMData
// in host-sized requests until the end of the data, in 16-bit and 64-bit float.
// The ISO conformance streams must give the reference decoder's whole length
// (the two frames of l3-sin1k0db whose main data points before the stream come
// out as silence in front) within 1 LSB; the streams whose headers change
// mid-stream (tests/data/mixed, made by scripts/make_mixed_header_fixtures.sh)
// must give as many samples as mpg123 and ffmpeg.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "decoder_fixture.h"
#include "support/conformance_streams.h"

namespace kxtest {
namespace {

struct Decoded {
  KxResult openResult = AF_E_FAIL;
  KxResult endResult = AF_S_OK;  // the first result that was neither 0, 0x30FF nor the end
  uint32_t channels = 0;
  uint32_t bits = 0;
  std::vector<uint8_t> pcm;
};

// Opens `path` through the core library's file stream and reads it to the end in
// requests of a frame and a half, a few bytes, and several frames, cycled.
Decoded DecodeFile(const std::string& path, uint32_t bits, uint32_t flags = 0) {
  Decoded d;
  Class_KXMP3* decoder = NewDecoder();
  if (decoder == nullptr) return d;
  const std::u16string wide(path.begin(), path.end());
  OpenParams p = MakeParams(flags, const_cast<char16_t*>(wide.c_str()), bits);
  d.openResult = decoder->Create(&p);
  if (d.openResult == AF_S_OK) {
    PCMWAVEFORMAT format{};
    decoder->GetPCMWaveFormat(&format);
    d.channels = format.nChannels;
    d.bits = format.wBitsPerSample;
    d.pcm = ReadAll(decoder, {6912 * static_cast<int32_t>(format.nBlockAlign) / 4, 1000, 40000}, &d.endResult);
  }
  decoder->Release();
  return d;
}

std::vector<int16_t> Samples16(const std::vector<uint8_t>& bytes) {
  std::vector<int16_t> s(bytes.size() / 2);
  for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  return s;
}

std::vector<double> SamplesFloat(const std::vector<uint8_t>& bytes) {
  std::vector<double> s(bytes.size() / 8);
  std::memcpy(s.data(), bytes.data(), s.size() * 8);
  return s;
}

// The float output as the 16-bit converter rounds it (nearest, saturated).
int16_t Rounded(double v) {
  const double scaled = std::nearbyint(v * 32768.0);
  return static_cast<int16_t>(scaled > 32767 ? 32767 : scaled < -32768 ? -32768 : scaled);
}

class WholeConformanceStream : public ::testing::TestWithParam<ConformanceStream> {};

// De-emphasis is off for the comparison: the reference decoder never applies it,
// and l3-hecommon asks for it in two frames. The default open decodes those frames
// with de-emphasis and must still give the whole length.
TEST_P(WholeConformanceStream, DecodesToTheReferenceLengthWithinOneLsb) {
  const std::string shared = SharedDir();
  if (shared.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  const ConformanceStream& st = GetParam();
  const std::string bit = shared + "/conformance/" + st.name + ".bit";
  const auto ref = Samples16(ReadFile(shared + "/conformance/" + st.name + ".pcm"));
  ASSERT_FALSE(ref.empty()) << st.name;
  const size_t frameSamples = size_t{st.samplesPerFrame} * st.channels;
  const size_t front = st.silentFramesInFront * frameSamples;
  // Every frame of the stream plays; the reference output sometimes stops one
  // frame before the end, so it is compared over its own length.
  const size_t whole = CountFrames(ReadFile(bit)) * frameSamples;
  ASSERT_GE(whole, ref.size() + front) << st.name;
  // l3-sin1k0db has zero bytes before its first frame: a host gives it the name
  // of an MP3 file, under which the first frame is looked for.
  const RenamedCopy copy(bit, std::string(st.name) + ".mp3");
  const std::string path = st.silentFramesInFront != 0 ? copy.Path() : bit;

  const Decoded d16 = DecodeFile(path, 16, OPEN_FLAG_NO_DEEMPHASIS);
  ASSERT_EQ(d16.openResult, AF_S_OK) << st.name;
  EXPECT_EQ(d16.endResult, AF_S_OK) << st.name << ": the read ended with 0x" << std::hex << d16.endResult;
  EXPECT_EQ(d16.channels, st.channels);
  const auto ours = Samples16(d16.pcm);
  ASSERT_EQ(ours.size(), whole) << st.name << ": samples (all channels), the reference has " << ref.size();
  for (size_t i = 0; i < front; ++i) ASSERT_EQ(ours[i], 0) << st.name << " sample " << i;
  int maxDiff = 0;
  for (size_t i = 0; i < ref.size(); ++i) maxDiff = std::max(maxDiff, std::abs(ours[front + i] - ref[i]));
  EXPECT_LE(maxDiff, 1) << st.name;

  const Decoded d64 = DecodeFile(path, 64, OPEN_FLAG_NO_DEEMPHASIS);
  ASSERT_EQ(d64.openResult, AF_S_OK) << st.name;
  EXPECT_EQ(d64.endResult, AF_S_OK) << st.name;
  EXPECT_EQ(d64.bits, 64u);
  const auto floats = SamplesFloat(d64.pcm);
  ASSERT_EQ(floats.size(), whole) << st.name << ": float samples";
  int maxFloatDiff = 0;
  for (size_t i = 0; i < ref.size(); ++i) {
    maxFloatDiff = std::max(maxFloatDiff, std::abs(Rounded(floats[front + i]) - ref[i]));
  }
  EXPECT_LE(maxFloatDiff, 1) << st.name;

  // With the default de-emphasis: the same length in both formats.
  const Decoded deemph16 = DecodeFile(path, 16);
  EXPECT_EQ(deemph16.pcm.size(), d16.pcm.size()) << st.name;
  const Decoded deemph64 = DecodeFile(path, 64);
  EXPECT_EQ(deemph64.pcm.size(), d64.pcm.size()) << st.name;
  std::printf("[ whole   ] %-22s %9zu samples, max diff 16-bit %d, float %d\n", st.name, ref.size(), maxDiff,
              maxFloatDiff);
}

INSTANTIATE_TEST_SUITE_P(Streams, WholeConformanceStream, ::testing::ValuesIn(ConformantStreams()),
                         [](const ::testing::TestParamInfo<ConformanceStream>& info) {
                           std::string n = info.param.name;
                           for (char& ch : n)
                             if (ch == '-') ch = '_';
                           return n;
                         });

// l3-hecommon switches its check words off at the sixth frame: all 30 frames play.
TEST(WholeStream, ProtectionChangeAtTheSixthFramePlaysAllThirtyFrames) {
  const std::string shared = SharedDir();
  if (shared.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  const Decoded d = DecodeFile(shared + "/conformance/l3-hecommon.bit", 16);
  ASSERT_EQ(d.openResult, AF_S_OK);
  EXPECT_EQ(d.pcm.size(), size_t{30} * 1152 * 2 * 2);
}

struct MixedStream {
  std::string name;
  uint32_t rate = 0;
  uint32_t channels = 0;
  uint32_t frames = 0;
  uint64_t mpg123Samples = 0;
  uint64_t ffmpegSamples = 0;
};

std::vector<MixedStream> LoadMixedManifest() {
  std::vector<MixedStream> all;
  std::ifstream in(std::string(KX_TEST_DATA_DIR) + "/mixed/manifest.txt");
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    MixedStream m;
    fields >> m.name >> m.rate >> m.channels >> m.frames >> m.mpg123Samples >> m.ffmpegSamples;
    if (fields) all.push_back(m);
  }
  return all;
}

TEST(WholeStream, HeaderChangesMidStreamDecodeToThePeersLength) {
  const auto all = LoadMixedManifest();
  ASSERT_GE(all.size(), 6u) << "tests/data/mixed/manifest.txt";
  for (const MixedStream& m : all) {
    SCOPED_TRACE(m.name);
    const std::string path = std::string(KX_TEST_DATA_DIR) + "/mixed/" + m.name;
    ASSERT_EQ(m.mpg123Samples, m.ffmpegSamples) << "the peers disagree";
    for (const uint32_t bits : {16u, 64u}) {
      const Decoded d = DecodeFile(path, bits);
      ASSERT_EQ(d.openResult, AF_S_OK);
      EXPECT_EQ(d.endResult, AF_S_OK);
      ASSERT_EQ(d.channels, m.channels);
      const uint64_t samples = d.pcm.size() / (bits / 8) / m.channels;
      EXPECT_EQ(samples, m.mpg123Samples) << bits << "-bit output";
    }
  }
}

// The header's frame count comes from walking the frames: every frame is counted
// (the 8 kHz stream is estimated after 512 unchanged frames, as for any stream).
TEST(WholeStream, HeaderChangesMidStreamAreCountedFrameByFrame) {
  for (const MixedStream& m : LoadMixedManifest()) {
    SCOPED_TRACE(m.name);
    Class_KXMP3* decoder = NewDecoder();
    const std::string path = std::string(KX_TEST_DATA_DIR) + "/mixed/" + m.name;
    const std::u16string wide(path.begin(), path.end());
    OpenParams p = MakeParams(OPEN_FLAG_INFO_ONLY | OPEN_FLAG_FULL_SCAN, const_cast<char16_t*>(wide.c_str()));
    ASSERT_EQ(decoder->Create(&p), AF_S_OK);
    alignas(8) kxmp3::MP3Info info{};
    uint32_t size = sizeof(info);
    ASSERT_EQ(decoder->GetInfo(FOURCC_ZMP3, &info, &size), AF_S_OK);
    EXPECT_EQ(info.frameCount, m.frames);
    EXPECT_EQ(info.headerFlags & kxmp3::MP3_HEADER_FLAG_SCANNED, kxmp3::MP3_HEADER_FLAG_SCANNED);
    decoder->Release();
  }
}

}  // namespace
}  // namespace kxtest
