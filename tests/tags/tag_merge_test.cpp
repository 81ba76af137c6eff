// The open sequence's tag step: readers per container type, merge order and the
// ReplayGain record the object ends up with.
#include <gtest/gtest.h>

#include <cstring>

#include "layout/container.h"
#include "tag_test_util.h"
#include "tags/replaygain.h"
#include "tags/tag_merge.h"

namespace {

using kxmp3::ReadTagsForContainer;
using kxmp3::ReplayGainRecord;
using namespace kxtest;

Bytes Latin1Frame(const std::string& id, const std::string& text) {
  Bytes body{0};
  Put(body, text);
  return Id3v2Frame(4, id, body);
}
Bytes GainFrame(const std::string& key, const std::string& value) {
  Bytes body{0};
  Put(body, key);
  body.push_back(0);
  Put(body, value);
  return Id3v2Frame(4, "TXXX", body);
}

ReplayGainRecord Sentinel() {
  ReplayGainRecord rg;
  std::memset(&rg, 0, sizeof(rg));
  rg.fourcc = FOURCC_RPGI;
  rg.size = 44;
  rg.flags = 2;
  rg.trackPeak = 0.123;
  return rg;
}

struct Result {
  RecordPtr record;
  ReplayGainRecord rg;
};
Result ReadTags(const Bytes& file, uint32_t type, ReplayGainRecord start = Sentinel()) {
  auto stream = MakeStream(file);
  Result r;
  r.rg = start;
  r.record.reset(ReadTagsForContainer(stream.get(), type, &r.rg));
  return r;
}

TEST(TagMerge, PlainStreamMergesId3v2OverApeOverId3v1) {
  const Bytes id3 = Id3v2Tag(4, 0, 0, Cat({Latin1Frame("TIT2", "ID3 Title"), GainFrame("replaygain_track_gain", "-1.00 dB")}));
  const Bytes ape = ApeTag({ApeItem("Title", "APE Title"), ApeItem("Album", "APE Album"),
                            ApeItem("REPLAYGAIN_TRACK_GAIN", "-9.00 dB"), ApeItem("REPLAYGAIN_ALBUM_GAIN", "-4.50 dB")});
  const Bytes v1 = Id3v1("V1 Title", "V1 Artist", "V1 Album", "1999", "V1 comment", 9, 17);
  Result r = ReadTags(Cat({id3, AudioFiller(), ape, v1}), kxmp3::kContainerId3v2);
  ASSERT_NE(r.record, nullptr);
  EXPECT_EQ(Field(r.record, kxmp3::kCommentTitle), u"ID3 Title");
  // The APE reader sees the ID3v1 tag behind it too: its record carries the ID3v1
  // artist (as the APE table words things), which wins over the ID3v1 record's own.
  EXPECT_EQ(Field(r.record, kxmp3::kCommentArtist), u"V1 Artist");
  EXPECT_EQ(Field(r.record, kxmp3::kCommentAlbum), u"APE Album");
  EXPECT_EQ(Field(r.record, kxmp3::kCommentYear), u"1999");
  EXPECT_EQ(Field(r.record, kxmp3::kCommentTrack), u"9");       // "%d" of the APE reader, before "09"
  EXPECT_EQ(Field(r.record, kxmp3::kCommentGenre), u"Rock");
  EXPECT_EQ(Field(r.record, kxmp3::kCommentComment), u"V1 comment");
  // ID3v2 track gain, APE album gain.
  EXPECT_EQ(r.rg.flags, kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_ALBUM_GAIN);
  EXPECT_DOUBLE_EQ(+r.rg.trackGain, -1.0);
  EXPECT_DOUBLE_EQ(+r.rg.albumGain, -4.5);
}

TEST(TagMerge, ReplayGainGapsAreFilledFromApeEvenWithoutItsFlag) {
  ReplayGainRecord primary = Sentinel();
  primary.flags = kxmp3::RG_FLAG_TRACK_GAIN;
  primary.trackGain = -1;
  primary.albumPeak = 7;  // flag clear: taken from the secondary, whatever it holds
  ReplayGainRecord secondary;
  kxmp3::ResetReplayGainRecord(&secondary);
  secondary.flags = kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_TRACK_PEAK;
  secondary.trackGain = -9;
  secondary.trackPeak = 0.5;
  kxmp3::MergeReplayGainRecords(&primary, secondary);
  EXPECT_EQ(primary.flags, 3u);
  EXPECT_EQ(+primary.trackGain, -1);
  EXPECT_EQ(+primary.trackPeak, 0.5);
  EXPECT_EQ(+primary.albumPeak, 0.0);
}

TEST(TagMerge, PlainStreamWithOnlyOneOfTheTwoTags) {
  const Bytes id3 = Id3v2Tag(4, 0, 0, Cat({Latin1Frame("TIT2", "Only ID3"), GainFrame("replaygain_album_peak", "0.8")}));
  Result onlyId3 = ReadTags(Cat({id3, AudioFiller()}), kxmp3::kContainerId3v2);
  EXPECT_EQ(Field(onlyId3.record, kxmp3::kCommentTitle), u"Only ID3");
  EXPECT_EQ(onlyId3.rg.flags, kxmp3::RG_FLAG_ALBUM_PEAK);
  EXPECT_DOUBLE_EQ(+onlyId3.rg.albumPeak, 0.8);

  const Bytes ape = ApeTag({ApeItem("Title", "Only APE"), ApeItem("replaygain_track_peak", "0.6")});
  Result onlyApe = ReadTags(Cat({AudioFiller(), ape}), kxmp3::kContainerId3v2);
  EXPECT_EQ(Field(onlyApe.record, kxmp3::kCommentTitle), u"Only APE");
  EXPECT_EQ(onlyApe.rg.flags, kxmp3::RG_FLAG_TRACK_PEAK);
  EXPECT_DOUBLE_EQ(+onlyApe.rg.trackPeak, 0.6);

  Result neither = ReadTags(AudioFiller(), kxmp3::kContainerId3v2);
  EXPECT_EQ(neither.record, nullptr);
  EXPECT_EQ(neither.rg.flags, 0u);
  EXPECT_EQ(+neither.rg.trackPeak, 0.0);
  EXPECT_EQ(neither.rg.fourcc, FOURCC_RPGI);

  Result v1Only = ReadTags(Cat({AudioFiller(), Id3v1("V1", "", "", "", "", -1, 0)}), kxmp3::kContainerId3v2);
  EXPECT_EQ(Field(v1Only.record, kxmp3::kCommentTitle), u"V1");
  EXPECT_EQ(v1Only.rg.flags, 0u);
}

TEST(TagMerge, BareApeStreamReadsApeStraightIntoTheObjectRecord) {
  const Bytes ape = ApeTag({ApeItem("Album", "APE Album"), ApeItem("replaygain_track_gain", "-2 dB")});
  Result r = ReadTags(Cat({AudioFiller(), ape, Id3v1("V1 Title", "", "V1 Album", "", "", 4, 0)}), kxmp3::kContainerBareApe);
  EXPECT_EQ(Field(r.record, kxmp3::kCommentAlbum), u"APE Album");
  EXPECT_EQ(Field(r.record, kxmp3::kCommentTitle), u"V1 Title");
  EXPECT_EQ(r.rg.flags, kxmp3::RG_FLAG_TRACK_GAIN);
  EXPECT_DOUBLE_EQ(+r.rg.trackGain, -2.0);
  // No APE tag: the record is cleared all the same.
  Result none = ReadTags(Cat({AudioFiller(), Id3v1("V1", "", "", "", "", -1, 0)}), kxmp3::kContainerBareApe);
  EXPECT_EQ(none.rg.flags, 0u);
  EXPECT_EQ(Field(none.record, kxmp3::kCommentTitle), u"V1");
}

TEST(TagMerge, RiffContainersMergeInfoOverId3v1AndLeaveReplayGainAlone) {
  Bytes info;
  Put(info, "INFO");
  info = Cat({info, RiffChunk("INAM", Bytes{'R', 'i', 'f', 'f', 0})});
  Bytes riffBody;
  Put(riffBody, "WAVE");
  riffBody = Cat({riffBody, RiffChunk("LIST", info), RiffChunk("data", AudioFiller(50))});
  const Bytes file = Cat({RiffChunk("RIFF", riffBody), Id3v1("V1 Title", "V1 Artist", "", "", "", 9, 0)});
  for (uint32_t type : {kxmp3::kContainerRiffWave, kxmp3::kContainerRiffRmp3}) {
    Result r = ReadTags(file, type);
    EXPECT_EQ(Field(r.record, kxmp3::kCommentTitle), u"Riff") << type;
    EXPECT_EQ(Field(r.record, kxmp3::kCommentArtist), u"V1 Artist");
    EXPECT_EQ(Field(r.record, kxmp3::kCommentTrack), u"09");  // the ID3v1 track through the INFO reader
    const ReplayGainRecord untouched = Sentinel();
    EXPECT_EQ(std::memcmp(&r.rg, &untouched, sizeof(untouched)), 0);
  }
}

TEST(TagMerge, BareStreamResetsReplayGainAndReadsOnlyId3v1) {
  // An ID3v2 tag and an APE tag are present, but type 2 reads neither.
  const Bytes file = Cat({Id3v2Tag(4, 0, 0, Latin1Frame("TIT2", "ID3")), AudioFiller(),
                          ApeTag({ApeItem("Album", "APE")}), Id3v1("V1", "", "", "", "", -1, 0)});
  Result r = ReadTags(file, kxmp3::kContainerBare);
  EXPECT_EQ(Field(r.record, kxmp3::kCommentTitle), u"V1");
  EXPECT_EQ(Field(r.record, kxmp3::kCommentAlbum), u"");
  EXPECT_EQ(r.rg.flags, 0u);
  EXPECT_EQ(+r.rg.trackPeak, 0.0);
  Result other = ReadTags(file, 9);
  EXPECT_EQ(Field(other.record, kxmp3::kCommentTitle), u"V1");
  EXPECT_EQ(other.rg.flags, 0u);
  EXPECT_EQ(ReadTags(AudioFiller(), kxmp3::kContainerBare).record, nullptr);
}

TEST(TagMerge, PositionRestoredAndNothingLeaks) {
  const Bytes file = Cat({Id3v2Tag(4, 0, 0, Latin1Frame("TIT2", "ID3")), AudioFiller(),
                          ApeTag({ApeItem("Album", "APE")}), Id3v1("V1", "", "", "", "", -1, 0)});
  for (uint32_t type = 0; type <= 6; ++type) {
    const int64_t live = ZCoreLiveBlocks();
    {
      auto stream = MakeStream(file);
      ASSERT_EQ(stream->Seek(12, ZS_SEEK_SET), AF_S_OK);
      ReplayGainRecord rg;
      RecordPtr record(ReadTagsForContainer(stream.get(), type, &rg));
      EXPECT_NE(record, nullptr);
      EXPECT_EQ(stream->RawPosition(), 12) << type;
    }
    EXPECT_EQ(ZCoreLiveBlocks(), live) << type;
  }
}

}  // namespace
