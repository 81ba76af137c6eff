// Huffman decoding of the spectral values: the big-values part in up to three
// regions (each with its own pair table), then the count1 part of quadruples of
// magnitudes 0 or 1 up to the granule's end. The bit position is always left at
// part-2 start + part2_3_length, so over- and under-read bits never shift the next
// granule.
#include "huffman.h"

#include "band_tables.h"
#include "bit_reader.h"

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
  const BandTable& bands = kBandTables[rateCode];
  const uint32_t bigEnd = gi.big_value_count;

  // Region bounds in lines.
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
  uint32_t ends[3];
  uint32_t regions;
  if (bigEnd <= region1) {
    ends[0] = bigEnd;
    regions = 1;
  } else if (bigEnd <= region2) {
    ends[0] = region1;
    ends[1] = bigEnd;
    regions = 2;
  } else {
    ends[0] = region1;
    ends[1] = region2;
    ends[2] = bigEnd;
    regions = 3;
  }

  // Big values: pairs from each region's start to its end (an odd end rounds up).
  uint32_t i = 0;
  for (uint32_t r = 0; r < regions; ++r) {
    const HuffmanTable& table = kPairTables[gi.table_select[r] & 31];
    const uint32_t end = ends[r];
    if (table.linbits == 0) {
      for (; i < end; i += 2) DecodePair(table, reservoir, bitPos, values + i);
    } else {
      for (; i < end; i += 2) DecodePairLinbits(table, reservoir, bitPos, table.linbits, values + i);
    }
  }

  // Count1 part: quadruples up to the granule's end; one that crosses the end is
  // discarded.
  const uint32_t end = part2Start + gi.part2_3_length;
  const HuffmanTable& quad = kQuadTables[gi.count1table_select & 1];
  uint32_t count = i;
  while (static_cast<int32_t>(bitPos - end) < 0 && count < 573) {
    DecodeQuad(quad, reservoir, bitPos, values + count);
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
    DecodeQuad(quad, reservoir, bitPos, last);
    values[count] = last[0];
    values[count + 1] = last[1];
    if (static_cast<int32_t>(bitPos - end) <= 0) count += 2;
  }
  bitPos = end;

  if (count > kLinesPerGranule) return -1;
  for (uint32_t k = count; k < kLinesPerGranule; ++k) values[k] = 0;
  return static_cast<int32_t>(count);
}

}  // namespace kxmp3
