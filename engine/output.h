// De-emphasis and final layout of one granule of PCM.
#pragma once

#include <cstdint>

namespace kxmp3 {

struct EngineState;
struct DeemphasisState;
struct DeemphasisCoefficients;

// Computes both de-emphasis coefficient sets for `sampleRate` into the state and
// clears the filter memory.
void SetupDeemphasis(EngineState& state, uint32_t sampleRate);

// Applies de-emphasis (emphasis code 1 or 3; 0 = none) to the planar granule
// (576 samples of channel 0, then 576 of channel 1, each of bytesPerSample bytes)
// and writes it to `destination`, interleaved when there are two channels.
// Returns 0.
int OutputGranule(void* planar, uint32_t channels, EngineState& state, void* destination,
                  uint32_t bytesPerSample, uint32_t emphasis);

// The four de-emphasis variants: y[n] = b0 x[n] + b1 x[n-1] + a y[n-1] over 576
// samples per channel of the planar buffer, in place, with the filter memory in
// `state` (primed from each channel's first sample when it has not run yet). The
// 16-bit variants filter the 16-bit samples in double and store them truncated
// towards zero (-32768 at or below the bottom, 32767 at or above the top).
void DeemphasisMonoFloat(double* planar, DeemphasisState& state, const DeemphasisCoefficients& c);
void DeemphasisMonoInt16(int16_t* planar, DeemphasisState& state, const DeemphasisCoefficients& c);
void DeemphasisStereoFloat(double* planar, DeemphasisState& state, const DeemphasisCoefficients& c);
void DeemphasisStereoInt16(int16_t* planar, DeemphasisState& state, const DeemphasisCoefficients& c);

}  // namespace kxmp3
