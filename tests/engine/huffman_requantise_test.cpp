// Tests of the one-pass Huffman decoding and requantisation. First the look-up
// tables: every code word of every table without linbits, followed by every choice of
// its sign bits and by any further bits, gives its values with their signs and the
// bits used (or the slow mark where the word and its signs are longer than the
// index); every code word of a table with linbits gives its length, magnitudes, signs
// and escapes (or the slow mark). Then DecodeGranuleSpectrum is held to the bit-by-bit
// tree walk of DecodeSpectrumByTree followed by Requantise, on random data and random
// side information (valid or damaged): the same 576 doubles bit for bit, the same
// bounds, count and bit position, for long, short and mixed blocks at every rate.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "engine/huffman_requantise.h"
#include "engine/huffman.h"
#include "engine/requantise.h"
#include "engine/tables.h"
#include "huffman_test_util.h"
#include "support/engine/engine_harness.h"

namespace kxmp3 {
namespace {

const uint32_t kCodedTables[] = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24};

TEST(HuffmanSignedLookup, EveryCodeWordWithEverySignGivesItsCodedValues) {
  for (uint32_t t : kCodedTables) {
    if (kPairTables[t].linbits != 0) continue;
    const HuffmanCodeList l = PairCodeList(t);
    const HuffmanSignedLookup& s = kPairSignedLookup[t];
    uint32_t longest = 0;
    for (uint32_t i = 0; i < l.count; ++i) longest = std::max<uint32_t>(longest, l.lengths[i]);
    ASSERT_EQ(s.bits, std::min(longest + 2, 11u)) << t;
    uint32_t fast = 0;
    for (uint32_t i = 0; i < l.count; ++i) {
      const uint32_t x = i / l.width, y = i % l.width;
      const uint32_t signs = (x != 0) + (y != 0);
      const uint32_t length = l.lengths[i] + signs;
      for (uint32_t sign = 0; sign < (1u << signs); ++sign) {
        const uint64_t word = (uint64_t{l.codes[i]} << signs) | sign;
        // The index: the word, then ones and zeros alternately.
        uint32_t index;
        if (length <= s.bits) {
          const uint32_t pad = s.bits - length;
          index = static_cast<uint32_t>(word << pad) | (0x2AAAu & ((1u << pad) - 1));
        } else {
          index = static_cast<uint32_t>(word >> (length - s.bits));
        }
        const uint16_t e = s.entries[index];
        if (length > s.bits) {
          EXPECT_EQ(e, kSignedSlow) << "table " << t << " value " << i;
          continue;
        }
        ++fast;
        const uint32_t signX = x != 0 ? (sign >> (signs - 1)) & 1 : 0;
        const uint32_t signY = y != 0 ? sign & 1 : 0;
        ASSERT_NE(e & kSignedSlow, kSignedSlow) << "table " << t << " value " << i;
        EXPECT_EQ(e & 31u, length) << "table " << t << " value " << i;
        EXPECT_EQ((e >> 5) & 31u, x != 0 ? 2 * x + signX : 0) << "table " << t << " value " << i;
        EXPECT_EQ(uint32_t{e} >> 10, y != 0 ? 2 * y + signY : 0) << "table " << t << " value " << i;
      }
    }
    EXPECT_GT(fast, 0u) << t;
  }
  // No code words, or linbits (kLinbitsPairLookup instead): no signed entries.
  for (uint32_t t : {0u, 4u, 14u}) EXPECT_EQ(kPairSignedLookup[t].bits, 0u) << t;
  for (uint32_t t = 16; t < 32; ++t) EXPECT_EQ(kPairSignedLookup[t].bits, 0u) << t;
}

// Every code word of a table with linbits, followed by any bits, gives its length
// with one bit per non-zero value, its magnitudes twice, which values take a sign and
// which an extension; the heads of longer code words give the slow mark (used 0).
TEST(HuffmanLinbitsLookup, EveryCodeWordGivesItsFields) {
  for (uint32_t t = 0; t < 32; ++t) {
    if (kPairTables[t].linbits == 0) {
      EXPECT_EQ(kLinbitsPairLookup[t], nullptr) << t;
      continue;
    }
    const LinbitsPairEntry* entries = kLinbitsPairLookup[t];
    ASSERT_NE(entries, nullptr) << t;
    EXPECT_EQ(entries, kLinbitsPairLookup[t < 24 ? 16 : 24]) << t;
    const HuffmanCodeList l = PairCodeList(t);
    constexpr uint32_t bits = kLinbitsIndexBits;
    std::vector<bool> covered(size_t{1} << bits, false);
    uint32_t longer = 0;
    for (uint32_t i = 0; i < l.count; ++i) {
      const uint32_t x = i / l.width, y = i % l.width;
      const uint32_t length = l.lengths[i];
      if (length > bits) {
        ++longer;
        const uint32_t head = uint32_t{l.codes[i]} >> (length - bits);
        EXPECT_EQ(entries[head].used, 0u) << "table " << t << " value " << i;
        covered[head] = true;
        continue;
      }
      const uint32_t first = uint32_t{l.codes[i]} << (bits - length);
      for (uint32_t v = first; v < first + (1u << (bits - length)); ++v) {
        ASSERT_FALSE(covered[v]) << "table " << t << ": index " << v << " claimed twice";
        covered[v] = true;
        const LinbitsPairEntry& e = entries[v];
        EXPECT_EQ(e.used, length + (x != 0) + (y != 0)) << "table " << t << " value " << i;
        EXPECT_EQ(e.escapeX, x == 15 ? 0xFF : 0) << "table " << t << " value " << i;
        EXPECT_EQ(e.escapeY, y == 15 ? 0xFF : 0) << "table " << t << " value " << i;
        EXPECT_EQ(e.signX, x != 0 ? 1 : 0) << "table " << t << " value " << i;
        EXPECT_EQ(e.signY, y != 0 ? 1 : 0) << "table " << t << " value " << i;
        EXPECT_EQ(e.codedX, 2 * x) << "table " << t << " value " << i;
        EXPECT_EQ(e.codedY, 2 * y) << "table " << t << " value " << i;
      }
    }
    EXPECT_GT(longer, 0u) << t;
    for (size_t v = 0; v < covered.size(); ++v) EXPECT_TRUE(covered[v]) << "table " << t << ": index " << v;
  }
}

TEST(HuffmanSignedLookup, EveryCount1CodeWordWithEverySignGivesItsFourValues) {
  for (uint32_t t = 0; t < 2; ++t) {
    const HuffmanCodeList l = QuadCodeList(t);
    const HuffmanSignedLookup& s = kQuadSignedLookup[t];
    ASSERT_EQ(s.bits, t == 0 ? 10u : 8u);
    std::vector<bool> covered(size_t{1} << s.bits, false);
    for (uint32_t flags = 0; flags < 16; ++flags) {
      const uint32_t signs = static_cast<uint32_t>(__builtin_popcount(flags));
      const uint32_t length = l.lengths[flags] + signs;
      for (uint32_t sign = 0; sign < (1u << signs); ++sign) {
        const uint32_t first = ((uint32_t{l.codes[flags]} << signs) | sign) << (s.bits - length);
        for (uint32_t v = first; v < first + (1u << (s.bits - length)); ++v) {
          covered[v] = true;
          const uint16_t e = s.entries[v];
          ASSERT_EQ(e & 15u, length) << t << " " << flags;
          uint32_t next = signs;
          for (uint32_t k = 0; k < 4; ++k) {
            uint32_t expected = 0;
            if ((flags >> (3 - k)) & 1) expected = 2 + ((sign >> --next) & 1);
            EXPECT_EQ((e >> (4 + 2 * k)) & 3u, expected) << t << " " << flags << " " << sign << " " << k;
          }
        }
      }
    }
    for (size_t v = 0; v < covered.size(); ++v) EXPECT_TRUE(covered[v]) << t << ": index " << v;
  }
}

// Each entry of a count1 run table is what the one-quadruple table gives taken entry
// by entry from the same index: its zero quadruples, then its last quadruple, all
// within the index, with no further zero quadruple taken where a third could still
// follow within it.
TEST(HuffmanSignedLookup, Count1RunEntriesAreZeroQuadruplesThenOneQuadruple) {
  for (uint32_t t = 0; t < 2; ++t) {
    const HuffmanSignedLookup& one = kQuadSignedLookup[t];
    const HuffmanSignedLookup& runs = kQuadRunLookup[t];
    ASSERT_EQ(runs.bits, one.bits);
    const uint32_t mask = (1u << one.bits) - 1;
    uint32_t withZeros = 0;
    for (uint32_t v = 0; v <= mask; ++v) {
      const uint16_t e = runs.entries[v];
      const uint32_t zeros = e >> 12;
      ASSERT_LE(zeros, 3u);
      uint32_t used = 0;
      for (uint32_t z = 0; z < zeros; ++z) {
        const uint16_t q = one.entries[(v << used) & mask];
        ASSERT_EQ(q >> 4, 0u) << t << " " << v << ": quadruple " << z << " is not zero";
        used += q & 15u;
      }
      const uint16_t last = one.entries[(v << used) & mask];
      used += last & 15u;
      ASSERT_LE(used, one.bits) << t << " " << v;
      EXPECT_EQ(e & 15u, used) << t << " " << v;
      EXPECT_EQ(e & 0xFF0u, last & 0xFF0u) << t << " " << v;
      if (zeros < 3 && (last >> 4) == 0) {
        // A zero last quadruple: the next one does not fit within the index.
        const uint16_t next = one.entries[(v << used) & mask];
        EXPECT_GT(used + (next & 15u), one.bits) << t << " " << v;
      }
      if (zeros != 0) ++withZeros;
    }
    EXPECT_GT(withZeros, 0u) << t;
  }
}

using kxtest::FillRingBits;

// Random side information (valid or damaged) with random gains and scale-factor
// multiplier for the requantisation.
GranuleInfo RandomGranule(std::mt19937& gen) {
  GranuleInfo gi = kxtest::RandomHuffmanGranule(gen);
  gi.preflag = gen() % 2;
  gi.scalefac_multiplier = 1 + gen() % 2;
  gi.global_gain_ref = kGainOrigin - gen() % 256 + (gen() % 2) * 2;
  for (uint32_t& r : gi.subblock_gain_ref) r = gi.global_gain_ref + 8 * (gen() % 8);
  return gi;
}

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(double)) == 0; }

void ExpectSameAsTwoPasses(const std::vector<uint8_t>& ring, const GranuleInfo& gi, const ScaleFactors& sf,
                           uint32_t part2Start, uint32_t pos, uint32_t rate, int trial) {
  uint32_t coded[576];
  alignas(16) double reference[576];
  alignas(16) double onePass[576];
  std::fill(reference, reference + 576, 1234.5);
  std::fill(onePass, onePass + 576, -777.25);
  GranuleInfo giRef = gi;
  GranuleInfo giOne = gi;
  uint32_t refPos = pos;
  uint32_t onePos = pos;
  const int32_t nRef = DecodeSpectrumByTree(coded, ring.data(), refPos, giRef, part2Start, rate);
  const int32_t nOne = DecodeGranuleSpectrum(onePass, ring.data(), onePos, giOne, sf, part2Start, rate);
  ASSERT_EQ(nOne, nRef) << "trial " << trial;
  ASSERT_EQ(onePos, refPos) << "trial " << trial;
  if (nRef < 0) return;
  Requantise(coded, reference, sf, giRef, rate, nRef);
  for (int i = 0; i < 576; ++i) {
    ASSERT_TRUE(SameBits(onePass[i], reference[i]))
        << "trial " << trial << " line " << i << ": " << onePass[i] << " vs " << reference[i];
  }
  EXPECT_EQ(giOne.is_start_long, giRef.is_start_long) << "trial " << trial;
  for (int w = 0; w < 3; ++w) EXPECT_EQ(giOne.is_start_short[w], giRef.is_start_short[w]) << "trial " << trial;
  EXPECT_EQ(giOne.active_subbands, giRef.active_subbands) << "trial " << trial;
}

ScaleFactors RandomScaleFactors(std::mt19937& gen) {
  ScaleFactors sf{};
  for (uint32_t& v : sf.sf) v = gen() % 16;
  return sf;
}

TEST(DecodeGranuleSpectrum, EqualsTreeWalkAndRequantisationOnRandomData) {
  kxtest::EnsureDecoderTables();
  std::mt19937 gen(20240917);
  std::vector<uint8_t> ring(4096);
  const double densities[] = {0.5, 0.2, 0.05, 0.8, 0.95, 0.35};
  int trial = 0;
  for (double density : densities) {
    FillRingBits(ring, gen, density);
    for (int k = 0; k < 600; ++k, ++trial) {
      const GranuleInfo gi = RandomGranule(gen);
      uint32_t part2Start = gen() % (4096 * 8 * 2);
      if (k % 4 == 0) part2Start = 4096 * 8 - 1 - gen() % 600;
      const uint32_t pos = part2Start + gen() % 64;
      ExpectSameAsTwoPasses(ring, gi, RandomScaleFactors(gen), part2Start, pos, gen() % 9, trial);
    }
  }
}

TEST(DecodeGranuleSpectrum, EqualsTreeWalkAndRequantisationForEveryTableBlockKindAndRate) {
  kxtest::EnsureDecoderTables();
  std::mt19937 gen(11);
  std::vector<uint8_t> ring(4096);
  int trial = 0;
  for (double density : {0.5, 0.1, 0.9}) {
    FillRingBits(ring, gen, density);
    for (uint32_t table = 0; table < 32; ++table) {
      for (uint32_t kind = 0; kind < 4; ++kind, ++trial) {
        GranuleInfo gi = RandomGranule(gen);
        gi.block_type = kind == 3 ? 2 : kind;
        gi.mixed_block_flag = kind == 3 ? 1 : 0;
        gi.table_select[0] = gi.table_select[1] = gi.table_select[2] = table;
        gi.count1table_select = trial % 2;
        gi.part2_3_length = 4095;
        const uint32_t rate = trial % 9;
        for (uint32_t big : {576u, 300u, 36u, 0u}) {
          gi.big_value_count = big;
          ExpectSameAsTwoPasses(ring, gi, RandomScaleFactors(gen), 100, 100 + trial % 7, rate, trial);
          ExpectSameAsTwoPasses(ring, gi, RandomScaleFactors(gen), 4096 * 8 - 200, 4096 * 8 - 200, rate, trial);
        }
      }
    }
  }
}

// Short budgets: the count1 part ends early, mid-band and mid-quadruple.
TEST(DecodeGranuleSpectrum, EqualsTreeWalkAndRequantisationWithShortBudgets) {
  kxtest::EnsureDecoderTables();
  std::mt19937 gen(5);
  std::vector<uint8_t> ring(4096);
  FillRingBits(ring, gen, 0.3);
  for (int trial = 0; trial < 3000; ++trial) {
    GranuleInfo gi = RandomGranule(gen);
    gi.big_value_count = 2 * (gen() % 120);
    gi.part2_3_length = gen() % 900;
    const uint32_t part2Start = gen() % (4096 * 8);
    ExpectSameAsTwoPasses(ring, gi, RandomScaleFactors(gen), part2Start, part2Start + gen() % 40, gen() % 9, trial);
  }
}

}  // namespace
}  // namespace kxmp3
