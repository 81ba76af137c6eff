// kxhost info and kxhost dialog run as a user would: the information record, tags
// and ReplayGain printed readably, and the dialog's contents printed and closed.
#include <gtest/gtest.h>

#include <string>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kData = std::string(KX_TEST_DATA_DIR) + "/mp3/";

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(KxhostInfo, TaggedFileWithReplayGain) {
  const auto r = RunProcess(kHost, {"--plugin", kModule, "info", kData + "id3v2_ape.mp3"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(Has(r.out, "version: MPEG-2 Layer 3\n")) << r.out;
  EXPECT_TRUE(Has(r.out, "container: ID3 v2.x\n"));
  EXPECT_TRUE(Has(r.out, "sample rate: 22050 Hz\n"));
  EXPECT_TRUE(Has(r.out, "channels: 2 (Dual Channel)\n"));
  EXPECT_TRUE(Has(r.out, "bitrate: 64 kbps (CBR)\n"));
  EXPECT_TRUE(Has(r.out, "frames: 22 (from the VBR header)\n"));
  EXPECT_TRUE(Has(r.out, "duration: 0:00.500 (500 ms)\n"));
  EXPECT_TRUE(Has(r.out, "encoder: Lame Audio Codec v3.100\n"));
  EXPECT_TRUE(Has(r.out, "  title:   Fixture ID3v2 Title\n"));
  EXPECT_TRUE(Has(r.out, "  artist:  Fixture Artist\n"));
  EXPECT_TRUE(Has(r.out, "  track gain: -3.50 dB\n"));
  EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST(KxhostInfo, BareFileHasNoTags) {
  const auto r = RunProcess(kHost, {"info", kData + "m1_44100_joint_cbr.mp3", "--plugin", kModule});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(Has(r.out, "sample rate: 44100 Hz\n")) << r.out;
  EXPECT_TRUE(Has(r.out, "channels: 2 (Joint Stereo)\n"));
  EXPECT_TRUE(Has(r.out, "bitrate: 128 kbps (CBR)\n"));
  EXPECT_TRUE(Has(r.out, "container: MP3\n"));
  EXPECT_TRUE(Has(r.out, "tags: none\n"));
  EXPECT_TRUE(Has(r.out, "replaygain: none\n"));
}

TEST(KxhostInfo, VbrAndCountedStreams) {
  const auto vbr = RunProcess(kHost, {"info", kData + "m1_48000_stereo_vbr.mp3", "--plugin", kModule});
  ASSERT_EQ(vbr.exitCode, 0) << vbr.err;
  EXPECT_TRUE(Has(vbr.out, "kbps (VBR)\n")) << vbr.out;
  const auto counted = RunProcess(kHost, {"info", kData + "m1_44100_noheader_short.mp3", "--plugin", kModule});
  ASSERT_EQ(counted.exitCode, 0) << counted.err;
  EXPECT_TRUE(Has(counted.out, "(counted)\n")) << counted.out;
  EXPECT_TRUE(Has(counted.out, "encoder: not identified\n"));
  EXPECT_TRUE(Has(counted.out, "start skip: 0 samples\n"));
  EXPECT_TRUE(Has(counted.out, "removed: 0 samples (encoder delay and padding)\n"));
}

TEST(KxhostInfo, FileTheModuleRefuses) {
  kxtest::ScratchDir dir;
  const std::string text = dir / "hostname";  // a line of text, the same on every machine
  kxtest::WriteFileBytes(text, {'b', 'u', 'i', 'l', 'd', 'e', 'r', '\n'});
  const auto r = RunProcess(kHost, {"info", text, "--plugin", kModule});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "kxhost: " + text + ": no MPEG audio frame found (AF_E_NO_SYNC, 0x3101)\n");
  EXPECT_TRUE(r.out.empty()) << r.out;
  const auto missing = RunProcess(kHost, {"info", "/nonexistent.mp3", "--plugin", kModule});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "kxhost: /nonexistent.mp3: file not found (ZS_E_NOT_FOUND, 0x2102)\n");
}

TEST(KxhostDialog, PrintsEverythingAndClosesWithOk) {
  const auto r = RunProcess(kHost, {"dialog", kData + "id3v2_ape.mp3", "--plugin", kModule});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(Has(r.out, "dialog: File Information\n")) << r.out;
  EXPECT_TRUE(Has(r.out, "focus: control 1\n"));
  EXPECT_TRUE(Has(r.out, "control 1009: " + kData + "id3v2_ape.mp3\n"));
  EXPECT_TRUE(Has(r.out, "    FileType = ID3 v2.x\n    FileSize = 4938 bytes\n"));
  EXPECT_TRUE(Has(r.out, "    MPEG-2.0, Layer-3\n"));
  EXPECT_TRUE(Has(r.out, "    track_gain=-3.500000(dB)\n"));
  EXPECT_TRUE(Has(r.out, "control 1010: Fixture ID3v2 Title\n"));
  EXPECT_TRUE(Has(r.out, "control 1011: Fixture Artist\n"));
  EXPECT_TRUE(Has(r.out, "control 1002: Other\n  list of 149 entries:\n      0 Blues\n"));
  EXPECT_TRUE(Has(r.out, "    148 Unknown\n"));
  EXPECT_TRUE(Has(r.out, "closed with OK\n"));
}

}  // namespace
