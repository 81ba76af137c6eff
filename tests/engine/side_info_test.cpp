// Tests of side information, scale factors and bit reading: every field of both
// versions round-trips through the encoder of frame_builder, the values derived at
// parse time, the clipping of big_values, the two versions' different handling of a
// switched window of block_type 0, scfsi reuse, the MPEG-2 packed table for both
// channel kinds, and GetBits over the ring's end.
#include <gtest/gtest.h>

#include <cstring>

#include "engine/band_tables.h"
#include "engine/bit_reader.h"
#include "engine/scale_factors.h"
#include "engine/side_info.h"
#include "engine/tables.h"
#include "support/engine/frame_builder.h"
#include "support/memory_stream.h"

namespace kxmp3 {
namespace {

using kxtest::BitWriter;
using kxtest::GranuleFields;
using kxtest::SideFields;

std::vector<uint8_t> Padded(std::vector<uint8_t> v) {
  v.resize(v.size() + 4, 0);
  return v;
}

// ---- GetBits ----

TEST(GetBits, ZeroBitsReadNothing) {
  uint8_t ring[4096] = {0xFF};
  uint32_t pos = 3;
  EXPECT_EQ(GetBits(ring, pos, 0), 0u);
  EXPECT_EQ(pos, 3u);
}

TEST(GetBits, BigEndianFromAnyBitPosition) {
  uint8_t ring[4096] = {};
  ring[0] = 0xA5;
  ring[1] = 0x3C;
  ring[2] = 0x0F;
  ring[3] = 0xF0;
  uint32_t pos = 0;
  EXPECT_EQ(GetBits(ring, pos, 4), 0xAu);
  EXPECT_EQ(GetBits(ring, pos, 8), 0x53u);
  EXPECT_EQ(pos, 12u);
  pos = 7;
  EXPECT_EQ(GetBits(ring, pos, 25), (0xA53C0FF0u << 7) >> 7);  // 25 bits from bit 7
  EXPECT_EQ(pos, 32u);
}

TEST(GetBits, WrapsAtTheEndOfTheRingAndNeverMasksThePosition) {
  uint8_t ring[4096] = {};
  ring[4094] = 0x12;
  ring[4095] = 0x34;
  ring[0] = 0x56;
  ring[1] = 0x78;
  uint32_t pos = 4094 * 8;
  EXPECT_EQ(GetBits(ring, pos, 24), 0x123456u);
  EXPECT_EQ(pos, 4097u * 8);
  uint32_t far = (4094 + 3 * 4096) * 8 + 4;  // the same bytes three rings on
  EXPECT_EQ(GetBits(ring, far, 16), 0x2345u);
}

// ---- MPEG-1 side information ----

GranuleFields LongGranule(uint32_t seed) {
  GranuleFields g;
  g.part2_3_length = 1000 + seed;
  g.big_values = 100 + seed;
  g.global_gain = 150 + seed;
  g.scalefac_compress = (5 + seed) & 15;
  g.table_select[0] = 1 + seed;
  g.table_select[1] = 7 + seed;
  g.table_select[2] = 24 + seed;
  g.region0_count = 9 + seed;
  g.region1_count = (2 + seed) & 7;
  g.preflag = seed & 1;
  g.scalefac_scale = (seed >> 1) & 1;
  g.count1table_select = 1 - (seed & 1);
  return g;
}

TEST(SideInfoMpeg1, StereoFieldsRoundTrip) {
  SideFields sf;
  sf.main_data_begin = 511;
  sf.private_bits = 5;
  sf.scfsi[0] = 0xA;
  sf.scfsi[1] = 0x5;
  sf.gr[0][0] = LongGranule(0);
  sf.gr[0][1] = LongGranule(1);
  sf.gr[1][0] = LongGranule(2);
  sf.gr[1][1].window_switching = 1;
  sf.gr[1][1].block_type = 2;
  sf.gr[1][1].mixed = 1;
  sf.gr[1][1].table_select[0] = 13;
  sf.gr[1][1].table_select[1] = 31;
  sf.gr[1][1].subblock_gain[0] = 1;
  sf.gr[1][1].subblock_gain[1] = 7;
  sf.gr[1][1].subblock_gain[2] = 3;
  sf.gr[1][1].global_gain = 200;
  const auto bytes = kxtest::EncodeSideInfo(sf, true, 2);
  ASSERT_EQ(bytes.size(), 32u);
  SideInfo si{};
  ASSERT_EQ(ParseSideInfoMpeg1(si, Padded(bytes).data(), 2, false), AF_S_OK);
  EXPECT_EQ(si.main_data_begin, 511u);
  EXPECT_EQ(si.private_bits, 5u);
  for (uint32_t gr = 0; gr < 2; ++gr) {
    for (uint32_t ch = 0; ch < 2; ++ch) {
      if (gr == 1 && ch == 1) continue;
      const GranuleFields& f = sf.gr[gr][ch];
      const GranuleInfo& g = si.gr[gr][ch];
      EXPECT_EQ(g.part2_3_length, f.part2_3_length);
      EXPECT_EQ(g.big_value_count, 2 * f.big_values);
      EXPECT_EQ(g.global_gain_ref, kGainOrigin - f.global_gain);
      EXPECT_EQ(g.scalefac_compress, f.scalefac_compress);
      EXPECT_EQ(g.block_type, 0u);
      EXPECT_EQ(g.mixed_block_flag, 0u);
      for (int r = 0; r < 3; ++r) EXPECT_EQ(g.table_select[r], f.table_select[r]);
      EXPECT_EQ(g.region0_count, f.region0_count);
      EXPECT_EQ(g.region1_count, f.region1_count);
      EXPECT_EQ(g.preflag, f.preflag);
      EXPECT_EQ(g.scalefac_multiplier, f.scalefac_scale ? 2u : 1u);
      EXPECT_EQ(g.count1table_select, f.count1table_select);
      for (int w = 0; w < 3; ++w) EXPECT_EQ(g.subblock_gain_ref[w], g.global_gain_ref);
    }
  }
  // scfsi only in granule 1.
  EXPECT_EQ(si.gr[0][0].scfsi, 0u);
  EXPECT_EQ(si.gr[0][1].scfsi, 0u);
  EXPECT_EQ(si.gr[1][0].scfsi, 0xAu);
  EXPECT_EQ(si.gr[1][1].scfsi, 0x5u);
  // The switched window.
  const GranuleInfo& m = si.gr[1][1];
  EXPECT_EQ(m.block_type, 2u);
  EXPECT_EQ(m.mixed_block_flag, 1u);
  EXPECT_EQ(m.table_select[0], 13u);
  EXPECT_EQ(m.table_select[1], 31u);
  EXPECT_EQ(m.table_select[2], 0u) << "only the first two are written";
  EXPECT_EQ(m.global_gain_ref, kGainOrigin - 200);
  EXPECT_EQ(m.subblock_gain_ref[0], m.global_gain_ref + 8);
  EXPECT_EQ(m.subblock_gain_ref[1], m.global_gain_ref + 56);
  EXPECT_EQ(m.subblock_gain_ref[2], m.global_gain_ref + 24);
  EXPECT_EQ(m.region0_count, 7u);
  EXPECT_EQ(m.region1_count, 13u);
}

TEST(SideInfoMpeg1, MonoLayoutAndRegionCountsOfSwitchedWindows) {
  SideFields sf;
  sf.main_data_begin = 300;
  sf.private_bits = 31;
  sf.scfsi[0] = 15;
  sf.gr[0][0].window_switching = 1;
  sf.gr[0][0].block_type = 2;  // short, not mixed
  sf.gr[1][0].window_switching = 1;
  sf.gr[1][0].block_type = 1;  // start block
  const auto bytes = kxtest::EncodeSideInfo(sf, true, 1);
  ASSERT_EQ(bytes.size(), 17u);
  SideInfo si{};
  ASSERT_EQ(ParseSideInfoMpeg1(si, Padded(bytes).data(), 1, false), AF_S_OK);
  EXPECT_EQ(si.main_data_begin, 300u);
  EXPECT_EQ(si.private_bits, 31u);
  EXPECT_EQ(si.gr[0][0].region0_count, 8u);
  EXPECT_EQ(si.gr[0][0].region1_count, 12u);
  EXPECT_EQ(si.gr[1][0].region0_count, 7u);
  EXPECT_EQ(si.gr[1][0].region1_count, 13u);
  EXPECT_EQ(si.gr[1][0].scfsi, 15u);
}

TEST(SideInfoMpeg1, MidSideMovesTheGainReferencesTwoEntries) {
  SideFields sf;
  sf.gr[0][0].global_gain = 210;
  sf.gr[0][0].window_switching = 1;
  sf.gr[0][0].block_type = 2;
  sf.gr[0][0].subblock_gain[2] = 2;
  const auto bytes = Padded(kxtest::EncodeSideInfo(sf, true, 2));
  SideInfo plain{};
  SideInfo ms{};
  ParseSideInfoMpeg1(plain, bytes.data(), 2, false);
  ParseSideInfoMpeg1(ms, bytes.data(), 2, true);
  EXPECT_EQ(plain.gr[0][0].global_gain_ref, 46u);  // gain entry 46 = 1.0
  EXPECT_EQ(ms.gr[0][0].global_gain_ref, 48u);
  EXPECT_EQ(ms.gr[0][0].subblock_gain_ref[2], 48u + 16u);
  EXPECT_EQ(ms.gr[0][1].global_gain_ref, plain.gr[0][1].global_gain_ref + 2);
}

TEST(SideInfoMpeg1, BigValuesAbove288AreClippedAndMarkTheFrame) {
  for (uint32_t bv : {288u, 289u, 400u, 511u}) {
    SideFields sf;
    sf.gr[1][0].big_values = bv;
    SideInfo si{};
    const KxResult r = ParseSideInfoMpeg1(si, Padded(kxtest::EncodeSideInfo(sf, true, 1)).data(), 1, false);
    EXPECT_EQ(r, bv > 288 ? AF_S_FRAME_ERROR : AF_S_OK) << bv;
    EXPECT_EQ(si.gr[1][0].big_value_count, bv > 288 ? 576u : 2 * bv);
  }
}

TEST(SideInfoMpeg1, SwitchedWindowOfBlockType0IsRefusedAndKeepsRegionCounts) {
  SideFields sf;
  sf.gr[0][1].window_switching = 1;
  sf.gr[0][1].block_type = 0;
  SideInfo si{};
  si.gr[0][1].region0_count = 5;  // as a previous parse left them
  si.gr[0][1].region1_count = 6;
  EXPECT_EQ(ParseSideInfoMpeg1(si, Padded(kxtest::EncodeSideInfo(sf, true, 2)).data(), 2, false), AF_E_BAD_FORMAT);
  EXPECT_EQ(si.gr[0][1].region0_count, 5u);
  EXPECT_EQ(si.gr[0][1].region1_count, 6u);
  EXPECT_EQ(si.gr[0][1].block_type, 0u);
}

TEST(SideInfoMpeg1, TheLastEventInParseOrderDecidesAndParsingGoesOn) {
  SideFields sf;
  sf.gr[0][0].window_switching = 1;  // 0x3109 first
  sf.gr[1][1].big_values = 300;      // then 0x30FF
  sf.gr[1][1].global_gain = 99;
  SideInfo si{};
  EXPECT_EQ(ParseSideInfoMpeg1(si, Padded(kxtest::EncodeSideInfo(sf, true, 2)).data(), 2, false), AF_S_FRAME_ERROR);
  EXPECT_EQ(si.gr[1][1].global_gain_ref, kGainOrigin - 99);
  SideFields sf2;
  sf2.gr[0][0].big_values = 300;      // 0x30FF first
  sf2.gr[1][0].window_switching = 1;  // then 0x3109
  SideInfo si2{};
  EXPECT_EQ(ParseSideInfoMpeg1(si2, Padded(kxtest::EncodeSideInfo(sf2, true, 2)).data(), 2, false), AF_E_BAD_FORMAT);
}

// ---- MPEG-2 side information ----

TEST(SideInfoMpeg2, FieldsRoundTripAndNoPreflagBit) {
  SideFields sf;
  sf.main_data_begin = 255;
  sf.private_bits = 3;
  sf.gr[0][0] = LongGranule(3);
  sf.gr[0][0].scalefac_compress = 511;
  sf.gr[0][1].window_switching = 1;
  sf.gr[0][1].block_type = 3;
  sf.gr[0][1].subblock_gain[1] = 5;
  sf.gr[0][1].scalefac_compress = 300;
  const auto bytes = kxtest::EncodeSideInfo(sf, false, 2);
  ASSERT_EQ(bytes.size(), 17u);
  SideInfo si{};
  ASSERT_EQ(ParseSideInfoMpeg2(si, Padded(bytes).data(), 2, true), AF_S_OK);
  EXPECT_EQ(si.main_data_begin, 255u);
  EXPECT_EQ(si.private_bits, 3u);
  const GranuleInfo& a = si.gr[0][0];
  EXPECT_EQ(a.part2_3_length, sf.gr[0][0].part2_3_length);
  EXPECT_EQ(a.big_value_count, 2 * sf.gr[0][0].big_values);
  EXPECT_EQ(a.global_gain_ref, kGainOrigin - sf.gr[0][0].global_gain + 2);
  EXPECT_EQ(a.scalefac_compress, 511u);
  EXPECT_EQ(a.region0_count, sf.gr[0][0].region0_count);
  EXPECT_EQ(a.preflag, 0u) << "set later by the scale-factor reader";
  EXPECT_EQ(a.scalefac_multiplier, sf.gr[0][0].scalefac_scale ? 2u : 1u);
  EXPECT_EQ(a.count1table_select, sf.gr[0][0].count1table_select);
  const GranuleInfo& b = si.gr[0][1];
  EXPECT_EQ(b.block_type, 3u);
  EXPECT_EQ(b.scalefac_compress, 300u);
  EXPECT_EQ(b.subblock_gain_ref[1], b.global_gain_ref + 40);
  EXPECT_EQ(b.region0_count, 7u);
  EXPECT_EQ(b.scfsi, 0u);

  SideFields mono;
  mono.main_data_begin = 17;
  mono.private_bits = 1;
  mono.gr[0][0] = LongGranule(4);
  const auto mb = kxtest::EncodeSideInfo(mono, false, 1);
  ASSERT_EQ(mb.size(), 9u);
  SideInfo sm{};
  ASSERT_EQ(ParseSideInfoMpeg2(sm, Padded(mb).data(), 1, false), AF_S_OK);
  EXPECT_EQ(sm.main_data_begin, 17u);
  EXPECT_EQ(sm.private_bits, 1u);
  EXPECT_EQ(sm.gr[0][0].count1table_select, mono.gr[0][0].count1table_select);
}

TEST(SideInfoMpeg2, SwitchedWindowOfBlockType0PassesWithRegionCountsUnchanged) {
  SideFields sf;
  sf.gr[0][0].window_switching = 1;
  sf.gr[0][0].block_type = 0;
  SideInfo si{};
  si.gr[0][0].region0_count = 3;
  si.gr[0][0].region1_count = 4;
  EXPECT_EQ(ParseSideInfoMpeg2(si, Padded(kxtest::EncodeSideInfo(sf, false, 1)).data(), 1, false), AF_S_OK);
  EXPECT_EQ(si.gr[0][0].region0_count, 3u);
  EXPECT_EQ(si.gr[0][0].region1_count, 4u);
}

TEST(SideInfoMpeg2, BigValuesClipped) {
  SideFields sf;
  sf.gr[0][1].big_values = 289;
  SideInfo si{};
  EXPECT_EQ(ParseSideInfoMpeg2(si, Padded(kxtest::EncodeSideInfo(sf, false, 2)).data(), 2, false), AF_S_FRAME_ERROR);
  EXPECT_EQ(si.gr[0][1].big_value_count, 576u);
}

TEST(ReadSideInfo, ReadsFromTheStreamAndReportsAShortRead) {
  SideFields sf;
  sf.main_data_begin = 77;
  auto bytes = kxtest::EncodeSideInfo(sf, true, 2);
  {
    auto* s = kxtest::MemoryStream::Make(bytes);
    SideInfo si{};
    EXPECT_EQ(ReadSideInfoMpeg1(si, s, 2, false), AF_S_OK);
    EXPECT_EQ(si.main_data_begin, 77u);
    s->Release();
  }
  bytes.pop_back();
  {
    auto* s = kxtest::MemoryStream::Make(bytes);
    SideInfo si{};
    EXPECT_EQ(ReadSideInfoMpeg1(si, s, 2, false), AF_S_END_OF_DATA);
    s->Release();
  }
  {
    auto* s = kxtest::MemoryStream::Make(std::vector<uint8_t>(8, 0));
    SideInfo si{};
    EXPECT_EQ(ReadSideInfoMpeg2(si, s, 1, false), AF_S_END_OF_DATA);
    s->Release();
  }
}

// ---- Scale factors ----

// Writes scale-factor values at the start of a ring, returns the ring.
std::vector<uint8_t> Ring(const BitWriter& w) {
  std::vector<uint8_t> ring(4096, 0);
  if (!w.Bytes().empty()) std::memcpy(ring.data(), w.Bytes().data(), w.Bytes().size());
  return ring;
}

TEST(ScaleFactorsMpeg1, LongBlocksReadFourGroups) {
  GranuleInfo gi{};
  gi.scalefac_compress = 15;  // slen 4, 3
  BitWriter w;
  for (uint32_t b = 0; b < 11; ++b) w.Put(b + 1, 4);
  for (uint32_t b = 11; b < 21; ++b) w.Put((b - 10) % 8, 3);
  const auto ring = Ring(w);
  ScaleFactors sf;
  for (auto& v : sf.sf) v = 99;
  uint32_t pos = 0;
  ReadScaleFactorsMpeg1(ring.data(), pos, sf, gi);
  EXPECT_EQ(pos, 11u * 4 + 10u * 3);
  for (uint32_t b = 0; b < 11; ++b) EXPECT_EQ(sf.sf[b], b + 1);
  for (uint32_t b = 11; b < 21; ++b) EXPECT_EQ(sf.sf[b], (b - 10) % 8);
  EXPECT_EQ(sf.sf[21], 0u);
  EXPECT_EQ(sf.sf[22], 0u);
}

TEST(ScaleFactorsMpeg1, ScfsiFifteenReusesEverything) {
  GranuleInfo gi{};
  gi.scalefac_compress = 15;
  gi.scfsi = 15;
  ScaleFactors sf;
  for (uint32_t i = 0; i < 39; ++i) sf.sf[i] = i + 1;
  std::vector<uint8_t> ring(4096, 0xFF);
  uint32_t pos = 40;
  ReadScaleFactorsMpeg1(ring.data(), pos, sf, gi);
  EXPECT_EQ(pos, 40u) << "no scale factor read";
  for (uint32_t i = 0; i < 21; ++i) EXPECT_EQ(sf.sf[i], i + 1);
  EXPECT_EQ(sf.sf[21], 0u);
}

TEST(ScaleFactorsMpeg1, EachScfsiBitKeepsItsGroup) {
  const uint32_t groups[4][2] = {{0, 6}, {6, 11}, {11, 16}, {16, 21}};
  for (uint32_t bit = 0; bit < 4; ++bit) {
    GranuleInfo gi{};
    gi.scalefac_compress = 7;  // slen 1, 3
    gi.scfsi = 8u >> bit;      // group `bit` kept
    ScaleFactors sf;
    for (auto& v : sf.sf) v = 9;
    std::vector<uint8_t> ring(4096, 0x00);
    uint32_t pos = 0;
    ReadScaleFactorsMpeg1(ring.data(), pos, sf, gi);
    uint32_t expectBits = 0;
    for (uint32_t g = 0; g < 4; ++g) {
      const uint32_t n = groups[g][1] - groups[g][0];
      if (g != bit) expectBits += n * (g < 2 ? 1 : 3);
      for (uint32_t i = groups[g][0]; i < groups[g][1]; ++i) EXPECT_EQ(sf.sf[i], g == bit ? 9u : 0u) << bit << " " << i;
    }
    EXPECT_EQ(pos, expectBits);
  }
}

TEST(ScaleFactorsMpeg1, ShortAndMixedLayouts) {
  GranuleInfo gi{};
  gi.scalefac_compress = 12;  // slen 3, 2
  gi.block_type = 2;
  gi.scfsi = 15;              // not looked at for short blocks
  BitWriter w;
  for (uint32_t i = 0; i < 18; ++i) w.Put(i % 8, 3);
  for (uint32_t i = 0; i < 18; ++i) w.Put(i % 4, 2);
  auto ring = Ring(w);
  ScaleFactors sf;
  for (auto& v : sf.sf) v = 77;
  uint32_t pos = 0;
  ReadScaleFactorsMpeg1(ring.data(), pos, sf, gi);
  EXPECT_EQ(pos, 18u * 3 + 18u * 2);
  for (uint32_t i = 0; i < 18; ++i) EXPECT_EQ(sf.sf[i], i % 8);
  for (uint32_t i = 0; i < 18; ++i) EXPECT_EQ(sf.sf[18 + i], i % 4);
  for (uint32_t i = 36; i < 39; ++i) EXPECT_EQ(sf.sf[i], 0u);

  gi.mixed_block_flag = 1;
  BitWriter m;
  for (uint32_t i = 0; i < 17; ++i) m.Put(7 - i % 8, 3);
  for (uint32_t i = 0; i < 18; ++i) m.Put(3 - i % 4, 2);
  ring = Ring(m);
  for (auto& v : sf.sf) v = 77;
  pos = 0;
  ReadScaleFactorsMpeg1(ring.data(), pos, sf, gi);
  EXPECT_EQ(pos, 17u * 3 + 18u * 2);
  for (uint32_t i = 0; i < 17; ++i) EXPECT_EQ(sf.sf[i], 7 - i % 8);
  for (uint32_t i = 0; i < 18; ++i) EXPECT_EQ(sf.sf[17 + i], 3 - i % 4);
  for (uint32_t i = 35; i < 38; ++i) EXPECT_EQ(sf.sf[i], 0u);
}

TEST(ScaleFactorsMpeg2, PreflagFromTheNormalTableOnly) {
  for (uint32_t c = 0; c < 512; ++c) {
    std::vector<uint8_t> ring(4096, 0);
    GranuleInfo gi{};
    gi.scalefac_compress = c;
    ScaleFactors sf{};
    uint32_t pos = 0;
    ReadScaleFactorsMpeg2(ring.data(), pos, sf, gi, false);
    EXPECT_EQ(gi.preflag, c >= 500 ? 1u : 0u) << c;
    GranuleInfo gr{};
    gr.scalefac_compress = c;
    gr.preflag = 1;
    pos = 0;
    ReadScaleFactorsMpeg2(ring.data(), pos, sf, gr, true);
    EXPECT_EQ(gr.preflag, 0u) << "the intensity variant never sets preflag: " << c;
  }
}

// Reads with the packed word's widths and counts and checks layout and bit count.
void CheckLsfRead(uint32_t code, bool intensity, uint32_t blockType, uint32_t mixed) {
  const uint32_t word =
      intensity ? kLsfScaleFactorCodes[kLsfIntensityCodes + (code >> 1)] : kLsfScaleFactorCodes[code];
  const uint32_t kind = blockType != 2 ? 0 : (mixed ? 2 : 1);
  const uint8_t* counts = kNrOfSfb[kind][(word >> 12) & 7];
  BitWriter w;
  std::vector<uint32_t> expect;
  uint32_t value = 1;
  for (uint32_t g = 0; g < 4; ++g) {
    const uint32_t slen = (word >> (3 * g)) & 7;
    for (uint32_t i = 0; i < counts[g]; ++i) {
      const uint32_t v = slen == 0 ? 0 : value++ % (1u << slen);
      if (slen != 0) w.Put(v, slen);
      expect.push_back(v);
    }
  }
  const uint32_t zeros[3] = {1, 3, 5};
  for (uint32_t i = 0; i < zeros[kind]; ++i) expect.push_back(0);
  auto ring = Ring(w);
  GranuleInfo gi{};
  gi.scalefac_compress = code;
  gi.block_type = blockType;
  gi.mixed_block_flag = mixed;
  ScaleFactors sf;
  for (auto& v : sf.sf) v = 99;
  uint32_t pos = 0;
  ReadScaleFactorsMpeg2(ring.data(), pos, sf, gi, intensity);
  ASSERT_EQ(pos, w.BitCount()) << code;
  ASSERT_LE(expect.size(), 39u);
  for (size_t i = 0; i < expect.size(); ++i) ASSERT_EQ(sf.sf[i], expect[i]) << code << " entry " << i;
}

TEST(ScaleFactorsMpeg2, EveryCodeAndBlockKindReadsItsGroups) {
  for (uint32_t c = 0; c < 512; ++c) {
    for (bool intensity : {false, true}) {
      CheckLsfRead(c, intensity, 0, 0);
      CheckLsfRead(c, intensity, 2, 0);
      CheckLsfRead(c, intensity, 2, 1);
    }
  }
}

TEST(ScaleFactorsMpeg2, IntensityChannelUsesTheHalvedCode) {
  // 2 x 181 + 1: halved 181 is the second intensity range (row 4), not normal code 363.
  GranuleInfo gi{};
  gi.scalefac_compress = 363;
  std::vector<uint8_t> ring(4096, 0xFF);
  ScaleFactors sf{};
  uint32_t pos = 0;
  ReadScaleFactorsMpeg2(ring.data(), pos, sf, gi, true);
  // 181 - 180 = 1: slen 0, 0, 1: groups 6, 6, 6 (row 4 long counts 6, 6, 6, 3).
  EXPECT_EQ(pos, 6u);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(sf.sf[i], 0u);
  for (int i = 12; i < 18; ++i) EXPECT_EQ(sf.sf[i], 1u);
  for (int i = 18; i < 22; ++i) EXPECT_EQ(sf.sf[i], 0u);
}

}  // namespace
}  // namespace kxmp3
