// Helpers of the filterbank tests: table initialisation, 16-byte aligned buffers,
// reproducible random input and the standard's defining sums in long double.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "engine/dsp_kernels.h"
#include "engine/tables.h"

namespace kxtest {

// Builds the decoder tables once per test process (engine_harness.cpp).
void EnsureDecoderTables();

// An array of doubles on a 64-byte boundary (the kernels need 16 bytes; a ring in
// such an array keeps its rows at the same place in it, see SynthesisRingRow).
template <size_t N>
struct alignas(64) Doubles {
  double v[N];
  double& operator[](size_t i) { return v[i]; }
  const double& operator[](size_t i) const { return v[i]; }
  double* data() { return v; }
  const double* data() const { return v; }
};

// The scalar reference and, where the processor has it, the SSE2 set: the kernels the
// filterbank tests hold to the defining sums.
inline std::vector<const kxmp3::DspKernels*> ScalarAndSse2Kernels() {
  std::vector<const kxmp3::DspKernels*> all = {&kxmp3::ScalarKernels()};
  if (kxmp3::Sse2Kernels() != nullptr) all.push_back(kxmp3::Sse2Kernels());
  return all;
}

// The 16 taps of a window on a ring (kernels take a pointer per tap).
struct Taps {
  const double* tap[16];
  Taps(const double* ring, const uint32_t* indexRow) {
    for (int k = 0; k < 16; ++k) tap[k] = ring + indexRow[k];
  }
  const double* const* data() const { return tap; }
};

inline bool Aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

inline bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Uniform values in [-scale, scale], with a few exact zeros and negative zeros mixed in
// when `withZeros`.
class Random {
 public:
  explicit Random(uint32_t seed) : gen_(seed) {}
  double Next(double scale = 1.0) { return std::uniform_real_distribution<double>(-scale, scale)(gen_); }
  void Fill(double* p, size_t n, double scale = 1.0, bool withZeros = false) {
    for (size_t i = 0; i < n; ++i) {
      p[i] = Next(scale);
      if (withZeros) {
        const uint32_t r = gen_() % 16;
        if (r == 0) p[i] = 0.0;
        if (r == 1) p[i] = -0.0;
      }
    }
  }
  uint32_t Below(uint32_t n) { return gen_() % n; }

 private:
  std::mt19937 gen_;
};

constexpr long double kPiL = 3.141592653589793238462643383279502884L;

// The standard's long windows by block type (0, 1, 3), i = 0..35.
inline long double StandardLongWindow(int type, int i) {
  auto normal = [](int k) { return std::sin(kPiL / 36 * (k + 0.5L)); };
  switch (type) {
    case 0:
      return normal(i);
    case 1:
      if (i < 18) return normal(i);
      if (i < 24) return 1.0L;
      if (i < 30) return std::sin(kPiL / 12 * (i - 18 + 0.5L));
      return 0.0L;
    case 3:
      if (i < 6) return 0.0L;
      if (i < 12) return std::sin(kPiL / 12 * (i - 6 + 0.5L));
      if (i < 18) return 1.0L;
      return normal(i);
    default:
      return 0.0L;
  }
}

// x[i] = sum_k X[k] cos(pi/72 (2 i + 19)(2 k + 1)) times the standard window.
inline void DirectImdct36(const double* lines, int type, long double* out) {
  static const auto kCos = [] {
    std::vector<long double> c(36 * 18);
    for (int i = 0; i < 36; ++i) {
      for (int k = 0; k < 18; ++k) c[18 * i + k] = std::cos(kPiL / 72 * (2 * i + 19) * (2 * k + 1));
    }
    return c;
  }();
  for (int i = 0; i < 36; ++i) {
    long double s = 0;
    for (int k = 0; k < 18; ++k) s += lines[k] * kCos[18 * i + k];
    out[i] = s * StandardLongWindow(type, i);
  }
}

// The three windowed 12-point transforms of a short subband overlapped at 6, 12, 18.
inline void DirectImdct12(const double* lines, long double* out) {
  for (int i = 0; i < 36; ++i) out[i] = 0;
  for (int w = 0; w < 3; ++w) {
    for (int i = 0; i < 12; ++i) {
      long double s = 0;
      for (int k = 0; k < 6; ++k) s += lines[3 * k + w] * std::cos(kPiL / 24 * (2 * i + 7) * (2 * k + 1));
      out[6 + 6 * w + i] += s * std::sin(kPiL / 24 * (2 * i + 1));
    }
  }
}

// v[i] = sum_k cos((16 + i)(2 k + 1) pi / 64) s[k], i = 0..63.
inline void DirectMatrixing(const double* s, long double* v) {
  static const auto kCos = [] {
    std::vector<long double> c(64 * 32);
    for (int i = 0; i < 64; ++i) {
      for (int k = 0; k < 32; ++k) c[32 * i + k] = std::cos((16 + i) * (2 * k + 1) * kPiL / 64);
    }
    return c;
  }();
  for (int i = 0; i < 64; ++i) {
    long double acc = 0;
    for (int k = 0; k < 32; ++k) acc += kCos[32 * i + k] * s[k];
    v[i] = acc;
  }
}

// Largest absolute difference relative to the largest reference magnitude.
template <typename A>
long double RelativeError(const A* got, const long double* want, int n) {
  long double maxRef = 0, maxErr = 0;
  for (int i = 0; i < n; ++i) {
    maxRef = std::fmax(maxRef, std::fabs(want[i]));
    maxErr = std::fmax(maxErr, std::fabs(static_cast<long double>(got[i]) - want[i]));
  }
  return maxRef > 0 ? maxErr / maxRef : maxErr;
}

}  // namespace kxtest
