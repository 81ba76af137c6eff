// Bit reading from the 4,096-byte main-data ring (the bit reservoir) and from the
// small side-information buffer. The read position is a plain bit count that is
// never masked: only byte indices are reduced modulo the ring size when fetched, so
// a field may straddle the ring's end.
#pragma once

#include <cstdint>

namespace kxmp3 {

constexpr uint32_t kRingMask = 4095;  // byte index mask of the reservoir ring

// The 32 bits at bit position `pos` of the ring, left-aligned (bit pos first).
inline uint32_t PeekBits32(const uint8_t* ring, uint32_t pos) {
  const uint32_t b = pos >> 3;
  const uint32_t word = (uint32_t{ring[b & kRingMask]} << 24) | (uint32_t{ring[(b + 1) & kRingMask]} << 16) |
                        (uint32_t{ring[(b + 2) & kRingMask]} << 8) | uint32_t{ring[(b + 3) & kRingMask]};
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
