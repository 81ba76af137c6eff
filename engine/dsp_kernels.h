// The engine's hot loops behind one function-pointer table: synthesis matrixing and
// windowing, the two IMDCTs, alias butterflies, mid/side and float interleaving.
//
// Every kernel exists as a plain scalar reference (beside the step that uses it) and
// as an SSE2 version over pairs of doubles (in the step's *_sse2.cpp). The table is
// chosen once, before any decoder runs; the steps call through Dsp() and never name
// an instruction set. The two versions perform the same operations in the same order on
// every value, so their results are bit-identical (the build forbids floating-point
// contraction); the kernel tests hold each SSE2 kernel to its reference.
//
// Alignment: every pointer documented as aligned must be 16-byte aligned.
#pragma once

#include <cstdint>

namespace kxmp3 {

struct DspKernels {
  const char* name;  // "scalar", "sse2", "avx2" or "avx512"

  // Synthesis matrixing: v[i] = sum over k of cos((16 + i)(2 k + 1) pi / 64) samples[k],
  // i = 0..63, by a fast 32-point DCT, as the ring stores them: v[17..63] negated (the
  // window copies carry their signs, see SynthesisWindowSign in tables.h). samples (32)
  // and v (64) aligned.
  void (*dct32)(const double* samples, double* v);
  // Matrixing of several time slots of a granule-channel in one call, or null in a
  // table that does them one at a time through dct32. From slot `first` of `hybrid`
  // (subband sb, slot t at 18 sb + t; odd slots of odd subbands negated, as the
  // synthesis gathers them), writes each slot's 64 values (dct32's v) as a row of 64,
  // newest below as on the ring: slot first + j at rows - 64 j (32-byte aligned; room
  // for kMaxDctSlotsPerCall rows from rows - 64 (kMaxDctSlotsPerCall - 1) on), and
  // returns how many slots it did (at least 1, at most 18 - first).
  uint32_t (*dct32Slots)(const double* hybrid, uint32_t first, double* rows);
  // The last two slots (16 and 17) of two granule-channels in one call, or null: each
  // channel's two rows as dct32Slots writes them from first = 16 (slot 17's row at
  // rows - 64). Tables that have it also have dct32Slots, and their dct32Slots reaches
  // slot 16 exactly from slot 0.
  void (*dct32LastSlotsStereo)(const double* hybrid0, const double* hybrid1, double* rows0, double* rows1);
  // Synthesis windowing: out[n] = sum over k = 0..15 of W[32 k + n] taps[k][n] for
  // n = 0..31 (W a window copy, signs included), the sum formed tap by tap from k = 0;
  // taps[k] points at the 32 ring values tap k reads. The int16
  // variant uses the 16-bit window copy, rounds to nearest even and saturates (a sum
  // outside the 32-bit range gives -32768); the float variant stores the sums
  // unchanged. Taps aligned; out aligned for the float variant.
  void (*windowInt16)(int16_t* out, const double* const* taps);
  void (*windowFloat)(double* out, const double* const* taps);
  // The windows of two channels at once (taps0 and taps1), written interleaved: frame
  // n holds channel 0's output n, then channel 1's, as int16_t or double exactly as
  // the one-channel variants give them. `out` may be at any byte address; taps
  // aligned.
  void (*windowStereoInt16)(void* out, const double* const* taps0, const double* const* taps1);
  void (*windowStereoFloat)(void* out, const double* const* taps0, const double* const* taps1);

  // 36-point IMDCT of 18 lines (overwritten: the transform works in place on them),
  // windowed with one of the stored long windows, into out[36]. All aligned.
  void (*imdct36)(double* lines, double* out, const double* window);
  // The three 12-point IMDCTs of a short-block subband (line k of window w at
  // lines[3 k + w]), windowed and overlapped at offsets 6, 12 and 18 of out[36]
  // (zeros elsewhere). All aligned.
  void (*imdct12)(const double* lines, double* out);
  // Long-block IMDCT, windowing and overlap-add of two consecutive subbands in one
  // call, or null in a table that does one subband at a time (imdct36, then the
  // overlap-add). `subbands`: the two subbands' 36 lines in, their 36 time samples
  // out; `overlap`: their 36 stored values, replaced by the new ones; `window` as for
  // imdct36. Results bit-identical to imdct36 and the overlap-add of each subband.
  void (*hybridLongPair)(double* subbands, double* overlap, const double* window);
  // The same for eight consecutive subbands in one call, or null.
  void (*hybridLongEight)(double* subbands, double* overlap, const double* window);

  // Alias butterflies over `boundaries` consecutive subband boundaries; upper points
  // at subband sb, lower at subband sb + 1. Aligned, boundaries >= 1.
  void (*aliasReduce)(double* upper, double* lower, uint32_t boundaries);
  // Mid/side: left = m + s, right = m - s over subbands x 18 lines. Aligned, subbands >= 1.
  void (*midSide)(double* left, double* right, uint32_t subbands);
  // Interleaves 576 samples of each channel (planar: channel 0 then channel 1,
  // aligned) into dst as L R pairs; dst may be aligned or not.
  void (*interleaveFloat)(double* dst, const double* planar);
};

constexpr uint32_t kMaxDctSlotsPerCall = 8;

// The table chosen for this processor: the widest it supports (AVX-512, then AVX2,
// where the build has those kernels and the processor and system support them), else
// SSE2 where the build has it, else scalar. Chosen once, when the module is loaded.
const DspKernels& Dsp();
// Makes `kernels` the active table and returns the previous one. For tests that
// observe what the kernels are given; never called while a decoder runs.
const DspKernels& ReplaceDspKernelsForTesting(const DspKernels& kernels);
// Every version, for the kernel tests and the benchmarks. Sse2Kernels() returns null
// when the build has no SSE2, Avx2Kernels() and Avx512Kernels() when the build has
// no such kernels or this processor cannot run them. A wider table holds the next
// narrower table's kernels where it has none of its own.
const DspKernels& ScalarKernels();
const DspKernels* Sse2Kernels();
const DspKernels* Avx2Kernels();
const DspKernels* Avx512Kernels();

// Constants of the two IMDCT kernels, built by a start-up initialiser (they are not
// part of the load-time tables). All pairs are 16-byte aligned.
struct ImdctConstants {
  // 36-point: the nine-point transforms run on pairs (even half, odd half).
  // 2 cos(k pi / 18) for k = 2, 4, 8 (that is 2 cos(pi/9), 2 cos(2pi/9), 2 cos(4pi/9)) and
  // k = 1, 3, 5, 7, each duplicated into a pair.
  alignas(16) double c2[2], c4[2], c8[2];
  alignas(16) double c1[2], c3[2], c5[2], c7[2];
  // Combination factors 1 / (2 cos((2 j + 1) pi / 36)), j = 0..8 (and a zero pad).
  alignas(16) double combine36[10];
  // 12-point: cos(pi/6) as a pair; the three combination factors
  // 1 / (2 cos((2 j + 1) pi / 12)), j = 0..2 (and a pad); the six post factors
  // 1 / (2 cos((2 j + 1) pi / 24)), j = 0..5.
  alignas(16) double c6[2];
  alignas(16) double combine12[4];
  alignas(16) double post12[6];
  // Short window sin(pi/24 (2 i + 1)), i = 0..11, entries 3, 4 and 5 negated.
  alignas(16) double shortWindow[12];
};

extern const ImdctConstants gImdctConstants;

// Scalar references (defined beside their steps).
void Dct32Scalar(const double* samples, double* v);
void WindowInt16Scalar(int16_t* out, const double* const* taps);
void WindowFloatScalar(double* out, const double* const* taps);
void WindowStereoInt16Scalar(void* out, const double* const* taps0, const double* const* taps1);
void WindowStereoFloatScalar(void* out, const double* const* taps0, const double* const* taps1);
void Imdct36Scalar(double* lines, double* out, const double* window);
void Imdct12Scalar(const double* lines, double* out);
void AliasReduceScalar(double* upper, double* lower, uint32_t boundaries);
void MidSideScalar(double* left, double* right, uint32_t subbands);
void InterleaveFloatScalar(double* dst, const double* planar);

// SSE2 versions (defined in the *_sse2.cpp files; present when the build has SSE2).
void Dct32Sse2(const double* samples, double* v);
void WindowInt16Sse2(int16_t* out, const double* const* taps);
void WindowFloatSse2(double* out, const double* const* taps);
void WindowStereoInt16Sse2(void* out, const double* const* taps0, const double* const* taps1);
void WindowStereoFloatSse2(void* out, const double* const* taps0, const double* const* taps1);
void Imdct36Sse2(double* lines, double* out, const double* window);
void Imdct12Sse2(const double* lines, double* out);
void AliasReduceSse2(double* upper, double* lower, uint32_t boundaries);
void MidSideSse2(double* left, double* right, uint32_t subbands);
void InterleaveFloatSse2(double* dst, const double* planar);

// AVX2 versions (defined in the *_avx2.cpp files, compiled for AVX2 without FMA; run
// only where Avx2Kernels() is not null). Each gives bit-identical results to its SSE2
// counterpart.
uint32_t Dct32SlotsAvx2(const double* hybrid, uint32_t first, double* rows);
void Dct32LastSlotsStereoAvx2(const double* hybrid0, const double* hybrid1, double* rows0, double* rows1);
void HybridLongPairAvx2(double* subbands, double* overlap, const double* window);
void WindowInt16Avx2(int16_t* out, const double* const* taps);
void WindowFloatAvx2(double* out, const double* const* taps);
void WindowStereoInt16Avx2(void* out, const double* const* taps0, const double* const* taps1);
void WindowStereoFloatAvx2(void* out, const double* const* taps0, const double* const* taps1);

// AVX-512 versions (the *_avx512.cpp files, compiled for AVX-512F without FMA; run
// only where Avx512Kernels() is not null), bit-identical to their SSE2 counterparts.
uint32_t Dct32SlotsAvx512(const double* hybrid, uint32_t first, double* rows);
void WindowInt16Avx512(int16_t* out, const double* const* taps);
void WindowFloatAvx512(double* out, const double* const* taps);
void WindowStereoInt16Avx512(void* out, const double* const* taps0, const double* const* taps1);
void WindowStereoFloatAvx512(void* out, const double* const* taps0, const double* const* taps1);
void HybridLongEightAvx512(double* subbands, double* overlap, const double* window);
void AliasReduceAvx512(double* upper, double* lower, uint32_t boundaries);
void MidSideAvx512(double* left, double* right, uint32_t subbands);

// The 16-bit conversion of one window sum, as the processor's conversion does it:
// round to nearest with ties to even, a value outside the 32-bit range (or NaN)
// becomes the most negative 32-bit value, then saturation to 16 bits.
int16_t ConvertSampleToInt16(double sum);

}  // namespace kxmp3
