// Requantisation: sign(is) |is|^(4/3) 2^((global_gain - 210) / 4) 2^(-2 subblock_gain)
// 2^(-(scalefac_multiplier / 2)(scalefac + preflag pretab)), computed as two table
// look-ups and one multiplication per value: the power table is indexed by the coded
// value (the sign comes with the index) and the gain table by quarter steps from the
// granule's gain reference. Also records where the non-zero spectrum ends.
#include "requantise.h"

#include <cstring>

#include "band_tables.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// Multiplies `width` values of band [start, start + width) by one factor. Returns
// true when any coded value was non-zero.
inline bool ScaleBand(const uint32_t* coded, double* spectrum, uint32_t start, uint32_t width, double factor) {
  const double* power = gTables.power;
  uint32_t any = 0;
  for (uint32_t i = start; i < start + width; ++i) {
    spectrum[i] = factor * power[coded[i]];
    any |= coded[i];
  }
  return any != 0;
}

// Long bands from band 0 up to `limit` lines (whole bands). Returns the end line and
// stores the last non-zero band + 1 (0 when none) in `bound`.
uint32_t LongBands(const uint32_t* coded, double* spectrum, const ScaleFactors& sf, const GranuleInfo& gi,
                   const BandTable& bands, uint32_t limit, uint32_t& bound) {
  const uint8_t* pretab = kPretab[gi.preflag & 1];
  const uint32_t shift = gi.scalefac_multiplier;
  uint32_t line = 0;
  bound = 0;
  for (uint32_t b = 0; line < limit && b < 22; ++b) {
    const uint32_t width = static_cast<uint32_t>(bands.longWidth[b]);
    const double factor = gTables.gain[gi.global_gain_ref + ((sf.sf[b] + pretab[b]) << shift)];
    if (ScaleBand(coded, spectrum, line, width, factor)) bound = b + 1;
    line += width;
  }
  return line;
}

// Short bands from band `firstBand` at line `line`, three windows each, up to `limit`
// lines; the scale factor of band b, window w is sf[sfBase + 3 (b - firstBand) + w].
// Window bounds start at 2 before the scan, so they never end below 3.
uint32_t ShortBands(const uint32_t* coded, double* spectrum, const ScaleFactors& sf, const GranuleInfo& gi,
                    const BandTable& bands, uint32_t firstBand, uint32_t line, uint32_t sfBase, uint32_t limit,
                    uint32_t last[3]) {
  const uint32_t shift = gi.scalefac_multiplier;
  last[0] = last[1] = last[2] = 2;
  for (uint32_t b = firstBand; line < limit && b < 13; ++b) {
    const uint32_t width = static_cast<uint32_t>(bands.shortWidth[b]);
    for (uint32_t w = 0; w < 3; ++w) {
      const uint32_t s = sf.sf[sfBase + 3 * (b - firstBand) + w];
      const double factor = gTables.gain[gi.subblock_gain_ref[w] + (s << shift)];
      if (ScaleBand(coded, spectrum, line, width, factor) && b > last[w]) last[w] = b;
      line += width;
    }
  }
  return line;
}

}  // namespace

void Requantise(const uint32_t* coded, double* spectrum, const ScaleFactors& sf, GranuleInfo& gi, uint32_t rateCode,
                int32_t count) {
  const BandTable& bands = kBandTables[rateCode];
  const uint32_t n = count < 0 ? 0 : static_cast<uint32_t>(count);
  uint32_t done;
  if (gi.block_type != 2) {
    uint32_t bound;
    done = LongBands(coded, spectrum, sf, gi, bands, n, bound);
    gi.is_start_long = bound;
    gi.is_start_short[0] = gi.is_start_short[1] = gi.is_start_short[2] = 0;
    gi.active_subbands = static_cast<uint32_t>(bands.longSubbands[bound]);
  } else {
    uint32_t last[3];
    if (gi.mixed_block_flag == 0) {
      gi.is_start_long = 0;
      done = ShortBands(coded, spectrum, sf, gi, bands, 0, 0, 0, n, last);
    } else {
      // Two long subbands (36 lines), then short bands from band 3 with their scale
      // factors from entry 8 on, for every version.
      uint32_t bound;
      const uint32_t longLimit = n < 36 ? n : 36;
      done = LongBands(coded, spectrum, sf, gi, bands, longLimit, bound);
      gi.is_start_long = bound;
      if (n > done) {
        // Short band 3 starts at line 36 except at 8 kHz (line 72); lines in between
        // belong to neither part and stay silent.
        const uint32_t shortStart = static_cast<uint32_t>(bands.shortStart3[3]);
        if (shortStart > done) std::memset(spectrum + done, 0, (shortStart - done) * sizeof(double));
        done = ShortBands(coded, spectrum, sf, gi, bands, 3, shortStart, 8, n, last);
      } else {
        last[0] = last[1] = last[2] = 2;
      }
    }
    uint32_t widest = 0;
    for (uint32_t w = 0; w < 3; ++w) {
      gi.is_start_short[w] = last[w] + 1;
      if (gi.is_start_short[w] > widest) widest = gi.is_start_short[w];
    }
    gi.active_subbands = static_cast<uint32_t>(bands.shortSubbands[widest]);
  }
  if (done < kLinesPerGranule) std::memset(spectrum + done, 0, (kLinesPerGranule - done) * sizeof(double));
}

}  // namespace kxmp3
