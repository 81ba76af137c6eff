// Scale-factor reading for both versions. MPEG-1 uses two bit widths (slen1 for the
// lower bands, slen2 for the upper) and lets granule 1 reuse groups of granule 0
// (scfsi); MPEG-2 / 2.5 packs up to four widths and the group sizes into
// scalefac_compress, decoded through the precomputed words of band_tables.
// Nothing here can fail: the reader trusts part2_3_length and wraps in the ring.
#include "scale_factors.h"

#include "band_tables.h"
#include "bit_reader.h"

namespace kxmp3 {

namespace {

// `count` values of `bits` bits each (0 reads nothing and gives zeros), taken from
// one 64-bit look at the ring for as many values as its 57 sure bits hold.
void ReadRun(const uint8_t* reservoir, uint32_t& bitPos, uint32_t* dst, uint32_t count, uint32_t bits) {
  if (bits == 0) {
    for (uint32_t i = 0; i < count; ++i) dst[i] = 0;
    return;
  }
  const uint32_t perLook = 57 / bits;
  uint32_t i = 0;
  while (i < count) {
    uint64_t window = PeekBits64(reservoir, bitPos);
    const uint32_t stop = count - i > perLook ? i + perLook : count;
    bitPos += (stop - i) * bits;
    for (; i < stop; ++i) {
      dst[i] = static_cast<uint32_t>(window >> (64 - bits));
      window <<= bits;
    }
  }
}

void Zero(uint32_t* dst, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) dst[i] = 0;
}

}  // namespace

void ReadScaleFactorsMpeg1(const uint8_t* reservoir, uint32_t& bitPos, ScaleFactors& sf, const GranuleInfo& gi) {
  const uint32_t slen1 = kSlen[0][gi.scalefac_compress & 15];
  const uint32_t slen2 = kSlen[1][gi.scalefac_compress & 15];
  uint32_t* s = sf.sf;
  if (gi.block_type != 2) {
    s[21] = 0;
    s[22] = 0;
    if ((gi.scfsi & 8) == 0) ReadRun(reservoir, bitPos, s + 0, 6, slen1);
    if ((gi.scfsi & 4) == 0) ReadRun(reservoir, bitPos, s + 6, 5, slen1);
    if ((gi.scfsi & 2) == 0) ReadRun(reservoir, bitPos, s + 11, 5, slen2);
    if ((gi.scfsi & 1) == 0) ReadRun(reservoir, bitPos, s + 16, 5, slen2);
  } else if (gi.mixed_block_flag == 0) {
    // Short bands 0..5 and 6..11, three windows each, then band 12's three zeros.
    ReadRun(reservoir, bitPos, s + 0, 18, slen1);
    ReadRun(reservoir, bitPos, s + 18, 18, slen2);
    Zero(s + 36, 3);
  } else {
    // Long bands 0..7 and short bands 3..5 (slen1), short bands 6..11 (slen2).
    ReadRun(reservoir, bitPos, s + 0, 17, slen1);
    ReadRun(reservoir, bitPos, s + 17, 18, slen2);
    Zero(s + 35, 3);
  }
}

void ReadScaleFactorsMpeg2(const uint8_t* reservoir, uint32_t& bitPos, ScaleFactors& sf, GranuleInfo& gi,
                           bool intensityRight) {
  const uint32_t word = intensityRight ? kLsfScaleFactorCodes[kLsfIntensityCodes + ((gi.scalefac_compress >> 1) & 255)]
                                       : kLsfScaleFactorCodes[gi.scalefac_compress & 511];
  gi.preflag = (word >> 15) & 1;
  const uint32_t kind = gi.block_type != 2 ? 0 : (gi.mixed_block_flag == 0 ? 1 : 2);
  const uint8_t* counts = kNrOfSfb[kind][(word >> 12) & 7];
  uint32_t* s = sf.sf;
  uint32_t n = 0;
  for (uint32_t g = 0; g < 4; ++g) {
    const uint32_t slen = (word >> (3 * g)) & 7;
    if (slen != 0) {
      ReadRun(reservoir, bitPos, s + n, counts[g], slen);
    } else {
      Zero(s + n, counts[g]);
    }
    n += counts[g];
  }
  static constexpr uint32_t kTrailingZeros[3] = {1, 3, 5};
  Zero(s + n, kTrailingZeros[kind]);
}

}  // namespace kxmp3
