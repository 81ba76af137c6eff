// Look-up tables over the Huffman trees, so that decoding takes a code word in one
// step instead of one step per bit. Built from the trees themselves when the module
// is loaded: entry v is the tree walk on the bits of v, stopped at a leaf or after
// `bits` bits (see huffman.h). Trees that tables share (0/4/14, 16..23, 24..31) share
// one look-up table. huffman_lookup_test.cpp walks every code word through both.
// Beside them, the signed tables that give a whole pair or count1 quadruple with its
// signs in one access, built from the code lists.
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

// ---- Signed look-up tables: a pair or quadruple with its signs in one access ----

constexpr uint32_t kMaxSignedBits = 11;
// Room for every distinct code list's table: 13 pair lists without linbits and 2
// count1 lists of at most 2^11 entries each, and one entry for the tables without
// code words.
constexpr size_t kSignedStorageEntries = 15 * (size_t{1} << kMaxSignedBits) + 1;

struct SignedSet {
  HuffmanSignedLookup pair[32];
  HuffmanSignedLookup quad[2];
  const uint16_t* listOf[32];  // the code list each pair table was built from
  uint16_t storage[kSignedStorageEntries];
  size_t used = 0;
};

uint32_t LongestCode(const HuffmanCodeList& l) {
  uint32_t longest = 0;
  for (uint32_t i = 0; i < l.count; ++i) longest = l.lengths[i] > longest ? l.lengths[i] : longest;
  return longest;
}

// Writes `entry` at every index that starts with the `length` bits of `prefix`.
void Claim(uint16_t* entries, uint32_t bits, uint32_t prefix, uint32_t length, uint16_t entry) {
  const uint32_t first = prefix << (bits - length);
  for (uint32_t v = first; v < first + (1u << (bits - length)); ++v) entries[v] = entry;
}

HuffmanSignedLookup BuildSignedPair(SignedSet& set, uint32_t table) {
  const HuffmanCodeList l = PairCodeList(table);
  if (l.count == 0 || kPairTables[table].linbits != 0) {
    // No code words: (0, 0) without reading a bit (decoders test bits == 0 first).
    // Tables with linbits: kLinbitsPairLookup instead.
    return {set.storage + kSignedStorageEntries - 1, 0};
  }
  for (uint32_t t = 0; t < table; ++t) {
    if (set.listOf[t] == l.codes) return set.pair[t];
  }
  set.listOf[table] = l.codes;
  const uint32_t longest = LongestCode(l) + 2;
  const uint32_t bits = longest < kMaxSignedBits ? longest : kMaxSignedBits;
  uint16_t* entries = set.storage + set.used;
  set.used += size_t{1} << bits;
  for (uint32_t v = 0; v < (1u << bits); ++v) entries[v] = kSignedSlow;
  for (uint32_t i = 0; i < l.count; ++i) {
    const uint32_t x = i / l.width;
    const uint32_t y = i % l.width;
    const uint32_t signs = (x != 0 ? 1u : 0u) + (y != 0 ? 1u : 0u);
    const uint32_t length = l.lengths[i] + signs;
    if (length > bits) continue;
    for (uint32_t s = 0; s < (1u << signs); ++s) {
      // The sign of x (when x is not 0) comes first, then the sign of y.
      const uint32_t signX = x != 0 ? (s >> (signs - 1)) & 1 : 0;
      const uint32_t signY = y != 0 ? s & 1 : 0;
      const uint32_t codedX = x != 0 ? 2 * x + signX : 0;
      const uint32_t codedY = y != 0 ? 2 * y + signY : 0;
      Claim(entries, bits, (uint32_t{l.codes[i]} << signs) | s, length,
            static_cast<uint16_t>(length | (codedX << 5) | (codedY << 10)));
    }
  }
  return {entries, bits};
}

HuffmanSignedLookup BuildSignedQuad(SignedSet& set, uint32_t table) {
  const HuffmanCodeList l = QuadCodeList(table);
  const uint32_t bits = LongestCode(l) + 4;
  uint16_t* entries = set.storage + set.used;
  set.used += size_t{1} << bits;
  for (uint32_t v = 0; v < (1u << bits); ++v) entries[v] = kSignedSlow;
  for (uint32_t flags = 0; flags < 16; ++flags) {
    const uint32_t signs = static_cast<uint32_t>(__builtin_popcount(flags));
    const uint32_t length = l.lengths[flags] + signs;
    for (uint32_t s = 0; s < (1u << signs); ++s) {
      // Signs in the order v, w, x, y of the values whose flag is set.
      uint32_t entry = length;
      uint32_t next = signs;
      for (uint32_t k = 0; k < 4; ++k) {
        if (((flags >> (3 - k)) & 1) == 0) continue;
        --next;
        entry |= (2 + ((s >> next) & 1)) << (4 + 2 * k);
      }
      Claim(entries, bits, (uint32_t{l.codes[flags]} << signs) | s, length, static_cast<uint16_t>(entry));
    }
  }
  return {entries, bits};
}

SignedSet gSigned;  // zero until the start-up initialiser below fills it

bool BuildAllSigned() {
  gSigned.storage[kSignedStorageEntries - 1] = 0;
  for (uint32_t t = 0; t < 32; ++t) gSigned.pair[t] = BuildSignedPair(gSigned, t);
  for (uint32_t t = 0; t < 2; ++t) gSigned.quad[t] = BuildSignedQuad(gSigned, t);
  return true;
}

// The code lists are constant data, so this start-up initialiser can read them.
const bool gSignedBuilt = BuildAllSigned();

// ---- Pairs with linbits, field by field ----

struct LinbitsSet {
  const LinbitsPairEntry* pair[32];
  LinbitsPairEntry storage[2][1u << kLinbitsIndexBits];  // the code lists of tables 16-23 and 24-31
};

// Every index that starts with a code word gets its entry; the rest (the heads of
// longer code words) stay zero, that is `used` 0.
void BuildLinbitsPairs(LinbitsPairEntry* entries, const HuffmanCodeList& l) {
  constexpr uint32_t bits = kLinbitsIndexBits;
  for (uint32_t v = 0; v < (1u << bits); ++v) entries[v] = LinbitsPairEntry{};
  for (uint32_t i = 0; i < l.count; ++i) {
    const uint32_t length = l.lengths[i];
    if (length > bits) continue;
    const uint32_t x = i / l.width;
    const uint32_t y = i % l.width;
    LinbitsPairEntry e{};
    e.signX = x != 0 ? 1 : 0;
    e.signY = y != 0 ? 1 : 0;
    e.used = static_cast<uint8_t>(length + e.signX + e.signY);
    e.escapeX = x == 15 ? 0xFF : 0;
    e.escapeY = y == 15 ? 0xFF : 0;
    e.codedX = static_cast<uint8_t>(2 * x);
    e.codedY = static_cast<uint8_t>(2 * y);
    const uint32_t first = uint32_t{l.codes[i]} << (bits - length);
    for (uint32_t v = first; v < first + (1u << (bits - length)); ++v) entries[v] = e;
  }
}

LinbitsSet gLinbits;  // zero until the start-up initialiser below fills it

bool BuildAllLinbits() {
  BuildLinbitsPairs(gLinbits.storage[0], PairCodeList(16));
  BuildLinbitsPairs(gLinbits.storage[1], PairCodeList(24));
  for (uint32_t t = 16; t < 32; ++t) gLinbits.pair[t] = gLinbits.storage[t < 24 ? 0 : 1];
  return true;
}

const bool gLinbitsBuilt = BuildAllLinbits();

// ---- Count1 runs: the zero quadruples before a quadruple, in the same access ----

struct RunSet {
  HuffmanSignedLookup quad[2];
  uint16_t storage[2][1u << 10];
};

// From the one-quadruple table: at each index, quadruples are taken one after the
// other while the one taken is (0, 0, 0, 0), fewer than three have been taken and the
// next lies wholly within the index; the last one taken is the entry's quadruple.
HuffmanSignedLookup BuildRunQuad(RunSet& set, uint32_t table) {
  const HuffmanSignedLookup& one = gSigned.quad[table];
  uint16_t* entries = set.storage[table];
  const uint32_t mask = (1u << one.bits) - 1;
  for (uint32_t v = 0; v <= mask; ++v) {
    uint32_t used = 0;
    uint32_t zeros = 0;
    uint32_t entry = one.entries[v];
    while (zeros < 3 && (entry >> 4) == 0) {
      const uint32_t next = one.entries[(v << (used + (entry & 15))) & mask];
      if (used + (entry & 15) + (next & 15) > one.bits) break;
      used += entry & 15;
      ++zeros;
      entry = next;
    }
    entries[v] = static_cast<uint16_t>(((used + (entry & 15)) | (entry & 0xFF0)) | (zeros << 12));
  }
  return {entries, one.bits};
}

RunSet gRuns;  // zero until the start-up initialiser below fills it

bool BuildAllRuns() {
  for (uint32_t t = 0; t < 2; ++t) gRuns.quad[t] = BuildRunQuad(gRuns, t);
  return true;
}

// After gSignedBuilt: initialisers of one file run in their order.
const bool gRunsBuilt = BuildAllRuns();

}  // namespace

const HuffmanLookup* const kPairLookup = gLookups.pair;
const HuffmanLookup* const kQuadLookup = gLookups.quad;
const HuffmanSignedLookup* const kPairSignedLookup = gSigned.pair;
const HuffmanSignedLookup* const kQuadSignedLookup = gSigned.quad;
const HuffmanSignedLookup* const kQuadRunLookup = gRuns.quad;
const LinbitsPairEntry* const* const kLinbitsPairLookup = gLinbits.pair;

}  // namespace kxmp3
