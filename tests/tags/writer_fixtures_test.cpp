// Files tagged by real writers (scripts/make_tag_fixtures.sh: mutagen, id3v2, ffmpeg)
// through the tag step of the open sequence: each field equals what the writer was
// told, after the merge rules, and the ReplayGain record the written values (values
// of 0.0 stay absent).
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "layout/container.h"
#include "tag_test_util.h"
#include "tags/id3v1.h"
#include "tags/id3v2.h"
#include "tags/replaygain.h"
#include "tags/tag_merge.h"

namespace {

using kxmp3::ReplayGainRecord;
using namespace kxtest;

using Fields = std::array<std::u16string, 7>;  // artist, title, album, year, track, genre, comment

struct Expected {
  const char* file;
  uint32_t containerType;
  Fields fields;
  uint32_t gainFlags;
  double trackGain, trackPeak, albumGain, albumPeak;
};

const Expected kFixtures[] = {
    {"id3v23_latin1.mp3", kxmp3::kContainerId3v2,
     {u"Artiste Café", u"Chanson d'été", u"Album Latin-1", u"1999", u"3/12", u"Rock", u"Commentaire en Latin-1"},
     15, -6.48, 0.988831, -5.20, 1.012345},
    {"id3v23_utf16.mp3", kxmp3::kContainerId3v2,
     {u"Ärtist ✓ 日本", u"Title – UTF-16", u"Album Ω", u"2003", u"7", u"Rock & Roll", u"UTF-16 comment ♪"},
     kxmp3::RG_FLAG_TRACK_GAIN, 1.5, 0, 0, 0},  // album gain written as 0.00 dB: absent
    {"id3v24_utf16be.mp3", kxmp3::kContainerId3v2,
     {u"Big Endian Artist", u"Titel ß", u"Album BE", u"2021-05-06", u"12/20", u"Electronic", u"Kommentar BE"},
     kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_ALBUM_PEAK, -2.25, 0, 0, 0.5},
    {"id3v24_utf8.mp3", kxmp3::kContainerId3v2,
     {u"アーティスト", u"日本語のタイトル", u"Álbum UTF-8", u"2010", u"1", u"17", u"Comentário UTF-8"},
     kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_TRACK_PEAK, -7.0, 0.75, 0, 0},
    {"id3v24_latin1.mp3", kxmp3::kContainerId3v2,
     {u"Latin Artist", u"Ünïcödé Title", u"Latin Album", u"1987", u"2", u"Electronic", u"Latin-1 in 2.4"},
     0, 0, 0, 0, 0},
    {"id3v11.mp3", kxmp3::kContainerBare,
     {u"V1 Artist", u"V1 Title", u"V1 Album", u"1999", u"07", u"Rock", u"V1 comment"}, 0, 0, 0, 0, 0},
    {"ape_replaygain.mp3", kxmp3::kContainerBareApe,
     {u"APE Artist", u"APE Title ✓", u"APE Album", u"2011", u"5", u"Jazz", u"APE comment"},
     15, -3.20, 0.891, -4.10, 0.999},
    // The APE tag has no Year: the ID3v1 tag behind it supplies 1999; genre byte 29 in
    // the APE table's wording; the track as the APE reader prints it.
    {"ape_id3v1.mp3", kxmp3::kContainerBareApe,
     {u"APE Artist", u"APE Title", u"", u"1999", u"4", u"Jazz+Funk", u""}, 0, 0, 0, 0, 0},
    // Title from ID3v2, album from APE; ID3v2 track gain, APE album gain.
    {"id3v2_ape.mp3", kxmp3::kContainerId3v2,
     {u"", u"ID3 Title", u"APE Album", u"", u"", u"", u""},
     kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_ALBUM_GAIN, -1.0, 0, -4.5, 0},
    // ffmpeg names the track chunk IPRT, which is not read: the ID3v1 track 9 fills in.
    {"riff_info.wav", kxmp3::kContainerRiffWave,
     {u"Riff Artist", u"Riff Title", u"Riff Album", u"2001", u"09", u"Ambient", u"Riff comment"},
     0, 0, 0, 0, 0},
};

TEST(WriterFixtures, FieldsAndReplayGainEqualWhatTheWriterWasTold) {
  CodePageGuard cp(1252);
  ASSERT_TRUE(cp.ok());
  for (const Expected& e : kFixtures) {
    SCOPED_TRACE(e.file);
    const Bytes data = TagFixture(e.file);
    ASSERT_FALSE(data.empty()) << "missing fixture";
    auto stream = MakeStream(data);
    ReplayGainRecord rg;
    kxmp3::ResetReplayGainRecord(&rg);
    RecordPtr record(kxmp3::ReadTagsForContainer(stream.get(), e.containerType, &rg));
    ASSERT_NE(record, nullptr);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(Field(record, i), e.fields[i]) << "field " << i;
    EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
    EXPECT_EQ(rg.size, 44u);
    EXPECT_EQ(rg.flags, e.gainFlags);
    // Values without their flag stay 0 in every one of these files.
    EXPECT_DOUBLE_EQ(+rg.trackGain, +e.trackGain);
    EXPECT_DOUBLE_EQ(+rg.trackPeak, +e.trackPeak);
    EXPECT_DOUBLE_EQ(+rg.albumGain, +e.albumGain);
    EXPECT_DOUBLE_EQ(+rg.albumPeak, +e.albumPeak);
  }
}

TEST(WriterFixtures, Id3v2ReaderAloneOnEveryMutagenFile) {
  for (const char* file : {"id3v23_latin1.mp3", "id3v23_utf16.mp3", "id3v24_utf16be.mp3", "id3v24_utf8.mp3",
                           "id3v24_latin1.mp3", "id3v2_ape.mp3"}) {
    SCOPED_TRACE(file);
    auto stream = MakeStream(TagFixture(file));
    ReplayGainRecord rg;
    RecordPtr record(kxmp3::ReadId3v2Tag(stream.get(), &rg));
    ASSERT_NE(record, nullptr);
    EXPECT_FALSE(Field(record, kxmp3::kCommentTitle).empty());
  }
}

TEST(WriterFixtures, ShiftJisId3v1UnderCodePages932And1252) {
  const Bytes data = TagFixture("id3v11_sjis.mp3");
  ASSERT_FALSE(data.empty()) << "missing fixture";
  {
    CodePageGuard cp(932);
    ASSERT_TRUE(cp.ok());
    auto stream = MakeStream(data);
    ReplayGainRecord rg;
    RecordPtr record(kxmp3::ReadId3v1Tag(stream.get(), &rg));
    EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"あい");
    EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"テスト");
    EXPECT_EQ(Field(record, kxmp3::kCommentTrack), u"03");
  }
  {
    CodePageGuard cp(1252);
    ASSERT_TRUE(cp.ok());
    auto stream = MakeStream(data);
    ReplayGainRecord rg;
    RecordPtr record(kxmp3::ReadId3v1Tag(stream.get(), &rg));
    EXPECT_EQ(Field(record, kxmp3::kCommentArtist), u"\u201A\u00A0\u201A\u00A2");
    EXPECT_EQ(Field(record, kxmp3::kCommentTitle), u"\u0192e\u0192X\u0192g");
  }
}

TEST(WriterFixtures, Latin1Id3v2TextUnderCodePage932) {
  // The same Latin-1 bytes read under code page 932: "Artiste Caf" + 0xE9, a lead
  // byte with nothing behind it, which the code page cannot decode.
  CodePageGuard cp(932);
  ASSERT_TRUE(cp.ok());
  auto stream = MakeStream(TagFixture("id3v23_latin1.mp3"));
  ReplayGainRecord rg;
  RecordPtr record(kxmp3::ReadId3v2Tag(stream.get(), &rg));
  const std::u16string artist = Field(record, kxmp3::kCommentArtist);
  EXPECT_EQ(artist.substr(0, 11), u"Artiste Caf");
  EXPECT_NE(artist, u"Artiste Café");
  EXPECT_EQ(rg.flags, 15u);  // ASCII values read the same under every code page
}

TEST(WriterFixtures, FixtureSetStaysSmall) {
  size_t total = 0;
  for (const Expected& e : kFixtures) total += TagFixture(e.file).size();
  total += TagFixture("id3v11_sjis.mp3").size();
  EXPECT_GT(total, 0u);
  EXPECT_LT(total, 500u * 1024u);
}

}  // namespace
