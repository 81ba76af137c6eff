// IMDCT, windowing and overlap-add of one granule-channel.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Turns the 32 x 18 spectral lines of `spectrum` (16-byte aligned, after alias
// reduction) into 32 x 18 time samples in place, using and updating `overlap`
// (32 x 18 doubles, 16-byte aligned). Subbands from gi.active_subbands on are
// silent: they output the stored overlap, which then becomes zero.
void ImdctGranule(double* spectrum, double* overlap, const GranuleInfo& gi);

}  // namespace kxmp3
