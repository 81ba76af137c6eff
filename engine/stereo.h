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

}  // namespace kxmp3
