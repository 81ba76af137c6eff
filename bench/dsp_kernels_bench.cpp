// Timing of the engine's kernels: each SSE2 kernel beside its scalar reference and,
// where the processor runs them, the AVX2 and AVX-512 tables' versions, on random input of typical
// magnitude. Run: bench --benchmark_filter=Dsp
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "engine/dsp_kernels.h"
#include "engine/imdct.h"
#include "engine/synthesis.h"
#include "engine/tables.h"

namespace {

using kxmp3::DspKernels;

struct alignas(16) Work {
  double a[1152];
  double b[1152];
  double ring[1024];
  double out[1154];
  int16_t pcm[32];
};

Work& Prepared() {
  static Work* w = [] {
    kxmp3::InitDecoderTables();
    auto* work = new Work();
    std::mt19937 gen(1);
    std::uniform_real_distribution<double> d(-0.5, 0.5);
    for (double& v : work->a) v = d(gen);
    for (double& v : work->b) v = d(gen);
    for (double& v : work->ring) v = d(gen);
    return work;
  }();
  return *w;
}

// Argument 0: scalar, 1: SSE2, 2: AVX2, 3: AVX-512 (each falling back to the next narrower table
// the build or processor lacks; the label names the one timed).
const DspKernels& Kernels(const benchmark::State& state) {
  if (state.range(0) == 3 && kxmp3::Avx512Kernels() != nullptr) return *kxmp3::Avx512Kernels();
  if (state.range(0) >= 2 && kxmp3::Avx2Kernels() != nullptr) return *kxmp3::Avx2Kernels();
  if (state.range(0) >= 1 && kxmp3::Sse2Kernels() != nullptr) return *kxmp3::Sse2Kernels();
  return kxmp3::ScalarKernels();
}

void Label(benchmark::State& state) { state.SetLabel(Kernels(state).name); }

void DspDct32(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  for (auto _ : state) {
    k.dct32(w.a, w.ring);
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspWindowInt16(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  const double* taps[16];
  for (int k = 0; k < 16; ++k) taps[k] = w.ring + kxmp3::kSynthesisRingIndex[3][k];
  for (auto _ : state) {
    k.windowInt16(w.pcm, taps);
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspWindowFloat(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  const double* taps[16];
  for (int k = 0; k < 16; ++k) taps[k] = w.ring + kxmp3::kSynthesisRingIndex[3][k];
  for (auto _ : state) {
    k.windowFloat(w.out, taps);
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspImdct36(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  alignas(16) double lines[18];
  for (auto _ : state) {
    // The kernel overwrites its lines: a fresh copy each time (included in the time).
    std::memcpy(lines, w.a, sizeof lines);
    k.imdct36(lines, w.out, kxmp3::gTables.imdctWindow[0]);
    benchmark::ClobberMemory();
  }
  Label(state);
}

// Two long-block subbands through IMDCT, window and overlap-add: one hybridLongPair
// call where the table has it, else imdct36 and the overlap-add for each.
void DspHybridLongPair(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  alignas(16) double lines[36];
  alignas(16) double overlap[36] = {};
  alignas(16) double scratch[36];
  for (auto _ : state) {
    // The step overwrites its lines: a fresh copy each time (included in the time).
    std::memcpy(lines, w.a, sizeof lines);
    if (k.hybridLongPair != nullptr) {
      k.hybridLongPair(lines, overlap, kxmp3::gTables.imdctWindow[0]);
    } else {
      for (int half = 0; half < 2; ++half) {
        k.imdct36(lines + 18 * half, scratch, kxmp3::gTables.imdctWindow[0]);
        kxmp3::OverlapAdd(scratch, lines + 18 * half, overlap + 18 * half);
      }
    }
    benchmark::ClobberMemory();
  }
  Label(state);
}

// Eight long-block subbands through IMDCT, window and overlap-add: one hybridLongEight
// call where the table has it, else four hybridLongPair calls, else imdct36 and the
// overlap-add for each.
void DspHybridLongEight(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  alignas(16) double lines[144];
  alignas(16) double overlap[144] = {};
  alignas(16) double scratch[36];
  for (auto _ : state) {
    // The step overwrites its lines: a fresh copy each time (included in the time).
    for (int i = 0; i < 144; i += 36) std::memcpy(lines + i, w.a, 36 * sizeof(double));
    if (k.hybridLongEight != nullptr) {
      k.hybridLongEight(lines, overlap, kxmp3::gTables.imdctWindow[0]);
    } else if (k.hybridLongPair != nullptr) {
      for (int sb = 0; sb < 8; sb += 2) k.hybridLongPair(lines + 18 * sb, overlap + 18 * sb, kxmp3::gTables.imdctWindow[0]);
    } else {
      for (int sb = 0; sb < 8; ++sb) {
        k.imdct36(lines + 18 * sb, scratch, kxmp3::gTables.imdctWindow[0]);
        kxmp3::OverlapAdd(scratch, lines + 18 * sb, overlap + 18 * sb);
      }
    }
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspImdct12(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  for (auto _ : state) {
    k.imdct12(w.a, w.out);
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspAliasReduce(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  for (auto _ : state) {
    k.aliasReduce(w.b, w.b + 18, 31);
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspMidSide(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  for (auto _ : state) {
    // Repeated sums and differences would grow without bound: a fresh copy each time
    // (included in the time).
    std::memcpy(w.b, w.a, sizeof w.b);
    k.midSide(w.b, w.b + 576, 32);
    benchmark::ClobberMemory();
  }
  Label(state);
}

void DspInterleaveFloat(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  const int offset = static_cast<int>(state.range(1));  // 1: unaligned destination
  for (auto _ : state) {
    k.interleaveFloat(w.out + offset, w.a);
    benchmark::ClobberMemory();
  }
  Label(state);
}

// The matrixing of the four slots 0..3 of a granule-channel: one dct32Slots call
// where the table has it, else four gathers and dct32 calls.
void DspDct32FourSlots(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  alignas(32) static double rows[kxmp3::kMaxDctSlotsPerCall * 64];
  double* first = rows + 64 * (kxmp3::kMaxDctSlotsPerCall - 1);  // rows descend: slot t at first - 64 t
  alignas(16) double slot[32];
  for (auto _ : state) {
    if (k.dct32Slots != nullptr) {
      for (uint32_t t = 0; t < 4;) t += k.dct32Slots(w.a, t, first - 64 * t);
    } else {
      for (uint32_t t = 0; t < 4; ++t) {
        for (uint32_t sb = 0; sb < 32; ++sb) slot[sb] = (t & sb & 1) != 0 ? -w.a[18 * sb + t] : w.a[18 * sb + t];
        k.dct32(slot, first - 64 * t);
      }
    }
    benchmark::ClobberMemory();
  }
  Label(state);
}

// The matrixing of all 18 slots of a granule-channel, as the synthesis does it: through
// dct32Slots where the table has it (AVX-512: 8 + 8 slots, then 2 through AVX2), else
// gathers and dct32 calls.
void DspDct32Granule(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  alignas(64) static double rows[18 * 64];
  double* first = rows + 64 * 17;  // slot t at first - 64 t
  alignas(16) double slot[32];
  for (auto _ : state) {
    if (k.dct32Slots != nullptr) {
      for (uint32_t t = 0; t < 18;) t += k.dct32Slots(w.a, t, first - 64 * t);
    } else {
      for (uint32_t t = 0; t < 18; ++t) {
        for (uint32_t sb = 0; sb < 32; ++sb) slot[sb] = (t & sb & 1) != 0 ? -w.a[18 * sb + t] : w.a[18 * sb + t];
        k.dct32(slot, first - 64 * t);
      }
    }
    benchmark::ClobberMemory();
  }
  Label(state);
}

// The last two slots of both channels of a stereo granule in one call, where the
// table has it (AVX2 and AVX-512 tables).
void DspDct32LastSlotsStereo(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& k = Kernels(state);
  alignas(64) static double rows[2][2 * 64];
  for (auto _ : state) {
    if (k.dct32LastSlotsStereo != nullptr) k.dct32LastSlotsStereo(w.a, w.b, rows[0] + 64, rows[1] + 64);
    benchmark::ClobberMemory();
  }
  Label(state);
}

// A whole granule-channel through the synthesis (18 slots: matrixing, ring, window).
// Second argument: bytes per sample.
void DspSynthesizeGranule(benchmark::State& state) {
  Work& w = Prepared();
  const DspKernels& previous = kxmp3::ReplaceDspKernelsForTesting(Kernels(state));
  const uint32_t bps = static_cast<uint32_t>(state.range(1));
  alignas(16) static uint8_t out[576 * 8];
  uint32_t position = 0;
  for (auto _ : state) {
    kxmp3::SynthesizeGranule(w.a, w.ring, &position, bps, out);
    benchmark::ClobberMemory();
  }
  kxmp3::ReplaceDspKernelsForTesting(previous);
  state.SetLabel(std::string(Kernels(state).name) + (bps == 2 ? ", 16-bit" : ", float"));
}

// Argument 0 = scalar, 1 = SSE2, 2 = AVX2, 3 = AVX-512.
BENCHMARK(DspDct32)->Arg(0)->Arg(1);
BENCHMARK(DspDct32FourSlots)->Arg(0)->Arg(1)->Arg(2);
BENCHMARK(DspDct32Granule)->Arg(0)->Arg(1)->Arg(2)->Arg(3);
BENCHMARK(DspDct32LastSlotsStereo)->Arg(2);
BENCHMARK(DspWindowInt16)->Arg(0)->Arg(1)->Arg(2)->Arg(3);
BENCHMARK(DspWindowFloat)->Arg(0)->Arg(1)->Arg(2)->Arg(3);
BENCHMARK(DspSynthesizeGranule)
    ->Args({0, 2})->Args({1, 2})->Args({2, 2})->Args({3, 2})
    ->Args({0, 8})->Args({1, 8})->Args({2, 8})->Args({3, 8});
BENCHMARK(DspImdct36)->Arg(0)->Arg(1);
BENCHMARK(DspHybridLongPair)->Arg(0)->Arg(1)->Arg(2);
BENCHMARK(DspHybridLongEight)->Arg(0)->Arg(1)->Arg(2)->Arg(3);
BENCHMARK(DspImdct12)->Arg(0)->Arg(1);
BENCHMARK(DspAliasReduce)->Arg(0)->Arg(1);
BENCHMARK(DspMidSide)->Arg(0)->Arg(1);
BENCHMARK(DspInterleaveFloat)->Args({0, 0})->Args({1, 0})->Args({0, 1})->Args({1, 1});

}  // namespace
