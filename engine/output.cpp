// The last step of a granule: optional de-emphasis of the planar PCM (channel 0's 576
// samples, then channel 1's) and its layout into the destination, interleaved when
// there are two channels. Also computes the de-emphasis coefficients at open and holds
// the scalar reference of the float interleaving kernel.
#include "output.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "dsp_kernels.h"
#include "engine_state.h"
#include "engine_types.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// Emphasis code 3 (CCITT J.17): fixed coefficients, given as exact doubles.
constexpr uint64_t kJ17B = 0x3FE0BA56F5910E71ull;  // b0 = b1 = 0.5227465435240913
constexpr uint64_t kJ17A = 0x3F863B99BD606A31ull;  // a = 0.010855866519752318
// Weights of the 50/15 us set (the doubles nearest to 0.7 and 0.3 from above and below
// that the coefficient formula uses).
constexpr double kWeight7 = 0.7000000000000001;
constexpr double kWeight3 = 0.29999999999999993;

// The 16-bit store of a filtered sample: the bottom of the range (and NaN) gives
// -32768, the top 32767, everything between is truncated towards zero.
inline int16_t TruncateSample(double y) {
  if (!(y > -32768.0)) return -32768;
  if (y >= 32767.0) return 32767;
  return static_cast<int16_t>(static_cast<int32_t>(y));
}

// y[n] = b0 x[n] + b1 x[n-1] + a y[n-1] over one channel's 576 samples; the filter
// memory starts from the state, or from the first sample when the filter has not run
// yet, so that a constant signal passes without a transient.
template <typename Sample>
void FilterChannel(Sample* x, DeemphasisState& state, uint32_t channel, const DeemphasisCoefficients& c) {
  double prevIn = state.prevIn[channel];
  double prevOut = state.prevOut[channel];
  if (!state.primed) {
    prevIn = static_cast<double>(x[0]);
    prevOut = prevIn;
  }
  for (uint32_t n = 0; n < kLinesPerGranule; ++n) {
    const double in = static_cast<double>(x[n]);
    const double y = c.b0 * in + c.b1 * prevIn + c.a * prevOut;
    if constexpr (sizeof(Sample) == 2) {
      x[n] = TruncateSample(y);
    } else {
      x[n] = y;
    }
    prevIn = in;
    prevOut = y;
  }
  state.prevIn[channel] = prevIn;
  state.prevOut[channel] = prevOut;
}

}  // namespace

void DeemphasisMonoFloat(double* planar, DeemphasisState& state, const DeemphasisCoefficients& c) {
  FilterChannel(planar, state, 0, c);
  state.primed = 1;
}

void DeemphasisMonoInt16(int16_t* planar, DeemphasisState& state, const DeemphasisCoefficients& c) {
  FilterChannel(planar, state, 0, c);
  state.primed = 1;
}

void DeemphasisStereoFloat(double* planar, DeemphasisState& state, const DeemphasisCoefficients& c) {
  FilterChannel(planar, state, 0, c);
  FilterChannel(planar + kLinesPerGranule, state, 1, c);
  state.primed = 1;
}

void DeemphasisStereoInt16(int16_t* planar, DeemphasisState& state, const DeemphasisCoefficients& c) {
  FilterChannel(planar, state, 0, c);
  FilterChannel(planar + kLinesPerGranule, state, 1, c);
  state.primed = 1;
}

void SetupDeemphasis(EngineState& state, uint32_t sampleRate) {
  DeemphasisCoefficients& j17 = state.deemphasis[0];
  j17.b0 = std::bit_cast<double>(kJ17B);
  j17.b1 = std::bit_cast<double>(kJ17B);
  j17.a = std::bit_cast<double>(kJ17A);

  DeemphasisCoefficients& ms = state.deemphasis[1];
  const double t = DeemphasisTangent(sampleRate);
  ms.a = (1.0 - t) / (1.0 + t);
  const double g = kWeight7 * t / (1.0 + t);
  ms.b0 = g + kWeight3;
  ms.b1 = g - kWeight3 * ms.a;

  state.deemphasisState = DeemphasisState{};
}

void InterleaveFloatScalar(double* dst, const double* planar) {
  for (uint32_t i = 0; i < kLinesPerGranule; ++i) {
    dst[2 * i] = planar[i];
    dst[2 * i + 1] = planar[kLinesPerGranule + i];
  }
}

int OutputGranule(void* planar, uint32_t channels, EngineState& state, void* destination, uint32_t bytesPerSample,
                  uint32_t emphasis) {
  const DeemphasisCoefficients* c = nullptr;
  if (emphasis == 3) {
    c = &state.deemphasis[0];
  } else if (emphasis == 1) {
    c = &state.deemphasis[1];
  }
  const bool isFloat = bytesPerSample == 8;
  if (c != nullptr) {
    if (channels == 1) {
      if (isFloat) {
        DeemphasisMonoFloat(static_cast<double*>(planar), state.deemphasisState, *c);
      } else {
        DeemphasisMonoInt16(static_cast<int16_t*>(planar), state.deemphasisState, *c);
      }
    } else if (isFloat) {
      DeemphasisStereoFloat(static_cast<double*>(planar), state.deemphasisState, *c);
    } else {
      DeemphasisStereoInt16(static_cast<int16_t*>(planar), state.deemphasisState, *c);
    }
  }

  // The destination may be the host's buffer at any byte address (after a request
  // of an odd byte count, the next frame starts at an odd offset), so samples are
  // never stored through a misaligned pointer.
  if (channels == 1) {
    std::memcpy(destination, planar, kLinesPerGranule * (isFloat ? 8 : 2));
  } else if (isFloat) {
    if ((reinterpret_cast<uintptr_t>(destination) & (alignof(double) - 1)) == 0) {
      Dsp().interleaveFloat(static_cast<double*>(destination), static_cast<const double*>(planar));
    } else {
      alignas(16) double staged[2 * kLinesPerGranule];
      Dsp().interleaveFloat(staged, static_cast<const double*>(planar));
      std::memcpy(destination, staged, sizeof(staged));
    }
  } else {
    // Two frames (four samples) per step; memcpy compiles to plain 16-bit moves.
    const int16_t* left = static_cast<const int16_t*>(planar);
    const int16_t* right = left + kLinesPerGranule;
    auto* dst = static_cast<uint8_t*>(destination);
    for (uint32_t i = 0; i < kLinesPerGranule; i += 2) {
      const int16_t frames[4] = {left[i], right[i], left[i + 1], right[i + 1]};
      std::memcpy(dst + 4 * i, frames, sizeof(frames));
    }
  }
  return 0;
}

}  // namespace kxmp3
