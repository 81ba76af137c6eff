// AVX-512 version of the alias-reduction butterflies, for processors that have it
// (chosen at run time, see dsp_kernels.cpp; this file is compiled for AVX-512F without
// FMA): all eight butterflies of a boundary in one register, the upper subband's
// values reversed (17 down to 10) so that they meet cs[0..7] and ca[0..7] in order.
// Every value goes through the operations of AliasReduceScalar in its order, so the
// results are bit-identical to it and to the SSE2 kernel.
//
// As in the other wide-kernel files, nothing here is an inline function shared with
// other files.
#include "dsp_kernels.h"

#if defined(__AVX512F__)

#include <immintrin.h>

#include "engine_types.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// The eight values in reverse order. (The permutation is written in its zero-masking
// form with every lane selected: the same instruction, without the undefined source
// register of the plain form, which GCC 12 reports as uninitialised.)
inline __m512d Reversed(__m512d v) {
  return _mm512_maskz_permutexvar_pd(0xFF, _mm512_set_epi64(0, 1, 2, 3, 4, 5, 6, 7), v);
}

}  // namespace

void AliasReduceAvx512(double* upper, double* lower, uint32_t boundaries) {
  const __m512d cs = _mm512_loadu_pd(gTables.aliasCs);
  const __m512d ca = _mm512_loadu_pd(gTables.aliasCa);
  for (uint32_t b = 0; b < boundaries; ++b, upper += kLinesPerSubband, lower += kLinesPerSubband) {
    const __m512d bu = Reversed(_mm512_loadu_pd(upper + 10));  // upper[17 - i]
    const __m512d bd = _mm512_loadu_pd(lower);                                      // lower[i]
    const __m512d nu = _mm512_sub_pd(_mm512_mul_pd(bu, cs), _mm512_mul_pd(bd, ca));
    const __m512d nd = _mm512_add_pd(_mm512_mul_pd(bd, cs), _mm512_mul_pd(bu, ca));
    _mm512_storeu_pd(upper + 10, Reversed(nu));
    _mm512_storeu_pd(lower, nd);
  }
}

}  // namespace kxmp3

#endif  // __AVX512F__
