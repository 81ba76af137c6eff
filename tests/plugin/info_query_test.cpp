// Information queries on an opened decoder: the three record codes with null,
// short and sufficient records, an unknown code, the comment query's code mapping,
// and the PCM format record.
#include <gtest/gtest.h>

#include <cstring>

#include "decoder_fixture.h"

namespace {

using namespace kxtest;

class InfoQuery : public ::testing::Test {
 protected:
  void SetUp() override {
    decoder_ = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
    ASSERT_NE(decoder_, nullptr);
  }
  void TearDown() override {
    if (decoder_ != nullptr) decoder_->Release();
  }
  Class_KXMP3* decoder_ = nullptr;
};

TEST_F(InfoQuery, NullRecordGivesTheSizeForAllThreeCodes) {
  struct {
    uint32_t code;
    uint32_t size;
  } const cases[] = {{FOURCC_ZMP3, 2548}, {FOURCC_ZAFC, 2488}, {FOURCC_RPGI, 44}};
  for (const auto& c : cases) {
    uint32_t size = 1;
    EXPECT_EQ(decoder_->GetInfo(c.code, nullptr, &size), AF_S_OK);
    EXPECT_EQ(size, c.size);
  }
}

TEST_F(InfoQuery, ShortRecordGivesTheNeededSize) {
  struct {
    uint32_t code;
    uint32_t size;
  } const cases[] = {{FOURCC_ZMP3, 2548}, {FOURCC_ZAFC, 2488}, {FOURCC_RPGI, 44}};
  for (const auto& c : cases) {
    std::vector<uint8_t> record(c.size, 0x5A);
    uint32_t size = c.size - 1;
    EXPECT_EQ(decoder_->GetInfo(c.code, record.data(), &size), AF_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, c.size);
    for (uint8_t b : record) ASSERT_EQ(b, 0x5A);  // nothing copied
  }
}

TEST_F(InfoQuery, Zmp3RecordIsTheWholeInformationRecord) {
  std::vector<uint8_t> record(3000, 0x5A);
  uint32_t size = static_cast<uint32_t>(record.size());
  ASSERT_EQ(decoder_->GetInfo(FOURCC_ZMP3, record.data(), &size), AF_S_OK);
  EXPECT_EQ(size, 2548u);
  EXPECT_EQ(std::memcmp(record.data(), &decoder_->State().info, 2548), 0);
  EXPECT_EQ(record[2548], 0x5A);  // nothing past the record
  kxmp3::MP3Info info;
  std::memcpy(&info, record.data(), sizeof(info));
  EXPECT_EQ(info.generic.fourcc, FOURCC_ZMP3);
  EXPECT_EQ(info.generic.size, 2548u);
  EXPECT_EQ(info.generic.formatFourCC, FOURCC_ZMP3);
  EXPECT_EQ(info.generic.sampleRate, 44100u);
  EXPECT_EQ(info.generic.channels, 2u);
  EXPECT_EQ(info.generic.bitsPerSample, 16u);
  EXPECT_EQ(info.generic.bitrateKbps, 128u);
  EXPECT_EQ(info.containerType, 2u);
  EXPECT_EQ(info.mpegVersion, 1u);
  EXPECT_EQ(info.layer, 3u);
  EXPECT_EQ(std::u16string(info.generic.channelModeName), u"Joint Stereo");
}

TEST_F(InfoQuery, ZafcRecordIsTheGenericPartRenamed) {
  std::vector<uint8_t> record(2488, 0x5A);
  uint32_t size = 2488;
  ASSERT_EQ(decoder_->GetInfo(FOURCC_ZAFC, record.data(), &size), AF_S_OK);
  EXPECT_EQ(size, 2488u);
  AudioFileInfo generic;
  std::memcpy(&generic, record.data(), sizeof(generic));
  EXPECT_EQ(generic.fourcc, FOURCC_ZAFC);
  EXPECT_EQ(generic.size, 2488u);
  // Everything after the two first fields is the object's generic record.
  EXPECT_EQ(std::memcmp(record.data() + 8, reinterpret_cast<const uint8_t*>(&decoder_->State().info) + 8, 2480), 0);
  // The object's own record is unchanged.
  EXPECT_EQ(decoder_->State().info.generic.fourcc, FOURCC_ZMP3);
}

TEST_F(InfoQuery, RpgiRecordIsTheReplayGainRecord) {
  kxmp3::ReplayGainRecord& own = decoder_->State().replayGain;
  own.flags = kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_ALBUM_PEAK;
  own.trackGain = -6.5;
  own.albumPeak = 0.98;
  uint8_t record[44];
  uint32_t size = 44;
  ASSERT_EQ(decoder_->GetInfo(FOURCC_RPGI, record, &size), AF_S_OK);
  EXPECT_EQ(size, 44u);
  EXPECT_EQ(std::memcmp(record, &own, 44), 0);
}

TEST_F(InfoQuery, UnknownCode) {
  uint8_t record[3000];
  uint32_t size = sizeof(record);
  EXPECT_EQ(decoder_->GetInfo(MakeFourCC('Z', 'W', 'A', 'V'), record, &size), AF_E_UNKNOWN_CODE);
  EXPECT_EQ(decoder_->GetInfo(0, nullptr, &size), AF_E_UNKNOWN_CODE);
}

TEST_F(InfoQuery, CommentQueryMapsZmp3ToTheGenericCode) {
  // A hand-made comment record held by the base.
  const uint32_t bytes = 64 + 2 * 8;
  auto* record = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, bytes));
  const uint32_t fourcc = FOURCC_ZAFC;
  std::memcpy(record, &fourcc, 4);
  std::memcpy(record + 4, &bytes, 4);
  // Artist "A" at 0, the six other fields empty at 2..7.
  const int32_t offsets[7] = {0, 2, 3, 4, 5, 6, 7};
  for (int i = 0; i < 7; ++i) std::memcpy(record + 8 + 8 * i, &offsets[i], 4);
  record[64] = 'A';
  decoder_->SetCommentSource(record);
  for (uint32_t code : {FOURCC_ZAFC, FOURCC_ZMP3}) {
    uint32_t size = 0;
    EXPECT_EQ(decoder_->GetComment(code, nullptr, &size), AF_S_OK);
    EXPECT_EQ(size, bytes);
    std::vector<uint8_t> copy(size);
    EXPECT_EQ(decoder_->GetComment(code, copy.data(), &size), AF_S_OK);
    EXPECT_EQ(std::memcmp(copy.data(), record, bytes), 0);
  }
  uint32_t size = 0;
  EXPECT_EQ(decoder_->GetComment(FOURCC_RPGI, nullptr, &size),
            decoder_->Class_KXAudioFile::GetComment(FOURCC_RPGI, nullptr, &size));
}

TEST(PcmWaveFormat, IntegerAndFloatOutput) {
  struct Case {
    const char* fixture;
    uint32_t bits;
    uint16_t tag, channels, blockAlign, bitsPerSample;
    uint32_t rate;
  };
  const Case cases[] = {
      {"m1_44100_joint_cbr.mp3", 16, WAVE_FORMAT_PCM, 2, 4, 16, 44100},
      {"m1_44100_joint_cbr.mp3", 64, WAVE_FORMAT_IEEE_FLOAT, 2, 16, 64, 44100},
      {"m2_16000_mono_cbr.mp3", 0, WAVE_FORMAT_PCM, 1, 2, 16, 16000},
      {"m2_16000_mono_cbr.mp3", 24, WAVE_FORMAT_IEEE_FLOAT, 1, 8, 64, 16000},
  };
  for (const Case& c : cases) {
    // The format is known after an information-only open too.
    Class_KXMP3* decoder = OpenFixture(c.fixture, OPEN_FLAG_INFO_ONLY, c.bits);
    ASSERT_NE(decoder, nullptr);
    PCMWAVEFORMAT f;
    std::memset(&f, 0xFF, sizeof(f));
    ASSERT_EQ(decoder->GetPCMWaveFormat(&f), AF_S_OK);
    EXPECT_EQ(f.wFormatTag, c.tag);
    EXPECT_EQ(f.nChannels, c.channels);
    EXPECT_EQ(f.nSamplesPerSec, c.rate);
    EXPECT_EQ(f.nBlockAlign, c.blockAlign);
    EXPECT_EQ(f.nAvgBytesPerSec, uint32_t{c.blockAlign} * c.rate);
    EXPECT_EQ(f.wBitsPerSample, c.bitsPerSample);
    EXPECT_EQ(decoder->GetPCMWaveFormat(nullptr), AF_E_POINTER);
    decoder->Release();
  }
}

}  // namespace
