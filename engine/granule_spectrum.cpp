// One pass from a granule-channel's Huffman data to its requantised spectrum.
//
// The lines are walked as runs that share one factor ("chunks"): the long bands, the
// windows of the short bands in their coded order (band by band, windows 0, 1, 2),
// or both in a mixed block, where at 8 kHz the lines between the two long subbands
// and short band 3 form a chunk of their own that stays silent. Region bounds of the
// big values fall on band starts and every band width is even, so a pair never
// straddles two chunks: each pair is decoded through the signed look-up table of its
// region (code word and signs in one access, huffman.h) and multiplied by its
// chunk's factor at once; so is each count1 quadruple (which may straddle two
// chunks). The values and bounds are those
// of DecodeSpectrum followed by Requantise: the same products of the same factors,
// and zeros (+0.0) wherever those leave a coded value of 0 or clear a line.
#include "granule_spectrum.h"

#include <cstring>

#include "band_tables.h"
#include "huffman_steps.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// What a non-zero value in a chunk tells the bounds: the chunk's long band, its
// short band and window, or nothing (the silent chunk of a mixed block at 8 kHz).
constexpr uint32_t kLongChunk = 0x100;
constexpr uint32_t kShortChunk = 0x200;
constexpr uint32_t kSilentChunk = 0x400;

struct Chunk {
  uint32_t end;   // the line after the chunk
  uint32_t kind;  // kLongChunk | band, kShortChunk | window << 4 | band, or kSilentChunk
  double factor;
};

// At most 22 long bands, or 8 long bands, a silent chunk and 30 short windows, or 39
// short windows.
constexpr uint32_t kMaxChunks = 40;

struct Chunks {
  Chunk c[kMaxChunks];
  uint32_t count = 0;

  void Add(uint32_t end, uint32_t kind, double factor) { c[count++] = {end, kind, factor}; }
};

// Long bands from band 0 until `limit` lines are covered.
uint32_t LongChunks(Chunks& chunks, const ScaleFactors& sf, const GranuleInfo& gi, const BandTable& bands,
                    uint32_t limit) {
  const uint8_t* pretab = kPretab[gi.preflag & 1];
  const uint32_t shift = gi.scalefac_multiplier;
  uint32_t line = 0;
  for (uint32_t b = 0; line < limit && b < 22; ++b) {
    line += static_cast<uint32_t>(bands.longWidth[b]);
    chunks.Add(line, kLongChunk | b, gTables.gain[gi.global_gain_ref + ((sf.sf[b] + pretab[b]) << shift)]);
  }
  return line;
}

// Short bands from `firstBand` at `line`, three windows each, with the scale factor of
// band b, window w at sf[sfBase + 3 (b - firstBand) + w].
void ShortChunks(Chunks& chunks, const ScaleFactors& sf, const GranuleInfo& gi, const BandTable& bands,
                 uint32_t firstBand, uint32_t line, uint32_t sfBase) {
  const uint32_t shift = gi.scalefac_multiplier;
  for (uint32_t b = firstBand; b < 13; ++b) {
    const uint32_t width = static_cast<uint32_t>(bands.shortWidth[b]);
    for (uint32_t w = 0; w < 3; ++w) {
      line += width;
      const uint32_t s = sf.sf[sfBase + 3 * (b - firstBand) + w];
      chunks.Add(line, kShortChunk | (w << 4) | b, gTables.gain[gi.subblock_gain_ref[w] + (s << shift)]);
    }
  }
}

void BuildChunks(Chunks& chunks, const ScaleFactors& sf, const GranuleInfo& gi, const BandTable& bands) {
  if (gi.block_type != 2) {
    LongChunks(chunks, sf, gi, bands, kLinesPerGranule);
  } else if (gi.mixed_block_flag == 0) {
    ShortChunks(chunks, sf, gi, bands, 0, 0, 0);
  } else {
    // Two long subbands, then short bands from band 3 with their scale factors from
    // entry 8 on; lines between the two (at 8 kHz) stay silent.
    const uint32_t longEnd = LongChunks(chunks, sf, gi, bands, 36);
    const uint32_t shortStart = static_cast<uint32_t>(bands.shortStart3[3]);
    if (shortStart > longEnd) chunks.Add(shortStart, kSilentChunk, 0.0);
    ShortChunks(chunks, sf, gi, bands, 3, shortStart, 8);
  }
}

// Pairs of lines [line, stop) through one big-values table, each value multiplied by
// `factor` as it is decoded. Returns the OR of the coded values.
inline uint32_t DecodePairs(const HuffmanSignedLookup& fast, const HuffmanLookup& table, BitCache& c,
                            double* spectrum, uint32_t line, uint32_t stop, double factor) {
  const double* power = gTables.power;
  const uint32_t shift = 64 - fast.bits;
  uint32_t any = 0;
  for (; line < stop; line += 2) {
    c.Ensure(kPairBits);
    const uint32_t e = fast.entries[c.bits >> shift];
    uint32_t x;
    uint32_t y;
    if ((e & kSignedSlow) == 0) {
      c.Skip(e & 31);
      x = (e >> 5) & 31;
      y = e >> 10;
    } else if ((e & kSignedEscape) != 0) {
      // A 15 of a table with linbits: its extension, then the signs, after the code word.
      c.Ensure(kLinbitsPairBits);
      uint32_t used = e & 31;
      x = TakeLinbitsValue((e >> 5) & 15, c.bits, used, table.linbits);
      y = TakeLinbitsValue((e >> 9) & 15, c.bits, used, table.linbits);
      c.Skip(used);
    } else {
      // A code word longer than the index: the general look-up from the same position.
      uint32_t v[2];
      if (table.linbits == 0) {
        LookupPair(table, c, v);
      } else {
        LookupPairLinbits(table, c, v);
      }
      x = v[0];
      y = v[1];
    }
    spectrum[line] = factor * power[x];
    spectrum[line + 1] = factor * power[y];
    any |= x | y;
  }
  return any;
}

}  // namespace

int32_t DecodeGranuleSpectrum(double* spectrum, const uint8_t* reservoir, uint32_t& bitPos, GranuleInfo& gi,
                              const ScaleFactors& sf, uint32_t part2Start, uint32_t rateCode) {
  const BandTable& bands = kBandTables[rateCode];
  Chunks chunks;
  BuildChunks(chunks, sf, gi, bands);
  uint32_t nonZero[kMaxChunks] = {};

  // Big values, region by region, chunk by chunk within each region.
  const Regions regions = BigValueRegions(gi, rateCode);
  BitCache c{reservoir, bitPos};
  uint32_t line = 0;
  uint32_t k = 0;
  for (uint32_t r = 0; r < regions.count; ++r) {
    const uint32_t table = gi.table_select[r] & 31;
    const HuffmanSignedLookup& fast = kPairSignedLookup[table];
    const uint32_t end = regions.ends[r];
    while (line < end) {
      const uint32_t stop = chunks.c[k].end < end ? chunks.c[k].end : end;
      if (fast.bits == 0) {
        // A table without code words: (0, 0) pairs without reading a bit.
        std::memset(spectrum + line, 0, (stop - line) * sizeof(double));
      } else {
        nonZero[k] |= DecodePairs(fast, kPairLookup[table], c, spectrum, line, stop, chunks.c[k].factor);
      }
      line = stop;
      if (line == chunks.c[k].end) ++k;
    }
  }

  // The count1 part: quadruples up to the granule's end, each value requantised as
  // it is decoded. A quadruple that crosses the end is not counted (nor written), and
  // at line 574 only two values of one more quadruple fit, as in DecodeSpectrum.
  const double* power = gTables.power;
  const uint32_t end = part2Start + gi.part2_3_length;
  const HuffmanSignedLookup& quad = kQuadSignedLookup[gi.count1table_select & 1];
  const uint32_t quadShift = 64 - quad.bits;
  auto decodeQuad = [&]() {
    c.Ensure(kQuadBits);
    const uint32_t e = quad.entries[c.bits >> quadShift];
    c.Skip(e & 15);
    return e >> 4;  // the four coded values, two bits each, v lowest
  };
  auto put = [&](uint32_t values, uint32_t n) {
    if (line + n <= chunks.c[k].end) {
      const double factor = chunks.c[k].factor;
      for (uint32_t j = 0; j < n; ++j) spectrum[line + j] = factor * power[(values >> (2 * j)) & 3];
      nonZero[k] |= values & ((1u << (2 * n)) - 1);
      line += n;
      if (line == chunks.c[k].end) ++k;
      return;
    }
    // The quadruple straddles two chunks.
    for (uint32_t j = 0; j < n; ++j) {
      const uint32_t v = (values >> (2 * j)) & 3;
      spectrum[line] = chunks.c[k].factor * power[v];
      nonZero[k] |= v;
      if (++line == chunks.c[k].end) ++k;
    }
  };
  while (static_cast<int32_t>(c.pos - end) < 0 && line < 573) {
    const uint32_t values = decodeQuad();
    if (static_cast<int32_t>(c.pos - end) > 0) break;
    put(values, 4);
    if (c.pos == end) break;
  }
  if (static_cast<int32_t>(c.pos - end) < 0 && line <= 574) {
    const uint32_t values = decodeQuad();
    if (static_cast<int32_t>(c.pos - end) <= 0) put(values, 2);
  }
  bitPos = end;
  const uint32_t count = line;
  if (count < kLinesPerGranule) std::memset(spectrum + count, 0, (kLinesPerGranule - count) * sizeof(double));

  // Bounds, and the silent lines of a mixed block at 8 kHz.
  uint32_t longBound = 0;
  uint32_t last[3] = {2, 2, 2};
  uint32_t start = 0;
  for (uint32_t j = 0; j < chunks.count; ++j) {
    const uint32_t kind = chunks.c[j].kind;
    if ((kind & kSilentChunk) != 0) {
      std::memset(spectrum + start, 0, (chunks.c[j].end - start) * sizeof(double));
    } else if (nonZero[j] != 0) {
      if ((kind & kLongChunk) != 0) {
        longBound = (kind & 0xFF) + 1;
      } else {
        const uint32_t band = kind & 0xF;
        const uint32_t w = (kind >> 4) & 3;
        if (band > last[w]) last[w] = band;
      }
    }
    start = chunks.c[j].end;
  }
  if (gi.block_type != 2) {
    gi.is_start_long = longBound;
    gi.is_start_short[0] = gi.is_start_short[1] = gi.is_start_short[2] = 0;
    gi.active_subbands = static_cast<uint32_t>(bands.longSubbands[longBound]);
  } else {
    gi.is_start_long = longBound;
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
