// APE tag reader: byte-built tags (versions 1000 and 2000, a header block, read-only
// and duplicate items, malformed footers and items) with and without an ID3v1 tag
// behind them.
#include <gtest/gtest.h>

#include <cstring>

#include "tag_test_util.h"
#include "tags/ape_tag.h"
#include "tags/replaygain.h"

namespace {

using kxmp3::ReadApeTag;
using kxmp3::ReplayGainRecord;
using namespace kxtest;

RecordPtr Read(const Bytes& data, ReplayGainRecord* rg = nullptr) {
  ReplayGainRecord scratch;
  auto stream = MakeStream(data);
  return RecordPtr(ReadApeTag(stream.get(), rg ? rg : &scratch));
}

kxmp3::ApeTagFields Analyze(const Bytes& data) {
  auto stream = MakeStream(data);
  kxmp3::KXMACIO io;
  io.Attach(stream.get());
  kxmp3::ApeTagFields fields;
  kxmp3::AnalyzeApeTag(&io, &fields);
  return fields;
}

const Bytes kNoV1;  // no ID3v1 tag behind the APE tag

TEST(ApeTag, ReadsTheSevenFields) {
  const Bytes file = Cat({AudioFiller(), ApeTag({ApeItem("Title", "Le Titre"), ApeItem("Artist", "L'Artiste"),
                                                 ApeItem("Album", "Album ✓"), ApeItem("Year", "2011"),
                                                 ApeItem("Track", "5/9"), ApeItem("Genre", "Jazz"),
                                                 ApeItem("Comment", "Line1\nLine2")})});
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"Le Titre");
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"L'Artiste");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"Album ✓");
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"2011");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"5/9");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Jazz");
  EXPECT_EQ(Field(record, kxmp3::kCommentComment), u"Line1 Line2");
}

TEST(ApeTag, OnlyAnId3v1TagGivesNoApeRecord) {
  const Bytes file = Cat({AudioFiller(), Id3v1("T", "A", "", "1999", "", 3, 17)});
  EXPECT_EQ(Read(file), nullptr);
  const kxmp3::ApeTagFields fields = Analyze(file);
  EXPECT_TRUE(fields.hasId3v1);
  EXPECT_FALSE(fields.hasApeTag);
  EXPECT_EQ(fields.apeVersion, -1);
  EXPECT_EQ(fields.totalTagBytes, 128u);
  EXPECT_EQ(fields.FieldText(u"Title"), u"T");
  EXPECT_EQ(fields.FieldText(u"Track"), u"3");  // "%d": no leading zero here
}

TEST(ApeTag, YearComesFromTheId3v1TagBehindIt) {
  const Bytes file = Cat({AudioFiller(), ApeTag({ApeItem("Title", "APE Title")}),
                          Id3v1("V1 Title", "V1 Artist", "", "1999", "", -1, 17)});
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentYear), u"1999");
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"APE Title");  // the APE item overrides
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"V1 Artist");
  EXPECT_EQ(Field(record, kxmp3::kCommentGenre), u"Rock");
  EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"");
}

TEST(ApeTag, LaterDuplicateKeyWins) {
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("TITLE", "first"), ApeItem("Title", "second")})}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"second");
  RecordPtr reversed = Read(Cat({AudioFiller(), ApeTag({ApeItem("Title", "first"), ApeItem("TITLE", "second")})}));
  EXPECT_EQ(Field(reversed, kxmp3::kCommentTitle), u"second");
}

TEST(ApeTag, ReadOnlyItemIsNotReplacedByALaterOne) {
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("Title", "locked", 1), ApeItem("TITLE", "later")})}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"locked");
}

TEST(ApeTag, FootersThatAreNoTag) {
  const std::vector<Bytes> items = {ApeItem("Title", "x")};
  ApeOptions v2001;
  v2001.version = 2001;
  EXPECT_EQ(Read(Cat({AudioFiller(), ApeTag(items, v2001)})), nullptr);
  ApeOptions isHeader;
  isHeader.footerFlags = 1u << 29;
  EXPECT_EQ(Read(Cat({AudioFiller(), ApeTag(items, isHeader)})), nullptr);
  ApeOptions tooMany;
  tooMany.itemCount = 65537;
  EXPECT_EQ(Read(Cat({AudioFiller(), ApeTag(items, tooMany)})), nullptr);
  ApeOptions tooBig;
  tooBig.tagSize = 16 * 1024 * 1024 + 33;
  EXPECT_EQ(Read(Cat({AudioFiller(), ApeTag(items, tooBig)})), nullptr);
  for (int64_t size : {0, 1, 31}) {
    ApeOptions small;
    small.tagSize = size;
    EXPECT_EQ(Read(Cat({AudioFiller(), ApeTag(items, small)})), nullptr) << size;
    EXPECT_FALSE(Analyze(Cat({AudioFiller(), ApeTag(items, small)})).hasApeTag) << size;
  }
  Bytes badMagic = Cat({AudioFiller(), ApeTag(items)});
  badMagic[badMagic.size() - 32] = 'X';
  EXPECT_EQ(Read(badMagic), nullptr);
}

TEST(ApeTag, FooterLimitsThatStillAreATag) {
  ApeOptions v1000;
  v1000.version = 1000;
  EXPECT_NE(Read(Cat({AudioFiller(), ApeTag({ApeItem("Title", "x")}, v1000)})), nullptr);
  ApeOptions maxItems;
  maxItems.itemCount = 65536;  // more than present: the parse stops at the end of the area
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("Title", "x")}, maxItems)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"x");
  ApeOptions emptyTag;
  emptyTag.tagSize = 32;  // a footer with no items: a tag without fields
  const kxmp3::ApeTagFields fields = Analyze(Cat({AudioFiller(), ApeTag({}, emptyTag)}));
  EXPECT_TRUE(fields.hasApeTag);
  EXPECT_EQ(fields.FieldCount(), 0u);
  EXPECT_EQ(Read(Cat({AudioFiller(), ApeTag({}, emptyTag)})), nullptr);
}

TEST(ApeTag, FooterWithTheHeaderBitCountsTheHeader) {
  ApeOptions withHeader;
  withHeader.withHeader = true;
  const Bytes file = Cat({AudioFiller(), ApeTag({ApeItem("Artist", "Header tag")}, withHeader),
                          Id3v1("", "", "", "", "", -1, 0)});
  const kxmp3::ApeTagFields fields = Analyze(file);
  EXPECT_TRUE(fields.hasApeTag);
  EXPECT_TRUE(fields.hasId3v1);
  EXPECT_EQ(fields.apeVersion, 2000);
  const uint64_t itemBytes = ApeItem("Artist", "Header tag").size();
  EXPECT_EQ(fields.totalTagBytes, 128u + itemBytes + 32u + 32u);
  RecordPtr record = Read(file);
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"Header tag");
}

TEST(ApeTag, Id3v1GenreWordedByTheApeTable) {
  const Bytes ape = ApeTag({ApeItem("Title", "x")});
  EXPECT_EQ(Field(Read(Cat({AudioFiller(), ape, Id3v1("", "", "", "", "", -1, 29)})), kxmp3::kCommentGenre),
            u"Jazz+Funk");
  EXPECT_EQ(Field(Read(Cat({AudioFiller(), ape, Id3v1("", "", "", "", "", -1, 148)})), kxmp3::kCommentGenre),
            u"Undefined");
  EXPECT_EQ(Field(Read(Cat({AudioFiller(), ape, Id3v1("", "", "", "", "", -1, 147)})), kxmp3::kCommentGenre),
            u"SynthPop");
  EXPECT_EQ(Field(Read(Cat({AudioFiller(), ape, Id3v1("", "", "", "", "", -1, 255)})), kxmp3::kCommentGenre),
            u"Undefined");
}

TEST(ApeTag, Id3v1ValuesAreTrimmedAndEmptyOnesRemoved) {
  const kxmp3::ApeTagFields fields =
      Analyze(Cat({AudioFiller(), ApeTag({}, ApeOptions{2000, 0, 32, 0, false}),
                   Id3v1("Padded   ", "   ", "", "1999", "Comment  ", -1, 0)}));
  EXPECT_EQ(fields.FieldText(u"Title"), u"Padded");
  EXPECT_EQ(fields.FindField(u"Artist"), -1);
  EXPECT_EQ(fields.FindField(u"Album"), -1);
  EXPECT_EQ(fields.FieldText(u"Comment"), u"Comment");
  EXPECT_EQ(fields.FindField(u"Track"), -1);
  EXPECT_EQ(fields.FieldText(u"Genre"), u"Blues");
}

TEST(ApeTag, EmptyApeValueRemovesTheId3v1Value) {
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("Artist", ""), ApeItem("Title", "t")}),
                               Id3v1("", "V1 Artist", "", "", "", -1, 0)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"");
}

TEST(ApeTag, AlbumGainFromUpperCaseItem) {
  ReplayGainRecord rg;
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("REPLAYGAIN_ALBUM_GAIN", "-3.20 dB")})}), &rg);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(rg.flags, kxmp3::RG_FLAG_ALBUM_GAIN);
  EXPECT_DOUBLE_EQ(+rg.albumGain, -3.2);
}

TEST(ApeTag, AllFourReplayGainItems) {
  ReplayGainRecord rg;
  Read(Cat({AudioFiller(), ApeTag({ApeItem("replaygain_track_gain", "+1.5 dB"), ApeItem("Replaygain_Track_Peak", "0.9"),
                                   ApeItem("replaygain_album_gain", "-0.5dB"), ApeItem("replaygain_album_peak", "1.1")})}),
       &rg);
  EXPECT_EQ(rg.flags, 15u);
  EXPECT_DOUBLE_EQ(+rg.trackGain, 1.5);
  EXPECT_DOUBLE_EQ(+rg.trackPeak, 0.9);
  EXPECT_DOUBLE_EQ(+rg.albumGain, -0.5);
  EXPECT_DOUBLE_EQ(+rg.albumPeak, 1.1);
}

TEST(ApeTag, ZeroUnparsableAndOverlongReplayGainValuesAreIgnored) {
  ReplayGainRecord rg;
  Read(Cat({AudioFiller(), ApeTag({ApeItem("replaygain_track_gain", "0.00 dB"), ApeItem("replaygain_track_peak", "abc"),
                                   ApeItem("replaygain_album_gain", std::string(255, ' ') + "-1"),
                                   ApeItem("replaygain_album_peak", std::string(254, ' ') + "1")})}),
       &rg);
  // 255 blanks and "-1" need 258 characters with the terminator: too long for the
  // 256-character buffer. 254 blanks and "1" fit exactly.
  EXPECT_EQ(rg.flags, kxmp3::RG_FLAG_ALBUM_PEAK);
  EXPECT_DOUBLE_EQ(+rg.albumPeak, 1.0);
}

TEST(ApeTag, ReplayGainOfATagWithoutRecordIsCleared) {
  ReplayGainRecord rg;
  std::memset(&rg, 0x33, sizeof(rg));
  EXPECT_EQ(Read(AudioFiller(), &rg), nullptr);
  EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
  EXPECT_EQ(rg.flags, 0u);
}

TEST(ApeTag, KeyWithABadCharacterEndsTheItemList) {
  Bytes bad = ApeItem("Ti\x01tle", "bad");
  RecordPtr record =
      Read(Cat({AudioFiller(), ApeTag({ApeItem("Artist", "kept"), bad, ApeItem("Album", "never read")})}));
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"kept");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"");
  Bytes high = ApeItem("Ti\x7Ftle", "bad");
  RecordPtr record2 = Read(Cat({AudioFiller(), ApeTag({ApeItem("Artist", "kept"), high, ApeItem("Album", "x")})}));
  EXPECT_EQ(Field(record2, kxmp3::kCommentAlbum), u"");
}

TEST(ApeTag, ItemRunningPastTheItemAreaEndsTheList) {
  Bytes overrun = ApeItem("Album", "short");
  overrun[0] = 0xFF;  // value size 255 + ...
  overrun[3] = 0x7F;
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("Artist", "kept"), overrun})}));
  EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"kept");
  EXPECT_EQ(Field(record, kxmp3::kCommentAlbum), u"");
}

TEST(ApeTag, ItemsBeyond256FieldsAreIgnored) {
  std::vector<Bytes> items;
  for (int i = 0; i < 300; ++i) items.push_back(ApeItem("Key" + std::to_string(i), "v"));
  items.push_back(ApeItem("Title", "too late"));
  const Bytes file = Cat({AudioFiller(), ApeTag(items)});
  const kxmp3::ApeTagFields fields = Analyze(file);
  EXPECT_EQ(fields.FieldCount(), 256u);
  EXPECT_EQ(fields.FindField(u"Key255"), 255);
  EXPECT_EQ(fields.FindField(u"Key256"), -1);
  RecordPtr record = Read(file);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"");
}

TEST(ApeTag, Version1000TextIsAnsi) {
  CodePageGuard cp(1252);
  ASSERT_TRUE(cp.ok());
  ApeOptions v1;
  v1.version = 1000;
  RecordPtr record = Read(Cat({AudioFiller(), ApeTag({ApeItem("Title", "caf\xE9")}, v1)}));
  EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"café");
  RecordPtr v2 = Read(Cat({AudioFiller(), ApeTag({ApeItem("Title", "caf\xC3\xA9"), ApeItem("Album", "caf\xE9", 2)})}));
  EXPECT_EQ(Field(v2, kxmp3::kCommentTitle), u"café");
  EXPECT_EQ(Field(v2, kxmp3::kCommentAlbum), u"café");  // binary data type: ANSI
}

TEST(ApeTag, TagLargerThanTheStreamLoadsNoItems) {
  ApeOptions huge;
  huge.tagSize = 1000000;
  const Bytes file = Cat({AudioFiller(), ApeTag({ApeItem("Title", "x")}, huge)});
  const kxmp3::ApeTagFields fields = Analyze(file);
  EXPECT_TRUE(fields.hasApeTag);
  EXPECT_EQ(fields.FieldCount(), 0u);
  EXPECT_EQ(Read(file), nullptr);
}

TEST(ApeTag, StreamPositionIsRestored) {
  auto stream = MakeStream(Cat({AudioFiller(200), ApeTag({ApeItem("Title", "x")}), Id3v1("", "", "", "", "", -1, 0)}));
  ASSERT_EQ(stream->Seek(99, ZS_SEEK_SET), AF_S_OK);
  ReplayGainRecord rg;
  RecordPtr record(ReadApeTag(stream.get(), &rg));
  EXPECT_NE(record, nullptr);
  EXPECT_EQ(stream->RawPosition(), 99);
  EXPECT_EQ(stream->GetRefCount(), 1u);  // the adapter's reference is gone
}

TEST(ApeTag, ShortStreamsAndStreamFaults) {
  EXPECT_EQ(Read(Bytes()), nullptr);
  EXPECT_EQ(Read(Bytes(31, 'A')), nullptr);
  const Bytes file = Cat({AudioFiller(), ApeTag({ApeItem("Title", "x")}), Id3v1("t", "", "", "", "", -1, 0)});
  for (uint64_t call = 1; call <= 10; ++call) {
    auto stream = MakeStream(file);
    stream->FailCall(call);
    ReplayGainRecord rg;
    const int64_t live = ZCoreLiveBlocks();
    RecordPtr record(ReadApeTag(stream.get(), &rg));
    record.reset();
    EXPECT_EQ(ZCoreLiveBlocks(), live) << call;
  }
}

}  // namespace
