// Records shared by the steps of the Layer III engine: the parsed frame header,
// side information per granule and channel, scale factors and the scale-factor
// band table. Names follow the standard's terms (ISO/IEC 11172-3, 13818-3).
#pragma once

#include <cstdint>

namespace kxmp3 {

constexpr uint32_t kLinesPerGranule = 576;
constexpr uint32_t kSubbands = 32;
constexpr uint32_t kLinesPerSubband = 18;

// Header fields as ReadFrameHeader fills them (nine 32-bit fields, in this order).
struct FrameHeader {
  uint32_t version;        // 0 MPEG-1, 1 MPEG-2, 2 MPEG-2.5
  uint32_t layer;          // 3
  uint32_t protection;     // 1: a 16-bit check word follows the header
  uint32_t bitrate_index;  // 1..14
  uint32_t rate_code;      // version * 3 + sampling-frequency bits: 0..8
  uint32_t padding;        // 0 or 1
  uint32_t channel_mode;   // 0 single channel, 1 stereo, 2 joint stereo, 3 dual channel
  uint32_t mode_extension; // 0..3
  uint32_t emphasis;       // 0..3
};
static_assert(sizeof(FrameHeader) == 36);

// Side information of one granule and channel, with the values derived at parse
// time and the non-zero bounds that requantisation writes.
struct GranuleInfo {
  uint32_t part2_3_length;
  uint32_t big_value_count;      // 2 x big_values, clipped to 576
  uint32_t scalefac_compress;    // 4 bits (MPEG-1) or 9 bits (MPEG-2)
  uint32_t block_type;           // 0 when window switching is off
  uint32_t mixed_block_flag;
  uint32_t table_select[3];
  uint32_t preflag;
  uint32_t scalefac_multiplier;  // 2 when scalefac_scale is 1, else 1
  uint32_t count1table_select;
  // Non-zero bounds (written by requantisation):
  uint32_t is_start_short[3];    // last non-zero short band + 1 per window (never below 3)
  uint32_t is_start_long;        // last non-zero long band + 1 (0..22)
  uint32_t active_subbands;      // subbands of 18 lines to process (1..32)
  // Gain references: indices into the gain table (entry 256 - global_gain is the
  // global gain factor; +2 with M/S stereo; +8 per subblock_gain step).
  uint32_t subblock_gain_ref[3];
  uint32_t global_gain_ref;
  uint32_t scfsi;                // MPEG-1 granule 1 only; else 0
  uint32_t region0_count;
  uint32_t region1_count;
};

struct SideInfo {
  uint32_t main_data_begin;
  uint32_t private_bits;
  GranuleInfo gr[2][2];  // [granule][channel]
};

// Scale factors of one channel (shared by both granules of a frame so that scfsi
// reuse leaves values in place). Layouts:
//   MPEG-1 long:  0..20 bands 0..20, 21 and 22 zero
//   MPEG-1 short: 0..35 bands 0..11 x 3 windows, then 3 zeros
//   MPEG-1 mixed: 0..7 long bands 0..7, short bands 3..11 x 3, then 3 zeros
//   MPEG-2: the four groups' values in order, then 1 / 3 / 5 zeros
struct ScaleFactors {
  uint32_t sf[39];
};

// Scale-factor band table of one sampling frequency (109 entries).
struct BandTable {
  int32_t longStart[23];      // long band start lines, 0..576
  int32_t shortStart3[14];    // short band starts x 3, 0..576
  int32_t longWidth[22];
  int32_t shortWidth[13];
  int32_t longSubbands[23];   // min(32, floor((s + 8) / 18) + 1) for each long start s
  int32_t shortSubbands[14];  // max(1, ceil(s / 18)) for each short start s (already x 3)
};
static_assert(sizeof(BandTable) == 109 * 4);

}  // namespace kxmp3
