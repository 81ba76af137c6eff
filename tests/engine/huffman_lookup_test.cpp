// Tests of the Huffman look-up tables and of the decoder that uses them. The tables
// are checked against the standard's code lists (every code word, followed by any
// bits, gives its own value and length, or for a word longer than the index the node
// from which the tree walk ends at it). The fast DecodeSpectrum is held to the
// bit-by-bit tree walk of DecodeSpectrumByTree on random data and random side
// information: same values, same count, same bit position, also where the data
// wraps at the ring's end and where damaged side information reads far beyond the
// granule.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "engine/huffman.h"
#include "huffman_test_util.h"

namespace kxmp3 {
namespace {

const uint32_t kCodedTables[] = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24};

// Walks `tree` from `index` on the bits of `code` below bit `remaining`, returning
// the leaf.
int32_t WalkFrom(const int16_t* tree, int32_t index, uint32_t code, uint32_t remaining) {
  int32_t node = tree[index];
  while (node < 0) {
    EXPECT_GT(remaining, 0u) << "the code word ends inside the tree";
    if (remaining == 0) return -1;
    --remaining;
    index += ((code >> remaining) & 1) != 0 ? 1 - node : 1;
    node = tree[index];
  }
  EXPECT_EQ(remaining, 0u) << "the leaf is reached before the code word ends";
  return node;
}

void CheckLookupAgainstCodes(const HuffmanLookup& t, const HuffmanCodeList& l, bool pairs, const char* what) {
  ASSERT_NE(t.entries, nullptr) << what;
  uint32_t longest = 0;
  for (uint32_t i = 0; i < l.count; ++i) longest = std::max<uint32_t>(longest, l.lengths[i]);
  EXPECT_EQ(t.bits, std::min(longest, 10u)) << what;
  std::vector<bool> covered(size_t{1} << t.bits, false);
  for (uint32_t i = 0; i < l.count; ++i) {
    const uint32_t len = l.lengths[i];
    const uint32_t code = l.codes[i];
    const uint32_t leaf = pairs ? (i / l.width) * 16 + i % l.width : i;
    if (len <= t.bits) {
      // Every index that starts with the code word holds the leaf and the length.
      const uint32_t first = code << (t.bits - len);
      for (uint32_t v = first; v < first + (1u << (t.bits - len)); ++v) {
        ASSERT_FALSE(covered[v]) << what << ": index " << v << " claimed twice";
        covered[v] = true;
        ASSERT_EQ(t.entries[v], leaf | (len << 8)) << what << " value " << i;
      }
    } else {
      // The index is the code word's head; the walk from its node reads the rest.
      const uint32_t v = code >> (len - t.bits);
      covered[v] = true;
      const uint16_t e = t.entries[v];
      ASSERT_NE(e & kLookupContinue, 0) << what << " value " << i;
      const uint32_t rest = len - t.bits;
      EXPECT_EQ(WalkFrom(t.tree, e & 0x7FFF, code & ((1u << rest) - 1), rest), static_cast<int32_t>(leaf))
          << what << " value " << i;
    }
  }
  for (size_t v = 0; v < covered.size(); ++v) EXPECT_TRUE(covered[v]) << what << ": index " << v << " unused";
}

TEST(HuffmanLookup, EveryCodeWordGivesItsValueAndLength) {
  for (uint32_t t : kCodedTables) {
    const std::string what = "table " + std::to_string(t);
    CheckLookupAgainstCodes(kPairLookup[t], PairCodeList(t), true, what.c_str());
  }
  CheckLookupAgainstCodes(kQuadLookup[0], QuadCodeList(0), false, "count1 A");
  CheckLookupAgainstCodes(kQuadLookup[1], QuadCodeList(1), false, "count1 B");
}

TEST(HuffmanLookup, InStepWithTheTreeTables) {
  for (uint32_t t = 0; t < 32; ++t) {
    EXPECT_EQ(kPairLookup[t].tree, kPairTables[t].tree) << t;
    EXPECT_EQ(kPairLookup[t].linbits, kPairTables[t].linbits) << t;
  }
  for (uint32_t t = 0; t < 2; ++t) EXPECT_EQ(kQuadLookup[t].tree, kQuadTables[t].tree) << t;
  // Tables without code words read nothing: an index of no bits.
  for (uint32_t t : {0u, 4u, 14u}) {
    EXPECT_EQ(kPairLookup[t].bits, 0u) << t;
    EXPECT_EQ(kPairLookup[t].entries[0], 0u) << t;
  }
  // Shared trees share one table.
  for (uint32_t t = 17; t < 24; ++t) EXPECT_EQ(kPairLookup[t].entries, kPairLookup[16].entries) << t;
  for (uint32_t t = 25; t < 32; ++t) EXPECT_EQ(kPairLookup[t].entries, kPairLookup[24].entries) << t;
}

using kxtest::FillRingBits;
using kxtest::RandomHuffmanGranule;

void ExpectSameDecoding(const std::vector<uint8_t>& ring, const GranuleInfo& gi, uint32_t part2Start, uint32_t pos,
                        uint32_t rate, int trial) {
  uint32_t fast[576];
  uint32_t slow[576];
  std::fill(fast, fast + 576, 0xDEADu);
  std::fill(slow, slow + 576, 0xDEADu);
  uint32_t fastPos = pos;
  uint32_t slowPos = pos;
  const int32_t nFast = DecodeSpectrum(fast, ring.data(), fastPos, gi, part2Start, rate);
  const int32_t nSlow = DecodeSpectrumByTree(slow, ring.data(), slowPos, gi, part2Start, rate);
  ASSERT_EQ(nFast, nSlow) << "trial " << trial;
  ASSERT_EQ(fastPos, slowPos) << "trial " << trial;
  for (int i = 0; i < 576; ++i) ASSERT_EQ(fast[i], slow[i]) << "trial " << trial << " line " << i;
}

TEST(HuffmanLookup, FastDecodingEqualsTheTreeWalkOnRandomData) {
  std::mt19937 gen(20240611);
  std::vector<uint8_t> ring(4096);
  const double densities[] = {0.5, 0.2, 0.05, 0.8, 0.95};
  int trial = 0;
  for (double density : densities) {
    FillRingBits(ring, gen, density);
    for (int k = 0; k < 400; ++k, ++trial) {
      const GranuleInfo gi = RandomHuffmanGranule(gen);
      // Positions anywhere in the ring, also large bit counts as the driver keeps
      // them (never masked) and positions just before the ring's end.
      uint32_t part2Start = gen() % (4096 * 8 * 2);
      if (k % 4 == 0) part2Start = 4096 * 8 - 1 - gen() % 600;
      const uint32_t pos = part2Start + gen() % 64;  // after some scale-factor bits
      ExpectSameDecoding(ring, gi, part2Start, pos, gen() % 9, trial);
    }
  }
}

TEST(HuffmanLookup, FastDecodingEqualsTheTreeWalkForEveryTableAndBothCount1Tables) {
  std::mt19937 gen(7);
  std::vector<uint8_t> ring(4096);
  int trial = 0;
  for (double density : {0.5, 0.1, 0.9}) {
    FillRingBits(ring, gen, density);
    for (uint32_t table = 0; table < 32; ++table) {
      for (uint32_t quad = 0; quad < 2; ++quad, ++trial) {
        GranuleInfo gi{};
        gi.big_value_count = 576;
        gi.table_select[0] = gi.table_select[1] = gi.table_select[2] = table;
        gi.region0_count = 15;
        gi.region1_count = 7;
        gi.count1table_select = quad;
        gi.part2_3_length = 4095;
        ExpectSameDecoding(ring, gi, 100, 100, 0, trial);
        // No big values: the whole budget is count1 quadruples.
        gi.big_value_count = 0;
        ExpectSameDecoding(ring, gi, 4096 * 8 - 200, 4096 * 8 - 200, 0, trial);
      }
    }
  }
}

}  // namespace
}  // namespace kxmp3
