// 64-bit multiply-and-divide (ordinal 84): a * b / c through a 128-bit product, so
// no intermediate overflows (|a * b| <= 2^126); the quotient is truncated toward
// zero, saturated to the 64-bit range, and 0 when c is 0.
#include <cstdint>
#include <limits>

#include "host/kxcore.h"

extern "C" int64_t ZCoreMulDiv64(int64_t a, int64_t b, int64_t c) {
  if (c == 0) return 0;
  const __int128 quotient = static_cast<__int128>(a) * b / c;
  if (quotient > std::numeric_limits<int64_t>::max()) return std::numeric_limits<int64_t>::max();
  if (quotient < std::numeric_limits<int64_t>::min()) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(quotient);
}
