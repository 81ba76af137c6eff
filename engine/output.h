// De-emphasis and final layout of one granule of PCM.
#pragma once

#include <cstdint>

namespace kxmp3 {

struct DecoderState;

// Computes both de-emphasis coefficient sets for `sampleRate` into the state and
// clears the filter memory.
void SetupDeemphasis(DecoderState& state, uint32_t sampleRate);

// Applies de-emphasis (emphasis code 1 or 3; 0 = none) to the planar granule
// (576 samples of channel 0, then 576 of channel 1, each of bytesPerSample bytes)
// and writes it to `destination`, interleaved when there are two channels.
// Returns 0.
int OutputGranule(void* planar, uint32_t channels, DecoderState& state, void* destination,
                  uint32_t bytesPerSample, uint32_t emphasis);

}  // namespace kxmp3
