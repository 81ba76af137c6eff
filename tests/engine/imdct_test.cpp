// IMDCT, windowing and overlap-add: the fast 36- and 12-point kernels against the
// standard's defining sums, and the granule step's per-subband decisions (silent
// subbands, mixed blocks, block-type sequences).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "dsp_test_util.h"
#include "engine/dsp_kernels.h"
#include "engine/engine_types.h"
#include "engine/imdct.h"
#include "engine/tables.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

class ImdctTest : public ::testing::Test {
 protected:
  void SetUp() override { kxtest::EnsureDecoderTables(); }
};

TEST_F(ImdctTest, Long36MatchesTheDefiningSumForEveryWindow) {
  kxtest::Random rnd(36);
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    for (int type : {0, 1, 3}) {
      long double worst = 0;
      for (int trial = 0; trial < 400; ++trial) {
        Doubles<18> lines;
        Doubles<36> out;
        rnd.Fill(lines.data(), 18, trial % 2 ? 1.0 : 30000.0);
        long double want[36];
        kxtest::DirectImdct36(lines.data(), type, want);
        k->imdct36(lines.data(), out.data(), gTables.imdctWindow[type]);
        worst = std::fmax(worst, kxtest::RelativeError(out.data(), want, 36));
      }
      EXPECT_LT(worst, 1e-12L) << k->name << " type " << type;
    }
  }
}

TEST_F(ImdctTest, Long36OfSingleLines) {
  // Each basis line alone: the output is that line's cosine times the window.
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    for (int line = 0; line < 18; ++line) {
      Doubles<18> lines{};
      Doubles<36> out;
      lines[line] = 1.0;
      long double want[36];
      kxtest::DirectImdct36(lines.data(), 0, want);
      k->imdct36(lines.data(), out.data(), gTables.imdctWindow[0]);
      EXPECT_LT(kxtest::RelativeError(out.data(), want, 36), 1e-13L) << k->name << " line " << line;
    }
  }
}

TEST_F(ImdctTest, Short12MatchesTheDefiningSums) {
  kxtest::Random rnd(12);
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    long double worst = 0;
    for (int trial = 0; trial < 400; ++trial) {
      Doubles<18> lines;
      Doubles<36> out;
      rnd.Fill(lines.data(), 18, trial % 2 ? 1.0 : 30000.0);
      long double want[36];
      kxtest::DirectImdct12(lines.data(), want);
      k->imdct12(lines.data(), out.data());
      worst = std::fmax(worst, kxtest::RelativeError(out.data(), want, 36));
      for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(0.0, out[i]);
        EXPECT_EQ(0.0, out[30 + i]);
      }
    }
    EXPECT_LT(worst, 1e-12L) << k->name;
  }
}

TEST_F(ImdctTest, Short12KeepsItsInputLines) {
  kxtest::Random rnd(7);
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    Doubles<18> lines, copy;
    Doubles<36> out;
    rnd.Fill(lines.data(), 18);
    copy = lines;
    k->imdct12(lines.data(), out.data());
    EXPECT_EQ(0, std::memcmp(lines.data(), copy.data(), sizeof lines)) << k->name;
  }
}

// The whole granule step for one channel in long double: per subband the standard's
// transform with the block type's window, overlap-add with the previous granule.
struct ReferenceHybrid {
  long double overlap[32][18] = {};

  void Granule(const double* spectrum, const GranuleInfo& gi, long double* out) {
    for (int sb = 0; sb < 32; ++sb) {
      const uint32_t type = sb < 2 && gi.mixed_block_flag ? 0 : gi.block_type;
      long double x[36];
      if (type == 2) {
        kxtest::DirectImdct12(spectrum + 18 * sb, x);
      } else {
        kxtest::DirectImdct36(spectrum + 18 * sb, static_cast<int>(type), x);
      }
      for (int t = 0; t < 18; ++t) {
        out[18 * sb + t] = x[t] + overlap[sb][t];
        overlap[sb][t] = x[18 + t];
      }
    }
  }
};

GranuleInfo Info(uint32_t blockType, uint32_t mixed, uint32_t active) {
  GranuleInfo gi{};
  gi.block_type = blockType;
  gi.mixed_block_flag = mixed;
  gi.active_subbands = active;
  return gi;
}

// Random lines in the first `active` subbands, zeros above.
void FillActive(kxtest::Random& rnd, double* spectrum, uint32_t active) {
  for (uint32_t i = 0; i < kLinesPerGranule; ++i) spectrum[i] = i < active * 18 ? rnd.Next(1000.0) : 0.0;
}

TEST_F(ImdctTest, GranuleSequenceMatchesTheStandardHybridFilterbank) {
  // Long, start, short, stop, mixed, long: the block-type sequence of a transient,
  // with varying active subbands.
  const GranuleInfo seq[] = {Info(0, 0, 32), Info(1, 0, 20), Info(2, 0, 32),
                             Info(3, 0, 9),  Info(2, 1, 30), Info(0, 0, 5)};
  kxtest::Random rnd(99);
  ReferenceHybrid ref;
  Doubles<576> overlap{};
  for (const GranuleInfo& gi : seq) {
    Doubles<576> spectrum;
    FillActive(rnd, spectrum.data(), gi.active_subbands);
    long double want[576];
    ref.Granule(spectrum.data(), gi, want);
    ImdctGranule(spectrum.data(), overlap.data(), gi);
    EXPECT_LT(kxtest::RelativeError(spectrum.data(), want, 576), 1e-12L)
        << "block type " << gi.block_type << " mixed " << gi.mixed_block_flag;
  }
}

TEST_F(ImdctTest, ZeroActiveSubbandsOutputsThePreviousOverlap) {
  kxtest::Random rnd(5);
  Doubles<576> overlap, spectrum;
  rnd.Fill(overlap.data(), 576, 100.0);
  const Doubles<576> before = overlap;
  rnd.Fill(spectrum.data(), 576, 100.0);  // ignored: no subband is active
  ImdctGranule(spectrum.data(), overlap.data(), Info(0, 0, 0));
  for (int i = 0; i < 576; ++i) {
    EXPECT_TRUE(kxtest::SameBits(before[i], spectrum[i])) << i;
    EXPECT_EQ(0.0, overlap[i]) << i;
  }
}

TEST_F(ImdctTest, SilentSubbandsEqualTransformingZeros) {
  // Subbands from active_subbands on take the overlap and clear it: the same as
  // transforming 18 zero lines.
  kxtest::Random rnd(6);
  Doubles<576> overlapA, overlapB, a, b;
  rnd.Fill(overlapA.data(), 576, 100.0);
  overlapB = overlapA;
  FillActive(rnd, a.data(), 7);
  b = a;
  ImdctGranule(a.data(), overlapA.data(), Info(0, 0, 7));
  ImdctGranule(b.data(), overlapB.data(), Info(0, 0, 32));
  for (int i = 0; i < 576; ++i) {
    EXPECT_EQ(a[i], b[i]) << i;
    EXPECT_EQ(overlapA[i], overlapB[i]) << i;
  }
  for (int i = 7 * 18; i < 576; ++i) EXPECT_EQ(0.0, overlapA[i]) << i;
}

TEST_F(ImdctTest, LongBlockAfterShortBlockAddsTheShortOverlap) {
  kxtest::Random rnd(8);
  ReferenceHybrid ref;
  Doubles<576> overlap{};
  for (const GranuleInfo& gi : {Info(2, 0, 32), Info(0, 0, 32)}) {
    Doubles<576> spectrum;
    FillActive(rnd, spectrum.data(), 32);
    long double want[576];
    ref.Granule(spectrum.data(), gi, want);
    ImdctGranule(spectrum.data(), overlap.data(), gi);
    EXPECT_LT(kxtest::RelativeError(spectrum.data(), want, 576), 1e-12L) << gi.block_type;
  }
}

TEST_F(ImdctTest, MixedBlockUsesTheNormalWindowBelowSubbandTwo) {
  kxtest::Random rnd(9);
  Doubles<576> spectrum, overlap{};
  FillActive(rnd, spectrum.data(), 32);
  const Doubles<576> input = spectrum;
  ImdctGranule(spectrum.data(), overlap.data(), Info(2, 1, 32));
  for (int sb = 0; sb < 32; ++sb) {
    long double x[36];
    if (sb < 2) {
      kxtest::DirectImdct36(input.data() + 18 * sb, 0, x);
    } else {
      kxtest::DirectImdct12(input.data() + 18 * sb, x);
    }
    EXPECT_LT(kxtest::RelativeError(spectrum.data() + 18 * sb, x, 18), 1e-12L) << sb;
    EXPECT_LT(kxtest::RelativeError(overlap.data() + 18 * sb, x + 18, 18), 1e-12L) << sb;
  }
}

TEST_F(ImdctTest, MixedFlagWithStartBlockUsesTypeZeroForTheLowSubbands) {
  // The low subbands of a mixed granule always take the type-0 window.
  kxtest::Random rnd(10);
  Doubles<576> spectrum, overlap{};
  FillActive(rnd, spectrum.data(), 4);
  const Doubles<576> input = spectrum;
  ImdctGranule(spectrum.data(), overlap.data(), Info(1, 1, 4));
  for (int sb = 0; sb < 4; ++sb) {
    long double x[36];
    kxtest::DirectImdct36(input.data() + 18 * sb, sb < 2 ? 0 : 1, x);
    EXPECT_LT(kxtest::RelativeError(overlap.data() + 18 * sb, x + 18, 18), 1e-12L) << sb;
  }
}

TEST_F(ImdctTest, SubbandPiecesComposeLikeHybridSubband) {
  kxtest::Random rnd(11);
  for (uint32_t type : {0u, 1u, 2u, 3u}) {
    Doubles<18> a, overlapA, overlapB;
    rnd.Fill(a.data(), 18, 10.0);
    rnd.Fill(overlapA.data(), 18, 10.0);
    overlapB = overlapA;
    Doubles<18> b = a;
    Doubles<36> scratch;
    HybridSubband(a.data(), overlapA.data(), type);
    if (type == 2) {
      ImdctShort(b.data(), scratch.data());
    } else {
      ImdctLong(b.data(), scratch.data(), type);
    }
    OverlapAdd(scratch.data(), b.data(), overlapB.data());
    for (int t = 0; t < 18; ++t) {
      EXPECT_TRUE(kxtest::SameBits(a[t], b[t])) << type << " " << t;
      EXPECT_TRUE(kxtest::SameBits(overlapA[t], overlapB[t])) << type << " " << t;
      EXPECT_TRUE(kxtest::SameBits(overlapB[t], scratch[18 + t])) << type << " " << t;
    }
  }
}

TEST_F(ImdctTest, OverlapAddDefinition) {
  Doubles<36> scratch;
  Doubles<18> subband, overlap;
  for (int i = 0; i < 36; ++i) scratch[i] = i + 1;
  for (int i = 0; i < 18; ++i) overlap[i] = 100 * (i + 1);
  OverlapAdd(scratch.data(), subband.data(), overlap.data());
  for (int t = 0; t < 18; ++t) {
    EXPECT_EQ(t + 1 + 100.0 * (t + 1), subband[t]);
    EXPECT_EQ(19.0 + t, overlap[t]);
  }
}

}  // namespace
}  // namespace kxmp3
