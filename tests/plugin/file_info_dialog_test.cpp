// The file-information dialog: the text of the description control, the lifetime
// rules (a reference while open, one window per object), closing with OK or
// Cancel, the controls it fills and the failure code.
#include <gtest/gtest.h>

#include <cstring>

#include "decoder_fixture.h"
#include "platform/kx_platform.h"
#include "plugin/file_info_dialog.h"

namespace {

using namespace kxtest;
using kxmp3::BuildFileInfoText;

std::u16string ControlText(HWND dialog, int id) {
  std::vector<char16_t> buffer(4096);
  KxGetDlgItemTextW(dialog, id, buffer.data(), static_cast<int>(buffer.size()));
  return std::u16string(buffer.data());
}

// A state as the open leaves it for a 44.1 kHz joint-stereo CBR stream.
kxmp3::DecoderState SampleState() {
  kxmp3::DecoderState s;
  std::memset(&s, 0, sizeof(s));
  s.info.containerType = 2;
  s.info.generic.dataLength = 17135;
  s.info.generic.totalPcmBytes = 176400;
  s.info.generic.playTimeMs = 65007;  // 1 min 5.007 s
  s.info.mpegVersion = 1;
  s.info.layer = 3;
  s.info.generic.bitrateKbps = 128;
  s.info.generic.sampleRate = 44100;
  const std::u16string mode = u"Joint Stereo";
  std::memcpy(s.info.generic.channelModeName, mode.c_str(), 2 * (mode.size() + 1));
  s.replayGain.fourcc = FOURCC_RPGI;
  s.replayGain.size = 44;
  return s;
}

TEST(FileInfoText, ExactTextWithoutReplayGain) {
  const kxmp3::DecoderState s = SampleState();
  EXPECT_EQ(BuildFileInfoText(s),
            u"FileType = MP3\n"
            u"FileSize = 17135 bytes\n"
            u"PlaySize = 176400 bytes\n"
            u"PlayTime =  1:05.007\n"
            u"MPEG-1.0, Layer-3\n"
            u"BitRate = 128 kbps (CBR)\n"
            u"SampleRate = 44100 Hz\n"
            u"Mode = Joint Stereo\n"
            u"Error Protection = Off\n"
            u"PrivateBit = Off\n"
            u"CopyRight = Off\n"
            u"Original = Off\n"
            u"Emphasis = None\n");
}

TEST(FileInfoText, FlagsVbrAndLargeNumbers) {
  kxmp3::DecoderState s = SampleState();
  s.info.errorProtection = 1;
  s.info.privateBit = 1;
  s.info.copyrightBit = 1;
  s.info.originalBit = 1;
  s.info.generic.formatFlags = AFI_FLAG_VBR;
  // 64-bit sizes print as plain unsigned decimals.
  s.info.generic.dataLength = 5000000000ull;
  s.info.generic.totalPcmBytes = 18446744073709551615ull;
  s.info.generic.playTimeMs = 123u * 60000 + 4 * 1000 + 56;  // three-digit minutes
  const std::u16string text = BuildFileInfoText(s);
  EXPECT_NE(text.find(u"FileSize = 5000000000 bytes\n"), std::u16string::npos);
  EXPECT_NE(text.find(u"PlaySize = 18446744073709551615 bytes\n"), std::u16string::npos);
  EXPECT_NE(text.find(u"PlayTime = 123:04.056\n"), std::u16string::npos);
  EXPECT_NE(text.find(u"BitRate = 128 kbps (VBR)\n"), std::u16string::npos);
  EXPECT_NE(text.find(u"Error Protection = On\nPrivateBit = On\nCopyRight = On\nOriginal = On\n"),
            std::u16string::npos);
}

TEST(FileInfoText, NamesByCode) {
  kxmp3::DecoderState s = SampleState();
  const char16_t* const types[] = {u"Unknown", u"RIFF WAVE (MP3)", u"MP3", u"RIFF MP3", u"ID3 v2.x", u"Unknown",
                                   u"Unknown"};
  for (uint32_t t = 0; t < 7; ++t) {
    s.info.containerType = t;
    // An APE-tagged file (type 5) shows "Unknown" deliberately.
    EXPECT_EQ(BuildFileInfoText(s).rfind(std::u16string(u"FileType = ") + types[t] + u"\n", 0), 0u) << t;
  }
  const char16_t* const versions[] = {u"MPEG-UnKnown,", u"MPEG-1.0,", u"MPEG-2.0,", u"MPEG-2.5,"};
  for (uint32_t v = 0; v < 4; ++v) {
    s.info.mpegVersion = v;
    EXPECT_NE(BuildFileInfoText(s).find(versions[v]), std::u16string::npos) << v;
  }
  const char16_t* const emphasis[] = {u"None", u"50/15\u03BCs", u"Unknown", u"CCITT J.17", u"Unknown"};
  for (uint32_t e = 0; e < 5; ++e) {
    s.info.emphasis = e;
    EXPECT_NE(BuildFileInfoText(s).find(std::u16string(u"Emphasis = ") + emphasis[e] + u"\n"), std::u16string::npos)
        << e;
  }
}

TEST(FileInfoText, ReplayGainLinesForTheFlagsSet) {
  kxmp3::DecoderState s = SampleState();
  const std::u16string base = BuildFileInfoText(s);
  s.replayGain.trackGain = -6.48;
  s.replayGain.trackPeak = 0.988831;
  s.replayGain.albumGain = 1.5;
  s.replayGain.albumPeak = 1.0;
  // Values present without their flags are not shown.
  EXPECT_EQ(BuildFileInfoText(s), base);
  s.replayGain.flags = kxmp3::RG_FLAG_TRACK_GAIN | kxmp3::RG_FLAG_ALBUM_PEAK;
  EXPECT_EQ(BuildFileInfoText(s), base + u"track_gain=-6.480000(dB)\nalbum_peak=+1.000000\n");
  s.replayGain.flags = 15;
  EXPECT_EQ(BuildFileInfoText(s),
            base + u"track_gain=-6.480000(dB)\ntrack_peak=+0.988831\nalbum_gain=+1.500000(dB)\nalbum_peak=+1.000000\n");
}

class FileInfoDialog : public ::testing::Test {
 protected:
  void SetUp() override {
    dialogsBefore_ = KxLiveDialogCount();
    decoder_ = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
    ASSERT_NE(decoder_, nullptr);
  }
  void TearDown() override {
    if (decoder_ != nullptr) decoder_->Release();
    EXPECT_EQ(KxLiveDialogCount(), dialogsBefore_);
  }
  Class_KXMP3* decoder_ = nullptr;
  int dialogsBefore_ = 0;
};

TEST_F(FileInfoDialog, OpensOnceHoldsAReferenceAndClosesWithOk) {
  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  HWND dialog = decoder_->State().dialog;
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(KxLiveDialogCount(), dialogsBefore_ + 1);
  EXPECT_EQ(decoder_->GetRefCount(), 2u);
  EXPECT_NE(ZCoreIsModelessDialog(dialog), 0);
  EXPECT_EQ(KxGetPropW(dialog, u"ikxmp3"), static_cast<void*>(decoder_));
  EXPECT_EQ(KxGetFocus(), KxGetDlgItem(dialog, kxmp3::kControlOk));

  // A second call makes no second window and takes no second reference.
  KxSetFocus(nullptr);
  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  EXPECT_EQ(decoder_->State().dialog, dialog);
  EXPECT_EQ(KxLiveDialogCount(), dialogsBefore_ + 1);
  EXPECT_EQ(decoder_->GetRefCount(), 2u);
#if defined(_WIN32)
  // A real dialog hands the focus it is given on to one of its controls.
  EXPECT_EQ(KxGetParent(KxGetFocus()), dialog);
#else
  EXPECT_EQ(KxGetFocus(), dialog);
#endif

  // OK closes it and gives the reference back.
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDOK, 0), 0);
  EXPECT_EQ(KxIsWindow(dialog), 0);
  EXPECT_EQ(decoder_->State().dialog, nullptr);
  EXPECT_EQ(decoder_->GetRefCount(), 1u);
  EXPECT_EQ(ZCoreIsModelessDialog(dialog), 0);
}

TEST_F(FileInfoDialog, CancelClosesItToo) {
  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  HWND dialog = decoder_->State().dialog;
  // Another command leaves it open.
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(kxmp3::kControlTitle, 0), 0);
  EXPECT_NE(KxIsWindow(dialog), 0);
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDCANCEL, 0), 0);
  EXPECT_EQ(KxIsWindow(dialog), 0);
  EXPECT_EQ(decoder_->GetRefCount(), 1u);
  // It can be opened again afterwards.
  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  EXPECT_NE(decoder_->State().dialog, dialog);
  KxDestroyWindow(decoder_->State().dialog);
  EXPECT_EQ(decoder_->GetRefCount(), 1u);
}

TEST_F(FileInfoDialog, TheObjectOutlivesTheHostsLastReleaseWhileOpen) {
  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  HWND dialog = decoder_->State().dialog;
  EXPECT_EQ(decoder_->Release(), 1u);  // the dialog still holds the object
  Class_KXMP3* object = decoder_;
  decoder_ = nullptr;
  EXPECT_EQ(ControlText(dialog, kxmp3::kControlName), u"memory/m1_44100_joint_cbr.mp3");
  EXPECT_EQ(object->GetRefCount(), 1u);
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDOK, 0), 0);  // the last reference goes here
  EXPECT_EQ(KxIsWindow(dialog), 0);
}

TEST_F(FileInfoDialog, FillsItsControls) {
  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  HWND dialog = decoder_->State().dialog;
  EXPECT_EQ(ControlText(dialog, kxmp3::kControlName), u"memory/m1_44100_joint_cbr.mp3");
  EXPECT_EQ(ControlText(dialog, kxmp3::kControlDescription), BuildFileInfoText(decoder_->State()));
  // The real file: a bare 128 kbps joint-stereo MPEG-1 stream, no ReplayGain.
  const std::u16string text = ControlText(dialog, kxmp3::kControlDescription);
  EXPECT_EQ(text.rfind(u"FileType = MP3\nFileSize = 17135 bytes\n", 0), 0u) << std::string(text.begin(), text.end());
  EXPECT_NE(text.find(u"MPEG-1.0, Layer-3\nBitRate = 128 kbps (CBR)\nSampleRate = 44100 Hz\nMode = Joint Stereo\n"),
            std::u16string::npos);
  EXPECT_EQ(text.find(u"track_"), std::u16string::npos);
  EXPECT_EQ(text.find(u"album_"), std::u16string::npos);
  // Without a tag the tag controls stay empty.
  for (int id : kxmp3::kTagControls) {
    if (id != kxmp3::kControlGenre) {
      EXPECT_EQ(ControlText(dialog, id), u"") << id;
    }
  }
  KxDestroyWindow(dialog);
}

TEST_F(FileInfoDialog, TagControlsShowTheCommentRecord) {
  // Artist, title, album, year, track, genre, comment.
  const std::u16string fields[7] = {u"Artist", u"Title", u"Album", u"2026", u"07", u"Electronic", u"Comment"};
  std::u16string area;
  int32_t offsets[7];
  for (int i = 0; i < 7; ++i) {
    offsets[i] = static_cast<int32_t>(area.size());
    area += fields[i];
    area += u'\0';
  }
  const uint32_t bytes = static_cast<uint32_t>(64 + 2 * area.size());
  auto* record = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, bytes));
  const uint32_t fourcc = FOURCC_ZAFC;
  std::memcpy(record, &fourcc, 4);
  std::memcpy(record + 4, &bytes, 4);
  for (int i = 0; i < 7; ++i) std::memcpy(record + 8 + 8 * i, &offsets[i], 4);
  std::memcpy(record + 64, area.data(), 2 * area.size());
  decoder_->SetCommentSource(record);

  ASSERT_EQ(decoder_->FileInfoDialog(nullptr), AF_S_OK);
  HWND dialog = decoder_->State().dialog;
  EXPECT_EQ(ControlText(dialog, 1011), u"Artist");
  EXPECT_EQ(ControlText(dialog, 1010), u"Title");
  EXPECT_EQ(ControlText(dialog, 1012), u"Album");
  EXPECT_EQ(ControlText(dialog, 1014), u"2026");
  EXPECT_EQ(ControlText(dialog, 1013), u"07");
  EXPECT_EQ(ControlText(dialog, 1002), u"Electronic");
  EXPECT_EQ(ControlText(dialog, 1015), u"Comment");
  KxDestroyWindow(dialog);
}

TEST_F(FileInfoDialog, FailureGivesTheReferenceBack) {
  // An owner that is not a live window: the platform refuses the dialog.
  HWND bogus = reinterpret_cast<HWND>(uintptr_t{0xDEAD0});
  EXPECT_EQ(decoder_->FileInfoDialog(bogus), AF_E_DIALOG_FAILED);
  EXPECT_EQ(decoder_->State().dialog, nullptr);
  EXPECT_EQ(decoder_->GetRefCount(), 1u);
}

}  // namespace
