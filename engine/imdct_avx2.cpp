// AVX2 version of the long-block hybrid filterbank step, two subbands at a time (for
// processors that have it; chosen at run time, see dsp_kernels.cpp; this file is
// compiled for AVX2 without FMA).
//
// Each 128-bit half of a register carries what one register of the SSE2 36-point
// kernel carries (the even and odd nine-point halves of one subband), the low half
// for the first subband and the high half for the second, and every instruction
// acts on each half as the SSE2 instruction acts on its register: the same
// operations in the same order, so the results are bit-identical to Imdct36Sse2
// followed by OverlapAdd. The overlap-add is done on the windowed values as they
// are formed.
//
// As in the other wide-kernel files, nothing here is an inline function shared with
// other files.
#include "dsp_kernels.h"

#if defined(__AVX2__)

#include <immintrin.h>

namespace kxmp3 {

namespace {

// The pair at a (first subband) and the pair at b (second subband) in one register.
inline __m256d Load2(const double* a, const double* b) {
  return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(a)), _mm_loadu_pd(b), 1);
}
inline void Store2(double* a, double* b, __m256d v) {
  _mm_storeu_pd(a, _mm256_castpd256_pd128(v));
  _mm_storeu_pd(b, _mm256_extractf128_pd(v, 1));
}
// One pair of constants in both halves.
inline __m256d Pair(const double* p) { return _mm256_broadcast_pd(reinterpret_cast<const __m128d*>(p)); }
// Per half: (v[1], v[0]); (a[1], b[0]); (b[0], a[1]) of SSE2's move_sd(a, b).
inline __m256d Swap(__m256d v) { return _mm256_permute_pd(v, 0x5); }
inline __m256d Straddle(__m256d a, __m256d b) { return _mm256_shuffle_pd(a, b, 0x5); }
inline __m256d MoveLow(__m256d a, __m256d b) { return _mm256_blend_pd(a, b, 0x5); }

}  // namespace

void HybridLongPairAvx2(double* subbands, double* overlap, const double* window) {
  const ImdctConstants& c = gImdctConstants;
  double* const xa = subbands;
  double* const xb = subbands + 18;
  double* const oa = overlap;
  double* const ob = overlap + 18;
  __m256d p[9];
  for (int m = 0; m < 9; ++m) p[m] = Load2(xa + 2 * m, xb + 2 * m);

  // Z[k] = X[k] + X[k-1] (X[0] stays).
  __m256d n[9];
  n[0] = MoveLow(_mm256_add_pd(p[0], _mm256_unpacklo_pd(p[0], p[0])), p[0]);
  for (int m = 1; m < 9; ++m) n[m] = _mm256_add_pd(p[m], Straddle(p[m - 1], p[m]));
  // Z'[2m+1] = Z[2m+1] + Z[2m-1] (even entries stay).
  __m256d v[9];
  v[0] = n[0];
  for (int m = 1; m < 9; ++m) v[m] = MoveLow(_mm256_add_pd(n[m], _mm256_unpackhi_pd(n[m - 1], n[m - 1])), n[m]);

  // Nine-point DCT-III on (even half, odd half) of each subband.
  const __m256d c1 = Pair(c.c1), c2 = Pair(c.c2), c3 = Pair(c.c3);
  const __m256d c4 = Pair(c.c4), c5 = Pair(c.c5), c7 = Pair(c.c7);
  const __m256d c8 = Pair(c.c8);
  const __m256d v0d = _mm256_add_pd(v[0], v[0]);
  const __m256d a = _mm256_add_pd(v0d, v[6]);
  const __m256d b = _mm256_sub_pd(v0d, _mm256_add_pd(v[6], v[6]));
  const __m256d ev0 = _mm256_add_pd(
      _mm256_add_pd(_mm256_add_pd(a, _mm256_mul_pd(v[2], c2)), _mm256_mul_pd(v[4], c4)), _mm256_mul_pd(v[8], c8));
  const __m256d ev1 = _mm256_sub_pd(_mm256_sub_pd(_mm256_add_pd(b, v[2]), v[4]), v[8]);
  const __m256d ev2 = _mm256_add_pd(
      _mm256_sub_pd(_mm256_sub_pd(a, _mm256_mul_pd(v[2], c8)), _mm256_mul_pd(v[4], c2)), _mm256_mul_pd(v[8], c4));
  const __m256d ev3 = _mm256_sub_pd(
      _mm256_add_pd(_mm256_sub_pd(a, _mm256_mul_pd(v[2], c4)), _mm256_mul_pd(v[4], c8)), _mm256_mul_pd(v[8], c2));
  const __m256d od0 = _mm256_add_pd(
      _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(v[1], c1), _mm256_mul_pd(v[3], c3)), _mm256_mul_pd(v[5], c5)),
      _mm256_mul_pd(v[7], c7));
  const __m256d od1 = _mm256_mul_pd(_mm256_sub_pd(_mm256_sub_pd(v[1], v[5]), v[7]), c3);
  const __m256d od2 = _mm256_add_pd(
      _mm256_sub_pd(_mm256_sub_pd(_mm256_mul_pd(v[1], c5), _mm256_mul_pd(v[3], c3)), _mm256_mul_pd(v[5], c7)),
      _mm256_mul_pd(v[7], c1));
  const __m256d od3 = _mm256_sub_pd(
      _mm256_add_pd(_mm256_sub_pd(_mm256_mul_pd(v[1], c7), _mm256_mul_pd(v[3], c3)), _mm256_mul_pd(v[5], c1)),
      _mm256_mul_pd(v[7], c5));
  __m256d q[10];
  q[0] = _mm256_add_pd(ev0, od0);
  q[8] = _mm256_sub_pd(ev0, od0);
  q[1] = _mm256_add_pd(ev1, od1);
  q[7] = _mm256_sub_pd(ev1, od1);
  q[2] = _mm256_add_pd(ev2, od2);
  q[6] = _mm256_sub_pd(ev2, od2);
  q[3] = _mm256_add_pd(ev3, od3);
  q[5] = _mm256_sub_pd(ev3, od3);
  q[4] = _mm256_add_pd(_mm256_sub_pd(_mm256_add_pd(_mm256_sub_pd(v[0], v[2]), v[4]), v[6]), v[8]);
  q[9] = q[8];  // pad for the last pair below (its factor is 0, its lane unused)

  // Combine the halves two outputs at a time: plus[r] = e + o f[r], minus[r] = e - o f[r].
  __m256d plus[5], minus[5];
  for (int j = 0; j < 5; ++j) {
    const __m256d e = _mm256_unpacklo_pd(q[2 * j], q[2 * j + 1]);
    const __m256d t = _mm256_mul_pd(_mm256_unpackhi_pd(q[2 * j], q[2 * j + 1]), Pair(c.combine36 + 2 * j));
    plus[j] = _mm256_add_pd(e, t);
    minus[j] = _mm256_sub_pd(e, t);
  }

  // Permute and window; the first 18 outputs are added to the stored overlap to give
  // the subbands' samples, the last 18 become the new overlap. All overlap reads come
  // before its writes.
  auto first = [&](int at, __m256d value) {
    const __m256d windowed = _mm256_mul_pd(value, Pair(window + at));
    Store2(xa + at, xb + at, _mm256_add_pd(windowed, Load2(oa + at, ob + at)));
  };
  auto second = [&](int at, __m256d value) {
    Store2(oa + at - 18, ob + at - 18, _mm256_mul_pd(value, Pair(window + at)));
  };
  const __m256d m12 = Straddle(minus[0], minus[1]), m34 = Straddle(minus[1], minus[2]);
  const __m256d m56 = Straddle(minus[2], minus[3]), m78 = Straddle(minus[3], minus[4]);
  const __m256d p12 = Straddle(plus[0], plus[1]), p34 = Straddle(plus[1], plus[2]);
  const __m256d p56 = Straddle(plus[2], plus[3]), p78 = Straddle(plus[3], plus[4]);
  first(0, Swap(m78));
  first(2, Swap(m56));
  first(4, Swap(m34));
  first(6, Swap(m12));
  first(8, _mm256_unpacklo_pd(minus[0], minus[0]));
  first(10, m12);
  first(12, m34);
  first(14, m56);
  first(16, m78);
  second(18, Swap(p78));
  second(20, Swap(p56));
  second(22, Swap(p34));
  second(24, Swap(p12));
  second(26, _mm256_unpacklo_pd(plus[0], plus[0]));
  second(28, p12);
  second(30, p34);
  second(32, p56);
  second(34, p78);
}

}  // namespace kxmp3

#endif  // __AVX2__
