// Constant tables of the bitstream side: scale-factor bands per sampling frequency,
// slen and MPEG-2 scale-factor decoding, nr_of_sfb and pretab.
#pragma once

#include <array>
#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Scale-factor band tables, indexed by rate code 0..8 (44.1, 48, 32, 22.05, 24, 16,
// 11.025, 12, 8 kHz).
extern const BandTable kBandTables[9];

// MPEG-1 scale-factor bit widths: kSlen[0] = slen1, kSlen[1] = slen2, by scalefac_compress.
extern const uint8_t kSlen[2][16];

// MPEG-2 / 2.5 scale-factor decoding, one packed word per code: entries 0..511 by
// scalefac_compress (normal channels), 512..767 by scalefac_compress / 2 (the
// intensity-coded right channel). Bits 0-2, 3-5, 6-8, 9-11: slen of band groups 0..3;
// bits 12-14: nr_of_sfb row (0..5); bit 15: preflag.
extern const uint32_t* const kLsfScaleFactorCodes;
constexpr uint32_t kLsfIntensityCodes = 512;  // offset of the intensity words

// nr_of_sfb: values per band group, [0 long, 1 short, 2 mixed][row 0..5][group 0..3].
extern const uint8_t kNrOfSfb[3][6][4];

// Pre-emphasis added to long-band scale factors, selected by preflag: [preflag][band].
extern const uint8_t kPretab[2][22];

}  // namespace kxmp3
