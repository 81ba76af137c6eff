// Process-wide decoder tables: built once by InitDecoderTables when the module is
// loaded, read-only afterwards and shared by every decoder object without locking.
//
// Two kinds live here: constant data stored ready in the module (the integer
// synthesis window and the synthesis ring index table) and tables computed at load
// in double precision (everything in DecoderTables) from the values of sin, cos, tan
// and pow stored in table_constants.h, and sqrt.
// Every double table that a SIMD kernel reads is 16-byte aligned and laid out so that
// two consecutive entries load as one pair.
#pragma once

#include <cstdint>

namespace kxmp3 {

constexpr uint32_t kPowerEntries = 8207;  // magnitudes 0..8206 (15 + largest 13-bit linbits value)
constexpr uint32_t kGainEntries = 512;
constexpr uint32_t kGainOrigin = 256;     // entry 256 - global_gain = 2^((global_gain - 210) / 4)

constexpr uint32_t kSynthesisWindowTaps = 512;
constexpr uint32_t kSynthesisRingSize = 1024;  // doubles per channel ring

// The synthesis window D[i] of ISO/IEC 11172-3 Table B.3 scaled by 65536, in the
// standard's order (D[0] = 0, D[1] = -1, ..., D[256] = 75038). The standard lists
// D to nine decimals; every entry is an integer multiple of 2^-16 to that precision,
// and these are the integers. Stored as constant data.
extern const int32_t kSynthesisWindowD[kSynthesisWindowTaps];

// Ring index table of the synthesis: row p (the ring position / 64), tap k:
// (64 p + base[k]) mod 1024 with base[2 j] = 128 j and base[2 j + 1] = 128 j + 96.
// Tap k of output n reads ring[row[k] + n] on a ring of 16 rows of 64 values. Stored
// as constant data. (The engine's own ring keeps 15 rows on 64-byte boundaries, see
// synthesis.cpp; the kernel tests and benchmarks lay window taps out with this table.)
extern const uint32_t kSynthesisRingIndex[16][16];

// The matrixing's values v[17..63] of each ring row are the negated DCT outputs
// (v[17..47] = -X[31..1], v[48..63] = -X[0..15]); the ring holds them unnegated and the
// window copies carry the signs instead, which saves the negations and gives the same
// products bit for bit: (-w) x = w (-x) in every rounding of a product. Window entry
// 32 k + n meets ring value 32 (k & 1) + n of its row, so its sign is -1 where that
// value is 17 or more, else +1.
constexpr int SynthesisWindowSign(uint32_t i) { return 32 * ((i / 32) & 1) + i % 32 >= 17 ? -1 : 1; }

struct DecoderTables {
  // Requantisation: entry k = 2^(-(k - 46) / 4).
  alignas(16) double gain[kGainEntries];
  // Requantisation: entry 2m = m^(4/3), entry 2m + 1 = -(m^(4/3)); indexed by the coded value.
  alignas(16) double power[2 * kPowerEntries];

  // Alias reduction: cs[i] = 1 / sqrt(1 + c[i]^2), ca[i] = c[i] / sqrt(1 + c[i]^2) for the
  // eight coefficients c of ISO/IEC 11172-3 Table B.9.
  alignas(16) double aliasCs[8];
  alignas(16) double aliasCa[8];

  // Long IMDCT windows indexed by block type (0, 1, 3; row 2 unused and zero), in the
  // form the fast 36-point transform consumes: the window divided by
  // cos(pi/72 (2 i + 19)), then halved except at entries 4, 13, 22 and 31.
  alignas(16) double imdctWindow[4][36];

  // Synthesis window copies: D[i] x 2^-16 (float output, full scale +-1.0) and that
  // times 32768 (16-bit output), each entry times SynthesisWindowSign(i).
  // Aligned to a cache line: the widest kernels read them in 32-byte loads.
  alignas(64) double synthWindowFloat[kSynthesisWindowTaps];
  alignas(64) double synthWindowInt16[kSynthesisWindowTaps];

  // Factor lists of the fast 32-point DCT of the synthesis: 1 / (2 cos((2 j + 1) pi / 2N))
  // for N = 32 (16 values), 16 (8), 8 (4), 4 (2), and 1 / (2 cos(pi / 4)) twice.
  alignas(16) double dct32Factors[16];
  alignas(16) double dct16Factors[8];
  alignas(16) double dct8Factors[4];
  alignas(16) double dct4Factors[2];
  alignas(16) double dct2Factor[2];

  // Intensity-stereo ratios, indexed by is_pos 0..15.
  // MPEG-1: [mid/side][0 left, 1 right]: t / (1 + t) and 1 / (1 + t) with
  // t = tan(is_pos pi / 12); the mid/side row is multiplied by sqrt(2).
  alignas(16) double isRatioMpeg1[2][2][16];
  // MPEG-2 and 2.5: [(scalefac_compress & 1) + 2 x mid/side][0 left, 1 right], with
  // io = 2^(-(s + 1) / 4): is_pos 0 gives 1, 1; odd is_pos left io^((is_pos + 1) / 2),
  // right 1; even is_pos > 0 left 1, right io^(is_pos / 2); rows 2 and 3 times sqrt(2).
  alignas(16) double isRatioLsf[4][2][16];
};

extern DecoderTables gTables;

// Builds every computed table. Called once from the module's load handling (and by
// test harnesses); calling it again rebuilds the same values.
void InitDecoderTables();

// tan(10000 / sampleRate), the 50/15 us de-emphasis filter's prewarped frequency:
// the same bits on every system for the format's nine rates (computed for others).
double DeemphasisTangent(uint32_t sampleRate);

}  // namespace kxmp3
