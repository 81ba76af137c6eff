// ReplayGain text parsing and the record's reset.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/kx_types.h"
#include "tags/replaygain.h"

namespace {

using kxmp3::ParseReplayGainText;
using kxmp3::ReplayGainRecord;

ReplayGainRecord Empty() {
  ReplayGainRecord r;
  std::memset(&r, 0xCD, sizeof(r));
  kxmp3::ResetReplayGainRecord(&r);
  return r;
}

void Parse(const std::u16string& text, ReplayGainRecord* r) { ParseReplayGainText(text.data(), text.size(), r); }

TEST(ReplayGain, ResetGivesTheEmptyRecord) {
  ReplayGainRecord r = Empty();
  EXPECT_EQ(r.fourcc, FOURCC_RPGI);
  EXPECT_EQ(r.size, 44u);
  EXPECT_EQ(r.flags, 0u);
  EXPECT_EQ(+r.trackGain, 0.0);
  EXPECT_EQ(+r.trackPeak, 0.0);
  EXPECT_EQ(+r.albumGain, 0.0);
  EXPECT_EQ(+r.albumPeak, 0.0);
}

TEST(ReplayGain, TrackGainBehindTheDescriptionTerminator) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u"+1.50 dB", &r);
  EXPECT_EQ(r.flags, kxmp3::RG_FLAG_TRACK_GAIN);
  EXPECT_DOUBLE_EQ(+r.trackGain, 1.5);
}

TEST(ReplayGain, UpperCaseAlbumPeakBehindAByteOrderMark) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"REPLAYGAIN_ALBUM_PEAK") + u'\0' + u'\xFEFF' + u"0.988831", &r);
  EXPECT_EQ(r.flags, kxmp3::RG_FLAG_ALBUM_PEAK);
  EXPECT_DOUBLE_EQ(+r.albumPeak, 0.988831);
  ReplayGainRecord s = Empty();
  Parse(std::u16string(u"REPLAYGAIN_ALBUM_PEAK") + u'\0' + u'\xFFFE' + u"0.5", &s);
  EXPECT_DOUBLE_EQ(+s.albumPeak, 0.5);
}

TEST(ReplayGain, ZeroGainIsNotStored) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u"0.00 dB", &r);
  EXPECT_EQ(r.flags, 0u);
  EXPECT_EQ(+r.trackGain, 0.0);
}

TEST(ReplayGain, TextThatIsNoNumberReadsAsZeroAndIsIgnored) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u"abc", &r);
  EXPECT_EQ(r.flags, 0u);
}

TEST(ReplayGain, QuestionMarksOfAConvertedMarkAreSkipped) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_album_gain") + u'\0' + u"?" u"?-3.20 dB", &r);
  EXPECT_EQ(r.flags, kxmp3::RG_FLAG_ALBUM_GAIN);
  EXPECT_DOUBLE_EQ(+r.albumGain, -3.2);
}

TEST(ReplayGain, DescriptionIsMatchedAsAPrefix) {
  ReplayGainRecord r = Empty();
  // A longer description that begins with a key matches; the value is read right
  // behind the key's length (here "_extra", which is no number).
  Parse(std::u16string(u"replaygain_track_peak_extra") + u'\0' + u"0.7", &r);
  EXPECT_EQ(r.flags, 0u);
  Parse(std::u16string(u"Replaygain_Track_Peak") + u'\0' + u"0.7", &r);
  EXPECT_EQ(r.flags, kxmp3::RG_FLAG_TRACK_PEAK);
  EXPECT_DOUBLE_EQ(+r.trackPeak, 0.7);
}

TEST(ReplayGain, UnknownDescriptionChangesNothing) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_reference_loudness") + u'\0' + u"89.0 dB", &r);
  Parse(std::u16string(u"MusicBrainz Album Id") + u'\0' + u"1", &r);
  Parse(u"replaygain_track", &r);  // shorter than every key
  EXPECT_EQ(r.flags, 0u);
  EXPECT_EQ(+r.trackGain, 0.0);
}

TEST(ReplayGain, GainTextIsCutAtDbInAnyCase) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u"-6.48DB", &r);
  EXPECT_DOUBLE_EQ(+r.trackGain, -6.48);
  Parse(std::u16string(u"replaygain_album_gain") + u'\0' + u"  -1.25e1 db trailing", &r);
  EXPECT_DOUBLE_EQ(+r.albumGain, -12.5);
  EXPECT_EQ(r.flags, kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_ALBUM_GAIN);
}

TEST(ReplayGain, LaterValueOverwritesEarlierOne) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u"-1 dB", &r);
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u"-2 dB", &r);
  EXPECT_DOUBLE_EQ(+r.trackGain, -2.0);
}

TEST(ReplayGain, ValueWithoutTerminatorIsReadRightBehindTheKey) {
  // No zero after the description: the value starts at the key's end.
  ReplayGainRecord r = Empty();
  Parse(u"replaygain_track_peak0.25", &r);
  EXPECT_DOUBLE_EQ(+r.trackPeak, 0.25);
  // A key that ends the buffer reads an empty value.
  Parse(u"replaygain_album_gain", &r);
  Parse(std::u16string(u"replaygain_album_peak") + u'\0', &r);
  EXPECT_EQ(r.flags, kxmp3::RG_FLAG_TRACK_PEAK);
}

TEST(ReplayGain, ByteOrderMarkAtTheEndOfAGainIsNotSkippedPastTheBuffer) {
  ReplayGainRecord r = Empty();
  Parse(std::u16string(u"replaygain_track_gain") + u'\0' + u'\xFEFF', &r);
  EXPECT_EQ(r.flags, 0u);
}

TEST(ReplayGain, NumberReadingFollowsTheCLibrary) {
  const std::u16string t = u" \t+3.5xyz";
  EXPECT_DOUBLE_EQ(kxmp3::ReadWideNumber(t.data(), t.size()), 3.5);
  const std::u16string u = u"-.5";
  EXPECT_DOUBLE_EQ(kxmp3::ReadWideNumber(u.data(), u.size()), -0.5);
  const std::u16string v = u"1,5";
  EXPECT_DOUBLE_EQ(kxmp3::ReadWideNumber(v.data(), v.size()), 1.0);  // "." is the decimal point
  const std::u16string w = u"12345";
  EXPECT_DOUBLE_EQ(kxmp3::ReadWideNumber(w.data(), 2), 12.0);        // bounded by the length
  EXPECT_EQ(kxmp3::GainTextEnd(u"-6.48 dB", 8), 6u);
  EXPECT_EQ(kxmp3::GainTextEnd(u"-6.48 d", 7), 7u);
}

}  // namespace
