// Short-block reordering into interleaved window order at every sampling frequency,
// and the alias-reduction decisions (long, mixed, short; active subbands) against the
// butterfly formula with the coefficients of Table B.9 computed in long double.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "dsp_test_util.h"
#include "engine/band_tables.h"
#include "engine/engine_types.h"
#include "engine/reorder_alias.h"
#include "engine/tables.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

class ReorderAliasTest : public ::testing::Test {
 protected:
  void SetUp() override { kxtest::EnsureDecoderTables(); }
};

GranuleInfo Info(uint32_t blockType, uint32_t mixed, uint32_t active) {
  GranuleInfo gi{};
  gi.block_type = blockType;
  gi.mixed_block_flag = mixed;
  gi.active_subbands = active;
  return gi;
}

// A value naming band, window and line: 10000 band + 1000 window + line + 1.
double Tag(int band, int window, int line) { return 10000.0 * band + 1000.0 * window + line + 1; }

// The spectrum as requantisation leaves a short block: per band, window 0's lines,
// then window 1's, then window 2's.
Doubles<576> BitstreamOrder(uint32_t rate, int firstBand) {
  const BandTable& bt = kBandTables[rate];
  Doubles<576> s;
  for (int i = 0; i < 576; ++i) s[i] = -1.0 - i;  // marks of the untouched region
  for (int b = firstBand; b < 13; ++b) {
    for (int w = 0; w < 3; ++w) {
      for (int i = 0; i < bt.shortWidth[b]; ++i) s[bt.shortStart3[b] + w * bt.shortWidth[b] + i] = Tag(b, w, i);
    }
  }
  return s;
}

TEST_F(ReorderAliasTest, PureShortBlockInterleavesAllThirteenBandsAtEveryRate) {
  for (uint32_t rate = 0; rate < 9; ++rate) {
    const BandTable& bt = kBandTables[rate];
    Doubles<576> s = BitstreamOrder(rate, 0);
    ReorderShortBlock(s.data(), Info(2, 0, 32), rate);
    for (int b = 0; b < 13; ++b) {
      for (int i = 0; i < bt.shortWidth[b]; ++i) {
        for (int w = 0; w < 3; ++w) {
          ASSERT_EQ(Tag(b, w, i), s[bt.shortStart3[b] + 3 * i + w]) << "rate " << rate << " band " << b;
        }
      }
    }
  }
}

TEST_F(ReorderAliasTest, BandTwelveIsReorderedEvenWhenSilent) {
  const BandTable& bt = kBandTables[0];
  Doubles<576> s = BitstreamOrder(0, 0);
  for (int i = bt.shortStart3[12]; i < 576; ++i) s[i] = 0.0;
  s[bt.shortStart3[12] + bt.shortWidth[12] * 2] = 5.0;  // window 2, line 0 of band 12
  ReorderShortBlock(s.data(), Info(2, 0, 32), 0);
  for (int i = bt.shortStart3[12]; i < 576; ++i) EXPECT_EQ(i == bt.shortStart3[12] + 2 ? 5.0 : 0.0, s[i]) << i;
}

TEST_F(ReorderAliasTest, MixedBlockKeepsItsFirst36LinesBitIdentical) {
  for (uint32_t rate = 0; rate < 9; ++rate) {
    const BandTable& bt = kBandTables[rate];
    Doubles<576> s = BitstreamOrder(rate, 3);
    kxtest::Random rnd(rate);
    rnd.Fill(s.data(), 36, 1.0, true);
    const Doubles<576> before = s;
    ReorderShortBlock(s.data(), Info(2, 1, 32), rate);
    EXPECT_EQ(0, std::memcmp(before.data(), s.data(), 36 * sizeof(double))) << rate;
    for (int b = 3; b < 13; ++b) {
      for (int i = 0; i < bt.shortWidth[b]; ++i) {
        for (int w = 0; w < 3; ++w) ASSERT_EQ(Tag(b, w, i), s[bt.shortStart3[b] + 3 * i + w]) << rate;
      }
    }
    // Lines between 36 and short band 3 (8 kHz) stay where they are.
    for (int i = 36; i < bt.shortStart3[3]; ++i) EXPECT_EQ(before[i], s[i]) << rate << " " << i;
  }
}

TEST_F(ReorderAliasTest, OtherBlockTypesAreNotReordered) {
  for (uint32_t type : {0u, 1u, 3u}) {
    Doubles<576> s = BitstreamOrder(0, 0);
    const Doubles<576> before = s;
    ReorderShortBlock(s.data(), Info(type, 0, 32), 0);
    EXPECT_EQ(0, std::memcmp(before.data(), s.data(), sizeof s)) << type;
  }
}

// The butterflies of the standard over the given boundaries, in long double.
void ReferenceAlias(const double* in, long double* out, int firstBoundary, int boundaries) {
  static const long double c[8] = {-0.6L, -0.535L, -0.33L, -0.185L, -0.095L, -0.041L, -0.0142L, -0.0037L};
  for (int i = 0; i < 576; ++i) out[i] = in[i];
  for (int sb = firstBoundary; sb < firstBoundary + boundaries; ++sb) {
    for (int i = 0; i < 8; ++i) {
      const long double cs = 1 / std::sqrt(1 + c[i] * c[i]);
      const long double ca = c[i] * cs;
      const long double bu = out[18 * sb + 17 - i];
      const long double bd = out[18 * (sb + 1) + i];
      out[18 * sb + 17 - i] = bu * cs - bd * ca;
      out[18 * (sb + 1) + i] = bd * cs + bu * ca;
    }
  }
}

TEST_F(ReorderAliasTest, LongBlocksUseTheBoundariesBelowTheLastActiveSubband) {
  kxtest::Random rnd(1);
  for (uint32_t active : {2u, 3u, 17u, 31u, 32u}) {
    Doubles<576> s;
    rnd.Fill(s.data(), 576, 100.0);
    const Doubles<576> input = s;
    AliasReduce(s.data(), Info(0, 0, active));
    long double want[576];
    ReferenceAlias(input.data(), want, 0, static_cast<int>(active) - 1);
    EXPECT_LT(kxtest::RelativeError(s.data(), want, 576), 1e-15L) << active;
    // Nothing above the last active subband changes: lines from 18 active on stay.
    for (uint32_t i = 18 * active; i < 576; ++i) EXPECT_EQ(input[i], s[i]) << active << " " << i;
  }
}

TEST_F(ReorderAliasTest, AllThirtyOneBoundariesAtThirtyTwoActive) {
  kxtest::Random rnd(2);
  Doubles<576> s;
  rnd.Fill(s.data(), 576);
  const Doubles<576> input = s;
  AliasReduce(s.data(), Info(1, 0, 32));
  for (int sb = 0; sb < 31; ++sb) {
    // Every boundary changed both of its sides.
    EXPECT_NE(input[18 * sb + 17], s[18 * sb + 17]) << sb;
    EXPECT_NE(input[18 * (sb + 1)], s[18 * (sb + 1)]) << sb;
  }
}

TEST_F(ReorderAliasTest, NoAliasReductionBelowTwoActiveSubbands) {
  kxtest::Random rnd(3);
  for (uint32_t active : {0u, 1u}) {
    for (uint32_t mixed : {0u, 1u}) {
      Doubles<576> s;
      rnd.Fill(s.data(), 576);
      const Doubles<576> before = s;
      AliasReduce(s.data(), Info(mixed ? 2 : 0, mixed, active));
      EXPECT_EQ(0, std::memcmp(before.data(), s.data(), sizeof s)) << active << " " << mixed;
    }
  }
}

TEST_F(ReorderAliasTest, MixedBlockGetsOnlyTheFirstBoundary) {
  kxtest::Random rnd(4);
  for (uint32_t active : {2u, 20u, 32u}) {
    Doubles<576> s;
    rnd.Fill(s.data(), 576);
    const Doubles<576> input = s;
    AliasReduce(s.data(), Info(2, 1, active));
    long double want[576];
    ReferenceAlias(input.data(), want, 0, 1);
    EXPECT_LT(kxtest::RelativeError(s.data(), want, 576), 1e-15L) << active;
    for (int i = 36; i < 576; ++i) EXPECT_EQ(input[i], s[i]) << i;
  }
}

TEST_F(ReorderAliasTest, PureShortBlockGetsNone) {
  kxtest::Random rnd(5);
  Doubles<576> s;
  rnd.Fill(s.data(), 576);
  const Doubles<576> before = s;
  AliasReduce(s.data(), Info(2, 0, 32));
  EXPECT_EQ(0, std::memcmp(before.data(), s.data(), sizeof s));
}

}  // namespace
}  // namespace kxmp3
