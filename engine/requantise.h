// Requantisation of one granule-channel: coded values to spectral values by table
// look-up, and the non-zero bounds that stereo, alias reduction and IMDCT use. The
// decoder does this in one pass with the Huffman decoding (huffman_requantise.h); this
// two-pass form is the reference the tests hold that pass to.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Turns the 576 coded values (DecodeSpectrum's output; `count` its result) into 576
// doubles: power[c] x gain[reference + ((scalefac + pretab) << scalefac_multiplier)]
// per scale-factor band. Writes gi.is_start_short[], gi.is_start_long and
// gi.active_subbands.
void Requantise(const uint32_t* coded, double* spectrum, const ScaleFactors& sf, GranuleInfo& gi, uint32_t rateCode,
                int32_t count);

}  // namespace kxmp3
