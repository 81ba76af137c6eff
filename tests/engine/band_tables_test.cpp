// Tests of the bitstream's constant tables: every derived entry of the band tables
// is recomputed from the band starts, the starts are checked against the standard's
// widths, and the MPEG-2 scale-factor words are decoded independently.
#include <gtest/gtest.h>

#include "engine/band_tables.h"

namespace kxmp3 {
namespace {

TEST(BandTables, StartsRunFromZeroTo576AndRise) {
  for (int r = 0; r < 9; ++r) {
    const BandTable& t = kBandTables[r];
    EXPECT_EQ(t.longStart[0], 0) << r;
    EXPECT_EQ(t.longStart[22], 576) << r;
    EXPECT_EQ(t.shortStart3[0], 0) << r;
    EXPECT_EQ(t.shortStart3[13], 576) << r;
    for (int b = 0; b < 22; ++b) EXPECT_LT(t.longStart[b], t.longStart[b + 1]) << r << " " << b;
    for (int b = 0; b < 13; ++b) EXPECT_LT(t.shortStart3[b], t.shortStart3[b + 1]) << r << " " << b;
    for (int b = 0; b < 14; ++b) EXPECT_EQ(t.shortStart3[b] % 3, 0) << r << " " << b;
  }
}

TEST(BandTables, DerivedRowsFollowTheirFormulas) {
  for (int r = 0; r < 9; ++r) {
    const BandTable& t = kBandTables[r];
    for (int b = 0; b < 22; ++b) EXPECT_EQ(t.longWidth[b], t.longStart[b + 1] - t.longStart[b]) << r << " " << b;
    for (int b = 0; b < 13; ++b)
      EXPECT_EQ(t.shortWidth[b], (t.shortStart3[b + 1] - t.shortStart3[b]) / 3) << r << " " << b;
    for (int i = 0; i < 23; ++i) {
      int expect = (t.longStart[i] + 8) / 18 + 1;
      if (expect > 32) expect = 32;
      EXPECT_EQ(t.longSubbands[i], expect) << r << " " << i;
    }
    for (int i = 0; i < 14; ++i) {
      int expect = (t.shortStart3[i] + 17) / 18;
      if (expect < 1) expect = 1;
      EXPECT_EQ(t.shortSubbands[i], expect) << r << " " << i;
    }
  }
}

// Band widths as the standards list them (ISO/IEC 11172-3 Table B.8, ISO/IEC
// 13818-3 Table B.2), written out independently of the starts in the table.
TEST(BandTables, WidthsMatchTheStandardsLists) {
  const int long441[22] = {4, 4, 4, 4, 4, 4, 6, 6, 8, 8, 10, 12, 16, 20, 24, 28, 34, 42, 50, 54, 76, 158};
  const int long48[22] = {4, 4, 4, 4, 4, 4, 6, 6, 6, 8, 10, 12, 16, 18, 22, 28, 34, 40, 46, 54, 54, 192};
  const int long32[22] = {4, 4, 4, 4, 4, 4, 6, 6, 8, 10, 12, 16, 20, 24, 30, 38, 46, 56, 68, 84, 102, 26};
  const int short441[13] = {4, 4, 4, 4, 6, 8, 10, 12, 14, 18, 22, 30, 56};
  const int short48[13] = {4, 4, 4, 4, 6, 6, 10, 12, 14, 16, 20, 26, 66};
  const int short32[13] = {4, 4, 4, 4, 6, 8, 12, 16, 20, 26, 34, 42, 12};
  const int long2205[22] = {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 20, 24, 28, 32, 38, 46, 52, 60, 68, 58, 54};
  const int long24[22] = {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 18, 22, 26, 32, 38, 46, 54, 62, 70, 76, 36};
  const int short2205[13] = {4, 4, 4, 6, 6, 8, 10, 14, 18, 26, 32, 42, 18};
  const int short24[13] = {4, 4, 4, 6, 8, 10, 12, 14, 18, 24, 32, 44, 12};
  const int short16[13] = {4, 4, 4, 6, 8, 10, 12, 14, 18, 24, 30, 40, 18};
  // 16 kHz has the long widths of 22.05 kHz; 11.025 and 12 kHz (MPEG-2.5) those of 16 kHz.
  const int* longs[9] = {long441, long48, long32, long2205, long24, long2205, long2205, long2205, nullptr};
  const int* shorts[9] = {short441, short48, short32, short2205, short24, short16, short16, short16, nullptr};
  for (int r = 0; r < 8; ++r) {
    for (int b = 0; b < 22; ++b) EXPECT_EQ(kBandTables[r].longWidth[b], longs[r][b]) << r << " " << b;
    for (int b = 0; b < 13; ++b) EXPECT_EQ(kBandTables[r].shortWidth[b], shorts[r][b]) << r << " " << b;
  }
}

TEST(BandTables, EightKilohertzLayout) {
  const int longStarts[23] = {0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566,
                              568, 570, 572, 574, 576};
  const int shortStarts[14] = {0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192};
  for (int b = 0; b < 23; ++b) EXPECT_EQ(kBandTables[8].longStart[b], longStarts[b]) << b;
  for (int b = 0; b < 14; ++b) EXPECT_EQ(kBandTables[8].shortStart3[b], 3 * shortStarts[b]) << b;
  // Region 1 of short blocks starts at short band 3: 36 lines at 44.1 kHz, 72 at 8 kHz.
  EXPECT_EQ(kBandTables[0].shortStart3[3], 36);
  EXPECT_EQ(kBandTables[8].shortStart3[3], 72);
}

TEST(BandTables, SubbandCountSamples) {
  // 44.1 kHz long start 418 (band 21): floor(426 / 18) + 1 = 24; 576 gives 32.
  EXPECT_EQ(kBandTables[0].longSubbands[21], 24);
  EXPECT_EQ(kBandTables[0].longSubbands[22], 32);
  EXPECT_EQ(kBandTables[0].longSubbands[0], 1);
  // A long start of 10 reaches over the boundary at 18 with its 8 aliased lines.
  EXPECT_EQ(kBandTables[8].longSubbands[1], 2);  // start 12: floor(20 / 18) + 1
  EXPECT_EQ(kBandTables[0].shortSubbands[0], 1);
  EXPECT_EQ(kBandTables[0].shortSubbands[3], 2);  // 36 lines: two subbands
  EXPECT_EQ(kBandTables[0].shortSubbands[13], 32);
}

TEST(SlenTable, MatchesTheStandardsPairs) {
  const int pairs[16][2] = {{0, 0}, {0, 1}, {0, 2}, {0, 3}, {3, 0}, {1, 1}, {1, 2}, {1, 3},
                            {2, 1}, {2, 2}, {2, 3}, {3, 1}, {3, 2}, {3, 3}, {4, 2}, {4, 3}};
  for (int c = 0; c < 16; ++c) {
    EXPECT_EQ(kSlen[0][c], pairs[c][0]) << c;
    EXPECT_EQ(kSlen[1][c], pairs[c][1]) << c;
  }
}

TEST(PretabTable, RowsAndSum) {
  int sum = 0;
  for (int b = 0; b < 22; ++b) {
    EXPECT_EQ(kPretab[0][b], 0);
    sum += kPretab[1][b];
  }
  EXPECT_EQ(sum, 1 + 1 + 1 + 1 + 2 + 2 + 3 + 3 + 3 + 2);
  EXPECT_EQ(kPretab[1][10], 0);
  EXPECT_EQ(kPretab[1][11], 1);
  EXPECT_EQ(kPretab[1][17], 3);
  EXPECT_EQ(kPretab[1][21], 0);
}

TEST(NrOfSfb, ShortCountsAreWholeWindowsAndTotalsFitTheBlocks) {
  for (int row = 0; row < 6; ++row) {
    int l = 0, s = 0, m = 0;
    for (int g = 0; g < 4; ++g) {
      l += kNrOfSfb[0][row][g];
      s += kNrOfSfb[1][row][g];
      m += kNrOfSfb[2][row][g];
      EXPECT_EQ(kNrOfSfb[1][row][g] % 3, 0) << row << " " << g;
    }
    // Long: at most 21 bands; short: at most 12 bands x 3; mixed: 6 long + 3 x 9 short.
    EXPECT_LE(l, 21) << row;
    EXPECT_LE(s, 36) << row;
    EXPECT_LE(m, 33) << row;
    // The zero padding after the values keeps every layout inside the 39 entries.
    EXPECT_LE(l + 1, 39);
    EXPECT_LE(s + 3, 39);
    EXPECT_LE(m + 5, 39);
  }
  EXPECT_EQ(kNrOfSfb[0][0][0], 6);
  EXPECT_EQ(kNrOfSfb[2][5][1], 18);
}

struct LsfDecoded {
  uint32_t slen[4];
  uint32_t row;
  uint32_t preflag;
};

LsfDecoded Unpack(uint32_t w) {
  return {{w & 7, (w >> 3) & 7, (w >> 6) & 7, (w >> 9) & 7}, (w >> 12) & 7, (w >> 15) & 1};
}

// Independent decoding of scalefac_compress by its definition as mixed-radix numbers:
// normal codes below 400 are 5 x 5 x 4 x 4 digits, 400..499 are 5 x 5 x 4, 500..511
// are 3 x 3; the intensity halves below 180 are 6 x 6 x 6 (5 x 6 x 6 used),
// 180..243 are 4 x 4 x 4, 244..255 are 3 x 3.
TEST(LsfScaleFactorCodes, NormalCodesDecodeAsMixedRadix) {
  for (uint32_t c = 0; c < 512; ++c) {
    const LsfDecoded d = Unpack(kLsfScaleFactorCodes[c]);
    uint32_t rebuilt;
    if (c < 400) {
      EXPECT_EQ(d.row, 0u);
      EXPECT_EQ(d.preflag, 0u);
      EXPECT_LT(d.slen[0], 5u);
      EXPECT_LT(d.slen[1], 5u);
      EXPECT_LT(d.slen[2], 4u);
      EXPECT_LT(d.slen[3], 4u);
      rebuilt = ((d.slen[0] * 5 + d.slen[1]) * 4 + d.slen[2]) * 4 + d.slen[3];
    } else if (c < 500) {
      EXPECT_EQ(d.row, 1u);
      EXPECT_EQ(d.preflag, 0u);
      EXPECT_EQ(d.slen[3], 0u);
      rebuilt = 400 + (d.slen[0] * 5 + d.slen[1]) * 4 + d.slen[2];
    } else {
      EXPECT_EQ(d.row, 2u);
      EXPECT_EQ(d.preflag, 1u);
      EXPECT_EQ(d.slen[2], 0u);
      EXPECT_EQ(d.slen[3], 0u);
      rebuilt = 500 + d.slen[0] * 3 + d.slen[1];
    }
    EXPECT_EQ(rebuilt, c);
  }
}

TEST(LsfScaleFactorCodes, IntensityCodesDecodeAsMixedRadix) {
  for (uint32_t h = 0; h < 256; ++h) {
    const LsfDecoded d = Unpack(kLsfScaleFactorCodes[kLsfIntensityCodes + h]);
    EXPECT_EQ(d.preflag, 0u) << h;  // the intensity variant never sets preflag
    EXPECT_EQ(d.slen[3], 0u);
    uint32_t rebuilt;
    if (h < 180) {
      EXPECT_EQ(d.row, 3u);
      rebuilt = (d.slen[0] * 6 + d.slen[1]) * 6 + d.slen[2];
    } else if (h < 244) {
      EXPECT_EQ(d.row, 4u);
      rebuilt = 180 + (d.slen[0] * 4 + d.slen[1]) * 4 + d.slen[2];
    } else {
      EXPECT_EQ(d.row, 5u);
      EXPECT_EQ(d.slen[2], 0u);
      rebuilt = 244 + d.slen[0] * 3 + d.slen[1];
    }
    EXPECT_EQ(rebuilt, h);
  }
}

TEST(LsfScaleFactorCodes, SampleWords) {
  // 511: 500 + 11 = 3 x 3 + 2: slen 3, 2; row 2; preflag.
  EXPECT_EQ(kLsfScaleFactorCodes[511], 3u | (2u << 3) | (2u << 12) | (1u << 15));
  // 399 = ((4 x 5 + 4) x 4 + 3) x 4 + 3.
  EXPECT_EQ(kLsfScaleFactorCodes[399], 4u | (4u << 3) | (3u << 6) | (3u << 9));
  EXPECT_EQ(kLsfScaleFactorCodes[0], 0u);
}

}  // namespace
}  // namespace kxmp3
