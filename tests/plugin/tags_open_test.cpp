// The open sequence's tags step on real files: which tag wins each field for each
// container, where ReplayGain comes from, and what the dialog shows of them.
#include <gtest/gtest.h>

#include <cstring>

#include "decoder_fixture.h"
#include "platform/kx_platform.h"
#include "plugin/file_info_dialog.h"

namespace {

using namespace kxtest;

// The seven fields of the decoder's comment record, read through GetComment.
std::vector<std::u16string> CommentFields(Class_KXMP3* decoder, KxResult* rc) {
  uint32_t size = 0;
  *rc = decoder->GetComment(FOURCC_ZMP3, nullptr, &size);
  if (*rc != AF_S_OK) return {};
  std::vector<uint8_t> record(size);
  *rc = decoder->GetComment(FOURCC_ZMP3, record.data(), &size);
  std::vector<std::u16string> fields;
  for (int i = 0; i < 7; ++i) {
    int32_t offset = 0;
    std::memcpy(&offset, record.data() + 8 + 8 * i, 4);
    const auto* text = reinterpret_cast<const char16_t*>(record.data() + 64) + offset;
    fields.emplace_back(text);
  }
  return fields;
}

TEST(OpenTags, BareStreamHasNoComment) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  uint32_t size = 0;
  EXPECT_EQ(decoder->GetComment(FOURCC_ZAFC, nullptr, &size), AF_E_NO_COMMENT);
  EXPECT_EQ(decoder->GetComment(FOURCC_ZMP3, nullptr, &size), AF_E_NO_COMMENT);
  decoder->Release();
}

TEST(OpenTags, Id3v1OnABareStream) {
  Class_KXMP3* decoder = OpenFixture("id3v1.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  KxResult rc;
  const auto f = CommentFields(decoder, &rc);
  ASSERT_EQ(rc, AF_S_OK);
  EXPECT_EQ(f[0], u"Fixture Artist");
  EXPECT_EQ(f[1], u"Fixture Title");
  EXPECT_EQ(f[2], u"Fixture Album");
  EXPECT_EQ(f[3], u"2024");
  EXPECT_EQ(f[6], u"fixture comment");
  EXPECT_EQ(decoder->State().replayGain.flags, 0u);
  decoder->Release();
}

TEST(OpenTags, Id3v2OverApeOverId3v1WithReplayGainFromApe) {
  Class_KXMP3* decoder = OpenFixture("id3v2_ape.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  KxResult rc;
  const auto f = CommentFields(decoder, &rc);
  ASSERT_EQ(rc, AF_S_OK);
  EXPECT_EQ(f[1], u"Fixture ID3v2 Title");
  EXPECT_EQ(f[0], u"Fixture Artist");
  EXPECT_EQ(f[2], u"Fixture Album");
  const kxmp3::ReplayGainRecord& rg = decoder->State().replayGain;
  EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
  EXPECT_EQ(rg.size, 44u);
  EXPECT_EQ(rg.flags, kxmp3::RG_FLAG_TRACK_GAIN);
  EXPECT_DOUBLE_EQ(double{rg.trackGain}, -3.5);
  decoder->Release();
}

TEST(OpenTags, ApeTaggedStream) {
  Class_KXMP3* decoder = OpenFixture("ape_id3v1.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  EXPECT_EQ(decoder->State().containerType, 5u);
  KxResult rc;
  const auto f = CommentFields(decoder, &rc);
  ASSERT_EQ(rc, AF_S_OK);
  EXPECT_EQ(f[1], u"Fixture APE Title");
  EXPECT_EQ(f[0], u"Fixture Artist");
  EXPECT_EQ(decoder->State().replayGain.flags, kxmp3::RG_FLAG_TRACK_GAIN);
  EXPECT_DOUBLE_EQ(double{decoder->State().replayGain.trackGain}, -3.5);
  uint8_t record[44];
  uint32_t size = sizeof(record);
  ASSERT_EQ(decoder->GetInfo(FOURCC_RPGI, record, &size), AF_S_OK);
  EXPECT_EQ(std::memcmp(record, &decoder->State().replayGain, 44), 0);
  decoder->Release();
}

TEST(OpenTags, RiffInfoTitle) {
  Class_KXMP3* decoder = OpenFixture("riff_wave_55.wav", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  EXPECT_EQ(decoder->State().containerType, 1u);
  KxResult rc;
  const auto f = CommentFields(decoder, &rc);
  ASSERT_EQ(rc, AF_S_OK);
  EXPECT_EQ(f[1], u"Fixture RIFF Title");
  // The tags of a RIFF container do not touch the ReplayGain record: it stays as
  // the new object holds it, all zero, and GetInfo hands out those 44 bytes.
  static const kxmp3::ReplayGainRecord untouched{};
  EXPECT_EQ(std::memcmp(&decoder->State().replayGain, &untouched, sizeof(untouched)), 0);
  uint8_t record[44];
  std::memset(record, 0xEE, sizeof(record));
  uint32_t size = sizeof(record);
  ASSERT_EQ(decoder->GetInfo(FOURCC_RPGI, record, &size), AF_S_OK);
  EXPECT_EQ(size, 44u);
  EXPECT_EQ(std::memcmp(record, &untouched, 44), 0);
  decoder->Release();
}

// A bare stream and an ID3v2 stream without ReplayGain values get the empty record.
TEST(OpenTags, BareAndId3v2StreamsWithoutValuesGetTheEmptyRecord) {
  for (const char* fixture : {"m1_44100_joint_cbr.mp3", "id3v1.mp3", "id3v2.mp3"}) {
    SCOPED_TRACE(fixture);
    Class_KXMP3* decoder = OpenFixture(fixture, OPEN_FLAG_INFO_ONLY);
    ASSERT_NE(decoder, nullptr);
    const kxmp3::ReplayGainRecord& rg = decoder->State().replayGain;
    EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
    EXPECT_EQ(rg.size, 44u);
    EXPECT_EQ(rg.flags, 0u);
    decoder->Release();
  }
}

// A RIFF file opened by an object whose record already holds values (an earlier
// open that failed after its tags step) keeps them: the RIFF tags never touch it.
TEST(OpenTags, RiffContainerLeavesTheRecordAsItIs) {
  Class_KXMP3* decoder = NewDecoder();
  ASSERT_NE(decoder, nullptr);
  kxmp3::ReplayGainRecord& rg = decoder->State().replayGain;
  rg.fourcc = FOURCC_RPGI;
  rg.size = 44;
  rg.flags = 1;
  rg.trackGain = -6.5;
  ASSERT_EQ(OpenOnMemory(decoder, "riff_wave_55.wav", OPEN_FLAG_INFO_ONLY), AF_S_OK);
  EXPECT_EQ(rg.flags, 1u);
  EXPECT_EQ(rg.trackGain, -6.5);
  decoder->Release();
}

TEST(OpenTags, DialogShowsTagsReplayGainAndTheGenreList) {
  Class_KXMP3* decoder = OpenFixture("id3v2_ape.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  ASSERT_EQ(decoder->FileInfoDialog(nullptr), AF_S_OK);
  HWND dialog = decoder->State().dialog;
  char16_t text[4096];
  KxGetDlgItemTextW(dialog, kxmp3::kControlDescription, text, 4096);
  const std::u16string description(text);
  EXPECT_NE(description.find(u"FileType = ID3 v2.x\n"), std::u16string::npos);
  EXPECT_NE(description.find(u"\ntrack_gain=-3.500000(dB)\n"), std::u16string::npos);
  EXPECT_EQ(description.find(u"track_peak"), std::u16string::npos);
  KxGetDlgItemTextW(dialog, kxmp3::kControlTitle, text, 4096);
  EXPECT_EQ(std::u16string(text), u"Fixture ID3v2 Title");
  KxGetDlgItemTextW(dialog, kxmp3::kControlArtist, text, 4096);
  EXPECT_EQ(std::u16string(text), u"Fixture Artist");
  // The genre list: the 149 names of the ID3v1 table, in order.
  HWND genre = KxGetDlgItem(dialog, kxmp3::kControlGenre);
  ASSERT_EQ(KxSendMessageW(genre, CB_GETCOUNT, 0, 0), 149);
  const std::pair<int, const char16_t*> samples[] = {
      {0, u"Blues"}, {1, u"Classic Rock"}, {12, u"Other"}, {52, u"Electronic"}, {147, u"Synthpop"}, {148, u"Unknown"}};
  for (const auto& [index, name] : samples) {
    KxSendMessageW(genre, CB_GETLBTEXT, static_cast<uintptr_t>(index), reinterpret_cast<intptr_t>(text));
    EXPECT_EQ(std::u16string(text), name) << index;
  }
  KxDestroyWindow(dialog);
  EXPECT_EQ(decoder->Release(), 0u);
}

}  // namespace
