// kxhost decode as a user runs it: WAV files (16-bit and 64-bit float), raw samples
// on standard output, de-emphasis switched off, and mpg123 as an independent oracle
// for the decoded samples. A failed decode leaves no output file behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"
#include "wav_file.h"

namespace {

using kxtest::LittleU16;
using kxtest::LittleU32;
using kxtest::ParseWav;
using kxtest::ReadFileBytes;
using kxtest::RunProcess;
using kxtest::Wav;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kData = std::string(KX_TEST_DATA_DIR) + "/mp3/";

std::vector<int16_t> AsInt16(const std::vector<uint8_t>& bytes) {
  std::vector<int16_t> s(bytes.size() / 2);
  std::memcpy(s.data(), bytes.data(), s.size() * 2);
  return s;
}

// mpg123, the oracle, is a program of the build machine: a Windows test program
// cannot start it (kxhost.exe is held to the Linux kxhost's bytes instead, by
// tests/windows/compare_with_linux.sh).
#ifdef _WIN32
constexpr const char* kNoMpg123 = "mpg123 is a Linux program, out of a Windows test's reach";
bool HaveMpg123() { return false; }
#else
constexpr const char* kNoMpg123 = "mpg123 is not installed; it is the oracle of this test";
bool HaveMpg123() { return kxtest::PathExists("/usr/bin/mpg123"); }
#endif

// mpg123's 16-bit output of a file (raw, native order), or empty.
std::vector<uint8_t> Mpg123(const std::string& file) {
  const auto r = RunProcess("/usr/bin/mpg123", {"-q", "-s", file});
  return r.exitCode == 0 ? std::vector<uint8_t>(r.out.begin(), r.out.end()) : std::vector<uint8_t>();
}

TEST(KxhostDecode, Wav16) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "out.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m1_44100_joint_cbr.mp3", "-o", out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Wav w = ParseWav(ReadFileBytes(out));
  ASSERT_TRUE(w.ok);
  EXPECT_EQ(w.formatTag, 1);
  EXPECT_EQ(w.channels, 2);
  EXPECT_EQ(w.rate, 44100u);
  EXPECT_EQ(w.bits, 16);
  EXPECT_EQ(w.blockAlign, 4);
  EXPECT_EQ(w.byteRate, 176400u);
  EXPECT_EQ(w.data.size(), 44100u * 4);
  // The same samples as the raw output.
  const auto raw = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m1_44100_joint_cbr.mp3", "-o", "-",
                                      "--format", "raw"});
  ASSERT_EQ(raw.exitCode, 0) << raw.err;
  EXPECT_TRUE(std::vector<uint8_t>(raw.out.begin(), raw.out.end()) == w.data);
  // Only the result is left in the folder: the temporary file was renamed.
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"out.wav"});
}

TEST(KxhostDecode, WavFloat) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "float.wav";
  const auto r =
      RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m2_16000_mono_cbr.mp3", "-o", out, "--float"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Wav w = ParseWav(ReadFileBytes(out));
  ASSERT_TRUE(w.ok);
  EXPECT_EQ(w.formatTag, 3);
  EXPECT_EQ(w.channels, 1);
  EXPECT_EQ(w.rate, 16000u);
  EXPECT_EQ(w.bits, 64);
  EXPECT_EQ(w.blockAlign, 8);
  EXPECT_EQ(w.data.size(), 8000u * 8);
  const auto raw = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m2_16000_mono_cbr.mp3", "-o", "-",
                                      "--format", "raw", "--float"});
  ASSERT_EQ(raw.exitCode, 0) << raw.err;
  EXPECT_TRUE(std::vector<uint8_t>(raw.out.begin(), raw.out.end()) == w.data);
  // Float samples are full scale 1.0 and within a 16-bit step of the integer output.
  const auto ints = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m2_16000_mono_cbr.mp3", "-o", "-",
                                       "--format", "raw"});
  const std::vector<int16_t> s16 = AsInt16(std::vector<uint8_t>(ints.out.begin(), ints.out.end()));
  ASSERT_EQ(s16.size() * 8, w.data.size());
  for (size_t i = 0; i < s16.size(); ++i) {
    double d;
    std::memcpy(&d, w.data.data() + 8 * i, 8);
    ASSERT_LE(std::fabs(d * 32768.0 - s16[i]), 1.0) << i;
  }
}

TEST(KxhostDecode, AgreesWithMpg123) {
  if (!HaveMpg123()) GTEST_SKIP() << kNoMpg123;
  for (const char* name : {"m1_44100_joint_cbr.mp3", "m1_48000_stereo_vbr.mp3", "m2_22050_dual_cbr.mp3",
                           "m2_24000_joint_vbr.mp3", "m25_8000_joint_abr.mp3", "m1_44100_crc.mp3", "id3v2_ape.mp3"}) {
    const std::vector<uint8_t> oracle = Mpg123(kData + name);
    ASSERT_FALSE(oracle.empty()) << name;
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kData + name, "-o", "-", "--format", "raw"});
    ASSERT_EQ(r.exitCode, 0) << name << ": " << r.err;
    const std::vector<int16_t> ours = AsInt16(std::vector<uint8_t>(r.out.begin(), r.out.end()));
    const std::vector<int16_t> theirs = AsInt16(oracle);
    ASSERT_EQ(ours.size(), theirs.size()) << name;
    int worst = 0;
    for (size_t i = 0; i < ours.size(); ++i) worst = std::max(worst, std::abs(ours[i] - theirs[i]));
    EXPECT_LE(worst, 1) << name;
  }
}

TEST(KxhostDecode, DeemphasisCanBeSwitchedOff) {
  if (!HaveMpg123()) GTEST_SKIP() << kNoMpg123;
  // mpg123 applies no de-emphasis: with it switched off the outputs agree; with it
  // on (the default) the 50/15 us filter changes the samples.
  const std::string file = kData + "m1_44100_emph5015.mp3";
  const std::vector<int16_t> theirs = AsInt16(Mpg123(file));
  ASSERT_FALSE(theirs.empty());
  const auto off = RunProcess(kHost, {"--plugin", kModule, "decode", file, "-o", "-", "--format", "raw",
                                      "--no-deemphasis"});
  ASSERT_EQ(off.exitCode, 0) << off.err;
  const std::vector<int16_t> plain = AsInt16(std::vector<uint8_t>(off.out.begin(), off.out.end()));
  ASSERT_EQ(plain.size(), theirs.size());
  int worst = 0;
  for (size_t i = 0; i < plain.size(); ++i) worst = std::max(worst, std::abs(plain[i] - theirs[i]));
  EXPECT_LE(worst, 1);
  const auto on = RunProcess(kHost, {"--plugin", kModule, "decode", file, "-o", "-", "--format", "raw"});
  ASSERT_EQ(on.exitCode, 0) << on.err;
  const std::vector<int16_t> filtered = AsInt16(std::vector<uint8_t>(on.out.begin(), on.out.end()));
  ASSERT_EQ(filtered.size(), plain.size());
  size_t changed = 0;
  for (size_t i = 0; i < plain.size(); ++i) changed += std::abs(filtered[i] - plain[i]) > 2;
  EXPECT_GT(changed, plain.size() / 2);
}

TEST(KxhostDecode, FailureLeavesNoOutput) {
  kxtest::ScratchDir dir;
  const std::string junk = dir / "junk.mp3";
  kxtest::WriteFileBytes(junk, std::vector<uint8_t>(6000, 'j'));
  const std::string out = dir / "never.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", junk, "-o", out});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("kxhost: " + junk + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("(AF_E_"), std::string::npos) << r.err;
  EXPECT_FALSE(kxtest::PathExists(out));
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"junk.mp3"});
}

TEST(KxhostDecode, ReplacesAnExistingFile) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "old.wav";
  kxtest::WriteFileBytes(out, {'o', 'l', 'd'});
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m25_11025_stereo_cbr.mp3", "-o", out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Wav w = ParseWav(ReadFileBytes(out));
  ASSERT_TRUE(w.ok);
  EXPECT_EQ(w.rate, 11025u);
  EXPECT_EQ(w.data.size(), 5512u * 4);
}

TEST(KxhostDecode, WavToStandardOutputIsAStreamWithUnknownLengths) {
  const std::string input = kData + "m1_44100_joint_cbr.mp3";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", "-"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto raw = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", "-", "--format", "raw"});
  ASSERT_EQ(raw.exitCode, 0) << raw.err;
  ASSERT_EQ(r.out.size(), 44 + raw.out.size());
  const std::vector<uint8_t> bytes(r.out.begin(), r.out.end());
  EXPECT_EQ(r.out.substr(0, 4), "RIFF");
  EXPECT_EQ(LittleU32(&bytes[4]), 0xFFFFFFFFu);  // a pipe cannot be rewound to fill in the lengths
  EXPECT_EQ(r.out.substr(8, 8), "WAVEfmt ");
  EXPECT_EQ(LittleU16(&bytes[20]), 1);           // PCM
  EXPECT_EQ(LittleU16(&bytes[22]), 2);           // channels
  EXPECT_EQ(LittleU32(&bytes[24]), 44100u);
  EXPECT_EQ(LittleU16(&bytes[34]), 16);
  EXPECT_EQ(r.out.substr(36, 4), "data");
  EXPECT_EQ(LittleU32(&bytes[40]), 0xFFFFFFFFu);
  EXPECT_TRUE(r.out.substr(44) == raw.out);
  EXPECT_EQ(r.err, "(standard output): 44100 samples, 44100 Hz, 2 channels, 16-bit, 0:01.000\n");
  const auto bad = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", "-", "--format", "mp3"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_TRUE(bad.out.empty());
}

}  // namespace
