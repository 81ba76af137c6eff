// SSE2 version of the float interleaving kernel: two frames per step, with one branch
// for a 16-byte aligned destination and one for an unaligned one (same result).
#include "dsp_kernels.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

void InterleaveFloatSse2(double* dst, const double* planar) {
  const double* left = planar;
  const double* right = planar + kLinesPerGranule;
  if ((reinterpret_cast<uintptr_t>(dst) & 15) == 0) {
    for (uint32_t i = 0; i < kLinesPerGranule; i += 2) {
      const __m128d l = _mm_load_pd(left + i);
      const __m128d r = _mm_load_pd(right + i);
      _mm_store_pd(dst + 2 * i, _mm_unpacklo_pd(l, r));
      _mm_store_pd(dst + 2 * i + 2, _mm_unpackhi_pd(l, r));
    }
  } else {
    for (uint32_t i = 0; i < kLinesPerGranule; i += 2) {
      const __m128d l = _mm_load_pd(left + i);
      const __m128d r = _mm_load_pd(right + i);
      _mm_storeu_pd(dst + 2 * i, _mm_unpacklo_pd(l, r));
      _mm_storeu_pd(dst + 2 * i + 2, _mm_unpackhi_pd(l, r));
    }
  }
}

}  // namespace kxmp3

#endif  // __SSE2__
