// Frame header reading, sync search and frame lengths.
#pragma once

#include <cstdint>

#include "../host/kx_result_codes.h"
#include "../host/zstream.h"
#include "engine_types.h"

namespace kxmp3 {

// Only these header bits are compared with the reference header: sync, version,
// layer and sampling frequency.
constexpr uint32_t kHeaderCompareMask = 0xFFFE0C00u;

// Frame length in bytes without the padding byte, by rate code and bitrate index.
extern const uint32_t kFrameLengthTable[9][15];
// Negated size of the header and side information, by version * 3 + channels.
extern const int32_t kSideInfoAdjust[9];
// Sampling frequencies by rate code.
extern const uint32_t kSampleRates[9];
// Layer III bitrates in kbit/s: [0] MPEG-1, [1] MPEG-2 and 2.5; index 0..14.
extern const uint32_t kBitrates[2][15];

// The five tests a Layer III frame start must pass (sync, version not reserved,
// Layer III, bitrate index 1..14, sampling-frequency bits not 3).
bool IsLayer3Header(uint32_t word);

}  // namespace kxmp3
