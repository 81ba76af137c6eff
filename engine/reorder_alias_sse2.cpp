// SSE2 version of the alias-reduction butterflies: four pairs per boundary, the upper
// subband's values taken in reversed order (17 with 16, 15 with 14, ...) so that they
// meet cs[0..1], cs[2..3], ... as pairs. Bit-identical to AliasReduceScalar.
#include "dsp_kernels.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include "engine_types.h"
#include "tables.h"

namespace kxmp3 {

void AliasReduceSse2(double* upper, double* lower, uint32_t boundaries) {
  const double* cs = gTables.aliasCs;
  const double* ca = gTables.aliasCa;
  for (uint32_t b = 0; b < boundaries; ++b, upper += kLinesPerSubband, lower += kLinesPerSubband) {
    for (int i = 0; i < 8; i += 2) {
      const __m128d u = _mm_load_pd(upper + 16 - i);
      const __m128d bu = _mm_shuffle_pd(u, u, 1);  // (upper[17 - i], upper[16 - i])
      const __m128d bd = _mm_load_pd(lower + i);
      const __m128d s = _mm_load_pd(cs + i);
      const __m128d a = _mm_load_pd(ca + i);
      const __m128d nu = _mm_sub_pd(_mm_mul_pd(bu, s), _mm_mul_pd(bd, a));
      const __m128d nd = _mm_add_pd(_mm_mul_pd(bd, s), _mm_mul_pd(bu, a));
      _mm_store_pd(upper + 16 - i, _mm_shuffle_pd(nu, nu, 1));
      _mm_store_pd(lower + i, nd);
    }
  }
}

}  // namespace kxmp3

#endif  // __SSE2__
