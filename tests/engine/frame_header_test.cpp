// Tests of the frame header step: the frame-length and adjustment tables
// recomputed from their formulas, the five frame-start tests, field decoding, the
// fast path, the sync search with every status, and failing stream operations.
#include <gtest/gtest.h>

#include "engine/frame_header.h"
#include "support/engine/frame_builder.h"
#include "support/memory_stream.h"

namespace kxmp3 {
namespace {

using kxtest::HeaderFields;
using kxtest::MakeHeader;
using kxtest::MemoryStream;

struct StreamRef {
  MemoryStream* s;
  explicit StreamRef(std::vector<uint8_t> d) : s(MemoryStream::Make(std::move(d))) {}
  ~StreamRef() { s->Release(); }
  int64_t Pos() {
    int64_t p = -1;
    s->GetPosition(&p);
    return p;
  }
};

HeaderFields Mpeg1() { return HeaderFields{}; }  // 44.1 kHz, 128 kbit/s, stereo

std::vector<uint8_t> Frames(const HeaderFields& h, int count) {
  std::vector<uint8_t> d;
  for (int i = 0; i < count; ++i) {
    auto f = kxtest::SilentFrame(h);
    d.insert(d.end(), f.begin(), f.end());
  }
  return d;
}

TEST(FrameLengthTable, EveryEntryFollowsTheFormula) {
  for (uint32_t rc = 0; rc < 9; ++rc) {
    const uint32_t scale = rc < 3 ? 144000 : 72000;
    EXPECT_EQ(kFrameLengthTable[rc][0], 0u);
    for (uint32_t b = 1; b < 15; ++b) {
      EXPECT_EQ(kFrameLengthTable[rc][b], scale * kBitrates[rc < 3 ? 0 : 1][b] / kSampleRates[rc]) << rc << " " << b;
    }
  }
}

TEST(FrameLengthTable, TellingRows) {
  const uint32_t r44[14] = {104, 130, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044};
  const uint32_t r22[14] = {26, 52, 78, 104, 130, 156, 182, 208, 261, 313, 365, 417, 470, 522};
  const uint32_t r8[14] = {72, 144, 216, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1296, 1440};
  for (int b = 0; b < 14; ++b) {
    EXPECT_EQ(kFrameLengthTable[0][b + 1], r44[b]);
    EXPECT_EQ(kFrameLengthTable[3][b + 1], r22[b]);
    EXPECT_EQ(kFrameLengthTable[8][b + 1], r8[b]);
  }
}

TEST(FrameTables, RatesBitratesAndAdjustment) {
  const uint32_t rates[9] = {44100, 48000, 32000, 22050, 24000, 16000, 11025, 12000, 8000};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(kSampleRates[i], rates[i]);
  EXPECT_EQ(kBitrates[0][14], 320u);
  EXPECT_EQ(kBitrates[1][14], 160u);
  EXPECT_EQ(kBitrates[1][1], 8u);
  // -(4 header bytes + side information), by version x 3 + channels.
  const int32_t side[3][3] = {{0, 17, 32}, {0, 9, 17}, {0, 9, 17}};
  for (int v = 0; v < 3; ++v) {
    EXPECT_EQ(kSideInfoAdjust[v * 3], 0);
    for (int ch = 1; ch <= 2; ++ch) EXPECT_EQ(kSideInfoAdjust[v * 3 + ch], -(4 + side[v][ch])) << v << " " << ch;
  }
}

TEST(FrameLength, MainDataLengthLeavesOutHeaderSideInfoAndCheckWord) {
  FrameHeader h{};
  h.version = 0;
  h.rate_code = 0;
  h.bitrate_index = 9;
  h.channel_mode = 1;
  EXPECT_EQ(FrameLength(h), 417u);
  EXPECT_EQ(MainDataLength(h), 417 - 4 - 32);
  h.padding = 1;
  h.protection = 1;
  EXPECT_EQ(FrameLength(h), 418u);
  EXPECT_EQ(MainDataLength(h), 418 - 4 - 32 - 2);
  h.version = 1;
  h.rate_code = 3;
  h.bitrate_index = 1;
  h.channel_mode = 0;
  h.padding = 0;
  h.protection = 0;
  EXPECT_EQ(MainDataLength(h), 26 - 4 - 9);
}

TEST(IsLayer3Header, EachOfTheFiveTests) {
  const uint32_t good = MakeHeader(Mpeg1());
  EXPECT_TRUE(IsLayer3Header(good));
  EXPECT_FALSE(IsLayer3Header(good & ~0x00200000u));  // a sync bit missing
  HeaderFields f = Mpeg1();
  f.versionBits = 1;
  EXPECT_FALSE(IsLayer3Header(MakeHeader(f)));
  f = Mpeg1();
  f.layerBits = 2;  // Layer II
  EXPECT_FALSE(IsLayer3Header(MakeHeader(f)));
  f = Mpeg1();
  f.bitrate = 0;  // free format
  EXPECT_FALSE(IsLayer3Header(MakeHeader(f)));
  f.bitrate = 15;
  EXPECT_FALSE(IsLayer3Header(MakeHeader(f)));
  f = Mpeg1();
  f.rate = 3;
  EXPECT_FALSE(IsLayer3Header(MakeHeader(f)));
  f = Mpeg1();
  f.versionBits = 0;  // MPEG-2.5
  EXPECT_TRUE(IsLayer3Header(MakeHeader(f)));
}

TEST(ReadFrameHeader, FastPathDecodesEveryField) {
  struct Case {
    uint32_t versionBits, expectVersion, mode, expectMode;
  } cases[] = {{3, 0, 3, 0}, {2, 1, 0, 1}, {0, 2, 1, 2}, {3, 0, 2, 3}};
  for (const Case& c : cases) {
    HeaderFields f;
    f.versionBits = c.versionBits;
    f.noCrc = 0;
    f.bitrate = 5;
    f.rate = 2;
    f.padding = 1;
    f.mode = c.mode;
    f.modeExt = 2;
    f.emphasis = 3;
    f.privateBit = 1;
    const uint32_t word = MakeHeader(f);
    std::vector<uint8_t> d;
    kxtest::PutWord(d, word);
    StreamRef s(d);
    uint32_t ref = word;
    FrameHeader h{};
    ASSERT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_OK);
    EXPECT_EQ(h.version, c.expectVersion);
    EXPECT_EQ(h.layer, 3u);
    EXPECT_EQ(h.protection, 1u);
    EXPECT_EQ(h.bitrate_index, 5u);
    EXPECT_EQ(h.rate_code, c.expectVersion * 3 + 2);
    EXPECT_EQ(h.padding, 1u);
    EXPECT_EQ(h.channel_mode, c.expectMode);
    EXPECT_EQ(h.mode_extension, 2u);
    EXPECT_EQ(h.emphasis, 3u);
    EXPECT_EQ(s.Pos(), 4);
  }
}

TEST(ReadFrameHeader, ChannelModeBitrateEmphasisChangesNeedNoSearch) {
  HeaderFields a = Mpeg1();
  std::vector<uint8_t> d = Frames(a, 1);
  HeaderFields b = a;
  b.mode = 3;
  b.bitrate = 14;
  b.emphasis = 1;
  b.padding = 1;
  b.noCrc = 0;
  auto fb = kxtest::SilentFrame(b);
  d.insert(d.end(), fb.begin(), fb.end());
  StreamRef s(d);
  uint32_t ref = MakeHeader(a);
  FrameHeader h{};
  ASSERT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_OK);
  ASSERT_EQ(s.s->Seek(kxtest::FrameBytes(a), ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_OK);
  EXPECT_EQ(ref, MakeHeader(b)) << "an accepted header replaces the reference whole";
  EXPECT_EQ(h.channel_mode, 0u);
  EXPECT_EQ(h.bitrate_index, 14u);
  EXPECT_EQ(h.emphasis, 1u);
  EXPECT_EQ(h.protection, 1u);
}

TEST(ReadFrameHeader, ConfirmedResyncAfterGarbage) {
  std::vector<uint8_t> d(100, 0x00);
  auto frames = Frames(Mpeg1(), 2);
  d.insert(d.end(), frames.begin(), frames.end());
  StreamRef s(d);
  uint32_t ref = MakeHeader(Mpeg1()) ^ 0x0000F000u;  // other bitrate: still fits under the mask
  FrameHeader h{};
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_RESYNC);
  EXPECT_EQ(s.Pos(), 104) << "the stream stands right behind the found header";
  EXPECT_EQ(ref, MakeHeader(Mpeg1()));
}

TEST(ReadFrameHeader, UnconfirmedCandidateIsPassedOver) {
  // A lone header (its successor slot holds zeros), then two real frames.
  HeaderFields f = Mpeg1();
  std::vector<uint8_t> d(8, 0);
  kxtest::PutWord(d, MakeHeader(f));
  d.resize(d.size() + 600, 0);
  const size_t realStart = d.size();
  auto frames = Frames(f, 2);
  d.insert(d.end(), frames.begin(), frames.end());
  StreamRef s(d);
  uint32_t ref = MakeHeader(f);
  FrameHeader h{};
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_RESYNC);
  EXPECT_EQ(s.Pos(), static_cast<int64_t>(realStart + 4));
}

TEST(ReadFrameHeader, ConfirmationLooksOnlyAtTheMaskedBits) {
  HeaderFields f = Mpeg1();
  std::vector<uint8_t> d(3, 0);
  auto fr = kxtest::SilentFrame(f);
  d.insert(d.end(), fr.begin(), fr.end());
  HeaderFields odd = f;
  odd.bitrate = 15;  // not a valid frame start by itself
  kxtest::PutWord(d, MakeHeader(odd));
  StreamRef s(d);
  uint32_t ref = MakeHeader(f);
  FrameHeader h{};
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_RESYNC);
  EXPECT_EQ(s.Pos(), 7);
}

TEST(ReadFrameHeader, SamplingFrequencyChangeLosesTheRestOfTheStream) {
  HeaderFields a = Mpeg1();
  HeaderFields b = a;
  b.rate = 1;  // 48 kHz
  // The first frame fits; the next differs only in the sampling frequency.
  std::vector<uint8_t> d = Frames(a, 1);
  auto rest = Frames(b, 60);  // over two searches' worth of bytes
  d.insert(d.end(), rest.begin(), rest.end());
  StreamRef s(d);
  uint32_t ref = MakeHeader(a);
  FrameHeader h{};
  ASSERT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_OK);
  ASSERT_EQ(s.s->Seek(kxtest::FrameBytes(a), ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_E_BAD_FORMAT);
  EXPECT_EQ(ref, MakeHeader(a)) << "only a confirmed candidate replaces the reference";
  EXPECT_EQ(s.Pos(), static_cast<int64_t>(kxtest::FrameBytes(a) + 4 + 8192));
  // A later call goes on searching from there and again finds nothing.
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_E_BAD_FORMAT);
}

TEST(ReadFrameHeader, FreeFormatIsNeverAccepted) {
  HeaderFields f = Mpeg1();
  f.bitrate = 0;
  std::vector<uint8_t> d;
  for (int i = 0; i < 30; ++i) {
    kxtest::PutWord(d, MakeHeader(f));
    d.resize(d.size() + 413, 0);
  }
  StreamRef s(d);
  uint32_t ref = MakeHeader(f);  // even a free-format reference does not let it pass
  FrameHeader h{};
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_E_BAD_FORMAT);
  KxResult r;
  while ((r = ReadFrameHeader(h, s.s, ref)) == AF_E_BAD_FORMAT) {
  }
  EXPECT_EQ(r, AF_S_END_OF_DATA);
}

TEST(ReadFrameHeader, LookAheadBeyondTheEndEndsTheSearch) {
  // Junk, then the stream's last frame: only the fast path could take it.
  auto frame = kxtest::SilentFrame(Mpeg1());
  std::vector<uint8_t> d(10, 0);
  d.insert(d.end(), frame.begin(), frame.end());
  {
    StreamRef s(d);
    uint32_t ref = MakeHeader(Mpeg1());
    FrameHeader h{};
    EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_END_OF_DATA);
  }
  {
    StreamRef s(frame);
    uint32_t ref = MakeHeader(Mpeg1());
    FrameHeader h{};
    EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_OK);
  }
}

// The search tests candidates starting 1 to 8192 bytes after the refused four: a
// frame behind 8192 bytes of garbage is still found, behind 8193 or more it is not.
TEST(ReadFrameHeader, SearchGivesUpAfter8192Steps) {
  auto frames = Frames(Mpeg1(), 3);
  const int64_t frameBytes = kxtest::FrameBytes(Mpeg1());
  for (size_t garbage : {size_t{8191}, size_t{8192}, size_t{8193}, size_t{9000}}) {
    std::vector<uint8_t> d(garbage, 0x00);
    d.insert(d.end(), frames.begin(), frames.end());
    StreamRef s(d);
    uint32_t ref = MakeHeader(Mpeg1());
    FrameHeader h{};
    const KxResult r = ReadFrameHeader(h, s.s, ref);
    if (garbage <= 8192) {
      EXPECT_EQ(r, AF_S_RESYNC) << garbage;
      EXPECT_EQ(s.Pos(), static_cast<int64_t>(garbage + 4));
    } else {
      EXPECT_EQ(r, AF_E_BAD_FORMAT) << garbage;
      EXPECT_EQ(s.Pos(), 4 + 8192);
      // The next call resumes from there: 8196 bytes in, past the start of a frame
      // at 8193 (whose header is then lost), before the start of one at 9000.
      EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_RESYNC) << garbage;
      const int64_t found = garbage < 8196 ? static_cast<int64_t>(garbage) + frameBytes : static_cast<int64_t>(garbage);
      EXPECT_EQ(s.Pos(), found + 4);
    }
  }
}

TEST(ReadFrameHeader, EmptyOrShortStreamIsEndOfData) {
  StreamRef s(std::vector<uint8_t>{0xFF, 0xFB});
  uint32_t ref = MakeHeader(Mpeg1());
  FrameHeader h{};
  EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_END_OF_DATA);
}

TEST(ReadFrameHeader, FailingStreamOperationsGiveEndOfData) {
  std::vector<uint8_t> d(20, 0);
  auto frames = Frames(Mpeg1(), 2);
  d.insert(d.end(), frames.begin(), frames.end());
  // Count the calls of a clean search: read 4, 20 single reads, tell, seek, read, seek.
  uint64_t clean = 0;
  {
    StreamRef s(d);
    uint32_t ref = MakeHeader(Mpeg1());
    FrameHeader h{};
    ASSERT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_RESYNC);
    clean = s.s->CallCount();
  }
  ASSERT_EQ(clean, 1u + 20u + 4u);
  for (uint64_t n = 1; n <= clean; ++n) {
    StreamRef s(d);
    s.s->FailCall(n);
    uint32_t ref = MakeHeader(Mpeg1());
    FrameHeader h{};
    EXPECT_EQ(ReadFrameHeader(h, s.s, ref), AF_S_END_OF_DATA) << "failing call " << n;
  }
}

}  // namespace
}  // namespace kxmp3
