// ID3v1 reader: byte-built tags, the code-page-aware trimming and the stream position.
#include <gtest/gtest.h>

#include <cstring>

#include "tag_test_util.h"
#include "tags/id3v1.h"
#include "tags/replaygain.h"

namespace {

// What the system's code page 932 conversion makes of a lead byte whose trail byte
// is no valid trail (0x81 0x20), and of a lead byte with nothing after it. POSIX:
// one U+FFFD for the lead byte, and the 0x20 read as a blank. Windows: its default
// character for the code page, U+30FB, for the pair as for the lone lead byte.
#if defined(_WIN32)
constexpr const char16_t* kBadPair932 = u"\u30FB";
constexpr const char16_t* kLoneLead932 = u"\u30FB";
#else
constexpr const char16_t* kBadPair932 = u"\uFFFD ";
constexpr const char16_t* kLoneLead932 = u"\uFFFD";
#endif

using kxmp3::ReadId3v1Tag;
using kxmp3::ReplayGainRecord;
using namespace kxtest;

RecordPtr Read(const Bytes& data, ReplayGainRecord* rg = nullptr) {
  ReplayGainRecord scratch;
  auto stream = MakeStream(data);
  return RecordPtr(ReadId3v1Tag(stream.get(), rg ? rg : &scratch));
}

TEST(Id3v1, ReadsEveryField) {
  const Bytes file = Cat({AudioFiller(), Id3v1("Title", "Artist", "Album", "1999", "A comment", -1, 17)});
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Artist");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Title");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"Album");
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"1999");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Rock");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"A comment");
}

TEST(Id3v1, StreamShorterThanATagGivesNoRecord) {
  Bytes shortFile;
  Put(shortFile, "TAG");
  shortFile.resize(127, 'x');
  EXPECT_EQ(Read(shortFile), nullptr);
  EXPECT_EQ(Read(Bytes()), nullptr);
}

TEST(Id3v1, NoTagMagicGivesNoRecord) {
  Bytes file = Cat({AudioFiller(), Id3v1("T", "A", "", "", "", -1, 0)});
  file[file.size() - 128] = 'X';
  EXPECT_EQ(Read(file), nullptr);
}

TEST(Id3v1, TrackFiveCutsTheCommentTo28Bytes) {
  Bytes tag = Id3v1("", "", "", "", "", -1, 0);
  // 30 comment bytes written over offset 97..126, then the ID3v1.1 marker: 125 = 0, 126 = 5.
  std::memcpy(tag.data() + 97, "0123456789012345678901234567XY", 30);
  tag[125] = 0;
  tag[126] = 5;
  RecordPtr record = Read(Cat({AudioFiller(), tag}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"05");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"0123456789012345678901234567");
}

TEST(Id3v1, TrackNumbersHaveAtLeastTwoDigits) {
  RecordPtr seven = Read(Id3v1("", "", "", "", "", 7, 0));
  EXPECT_EQ(Field(seven, kxmp3::kCommentTrack), u"07");
  RecordPtr big = Read(Id3v1("", "", "", "", "", 123, 0));
  EXPECT_EQ(Field(big, kxmp3::kCommentTrack), u"123");
  RecordPtr max = Read(Id3v1("", "", "", "", "", 255, 0));
  EXPECT_EQ(Field(max, kxmp3::kCommentTrack), u"255");
}

TEST(Id3v1, ZeroMarkerAndZeroTrackReadTheCommentOver30Bytes) {
  Bytes tag = Id3v1("", "", "", "", "Short comment", -1, 0);
  tag[125] = 0;
  tag[126] = 0;
  RecordPtr record = Read(tag);
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Short comment");
  // Without a zero at 125 all 30 bytes are comment, the last two included.
  Bytes full = Id3v1("", "", "", "", "", -1, 0);
  std::memcpy(full.data() + 97, "abcdefghijklmnopqrstuvwxyz0123", 30);
  RecordPtr fullRecord = Read(full);
  EXPECT_EQ(Field(fullRecord, kxmp3::kCommentComment), u"abcdefghijklmnopqrstuvwxyz0123");
  EXPECT_EQ(Field(fullRecord, kxmp3::kCommentTrack), u"");
}

TEST(Id3v1, GenreBytes) {
  EXPECT_EQ(Field(Read(Id3v1("", "", "", "", "", -1, 0)), kxmp3::kCommentGenre), u"Blues");
  EXPECT_EQ(Field(Read(Id3v1("", "", "", "", "", -1, 147)), kxmp3::kCommentGenre), u"Synthpop");
  EXPECT_EQ(Field(Read(Id3v1("", "", "", "", "", -1, 148)), kxmp3::kCommentGenre), u"Unknown");
  EXPECT_EQ(Field(Read(Id3v1("", "", "", "", "", -1, 149)), kxmp3::kCommentGenre), u"Unknown");
  EXPECT_EQ(Field(Read(Id3v1("", "", "", "", "", -1, 255)), kxmp3::kCommentGenre), u"Unknown");
}

TEST(Id3v1, BlankTitleBecomesEmptyAndZeroStartedTitleStaysEmpty) {
  RecordPtr blanks = Read(Id3v1(std::string(30, ' '), "Trailing \t ", "", "", "", -1, 0));
  EXPECT_EQ(Field(blanks, kxmp3::kCommentTitle), u"");
  EXPECT_EQ(Field(blanks, kxmp3::kCommentArtist), u"Trailing");
  Bytes tag = Id3v1("", "", "", "", "", -1, 0);
  std::memcpy(tag.data() + 4, "hidden", 6);  // title byte 0 (offset 3) stays zero
  RecordPtr zero = Read(tag);
  EXPECT_EQ(Field(zero, kxmp3::kCommentTitle), u"");
}

TEST(Id3v1, FieldsPaddedWithBlanksAreTrimmed) {
  RecordPtr record = Read(Id3v1("Padded title                  ", "A  B   ", "", "99  ", "", -1, 0));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Padded title");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"A  B");  // inner blanks stay
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"99");
}

TEST(Id3v1, CarriageReturnAndLineFeedBecomeBlanks) {
  RecordPtr record = Read(Id3v1("Line1\r\nLine2", "", "", "", "a\tb\nc", -1, 0));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Line1  Line2");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"a b c");
}

TEST(Id3v1, ShiftJisTrailByte0x20IsKept) {
  CodePageGuard cp(932);
  ASSERT_TRUE(cp.ok()) << "code page 932 is not available";
  // Title: "ab" then the double-byte character 0x81 0x20 (lead byte 0x81; its trail
  // byte looks like a blank) and nothing after it. Under 932 the pair is one
  // character and must not be cut; the trail byte is not a valid Shift-JIS trail, so
  // the system's conversion shows the pair as it shows any such pair.
  Bytes tag = Id3v1("", "", "", "", "", -1, 0);
  const uint8_t title[] = {'a', 'b', 0x81, 0x20};
  std::memcpy(tag.data() + 3, title, sizeof(title));
  char field[31] = {};
  std::memcpy(field, title, sizeof(title));
  kxmp3::TrimTrailingBlanksDbcs(field, sizeof(field));
  EXPECT_EQ(std::strlen(field), 4u) << "the trail byte was cut";
  RecordPtr record = Read(tag);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), std::u16string(u"ab") + kBadPair932);

  // With a valid double-byte character and real blanks after it, only the blanks go:
  // "あ" (0x82 0xA0) followed by two blanks.
  Bytes tag2 = Id3v1("", "", "", "", "", -1, 0);
  const uint8_t title2[] = {0x82, 0xA0, 0x20, 0x20};
  std::memcpy(tag2.data() + 3, title2, sizeof(title2));
  RecordPtr record2 = Read(tag2);
  EXPECT_EQ(Field(record2, kxmp3::kCommentTitle), u"あ");
}

TEST(Id3v1, SameBytesUnderCodePage1252TrimTheBlank) {
  CodePageGuard cp(1252);
  ASSERT_TRUE(cp.ok());
  char field[31] = {'a', 'b', static_cast<char>(0x81), 0x20};
  kxmp3::TrimTrailingBlanksDbcs(field, sizeof(field));
  EXPECT_EQ(std::strlen(field), 3u);  // 0x81 is a character of its own, the blank goes
}

TEST(Id3v1, LoneLeadByteAtTheEndOfAFullFieldIsNotReadPast) {
  CodePageGuard cp(932);
  ASSERT_TRUE(cp.ok());
  // A 4-byte buffer with no room for a terminator behind a lead byte: the scan stops.
  char exact[4] = {'x', 'y', ' ', static_cast<char>(0x82)};
  kxmp3::TrimTrailingBlanksDbcs(exact, sizeof(exact));
  EXPECT_EQ(exact[2], ' ');  // the lead byte reset the run: nothing cut
  // A lead byte right before the terminator.
  char field[5] = {'x', ' ', static_cast<char>(0x82), 0, 0};
  kxmp3::TrimTrailingBlanksDbcs(field, sizeof(field));
  EXPECT_EQ(field[1], ' ');
  // Through the reader: a 30-byte title ending in a lone lead byte.
  Bytes tag = Id3v1(std::string(29, 'z') + "\x82", "", "", "", "", -1, 0);
  RecordPtr record = Read(tag);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), std::u16string(29, u'z') + kLoneLead932);
}

TEST(Id3v1, ClearsTheReplayGainRecord) {
  ReplayGainRecord rg;
  std::memset(&rg, 0x55, sizeof(rg));
  RecordPtr record = Read(Id3v1("T", "", "", "", "", -1, 0), &rg);
  EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
  EXPECT_EQ(rg.size, 44u);
  EXPECT_EQ(rg.flags, 0u);
  std::memset(&rg, 0x55, sizeof(rg));
  EXPECT_EQ(Read(Bytes(10, 0), &rg), nullptr);
  EXPECT_EQ(rg.flags, 0u);
}

TEST(Id3v1, StreamPositionIsRestored) {
  auto stream = MakeStream(Cat({AudioFiller(300), Id3v1("T", "", "", "", "", -1, 0)}));
  ASSERT_EQ(stream->Seek(123, ZS_SEEK_SET), AF_S_OK);
  ReplayGainRecord rg;
  RecordPtr record(ReadId3v1Tag(stream.get(), &rg));
  EXPECT_NE(record, nullptr);
  EXPECT_EQ(stream->RawPosition(), 123);
  auto noTag = MakeStream(AudioFiller(300));
  ASSERT_EQ(noTag->Seek(77, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(ReadId3v1Tag(noTag.get(), &rg), nullptr);
  EXPECT_EQ(noTag->RawPosition(), 77);
}

TEST(Id3v1, FailingReadGivesNoRecordAndAllocatesNothing) {
  const Bytes file = Cat({AudioFiller(), Id3v1("T", "", "", "", "", -1, 0)});
  for (uint64_t call = 1; call <= 3; ++call) {
    auto stream = MakeStream(file);
    stream->FailCall(call);
    ReplayGainRecord rg;
    const int64_t live = ZCoreLiveBlocks();
    EXPECT_EQ(ReadId3v1Tag(stream.get(), &rg), nullptr) << call;
    EXPECT_EQ(ZCoreLiveBlocks(), live);
  }
  auto shortReads = MakeStream(file);
  shortReads->LimitReads(100);
  ReplayGainRecord rg;
  EXPECT_EQ(ReadId3v1Tag(shortReads.get(), &rg), nullptr);
}

TEST(Id3v1, UnderCodePages1252And932TheSameBytesGiveTheirCharacters) {
  Bytes tag = Id3v1("", "", "", "", "", -1, 0);
  const uint8_t title[] = {0x82, 0xA0, 0x82, 0xA2};
  std::memcpy(tag.data() + 3, title, sizeof(title));
  {
    CodePageGuard cp(1252);
    ASSERT_TRUE(cp.ok());
    EXPECT_EQ(Field(Read(tag), kxmp3::kCommentTitle), u"\u201A\u00A0\u201A\u00A2");
  }
  {
    CodePageGuard cp(932);
    ASSERT_TRUE(cp.ok());
    EXPECT_EQ(Field(Read(tag), kxmp3::kCommentTitle), u"あい");
  }
}

}  // namespace
