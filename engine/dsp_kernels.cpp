// The function-pointer tables of the engine's kernels and the choice between them:
// SSE2 when the build targets it, the scalar references otherwise. A wider SIMD
// version would be one more table here, chosen once by a CPU check.
#include "dsp_kernels.h"

namespace kxmp3 {

namespace {

const DspKernels kScalar = {
    "scalar",          Dct32Scalar,       WindowInt16Scalar, WindowFloatScalar,    Imdct36Scalar,
    Imdct12Scalar,     AliasReduceScalar, MidSideScalar,     InterleaveFloatScalar,
};

#if defined(__SSE2__)
const DspKernels kSse2 = {
    "sse2",          Dct32Sse2,       WindowInt16Sse2, WindowFloatSse2,    Imdct36Sse2,
    Imdct12Sse2,     AliasReduceSse2, MidSideSse2,     InterleaveFloatSse2,
};
#endif

#if defined(__SSE2__)
constexpr const DspKernels* kChosen = &kSse2;
#else
constexpr const DspKernels* kChosen = &kScalar;
#endif

// The active table: fixed at compile time today (a run-time CPU check for a wider
// version would set it once, before the first decoder exists). Tests may swap it.
const DspKernels* gActive = kChosen;

}  // namespace

const DspKernels& Dsp() { return *gActive; }

const DspKernels& ReplaceDspKernelsForTesting(const DspKernels& kernels) {
  const DspKernels& previous = *gActive;
  gActive = &kernels;
  return previous;
}

const DspKernels& ScalarKernels() { return kScalar; }

const DspKernels* Sse2Kernels() {
#if defined(__SSE2__)
  return &kSse2;
#else
  return nullptr;
#endif
}

}  // namespace kxmp3
