// 64-bit multiply-and-divide (ordinal 84) against 128-bit and long-double references.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "host/kxcore.h"

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

// The reference: exact quotient, truncated toward zero, saturated.
int64_t Reference(int64_t a, int64_t b, int64_t c) {
  if (c == 0) return 0;
  const __int128 q = static_cast<__int128>(a) * b / c;
  if (q > kMax) return kMax;
  if (q < kMin) return kMin;
  return static_cast<int64_t>(q);
}

TEST(MulDiv64, TypicalTimeConversions) {
  // Samples at 44.1 kHz to 100-ns units and back.
  EXPECT_EQ(ZCoreMulDiv64(44100, 10000000, 44100), 10000000);
  EXPECT_EQ(ZCoreMulDiv64(1152, 10000000, 44100), 261224);  // 261224.48 truncated
  EXPECT_EQ(ZCoreMulDiv64(261224, 44100, 10000000), 1151);
  const int64_t hours = int64_t{3600} * 24 * 365 * 44100;  // a year of samples
  EXPECT_EQ(ZCoreMulDiv64(hours, 10000000, 44100), int64_t{3600} * 24 * 365 * 10000000);
}

TEST(MulDiv64, TruncatesTowardZero) {
  EXPECT_EQ(ZCoreMulDiv64(7, 1, 2), 3);
  EXPECT_EQ(ZCoreMulDiv64(-7, 1, 2), -3);
  EXPECT_EQ(ZCoreMulDiv64(7, -1, 2), -3);
  EXPECT_EQ(ZCoreMulDiv64(7, 1, -2), -3);
  EXPECT_EQ(ZCoreMulDiv64(-7, -1, -2), -3);
  EXPECT_EQ(ZCoreMulDiv64(-7, -1, 2), 3);
}

TEST(MulDiv64, DivisionByZeroGivesZero) {
  EXPECT_EQ(ZCoreMulDiv64(5, 6, 0), 0);
  EXPECT_EQ(ZCoreMulDiv64(kMax, kMax, 0), 0);
  EXPECT_EQ(ZCoreMulDiv64(kMin, 1, 0), 0);
}

TEST(MulDiv64, ExtremesAreExact) {
  EXPECT_EQ(ZCoreMulDiv64(kMax, kMax, kMax), kMax);  // the product needs 126 bits
  EXPECT_EQ(ZCoreMulDiv64(kMin, kMin, kMin), kMin);
  EXPECT_EQ(ZCoreMulDiv64(kMin, kMax, kMax), kMin);
  EXPECT_EQ(ZCoreMulDiv64(kMax, 2, 3), static_cast<int64_t>((static_cast<__int128>(kMax) * 2) / 3));
  EXPECT_EQ(ZCoreMulDiv64(kMin, 1, -1), kMax);  // -(-2^63) does not fit: saturated
  EXPECT_EQ(ZCoreMulDiv64(kMin, -1, 1), kMax);
  EXPECT_EQ(ZCoreMulDiv64(kMin, kMin, 1), kMax);
  EXPECT_EQ(ZCoreMulDiv64(kMin, kMax, 1), kMin);
  EXPECT_EQ(ZCoreMulDiv64(kMax, kMax, -1), kMin);
  EXPECT_EQ(ZCoreMulDiv64(kMin, kMin, kMax), Reference(kMin, kMin, kMax));
  EXPECT_EQ(ZCoreMulDiv64(kMin, 1, 1), kMin);
  EXPECT_EQ(ZCoreMulDiv64(0, kMin, -1), 0);
}

TEST(MulDiv64, RandomValuesMatchThe128BitReference) {
  std::mt19937_64 rng(20240611);
  for (int i = 0; i < 200000; ++i) {
    // Mix full-range values with small ones, so both overflow and exact paths run.
    auto pick = [&rng](int kind) -> int64_t {
      const uint64_t r = rng();
      switch (kind) {
        case 0: return static_cast<int64_t>(r);
        case 1: return static_cast<int64_t>(r % 2000001) - 1000000;
        default: return static_cast<int64_t>(r >> (r % 63));
      }
    };
    const int64_t a = pick(static_cast<int>(rng() % 3));
    const int64_t b = pick(static_cast<int>(rng() % 3));
    const int64_t c = pick(static_cast<int>(rng() % 3));
    ASSERT_EQ(ZCoreMulDiv64(a, b, c), Reference(a, b, c)) << a << " * " << b << " / " << c;
  }
}

TEST(MulDiv64, AgreesWithLongDoubleWhereThatIsExactEnough) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 100000; ++i) {
    const int64_t a = static_cast<int64_t>(rng() % (int64_t{1} << 40));
    const int64_t b = static_cast<int64_t>(rng() % 20000000) + 1;
    const int64_t c = static_cast<int64_t>(rng() % 200000) + 1;
    const long double expected = std::trunc(static_cast<long double>(a) * b / c);
    const int64_t got = ZCoreMulDiv64(a, b, c);
    // The long double result has 64 bits of mantissa; allow one unit for its rounding.
    ASSERT_LE(std::fabs(static_cast<long double>(got) - expected), 1.0L) << a << " * " << b << " / " << c;
  }
}

}  // namespace
