// Joint-stereo processing of one granule: mid/side (sums and differences only; the
// 1/sqrt(2) of mid/side is folded into the global gain by the side-information reader)
// and intensity stereo for MPEG-1 and the low sampling frequencies, long, short and
// mixed blocks. Holds the scalar reference of the mid/side kernel.
#include "stereo.h"

#include "band_tables.h"
#include "dsp_kernels.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// Intensity positions above the 4 bits a scale factor can hold never occur; they are
// kept away from the 16-entry ratio tables.
constexpr uint32_t kRatioEntries = 16;
// The one illegal intensity position, for every version: the band keeps its values.
constexpr uint32_t kIllegalPosition = 7;

struct Ratios {
  const double* left;
  const double* right;
};

// count values of channel 0 from `first`, every `step`-th, become v kL (channel 0) and
// v kR (channel 1).
void ApplyPosition(double* ch0, double* ch1, uint32_t first, uint32_t count, uint32_t step, uint32_t pos,
                   const Ratios& r) {
  if (pos == kIllegalPosition || pos >= kRatioEntries) return;
  const double kl = r.left[pos];
  const double kr = r.right[pos];
  for (uint32_t i = 0, at = first; i < count; ++i, at += step) {
    const double v = ch0[at];
    ch0[at] = v * kl;
    ch1[at] = v * kr;
  }
}

// Long bands `from`..`to` (inclusive, at most 20) with their own positions.
void LongBands(double* ch0, double* ch1, const BandTable& bands, uint32_t from, uint32_t to, const uint32_t* isPos,
               const Ratios& r) {
  for (uint32_t sfb = from; sfb <= to; ++sfb) {
    ApplyPosition(ch0, ch1, static_cast<uint32_t>(bands.longStart[sfb]), static_cast<uint32_t>(bands.longWidth[sfb]),
                  1, isPos[sfb], r);
  }
}

}  // namespace

void MidSideScalar(double* left, double* right, uint32_t subbands) {
  const uint32_t lines = subbands * kLinesPerSubband;
  for (uint32_t i = 0; i < lines; ++i) {
    const double m = left[i];
    const double s = right[i];
    left[i] = m + s;
    right[i] = m - s;
  }
}

void MidSideKernel(double* left, double* right, uint32_t subbands) { Dsp().midSide(left, right, subbands); }

int IntensityStereo(double* spectrum, const GranuleInfo& gi1, uint32_t rateCode, const uint32_t* isPos, bool midSide,
                    bool lsf) {
  const BandTable& bands = kBandTables[rateCode];
  Ratios r;
  if (lsf) {
    const uint32_t row = (gi1.scalefac_compress & 1) + (midSide ? 2 : 0);
    r = {gTables.isRatioLsf[row][0], gTables.isRatioLsf[row][1]};
  } else {
    const uint32_t row = midSide ? 1 : 0;
    r = {gTables.isRatioMpeg1[row][0], gTables.isRatioMpeg1[row][1]};
  }
  double* ch0 = spectrum;
  double* ch1 = spectrum + kLinesPerGranule;

  if (gi1.block_type != 2) {
    const uint32_t start = gi1.is_start_long;
    if (start > 21) return 0;
    if (start <= 20) LongBands(ch0, ch1, bands, start, 20, isPos, r);
    // Band 21 has no scale factor of its own: it reuses band 20's position and runs to
    // the last line.
    const uint32_t first = static_cast<uint32_t>(bands.longStart[21]);
    ApplyPosition(ch0, ch1, first, kLinesPerGranule - first, 1, isPos[20], r);
    return 0;
  }

  const uint32_t mixed = gi1.mixed_block_flag ? 1 : 0;
  for (uint32_t w = 0; w < 3; ++w) {
    uint32_t start = gi1.is_start_short[w];
    // The short part of a mixed block begins at short band 3.
    if (mixed && start < 3) start = 3;
    for (uint32_t sfb = start; sfb < 12; ++sfb) {
      ApplyPosition(ch0, ch1, static_cast<uint32_t>(bands.shortStart3[sfb]) + w,
                    static_cast<uint32_t>(bands.shortWidth[sfb]), 3, isPos[3 * sfb + w - mixed], r);
    }
    // Short band 12 reuses band 11's position of the same window.
    if (start <= 12) {
      ApplyPosition(ch0, ch1, static_cast<uint32_t>(bands.shortStart3[12]) + w,
                    static_cast<uint32_t>(bands.shortWidth[12]), 3, isPos[33 + w - mixed], r);
    }
  }
  // The long part of a mixed block (bands 0..7 at every sampling frequency) takes part
  // only when the intensity region of every window reaches into it.
  if (mixed && gi1.is_start_short[0] < 4 && gi1.is_start_short[1] < 4 && gi1.is_start_short[2] < 4 &&
      gi1.is_start_long <= 7) {
    LongBands(ch0, ch1, bands, gi1.is_start_long, 7, isPos, r);
  }
  return 0;
}

void ApplyStereo(double* spectrum, GranuleInfo& gi0, GranuleInfo& gi1, const ScaleFactors& scalefactors1,
                 uint32_t rateCode, bool midSide, bool intensity, bool lsf) {
  if (!midSide && !intensity) return;
  uint32_t active = gi0.active_subbands > gi1.active_subbands ? gi0.active_subbands : gi1.active_subbands;
  if (active > kSubbands) active = kSubbands;
  if (midSide && active > 0) MidSideKernel(spectrum, spectrum + kLinesPerGranule, active);
  if (intensity) IntensityStereo(spectrum, gi1, rateCode, scalefactors1.sf, midSide, lsf);
  gi0.active_subbands = active;
  gi1.active_subbands = active;
}

}  // namespace kxmp3
