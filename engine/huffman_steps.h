// The steps of Huffman decoding with look-up tables, shared by DecodeSpectrum
// (huffman.cpp) and the one-pass decoding and requantisation (huffman_requantise.cpp):
// the big-values regions, a cache of the next bits of the ring, one pair or
// quadruple through the look-up tables, and the count1 part with its end rules.
// Internal to the engine's Huffman decoding.
#pragma once

#include <cstdint>

#include "band_tables.h"
#include "bit_reader.h"
#include "huffman.h"

namespace kxmp3 {

// Line bounds of the big-values regions: ends[0..count-1].
struct Regions {
  uint32_t ends[3];
  uint32_t count;
};

inline Regions BigValueRegions(const GranuleInfo& gi, uint32_t rateCode) {
  const BandTable& bands = kBandTables[rateCode];
  const uint32_t bigEnd = gi.big_value_count;
  uint32_t region1;
  uint32_t region2;
  if (gi.block_type == 2) {
    region1 = static_cast<uint32_t>(bands.shortStart3[3]);
    region2 = kLinesPerGranule;
  } else {
    uint32_t r1 = gi.region0_count + 1;
    uint32_t r2 = gi.region0_count + gi.region1_count + 2;
    if (r1 > 22) r1 = 22;
    if (r2 > 22) r2 = 22;
    region1 = static_cast<uint32_t>(bands.longStart[r1]);
    region2 = static_cast<uint32_t>(bands.longStart[r2]);
  }
  if (bigEnd <= region1) return {{bigEnd, 0, 0}, 1};
  if (bigEnd <= region2) return {{region1, bigEnd, 0}, 2};
  return {{region1, region2, bigEnd}, 3};
}

// The count1 part, shared by the decoders: quadruples written at `values + count`
// up to the granule's end (one that crosses the end is written but not counted),
// the last pair at line 574, then re-alignment of the bit position to the end.
// Returns the new count. `quad(out)` decodes one quadruple at `bitPos`.
template <class QuadFn>
inline uint32_t Count1Part(uint32_t* values, uint32_t& bitPos, uint32_t count, uint32_t end, QuadFn quad) {
  while (static_cast<int32_t>(bitPos - end) < 0 && count < 573) {
    quad(values + count);
    if (bitPos == end) {
      count += 4;
      break;
    }
    if (static_cast<int32_t>(bitPos - end) > 0) break;
    count += 4;
  }
  // At line 574 only the first two values of one more quadruple fit.
  if (static_cast<int32_t>(bitPos - end) < 0 && count <= 574) {
    uint32_t last[4];
    quad(last);
    values[count] = last[0];
    values[count + 1] = last[1];
    if (static_cast<int32_t>(bitPos - end) <= 0) count += 2;
  }
  bitPos = end;
  return count;
}

// The count1 part and the end of the granule: Count1Part, then the guard and the
// clearing of the values from the count on.
template <class QuadFn>
inline int32_t FinishSpectrum(uint32_t* values, uint32_t& bitPos, uint32_t count, uint32_t end, QuadFn quad) {
  count = Count1Part(values, bitPos, count, end, quad);
  if (count > kLinesPerGranule) return -1;
  for (uint32_t k = count; k < kLinesPerGranule; ++k) values[k] = 0;
  return static_cast<int32_t>(count);
}

// The leaf of the code word at the top of `window` (bits from `bitPos`), through the
// look-up table and, for a word longer than its index, the rest of the tree walk.
// `used` receives the code word's length.
inline uint32_t LookupLeaf(const HuffmanLookup& t, uint64_t window, uint32_t& used) {
  const uint32_t e = t.entries[window >> (64 - t.bits)];
  if ((e & kLookupContinue) == 0) {
    used = e >> 8;
    return e & 0xFF;
  }
  int32_t index = static_cast<int32_t>(e & ~uint32_t{kLookupContinue});
  int32_t node = t.tree[index];
  uint32_t n = t.bits;
  window <<= n;
  while (node < 0) {
    index += (window >> 63) != 0 ? 1 - node : 1;
    window <<= 1;
    ++n;
    node = t.tree[index];
  }
  used = n;
  return static_cast<uint32_t>(node);
}

// The bits from `pos` on, left-aligned in a register, refilled from the ring (one
// 64-bit look, at least 57 bits) only when fewer remain than the next step may take.
// Keeps the ring load off the chain from one code word to the next.
struct BitCache {
  const uint8_t* ring;
  uint32_t pos;    // bit position of the top bit of `bits`
  uint64_t bits = 0;
  uint32_t valid = 0;  // bits of `bits` that are the ring's

  void Ensure(uint32_t need) {
    if (valid < need) {
      bits = PeekBits64(ring, pos);
      valid = 64 - (pos & 7);
    }
  }
  void Skip(uint32_t n) {
    bits <<= n;
    valid -= n;
    pos += n;
  }
};

// Bits one step may take: a pair of a table without linbits (code word of at most 19
// bits, two signs), with linbits (two 13-bit extensions more), a count1 quadruple.
constexpr uint32_t kPairBits = 19 + 2;
constexpr uint32_t kLinbitsPairBits = 19 + 2 * 13 + 2;
constexpr uint32_t kQuadBits = 6 + 4;

// One pair of a table without linbits; the signs are taken without branches.
inline void LookupPair(const HuffmanLookup& t, BitCache& c, uint32_t* out) {
  c.Ensure(kPairBits);
  uint32_t used;
  const uint32_t leaf = LookupLeaf(t, c.bits, used);
  const uint32_t x = leaf >> 4;
  const uint32_t y = leaf & 15;
  const uint32_t xNonZero = x != 0 ? 1 : 0;
  const uint32_t yNonZero = y != 0 ? 1 : 0;
  const uint64_t rest = c.bits << used;
  out[0] = 2 * x + (static_cast<uint32_t>(rest >> 63) & xNonZero);
  out[1] = 2 * y + (static_cast<uint32_t>((rest << xNonZero) >> 63) & yNonZero);
  c.Skip(used + xNonZero + yNonZero);
}

// One magnitude of a linbits pair at bit `used` of `bits`: the extension of a 15,
// then the sign of a non-zero value.
inline uint32_t TakeLinbitsValue(uint32_t magnitude, uint64_t bits, uint32_t& used, uint32_t linbits) {
  if (magnitude == 15) {
    magnitude += static_cast<uint32_t>((bits << used) >> (64 - linbits));
    used += linbits;
  }
  const uint32_t nonZero = magnitude != 0 ? 1 : 0;
  const uint32_t sign = static_cast<uint32_t>((bits << used) >> 63) & nonZero;
  used += nonZero;
  return 2 * magnitude + sign;
}

inline void LookupPairLinbits(const HuffmanLookup& t, BitCache& c, uint32_t* out) {
  c.Ensure(kLinbitsPairBits);
  uint32_t used;
  const uint32_t leaf = LookupLeaf(t, c.bits, used);
  out[0] = TakeLinbitsValue(leaf >> 4, c.bits, used, t.linbits);
  out[1] = TakeLinbitsValue(leaf & 15, c.bits, used, t.linbits);
  c.Skip(used);
}

// One count1 quadruple: each set flag gives magnitude 1 and takes a sign bit.
inline void LookupQuad(const HuffmanLookup& t, BitCache& c, uint32_t* out) {
  c.Ensure(kQuadBits);
  uint32_t used;
  const uint32_t flags = LookupLeaf(t, c.bits, used);
  uint64_t rest = c.bits << used;
  for (uint32_t k = 0; k < 4; ++k) {
    const uint32_t f = (flags >> (3 - k)) & 1;
    out[k] = f * (2 + static_cast<uint32_t>(rest >> 63));
    rest <<= f;
    used += f;
  }
  c.Skip(used);
}

}  // namespace kxmp3
