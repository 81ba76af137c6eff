// RIFF INFO reader: byte-built RIFF files with LIST chunks of several kinds.
#include <gtest/gtest.h>

#include "tag_test_util.h"
#include "tags/riff_info.h"

namespace {

using kxmp3::ReadRiffInfoList;
using namespace kxtest;

// A zero-terminated text as an INFO sub-chunk body.
Bytes Text(const std::string& text) {
  Bytes b(text.begin(), text.end());
  b.push_back(0);
  return b;
}

Bytes List(const std::string& type, std::initializer_list<Bytes> chunks) {
  Bytes body;
  Put(body, type);
  for (const Bytes& c : chunks) body.insert(body.end(), c.begin(), c.end());
  return RiffChunk("LIST", body);
}

Bytes Riff(std::initializer_list<Bytes> chunks, const std::string& form = "WAVE") {
  Bytes body;
  Put(body, form);
  for (const Bytes& c : chunks) body.insert(body.end(), c.begin(), c.end());
  return RiffChunk("RIFF", body);
}

const Bytes kFmt = RiffChunk("fmt ", Bytes(30, 1));
const Bytes kData = RiffChunk("data", AudioFiller(100));

RecordPtr Read(const Bytes& data, const char16_t* track = nullptr) {
  auto stream = MakeStream(data);
  return RecordPtr(ReadRiffInfoList(stream.get(), track));
}

TEST(RiffInfo, ReadsEveryInfoChunk) {
  const Bytes file = Riff({kFmt, List("INFO", {RiffChunk("IART", Text("Artist")), RiffChunk("INAM", Text("Name")),
                                               RiffChunk("IPRD", Text("Product")), RiffChunk("ICRD", Text("2001")),
                                               RiffChunk("ITRK", Text("4")), RiffChunk("IGNR", Text("Ambient")),
                                               RiffChunk("ICMT", Text("Comment\r\nline")),
                                               RiffChunk("ISFT", Text("Software"))}),
                           kData});
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Artist");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Name");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"Product");
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"2001");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"4");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Ambient");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Comment  line");
}

TEST(RiffInfo, FirstListOfAnotherTypeMeansNoRecord) {
  const Bytes file = Riff({kFmt, List("adtl", {RiffChunk("labl", Bytes(8, 1))}),
                           List("INFO", {RiffChunk("INAM", Text("Never found"))}), kData});
  EXPECT_EQ(Read(file), nullptr);
}

TEST(RiffInfo, NameWinsOverSubjectInEitherOrder) {
  EXPECT_EQ(Field(Read(Riff({List("INFO", {RiffChunk("ISBJ", Text("Subject")), RiffChunk("INAM", Text("Name"))})})),
                  kxmp3::kCommentTitle),
            u"Name");
  EXPECT_EQ(Field(Read(Riff({List("INFO", {RiffChunk("INAM", Text("Name")), RiffChunk("ISBJ", Text("Subject"))})})),
                  kxmp3::kCommentTitle),
            u"Name");
  EXPECT_EQ(Field(Read(Riff({List("INFO", {RiffChunk("ISBJ", Text("Subject"))})})), kxmp3::kCommentTitle),
            u"Subject");
}

TEST(RiffInfo, Id3v1TrackStandsInForAMissingTrackChunk) {
  const Bytes file = Riff({kFmt, List("INFO", {RiffChunk("INAM", Text("Name"))}), kData});
  EXPECT_EQ(Field(Read(file, u"09"), kxmp3::kCommentTrack), u"09");
  EXPECT_EQ(Field(Read(file, nullptr), kxmp3::kCommentTrack), u"");
  const Bytes withTrack = Riff({List("INFO", {RiffChunk("ITRK", Text("2"))})});
  EXPECT_EQ(Field(Read(withTrack, u"09"), kxmp3::kCommentTrack), u"2");
}

TEST(RiffInfo, OddSizedChunkIsFollowedByAPadByte) {
  // "Odd" plus terminator is 4 bytes; "Oddd" plus terminator 5, so a pad byte follows.
  Bytes odd = RiffChunk("IART", Text("Oddd"));
  ASSERT_EQ(odd.size(), 8u + 5u + 1u);
  odd.back() = 'P';  // a pad byte that is not zero still separates nothing: it is skipped
  const Bytes file = Riff({List("INFO", {odd, RiffChunk("INAM", Text("After pad"))})});
  RecordPtr record = Read(file);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Oddd");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"After pad");
}

TEST(RiffInfo, TextWithoutTerminatorEndsAtTheNextChunk) {
  // "ABC" without terminator, odd size, a zero pad byte; then "XYZW" without terminator
  // directly before the next chunk ID, whose first byte the walk zeroes.
  Bytes first = RiffChunk("IART", Bytes{'A', 'B', 'C'});
  Bytes second = RiffChunk("INAM", Bytes{'X', 'Y', 'Z', 'W'});
  const Bytes file = Riff({List("INFO", {first, second, RiffChunk("IPRD", Text("P"))})});
  RecordPtr record = Read(file);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"ABC");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"XYZW");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"P");
}

TEST(RiffInfo, SubChunkClaimingMoreThanTheListEndsTheWalk) {
  Bytes overrun;
  Put(overrun, "ICMT");
  PutLE32(overrun, 5000);
  Put(overrun, "text");
  const Bytes file = Riff({List("INFO", {RiffChunk("IART", Text("Kept")), overrun}), kData});
  RecordPtr record = Read(file);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Kept");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"");
}

TEST(RiffInfo, ShortOrMissingLists) {
  // LIST size below 5.
  Bytes tiny;
  Put(tiny, "LIST");
  PutLE32(tiny, 4);
  Put(tiny, "INFO");
  EXPECT_EQ(Read(Riff({tiny})), nullptr);
  // LIST "INFO" with a body under 8 bytes: a record with empty fields.
  RecordPtr empty = Read(Riff({List("INFO", {Bytes{'a', 'b'}})}));
  ASSERT_NE(empty, nullptr);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(Field(empty, i), u"");
  // No LIST at all, no RIFF, too short.
  EXPECT_EQ(Read(Riff({kFmt, kData})), nullptr);
  Bytes notRiff = Riff({kFmt});
  notRiff[0] = 'X';
  EXPECT_EQ(Read(notRiff), nullptr);
  EXPECT_EQ(Read(Bytes{'R', 'I', 'F', 'F'}), nullptr);
  EXPECT_EQ(Read(Bytes()), nullptr);
}

TEST(RiffInfo, ChunkWalkIsBoundedByTheStream) {
  // A chunk claiming 4 GiB - 1 bytes: the walk stops at the end of the stream.
  Bytes huge;
  Put(huge, "junk");
  PutLE32(huge, 0xFFFFFFFF);
  EXPECT_EQ(Read(Riff({huge})), nullptr);
  // Many empty chunks before the end: every step moves forward.
  Bytes many;
  for (int i = 0; i < 2000; ++i) {
    Put(many, "zero");
    PutLE32(many, 0);
  }
  EXPECT_EQ(Read(Riff({many})), nullptr);
  EXPECT_NE(Read(Riff({many, List("INFO", {RiffChunk("INAM", Text("Far"))})})), nullptr);
}

TEST(RiffInfo, ListLongerThanTheFileReadsWhatThereIs) {
  // The LIST says 1 MiB but the file ends after its first sub-chunk: the missing bytes
  // read as zeros, the walk keeps what it found, and nothing of 1 MiB is allocated.
  Bytes list;
  Put(list, "LIST");
  PutLE32(list, 1 << 20);
  Put(list, "INFO");
  list = Cat({list, RiffChunk("INAM", Text("Cut short"))});
  Bytes file = Riff({kFmt});
  file = Cat({file, list});
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Cut short");
  // A sub-chunk whose text runs into the missing part ends at the file's end.
  Bytes cut;
  Put(cut, "LIST");
  PutLE32(cut, 1 << 20);
  Put(cut, "INFO");
  Put(cut, "IART");
  PutLE32(cut, 100);
  Put(cut, "Trunc");
  RecordPtr record2 = Read(Cat({Riff({kFmt}), cut}));
  EXPECT_EQ(Field(record2, kxmp3::kCommentArtist), u"Trunc");
}

TEST(RiffInfo, StreamPositionRestoredAndFaultsHandled) {
  const Bytes file = Riff({kFmt, List("INFO", {RiffChunk("INAM", Text("Name"))}), kData});
  auto stream = MakeStream(file);
  ASSERT_EQ(stream->Seek(33, ZS_SEEK_SET), AF_S_OK);
  RecordPtr record(ReadRiffInfoList(stream.get(), nullptr));
  EXPECT_NE(record, nullptr);
  EXPECT_EQ(stream->RawPosition(), 33);
  auto bad = MakeStream(Riff({kFmt}));
  ASSERT_EQ(bad->Seek(7, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(ReadRiffInfoList(bad.get(), nullptr), nullptr);
  EXPECT_EQ(bad->RawPosition(), 7);
  for (uint64_t call = 1; call <= 12; ++call) {
    auto faulty = MakeStream(file);
    faulty->FailCall(call);
    const int64_t live = ZCoreLiveBlocks();
    RecordPtr r(ReadRiffInfoList(faulty.get(), u"1"));
    r.reset();
    EXPECT_EQ(ZCoreLiveBlocks(), live) << call;
  }
}

TEST(RiffInfo, TextsUseTheAnsiCodePage) {
  const Bytes file = Riff({List("INFO", {RiffChunk("INAM", Text("\x82\xA0\x82\xA2"))})});
  {
    CodePageGuard cp(1252);
    ASSERT_TRUE(cp.ok());
    EXPECT_EQ(Field(Read(file), kxmp3::kCommentTitle), u"\u201A\u00A0\u201A\u00A2");
  }
  {
    CodePageGuard cp(932);
    ASSERT_TRUE(cp.ok());
    EXPECT_EQ(Field(Read(file), kxmp3::kCommentTitle), u"あい");
    // The ID3v1 track goes through the code page and back.
    EXPECT_EQ(Field(Read(file, u"07"), kxmp3::kCommentTrack), u"07");
  }
}

}  // namespace
