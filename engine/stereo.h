// Joint-stereo processing of one granule: mid/side and intensity stereo.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Runs, for a two-channel granule whose spectrum holds channel 0 followed by channel 1
// (576 values each, 16-byte aligned): mid/side over max(active_subbands) subbands when
// `midSide`, then intensity stereo when `intensity`; afterwards both channels'
// active_subbands are the larger of the two. `lsf` is true for MPEG-2 and 2.5.
// `scalefactors1` are channel 1's scale factors (its intensity positions).
void ApplyStereo(double* spectrum, GranuleInfo& gi0, GranuleInfo& gi1, const ScaleFactors& scalefactors1,
                 uint32_t rateCode, bool midSide, bool intensity, bool lsf);

// Mid/side over subbands x 18 lines of both channels (16-byte aligned, subbands >= 1):
// left = m + s, right = m - s.
void MidSideKernel(double* left, double* right, uint32_t subbands);

// Intensity stereo in place on both channels of `spectrum`, driven by channel 1's
// block type, non-zero bounds and intensity positions `isPos` (its scale-factor array).
// `midSide` selects the ratio tables scaled by sqrt(2); `lsf` the MPEG-2/2.5 tables.
// Returns 0.
int IntensityStereo(double* spectrum, const GranuleInfo& gi1, uint32_t rateCode, const uint32_t* isPos, bool midSide,
                    bool lsf);

}  // namespace kxmp3
