// Frame header reading and sync search: the first step of every decoded or skipped
// frame. The fast path trusts a header that fits the reference header; a header
// that does not fit starts a byte-by-byte search that needs two frame starts in a
// row before it believes a new one. Also the frame-length and side-information
// size tables that the layout detection uses too.
#include "frame_header.h"

#include "byte_order.h"
#include "header_word.h"

namespace kxmp3 {

const uint32_t kSampleRates[9] = {44100, 48000, 32000, 22050, 24000, 16000, 11025, 12000, 8000};

// Layer III bitrates in kbit/s: ISO/IEC 11172-3 (MPEG-1) and ISO/IEC 13818-3 (the
// lower sampling frequencies, shared by MPEG-2.5). Index 0 is free format.
const uint32_t kBitrates[2][15] = {
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
};

// Frame length without the padding byte: floor(144000 x bitrate / f) for MPEG-1 and
// floor(72000 x bitrate / f) for MPEG-2 and 2.5 (bitrate in kbit/s, f in Hz).
const uint32_t kFrameLengthTable[9][15] = {
    {0, 104, 130, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044},   // 44100 Hz
    {0, 96, 120, 144, 168, 192, 240, 288, 336, 384, 480, 576, 672, 768, 960},     // 48000 Hz
    {0, 144, 180, 216, 252, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1440}, // 32000 Hz
    {0, 26, 52, 78, 104, 130, 156, 182, 208, 261, 313, 365, 417, 470, 522},       // 22050 Hz
    {0, 24, 48, 72, 96, 120, 144, 168, 192, 240, 288, 336, 384, 432, 480},        // 24000 Hz
    {0, 36, 72, 108, 144, 180, 216, 252, 288, 360, 432, 504, 576, 648, 720},      // 16000 Hz
    {0, 52, 104, 156, 208, 261, 313, 365, 417, 522, 626, 731, 835, 940, 1044},    // 11025 Hz
    {0, 48, 96, 144, 192, 240, 288, 336, 384, 480, 576, 672, 768, 864, 960},      // 12000 Hz
    {0, 72, 144, 216, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1296, 1440}, // 8000 Hz
};

// -(4 header bytes + side-information bytes) by version x 3 + channels; entries at
// multiples of 3 are unused. Side information: MPEG-1 17 / 32, MPEG-2 and 2.5 9 / 17.
const int32_t kSideInfoAdjust[9] = {0, -21, -36, 0, -13, -21, 0, -13, -21};

namespace {

// Applies the five frame-start tests to `word` in order, writing each field as it is
// tested; `reference` is compared first under the mask. Returns true when all pass,
// and then fills the remaining fields.
bool TestHeaderWord(uint32_t word, uint32_t reference, FrameHeader& h) {
  using namespace header_word;
  if (((word ^ reference) & kHeaderCompareMask) != 0) return false;
  if (VersionBits(word) == 1) return false;
  h.version = VersionIndex(word);
  h.layer = 4 - LayerBits(word);
  if (h.layer != 3) return false;
  h.bitrate_index = BitrateIndex(word);
  if (h.bitrate_index == 0 || h.bitrate_index == 15) return false;
  if (RateBits(word) == 3) return false;
  h.rate_code = RateCode(word);
  h.protection = ProtectionBit(word) ^ 1;
  h.padding = PaddingBit(word);
  // The header's 11 (single channel) becomes 0, the others move up by one.
  h.channel_mode = (ModeBits(word) + 1) & 3;
  h.mode_extension = ModeExtension(word);
  h.emphasis = EmphasisBits(word);
  return true;
}

bool ReadWord(Class_ZStream* stream, uint32_t& word) {
  uint8_t b[4];
  if (stream->Read(b, 4, nullptr) != AF_S_OK) return false;
  word = BigEndian32(b);
  return true;
}

}  // namespace

bool IsLayer3Header(uint32_t word) {
  using namespace header_word;
  if (SyncBits(word) != 0x7FF) return false;                          // 11 sync bits
  if (VersionBits(word) == 1) return false;                           // reserved version
  if (LayerBits(word) != 1) return false;                             // Layer III
  if (BitrateIndex(word) == 0 || BitrateIndex(word) == 15) return false;  // free format, bad
  return RateBits(word) != 3;                                         // reserved frequency
}

uint32_t FrameLength(const FrameHeader& h) {
  return kFrameLengthTable[h.rate_code][h.bitrate_index] + h.padding;
}

int32_t MainDataLength(const FrameHeader& h) {
  const uint32_t channels = h.channel_mode == 0 ? 1 : 2;
  return static_cast<int32_t>(kFrameLengthTable[h.rate_code][h.bitrate_index]) +
         kSideInfoAdjust[h.version * 3 + channels] - 2 * static_cast<int32_t>(h.protection) +
         static_cast<int32_t>(h.padding);
}

KxResult ReadFrameHeader(FrameHeader& header, Class_ZStream* stream, uint32_t& referenceHeader) {
  uint32_t word = 0;
  if (!ReadWord(stream, word)) return AF_S_END_OF_DATA;
  // Fast path: a header that fits the reference is trusted alone.
  if (TestHeaderWord(word, referenceHeader, header)) {
    referenceHeader = word;
    return AF_S_OK;
  }
  // Resync: slide one byte at a time; a candidate is believed only when the word
  // one frame length further on fits it too.
  for (uint32_t steps = 0;;) {
    uint8_t next;
    if (stream->Read(&next, 1, nullptr) != AF_S_OK) return AF_S_END_OF_DATA;
    word = (word << 8) | next;
    if (TestHeaderWord(word, referenceHeader, header)) {
      int64_t here = 0;
      if (stream->GetPosition(&here) != AF_S_OK) return AF_S_END_OF_DATA;
      if (stream->Seek(static_cast<int64_t>(FrameLength(header)) - 4, ZS_SEEK_CUR) != AF_S_OK)
        return AF_S_END_OF_DATA;
      uint32_t following = 0;
      if (!ReadWord(stream, following)) return AF_S_END_OF_DATA;
      if (stream->Seek(here, ZS_SEEK_SET) != AF_S_OK) return AF_S_END_OF_DATA;
      if (((following ^ word) & kHeaderCompareMask) == 0) {
        referenceHeader = word;
        return AF_S_RESYNC;
      }
    }
    if (++steps == kResyncSteps) return AF_E_BAD_FORMAT;
  }
}

}  // namespace kxmp3
