// The function-pointer tables of the engine's kernels and the choice between them:
// AVX-512, then AVX2, when the build has those kernels and the processor (with its
// system) runs them, else SSE2 when the build targets it, else the scalar references. Every table
// gives bit-identical results, so the choice changes the speed, never the output.
#include "dsp_kernels.h"

namespace kxmp3 {

namespace {

const DspKernels kScalar = {
    "scalar",          Dct32Scalar,   nullptr,       nullptr, WindowInt16Scalar, WindowFloatScalar,
    WindowStereoInt16Scalar, WindowStereoFloatScalar, Imdct36Scalar, Imdct12Scalar, nullptr, nullptr,
    AliasReduceScalar, MidSideScalar, InterleaveFloatScalar,
};

#if defined(__SSE2__)
const DspKernels kSse2 = {
    "sse2",          Dct32Sse2,   nullptr,     nullptr, WindowInt16Sse2, WindowFloatSse2,
    WindowStereoInt16Sse2, WindowStereoFloatSse2, Imdct36Sse2, Imdct12Sse2, nullptr, nullptr,
    AliasReduceSse2, MidSideSse2, InterleaveFloatSse2,
};
#endif

#if defined(KX_HAVE_AVX2_KERNELS)
const DspKernels kAvx2 = {
    "avx2",          Dct32Sse2,   Dct32SlotsAvx2, Dct32LastSlotsStereoAvx2, WindowInt16Avx2, WindowFloatAvx2,
    WindowStereoInt16Avx2, WindowStereoFloatAvx2, Imdct36Sse2, Imdct12Sse2, HybridLongPairAvx2, nullptr,
    AliasReduceSse2, MidSideSse2, InterleaveFloatSse2,
};
#endif

#if defined(KX_HAVE_AVX2_KERNELS) && defined(KX_HAVE_AVX512_KERNELS)
const DspKernels kAvx512 = {
    "avx512",        Dct32Sse2,   Dct32SlotsAvx512, Dct32LastSlotsStereoAvx2, WindowInt16Avx512, WindowFloatAvx512,
    WindowStereoInt16Avx512, WindowStereoFloatAvx512, Imdct36Sse2, Imdct12Sse2, HybridLongPairAvx2,
    HybridLongEightAvx512, AliasReduceAvx512, MidSideAvx512, InterleaveFloatSse2,
};
#endif

[[maybe_unused]] bool ProcessorRunsAvx512() {
#if defined(KX_HAVE_AVX2_KERNELS) && defined(KX_HAVE_AVX512_KERNELS)
  // Checks the processor's AVX-512F and AVX2 bits and that the system saves the
  // 512-bit and mask registers.
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

[[maybe_unused]] bool ProcessorRunsAvx2() {
#if defined(KX_HAVE_AVX2_KERNELS)
  // Checks the processor's AVX2 bit and that the system saves the 256-bit registers.
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

const DspKernels* Choose() {
#if defined(KX_HAVE_AVX2_KERNELS) && defined(KX_HAVE_AVX512_KERNELS)
  if (ProcessorRunsAvx512()) return &kAvx512;
#endif
#if defined(KX_HAVE_AVX2_KERNELS)
  if (ProcessorRunsAvx2()) return &kAvx2;
#endif
#if defined(__SSE2__)
  return &kSse2;
#else
  return &kScalar;
#endif
}

// The active table, chosen once when the module is loaded (before any decoder can
// exist). Tests may swap it.
const DspKernels* gActive = Choose();

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

const DspKernels* Avx2Kernels() {
#if defined(KX_HAVE_AVX2_KERNELS)
  static const bool runs = ProcessorRunsAvx2();
  return runs ? &kAvx2 : nullptr;
#else
  return nullptr;
#endif
}

const DspKernels* Avx512Kernels() {
#if defined(KX_HAVE_AVX2_KERNELS) && defined(KX_HAVE_AVX512_KERNELS)
  static const bool runs = ProcessorRunsAvx512();
  return runs ? &kAvx512 : nullptr;
#else
  return nullptr;
#endif
}

}  // namespace kxmp3
