// AVX2 versions of the synthesis kernels, for processors that have it (chosen at run
// time, see dsp_kernels.cpp; this file is compiled for AVX2 without FMA).
//
// The window kernels form the same sums as the SSE2 and scalar ones, tap by tap
// from k = 0 with a separate multiply and add, four outputs per register instead of
// two. The matrixing runs the scalar reference's 32-point DCT on four time slots at
// once, one slot per lane: every lane performs exactly the reference's operations in
// the reference's order, so each slot's 64 ring values are bit-identical to dct32's.
// The results are then turned back into one row of 64 values per slot.
//
// Nothing here may be an inline function shared with other files: a copy compiled
// for AVX2 could be the one the linker keeps for everybody. Only intrinsics, the
// decoder tables' data and functions of internal linkage are used.
#include "dsp_kernels.h"

#if defined(__AVX2__)

#include <immintrin.h>

#include "tables.h"

namespace kxmp3 {

namespace {

// ---- Matrixing, one slot per lane ----

// The operations of one vector width: V is __m256d (four slots) or __m128d (two).
struct Ops256 {
  using V = __m256d;
  static V Add(V a, V b) { return _mm256_add_pd(a, b); }
  static V Sub(V a, V b) { return _mm256_sub_pd(a, b); }
  static V Mul(V a, V b) { return _mm256_mul_pd(a, b); }
  static V Set1(double a) { return _mm256_set1_pd(a); }
};
struct Ops128 {
  using V = __m128d;
  static V Add(V a, V b) { return _mm_add_pd(a, b); }
  static V Sub(V a, V b) { return _mm_sub_pd(a, b); }
  static V Mul(V a, V b) { return _mm_mul_pd(a, b); }
  static V Set1(double a) { return _mm_set1_pd(a); }
};

// One halving stage over all blocks of size n, as the scalar reference does it.
template <class O>
inline void Halve(const typename O::V* in, typename O::V* out, int n, const double* factors) {
  for (int g = 0; g < 32; g += n) {
    for (int k = 0; k < n / 2; ++k) {
      const typename O::V lo = in[g + k];
      const typename O::V hi = in[g + n - 1 - k];
      out[g + k] = O::Add(lo, hi);
      out[g + n / 2 + k] = O::Mul(O::Sub(lo, hi), O::Set1(factors[k]));
    }
  }
}

// One recombination stage over all blocks of size n, as the scalar reference does it.
template <class O>
inline void Recombine(const typename O::V* in, typename O::V* out, int n) {
  for (int g = 0; g < 32; g += n) {
    const typename O::V* a = in + g;
    const typename O::V* b = in + g + n / 2;
    for (int m = 0; m < n / 2 - 1; ++m) {
      out[g + 2 * m] = a[m];
      out[g + 2 * m + 1] = O::Add(b[m], b[m + 1]);
    }
    out[g + n - 2] = a[n / 2 - 1];
    out[g + n - 1] = b[n / 2 - 1];
  }
}

// The 32-point DCT of the reference on p (32 vectors, overwritten); X ends in q.
template <class O>
inline void Dct32Lanes(typename O::V* p, typename O::V* q) {
  const DecoderTables& t = gTables;
  Halve<O>(p, q, 32, t.dct32Factors);
  Halve<O>(q, p, 16, t.dct16Factors);
  Halve<O>(p, q, 8, t.dct8Factors);
  Halve<O>(q, p, 4, t.dct4Factors);
  Halve<O>(p, q, 2, t.dct2Factor);
  Recombine<O>(q, p, 4);
  Recombine<O>(p, q, 8);
  Recombine<O>(q, p, 16);
  Recombine<O>(p, q, 32);
}

// v[0..63] of the reference from X, still one slot per lane:
// v[0..15] = X[16..31], v[16] = 0, v[17..47] = -X[31..1], v[48..63] = -X[0..15].
template <class V, class NegFn>
inline void RingValues(const V* x, V* v, V zero, NegFn neg) {
  for (int i = 0; i < 16; ++i) v[i] = x[16 + i];
  v[16] = zero;
  for (int i = 17; i < 48; ++i) v[i] = neg(x[48 - i]);
  for (int i = 48; i < 64; ++i) v[i] = neg(x[i - 48]);
}

// Four slots first..first+3: gather (odd slots of odd subbands negated), DCT, and the
// 64 ring values of each slot as a row of `rows` (4 x 64).
void Dct32FourSlots(const double* hybrid, uint32_t first, double* rows) {
  alignas(32) __m256d p[32];
  // first is even: lanes 1 and 3 are the odd slots.
  const __m256d oddSlots = _mm256_set_pd(-0.0, 0.0, -0.0, 0.0);
  for (int sb = 0; sb < 32; ++sb) {
    const __m256d s = _mm256_loadu_pd(hybrid + 18 * sb + first);
    p[sb] = (sb & 1) != 0 ? _mm256_xor_pd(s, oddSlots) : s;
  }
  alignas(32) __m256d x[32];
  Dct32Lanes<Ops256>(p, x);
  alignas(32) __m256d v[64];
  const __m256d sign = _mm256_set1_pd(-0.0);
  RingValues(x, v, _mm256_setzero_pd(), [sign](__m256d a) { return _mm256_xor_pd(a, sign); });
  // Four values of four slots at a time: a 4 x 4 transpose.
  for (int i = 0; i < 64; i += 4) {
    const __m256d t0 = _mm256_unpacklo_pd(v[i], v[i + 1]);
    const __m256d t1 = _mm256_unpackhi_pd(v[i], v[i + 1]);
    const __m256d t2 = _mm256_unpacklo_pd(v[i + 2], v[i + 3]);
    const __m256d t3 = _mm256_unpackhi_pd(v[i + 2], v[i + 3]);
    _mm256_store_pd(rows + i, _mm256_permute2f128_pd(t0, t2, 0x20));
    _mm256_store_pd(rows + 64 + i, _mm256_permute2f128_pd(t1, t3, 0x20));
    _mm256_store_pd(rows + 128 + i, _mm256_permute2f128_pd(t0, t2, 0x31));
    _mm256_store_pd(rows + 192 + i, _mm256_permute2f128_pd(t1, t3, 0x31));
  }
}

// Two slots first, first + 1 (first even: lane 1 is the odd slot).
void Dct32TwoSlots(const double* hybrid, uint32_t first, double* rows) {
  alignas(16) __m128d p[32];
  const __m128d oddSlot = _mm_set_pd(-0.0, 0.0);
  for (int sb = 0; sb < 32; ++sb) {
    const __m128d s = _mm_loadu_pd(hybrid + 18 * sb + first);
    p[sb] = (sb & 1) != 0 ? _mm_xor_pd(s, oddSlot) : s;
  }
  alignas(16) __m128d x[32];
  Dct32Lanes<Ops128>(p, x);
  alignas(16) __m128d v[64];
  const __m128d sign = _mm_set1_pd(-0.0);
  RingValues(x, v, _mm_setzero_pd(), [sign](__m128d a) { return _mm_xor_pd(a, sign); });
  for (int i = 0; i < 64; i += 2) {
    _mm_store_pd(rows + i, _mm_unpacklo_pd(v[i], v[i + 1]));
    _mm_store_pd(rows + 64 + i, _mm_unpackhi_pd(v[i], v[i + 1]));
  }
}

// ---- Windowing, four outputs per register ----

// Window sums of all 32 outputs in eight registers, tap by tap from k = 0, handed to
// `store` as (sums of outputs 0..3, ..., sums of outputs 28..31). Named registers
// rather than an array, so that the compiler keeps them out of memory.
template <class Store>
inline void WindowSums32(const double* window, const double* ring, const uint32_t* row, Store store) {
  const double* r = ring + row[0];
  __m256d a0 = _mm256_mul_pd(_mm256_load_pd(window + 0), _mm256_loadu_pd(r + 0));
  __m256d a1 = _mm256_mul_pd(_mm256_load_pd(window + 4), _mm256_loadu_pd(r + 4));
  __m256d a2 = _mm256_mul_pd(_mm256_load_pd(window + 8), _mm256_loadu_pd(r + 8));
  __m256d a3 = _mm256_mul_pd(_mm256_load_pd(window + 12), _mm256_loadu_pd(r + 12));
  __m256d a4 = _mm256_mul_pd(_mm256_load_pd(window + 16), _mm256_loadu_pd(r + 16));
  __m256d a5 = _mm256_mul_pd(_mm256_load_pd(window + 20), _mm256_loadu_pd(r + 20));
  __m256d a6 = _mm256_mul_pd(_mm256_load_pd(window + 24), _mm256_loadu_pd(r + 24));
  __m256d a7 = _mm256_mul_pd(_mm256_load_pd(window + 28), _mm256_loadu_pd(r + 28));
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k;
    r = ring + row[k];
    a0 = _mm256_add_pd(a0, _mm256_mul_pd(_mm256_load_pd(w + 0), _mm256_loadu_pd(r + 0)));
    a1 = _mm256_add_pd(a1, _mm256_mul_pd(_mm256_load_pd(w + 4), _mm256_loadu_pd(r + 4)));
    a2 = _mm256_add_pd(a2, _mm256_mul_pd(_mm256_load_pd(w + 8), _mm256_loadu_pd(r + 8)));
    a3 = _mm256_add_pd(a3, _mm256_mul_pd(_mm256_load_pd(w + 12), _mm256_loadu_pd(r + 12)));
    a4 = _mm256_add_pd(a4, _mm256_mul_pd(_mm256_load_pd(w + 16), _mm256_loadu_pd(r + 16)));
    a5 = _mm256_add_pd(a5, _mm256_mul_pd(_mm256_load_pd(w + 20), _mm256_loadu_pd(r + 20)));
    a6 = _mm256_add_pd(a6, _mm256_mul_pd(_mm256_load_pd(w + 24), _mm256_loadu_pd(r + 24)));
    a7 = _mm256_add_pd(a7, _mm256_mul_pd(_mm256_load_pd(w + 28), _mm256_loadu_pd(r + 28)));
  }
  store(a0, a1, a2, a3, a4, a5, a6, a7);
}

}  // namespace

uint32_t Dct32SlotsAvx2(const double* hybrid, uint32_t first, double* rows) {
  if (first + 4 <= 18) {
    Dct32FourSlots(hybrid, first, rows);
    return 4;
  }
  Dct32TwoSlots(hybrid, first, rows);
  return 2;
}

void WindowInt16Avx2(int16_t* out, const double* ring, const uint32_t* indexRow) {
  WindowSums32(gTables.synthWindowInt16, ring, indexRow,
               [out](__m256d a0, __m256d a1, __m256d a2, __m256d a3, __m256d a4, __m256d a5, __m256d a6, __m256d a7) {
                 auto pack = [](__m256d lo, __m256d hi) {
                   return _mm_packs_epi32(_mm256_cvtpd_epi32(lo), _mm256_cvtpd_epi32(hi));
                 };
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 0), pack(a0, a1));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), pack(a2, a3));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), pack(a4, a5));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 24), pack(a6, a7));
               });
}

void WindowFloatAvx2(double* out, const double* ring, const uint32_t* indexRow) {
  WindowSums32(gTables.synthWindowFloat, ring, indexRow,
               [out](__m256d a0, __m256d a1, __m256d a2, __m256d a3, __m256d a4, __m256d a5, __m256d a6, __m256d a7) {
                 _mm256_storeu_pd(out + 0, a0);
                 _mm256_storeu_pd(out + 4, a1);
                 _mm256_storeu_pd(out + 8, a2);
                 _mm256_storeu_pd(out + 12, a3);
                 _mm256_storeu_pd(out + 16, a4);
                 _mm256_storeu_pd(out + 20, a5);
                 _mm256_storeu_pd(out + 24, a6);
                 _mm256_storeu_pd(out + 28, a7);
               });
}

}  // namespace kxmp3

#endif  // __AVX2__
