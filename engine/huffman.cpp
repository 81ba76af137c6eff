// Huffman decoding of the spectral values: the big-values part in up to three
// regions (each with its own pair table), then the count1 part of quadruples of
// magnitudes 0 or 1 up to the granule's end. The bit position is always left at
// part-2 start + part2_3_length, so over- and under-read bits never shift the next
// granule.
//
// DecodeSpectrum takes each code word through the look-up tables of
// huffman_lookup.cpp and a whole pair (code word, linbits, signs) from one 64-bit
// look at the ring; DecodeSpectrumByTree walks the trees a bit at a time. Both
// consume the same bits and give the same values: the tests hold the first to the
// second on random data.
#include "huffman.h"

#include "bit_reader.h"
#include "huffman_steps.h"

namespace kxmp3 {

namespace {

// Walks `tree` from its root on the bits at `bitPos` and returns the leaf. Code
// words are at most 19 bits, so one 32-bit look at the ring (at least 25 valid bits)
// holds the whole word.
inline int32_t WalkTree(const int16_t* tree, const uint8_t* reservoir, uint32_t& bitPos) {
  uint32_t window = PeekBits32(reservoir, bitPos);
  uint32_t used = 0;
  int32_t index = 0;
  int32_t node = tree[0];
  while (node < 0) {
    index += (window >> 31) != 0 ? 1 - node : 1;
    window <<= 1;
    ++used;
    node = tree[index];
  }
  bitPos += used;
  return node;
}

// Magnitude m (already linbits-extended) and its sign bit as a coded value.
inline uint32_t Signed(uint32_t magnitude, const uint8_t* reservoir, uint32_t& bitPos) {
  if (magnitude == 0) return 0;
  return 2 * magnitude + GetBits(reservoir, bitPos, 1);
}

}  // namespace

void DecodePair(const HuffmanTable& table, const uint8_t* reservoir, uint32_t& bitPos, uint32_t* out) {
  const int32_t leaf = WalkTree(table.tree, reservoir, bitPos);
  out[0] = Signed(static_cast<uint32_t>(leaf) >> 4, reservoir, bitPos);
  out[1] = Signed(static_cast<uint32_t>(leaf) & 15, reservoir, bitPos);
}

void DecodePairLinbits(const HuffmanTable& table, const uint8_t* reservoir, uint32_t& bitPos, uint32_t linbits,
                       uint32_t* out) {
  const int32_t leaf = WalkTree(table.tree, reservoir, bitPos);
  uint32_t x = static_cast<uint32_t>(leaf) >> 4;
  uint32_t y = static_cast<uint32_t>(leaf) & 15;
  if (x == 15) x += GetBits(reservoir, bitPos, linbits);
  out[0] = Signed(x, reservoir, bitPos);
  if (y == 15) y += GetBits(reservoir, bitPos, linbits);
  out[1] = Signed(y, reservoir, bitPos);
}

void DecodeQuad(const HuffmanTable& table, const uint8_t* reservoir, uint32_t& bitPos, uint32_t* out) {
  const uint32_t flags = static_cast<uint32_t>(WalkTree(table.tree, reservoir, bitPos));
  for (uint32_t k = 0; k < 4; ++k) out[k] = Signed((flags >> (3 - k)) & 1, reservoir, bitPos);
}

int32_t DecodeSpectrum(uint32_t* values, const uint8_t* reservoir, uint32_t& bitPos, const GranuleInfo& gi,
                       uint32_t part2Start, uint32_t rateCode) {
  const Regions regions = BigValueRegions(gi, rateCode);
  BitCache c{reservoir, bitPos};
  uint32_t i = 0;
  for (uint32_t r = 0; r < regions.count; ++r) {
    const HuffmanLookup& table = kPairLookup[gi.table_select[r] & 31];
    const uint32_t end = regions.ends[r];
    if (table.bits == 0) {
      // A single-leaf tree: (0, 0) without reading a bit.
      for (; i < end; i += 2) values[i] = values[i + 1] = 0;
    } else if (table.linbits == 0) {
      for (; i < end; i += 2) LookupPair(table, c, values + i);
    } else {
      for (; i < end; i += 2) LookupPairLinbits(table, c, values + i);
    }
  }

  const HuffmanLookup& quad = kQuadLookup[gi.count1table_select & 1];
  const int32_t count = FinishSpectrum(values, c.pos, i, part2Start + gi.part2_3_length,
                                       [&](uint32_t* out) { LookupQuad(quad, c, out); });
  bitPos = c.pos;
  return count;
}

int32_t DecodeSpectrumByTree(uint32_t* values, const uint8_t* reservoir, uint32_t& bitPos, const GranuleInfo& gi,
                             uint32_t part2Start, uint32_t rateCode) {
  const Regions regions = BigValueRegions(gi, rateCode);
  // Big values: pairs from each region's start to its end (an odd end rounds up).
  uint32_t i = 0;
  for (uint32_t r = 0; r < regions.count; ++r) {
    const HuffmanTable& table = kPairTables[gi.table_select[r] & 31];
    const uint32_t end = regions.ends[r];
    if (table.linbits == 0) {
      for (; i < end; i += 2) DecodePair(table, reservoir, bitPos, values + i);
    } else {
      for (; i < end; i += 2) DecodePairLinbits(table, reservoir, bitPos, table.linbits, values + i);
    }
  }
  const HuffmanTable& quad = kQuadTables[gi.count1table_select & 1];
  return FinishSpectrum(values, bitPos, i, part2Start + gi.part2_3_length,
                        [&](uint32_t* out) { DecodeQuad(quad, reservoir, bitPos, out); });
}

}  // namespace kxmp3
