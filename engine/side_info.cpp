// Side-information parsing for MPEG-1 and for MPEG-2 / 2.5. Field widths follow the
// coding order of the standards; the parser also derives what later steps use
// directly: big_value_count (clipped to 576, which marks the frame as damaged), the
// gain references into the gain table and the region counts of switched windows.
#include "side_info.h"

#include <cstring>

#include "../host/kx_result_codes.h"
#include "../engine/tables.h"
#include "bit_reader.h"

namespace kxmp3 {

namespace {

constexpr uint32_t kMidSideGainShift = 2;       // two quarter steps: 2^(-1/2)
constexpr uint32_t kSubblockGainStep = 8;       // entries per subblock_gain step: 2^(-2)
constexpr uint32_t kMaxBigValueCount = 576;

// The fields common to both versions from part2_3_length up to the end of the
// region / subblock part. `sfcBits` is 4 (MPEG-1) or 9 (MPEG-2). Returns the status
// events met: AF_S_FRAME_ERROR for a clipped big_values, `switchedType0` when a
// switched window carries block_type 0 (the version decides what that means).
struct GranuleStatus {
  bool clipped = false;
  bool switchedType0 = false;
};

GranuleStatus ParseGranule(GranuleInfo& gi, const uint8_t* bytes, uint32_t& pos, uint32_t sfcBits, bool midSide) {
  GranuleStatus st;
  gi.part2_3_length = GetBitsLinear(bytes, pos, 12);
  gi.big_value_count = 2 * GetBitsLinear(bytes, pos, 9);
  if (gi.big_value_count > kMaxBigValueCount) {
    gi.big_value_count = kMaxBigValueCount;
    st.clipped = true;
  }
  const uint32_t globalGain = GetBitsLinear(bytes, pos, 8);
  gi.global_gain_ref = kGainOrigin - globalGain + (midSide ? kMidSideGainShift : 0);
  gi.scalefac_compress = GetBitsLinear(bytes, pos, sfcBits);
  if (GetBitsLinear(bytes, pos, 1) != 0) {  // window_switching_flag
    gi.block_type = GetBitsLinear(bytes, pos, 2);
    gi.mixed_block_flag = GetBitsLinear(bytes, pos, 1);
    gi.table_select[0] = GetBitsLinear(bytes, pos, 5);
    gi.table_select[1] = GetBitsLinear(bytes, pos, 5);
    for (uint32_t w = 0; w < 3; ++w)
      gi.subblock_gain_ref[w] = gi.global_gain_ref + kSubblockGainStep * GetBitsLinear(bytes, pos, 3);
    if (gi.block_type == 0) {
      // A switched window must not be a normal block; the region counts stay as they were.
      st.switchedType0 = true;
    } else if (gi.block_type == 2 && gi.mixed_block_flag == 0) {
      gi.region0_count = 8;
      gi.region1_count = 12;
    } else {
      gi.region0_count = 7;
      gi.region1_count = 13;
    }
  } else {
    gi.block_type = 0;
    gi.mixed_block_flag = 0;
    for (uint32_t r = 0; r < 3; ++r) gi.table_select[r] = GetBitsLinear(bytes, pos, 5);
    gi.region0_count = GetBitsLinear(bytes, pos, 4);
    gi.region1_count = GetBitsLinear(bytes, pos, 3);
    for (uint32_t w = 0; w < 3; ++w) gi.subblock_gain_ref[w] = gi.global_gain_ref;
  }
  return st;
}

KxResult ReadBytes(Class_ZStream* stream, uint8_t* buffer, uint32_t bytes) {
  return stream->Read(buffer, bytes, nullptr) == AF_S_OK ? AF_S_OK : AF_S_END_OF_DATA;
}

}  // namespace

KxResult ParseSideInfoMpeg1(SideInfo& si, const uint8_t* bytes, uint32_t channels, bool midSide) {
  KxResult status = AF_S_OK;
  uint32_t pos = 0;
  si.main_data_begin = GetBitsLinear(bytes, pos, 9);
  si.private_bits = GetBitsLinear(bytes, pos, channels == 1 ? 5 : 3);
  uint32_t scfsi[2] = {0, 0};
  for (uint32_t ch = 0; ch < channels; ++ch) scfsi[ch] = GetBitsLinear(bytes, pos, 4);
  for (uint32_t gr = 0; gr < 2; ++gr) {
    for (uint32_t ch = 0; ch < channels; ++ch) {
      GranuleInfo& gi = si.gr[gr][ch];
      const GranuleStatus st = ParseGranule(gi, bytes, pos, 4, midSide);
      if (st.clipped) status = AF_S_FRAME_ERROR;
      if (st.switchedType0) status = AF_E_BAD_FORMAT;
      gi.preflag = GetBitsLinear(bytes, pos, 1);
      gi.scalefac_multiplier = GetBitsLinear(bytes, pos, 1) != 0 ? 2 : 1;
      gi.count1table_select = GetBitsLinear(bytes, pos, 1);
      // Only granule 1 may reuse the scale factors of granule 0.
      gi.scfsi = gr == 0 ? 0 : scfsi[ch];
    }
  }
  return status;
}

KxResult ParseSideInfoMpeg2(SideInfo& si, const uint8_t* bytes, uint32_t channels, bool midSide) {
  KxResult status = AF_S_OK;
  uint32_t pos = 0;
  si.main_data_begin = GetBitsLinear(bytes, pos, 8);
  si.private_bits = GetBitsLinear(bytes, pos, channels == 1 ? 1 : 2);
  for (uint32_t ch = 0; ch < channels; ++ch) {
    GranuleInfo& gi = si.gr[0][ch];
    // A switched window of block_type 0 is let through here: the block is decoded
    // as a long block with the region counts it already had.
    if (ParseGranule(gi, bytes, pos, 9, midSide).clipped) status = AF_S_FRAME_ERROR;
    gi.scalefac_multiplier = GetBitsLinear(bytes, pos, 1) != 0 ? 2 : 1;
    gi.count1table_select = GetBitsLinear(bytes, pos, 1);
    gi.scfsi = 0;
  }
  return status;
}

KxResult ReadSideInfoMpeg1(SideInfo& si, Class_ZStream* stream, uint32_t channels, bool midSide) {
  uint8_t buffer[32 + 4] = {};
  const KxResult r = ReadBytes(stream, buffer, SideInfoBytes(true, channels));
  if (r != AF_S_OK) return r;
  return ParseSideInfoMpeg1(si, buffer, channels, midSide);
}

KxResult ReadSideInfoMpeg2(SideInfo& si, Class_ZStream* stream, uint32_t channels, bool midSide) {
  uint8_t buffer[17 + 4] = {};
  const KxResult r = ReadBytes(stream, buffer, SideInfoBytes(false, channels));
  if (r != AF_S_OK) return r;
  return ParseSideInfoMpeg2(si, buffer, channels, midSide);
}

}  // namespace kxmp3
