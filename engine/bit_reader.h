// Bit reading from the 4,096-byte main-data ring (the bit reservoir) and from the
// small side-information buffer. The read position is a plain bit count that is
// never masked: only byte indices are reduced modulo the ring size when fetched, so
// a field may straddle the ring's end.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace kxmp3 {

constexpr uint32_t kRingMask = 4095;  // byte index mask of the reservoir ring

// The 32 bits at bit position `pos` of the ring, left-aligned (bit pos first).
inline uint32_t PeekBits32(const uint8_t* ring, uint32_t pos) {
  const uint32_t b = pos >> 3;
  const uint32_t word = (uint32_t{ring[b & kRingMask]} << 24) | (uint32_t{ring[(b + 1) & kRingMask]} << 16) |
                        (uint32_t{ring[(b + 2) & kRingMask]} << 8) | uint32_t{ring[(b + 3) & kRingMask]};
  return word << (pos & 7);
}

// The 64 bits at bytes (pos / 8 + 0..7) of the ring, big-endian, shifted left by
// pos mod 8: at least 57 valid bits, left-aligned, the same bits PeekBits32 sees and
// 25 more. One look holds a whole spectral pair (code word, two linbits fields and
// two signs: at most 47 bits). Away from the ring's end it is one unaligned load.
inline uint64_t PeekBits64(const uint8_t* ring, uint32_t pos) {
  const uint32_t b = (pos >> 3) & kRingMask;
  uint64_t word = 0;
  if (b <= kRingMask - 7) {
    std::memcpy(&word, ring + b, 8);
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
  } else {
    for (uint32_t k = 0; k < 8; ++k) word = (word << 8) | ring[(b + k) & kRingMask];
  }
  return word << (pos & 7);
}

// Reads n bits (0..25) at `pos` of the ring, most significant first, and advances
// `pos` by n. n = 0 reads nothing and gives 0.
inline uint32_t GetBits(const uint8_t* ring, uint32_t& pos, uint32_t n) {
  if (n == 0) return 0;
  const uint32_t v = PeekBits32(ring, pos) >> (32 - n);
  pos += n;
  return v;
}

// The same fetch on a linear buffer that has at least 3 readable bytes beyond the
// last bit read (the side-information buffer is padded for it).
inline uint32_t GetBitsLinear(const uint8_t* buffer, uint32_t& pos, uint32_t n) {
  if (n == 0) return 0;
  const uint8_t* p = buffer + (pos >> 3);
  const uint32_t word = (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
  const uint32_t v = (word << (pos & 7)) >> (32 - n);
  pos += n;
  return v;
}

}  // namespace kxmp3
