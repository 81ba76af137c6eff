// Reordering of short blocks into interleaved window order, and the alias-reduction
// butterflies between adjacent subbands (scalar reference of the butterfly kernel).
#include "reorder_alias.h"

#include <cstring>

#include "band_tables.h"
#include "dsp_kernels.h"
#include "tables.h"

namespace kxmp3 {

void ReorderShortBlock(double* spectrum, const GranuleInfo& gi, uint32_t rateCode) {
  if (gi.block_type != 2) return;
  const BandTable& bands = kBandTables[rateCode];
  // Mixed blocks keep their two long subbands (lines 0..35) in place and reorder the
  // short bands from band 3 on.
  const uint32_t firstBand = gi.mixed_block_flag ? 3 : 0;
  const uint32_t firstLine = gi.mixed_block_flag ? 36 : 0;
  alignas(16) double scratch[kLinesPerGranule];
  std::memcpy(scratch + firstLine, spectrum + firstLine, (kLinesPerGranule - firstLine) * sizeof(double));
  for (uint32_t band = firstBand; band < 13; ++band) {
    const int32_t start = bands.shortStart3[band];
    const int32_t width = bands.shortWidth[band];
    // Band-then-window order in: window w's lines at start + w width + i.
    // Interleaved out: line i of window w at start + 3 i + w.
    for (int32_t w = 0; w < 3; ++w) {
      const double* from = scratch + start + w * width;
      double* to = spectrum + start + w;
      for (int32_t i = 0; i < width; ++i) to[3 * i] = from[i];
    }
  }
}

void AliasReduceScalar(double* upper, double* lower, uint32_t boundaries) {
  const double* cs = gTables.aliasCs;
  const double* ca = gTables.aliasCa;
  for (uint32_t b = 0; b < boundaries; ++b, upper += kLinesPerSubband, lower += kLinesPerSubband) {
    for (int i = 0; i < 8; ++i) {
      const double bu = upper[17 - i];
      const double bd = lower[i];
      upper[17 - i] = bu * cs[i] - bd * ca[i];
      lower[i] = bd * cs[i] + bu * ca[i];
    }
  }
}

void AliasReduce(double* spectrum, const GranuleInfo& gi) {
  const uint32_t active = gi.active_subbands < kSubbands ? gi.active_subbands : kSubbands;
  if (active < 2) return;
  if (gi.block_type == 2) {
    // Mixed blocks: only the boundary between the two long subbands. Pure short
    // blocks: none.
    if (gi.mixed_block_flag) Dsp().aliasReduce(spectrum, spectrum + kLinesPerSubband, 1);
    return;
  }
  // Long blocks: the boundaries below the last active subband only, so that nothing
  // leaks into the silent subbands above it.
  Dsp().aliasReduce(spectrum, spectrum + kLinesPerSubband, active - 1);
}

}  // namespace kxmp3
