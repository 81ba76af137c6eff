// One pass from a granule-channel's Huffman data to its requantised spectrum.
//
// The lines are grouped in runs that share one factor ("chunks"): the long bands, the
// windows of the short bands in their coded order (band by band, windows 0, 1, 2),
// or both in a mixed block, where at 8 kHz the lines between the two long subbands
// and short band 3 form a chunk of their own that stays silent. Every band width is
// even, so a pair of lines always lies in one chunk: a table made at load time names
// the chunk of every pair of lines for each sampling frequency and block kind, and
// each decoded value is multiplied by its chunk's factor as it is decoded, without a
// test of where a chunk ends. Each pair of big values of a table without linbits
// comes from the signed look-up table of its region (code word and signs in one
// access, huffman.h), each pair of a table with linbits from its byte-field table
// (the pair's whole length from one access, the extensions and signs read beside
// it); each count1 quadruple from its signed table too, and where the lines allow, a
// run of zero quadruples with the quadruple after it in one access (the upper lines
// of low-rate streams are mostly zero quadruples). The bit reader keeps at least 35 bits ahead and tops itself up
// after every code word without a branch. The non-zero bounds are found afterwards
// from the spectrum itself: a line is non-zero exactly when its coded value is (every
// factor is a positive normal number and every power at least 1).
//
// The values and bounds are those of DecodeSpectrum followed by Requantise: the same
// products of the same factors, and zeros (+0.0) wherever those leave a coded value
// of 0 or clear a line.
#include "huffman_requantise.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "band_tables.h"
#include "huffman_steps.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// ---- Chunk layouts: made once per sampling frequency and block kind ----

enum BlockKind : uint32_t { kLongBlock = 0, kShortBlock = 1, kMixedBlock = 2 };

// What sets a chunk's factor: a long band (its scale factor and pretab with the
// global gain), a window of a short band (its scale factor with that window's
// subblock gain), or nothing (the silent lines of a mixed block at 8 kHz).
constexpr uint8_t kLongChunk = 0;
constexpr uint8_t kShortChunk = 1;
constexpr uint8_t kSilentChunk = 2;

// At most 22 long bands, or 8 long bands, a silent chunk and 30 short windows, or 39
// short windows.
constexpr uint32_t kMaxChunks = 40;

struct ChunkLayout {
  uint32_t count;
  uint16_t end[kMaxChunks];       // the line after each chunk
  uint8_t kind[kMaxChunks];
  uint8_t band[kMaxChunks];       // long or short band
  uint8_t window[kMaxChunks];     // short windows: 0..2
  uint8_t scalefac[kMaxChunks];   // the scale factor's index
  uint8_t chunkOfPair[kLinesPerGranule / 2];
};

struct ChunkLayouts {
  ChunkLayout layout[9][3];  // [rate code][block kind]
};

void AddChunk(ChunkLayout& c, uint32_t end, uint8_t kind, uint32_t band, uint32_t window, uint32_t scalefac) {
  const uint32_t j = c.count++;
  c.end[j] = static_cast<uint16_t>(end);
  c.kind[j] = kind;
  c.band[j] = static_cast<uint8_t>(band);
  c.window[j] = static_cast<uint8_t>(window);
  c.scalefac[j] = static_cast<uint8_t>(scalefac);
}

// Long bands from band 0 until `limit` lines are covered; returns the line reached.
uint32_t LongChunks(ChunkLayout& c, const BandTable& bands, uint32_t limit) {
  uint32_t line = 0;
  for (uint32_t b = 0; line < limit && b < 22; ++b) {
    line += static_cast<uint32_t>(bands.longWidth[b]);
    AddChunk(c, line, kLongChunk, b, 0, b);
  }
  return line;
}

// Short bands from `firstBand` at `line`, three windows each, with the scale factor of
// band b, window w at sfBase + 3 (b - firstBand) + w.
void ShortChunks(ChunkLayout& c, const BandTable& bands, uint32_t firstBand, uint32_t line, uint32_t sfBase) {
  for (uint32_t b = firstBand; b < 13; ++b) {
    const uint32_t width = static_cast<uint32_t>(bands.shortWidth[b]);
    for (uint32_t w = 0; w < 3; ++w) {
      line += width;
      AddChunk(c, line, kShortChunk, b, w, sfBase + 3 * (b - firstBand) + w);
    }
  }
}

ChunkLayout MakeLayout(const BandTable& bands, BlockKind kind) {
  ChunkLayout c{};
  if (kind == kLongBlock) {
    LongChunks(c, bands, kLinesPerGranule);
  } else if (kind == kShortBlock) {
    ShortChunks(c, bands, 0, 0, 0);
  } else {
    // Two long subbands, then short bands from band 3 with their scale factors from
    // entry 8 on; lines between the two (at 8 kHz) stay silent.
    const uint32_t longEnd = LongChunks(c, bands, 36);
    const uint32_t shortStart = static_cast<uint32_t>(bands.shortStart3[3]);
    if (shortStart > longEnd) AddChunk(c, shortStart, kSilentChunk, 0, 0, 0);
    ShortChunks(c, bands, 3, shortStart, 8);
  }
  uint32_t line = 0;
  for (uint32_t j = 0; j < c.count; ++j) {
    for (; line < c.end[j]; line += 2) c.chunkOfPair[line / 2] = static_cast<uint8_t>(j);
  }
  return c;
}

ChunkLayouts MakeLayouts() {
  ChunkLayouts all{};
  for (uint32_t rate = 0; rate < 9; ++rate) {
    for (BlockKind kind : {kLongBlock, kShortBlock, kMixedBlock}) all.layout[rate][kind] = MakeLayout(kBandTables[rate], kind);
  }
  return all;
}

// The band tables are constant data, so this start-up initialiser can read them.
const ChunkLayouts gLayouts = MakeLayouts();

// The granule's factor of every chunk.
void ChunkFactors(const ChunkLayout& c, const ScaleFactors& sf, const GranuleInfo& gi, double* factor) {
  const uint8_t* pretab = kPretab[gi.preflag & 1];
  const uint32_t shift = gi.scalefac_multiplier;
  for (uint32_t j = 0; j < c.count; ++j) {
    const uint32_t s = sf.sf[c.scalefac[j]];
    if (c.kind[j] == kLongChunk) {
      factor[j] = gTables.gain[gi.global_gain_ref + ((s + pretab[c.band[j]]) << shift)];
    } else if (c.kind[j] == kShortChunk) {
      factor[j] = gTables.gain[gi.subblock_gain_ref[c.window[j]] + (s << shift)];
    } else {
      factor[j] = 0.0;  // silent: its lines are cleared afterwards
    }
  }
}

// The factors of a long block's chunks, which are its 22 bands in order, each with
// the scale factor of its own index: ChunkFactors without the layout's look-ups.
void LongBlockFactors(const ScaleFactors& sf, const GranuleInfo& gi, double* factor) {
  const uint8_t* pretab = kPretab[gi.preflag & 1];
  const uint32_t shift = gi.scalefac_multiplier;
  const uint32_t gain = gi.global_gain_ref;
  for (uint32_t j = 0; j < 22; ++j) factor[j] = gTables.gain[gain + ((sf.sf[j] + pretab[j]) << shift)];
}

// ---- The bit reader ----

// The bits from the read position on, left-aligned in `bits`, of which the top
// `count` are the ring's (the rest are zeros). TopUp fills the register below them
// from the next bytes of the ring without a branch on how many are needed: after it
// at least 56 bits are valid, and a step reads at most 21 bits between top-ups (a
// code word with its signs), so a look-up always finds its bits in place.
struct Reader {
  const uint8_t* ring;
  uint64_t bits;
  uint32_t count;
  uint32_t next;  // the byte after those in `bits` (a byte counter, masked when fetched)

  // The eight bytes from `byte` on, big-endian; wraps at the ring's end.
  uint64_t Load(uint32_t byte) const {
    const uint32_t b = byte & kRingMask;
    uint64_t word = 0;
    if (b <= kRingMask - 7) {
      std::memcpy(&word, ring + b, 8);
      return __builtin_bswap64(word);
    }
    for (uint32_t k = 0; k < 8; ++k) word = (word << 8) | ring[(b + k) & kRingMask];
    return word;
  }
  void Start(uint32_t pos) {
    const uint32_t shift = pos & 7;
    bits = Load(pos >> 3) << shift;
    // The eighth byte counts as not yet taken, so that count stays below 64.
    count = 56 - shift;
    next = (pos >> 3) + 7;
  }
  uint32_t Position() const { return next * 8 - count; }
  // The register topped up from the ring: at least 56 valid bits.
  uint64_t ToppedUp() const { return bits | (Load(next) >> count); }
  // Takes `n` bits from `topped` (ToppedUp() of this state).
  void Take(uint64_t topped, uint32_t n) {
    next += (63 - count) >> 3;
    count = (count | 56) - n;
    bits = topped << n;
  }
  void TopUp() { Take(ToppedUp(), 0); }
};

// A pair through the general look-up (a code word longer than the signed table's
// index), from the reader's position; the reader then starts anew after it.
inline void SlowPair(const HuffmanLookup& table, Reader& r, uint32_t& x, uint32_t& y) {
  BitCache c{r.ring, r.Position()};
  uint32_t v[2];
  if (table.linbits == 0) {
    LookupPair(table, c, v);
  } else {
    LookupPairLinbits(table, c, v);
  }
  x = v[0];
  y = v[1];
  r.Start(c.pos);
}

// Pairs of lines [line, end) through a table without linbits. A top-up leaves at
// least 56 bits and a pair of the signed table takes at most 11, so four pairs are
// decoded per top-up (a longer code word starts the reader anew).
void PairsPlain(const HuffmanSignedLookup& fast, const HuffmanLookup& table, Reader& r, double* spectrum,
                uint32_t line, uint32_t end, const uint8_t* chunkOfPair, const double* factor) {
  const double* power = gTables.power;
  const uint16_t* entries = fast.entries;
  const uint32_t shift = 64 - fast.bits;
  while (line < end) {
    r.TopUp();
    const uint32_t stop = end - line > 8 ? line + 8 : end;
    for (; line < stop; line += 2) {
      const uint32_t e = entries[r.bits >> shift];
      uint32_t x;
      uint32_t y;
      if ((e & kSignedSlow) == 0) {
        const uint32_t n = e & 31;
        r.bits <<= n;
        r.count -= n;
        x = (e >> 5) & 31;
        y = e >> 10;
      } else {
        SlowPair(table, r, x, y);
      }
      const double f = factor[chunkOfPair[line / 2]];
      spectrum[line] = f * power[x];
      spectrum[line + 1] = f * power[y];
    }
  }
}

// Masks of the low 0 to 15 bits, by width: a value's field after the code word (at
// most a 13-bit extension and a sign), cut out with a mask rather than a second shift.
constexpr uint32_t kLowBits[16] = {0, 1, 3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};

// Pairs of lines [line, end) through a table with linbits. The entry's fields give
// the pair's length (the linbits of each 15 added to it), so the next pair's look-up
// waits only for that sum; each value's field after the code word (extension and
// sign, sign alone, or nothing) is taken whole, counted back from the pair's end, and
// added to twice its magnitude. Fields are loaded and masked rather than shifted out:
// the processor has few units for shifts, and a shift by a register count costs two
// operations there. A pair may read 39 bits after its look-up (two 13-bit extensions
// and two signs), so the reader is topped up before each.
void PairsLinbits(const LinbitsPairEntry* entries, const HuffmanLookup& table, Reader& r, double* spectrum,
                  uint32_t line, uint32_t end, const uint8_t* chunkOfPair, const double* factor) {
  const double* power = gTables.power;
  constexpr uint32_t shift = 64 - kLinbitsIndexBits;
  const uint32_t linbits = table.linbits;
  for (; line < end; line += 2) {
    r.TopUp();
    const uint64_t bits = r.bits;
    const LinbitsPairEntry& p = entries[bits >> shift];
    uint32_t x;
    uint32_t y;
    if (p.used != 0) {
      const uint32_t extensionX = p.escapeX & linbits;
      const uint32_t extensionY = p.escapeY & linbits;
      const uint32_t n = p.used + extensionX + extensionY;
      const uint32_t widthY = extensionY + p.signY;
      y = p.codedY + static_cast<uint32_t>(bits >> (64 - n) & kLowBits[widthY]);
      x = p.codedX + static_cast<uint32_t>(bits >> (64 - n + widthY) & kLowBits[extensionX + p.signX]);
      r.Take(bits, n);
    } else {
      SlowPair(table, r, x, y);
    }
    const double f = factor[chunkOfPair[line / 2]];
    spectrum[line] = f * power[x];
    spectrum[line + 1] = f * power[y];
  }
}

// The two values of a count1 pair of lines by the pair's coded values (the first in
// bits 0-1 of the index, the second in bits 2-3): what the power table holds for the
// coded values 0 to 3 (0, -0, 1 and -1; -0 is never coded). One look-up gives both
// lines of a pair, multiplied by the pair's factor as one vector where there is SSE2.
alignas(16) constexpr double kCount1Pairs[16][2] = {
    {0.0, 0.0},  {-0.0, 0.0},  {1.0, 0.0},  {-1.0, 0.0},  {0.0, -0.0}, {-0.0, -0.0}, {1.0, -0.0}, {-1.0, -0.0},
    {0.0, 1.0},  {-0.0, 1.0},  {1.0, 1.0},  {-1.0, 1.0},  {0.0, -1.0}, {-0.0, -1.0}, {1.0, -1.0}, {-1.0, -1.0},
};

// The count1 pair of lines at `line` from its coded values (kCount1Pairs's index).
inline void Count1Pair(double* spectrum, uint32_t line, uint32_t coded, double factor) {
#if defined(__SSE2__)
  _mm_storeu_pd(spectrum + line, _mm_mul_pd(_mm_set1_pd(factor), _mm_load_pd(kCount1Pairs[coded])));
#else
  const double* values = kCount1Pairs[coded];
  spectrum[line] = factor * values[0];
  spectrum[line + 1] = factor * values[1];
#endif
}

// Twelve lines of +0.0 from `lines` on, as plain vector stores (the compiler makes a
// string store of a memset of this size, whose start-up costs more than the stores).
inline void ZeroTwelveLines(double* lines) {
#if defined(__SSE2__)
  const __m128d zero = _mm_setzero_pd();
  for (int i = 0; i < 12; i += 2) _mm_storeu_pd(lines + i, zero);
#else
  for (int i = 0; i < 12; ++i) lines[i] = 0.0;
#endif
}

// The lines of [from, to) that are not zero: any at all.
inline bool AnyNonZero(const double* spectrum, uint32_t from, uint32_t to) {
  for (uint32_t i = from; i < to; ++i) {
    if (spectrum[i] != 0.0) return true;
  }
  return false;
}

}  // namespace

int32_t DecodeGranuleSpectrum(double* spectrum, const uint8_t* reservoir, uint32_t& bitPos, GranuleInfo& gi,
                              const ScaleFactors& sf, uint32_t part2Start, uint32_t rateCode) {
  const BlockKind kind = gi.block_type != 2 ? kLongBlock : gi.mixed_block_flag == 0 ? kShortBlock : kMixedBlock;
  const ChunkLayout& layout = gLayouts.layout[rateCode][kind];
  double factor[kMaxChunks];
  if (kind == kLongBlock) {
    LongBlockFactors(sf, gi, factor);
  } else {
    ChunkFactors(layout, sf, gi, factor);
  }
  const uint8_t* chunkOfPair = layout.chunkOfPair;

  // Big values, region by region.
  const Regions regions = BigValueRegions(gi, rateCode);
  Reader r{reservoir, 0, 0, 0};
  r.Start(bitPos);
  uint32_t line = 0;
  for (uint32_t k = 0; k < regions.count; ++k) {
    const uint32_t table = gi.table_select[k] & 31;
    const HuffmanSignedLookup& fast = kPairSignedLookup[table];
    const uint32_t end = regions.ends[k];
    if (line >= end) continue;
    if (kPairLookup[table].linbits != 0) {
      PairsLinbits(kLinbitsPairLookup[table], kPairLookup[table], r, spectrum, line, end, chunkOfPair, factor);
    } else if (fast.bits == 0) {
      // A table without code words: (0, 0) pairs without reading a bit.
      std::memset(spectrum + line, 0, (end - line) * sizeof(double));
    } else {
      PairsPlain(fast, kPairLookup[table], r, spectrum, line, end, chunkOfPair, factor);
    }
    line = end;
  }

  // The count1 part: quadruples up to the granule's end, each value requantised as
  // it is decoded. A quadruple that crosses the end is not counted (nor written), and
  // at line 574 only two values of one more quadruple fit, as in DecodeSpectrum. A
  // quadruple takes at most 10 bits, so four are decoded per top-up.
  const uint32_t end = part2Start + gi.part2_3_length;
  const HuffmanSignedLookup& quad = kQuadSignedLookup[gi.count1table_select & 1];
  const uint16_t* quadEntries = quad.entries;
  const uint32_t quadShift = 64 - quad.bits;
  int32_t left = static_cast<int32_t>(end - r.Position());  // bits before the end
  // First a run of zero quadruples with the quadruple after it per look-up
  // (kQuadRunLookup), while the entry's bits lie before the end and its lines, with
  // the 12 zeros written ahead for the run, below line 576 (from line 560 at most).
  // Each entry ends as the one-by-one decoding of its quadruples would (none of them
  // crosses the end, none but the last reaches line 573), and the zeros are the
  // products of a positive factor and 0. The quadruples one by one take the rest.
  const uint16_t* runEntries = kQuadRunLookup[gi.count1table_select & 1].entries;
  bool runs = left > 0 && line <= 560;
  while (runs) {
    r.TopUp();
    for (uint32_t q = 0; q < 4; ++q) {
      const uint32_t e = runEntries[r.bits >> quadShift];
      const uint32_t n = e & 15;
      if (static_cast<int32_t>(n) > left) {
        runs = false;
        break;
      }
      r.bits <<= n;
      r.count -= n;
      left -= static_cast<int32_t>(n);
      ZeroTwelveLines(spectrum + line);
      line += 4 * (e >> 12);
      Count1Pair(spectrum, line, (e >> 4) & 15, factor[chunkOfPair[line / 2]]);
      Count1Pair(spectrum, line + 2, (e >> 8) & 15, factor[chunkOfPair[line / 2 + 1]]);
      line += 4;
      if (left == 0 || line > 560) {
        runs = false;
        break;
      }
    }
  }
  bool more = left > 0 && line < 573;
  while (more) {
    r.TopUp();
    for (uint32_t q = 0; q < 4; ++q) {
      const uint32_t e = quadEntries[r.bits >> quadShift];
      const uint32_t n = e & 15;
      r.bits <<= n;
      r.count -= n;
      left -= static_cast<int32_t>(n);
      if (left < 0) {
        more = false;
        break;
      }
      Count1Pair(spectrum, line, (e >> 4) & 15, factor[chunkOfPair[line / 2]]);
      Count1Pair(spectrum, line + 2, (e >> 8) & 15, factor[chunkOfPair[line / 2 + 1]]);
      line += 4;
      if (left == 0 || line >= 573) {
        more = false;
        break;
      }
    }
  }
  if (left > 0 && line <= 574) {
    const uint32_t e = quadEntries[r.bits >> quadShift];
    left -= static_cast<int32_t>(e & 15);
    if (left >= 0) {
      Count1Pair(spectrum, line, (e >> 4) & 15, factor[chunkOfPair[line / 2]]);
      line += 2;
    }
  }
  bitPos = end;
  const uint32_t count = line;
  if (count < kLinesPerGranule) std::memset(spectrum + count, 0, (kLinesPerGranule - count) * sizeof(double));

  // The silent lines of a mixed block at 8 kHz, then the bounds: the last long band
  // with a non-zero line (+ 1), and per window the last short band with one (at
  // least 2, + 1).
  uint32_t longBound = 0;
  uint32_t last[3] = {2, 2, 2};
  if (kind == kLongBlock) {
    // The band of the last non-zero line (a long block's chunks are its bands).
    uint32_t i = count;
    while (i > 0 && spectrum[i - 1] == 0.0) --i;
    if (i > 0) longBound = chunkOfPair[(i - 1) / 2] + 1u;
  }
  uint32_t start = 0;
  for (uint32_t j = 0; kind != kLongBlock && j < layout.count && start < count; ++j) {
    const uint32_t chunkEnd = layout.end[j];
    if (layout.kind[j] == kSilentChunk) {
      std::memset(spectrum + start, 0, (chunkEnd - start) * sizeof(double));
    } else if (layout.kind[j] == kLongChunk) {
      if (AnyNonZero(spectrum, start, chunkEnd < count ? chunkEnd : count)) longBound = layout.band[j] + 1u;
    } else if (layout.band[j] > last[layout.window[j]] &&
               AnyNonZero(spectrum, start, chunkEnd < count ? chunkEnd : count)) {
      last[layout.window[j]] = layout.band[j];
    }
    start = chunkEnd;
  }
  const BandTable& bands = kBandTables[rateCode];
  gi.is_start_long = longBound;
  if (kind == kLongBlock) {
    gi.is_start_short[0] = gi.is_start_short[1] = gi.is_start_short[2] = 0;
    gi.active_subbands = static_cast<uint32_t>(bands.longSubbands[longBound]);
  } else {
    uint32_t widest = 0;
    for (uint32_t w = 0; w < 3; ++w) {
      gi.is_start_short[w] = last[w] + 1;
      if (gi.is_start_short[w] > widest) widest = gi.is_start_short[w];
    }
    gi.active_subbands = static_cast<uint32_t>(bands.shortSubbands[widest]);
  }
  return static_cast<int32_t>(count);
}

}  // namespace kxmp3
