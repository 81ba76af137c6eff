// Scale factors: the first bits of a granule-channel's main data (counted in its
// part2_3_length), read from the bit reservoir right before its Huffman data.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// MPEG-1: reads the granule's scale factors at `bitPos` of the reservoir ring with
// the slen pair of scalefac_compress. Long blocks leave the groups whose scfsi bit
// is set as the previous granule left them.
void ReadScaleFactorsMpeg1(const uint8_t* reservoir, uint32_t& bitPos, ScaleFactors& sf, const GranuleInfo& gi);

// MPEG-2 / 2.5: decodes scalefac_compress (the halved intensity variant when
// `intensityRight` is set: intensity stereo on and channel 1), sets gi.preflag, and
// reads the four band groups.
void ReadScaleFactorsMpeg2(const uint8_t* reservoir, uint32_t& bitPos, ScaleFactors& sf, GranuleInfo& gi,
                           bool intensityRight);

}  // namespace kxmp3
