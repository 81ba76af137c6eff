// The fields of a frame header word: the header's four bytes read big-endian
// (bit 31 = first bit of the first byte). The frame reader, the frame scan, the
// header parser and the container detection all decode header bits here. The
// length functions need a word that passed IsLayer3Header.
#pragma once

#include <cstdint>

#include "frame_header.h"

namespace kxmp3::header_word {

// Header bits that consecutive frames of one stream share when walked: sync,
// version, layer, protection bit and sampling frequency.
constexpr uint32_t kWalkCompareMask = 0xFFFF0C00u;

inline uint32_t SyncBits(uint32_t w) { return w >> 21; }
inline uint32_t VersionBits(uint32_t w) { return (w >> 19) & 3; }  // 11 MPEG-1, 10 MPEG-2, 01 reserved, 00 MPEG-2.5
inline uint32_t LayerBits(uint32_t w) { return (w >> 17) & 3; }    // 01 Layer III
inline uint32_t ProtectionBit(uint32_t w) { return (w >> 16) & 1; }  // 0: a check word follows
inline uint32_t BitrateIndex(uint32_t w) { return (w >> 12) & 0xF; }
inline uint32_t RateBits(uint32_t w) { return (w >> 10) & 3; }
inline uint32_t PaddingBit(uint32_t w) { return (w >> 9) & 1; }
inline uint32_t PrivateBit(uint32_t w) { return (w >> 8) & 1; }
inline uint32_t ModeBits(uint32_t w) { return (w >> 6) & 3; }  // 0 stereo, 1 joint, 2 dual, 3 single
inline uint32_t ModeExtension(uint32_t w) { return (w >> 4) & 3; }
inline uint32_t CopyrightBit(uint32_t w) { return (w >> 3) & 1; }
inline uint32_t OriginalBit(uint32_t w) { return (w >> 2) & 1; }
inline uint32_t EmphasisBits(uint32_t w) { return w & 3; }

// 0 MPEG-1, 1 MPEG-2, 2 MPEG-2.5 (version bits 11, 10, 00), computed as
// (not bit 20) + (not bit 19).
inline uint32_t VersionIndex(uint32_t w) { return (1u - ((w >> 20) & 1)) + (1u - ((w >> 19) & 1)); }
inline uint32_t RateCode(uint32_t w) { return VersionIndex(w) * 3 + RateBits(w); }
inline uint32_t Channels(uint32_t w) { return ModeBits(w) == 3 ? 1 : 2; }
inline uint32_t SamplesPerFrame(uint32_t w) { return VersionIndex(w) == 0 ? 1152 : 576; }

// Frame length in bytes, padding included.
inline uint32_t HeaderFrameLength(uint32_t w) { return kFrameLengthTable[RateCode(w)][BitrateIndex(w)] + PaddingBit(w); }

// Side-information bytes: 32 (MPEG-1, two channels), 17 (MPEG-1 single channel or
// MPEG-2/2.5 two channels), 9 (MPEG-2/2.5 single channel).
inline uint32_t SideInfoBytes(uint32_t w) {
  bool mono = ModeBits(w) == 3;
  if (VersionIndex(w) == 0) return mono ? 17 : 32;
  return mono ? 9 : 17;
}

}  // namespace kxmp3::header_word
