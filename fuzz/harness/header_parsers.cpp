// The header targets: the engine's frame-header reader (with its sync search) and
// side-information readers frame after frame, and the layout's first-frame parser
// (VBR header, encoder tag and CRC, frame walk) with the frame search. The input's
// first four bytes serve as the reference or first header, so the fuzzer reaches
// the parsers without having to find a sync word first.
#include <cstring>

#include "checks.h"
#include "harness.h"
#include "host/kxaudiofile.h"
#include "engine/frame_header.h"
#include "engine/side_info.h"
#include "layout/container.h"
#include "layout/vbr_header.h"

namespace kxfuzz {

namespace {

uint32_t FirstWord(const uint8_t* data, size_t size) {
  uint8_t b[4] = {0xFF, 0xFB, 0x90, 0x44};  // a plain MPEG-1 header when the input is shorter
  std::memcpy(b, data, size < 4 ? size : 4);
  return (uint32_t{b[0]} << 24) | (uint32_t{b[1]} << 16) | (uint32_t{b[2]} << 8) | b[3];
}

}  // namespace

void RunFrameHeader(const uint8_t* data, size_t size) {
  const CoreMemoryWatch memory;
  {
    HeldStream stream(data, size, u"fuzz.mp3");
    // The driver's reference header is always a valid header (container detection
    // checked it); an input that starts otherwise gets a plain MPEG-1 one.
    uint32_t reference = FirstWord(data, size);
    if (!kxmp3::IsLayer3Header(reference)) reference = 0xFFFB9044u;
    int64_t previous = -1;
    // Each round either reads a frame and moves past it, or searches at least one
    // byte further: the position must grow every round, so the loop ends.
    for (;;) {
      const int64_t here = PositionOf(stream.get());
      if (here <= previous) {
        Violation("the frame reader made no progress at %lld", static_cast<long long>(here));
        break;
      }
      previous = here;
      kxmp3::FrameHeader header{};
      const KxResult rc = kxmp3::ReadFrameHeader(header, stream.get(), reference);
      RequireNamedCode(rc, "ReadFrameHeader");
      if (rc == AF_S_END_OF_DATA) break;
      if (rc == AF_E_BAD_FORMAT) continue;  // 8,192 bytes searched; the driver's caller may call again
      if (rc != AF_S_OK && rc != AF_S_RESYNC) {
        Violation("ReadFrameHeader gave 0x%X", rc);
        break;
      }
      if (header.version > 2 || header.layer != 3 || header.rate_code > 8 || header.bitrate_index < 1 ||
          header.bitrate_index > 14 || header.channel_mode > 3) {
        Violation("ReadFrameHeader accepted an impossible header");
        break;
      }
      if (!kxmp3::IsLayer3Header(reference)) Violation("the reference header became an impossible header");
      const uint32_t length = kxmp3::FrameLength(header);
      const int32_t mainData = kxmp3::MainDataLength(header);
      if (length < 24 || mainData < 0 || static_cast<uint32_t>(mainData) >= length) {
        Violation("frame length %u, main data %d", length, mainData);
        break;
      }
      if (header.protection != 0) {
        uint8_t check[2];
        stream.get()->Read(check, 2, nullptr);
      }
      const uint32_t channels = header.channel_mode == 0 ? 1 : 2;
      kxmp3::SideInfo side{};
      const bool midSide = header.channel_mode == 2 && (header.mode_extension & 2) != 0;
      const KxResult sideResult = header.version == 0
                                      ? kxmp3::ReadSideInfoMpeg1(side, stream.get(), channels, midSide)
                                      : kxmp3::ReadSideInfoMpeg2(side, stream.get(), channels, midSide);
      RequireNamedCode(sideResult, "ReadSideInfo");
      const uint32_t granules = header.version == 0 ? 2 : 1;
      for (uint32_t g = 0; g < granules; ++g) {
        for (uint32_t c = 0; c < channels; ++c) {
          const kxmp3::GranuleInfo& gi = side.gr[g][c];
          if (gi.big_value_count > 576 || gi.block_type > 3 || gi.table_select[0] > 31 || gi.table_select[1] > 31 ||
              gi.table_select[2] > 31 || gi.count1table_select > 1) {
            Violation("side information out of range");
          }
        }
      }
      // The main data, as the driver skips it.
      stream.get()->Seek(mainData, ZS_SEEK_CUR);
    }
    stream.Finish("frame header");
  }
  memory.Check("frame_header");
}

void RunVbrHeader(const uint8_t* data, size_t size) {
  const uint32_t hash = InputHash(data, size);
  const CoreMemoryWatch memory;
  {
    HeldStream stream(data, size, u"fuzz.mp3");
    kxmp3::StreamLayout layout{};
    layout.audioStart = 0;
    layout.audioLength = size;
    kxmp3::MP3Info info{};
    const uint32_t flags = (hash & 1) != 0 ? OPEN_FLAG_FULL_SCAN : 0;
    const KxResult rc = kxmp3::ParseFirstFrame(stream.get(), FirstWord(data, size), &info, flags, &layout);
    RequireNamedCode(rc, "ParseFirstFrame");
    if (PositionOf(stream.get()) != 0) Violation("ParseFirstFrame moved the stream");
    if (rc == AF_S_OK) {
      CheckTerminated(info.generic.description, 128, "description");
      CheckTerminated(info.generic.channelModeName, 64, "channel mode");
      CheckTerminated(layout.encoderName, 64, "encoder name");
      if (info.generic.totalPcmBytes == 0) Violation("a parsed stream without PCM");
      if (layout.samplesPerFrame != 1152 && layout.samplesPerFrame != 576) Violation("samples per frame");
    }
    int64_t found = -1;
    const KxResult search = kxmp3::FindFirstFrame(stream.get(), &found);
    RequireNamedCode(search, "FindFirstFrame");
    if (search == AF_S_OK && (found < 0 || static_cast<size_t>(found) + 4 > size)) {
      Violation("FindFirstFrame found a frame at %lld", static_cast<long long>(found));
    }
    if (PositionOf(stream.get()) != 0) Violation("FindFirstFrame moved the stream");
    stream.Finish("vbr header");
  }
  kxmp3::EncoderTagCrc16(data, static_cast<uint32_t>(size));
  memory.Check("vbr_header");
}

}  // namespace kxfuzz
