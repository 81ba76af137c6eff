// Huffman decoding of a granule-channel's spectral values: the bits after its scale factors.
//
// Trees: arrays of signed 16-bit nodes laid out depth first. An internal node holds
// -k, k being the number of entries of its 0-branch; the 0-branch follows it
// directly and the 1-branch starts k + 1 entries after it. A leaf is >= 0: x * 16 + y
// for the pair tables, the flags v w x y in bits 3..0 for the count1 tables.
//
// Coded values: 2 x magnitude + sign (sign 1 = negative), 0 for zero.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

struct HuffmanTable {
  uint32_t linbits;
  const int16_t* tree;
  uint32_t treeSize;  // entries of the tree
};

// Pair tables by table_select (0..31) and count1 tables A and B by count1table_select.
extern const HuffmanTable kPairTables[32];
extern const HuffmanTable kQuadTables[2];

// The standard's code list behind a tree, as stored: per value (row-major x, y for
// pair tables, vwxy for count1 tables) its code word and length. `width` is the
// number of x (and y) values of a pair table (16 for count1 lists: one row).
struct HuffmanCodeList {
  const uint16_t* codes;
  const uint8_t* lengths;
  uint32_t count;
  uint32_t width;
};
// Code list of the tree used by table_select `table`; count 0 for the tables with no
// codes (0, 4, 14).
HuffmanCodeList PairCodeList(uint32_t table);
HuffmanCodeList QuadCodeList(uint32_t table);

// One pair through a table without linbits; writes out[0], out[1].
void DecodePair(const HuffmanTable& table, const uint8_t* reservoir, uint32_t& bitPos, uint32_t* out);
// One pair through a table with linbits: an x or y of 15 is extended by `linbits` bits.
void DecodePairLinbits(const HuffmanTable& table, const uint8_t* reservoir, uint32_t& bitPos, uint32_t linbits,
                       uint32_t* out);
// One quadruple through a count1 table; writes out[0..3].
void DecodeQuad(const HuffmanTable& table, const uint8_t* reservoir, uint32_t& bitPos, uint32_t* out);

// Look-up tables over the trees, for speed: entry v of a table holds the result of
// walking the tree on the `bits` bits of v (most significant first). A walk that
// reaches a leaf within them gives the leaf (bits 0-7) and the bits it used (bits
// 8-12); one that does not gives bit 15 set and the index of the internal node it
// stopped at (bits 0-14), from where the walk goes on bit by bit. So a look-up
// consumes exactly the bits, and yields exactly the leaf, that the walk would.
struct HuffmanLookup {
  const uint16_t* entries;  // 2^bits entries
  uint32_t bits;            // index width: the tree's longest code word, at most 10
  const int16_t* tree;      // the tree the entries were made from
  uint32_t linbits;
};
constexpr uint16_t kLookupContinue = 0x8000;

// By table_select and count1table_select, in step with kPairTables and kQuadTables;
// built before the module's first decoder runs.
extern const HuffmanLookup* const kPairLookup;
extern const HuffmanLookup* const kQuadLookup;

// Look-up tables that give a whole pair of a table without linbits, or a whole count1
// quadruple, with its signs in one access: entry v holds what decoding the `bits` bits
// of v (most significant first) yields when the code word and the sign bits that
// follow it all lie within them. Built from the code lists when the module is loaded.
//   Pair entry:  bits 0-4 the bits used (code word and signs), bits 5-9 and 10-14 the
//                coded values of x and y (2 x magnitude + sign); kSignedSlow instead
//                when the code word and its signs need more than `bits` bits: such a
//                pair is decoded through HuffmanLookup from the same position.
//   Quad entry:  bits 0-3 the bits used, then the coded values of v, w, x and y in
//                bits 4-5, 6-7, 8-9 and 10-11 (0, 2 or 3: magnitude 1 with its sign).
// Tables without code words, and the tables with linbits (which have
// kLinbitsPairLookup instead), have bits 0 and no entries of use.
struct HuffmanSignedLookup {
  const uint16_t* entries;  // 2^bits entries
  uint32_t bits;            // index width: the longest code word, + 2 signs (pairs) or
                            // + 4 (quads), at most 11
};
constexpr uint16_t kSignedSlow = 0x8000;

// By table_select and count1table_select, in step with kPairLookup and kQuadLookup.
extern const HuffmanSignedLookup* const kPairSignedLookup;
extern const HuffmanSignedLookup* const kQuadSignedLookup;

// Look-up tables of the pair tables with linbits, a pair's fields in bytes of their
// own, so that a decoder reads each with a load rather than a shift (the shifts of
// the extensions already keep the processor's shift units busy). Entry v describes
// the code word at the top of the kLinbitsIndexBits bits of v; after the code word
// come x's extension (of a 15) and sign (when not 0), then y's.
struct LinbitsPairEntry {
  uint8_t used;     // the code word's length plus one per non-zero value (the bits
                    // the pair takes but for its extensions); 0 when the code word is
                    // longer than the index: such a pair is decoded through
                    // HuffmanLookup from the same position
  uint8_t escapeX;  // 0xFF when x is 15 (linbits bits of extension follow), else 0
  uint8_t escapeY;
  uint8_t signX;    // 1 when x is not 0 (a sign bit follows), else 0
  uint8_t signY;
  uint8_t codedX;   // 2 x the magnitude of x in the code word
  uint8_t codedY;
  uint8_t unused;
};
// The index width: every table with linbits has code words longer than it.
constexpr uint32_t kLinbitsIndexBits = 11;

// By table_select: 2^kLinbitsIndexBits entries for each table with linbits (tables
// sharing a code list share them), null for the others.
extern const LinbitsPairEntry* const* const kLinbitsPairLookup;

// Count1 look-up tables that give up to three quadruples (0, 0, 0, 0) and the
// quadruple after them in one access, by count1table_select; the index width is that
// of kQuadSignedLookup's table. Entry v: bits 0-3 the bits used by all of them (at
// most the index width), bits 4-11 the values of the last quadruple as in a quad entry
// of kQuadSignedLookup, bits 12-13 the number of zero quadruples before it. Zero
// quadruples are taken while the next quadruple's code word and signs lie wholly
// within the index, so an entry uses no bit beyond it. (With table A the zero
// quadruple is one bit, and the upper lines of a low-rate stream are mostly zero
// quadruples.)
extern const HuffmanSignedLookup* const kQuadRunLookup;

// Decodes one granule-channel's big values and count1 part into `values` (576 coded
// values). `part2Start` is the bit position before the scale factors; the Huffman
// data ends at part2Start + part2_3_length, where the bit position is left whatever
// was consumed. Returns the count of values that may be non-zero (0..576; the rest
// are cleared) or -1.
// Uses the look-up tables; DecodeSpectrumByTree is the same decoding walking the
// trees bit by bit, kept as the reference the tests hold the fast one to. The decoder
// itself decodes and requantises in one pass (huffman_requantise.h), held by the tests
// to DecodeSpectrumByTree followed by Requantise.
int32_t DecodeSpectrum(uint32_t* values, const uint8_t* reservoir, uint32_t& bitPos, const GranuleInfo& gi,
                       uint32_t part2Start, uint32_t rateCode);
int32_t DecodeSpectrumByTree(uint32_t* values, const uint8_t* reservoir, uint32_t& bitPos, const GranuleInfo& gi,
                             uint32_t part2Start, uint32_t rateCode);

}  // namespace kxmp3
