// AVX-512 version of the mid/side kernel, for processors that have it (chosen at run
// time, see dsp_kernels.cpp; this file is compiled for AVX-512F without FMA): sums and
// differences eight lines at a time, the last lines of an odd count of subbands under
// a mask. Bit-identical to MidSideScalar and the SSE2 kernel.
#include "dsp_kernels.h"

#if defined(__AVX512F__)

#include <immintrin.h>

#include "engine_types.h"

namespace kxmp3 {

void MidSideAvx512(double* left, double* right, uint32_t subbands) {
  const uint32_t lines = subbands * kLinesPerSubband;
  uint32_t i = 0;
  for (; i + 8 <= lines; i += 8) {
    const __m512d m = _mm512_loadu_pd(left + i);
    const __m512d s = _mm512_loadu_pd(right + i);
    _mm512_storeu_pd(left + i, _mm512_add_pd(m, s));
    _mm512_storeu_pd(right + i, _mm512_sub_pd(m, s));
  }
  if (i < lines) {
    const __mmask8 rest = static_cast<__mmask8>((1u << (lines - i)) - 1);
    const __m512d m = _mm512_maskz_loadu_pd(rest, left + i);
    const __m512d s = _mm512_maskz_loadu_pd(rest, right + i);
    _mm512_mask_storeu_pd(left + i, rest, _mm512_add_pd(m, s));
    _mm512_mask_storeu_pd(right + i, rest, _mm512_sub_pd(m, s));
  }
}

}  // namespace kxmp3

#endif  // __AVX512F__
