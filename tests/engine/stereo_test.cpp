// Joint stereo: the mid/side kernel, intensity stereo for MPEG-1 and the low sampling
// frequencies over long, short and mixed blocks with the deliberate rules (only
// position 7 is illegal, band 21 and short band 12 reuse the previous position, the
// long part of a mixed block only when every window's start is 3, bands 0..7 at every
// rate), and the driver-facing ApplyStereo.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "dsp_test_util.h"
#include "engine/band_tables.h"
#include "engine/engine_types.h"
#include "engine/stereo.h"
#include "engine/tables.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

constexpr uint32_t kRate44 = 0;
constexpr uint32_t kRate22 = 3;
constexpr uint32_t kRate8 = 8;

class StereoTest : public ::testing::Test {
 protected:
  void SetUp() override { kxtest::EnsureDecoderTables(); }
};

// Channel 0 random everywhere, channel 1 random below `ch1Lines`, zero above.
Doubles<1152> Spectrum(uint32_t seed, uint32_t ch1Lines = 0) {
  kxtest::Random rnd(seed);
  Doubles<1152> s;
  for (int i = 0; i < 576; ++i) s[i] = rnd.Next(100.0);
  for (uint32_t i = 0; i < 576; ++i) s[576 + i] = i < ch1Lines ? rnd.Next(100.0) : 0.0;
  return s;
}

// What intensity stereo does to line i, worked out per line: its band (and window for
// short blocks), whether that band takes part, and which position it reads. Returns
// the position, or -1 when the line is left alone.
int PositionOfLine(uint32_t i, const GranuleInfo& gi, const ScaleFactors& sf, uint32_t rate) {
  const BandTable& bt = kBandTables[rate];
  auto longBand = [&](uint32_t line) {
    uint32_t b = 0;
    while (b < 21 && static_cast<uint32_t>(bt.longStart[b + 1]) <= line) ++b;
    return b;  // 21 for the last band
  };
  auto usable = [](uint32_t pos) { return pos == 7 ? -1 : static_cast<int>(pos); };
  if (gi.block_type != 2) {
    const uint32_t b = longBand(i);
    if (b < gi.is_start_long) return -1;
    return usable(sf.sf[b < 21 ? b : 20]);
  }
  const uint32_t mixed = gi.mixed_block_flag;
  if (mixed && i < static_cast<uint32_t>(bt.shortStart3[3])) {
    // Long part of a mixed block: bands 0..7 when every window's start is below 4.
    const uint32_t b = longBand(i);
    if (b > 7 || b < gi.is_start_long) return -1;
    for (int w = 0; w < 3; ++w) {
      if (gi.is_start_short[w] >= 4) return -1;
    }
    return usable(sf.sf[b]);
  }
  uint32_t b = 0;
  while (b < 12 && static_cast<uint32_t>(bt.shortStart3[b + 1]) <= i) ++b;
  const uint32_t w = (i - bt.shortStart3[b]) % 3;
  if (b < gi.is_start_short[w]) return -1;
  const uint32_t from = b < 12 ? b : 11;
  return usable(sf.sf[3 * from + w - mixed]);
}

void ExpectIntensity(const Doubles<1152>& before, const Doubles<1152>& after, const GranuleInfo& gi,
                     const ScaleFactors& sf, uint32_t rate, const double* kl, const double* kr) {
  int touched = 0;
  for (uint32_t i = 0; i < 576; ++i) {
    const int pos = PositionOfLine(i, gi, sf, rate);
    if (pos < 0) {
      ASSERT_TRUE(kxtest::SameBits(before[i], after[i])) << "line " << i;
      ASSERT_TRUE(kxtest::SameBits(before[576 + i], after[576 + i])) << "line " << i;
    } else {
      ASSERT_EQ(before[i] * kl[pos], after[i]) << "line " << i;
      ASSERT_EQ(before[i] * kr[pos], after[576 + i]) << "line " << i;
      ++touched;
    }
  }
  EXPECT_GT(touched, 0);
}

GranuleInfo LongInfo(uint32_t isStartLong) {
  GranuleInfo gi{};
  gi.block_type = 0;
  gi.is_start_long = isStartLong;
  gi.active_subbands = 32;
  return gi;
}

GranuleInfo ShortInfo(uint32_t mixed, uint32_t w0, uint32_t w1, uint32_t w2, uint32_t isStartLong = 0) {
  GranuleInfo gi{};
  gi.block_type = 2;
  gi.mixed_block_flag = mixed;
  gi.is_start_short[0] = w0;
  gi.is_start_short[1] = w1;
  gi.is_start_short[2] = w2;
  gi.is_start_long = isStartLong;
  gi.active_subbands = 32;
  return gi;
}

ScaleFactors Positions(uint32_t seed) {
  ScaleFactors sf{};
  for (int i = 0; i < 39; ++i) sf.sf[i] = (i * 5 + seed) % 7;  // 0..6, no illegal ones
  return sf;
}

// --- Mid/side ---

TEST_F(StereoTest, MidSideKernelSumsAndDifferencesOnlyTheActiveLines) {
  Doubles<1152> s = Spectrum(1, 576);
  const Doubles<1152> before = s;
  MidSideKernel(s.data(), s.data() + 576, 7);
  for (int i = 0; i < 576; ++i) {
    if (i < 7 * 18) {
      EXPECT_EQ(before[i] + before[576 + i], s[i]);
      EXPECT_EQ(before[i] - before[576 + i], s[576 + i]);
    } else {
      EXPECT_TRUE(kxtest::SameBits(before[i], s[i]));
      EXPECT_TRUE(kxtest::SameBits(before[576 + i], s[576 + i]));
    }
  }
}

TEST_F(StereoTest, MidSideOnlyLeavesGainsAndEverythingElse) {
  // mode_extension bit 1 alone: sums and differences over max(active) subbands, no
  // scaling here (the 1/sqrt(2) lives in the gain references).
  Doubles<1152> s = Spectrum(2, 576);
  const Doubles<1152> before = s;
  GranuleInfo gi0 = LongInfo(0), gi1 = LongInfo(0);
  gi0.active_subbands = 5;
  gi1.active_subbands = 11;
  gi0.global_gain_ref = 100;
  gi1.global_gain_ref = 90;
  const GranuleInfo keep0 = gi0, keep1 = gi1;
  ApplyStereo(s.data(), gi0, gi1, Positions(0), kRate44, true, false, false);
  for (int i = 0; i < 11 * 18; ++i) {
    EXPECT_EQ(before[i] + before[576 + i], s[i]);
    EXPECT_EQ(before[i] - before[576 + i], s[576 + i]);
  }
  for (int i = 11 * 18; i < 576; ++i) EXPECT_EQ(before[i], s[i]);
  EXPECT_EQ(11u, gi0.active_subbands);
  EXPECT_EQ(11u, gi1.active_subbands);
  EXPECT_EQ(keep0.global_gain_ref, gi0.global_gain_ref);
  EXPECT_EQ(keep1.global_gain_ref, gi1.global_gain_ref);
}

TEST_F(StereoTest, NoBitsNoChange) {
  Doubles<1152> s = Spectrum(3, 576);
  const Doubles<1152> before = s;
  GranuleInfo gi0 = LongInfo(0), gi1 = LongInfo(0);
  gi0.active_subbands = 3;
  gi1.active_subbands = 9;
  ApplyStereo(s.data(), gi0, gi1, Positions(0), kRate44, false, false, false);
  EXPECT_EQ(0, std::memcmp(before.data(), s.data(), sizeof s));
  EXPECT_EQ(3u, gi0.active_subbands);
  EXPECT_EQ(9u, gi1.active_subbands);
}

// --- Intensity, long blocks ---

TEST_F(StereoTest, IntensityLongMpeg1) {
  for (uint32_t start : {0u, 4u, 13u, 20u}) {
    Doubles<1152> s = Spectrum(4 + start, kBandTables[kRate44].longStart[start]);
    const Doubles<1152> before = s;
    const GranuleInfo gi = LongInfo(start);
    const ScaleFactors sf = Positions(start);
    EXPECT_EQ(0, IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false));
    ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[0][0], gTables.isRatioMpeg1[0][1]);
  }
}

TEST_F(StereoTest, PositionSevenLeavesTheBand) {
  Doubles<1152> s = Spectrum(5, 0);
  const Doubles<1152> before = s;
  const GranuleInfo gi = LongInfo(8);
  ScaleFactors sf = Positions(1);
  sf.sf[10] = 7;
  sf.sf[15] = 7;
  IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false);
  const BandTable& bt = kBandTables[kRate44];
  for (int b : {10, 15}) {
    for (int i = bt.longStart[b]; i < bt.longStart[b + 1]; ++i) {
      EXPECT_EQ(before[i], s[i]);
      EXPECT_EQ(0.0, s[576 + i]);
    }
  }
  ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[0][0], gTables.isRatioMpeg1[0][1]);
}

TEST_F(StereoTest, PositionsAboveSevenAreUsedWithoutGuard) {
  // Only 7 is illegal: 8..15 take the table entries as they are.
  Doubles<1152> s = Spectrum(6, 0);
  const Doubles<1152> before = s;
  const GranuleInfo gi = LongInfo(18);
  ScaleFactors sf{};
  sf.sf[18] = 9;
  sf.sf[19] = 12;
  sf.sf[20] = 15;
  IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false);
  ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[0][0], gTables.isRatioMpeg1[0][1]);
  const int line = kBandTables[kRate44].longStart[18];
  EXPECT_EQ(before[line] * gTables.isRatioMpeg1[0][0][9], s[line]);
}

TEST_F(StereoTest, BandTwentyOneReusesBandTwenty) {
  const BandTable& bt = kBandTables[kRate44];
  for (uint32_t pos20 : {2u, 7u}) {
    Doubles<1152> s = Spectrum(7, 0);
    const Doubles<1152> before = s;
    ScaleFactors sf = Positions(2);
    sf.sf[20] = pos20;
    sf.sf[21] = 5;  // never read: band 21 has no scale factor of its own
    IntensityStereo(s.data(), LongInfo(21), kRate44, sf.sf, false, false);
    for (int i = 0; i < 576; ++i) {
      if (i >= bt.longStart[21] && pos20 != 7) {
        EXPECT_EQ(before[i] * gTables.isRatioMpeg1[0][0][pos20], s[i]) << i;
        EXPECT_EQ(before[i] * gTables.isRatioMpeg1[0][1][pos20], s[576 + i]) << i;
      } else {
        EXPECT_EQ(before[i], s[i]) << i;
        EXPECT_EQ(before[576 + i], s[576 + i]) << i;
      }
    }
  }
}

TEST_F(StereoTest, StartAboveTwentyOneDoesNothing) {
  Doubles<1152> s = Spectrum(8, 576);
  const Doubles<1152> before = s;
  IntensityStereo(s.data(), LongInfo(22), kRate44, Positions(3).sf, false, false);
  EXPECT_EQ(0, std::memcmp(before.data(), s.data(), sizeof s));
}

TEST_F(StereoTest, MidSideScaledTablesWhenBothBitsAreSet) {
  Doubles<1152> s = Spectrum(9, 36);
  const Doubles<1152> before = s;
  const GranuleInfo gi = LongInfo(3);
  const ScaleFactors sf = Positions(4);
  IntensityStereo(s.data(), gi, kRate44, sf.sf, true, false);
  ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[1][0], gTables.isRatioMpeg1[1][1]);
}

TEST_F(StereoTest, BothBitsEqualIntensityOnUnscaledValues) {
  // With mid/side the requantiser has scaled both channels by 2^(-1/2); channel 1 is
  // zero in the intensity region. Mid/side then intensity with the sqrt(2) tables gives
  // what plain intensity stereo gives on the unscaled values.
  const uint32_t start = 6;
  const uint32_t ch1Lines = kBandTables[kRate44].longStart[start];
  Doubles<1152> plain = Spectrum(10, ch1Lines);
  Doubles<1152> scaled = plain;
  for (int i = 0; i < 1152; ++i) scaled[i] = plain[i] * std::sqrt(0.5);
  GranuleInfo a0 = LongInfo(0), a1 = LongInfo(start);
  GranuleInfo b0 = a0, b1 = a1;
  const ScaleFactors sf = Positions(5);
  ApplyStereo(scaled.data(), a0, a1, sf, kRate44, true, true, false);
  // Reference: mid/side on unscaled values (the 1/sqrt(2) applied by hand), then plain
  // intensity.
  Doubles<1152> ref = plain;
  for (int i = 0; i < 576; ++i) {
    const double m = plain[i], side = plain[576 + i];
    ref[i] = (m + side) * std::sqrt(0.5);
    ref[576 + i] = (m - side) * std::sqrt(0.5);
  }
  for (uint32_t i = ch1Lines; i < 576; ++i) ref[576 + i] = 0.0;
  for (uint32_t i = ch1Lines; i < 576; ++i) ref[i] = plain[i];
  ApplyStereo(ref.data(), b0, b1, sf, kRate44, false, true, false);
  for (int i = 0; i < 1152; ++i) {
    EXPECT_NEAR(ref[i], scaled[i], 1e-13 * std::fmax(1.0, std::fabs(ref[i]))) << i;
  }
}

TEST_F(StereoTest, PositionSevenKeepsTheMidSideValues) {
  Doubles<1152> s = Spectrum(11, 0);
  const Doubles<1152> before = s;
  GranuleInfo gi0 = LongInfo(0), gi1 = LongInfo(0);
  ScaleFactors sf{};
  for (int i = 0; i < 39; ++i) sf.sf[i] = 7;
  ApplyStereo(s.data(), gi0, gi1, sf, kRate44, true, true, false);
  for (int i = 0; i < 576; ++i) {
    EXPECT_EQ(before[i] + before[576 + i], s[i]);
    EXPECT_EQ(before[i] - before[576 + i], s[576 + i]);
  }
}

TEST_F(StereoTest, ActiveSubbandsBecomeTheLargerAfterIntensity) {
  Doubles<1152> s = Spectrum(12, 18);
  GranuleInfo gi0 = LongInfo(0), gi1 = LongInfo(2);
  gi0.active_subbands = 20;
  gi1.active_subbands = 2;
  ApplyStereo(s.data(), gi0, gi1, Positions(6), kRate44, false, true, false);
  EXPECT_EQ(20u, gi0.active_subbands);
  EXPECT_EQ(20u, gi1.active_subbands);
}

// --- Intensity, short and mixed blocks ---

TEST_F(StereoTest, IntensityShortPerWindowStarts) {
  Doubles<1152> s = Spectrum(13, 0);
  const Doubles<1152> before = s;
  const GranuleInfo gi = ShortInfo(0, 3, 7, 13);
  const ScaleFactors sf = Positions(7);
  IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false);
  ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[0][0], gTables.isRatioMpeg1[0][1]);
  // Window 2 starts at 13: none of its lines, not even band 12, changes.
  const BandTable& bt = kBandTables[kRate44];
  for (int i = bt.shortStart3[3] + 2; i < 576; i += 3) EXPECT_EQ(before[i], s[i]) << i;
}

TEST_F(StereoTest, ShortBandTwelveReusesBandEleven) {
  const BandTable& bt = kBandTables[kRate44];
  for (uint32_t pos11 : {4u, 7u}) {
    Doubles<1152> s = Spectrum(14, 0);
    const Doubles<1152> before = s;
    ScaleFactors sf = Positions(8);
    for (int w = 0; w < 3; ++w) sf.sf[33 + w] = w == 1 ? pos11 : 1;
    sf.sf[36] = 5;  // the zeros after band 11 are never read as a position
    sf.sf[37] = 5;
    sf.sf[38] = 5;
    const GranuleInfo gi = ShortInfo(0, 12, 12, 12);
    IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false);
    for (int i = bt.shortStart3[12]; i < 576; ++i) {
      const int w = (i - bt.shortStart3[12]) % 3;
      const uint32_t pos = w == 1 ? pos11 : 1;
      if (pos == 7) {
        EXPECT_EQ(before[i], s[i]) << i;
      } else {
        EXPECT_EQ(before[i] * gTables.isRatioMpeg1[0][0][pos], s[i]) << i;
      }
    }
    for (int i = 0; i < bt.shortStart3[12]; ++i) EXPECT_EQ(before[i], s[i]) << i;
  }
}

TEST_F(StereoTest, MixedBlockLongPartWhenEveryWindowStartsAtThree) {
  Doubles<1152> s = Spectrum(15, 0);
  const Doubles<1152> before = s;
  const GranuleInfo gi = ShortInfo(1, 3, 3, 3, 2);
  const ScaleFactors sf = Positions(9);
  IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false);
  ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[0][0], gTables.isRatioMpeg1[0][1]);
  // Long bands 2..7 took their own positions; bands 0 and 1 are below the start.
  const BandTable& bt = kBandTables[kRate44];
  EXPECT_EQ(before[bt.longStart[2]] * gTables.isRatioMpeg1[0][0][sf.sf[2]], s[bt.longStart[2]]);
  EXPECT_EQ(before[0], s[0]);
  // Short band 3 window 0 reads index 3 x 3 + 0 - 1 = 8.
  EXPECT_EQ(before[bt.shortStart3[3]] * gTables.isRatioMpeg1[0][0][sf.sf[8]], s[bt.shortStart3[3]]);
}

TEST_F(StereoTest, MixedBlockLongPartUntouchedWhenAWindowStartsHigher) {
  Doubles<1152> s = Spectrum(16, 0);
  const Doubles<1152> before = s;
  const GranuleInfo gi = ShortInfo(1, 3, 3, 5, 0);
  const ScaleFactors sf = Positions(10);
  IntensityStereo(s.data(), gi, kRate44, sf.sf, false, false);
  for (int i = 0; i < 36; ++i) {
    EXPECT_EQ(before[i], s[i]) << i;
    EXPECT_EQ(0.0, s[576 + i]) << i;
  }
  ExpectIntensity(before, s, gi, sf, kRate44, gTables.isRatioMpeg1[0][0], gTables.isRatioMpeg1[0][1]);
}

// --- Low sampling frequencies ---

TEST_F(StereoTest, LsfTableChosenByScalefacCompressAndMidSide) {
  for (uint32_t compress : {0u, 1u, 6u, 7u}) {
    for (bool ms : {false, true}) {
      Doubles<1152> s = Spectrum(17, 0);
      const Doubles<1152> before = s;
      GranuleInfo gi = LongInfo(0);
      gi.scalefac_compress = compress;
      ScaleFactors sf{};
      for (int i = 0; i < 22; ++i) sf.sf[i] = (i * 3) % 16 == 7 ? 8 : (i * 3) % 16;  // 0..15 without 7
      IntensityStereo(s.data(), gi, kRate22, sf.sf, ms, true);
      const uint32_t row = (compress & 1) + (ms ? 2 : 0);
      ExpectIntensity(before, s, gi, sf, kRate22, gTables.isRatioLsf[row][0], gTables.isRatioLsf[row][1]);
    }
  }
}

TEST_F(StereoTest, LsfMixedBlockLongPartIsBandsZeroToSeven) {
  // At the low rates the two long subbands hold fewer than eight long bands, but the
  // long part is still bands 0..7 with positions taken at indices 0..7 as they stand.
  // Where bands 6 and 7 (22.05 kHz) or band 7 (8 kHz) lie above the start of short band
  // 3, their lines are processed twice: first as short lines, then as long lines.
  for (uint32_t rate : {kRate22, kRate8}) {
    Doubles<1152> s = Spectrum(18, 0);
    const Doubles<1152> before = s;
    GranuleInfo gi = ShortInfo(1, 3, 3, 3, 0);
    gi.scalefac_compress = 1;
    const ScaleFactors sf = Positions(11);
    IntensityStereo(s.data(), gi, rate, sf.sf, false, true);
    const BandTable& bt = kBandTables[rate];
    const double* kl = gTables.isRatioLsf[1][0];
    const double* kr = gTables.isRatioLsf[1][1];
    Doubles<1152> want = before;
    for (int b = 3; b < 13; ++b) {
      for (int j = 0; j < 3 * bt.shortWidth[b]; ++j) {
        const int i = bt.shortStart3[b] + j;
        const uint32_t pos = sf.sf[3 * (b < 12 ? b : 11) + j % 3 - 1];
        if (pos == 7) continue;
        const double v = want[i];
        want[i] = v * kl[pos];
        want[576 + i] = v * kr[pos];
      }
    }
    int twice = 0;
    for (int b = 0; b < 8; ++b) {
      const uint32_t pos = sf.sf[b];
      for (int i = bt.longStart[b]; i < bt.longStart[b + 1]; ++i) {
        twice += i >= bt.shortStart3[3];
        if (pos == 7) continue;
        const double v = want[i];
        want[i] = v * kl[pos];
        want[576 + i] = v * kr[pos];
      }
    }
    EXPECT_GT(twice, 0) << rate;
    for (int i = 0; i < 1152; ++i) ASSERT_TRUE(kxtest::SameBits(want[i], s[i])) << rate << " line " << i;
  }
}

}  // namespace
}  // namespace kxmp3
