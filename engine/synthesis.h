// Polyphase synthesis of one granule-channel into PCM samples.
#pragma once

#include <cstdint>

namespace kxmp3 {

// Synthesises the 18 time slots of one channel: `hybrid` holds 32 subbands x 18
// samples (subband sb, slot t at 18 sb + t; frequency inversion of odd subbands is
// done here). `ring` is the channel's 1024-double synthesis ring, `position` its
// ring position (multiple of 64, 0..960; the granule leaves it at 0). Writes 576
// samples to `out`: int16_t (bytesPerSample 2: rounded to nearest even, saturated) or
// double (bytesPerSample 8: full scale +-1.0, never clipped).
void SynthesizeGranule(const double* hybrid, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out);

// The same for the two channels of a two-channel stream at once, written interleaved
// (channel 0, channel 1, frame by frame) to `out`, which may be at any byte address:
// 576 frames of int16_t (bytesPerSample 2) or double (8). Each channel's samples are
// those SynthesizeGranule gives.
void SynthesizeStereoGranule(const double* hybrid0, const double* hybrid1, double* ring0, double* ring1,
                             uint32_t* position0, uint32_t* position1, uint32_t bytesPerSample, void* out);

// Clears a channel's 1024-double ring to silence: every matrixing value +0.0, that is
// +0.0 where the ring stores a value as it is and -0.0 where it stores it negated
// (entries 17..63 of each row of 64), so that the window's products with a cleared
// ring carry the signs they have with zero matrixing output.
void ClearSynthesisRing(double* ring);

// The 64 matrixing values (as the ring stores them) of the slot m = 1..15 slots before
// the newest on `ring` at `position`. The ring holds its rows at addresses of its own
// choosing (64-byte boundaries), so a ring must not be moved or copied to another
// address while it is in use.
const double* SynthesisRingRow(const double* ring, uint32_t position, uint32_t m);

// One time slot of one channel: 64 new ring values from the 32 subband samples
// (16-byte aligned), 32 output samples (int16_t or double by bytesPerSample) at `out`,
// and the new values made the newest of the ring (the position moves to their row).
// The same ring and samples as SynthesizeGranule's, one slot at a time.
void SynthesizeSlot(const double* samples, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out);

}  // namespace kxmp3
