// SSE2 version of the mid/side kernel: sums and differences two lines at a time.
// Bit-identical to MidSideScalar.
#include "dsp_kernels.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include "engine_types.h"

namespace kxmp3 {

void MidSideSse2(double* left, double* right, uint32_t subbands) {
  const uint32_t lines = subbands * kLinesPerSubband;
  for (uint32_t i = 0; i < lines; i += 2) {
    const __m128d m = _mm_load_pd(left + i);
    const __m128d s = _mm_load_pd(right + i);
    _mm_store_pd(left + i, _mm_add_pd(m, s));
    _mm_store_pd(right + i, _mm_sub_pd(m, s));
  }
}

}  // namespace kxmp3

#endif  // __SSE2__
