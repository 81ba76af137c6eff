// Constant tables of the bitstream side: scale-factor bands per sampling frequency,
// slen and MPEG-2 scale-factor decoding, nr_of_sfb and pretab.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Scale-factor band tables, indexed by rate code 0..8 (44.1, 48, 32, 22.05, 24, 16,
// 11.025, 12, 8 kHz).
extern const BandTable kBandTables[9];

}  // namespace kxmp3
