// AVX-512 versions of the synthesis window kernels, for processors that have it
// (chosen at run time, see dsp_kernels.cpp; this file is compiled for AVX-512F
// without FMA). They form the same sums as the SSE2 and scalar kernels, tap by tap
// from k = 0 with a separate multiply and add, eight outputs per register; the 16-bit
// conversion is the same processor conversion (round to nearest even, out-of-range
// to the most negative 32-bit value) and saturating pack. The matrixing stays the
// AVX2 one.
//
// As in the AVX2 file, nothing here is an inline function shared with other files.
#include "dsp_kernels.h"

#if defined(__AVX512F__)

#include <immintrin.h>

#include "tables.h"

namespace kxmp3 {

namespace {

// Window sums of all 32 outputs in four registers, tap by tap from k = 0, handed to
// `store` (outputs 0..7, 8..15, 16..23, 24..31).
template <class Store>
inline void WindowSums32(const double* window, const double* ring, const uint32_t* row, Store store) {
  const double* r = ring + row[0];
  __m512d a0 = _mm512_mul_pd(_mm512_load_pd(window + 0), _mm512_loadu_pd(r + 0));
  __m512d a1 = _mm512_mul_pd(_mm512_load_pd(window + 8), _mm512_loadu_pd(r + 8));
  __m512d a2 = _mm512_mul_pd(_mm512_load_pd(window + 16), _mm512_loadu_pd(r + 16));
  __m512d a3 = _mm512_mul_pd(_mm512_load_pd(window + 24), _mm512_loadu_pd(r + 24));
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k;
    r = ring + row[k];
    a0 = _mm512_add_pd(a0, _mm512_mul_pd(_mm512_load_pd(w + 0), _mm512_loadu_pd(r + 0)));
    a1 = _mm512_add_pd(a1, _mm512_mul_pd(_mm512_load_pd(w + 8), _mm512_loadu_pd(r + 8)));
    a2 = _mm512_add_pd(a2, _mm512_mul_pd(_mm512_load_pd(w + 16), _mm512_loadu_pd(r + 16)));
    a3 = _mm512_add_pd(a3, _mm512_mul_pd(_mm512_load_pd(w + 24), _mm512_loadu_pd(r + 24)));
  }
  store(a0, a1, a2, a3);
}

// Eight sums to eight 16-bit samples. (The conversion is written in its masked
// form with every lane selected: the same instruction, without the undefined source
// register of the plain form, which GCC 12 reports as uninitialised.)
inline __m128i Pack8(__m512d sums) {
  const __m256i words = _mm512_mask_cvtpd_epi32(_mm256_setzero_si256(), 0xFF, sums);
  return _mm_packs_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
}

}  // namespace

void WindowInt16Avx512(int16_t* out, const double* ring, const uint32_t* indexRow) {
  WindowSums32(gTables.synthWindowInt16, ring, indexRow, [out](__m512d a0, __m512d a1, __m512d a2, __m512d a3) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 0), Pack8(a0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), Pack8(a1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), Pack8(a2));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 24), Pack8(a3));
  });
}

void WindowFloatAvx512(double* out, const double* ring, const uint32_t* indexRow) {
  WindowSums32(gTables.synthWindowFloat, ring, indexRow, [out](__m512d a0, __m512d a1, __m512d a2, __m512d a3) {
    _mm512_storeu_pd(out + 0, a0);
    _mm512_storeu_pd(out + 8, a1);
    _mm512_storeu_pd(out + 16, a2);
    _mm512_storeu_pd(out + 24, a3);
  });
}

}  // namespace kxmp3

#endif  // __AVX512F__
