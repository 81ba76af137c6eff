// Look-up tables over the Huffman trees, so that decoding takes a code word in one
// step instead of one step per bit. Built from the trees themselves when the module
// is loaded: entry v is the tree walk on the bits of v, stopped at a leaf or after
// `bits` bits (see huffman.h). Trees that tables share (0/4/14, 16..23, 24..31) share
// one look-up table. huffman_lookup_test.cpp walks every code word through both.
#include <cstddef>

#include "huffman.h"

namespace kxmp3 {

namespace {

constexpr uint32_t kMaxLookupBits = 10;
// Room for every distinct tree's table: 15 pair trees and 2 count1 trees of at most
// 2^10 entries each, and the single-leaf tree's one entry.
constexpr size_t kStorageEntries = 17 * (size_t{1} << kMaxLookupBits) + 1;

struct LookupSet {
  HuffmanLookup pair[32];
  HuffmanLookup quad[2];
  uint16_t storage[kStorageEntries];
  size_t used = 0;
};

// Depth of the deepest leaf: the longest code word.
uint32_t TreeDepth(const int16_t* tree, int32_t index) {
  const int32_t node = tree[index];
  if (node >= 0) return 0;
  const uint32_t zero = TreeDepth(tree, index + 1);
  const uint32_t one = TreeDepth(tree, index + 1 - node);
  return 1 + (zero > one ? zero : one);
}

HuffmanLookup Build(LookupSet& set, const HuffmanTable& table) {
  // A tree already seen gives its table again.
  for (const HuffmanLookup& seen : set.pair) {
    if (seen.tree == table.tree && seen.entries != nullptr) return {seen.entries, seen.bits, table.tree, table.linbits};
  }
  uint32_t bits = TreeDepth(table.tree, 0);
  if (bits > kMaxLookupBits) bits = kMaxLookupBits;
  uint16_t* entries = set.storage + set.used;
  set.used += size_t{1} << bits;
  for (uint32_t v = 0; v < (1u << bits); ++v) {
    int32_t index = 0;
    int32_t node = table.tree[0];
    uint32_t used = 0;
    while (node < 0 && used < bits) {
      const uint32_t bit = (v >> (bits - 1 - used)) & 1;
      index += bit != 0 ? 1 - node : 1;
      ++used;
      node = table.tree[index];
    }
    entries[v] = node >= 0 ? static_cast<uint16_t>(node | (used << 8))
                           : static_cast<uint16_t>(kLookupContinue | static_cast<uint32_t>(index));
  }
  return {entries, bits, table.tree, table.linbits};
}

LookupSet gLookups;  // zero until the start-up initialiser below fills it

bool BuildAll() {
  for (uint32_t t = 0; t < 32; ++t) gLookups.pair[t] = Build(gLookups, kPairTables[t]);
  for (uint32_t t = 0; t < 2; ++t) gLookups.quad[t] = Build(gLookups, kQuadTables[t]);
  return true;
}

// The trees are constant data, so this start-up initialiser can read them.
const bool gLookupsBuilt = BuildAll();

}  // namespace

const HuffmanLookup* const kPairLookup = gLookups.pair;
const HuffmanLookup* const kQuadLookup = gLookups.quad;

}  // namespace kxmp3
