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

// The pieces of one subband (all pointers 16-byte aligned):
// 18 lines (overwritten) to 36 windowed samples for block type 0, 1 or 3.
void ImdctLong(double* lines, double* scratch, uint32_t blockType);
// The three interleaved 6-line windows of a short-block subband to 36 samples (the
// windowed 12-point outputs overlapped at 6, 12 and 18; zeros elsewhere).
void ImdctShort(const double* lines, double* scratch);
// subband[t] = scratch[t] + overlap[t], then overlap[t] = scratch[18 + t], t = 0..17.
void OverlapAdd(const double* scratch, double* subband, double* overlap);
// ImdctShort (block type 2) or ImdctLong, then OverlapAdd, in place on one subband.
void HybridSubband(double* subband, double* overlap, uint32_t blockType);

}  // namespace kxmp3
