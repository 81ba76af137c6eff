// SSE2 versions of the synthesis kernels: the fast 32-point DCT on pairs and the
// window kernels (one channel, or two channels written interleaved), two outputs per
// pair and eight per pass. Same operations in the same
// order as the scalar references in synthesis.cpp, so the results are bit-identical;
// the 16-bit conversion is the processor's (round to nearest even, out-of-range to the
// most negative 32-bit value) followed by a saturating pack.
#include "dsp_kernels.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include "tables.h"

namespace kxmp3 {

namespace {

inline __m128d Swap(__m128d v) { return _mm_shuffle_pd(v, v, 1); }

void HalveSse2(const double* in, double* out, int n, const double* factors) {
  if (n == 2) {
    const __m128d f = _mm_load_pd(factors);
    for (int g = 0; g < 32; g += 4) {
      const __m128d p0 = _mm_load_pd(in + g);
      const __m128d p1 = _mm_load_pd(in + g + 2);
      const __m128d lo = _mm_unpacklo_pd(p0, p1);
      const __m128d hi = _mm_unpackhi_pd(p0, p1);
      const __m128d s = _mm_add_pd(lo, hi);
      const __m128d d = _mm_mul_pd(_mm_sub_pd(lo, hi), f);
      _mm_store_pd(out + g, _mm_unpacklo_pd(s, d));
      _mm_store_pd(out + g + 2, _mm_unpackhi_pd(s, d));
    }
    return;
  }
  for (int g = 0; g < 32; g += n) {
    for (int k = 0; k < n / 2; k += 2) {
      const __m128d lo = _mm_load_pd(in + g + k);
      const __m128d hi = Swap(_mm_load_pd(in + g + n - 2 - k));
      _mm_store_pd(out + g + k, _mm_add_pd(lo, hi));
      _mm_store_pd(out + g + n / 2 + k, _mm_mul_pd(_mm_sub_pd(lo, hi), _mm_load_pd(factors + k)));
    }
  }
}

void RecombineSse2(const double* in, double* out, int n) {
  for (int g = 0; g < 32; g += n) {
    const double* a = in + g;
    const double* b = in + g + n / 2;
    for (int m = 0; m < n / 2; m += 2) {
      const __m128d av = _mm_load_pd(a + m);
      const __m128d bv = _mm_load_pd(b + m);
      __m128d s;
      if (m + 2 < n / 2) {
        s = _mm_add_pd(bv, _mm_loadu_pd(b + m + 1));
      } else {
        // Last pair: b[m] + b[m+1], and b[m+1] alone.
        s = _mm_shuffle_pd(_mm_add_pd(bv, _mm_unpackhi_pd(bv, bv)), bv, 2);
      }
      _mm_store_pd(out + g + 2 * m, _mm_unpacklo_pd(av, s));
      _mm_store_pd(out + g + 2 * m + 2, _mm_unpackhi_pd(av, s));
    }
  }
}

}  // namespace

void Dct32Sse2(const double* samples, double* v) {
  const DecoderTables& t = gTables;
  alignas(16) double p[32];
  alignas(16) double q[32];
  HalveSse2(samples, p, 32, t.dct32Factors);
  HalveSse2(p, q, 16, t.dct16Factors);
  HalveSse2(q, p, 8, t.dct8Factors);
  HalveSse2(p, q, 4, t.dct4Factors);
  HalveSse2(q, p, 2, t.dct2Factor);
  RecombineSse2(p, q, 4);
  RecombineSse2(q, p, 8);
  RecombineSse2(p, q, 16);
  RecombineSse2(q, p, 32);
  const double* x = p;
  for (int i = 0; i < 16; i += 2) _mm_store_pd(v + i, _mm_load_pd(x + 16 + i));
  _mm_store_pd(v + 16, _mm_unpackhi_pd(_mm_setzero_pd(), _mm_load_pd(x + 30)));
  for (int r = 1; r < 8; ++r) _mm_store_pd(v + 16 + 2 * r, Swap(_mm_loadu_pd(x + 31 - 2 * r)));
  for (int r = 0; r < 8; ++r) _mm_store_pd(v + 32 + 2 * r, Swap(_mm_loadu_pd(x + 15 - 2 * r)));
  for (int i = 0; i < 16; i += 2) _mm_store_pd(v + 48 + i, _mm_load_pd(x + i));
}

namespace {

// Window sums of outputs n..n+7 as four pairs, tap by tap from k = 0.
inline void WindowSums8(const double* window, const double* const* taps, int n, __m128d acc[4]) {
  for (int j = 0; j < 4; ++j) {
    acc[j] = _mm_mul_pd(_mm_load_pd(window + n + 2 * j), _mm_load_pd(taps[0] + n + 2 * j));
  }
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k + n;
    const double* r = taps[k] + n;
    for (int j = 0; j < 4; ++j) {
      acc[j] = _mm_add_pd(acc[j], _mm_mul_pd(_mm_load_pd(w + 2 * j), _mm_load_pd(r + 2 * j)));
    }
  }
}

}  // namespace

void WindowInt16Sse2(int16_t* out, const double* const* taps) {
  for (int n = 0; n < 32; n += 8) {
    __m128d acc[4];
    WindowSums8(gTables.synthWindowInt16, taps, n, acc);
    const __m128i lo = _mm_unpacklo_epi64(_mm_cvtpd_epi32(acc[0]), _mm_cvtpd_epi32(acc[1]));
    const __m128i hi = _mm_unpacklo_epi64(_mm_cvtpd_epi32(acc[2]), _mm_cvtpd_epi32(acc[3]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), _mm_packs_epi32(lo, hi));
  }
}

void WindowFloatSse2(double* out, const double* const* taps) {
  for (int n = 0; n < 32; n += 8) {
    __m128d acc[4];
    WindowSums8(gTables.synthWindowFloat, taps, n, acc);
    for (int j = 0; j < 4; ++j) _mm_store_pd(out + n + 2 * j, acc[j]);
  }
}

namespace {

// Window sums of outputs n..n+7 of two channels as four pairs each, tap by tap from
// k = 0, each window pair loaded once for both channels.
inline void StereoWindowSums8(const double* window, const double* const* taps0, const double* const* taps1, int n,
                              __m128d acc0[4], __m128d acc1[4]) {
  for (int j = 0; j < 4; ++j) {
    const __m128d w = _mm_load_pd(window + n + 2 * j);
    acc0[j] = _mm_mul_pd(w, _mm_load_pd(taps0[0] + n + 2 * j));
    acc1[j] = _mm_mul_pd(w, _mm_load_pd(taps1[0] + n + 2 * j));
  }
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k + n;
    const double* r0 = taps0[k] + n;
    const double* r1 = taps1[k] + n;
    for (int j = 0; j < 4; ++j) {
      const __m128d wj = _mm_load_pd(w + 2 * j);
      acc0[j] = _mm_add_pd(acc0[j], _mm_mul_pd(wj, _mm_load_pd(r0 + 2 * j)));
      acc1[j] = _mm_add_pd(acc1[j], _mm_mul_pd(wj, _mm_load_pd(r1 + 2 * j)));
    }
  }
}

}  // namespace

void WindowStereoInt16Sse2(void* out, const double* const* taps0, const double* const* taps1) {
  auto* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; n += 8) {
    __m128d acc0[4], acc1[4];
    StereoWindowSums8(gTables.synthWindowInt16, taps0, taps1, n, acc0, acc1);
    for (int j = 0; j < 4; j += 2) {
      // Outputs n + 2j .. n + 2j + 3 of each channel as 32-bit integers, then
      // interleaved and packed: four frames.
      const __m128i l = _mm_unpacklo_epi64(_mm_cvtpd_epi32(acc0[j]), _mm_cvtpd_epi32(acc0[j + 1]));
      const __m128i r = _mm_unpacklo_epi64(_mm_cvtpd_epi32(acc1[j]), _mm_cvtpd_epi32(acc1[j + 1]));
      const __m128i frames = _mm_packs_epi32(_mm_unpacklo_epi32(l, r), _mm_unpackhi_epi32(l, r));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4 * (n + 2 * j)), frames);
    }
  }
}

void WindowStereoFloatSse2(void* out, const double* const* taps0, const double* const* taps1) {
  auto* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; n += 8) {
    __m128d acc0[4], acc1[4];
    StereoWindowSums8(gTables.synthWindowFloat, taps0, taps1, n, acc0, acc1);
    for (int j = 0; j < 4; ++j) {
      // Stored as integer vectors: the destination may not be aligned for doubles.
      uint8_t* frames = dst + 16 * (n + 2 * j);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(frames), _mm_castpd_si128(_mm_unpacklo_pd(acc0[j], acc1[j])));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(frames + 16), _mm_castpd_si128(_mm_unpackhi_pd(acc0[j], acc1[j])));
    }
  }
}

}  // namespace kxmp3

#endif  // __SSE2__
