// The decoder tables against their defining formulas and listed values: gain, power,
// alias coefficients, long IMDCT windows, synthesis window and its copies, ring index
// table, fast-DCT factors, intensity ratios and the IMDCT kernel constants.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "dsp_test_util.h"
#include "engine/dsp_kernels.h"
#include "engine/tables.h"
#include "support/engine/engine_harness.h"
#include "host/kx_result_codes.h"

namespace kxmp3 {
namespace {

using kxtest::kPiL;

class TablesTest : public ::testing::Test {
 protected:
  void SetUp() override { kxtest::EnsureDecoderTables(); }
};

// Relative difference of a double from an exact long double value.
long double Rel(double got, long double want) {
  if (want == 0) return std::fabs(static_cast<long double>(got));
  return std::fabs((got - want) / want);
}

// Tables built from sin, cos and tan of rounded double arguments: the argument's
// rounding, magnified where the function is steep, costs a few units in the last place.
// Any mistake in a formula or an index is many orders of magnitude larger.
constexpr long double kTrigTolerance = 5e-15L;

TEST_F(TablesTest, EveryTableIsAlignedForPairLoads) {
  const DecoderTables& t = gTables;
  for (const void* p : {static_cast<const void*>(t.gain), static_cast<const void*>(t.power),
                        static_cast<const void*>(t.aliasCs), static_cast<const void*>(t.aliasCa),
                        static_cast<const void*>(t.imdctWindow[0]), static_cast<const void*>(t.imdctWindow[1]),
                        static_cast<const void*>(t.imdctWindow[3]), static_cast<const void*>(t.synthWindowFloat),
                        static_cast<const void*>(t.synthWindowInt16), static_cast<const void*>(t.dct32Factors),
                        static_cast<const void*>(t.dct16Factors), static_cast<const void*>(t.dct8Factors),
                        static_cast<const void*>(t.dct4Factors), static_cast<const void*>(t.dct2Factor),
                        static_cast<const void*>(t.isRatioMpeg1), static_cast<const void*>(t.isRatioLsf),
                        static_cast<const void*>(gImdctConstants.c1), static_cast<const void*>(gImdctConstants.combine36),
                        static_cast<const void*>(gImdctConstants.combine12),
                        static_cast<const void*>(gImdctConstants.shortWindow)}) {
    EXPECT_TRUE(kxtest::Aligned16(p));
  }
}

TEST_F(TablesTest, RebuildingGivesTheSameBytes) {
  std::vector<unsigned char> before(sizeof(DecoderTables));
  std::memcpy(before.data(), &gTables, sizeof(DecoderTables));
  InitDecoderTables();
  EXPECT_EQ(0, std::memcmp(before.data(), &gTables, sizeof(DecoderTables)));
}

// The 64-bit float output follows every bit of the tables: every build, on every
// system and whatever its C library, must hold the same ones. A digest of every
// computed table, the IMDCT kernel constants and the de-emphasis tangents of the
// nine sampling rates, recorded from the decoder's reference values.
TEST_F(TablesTest, SameBitsOnEverySystem) {
  uint64_t digest = 0xcbf29ce484222325ull;  // FNV-1a, 64 bits
  auto add = [&digest](const void* data, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) {
      digest ^= static_cast<const unsigned char*>(data)[i];
      digest *= 0x100000001b3ull;
    }
  };
  const DecoderTables& t = gTables;
  add(t.gain, sizeof(t.gain));
  add(t.power, sizeof(t.power));
  add(t.aliasCs, sizeof(t.aliasCs));
  add(t.aliasCa, sizeof(t.aliasCa));
  add(t.imdctWindow, sizeof(t.imdctWindow));
  add(t.synthWindowFloat, sizeof(t.synthWindowFloat));
  add(t.synthWindowInt16, sizeof(t.synthWindowInt16));
  add(t.dct32Factors, sizeof(t.dct32Factors));
  add(t.dct16Factors, sizeof(t.dct16Factors));
  add(t.dct8Factors, sizeof(t.dct8Factors));
  add(t.dct4Factors, sizeof(t.dct4Factors));
  add(t.dct2Factor, sizeof(t.dct2Factor));
  add(t.isRatioMpeg1, sizeof(t.isRatioMpeg1));
  add(t.isRatioLsf, sizeof(t.isRatioLsf));
  add(&gImdctConstants, sizeof(gImdctConstants));
  for (uint32_t rate : {8000u, 11025u, 12000u, 16000u, 22050u, 24000u, 32000u, 44100u, 48000u}) {
    const double tangent = DeemphasisTangent(rate);
    add(&tangent, sizeof(tangent));
  }
  EXPECT_EQ(0xd2bf12a0bf30cc1dull, digest) << std::hex << digest;
}

TEST_F(TablesTest, DeemphasisTangentsOfTheNineRates) {
  for (uint32_t rate : {8000u, 11025u, 12000u, 16000u, 22050u, 24000u, 32000u, 44100u, 48000u}) {
    const long double want = std::tan(static_cast<long double>(10000.0 / rate));
    EXPECT_LT(Rel(DeemphasisTangent(rate), want), 1.2e-16L) << rate;
  }
  // A rate outside the format's is computed.
  EXPECT_LT(Rel(DeemphasisTangent(96000), std::tan(static_cast<long double>(10000.0 / 96000))), 2.3e-16L);
}

// --- Gain ---

TEST_F(TablesTest, GainFollowsQuarterSteps) {
  for (uint32_t k = 0; k < kGainEntries; ++k) {
    const long double want = std::exp2(-(static_cast<long double>(k) - 46) / 4);
    EXPECT_LT(Rel(gTables.gain[k], want), 4e-16L) << k;
  }
}

TEST_F(TablesTest, GainEdgeEntries) {
  EXPECT_EQ(1.0, gTables.gain[kGainOrigin - 210]);  // global_gain 210 is unity
  EXPECT_EQ(1.0, gTables.gain[46]);
  EXPECT_LT(Rel(gTables.gain[0], std::exp2(11.5L)), 4e-16L);
  EXPECT_LT(Rel(gTables.gain[511], std::exp2(-116.25L)), 4e-16L);
  // Whole steps of 4 entries are exact powers of two.
  EXPECT_EQ(2048.0, gTables.gain[2]);
  EXPECT_EQ(std::ldexp(1.0, -116), gTables.gain[510]);
  // Mid/side takes entry 258 - g: 2^(-1/2) below the plain global gain.
  EXPECT_LT(Rel(gTables.gain[258 - 210], 1 / std::sqrt(2.0L)), 4e-16L);
}

// --- Power ---

TEST_F(TablesTest, PowerHoldsMagnitudeToTheFourThirdsAndItsNegation) {
  EXPECT_EQ(sizeof(gTables.power) / sizeof(double), 2u * 8207u);
  for (uint32_t i = 0; i < kPowerEntries; ++i) {
    const long double c = std::cbrt(static_cast<long double>(i));
    const long double want = c * c * c * c;
    // pow with the double nearest to 4/3 (about 7.4e-17 below it): the exponent's
    // rounding costs up to ln(i) x 7.4e-17 relative, the result's rounding 1.1e-16.
    const long double bound = std::log(std::fmax(1.0L, i)) * 7.5e-17L + 2.3e-16L;
    EXPECT_LT(Rel(gTables.power[2 * i], want), bound) << i;
    EXPECT_LT(Rel(gTables.power[2 * i], std::pow(static_cast<long double>(i), static_cast<long double>(4.0 / 3.0))),
              2.3e-16L)
        << i;
    EXPECT_EQ(gTables.power[2 * i + 1], -gTables.power[2 * i]) << i;
  }
  EXPECT_EQ(0.0, gTables.power[0]);
  EXPECT_EQ(1.0, gTables.power[2]);
  EXPECT_EQ(-1.0, gTables.power[3]);
}

TEST_F(TablesTest, PowerLastEntryIsMagnitude8206) {
  // Coded value 2 x 8206 + 1 (the largest negative magnitude) is the table's last entry.
  const uint32_t last = 2 * 8206 + 1;
  EXPECT_EQ(last + 1, sizeof(gTables.power) / sizeof(double));
  EXPECT_LT(Rel(-gTables.power[last], std::pow(8206.0L, 4.0L / 3.0L)), 1e-15L);
  // Magnitude 8207 would be outside: the table ends right there.
  EXPECT_EQ(reinterpret_cast<const char*>(&gTables.power[last]) + sizeof(double),
            reinterpret_cast<const char*>(gTables.power) + sizeof(gTables.power));
}

// --- Alias reduction ---

TEST_F(TablesTest, AliasCoefficientsFromTableB9) {
  const long double c[8] = {-0.6L, -0.535L, -0.33L, -0.185L, -0.095L, -0.041L, -0.0142L, -0.0037L};
  for (int i = 0; i < 8; ++i) {
    const long double root = std::sqrt(1 + c[i] * c[i]);
    EXPECT_LT(Rel(gTables.aliasCs[i], 1 / root), 3e-16L) << i;
    EXPECT_LT(Rel(gTables.aliasCa[i], c[i] / root), 3e-16L) << i;
    // A rotation: cs^2 + ca^2 = 1.
    const long double cs = gTables.aliasCs[i], ca = gTables.aliasCa[i];
    EXPECT_NEAR(1.0L, cs * cs + ca * ca, 1e-15L) << i;
  }
  EXPECT_NEAR(0.857492925712544, gTables.aliasCs[0], 1e-15);
  EXPECT_NEAR(-0.514495755427527, gTables.aliasCa[0], 1e-15);
}

// --- Long IMDCT windows ---

TEST_F(TablesTest, LongWindowsInTheStoredForm) {
  for (int type : {0, 1, 3}) {
    for (int i = 0; i < 36; ++i) {
      const long double q = std::cos(kPiL / 72 * (2 * i + 19));
      const bool middle = i >= 4 && (i - 4) % 9 == 0;
      const long double want = kxtest::StandardLongWindow(type, i) / q * (middle ? 0.5L : 0.25L);
      EXPECT_LT(std::fabs(gTables.imdctWindow[type][i] - want), kTrigTolerance * std::fmax(1.0L, std::fabs(want)))
          << "type " << type << " entry " << i;
    }
  }
  // The unused row for short blocks is zero.
  for (int i = 0; i < 36; ++i) EXPECT_EQ(0.0, gTables.imdctWindow[2][i]);
}

TEST_F(TablesTest, LongWindowZerosAndFlatTops) {
  for (int i = 30; i < 36; ++i) EXPECT_EQ(0.0, gTables.imdctWindow[1][i]) << i;
  for (int i = 0; i < 6; ++i) EXPECT_EQ(0.0, gTables.imdctWindow[3][i]) << i;
  // Flat tops: 0.25 / q(i) (entry 22 keeps 0.5 / q).
  for (int i = 18; i < 24; ++i) {
    const double q = std::cos(3.14159265358979323846 / 72.0 * (2 * i + 19));
    EXPECT_DOUBLE_EQ((i == 22 ? 0.5 : 0.25) / q, gTables.imdctWindow[1][i]) << i;
  }
}

// --- Synthesis window ---

TEST_F(TablesTest, SynthesisWindowListedValues) {
  EXPECT_EQ(0, kSynthesisWindowD[0]);
  EXPECT_EQ(-1, kSynthesisWindowD[1]);
  EXPECT_EQ(75038, kSynthesisWindowD[256]);
  EXPECT_EQ(-74992, kSynthesisWindowD[255]);
  EXPECT_EQ(74992, kSynthesisWindowD[257]);
  EXPECT_EQ(213, kSynthesisWindowD[64]);
  EXPECT_EQ(2037, kSynthesisWindowD[128]);
  EXPECT_EQ(6574, kSynthesisWindowD[192]);
  EXPECT_EQ(1, kSynthesisWindowD[511]);
  // The standard prints D to nine decimals: the integers reproduce those digits.
  auto decimals = [](int32_t d) { return std::round(d / 65536.0 * 1e9) / 1e9; };
  EXPECT_DOUBLE_EQ(1.144989014, decimals(kSynthesisWindowD[256]));
  EXPECT_DOUBLE_EQ(-0.000015259, decimals(kSynthesisWindowD[1]));
  EXPECT_DOUBLE_EQ(0.003250122, decimals(kSynthesisWindowD[64]));
  EXPECT_DOUBLE_EQ(0.031082153, decimals(kSynthesisWindowD[128]));
  EXPECT_DOUBLE_EQ(0.100311279, decimals(kSynthesisWindowD[192]));
  EXPECT_DOUBLE_EQ(-1.144287109, decimals(kSynthesisWindowD[255]));
}

TEST_F(TablesTest, SynthesisWindowSymmetry) {
  // D[512 - i] = -D[i], except at the multiples of 64 where D[512 - i] = D[i].
  for (int i = 1; i < 512; ++i) {
    if (i % 64 == 0) {
      EXPECT_EQ(kSynthesisWindowD[512 - i], kSynthesisWindowD[i]) << i;
    } else {
      EXPECT_EQ(kSynthesisWindowD[512 - i], -kSynthesisWindowD[i]) << i;
    }
  }
}

// The prototype low-pass: D with the sign of every odd block of 64 taps reversed.
std::vector<double> Prototype() {
  std::vector<double> h(512);
  for (int i = 0; i < 512; ++i) h[i] = ((i / 64) % 2 ? -1 : 1) * kSynthesisWindowD[i];
  return h;
}

TEST_F(TablesTest, SynthesisWindowIsASmoothPrototypeInIntegerSteps) {
  // The prototype is a smooth curve sampled and rounded to integers: its fourth
  // differences stay within the rounding noise (at most 8 for values within 0.5 of the
  // curve). A wrong digit anywhere shows up as a spike.
  const std::vector<double> h = Prototype();
  for (int i = 0; i + 4 < 512; ++i) {
    const double d4 = h[i] - 4 * h[i + 1] + 6 * h[i + 2] - 4 * h[i + 3] + h[i + 4];
    EXPECT_LE(std::fabs(d4), 8.0) << i;
  }
  // Its peak is the centre tap.
  for (int i = 0; i < 512; ++i) EXPECT_LE(h[i], h[256]);
}

TEST_F(TablesTest, SynthesisWindowIsAPseudoQmfPrototype) {
  const std::vector<double> h = Prototype();
  auto response = [&](long double w) {
    std::complex<long double> s = 0;
    for (int n = 0; n < 512; ++n) s += static_cast<long double>(h[n]) * std::polar(1.0L, -w * n);
    return std::abs(s);
  };
  const long double dc = response(0);
  // DC gain 64 (x 65536) to within a few steps of the integer rounding.
  EXPECT_NEAR(64.0L, dc / 65536, 5e-3L);
  // Power complementary across the band edge pi/64: |H(w)|^2 + |H(pi/32 - w)|^2 = |H(0)|^2.
  for (int k = 0; k <= 16; ++k) {
    const long double w = k * (kPiL / 32) / 16;
    const long double p = (std::pow(response(w), 2) + std::pow(response(kPiL / 32 - w), 2)) / (dc * dc);
    EXPECT_NEAR(1.0L, p, 3e-4L) << k;
  }
  // Stop band: at least 100 dB down from 1.5 pi/32 on.
  for (int k = 0; k < 120; ++k) {
    const long double w = kPiL / 32 * (1.5L + k * 0.25L);
    EXPECT_LT(response(w) / dc, 1e-5L) << k;
  }
}

TEST_F(TablesTest, SynthesisWindowCopies) {
  for (uint32_t i = 0; i < kSynthesisWindowTaps; ++i) {
    // Negated where the tap meets a ring value stored without its minus sign: every
    // odd tap (ring values 32..63 of a row), and outputs 17..31 of the even taps.
    const uint32_t k = i / 32, n = i % 32;
    const double sign = (k % 2 == 1 || n >= 17) ? -1.0 : 1.0;
    EXPECT_EQ(sign, SynthesisWindowSign(i)) << i;
    const double d = static_cast<double>(kSynthesisWindowD[i]);
    EXPECT_TRUE(kxtest::SameBits(sign * std::ldexp(d, -16), gTables.synthWindowFloat[i])) << i;
    EXPECT_TRUE(kxtest::SameBits(sign * d / 2.0, gTables.synthWindowInt16[i])) << i;
  }
}

TEST_F(TablesTest, RingIndexTable) {
  static const uint32_t kBase[16] = {0, 96, 128, 224, 256, 352, 384, 480, 512, 608, 640, 736, 768, 864, 896, 992};
  for (uint32_t p = 0; p < 16; ++p) {
    std::set<uint32_t> cells;
    for (uint32_t k = 0; k < 16; ++k) {
      const uint32_t base = 128 * (k / 2) + (k % 2 ? 96 : 0);
      EXPECT_EQ(kBase[k], base);
      EXPECT_EQ((64 * p + base) % 1024, kSynthesisRingIndex[p][k]) << p << "," << k;
      EXPECT_EQ(0u, kSynthesisRingIndex[p][k] % 32);
      for (uint32_t n = 0; n < 32; ++n) cells.insert(kSynthesisRingIndex[p][k] + n);
    }
    // Each row reads 512 distinct ring cells, none past the ring's end.
    EXPECT_EQ(512u, cells.size());
    EXPECT_LT(*cells.rbegin(), 1024u);
  }
}

TEST_F(TablesTest, FastDctFactors) {
  auto check = [](const double* f, int count, int n) {
    for (int j = 0; j < count; ++j) {
      EXPECT_LT(Rel(f[j], 1 / (2 * std::cos((2 * j + 1) * kPiL / (2 * n)))), kTrigTolerance) << n << " " << j;
    }
  };
  check(gTables.dct32Factors, 16, 32);
  check(gTables.dct16Factors, 8, 16);
  check(gTables.dct8Factors, 4, 8);
  check(gTables.dct4Factors, 2, 4);
  check(gTables.dct2Factor, 1, 2);
  EXPECT_EQ(gTables.dct2Factor[0], gTables.dct2Factor[1]);
  EXPECT_NEAR(10.1900081235480, gTables.dct32Factors[15], 1e-12);
}

// --- Intensity stereo ---

TEST_F(TablesTest, IntensityRatiosMpeg1) {
  for (int i = 0; i < 16; ++i) {
    if (i == 6 || i == 9 || i == 15) continue;  // tan at its poles and its -1: checked below
    const long double t = std::tan(i * kPiL / 12);
    EXPECT_LT(std::fabs(gTables.isRatioMpeg1[0][0][i] - t / (1 + t)), 1e-14L) << i;
    EXPECT_LT(std::fabs(gTables.isRatioMpeg1[0][1][i] - 1 / (1 + t)), 1e-14L) << i;
  }
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(gTables.isRatioMpeg1[0][0][i] * std::sqrt(2.0), gTables.isRatioMpeg1[1][0][i]) << i;
    EXPECT_EQ(gTables.isRatioMpeg1[0][1][i] * std::sqrt(2.0), gTables.isRatioMpeg1[1][1][i]) << i;
  }
  EXPECT_EQ(0.0, gTables.isRatioMpeg1[0][0][0]);
  EXPECT_EQ(1.0, gTables.isRatioMpeg1[0][1][0]);
  EXPECT_NEAR(0.5, gTables.isRatioMpeg1[0][0][3], 1e-15);
  EXPECT_NEAR(0.5, gTables.isRatioMpeg1[0][1][3], 1e-15);
}

TEST_F(TablesTest, IntensityEntrySixIsAlmostAllLeft) {
  // tan(6 pi / 12) in double is about 1.6e16, so left is about 1 and right about 6e-17.
  EXPECT_NEAR(1.0, gTables.isRatioMpeg1[0][0][6], 1e-15);
  EXPECT_GT(gTables.isRatioMpeg1[0][1][6], 1e-17);
  EXPECT_LT(gTables.isRatioMpeg1[0][1][6], 1e-16);
  // Entries past 6 are computed by the same formula, without a guard: near tan = -1
  // (entry 9) the factors are very large.
  EXPECT_GT(std::fabs(gTables.isRatioMpeg1[0][0][9]), 1e14);
  EXPECT_TRUE(std::isfinite(gTables.isRatioMpeg1[0][0][9]));
}

TEST_F(TablesTest, IntensityRatiosLsf) {
  constexpr long double kTolerance = 1e-15L;
  for (int s = 0; s < 2; ++s) {
    const long double io = std::exp2(-(s + 1) / 4.0L);
    for (int i = 0; i < 16; ++i) {
      long double left = 1, right = 1;
      if (i % 2 == 1) left = std::pow(io, (i + 1) / 2);
      if (i % 2 == 0 && i > 0) right = std::pow(io, i / 2);
      EXPECT_LT(Rel(gTables.isRatioLsf[s][0][i], left), kTolerance) << s << " " << i;
      EXPECT_LT(Rel(gTables.isRatioLsf[s][1][i], right), kTolerance) << s << " " << i;
      EXPECT_LT(Rel(gTables.isRatioLsf[s + 2][0][i], left * std::sqrt(2.0L)), kTolerance) << s << " " << i;
      EXPECT_LT(Rel(gTables.isRatioLsf[s + 2][1][i], right * std::sqrt(2.0L)), kTolerance) << s << " " << i;
    }
  }
  EXPECT_EQ(1.0, gTables.isRatioLsf[0][0][0]);
  EXPECT_EQ(1.0, gTables.isRatioLsf[0][1][0]);
  // s = 1, is_pos 1: left 2^(-1/2).
  EXPECT_NEAR(0.7071067811865476, gTables.isRatioLsf[1][0][1], 1e-16);
  // s = 0, is_pos 8: right 2^(-1).
  EXPECT_NEAR(0.5, gTables.isRatioLsf[0][1][8], 2e-16);
}

// --- IMDCT kernel constants ---

TEST_F(TablesTest, ImdctConstants) {
  const ImdctConstants& c = gImdctConstants;
  auto pairOf = [](const double* p, long double want) {
    EXPECT_EQ(p[0], p[1]);
    EXPECT_LT(Rel(p[0], want), kTrigTolerance);
  };
  pairOf(c.c2, 2 * std::cos(kPiL / 9));
  pairOf(c.c4, 2 * std::cos(2 * kPiL / 9));
  pairOf(c.c8, 2 * std::cos(4 * kPiL / 9));
  pairOf(c.c1, 2 * std::cos(kPiL / 18));
  pairOf(c.c3, 2 * std::cos(3 * kPiL / 18));
  pairOf(c.c5, 2 * std::cos(5 * kPiL / 18));
  pairOf(c.c7, 2 * std::cos(7 * kPiL / 18));
  pairOf(c.c6, std::cos(kPiL / 6));
  for (int j = 0; j < 9; ++j) {
    EXPECT_LT(Rel(c.combine36[j], 1 / (2 * std::cos((2 * j + 1) * kPiL / 36))), kTrigTolerance);
  }
  for (int j = 0; j < 3; ++j) {
    EXPECT_LT(Rel(c.combine12[j], 1 / (2 * std::cos((2 * j + 1) * kPiL / 12))), kTrigTolerance);
  }
  for (int j = 0; j < 6; ++j) EXPECT_LT(Rel(c.post12[j], 1 / (2 * std::cos((2 * j + 1) * kPiL / 24))), kTrigTolerance);
  for (int i = 0; i < 12; ++i) {
    const long double s = std::sin(kPiL / 24 * (2 * i + 1));
    EXPECT_LT(Rel(c.shortWindow[i], (i >= 3 && i <= 5) ? -s : s), kTrigTolerance) << i;
  }
}

}  // namespace
}  // namespace kxmp3

// --- The synthesis window derived from other decoders' output ---
//
// The 16-bit output of a slot is out[n] = sum_k W[32 k + n] V_k(n) with W = D / 2 and
// V_k(n) the ring values tap k reads. Decoding a stream while recording those ring
// values, and pairing each output with another decoder's sample at the same place,
// gives for each n an overdetermined linear system in the 16 entries W[32 k + n]; its
// least-squares solution recovers the window from that decoder's output alone.
// The even taps of output 16 always read V[16] = 0 and so never reach the output;
// those eight entries are not identifiable (the symmetry test covers them).

namespace kxmp3 {
namespace {

struct WindowFit {
  double ata[32][16][16] = {};
  double atb[32][16] = {};
  size_t equations[32] = {};
  const std::vector<double>* reference = nullptr;  // in 16-bit units
  size_t slot = 0;  // output slot of the next window call
};

WindowFit* gFit = nullptr;
const DspKernels* gInner = nullptr;

void FittingWindowInt16(int16_t* out, const double* const* taps) {
  gInner->windowInt16(out, taps);
  const size_t slot = gFit->slot++;
  for (int n = 0; n < 32; ++n) {
    const size_t at = 32 * slot + n;
    if (at >= gFit->reference->size()) return;
    const double r = (*gFit->reference)[at];
    if (r >= 32767 || r <= -32768) continue;  // saturated: not a window sum
    double v[16];
    for (int k = 0; k < 16; ++k) v[k] = taps[k][n];
    for (int k = 0; k < 16; ++k) {
      for (int l = 0; l <= k; ++l) gFit->ata[n][k][l] += v[k] * v[l];
      gFit->atb[n][k] += v[k] * r;
    }
    ++gFit->equations[n];
  }
}

// Solves the normal equations of output n over the taps that ever see a non-zero
// value; returns the fitted W per tap (NaN for taps that are never reached).
std::vector<long double> Solve(const WindowFit& fit, int n) {
  std::vector<int> taps;
  for (int k = 0; k < 16; ++k) {
    if (fit.ata[n][k][k] > 0) taps.push_back(k);
  }
  const size_t m = taps.size();
  std::vector<std::vector<long double>> a(m, std::vector<long double>(m + 1));
  for (size_t i = 0; i < m; ++i) {
    for (size_t j = 0; j < m; ++j) {
      const int k = std::max(taps[i], taps[j]), l = std::min(taps[i], taps[j]);
      a[i][j] = fit.ata[n][k][l];
    }
    a[i][m] = fit.atb[n][taps[i]];
  }
  for (size_t c = 0; c < m; ++c) {
    size_t pivot = c;
    for (size_t r = c + 1; r < m; ++r) {
      if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) pivot = r;
    }
    std::swap(a[c], a[pivot]);
    for (size_t r = 0; r < m; ++r) {
      if (r == c) continue;
      const long double f = a[r][c] / a[c][c];
      for (size_t j = c; j <= m; ++j) a[r][j] -= f * a[c][j];
    }
  }
  std::vector<long double> w(16, std::numeric_limits<long double>::quiet_NaN());
  for (size_t i = 0; i < m; ++i) w[taps[i]] = a[i][m] / a[i][i];
  return w;
}

// One mono stream and another decoder's output for it, in 16-bit units.
struct FitSource {
  std::string name;
  std::vector<uint8_t> bits;
  std::vector<double> reference;
};

FitSource FromInt16(const std::string& dir, const std::string& name) {
  FitSource s{name, kxtest::ReadFile(dir + name + ".bit"), {}};
  for (int16_t v : kxtest::AsInt16(kxtest::ReadFile(dir + name + ".pcm"))) s.reference.push_back(v);
  return s;
}

// Raw 32-bit floats, full scale 1.0.
FitSource FromFloat32(const std::string& mp3, const std::string& f32) {
  FitSource s{mp3, kxtest::ReadFile(mp3), {}};
  const auto bytes = kxtest::ReadFile(f32);
  for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
    float f;
    std::memcpy(&f, bytes.data() + i, 4);
    s.reference.push_back(f * 32768.0);
  }
  return s;
}

std::unique_ptr<WindowFit> FitWindow(const std::vector<FitSource>& sources) {
  auto fit = std::make_unique<WindowFit>();
  gFit = fit.get();
  gInner = &Dsp();
  DspKernels fitting = Dsp();
  fitting.windowInt16 = FittingWindowInt16;
  const DspKernels& previous = ReplaceDspKernelsForTesting(fitting);
  for (const FitSource& source : sources) {
    kxtest::HarnessOptions options;
    options.noDeemphasis = true;
    auto h = kxtest::EngineHarness::Open(source.bits, options);
    if (h == nullptr || h->Channels() != 1 || source.reference.empty()) {
      ADD_FAILURE() << source.name << " cannot be fitted";
      continue;
    }
    fit->reference = &source.reference;
    std::vector<uint8_t> pcm;
    for (int calls = 0; calls < 100000; ++calls) {
      fit->slot = pcm.size() / 2 / 32;  // frames of silence make no window calls
      if (h->DecodeOne(pcm) == int32_t{AF_S_END_OF_DATA}) break;
    }
  }
  ReplaceDspKernelsForTesting(previous);
  gFit = nullptr;
  return fit;
}

// Solves the fit and compares every identifiable entry with the table; returns the
// largest and the rms deviation in integer steps.
std::pair<double, double> CompareFit(const WindowFit& fit, long double tolerance) {
  long double worst = 0, sumSq = 0;
  int identified = 0;
  for (int n = 0; n < 32; ++n) {
    const std::vector<long double> w = Solve(fit, n);
    for (int k = 0; k < 16; ++k) {
      const int i = 32 * k + n;
      if (std::isnan(w[k])) {
        EXPECT_TRUE(n == 16 && k % 2 == 0) << "tap " << k << " of output " << n << " never reached";
        continue;
      }
      // The 16-bit window holds D / 2 times the sign of the ring value it meets.
      const long double d = 2 * w[k] * SynthesisWindowSign(i);
      const long double dev = std::fabs(d - kSynthesisWindowD[i]);
      worst = std::fmax(worst, dev);
      sumSq += dev * dev;
      EXPECT_LT(dev, tolerance) << "D[" << i << "] fitted as " << static_cast<double>(d);
      ++identified;
    }
  }
  EXPECT_EQ(504, identified);
  return {static_cast<double>(worst), static_cast<double>(std::sqrt(sumSq / identified))};
}

TEST_F(TablesTest, SynthesisWindowDerivedFromAnotherDecodersFloatOutput) {
  // A lame-encoded noise stream (no encoder tag, so nothing is trimmed) and mpg123's
  // 32-bit float output for it. The float output carries no 16-bit rounding, so the
  // fit pins every entry to a few thousandths of an integer step.
  const std::string dir = std::string(KX_TEST_DATA_DIR) + "/window/";
  const FitSource source = FromFloat32(dir + "noise_44100_mono.mp3", dir + "noise_44100_mono.f32");
  ASSERT_FALSE(source.bits.empty());
  ASSERT_EQ(17u * 1152u, source.reference.size());
  auto fit = FitWindow({source});
  for (int n = 0; n < 32; ++n) EXPECT_GT(fit->equations[n], 500u) << n;
  const auto [worst, rms] = CompareFit(*fit, 0.05L);
  std::printf("[ window  ] fitted to another decoder's float output: largest deviation %.4f, rms %.4f steps\n", worst,
              rms);
}

TEST_F(TablesTest, SynthesisWindowConsistentWithTheReferenceDecoder) {
  // The 16-bit reference output of the conformance streams: its rounding (+-0.5) is
  // noise of the fit, so each entry is pinned only to within about two steps, and the
  // deviations must look like that noise (rms well below one step).
  const std::string shared = kxtest::SharedDir();
  if (shared.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  const std::string dir = shared + "/conformance/";
  // Mono streams whose output lines up with the reference from the first sample.
  auto fit = FitWindow({FromInt16(dir, "l3-he_44khz"), FromInt16(dir, "l3-compl"), FromInt16(dir, "M2L3_compl24")});
  for (int n = 0; n < 32; ++n) EXPECT_GT(fit->equations[n], 10000u) << n;
  const auto [worst, rms] = CompareFit(*fit, 3.0L);
  EXPECT_LT(rms, 1.0);
  std::printf("[ window  ] fitted to the reference decoder's 16-bit output: largest deviation %.4f, rms %.4f steps\n",
              worst, rms);
}

}  // namespace
}  // namespace kxmp3
