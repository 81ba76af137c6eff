// Tests of requantisation: values against the standard's formula computed with pow,
// the band factors of long, short and mixed blocks (pretab, subblock gain, the
// scale-factor multiplier, the mixed blocks' short scale factors from entry 8), the
// non-zero bounds with the floor of 3 for short windows, and the table edges.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "engine/band_tables.h"
#include "engine/requantise.h"
#include "engine/tables.h"
#include "support/engine/engine_harness.h"

namespace kxmp3 {
namespace {

class Requant : public ::testing::Test {
 protected:
  void SetUp() override {
    kxtest::EnsureDecoderTables();
    std::fill(coded, coded + 576, 0u);
    std::fill(spectrum, spectrum + 576, 1234.5);
    std::memset(&sf, 0, sizeof(sf));
    gi = GranuleInfo{};
    gi.scalefac_multiplier = 1;
    SetGain(210);
  }
  void SetGain(uint32_t globalGain, bool midSide = false) {
    gi.global_gain_ref = kGainOrigin - globalGain + (midSide ? 2 : 0);
    for (auto& r : gi.subblock_gain_ref) r = gi.global_gain_ref;
  }
  static uint32_t Code(int v) { return v == 0 ? 0 : 2u * std::abs(v) + (v < 0); }
  // The standard's formula with pow: sign |is|^(4/3) 2^(e / 4).
  static double Expected(int v, double quarterSteps) {
    const double m = std::pow(std::abs(double(v)), 4.0 / 3.0) * std::pow(2.0, quarterSteps / 4.0);
    return v < 0 ? -m : m;
  }

  uint32_t coded[576];
  alignas(16) double spectrum[576];
  ScaleFactors sf;
  GranuleInfo gi;
};

TEST_F(Requant, CountZeroClearsEverythingWithBoundsZeroAndOneSubband) {
  Requantise(coded, spectrum, sf, gi, 0, 0);
  for (double v : spectrum) ASSERT_EQ(v, 0.0);
  EXPECT_EQ(gi.is_start_long, 0u);
  EXPECT_EQ(gi.active_subbands, 1u);
}

TEST_F(Requant, LongBlocksFollowTheFormulaWithPretabAndMultiplier) {
  const BandTable& b = kBandTables[0];
  for (uint32_t band = 0; band < 21; ++band) sf.sf[band] = band % 7;
  gi.preflag = 1;
  gi.scalefac_multiplier = 2;  // scalefac_scale 1
  SetGain(180);
  for (int i = 0; i < 500; ++i) coded[i] = Code((i % 37) - 18);
  Requantise(coded, spectrum, sf, gi, 0, 500);
  for (uint32_t band = 0; band < 22; ++band) {
    const uint32_t sfv = band < 21 ? sf.sf[band] : 0;
    const double steps = (180.0 - 210.0) - 4.0 * (sfv + kPretab[1][band]);
    for (int i = b.longStart[band]; i < b.longStart[band + 1]; ++i) {
      const int v = i < 500 ? (i % 37) - 18 : 0;
      ASSERT_NEAR(spectrum[i], Expected(v, steps), std::abs(Expected(v, steps)) * 1e-12) << i;
    }
  }
  // Whole bands: band 21 (418..575) was done although `count` stopped at 500.
  EXPECT_EQ(gi.is_start_long, 22u);
  EXPECT_EQ(gi.active_subbands, 32u);
}

TEST_F(Requant, LongBoundIsTheLastNonZeroBandPlusOne) {
  // 44.1 kHz: line 100 lies in band 13 (90..110).
  coded[100] = Code(-3);
  Requantise(coded, spectrum, sf, gi, 0, 110);
  EXPECT_EQ(gi.is_start_long, 14u);
  // floor((110 + 8) / 18) + 1 = 7 subbands: the aliased lines reach past line 108.
  EXPECT_EQ(gi.active_subbands, 7u);
  EXPECT_EQ(spectrum[100], Expected(-3, 0));
  for (int i = 110; i < 576; ++i) ASSERT_EQ(spectrum[i], 0.0);
}

TEST_F(Requant, ShortBlocksPerWindowGainsAndTheFloorOfThree) {
  gi.block_type = 2;
  SetGain(200);
  gi.subblock_gain_ref[1] = gi.global_gain_ref + 8 * 3;
  gi.subblock_gain_ref[2] = gi.global_gain_ref + 8 * 7;
  for (uint32_t i = 0; i < 36; ++i) sf.sf[i] = (i * 5) % 8;
  const BandTable& b = kBandTables[0];
  // Window 1 of band 7 holds a value; everything else zero except one in band 0 window 0.
  const uint32_t w1band7 = static_cast<uint32_t>(b.shortStart3[7]) + b.shortWidth[7];
  coded[w1band7 + 2] = Code(5);
  coded[1] = Code(-1);
  Requantise(coded, spectrum, sf, gi, 0, 576);
  const double steps = (200.0 - 210.0) - 8.0 * 3 - 2.0 * sf.sf[3 * 7 + 1];
  EXPECT_NEAR(spectrum[w1band7 + 2], Expected(5, steps), 1e-12 * std::abs(Expected(5, steps)));
  EXPECT_NEAR(spectrum[1], Expected(-1, -10.0 - 2.0 * sf.sf[0]), 1e-15);
  EXPECT_EQ(gi.is_start_short[0], 3u) << "band 0 only: the floor of 3";
  EXPECT_EQ(gi.is_start_short[1], 8u);
  EXPECT_EQ(gi.is_start_short[2], 3u) << "no value at all: still 3";
  EXPECT_EQ(gi.active_subbands, static_cast<uint32_t>(b.shortSubbands[8]));
}

TEST_F(Requant, ShortBlockWithNothingReportsThreeEverywhere) {
  gi.block_type = 2;
  Requantise(coded, spectrum, sf, gi, 0, 0);
  for (uint32_t w = 0; w < 3; ++w) EXPECT_EQ(gi.is_start_short[w], 3u);
  EXPECT_EQ(gi.active_subbands, static_cast<uint32_t>(kBandTables[0].shortSubbands[3]));
  for (double v : spectrum) ASSERT_EQ(v, 0.0);
}

TEST_F(Requant, MixedBlocksTakeShortScaleFactorsFromEntryEight) {
  gi.block_type = 2;
  gi.mixed_block_flag = 1;
  gi.preflag = 1;  // long part only
  for (uint32_t i = 0; i < 39; ++i) sf.sf[i] = i % 5;
  for (int i = 0; i < 576; ++i) coded[i] = Code(1);
  Requantise(coded, spectrum, sf, gi, 0, 576);
  const BandTable& b = kBandTables[0];
  // Long bands 0..7 (lines 0..35) with pretab (all zero there).
  for (uint32_t band = 0; band < 8; ++band)
    for (int i = b.longStart[band]; i < b.longStart[band + 1]; ++i)
      ASSERT_DOUBLE_EQ(spectrum[i], Expected(1, -2.0 * sf.sf[band])) << i;
  // Short band b >= 3, window w: entry 8 + 3 (b - 3) + w.
  for (uint32_t band = 3; band < 13; ++band) {
    for (uint32_t w = 0; w < 3; ++w) {
      const int start = b.shortStart3[band] + static_cast<int>(w * b.shortWidth[band]);
      const double steps = -2.0 * sf.sf[8 + 3 * (band - 3) + w];
      for (int i = start; i < start + b.shortWidth[band]; ++i) ASSERT_DOUBLE_EQ(spectrum[i], Expected(1, steps)) << i;
    }
  }
  EXPECT_EQ(gi.is_start_long, 8u);
  for (uint32_t w = 0; w < 3; ++w) EXPECT_EQ(gi.is_start_short[w], 13u);
  EXPECT_EQ(gi.active_subbands, 32u);
}

TEST_F(Requant, MixedBlockCountWithinTheLongPart) {
  gi.block_type = 2;
  gi.mixed_block_flag = 1;
  coded[5] = Code(2);
  Requantise(coded, spectrum, sf, gi, 0, 10);
  // Whole long bands up to line 12 done, the rest cleared.
  EXPECT_EQ(spectrum[5], Expected(2, 0));
  for (int i = 12; i < 576; ++i) ASSERT_EQ(spectrum[i], 0.0);
  EXPECT_EQ(gi.is_start_long, 2u);  // line 5 lies in band 1 (4..8)
  for (uint32_t w = 0; w < 3; ++w) EXPECT_EQ(gi.is_start_short[w], 3u);
}

TEST_F(Requant, MixedBlockAtEightKilohertzLeavesLines36To71Silent) {
  gi.block_type = 2;
  gi.mixed_block_flag = 1;
  for (int i = 0; i < 576; ++i) coded[i] = Code(1);
  Requantise(coded, spectrum, sf, gi, 8, 576);
  for (int i = 0; i < 36; ++i) ASSERT_EQ(spectrum[i], 1.0) << i;
  for (int i = 36; i < 72; ++i) ASSERT_EQ(spectrum[i], 0.0) << i;
  for (int i = 72; i < 576; ++i) ASSERT_EQ(spectrum[i], 1.0) << i;
}

TEST_F(Requant, LargestNegativeCodedValueIsInRange) {
  coded[0] = 2 * 8206 + 1;
  Requantise(coded, spectrum, sf, gi, 0, 2);
  EXPECT_DOUBLE_EQ(spectrum[0], -std::pow(8206.0, 4.0 / 3.0));
}

TEST_F(Requant, GainTableEdgesStayInside) {
  // global_gain 255 with M/S and the largest scale factor plus pretab: entry 3 + 72.
  SetGain(255, true);
  gi.preflag = 1;
  gi.scalefac_multiplier = 2;
  for (uint32_t i = 0; i < 21; ++i) sf.sf[i] = 15;
  coded[400] = Code(1);  // band 20 at 44.1 kHz (342..417): pretab 2
  Requantise(coded, spectrum, sf, gi, 0, 576);
  EXPECT_EQ(spectrum[400], gTables.gain[3 + ((15 + 2) << 2)]);
  EXPECT_DOUBLE_EQ(spectrum[400], std::pow(2.0, (255.0 - 210.0) / 4.0 - 0.5 - 17.0));
  // global_gain 0 with M/S, subblock gain 7 and scale factor 15 at multiplier 2: the
  // deepest entry any frame can reach, 256 + 2 + 56 + 60.
  SetUp();
  gi.block_type = 2;
  SetGain(0, true);
  for (auto& r : gi.subblock_gain_ref) r = gi.global_gain_ref + 56;
  gi.scalefac_multiplier = 2;
  for (uint32_t i = 0; i < 36; ++i) sf.sf[i] = 15;
  coded[0] = Code(1);
  Requantise(coded, spectrum, sf, gi, 0, 576);
  EXPECT_LT(256u + 2 + 56 + 60, kGainEntries);
  EXPECT_EQ(spectrum[0], gTables.gain[256 + 2 + 56 + 60]);
  EXPECT_GT(spectrum[0], 0.0);
}

}  // namespace
}  // namespace kxmp3
