// Huffman decoding and requantisation of one granule-channel in one pass: the code
// words of each scale-factor band are decoded straight into the band's spectral
// values, so the coded values never make a round trip through memory.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Decodes the granule-channel's Huffman data exactly as DecodeSpectrum does (same
// bits read, bit position left at part2Start + part2_3_length) and requantises the
// values exactly as Requantise does with that count: the same 576 doubles in
// `spectrum` (16-byte aligned) and the same non-zero bounds in `gi`. Returns
// DecodeSpectrum's count, or -1 (the spectrum and bounds are then unspecified).
int32_t DecodeGranuleSpectrum(double* spectrum, const uint8_t* reservoir, uint32_t& bitPos, GranuleInfo& gi,
                              const ScaleFactors& sf, uint32_t part2Start, uint32_t rateCode);

}  // namespace kxmp3
