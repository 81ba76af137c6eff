// Byte-built Layer III data for the engine tests: header words, a bit writer,
// side-information encoders for both versions, Huffman encoding through the
// standard's code lists, and whole frames.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/engine_types.h"

namespace kxtest {

// Header word fields as coded (not as FrameHeader stores them).
struct HeaderFields {
  uint32_t versionBits = 3;  // 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5, 1 reserved
  uint32_t layerBits = 1;    // 1 = Layer III
  uint32_t noCrc = 1;        // 0: a check word follows
  uint32_t bitrate = 9;      // index
  uint32_t rate = 0;         // sampling-frequency bits
  uint32_t padding = 0;
  uint32_t privateBit = 0;
  uint32_t mode = 0;         // 0 stereo, 1 joint, 2 dual, 3 single channel
  uint32_t modeExt = 0;
  uint32_t emphasis = 0;
};
uint32_t MakeHeader(const HeaderFields& f);
void PutWord(std::vector<uint8_t>& out, uint32_t word);

class BitWriter {
 public:
  void Put(uint32_t value, uint32_t bits);
  // Pads with zero bits to a whole byte.
  void Align();
  uint32_t BitCount() const { return bits_; }
  const std::vector<uint8_t>& Bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  uint32_t bits_ = 0;
};

// One granule-channel's side information as coded.
struct GranuleFields {
  uint32_t part2_3_length = 0;
  uint32_t big_values = 0;
  uint32_t global_gain = 0;
  uint32_t scalefac_compress = 0;
  uint32_t window_switching = 0;
  uint32_t block_type = 0;
  uint32_t mixed = 0;
  uint32_t table_select[3] = {0, 0, 0};
  uint32_t subblock_gain[3] = {0, 0, 0};
  uint32_t region0_count = 0;
  uint32_t region1_count = 0;
  uint32_t preflag = 0;  // MPEG-1 only
  uint32_t scalefac_scale = 0;
  uint32_t count1table_select = 0;
};

struct SideFields {
  uint32_t main_data_begin = 0;
  uint32_t private_bits = 0;
  uint32_t scfsi[2] = {0, 0};
  GranuleFields gr[2][2];
};

// Coded side information: 17 / 32 bytes (MPEG-1) or 9 / 17 (MPEG-2 / 2.5).
std::vector<uint8_t> EncodeSideInfo(const SideFields& s, bool mpeg1, uint32_t channels);

// Writes one pair of values (signed magnitudes) with table_select `table`,
// including linbits and sign bits.
void EncodePair(BitWriter& w, uint32_t table, int x, int y);
// Writes one count1 quadruple (values -1, 0, 1) with table A (0) or B (1).
void EncodeQuad(BitWriter& w, uint32_t table, int v, int wv, int x, int y);

// A frame: header, optional check word, side information and `mainData` padded or
// cut to the frame's main-data length.
std::vector<uint8_t> MakeFrame(const HeaderFields& h, const std::vector<uint8_t>& side,
                               const std::vector<uint8_t>& mainData);
// A frame whose side information and main data are all zero: it decodes to silence.
std::vector<uint8_t> SilentFrame(const HeaderFields& h);
// A frame that decodes to sound: every granule-channel holds 16 values of +-1
// through table 1 and a global gain of 210, all in the frame's own main data
// (main_data_begin as given).
std::vector<uint8_t> ToneFrame(const HeaderFields& h, uint32_t mainDataBegin = 0);
// `count` silent frames one after another.
std::vector<uint8_t> SilentFrames(const HeaderFields& h, int count);
// Frame length in bytes of a header.
uint32_t FrameBytes(const HeaderFields& h);
uint32_t MainDataBytes(const HeaderFields& h);

}  // namespace kxtest
