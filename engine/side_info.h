// Side information of a frame: read from the stream right after the header (and
// check word) and parsed into one GranuleInfo per granule and channel, with the
// values the later steps need derived at parse time (clipped big_value_count, gain
// references, fixed region counts of switched windows).
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/zstream.h"
#include "engine_types.h"

namespace kxmp3 {

// Side-information bytes: MPEG-1 17 (one channel) or 32 (two); MPEG-2 and 2.5 9 or 17.
constexpr uint32_t SideInfoBytes(bool mpeg1, uint32_t channels) {
  return mpeg1 ? (channels == 1 ? 17 : 32) : (channels == 1 ? 9 : 17);
}

// Parse an MPEG-1 (two granules) or MPEG-2 / 2.5 (one granule) side information from
// `bytes` (SideInfoBytes(...) bytes followed by at least 3 readable padding bytes).
// `midSide` moves every gain reference two entries on (the 1/sqrt(2) of mid/side).
// Returns AF_S_OK, AF_S_FRAME_ERROR when a big_values count was clipped, or (MPEG-1
// only) AF_E_BAD_FORMAT for a switched window of block_type 0; the last such event
// in parse order decides, and parsing always goes to the end.
KxResult ParseSideInfoMpeg1(SideInfo& si, const uint8_t* bytes, uint32_t channels, bool midSide);
KxResult ParseSideInfoMpeg2(SideInfo& si, const uint8_t* bytes, uint32_t channels, bool midSide);

// Read the side information from the stream and parse it; a failed read gives
// AF_S_END_OF_DATA.
KxResult ReadSideInfoMpeg1(SideInfo& si, Class_ZStream* stream, uint32_t channels, bool midSide);
KxResult ReadSideInfoMpeg2(SideInfo& si, Class_ZStream* stream, uint32_t channels, bool midSide);

}  // namespace kxmp3
