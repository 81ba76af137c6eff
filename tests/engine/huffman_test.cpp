// Tests of Huffman decoding. First the tables: every code list is a complete prefix
// code (Kraft sum exactly 1) holding each value once, its tree has the size such a
// code needs, and every code word walks to its own leaf. Then the decoding rules:
// linbits and signs, regions, the count1 part and its end rules, re-alignment, and
// the tables without code words.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "engine/band_tables.h"
#include "engine/bit_reader.h"
#include "engine/huffman.h"
#include "support/engine/frame_builder.h"

namespace kxmp3 {
namespace {

using kxtest::BitWriter;

std::vector<uint8_t> Ring(const BitWriter& w, uint32_t at = 0) {
  std::vector<uint8_t> ring(4096, 0);
  for (size_t i = 0; i < w.Bytes().size(); ++i) ring[(at + i) & 4095] = w.Bytes()[i];
  return ring;
}

const uint32_t kCodedTables[] = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24};

TEST(HuffmanCodeLists, TableSizesAsTheStandardGivesThem) {
  const std::map<uint32_t, uint32_t> width = {{1, 2},  {2, 3},  {3, 3},  {5, 4},   {6, 4},   {7, 6},  {8, 6}, {9, 6},
                                              {10, 8}, {11, 8}, {12, 8}, {13, 16}, {15, 16}, {16, 16}, {24, 16}};
  for (uint32_t t : kCodedTables) {
    const HuffmanCodeList l = PairCodeList(t);
    EXPECT_EQ(l.width, width.at(t)) << t;
    EXPECT_EQ(l.count, l.width * l.width) << t;
  }
  for (uint32_t t : {0u, 4u, 14u}) EXPECT_EQ(PairCodeList(t).count, 0u);
  EXPECT_EQ(QuadCodeList(0).count, 16u);
  EXPECT_EQ(QuadCodeList(1).count, 16u);
}

void CheckCompletePrefixCode(const HuffmanCodeList& l, const char* what) {
  // Kraft: sum of 2^-len == 1, in integers over 2^maxLen.
  uint32_t maxLen = 0;
  for (uint32_t i = 0; i < l.count; ++i) maxLen = std::max<uint32_t>(maxLen, l.lengths[i]);
  ASSERT_LE(maxLen, 19u) << what << ": code words fit the decoder's look-ahead";
  uint64_t sum = 0;
  for (uint32_t i = 0; i < l.count; ++i) {
    ASSERT_GE(l.lengths[i], 1u);
    ASSERT_LT(uint32_t{l.codes[i]}, 1u << l.lengths[i]) << what << " value " << i;
    sum += uint64_t{1} << (maxLen - l.lengths[i]);
  }
  EXPECT_EQ(sum, uint64_t{1} << maxLen) << what << ": Kraft sum must be exactly 1";
  // No code word is a prefix of another (so each value has its own leaf).
  for (uint32_t i = 0; i < l.count; ++i) {
    for (uint32_t j = 0; j < l.count; ++j) {
      if (i == j || l.lengths[i] > l.lengths[j]) continue;
      const uint32_t head = uint32_t{l.codes[j]} >> (l.lengths[j] - l.lengths[i]);
      ASSERT_FALSE(head == l.codes[i]) << what << ": code of " << i << " is a prefix of " << j;
    }
  }
}

TEST(HuffmanCodeLists, EveryListIsACompletePrefixCode) {
  for (uint32_t t : kCodedTables) CheckCompletePrefixCode(PairCodeList(t), ("table " + std::to_string(t)).c_str());
  CheckCompletePrefixCode(QuadCodeList(0), "count1 A");
  CheckCompletePrefixCode(QuadCodeList(1), "count1 B");
}

// Some code words written out as the standard prints them (hlen, hcod).
TEST(HuffmanCodeLists, SpotChecksAgainstTheStandardsPrint) {
  struct Spot {
    uint32_t table, x, y, len;
    const char* bits;
  } spots[] = {
      {1, 0, 0, 1, "1"},       {1, 0, 1, 3, "001"},        {1, 1, 0, 2, "01"},         {1, 1, 1, 3, "000"},
      {2, 0, 2, 6, "000001"},  {3, 0, 0, 2, "11"},         {5, 2, 3, 8, "00000001"},   {6, 1, 1, 2, "10"},
      {7, 5, 5, 10, "0000000000"}, {13, 0, 0, 1, "1"},     {15, 0, 0, 3, "111"},       {16, 15, 15, 8, "00000011"},
      {24, 15, 15, 4, "0011"}, {24, 0, 0, 4, "1111"},
  };
  for (const Spot& s : spots) {
    const HuffmanCodeList l = PairCodeList(s.table);
    const uint32_t i = s.x * l.width + s.y;
    EXPECT_EQ(l.lengths[i], s.len) << s.table << " " << s.x << "," << s.y;
    EXPECT_EQ(l.codes[i], std::stoul(s.bits, nullptr, 2)) << s.table << " " << s.x << "," << s.y;
  }
  // Count1 table A: 0000 -> "1", 1111 -> "000001"; table B: v w x y -> their complement.
  EXPECT_EQ(QuadCodeList(0).lengths[0], 1u);
  EXPECT_EQ(QuadCodeList(0).codes[0], 1u);
  EXPECT_EQ(QuadCodeList(0).lengths[15], 6u);
  EXPECT_EQ(QuadCodeList(0).codes[15], 1u);
  for (uint32_t i = 0; i < 16; ++i) {
    EXPECT_EQ(QuadCodeList(1).lengths[i], 4u);
    EXPECT_EQ(QuadCodeList(1).codes[i], 15 - i);
  }
}

// Walks every path of a tree; collects the leaves and checks the layout.
void CollectLeaves(const HuffmanTable& t, uint32_t index, std::vector<int>& leaves, uint32_t depth) {
  ASSERT_LT(index, t.treeSize);
  ASSERT_LE(depth, 19u);
  const int16_t node = t.tree[index];
  if (node >= 0) {
    leaves.push_back(node);
    return;
  }
  const uint32_t k = static_cast<uint32_t>(-node);
  CollectLeaves(t, index + 1, leaves, depth + 1);
  CollectLeaves(t, index + 1 + k, leaves, depth + 1);
}

// Entries of the subtree at `index` (to check that each internal node's k is the
// size of its 0-branch).
uint32_t SubtreeSize(const HuffmanTable& t, uint32_t index) {
  const int16_t node = t.tree[index];
  if (node >= 0) return 1;
  const uint32_t zero = SubtreeSize(t, index + 1);
  EXPECT_EQ(zero, static_cast<uint32_t>(-node)) << "node " << index;
  return 1 + zero + SubtreeSize(t, index + 1 + zero);
}

TEST(HuffmanTrees, DepthFirstLayoutWithEveryLeafOnce) {
  for (uint32_t t : kCodedTables) {
    const HuffmanTable& table = kPairTables[t];
    const HuffmanCodeList l = PairCodeList(t);
    EXPECT_EQ(table.treeSize, 2 * l.count - 1) << t;
    EXPECT_EQ(SubtreeSize(table, 0), table.treeSize) << t;
    std::vector<int> leaves;
    CollectLeaves(table, 0, leaves, 0);
    std::set<int> expected;
    for (uint32_t x = 0; x < l.width; ++x)
      for (uint32_t y = 0; y < l.width; ++y) expected.insert(int(x * 16 + y));
    EXPECT_EQ(leaves.size(), l.count) << t;
    EXPECT_EQ(std::set<int>(leaves.begin(), leaves.end()), expected) << t;
  }
  for (uint32_t q = 0; q < 2; ++q) {
    std::vector<int> leaves;
    CollectLeaves(kQuadTables[q], 0, leaves, 0);
    EXPECT_EQ(kQuadTables[q].treeSize, 31u);
    std::set<int> got(leaves.begin(), leaves.end());
    EXPECT_EQ(got.size(), 16u);
    EXPECT_EQ(*got.begin(), 0);
    EXPECT_EQ(*got.rbegin(), 15);
  }
}

TEST(HuffmanTrees, SharedTreesAndLinbits) {
  const uint32_t lin16[8] = {1, 2, 3, 4, 6, 8, 10, 13};
  const uint32_t lin24[8] = {4, 5, 6, 7, 8, 9, 11, 13};
  for (uint32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(kPairTables[16 + i].tree, kPairTables[16].tree);
    EXPECT_EQ(kPairTables[24 + i].tree, kPairTables[24].tree);
    EXPECT_EQ(kPairTables[16 + i].linbits, lin16[i]);
    EXPECT_EQ(kPairTables[24 + i].linbits, lin24[i]);
  }
  for (uint32_t t = 0; t < 16; ++t) EXPECT_EQ(kPairTables[t].linbits, 0u) << t;
  for (uint32_t t : {0u, 4u, 14u}) {
    EXPECT_EQ(kPairTables[t].treeSize, 1u);
    EXPECT_EQ(kPairTables[t].tree[0], 0);
  }
}

TEST(HuffmanDecode, EveryCodeWordOfEveryTableDecodesToItsValue) {
  for (uint32_t t : kCodedTables) {
    const HuffmanCodeList l = PairCodeList(t);
    for (uint32_t x = 0; x < l.width; ++x) {
      for (uint32_t y = 0; y < l.width; ++y) {
        // Negative x, positive y; a linbits table codes 15 with zero extension here.
        BitWriter w;
        w.Put(0x5, 3);  // leading bits to start off a byte boundary
        kxtest::EncodePair(w, t, -static_cast<int>(x), static_cast<int>(y));
        w.Put(0x2AAAAAA, 26);  // trailing noise
        const auto ring = Ring(w);
        uint32_t pos = 3;
        uint32_t out[2];
        if (kPairTables[t].linbits != 0) {
          DecodePairLinbits(kPairTables[t], ring.data(), pos, kPairTables[t].linbits, out);
        } else {
          DecodePair(kPairTables[t], ring.data(), pos, out);
        }
        const uint32_t signs = (x != 0) + (y != 0);
        const uint32_t lin = kPairTables[t].linbits != 0 ? kPairTables[t].linbits * ((x == 15) + (y == 15)) : 0;
        ASSERT_EQ(out[0], x == 0 ? 0 : 2 * x + 1) << t << " " << x << "," << y;
        ASSERT_EQ(out[1], 2 * y) << t << " " << x << "," << y;
        ASSERT_EQ(pos, 3 + l.lengths[x * l.width + y] + signs + lin) << t << " " << x << "," << y;
      }
    }
  }
  for (uint32_t q = 0; q < 2; ++q) {
    for (uint32_t v = 0; v < 16; ++v) {
      BitWriter w;
      const int vals[4] = {(v >> 3) & 1 ? -1 : 0, (v >> 2) & 1 ? 1 : 0, (v >> 1) & 1 ? -1 : 0, v & 1 ? 1 : 0};
      kxtest::EncodeQuad(w, q, vals[0], vals[1], vals[2], vals[3]);
      w.Put(0xFFFFFF, 24);
      const auto ring = Ring(w);
      uint32_t pos = 0;
      uint32_t out[4];
      DecodeQuad(kQuadTables[q], ring.data(), pos, out);
      for (int k = 0; k < 4; ++k) EXPECT_EQ(out[k], vals[k] == 0 ? 0u : (vals[k] < 0 ? 3u : 2u)) << q << " " << v;
      EXPECT_EQ(pos, QuadCodeList(q).lengths[v] + __builtin_popcount(v));
    }
  }
}

TEST(HuffmanDecode, LinbitsExtendFifteenUpToThe13BitMaximum) {
  for (uint32_t t = 16; t < 32; ++t) {
    const uint32_t linbits = kPairTables[t].linbits;
    const int big = 15 + static_cast<int>((1u << linbits) - 1);
    BitWriter w;
    kxtest::EncodePair(w, t, big, -big);
    kxtest::EncodePair(w, t, 16, 3);
    const auto ring = Ring(w);
    uint32_t pos = 0;
    uint32_t out[4];
    DecodePairLinbits(kPairTables[t], ring.data(), pos, linbits, out);
    DecodePairLinbits(kPairTables[t], ring.data(), pos, linbits, out + 2);
    EXPECT_EQ(out[0], 2u * big) << t;
    EXPECT_EQ(out[1], 2u * big + 1) << t;
    EXPECT_EQ(out[2], 32u) << t;
    EXPECT_EQ(out[3], 6u) << t;
    EXPECT_EQ(pos, w.BitCount()) << t;
  }
  // The largest coded value: 2 x (15 + 8191) + 1.
  BitWriter w;
  kxtest::EncodePair(w, 31, -8206, 0);
  const auto ring = Ring(w);
  uint32_t pos = 0;
  uint32_t out[2];
  DecodePairLinbits(kPairTables[31], ring.data(), pos, 13, out);
  EXPECT_EQ(out[0], 2u * 8206 + 1);
}

TEST(HuffmanDecode, CodeWordsStraddlingTheRingEnd) {
  BitWriter w;
  kxtest::EncodePair(w, 13, 14, -13);
  kxtest::EncodeQuad(w, 0, 1, 1, 1, 1);
  const auto ring = Ring(w, 4094);
  uint32_t pos = 4094 * 8 + 4096 * 8 * 5;  // never masked: five rings on
  uint32_t out[6];
  DecodePair(kPairTables[13], ring.data(), pos, out);
  DecodeQuad(kQuadTables[0], ring.data(), pos, out + 2);
  EXPECT_EQ(out[0], 28u);
  EXPECT_EQ(out[1], 27u);
  for (int k = 2; k < 6; ++k) EXPECT_EQ(out[k], 2u);
}

// ---- DecodeSpectrum ----

GranuleInfo Long(uint32_t bigValues, uint32_t t0, uint32_t t1, uint32_t t2, uint32_t r0, uint32_t r1) {
  GranuleInfo gi{};
  gi.big_value_count = 2 * bigValues;
  gi.table_select[0] = t0;
  gi.table_select[1] = t1;
  gi.table_select[2] = t2;
  gi.region0_count = r0;
  gi.region1_count = r1;
  return gi;
}

int32_t Decode(const BitWriter& w, GranuleInfo gi, uint32_t* values, uint32_t& pos, uint32_t rate = 0,
               uint32_t part2Start = 0) {
  const auto ring = Ring(w);
  gi.part2_3_length = w.BitCount() - part2Start;
  pos = part2Start;
  return DecodeSpectrum(values, ring.data(), pos, gi, part2Start, rate);
}

TEST(DecodeSpectrum, NothingButScaleFactorsGivesZeroValues) {
  BitWriter w;
  w.Put(0x3FF, 10);  // ten bits of scale factors
  GranuleInfo gi = Long(0, 5, 5, 5, 0, 0);
  gi.part2_3_length = 10;
  auto ring = Ring(w);
  uint32_t values[576];
  std::fill(values, values + 576, 7u);
  uint32_t pos = 10;  // after the scale factors
  EXPECT_EQ(DecodeSpectrum(values, ring.data(), pos, gi, 0, 0), 0);
  EXPECT_EQ(pos, 10u);
  for (uint32_t v : values) ASSERT_EQ(v, 0u);
}

TEST(DecodeSpectrum, ThreeLongRegionsUseTheirOwnTables) {
  // 44.1 kHz: region0_count 2 -> region 1 at long start 3 = 12; region1_count 1 ->
  // region 2 at long start 5 = 20. Big values to line 30.
  GranuleInfo gi = Long(15, 1, 2, 24, 2, 1);
  BitWriter w;
  std::vector<int> expect;
  for (int i = 0; i < 30; i += 2) {
    const uint32_t table = i < 12 ? 1 : (i < 20 ? 2 : 24);
    const int x = table == 1 ? (i / 2) % 2 : (table == 2 ? 2 : 16 + (i - 20) / 2);
    const int y = table == 1 ? -1 : (table == 2 ? -(i / 2) % 3 : -7);
    kxtest::EncodePair(w, table, x, y);
    expect.push_back(x);
    expect.push_back(y);
  }
  uint32_t values[576];
  uint32_t pos;
  EXPECT_EQ(Decode(w, gi, values, pos), 30);
  for (int i = 0; i < 30; ++i) {
    const int v = expect[i];
    EXPECT_EQ(values[i], v == 0 ? 0u : 2u * std::abs(v) + (v < 0)) << i;
  }
  for (int i = 30; i < 576; ++i) ASSERT_EQ(values[i], 0u);
  EXPECT_EQ(pos, w.BitCount());
}

TEST(DecodeSpectrum, OneAndTwoRegionCases) {
  // big_value_count at or below region 1's start: all with table_select[0].
  GranuleInfo gi = Long(6, 5, 0, 0, 2, 1);  // region 1 at 12
  BitWriter w;
  for (int i = 0; i < 6; ++i) kxtest::EncodePair(w, 5, 3, 2);
  uint32_t values[576];
  uint32_t pos;
  EXPECT_EQ(Decode(w, gi, values, pos), 12);
  EXPECT_EQ(values[10], 6u);
  EXPECT_EQ(values[11], 4u);
  // Between the two starts: region 0 and 1 only (table 2 would not be read).
  GranuleInfo g2 = Long(8, 1, 6, 31, 2, 1);  // 16 lines: region 1 from 12 to 16
  BitWriter w2;
  for (int i = 0; i < 6; ++i) kxtest::EncodePair(w2, 1, 1, 0);
  for (int i = 0; i < 2; ++i) kxtest::EncodePair(w2, 6, 3, 3);
  EXPECT_EQ(Decode(w2, g2, values, pos), 16);
  EXPECT_EQ(values[0], 2u);
  EXPECT_EQ(values[14], 6u);
  EXPECT_EQ(values[15], 6u);
}

TEST(DecodeSpectrum, ShortBlocksSwitchTablesAtShortBandThree) {
  for (uint32_t rate : {0u, 8u}) {
    const uint32_t region1 = static_cast<uint32_t>(kBandTables[rate].shortStart3[3]);  // 36 or 72
    EXPECT_EQ(region1, rate == 0 ? 36u : 72u);
    GranuleInfo gi = Long(region1 / 2 + 4, 1, 13, 0, 0, 0);
    gi.block_type = 2;
    BitWriter w;
    for (uint32_t i = 0; i < region1; i += 2) kxtest::EncodePair(w, 1, 1, 1);
    for (uint32_t i = 0; i < 8; i += 2) kxtest::EncodePair(w, 13, 9, 9);
    uint32_t values[576];
    uint32_t pos;
    EXPECT_EQ(Decode(w, gi, values, pos, rate), int(region1 + 8));
    EXPECT_EQ(values[region1 - 1], 2u);
    EXPECT_EQ(values[region1], 18u);
  }
}

TEST(DecodeSpectrum, TablesWithoutCodeWordsReadNothing) {
  for (uint32_t t : {0u, 4u, 14u}) {
    GranuleInfo gi = Long(10, t, t, t, 0, 0);
    BitWriter w;
    kxtest::EncodeQuad(w, 0, 1, 0, 0, -1);  // the count1 part follows at once
    uint32_t values[576];
    uint32_t pos;
    EXPECT_EQ(Decode(w, gi, values, pos), 24) << t;
    for (int i = 0; i < 20; ++i) EXPECT_EQ(values[i], 0u);
    EXPECT_EQ(values[20], 2u);
    EXPECT_EQ(values[23], 3u);
  }
}

TEST(DecodeSpectrum, FullBigValuesLeaveNoRoomForCount1) {
  GranuleInfo gi = Long(288, 1, 1, 1, 15, 7);
  BitWriter w;
  for (int i = 0; i < 288; ++i) kxtest::EncodePair(w, 1, 1, 0);
  w.Put(0, 20);  // bits that would be count1 quadruples of table A ("1" = 0000) were there room
  w.Put(0xFFFFF, 20);
  uint32_t values[576];
  uint32_t pos;
  EXPECT_EQ(Decode(w, gi, values, pos), 576);
  EXPECT_EQ(values[574], 2u);
  EXPECT_EQ(values[575], 0u);
  EXPECT_EQ(pos, w.BitCount()) << "the granule's end is kept whatever was read";
}

TEST(DecodeSpectrum, Count1QuadrupleAt574ContributesTwoValues) {
  GranuleInfo gi = Long(287, 1, 1, 1, 15, 7);  // big values to 574
  gi.count1table_select = 1;
  BitWriter w;
  for (int i = 0; i < 287; ++i) kxtest::EncodePair(w, 1, 0, 0);
  kxtest::EncodeQuad(w, 1, -1, 1, 1, 1);
  uint32_t values[576];
  uint32_t pos;
  EXPECT_EQ(Decode(w, gi, values, pos), 576);
  EXPECT_EQ(values[574], 3u);
  EXPECT_EQ(values[575], 2u);
}

TEST(DecodeSpectrum, Count1UpToTheEndAndACrossingQuadrupleIsDiscarded) {
  GranuleInfo gi = Long(2, 1, 1, 1, 0, 0);
  BitWriter w;
  kxtest::EncodePair(w, 1, 1, 1);
  kxtest::EncodePair(w, 1, 0, 1);
  kxtest::EncodeQuad(w, 0, 1, 1, 0, 0);
  kxtest::EncodeQuad(w, 0, 0, 0, 0, -1);
  const uint32_t end = w.BitCount();
  // Exactly at the end: both quadruples count.
  uint32_t values[576];
  uint32_t pos;
  EXPECT_EQ(Decode(w, gi, values, pos), 12);
  EXPECT_EQ(values[4], 2u);
  EXPECT_EQ(values[11], 3u);
  EXPECT_EQ(pos, end);
  // The budget ends 2 bits into the second quadruple: it is dropped and cleared.
  auto ring = Ring(w);
  gi.part2_3_length = end - 2;
  pos = 0;
  EXPECT_EQ(DecodeSpectrum(values, ring.data(), pos, gi, 0, 0), 8);
  for (int i = 8; i < 576; ++i) ASSERT_EQ(values[i], 0u) << i;
  EXPECT_EQ(pos, end - 2) << "re-aligned to the granule's end";
}

TEST(DecodeSpectrum, StuffingBitsAreSkipped) {
  GranuleInfo gi = Long(1, 5, 5, 5, 0, 0);
  BitWriter w;
  w.Put(0x15, 5);  // five bits of scale factors
  kxtest::EncodePair(w, 5, 2, 3);
  // Zero quadruples of table A are a single "1" each; stuffing of zeros instead
  // would decode as other quadruples, so the budget here ends after the pair and
  // three more bits that are not read.
  const uint32_t pairEnd = w.BitCount();
  w.Put(0x7, 3);
  auto ring = Ring(w);
  uint32_t values[576];
  gi.part2_3_length = pairEnd + 3;  // from bit 0 (the part-2 start)
  uint32_t pos = 5;
  const int32_t n = DecodeSpectrum(values, ring.data(), pos, gi, 0, 0);
  EXPECT_EQ(values[0], 4u);
  EXPECT_EQ(values[1], 6u);
  // "111" are three zero quadruples of table A.
  EXPECT_EQ(n, 2 + 12);
  EXPECT_EQ(pos, pairEnd + 3);
}

TEST(DecodeSpectrum, OverReadBigValuesAreCutBackToTheEnd) {
  // part2_3_length shorter than the big values: they are all decoded, the count1
  // part is skipped and the position goes back to the end.
  GranuleInfo gi = Long(4, 15, 15, 15, 0, 0);
  BitWriter w;
  for (int i = 0; i < 4; ++i) kxtest::EncodePair(w, 15, 7, -8);
  auto ring = Ring(w);
  gi.part2_3_length = 5;
  uint32_t values[576];
  uint32_t pos = 0;
  EXPECT_EQ(DecodeSpectrum(values, ring.data(), pos, gi, 0, 0), 8);
  EXPECT_EQ(values[7], 17u);
  EXPECT_EQ(pos, 5u);
}

}  // namespace
}  // namespace kxmp3
