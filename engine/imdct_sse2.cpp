// SSE2 versions of the 36-point and 12-point IMDCT kernels. Same operations in the
// same order as the scalar references in imdct.cpp, so the results are bit-identical:
// the 36-point kernel carries the even and odd nine-point halves as the two lanes of
// each pair; the 12-point kernel carries short windows 0 and 1 as the two lanes, then
// window 2 alone.
#include "dsp_kernels.h"

#if defined(__SSE2__)

#include <emmintrin.h>

namespace kxmp3 {

namespace {

inline __m128d Swap(__m128d v) { return _mm_shuffle_pd(v, v, 1); }
inline __m128d Neg(__m128d v) { return _mm_xor_pd(v, _mm_set1_pd(-0.0)); }
// (a[1], b[0]): the pair that straddles two consecutive pairs.
inline __m128d Straddle(__m128d a, __m128d b) { return _mm_shuffle_pd(a, b, 1); }

}  // namespace

void Imdct36Sse2(double* x, double* out, const double* window) {
  const ImdctConstants& c = gImdctConstants;
  __m128d p[9];
  for (int m = 0; m < 9; ++m) p[m] = _mm_load_pd(x + 2 * m);

  // Z[k] = X[k] + X[k-1] (X[0] stays).
  __m128d n[9];
  n[0] = _mm_move_sd(_mm_add_pd(p[0], _mm_unpacklo_pd(p[0], p[0])), p[0]);
  for (int m = 1; m < 9; ++m) n[m] = _mm_add_pd(p[m], Straddle(p[m - 1], p[m]));
  // Z'[2m+1] = Z[2m+1] + Z[2m-1] (even entries stay).
  __m128d v[9];
  v[0] = n[0];
  for (int m = 1; m < 9; ++m) {
    v[m] = _mm_move_sd(_mm_add_pd(n[m], _mm_unpackhi_pd(n[m - 1], n[m - 1])), n[m]);
  }
  for (int m = 0; m < 9; ++m) _mm_store_pd(x + 2 * m, v[m]);

  // Nine-point DCT-III on pairs (even half, odd half).
  const __m128d c1 = _mm_load_pd(c.c1), c2 = _mm_load_pd(c.c2), c3 = _mm_load_pd(c.c3);
  const __m128d c4 = _mm_load_pd(c.c4), c5 = _mm_load_pd(c.c5), c7 = _mm_load_pd(c.c7);
  const __m128d c8 = _mm_load_pd(c.c8);
  const __m128d v0d = _mm_add_pd(v[0], v[0]);
  const __m128d a = _mm_add_pd(v0d, v[6]);
  const __m128d b = _mm_sub_pd(v0d, _mm_add_pd(v[6], v[6]));
  const __m128d ev0 =
      _mm_add_pd(_mm_add_pd(_mm_add_pd(a, _mm_mul_pd(v[2], c2)), _mm_mul_pd(v[4], c4)), _mm_mul_pd(v[8], c8));
  const __m128d ev1 = _mm_sub_pd(_mm_sub_pd(_mm_add_pd(b, v[2]), v[4]), v[8]);
  const __m128d ev2 =
      _mm_add_pd(_mm_sub_pd(_mm_sub_pd(a, _mm_mul_pd(v[2], c8)), _mm_mul_pd(v[4], c2)), _mm_mul_pd(v[8], c4));
  const __m128d ev3 =
      _mm_sub_pd(_mm_add_pd(_mm_sub_pd(a, _mm_mul_pd(v[2], c4)), _mm_mul_pd(v[4], c8)), _mm_mul_pd(v[8], c2));
  const __m128d od0 = _mm_add_pd(
      _mm_add_pd(_mm_add_pd(_mm_mul_pd(v[1], c1), _mm_mul_pd(v[3], c3)), _mm_mul_pd(v[5], c5)),
      _mm_mul_pd(v[7], c7));
  const __m128d od1 = _mm_mul_pd(_mm_sub_pd(_mm_sub_pd(v[1], v[5]), v[7]), c3);
  const __m128d od2 = _mm_add_pd(
      _mm_sub_pd(_mm_sub_pd(_mm_mul_pd(v[1], c5), _mm_mul_pd(v[3], c3)), _mm_mul_pd(v[5], c7)),
      _mm_mul_pd(v[7], c1));
  const __m128d od3 = _mm_sub_pd(
      _mm_add_pd(_mm_sub_pd(_mm_mul_pd(v[1], c7), _mm_mul_pd(v[3], c3)), _mm_mul_pd(v[5], c1)),
      _mm_mul_pd(v[7], c5));
  __m128d q[10];
  q[0] = _mm_add_pd(ev0, od0);
  q[8] = _mm_sub_pd(ev0, od0);
  q[1] = _mm_add_pd(ev1, od1);
  q[7] = _mm_sub_pd(ev1, od1);
  q[2] = _mm_add_pd(ev2, od2);
  q[6] = _mm_sub_pd(ev2, od2);
  q[3] = _mm_add_pd(ev3, od3);
  q[5] = _mm_sub_pd(ev3, od3);
  q[4] = _mm_add_pd(_mm_sub_pd(_mm_add_pd(_mm_sub_pd(v[0], v[2]), v[4]), v[6]), v[8]);
  q[9] = q[8];  // pad for the last pair below (its factor is 0, its lane unused)

  // Combine the halves two outputs at a time: plus[r] = e + o f[r], minus[r] = e - o f[r].
  __m128d plus[5], minus[5];
  for (int j = 0; j < 5; ++j) {
    const __m128d e = _mm_unpacklo_pd(q[2 * j], q[2 * j + 1]);
    const __m128d t = _mm_mul_pd(_mm_unpackhi_pd(q[2 * j], q[2 * j + 1]), _mm_load_pd(c.combine36 + 2 * j));
    plus[j] = _mm_add_pd(e, t);
    minus[j] = _mm_sub_pd(e, t);
  }

  // Permute and window: out[8 - r], out[9 + r] take minus[r]; out[26 - r], out[27 + r]
  // take plus[r].
  auto emit = [&](int at, __m128d value) {
    _mm_store_pd(out + at, _mm_mul_pd(value, _mm_load_pd(window + at)));
  };
  const __m128d m12 = Straddle(minus[0], minus[1]), m34 = Straddle(minus[1], minus[2]);
  const __m128d m56 = Straddle(minus[2], minus[3]), m78 = Straddle(minus[3], minus[4]);
  const __m128d p12 = Straddle(plus[0], plus[1]), p34 = Straddle(plus[1], plus[2]);
  const __m128d p56 = Straddle(plus[2], plus[3]), p78 = Straddle(plus[3], plus[4]);
  emit(0, Swap(m78));
  emit(2, Swap(m56));
  emit(4, Swap(m34));
  emit(6, Swap(m12));
  emit(8, _mm_unpacklo_pd(minus[0], minus[0]));
  emit(10, m12);
  emit(12, m34);
  emit(14, m56);
  emit(16, m78);
  emit(18, Swap(p78));
  emit(20, Swap(p56));
  emit(22, Swap(p34));
  emit(24, Swap(p12));
  emit(26, _mm_unpacklo_pd(plus[0], plus[0]));
  emit(28, p12);
  emit(30, p34);
  emit(32, p56);
  emit(34, p78);
}

namespace {

// The windowed 12-point IMDCT with one short window per lane: x[k] is line k of the
// lanes' windows; z[12] receives the windowed outputs.
void Imdct12Lanes(__m128d* x, __m128d* z) {
  const ImdctConstants& c = gImdctConstants;
  for (int k = 5; k >= 1; --k) x[k] = _mm_add_pd(x[k], x[k - 1]);
  x[5] = _mm_add_pd(x[5], x[3]);
  x[3] = _mm_add_pd(x[3], x[1]);

  const __m128d c6 = _mm_load_pd(c.c6);
  const __m128d half = _mm_set1_pd(0.5);
  __m128d e[3], o[3];
  const __m128d he = _mm_add_pd(x[0], _mm_mul_pd(x[4], half));
  e[0] = _mm_add_pd(he, _mm_mul_pd(x[2], c6));
  e[1] = _mm_sub_pd(x[0], x[4]);
  e[2] = _mm_sub_pd(he, _mm_mul_pd(x[2], c6));
  const __m128d ho = _mm_add_pd(x[1], _mm_mul_pd(x[5], half));
  o[0] = _mm_add_pd(ho, _mm_mul_pd(x[3], c6));
  o[1] = _mm_sub_pd(x[1], x[5]);
  o[2] = _mm_sub_pd(ho, _mm_mul_pd(x[3], c6));

  __m128d y[6];
  for (int j = 0; j < 3; ++j) {
    const __m128d t = _mm_mul_pd(o[j], _mm_set1_pd(c.combine12[j]));
    y[j] = _mm_mul_pd(_mm_add_pd(e[j], t), _mm_set1_pd(c.post12[j]));
    y[5 - j] = _mm_mul_pd(_mm_sub_pd(e[j], t), _mm_set1_pd(c.post12[5 - j]));
  }
  static const int kSource[12] = {3, 4, 5, 5, 4, 3, 2, 1, 0, 0, 1, 2};
  for (int i = 0; i < 12; ++i) {
    const __m128d u = i < 6 ? y[kSource[i]] : Neg(y[kSource[i]]);
    z[i] = _mm_mul_pd(u, _mm_set1_pd(c.shortWindow[i]));
  }
}

}  // namespace

void Imdct12Sse2(const double* lines, double* out) {
  __m128d x[6], za[12], zb[12];
  for (int k = 0; k < 6; ++k) x[k] = _mm_loadu_pd(lines + 3 * k);  // windows 0 and 1
  Imdct12Lanes(x, za);
  for (int k = 0; k < 6; ++k) x[k] = _mm_load_sd(lines + 3 * k + 2);  // window 2
  Imdct12Lanes(x, zb);

  const __m128d zero = _mm_setzero_pd();
  for (int i = 0; i < 6; i += 2) {
    _mm_store_pd(out + i, zero);
    _mm_store_pd(out + 6 + i, _mm_unpacklo_pd(za[i], za[i + 1]));
    _mm_store_pd(out + 12 + i,
                 _mm_add_pd(_mm_unpacklo_pd(za[6 + i], za[7 + i]), _mm_unpackhi_pd(za[i], za[i + 1])));
    _mm_store_pd(out + 18 + i,
                 _mm_add_pd(_mm_unpackhi_pd(za[6 + i], za[7 + i]), _mm_unpacklo_pd(zb[i], zb[i + 1])));
    _mm_store_pd(out + 24 + i, _mm_unpacklo_pd(zb[6 + i], zb[7 + i]));
    _mm_store_pd(out + 30 + i, zero);
  }
}

}  // namespace kxmp3

#endif  // __SSE2__
