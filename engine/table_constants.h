// The values of sin, cos, tan and pow that the decoder tables are built from
// (tables.cpp), stored as exact constants in table_constants.cpp, which
// scripts/make_table_constants.py writes. The C libraries of Linux and Windows
// return some of these a last bit apart, and the 64-bit float output follows every
// bit of them; as constants, every system builds the same tables. They are the
// values glibc's libm gives for the expressions named beside each (kPi is the double
// nearest pi; each argument is rounded as the C++ expression rounds it).
#pragma once

#include <cstdint>

#include "tables.h"

namespace kxmp3 {

// pow(i, 4.0 / 3.0), i = 0..8206: requantisation magnitudes.
extern const double kPowerFourThirds[kPowerEntries];
// pow(2.0, r / 4.0), r = 0..3: the gain table is these scaled by powers of two.
extern const double kQuarterPowersOfTwo[4];
// pow(io, n), n = 0..8, io = pow(2.0, -(s + 1) / 4.0): MPEG-2 intensity ratios, row s.
extern const double kIntensityLsfPowers[2][9];
// sin(kPi / 72.0 * (2 * i + 1)) and cos(kPi / 72.0 * (2 * i + 19)), i = 0..35: long
// IMDCT windows; sin(kPi / 24.0 * (2 * m + 1)), m = 0..11: their short slopes.
extern const double kLongWindowSine[36];
extern const double kLongWindowCosine[36];
extern const double kShortSlopeSine[12];
// cos((2 * j + 1) * kPi / (2 N)), j < N / 2, for N = 32, 16, 8, 4; and cos(kPi / 4.0):
// the fast DCT's factors.
extern const double kDctCosine32[16];
extern const double kDctCosine16[8];
extern const double kDctCosine8[4];
extern const double kDctCosine4[2];
extern const double kDctCosine2;
// tan(i * kPi / 12.0), i = 0..15: MPEG-1 intensity ratios.
extern const double kIntensityTangent[16];
// tan(10000.0 / rate) for each sampling rate of the format: 50/15 us de-emphasis.
constexpr uint32_t kDeemphasisRates[9] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
extern const double kDeemphasisTangent[9];

}  // namespace kxmp3
