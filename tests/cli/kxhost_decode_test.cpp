// kxhost decode as a user runs it: WAV files (16-bit and 64-bit float), raw samples
// on standard output, de-emphasis switched off, and mpg123 as an independent oracle
// for the decoded samples. A failed decode leaves no output file behind.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kData = std::string(KX_TEST_DATA_DIR) + "/mp3/";

std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool Exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

// A scratch folder, removed with its files at the end of the test.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/kxhost_decode_XXXXXX";
    path_ = mkdtemp(name) != nullptr ? name : "/tmp";
  }
  ~TempDir() {
    for (const auto& f : Files()) std::remove((path_ + "/" + f).c_str());
    rmdir(path_.c_str());
  }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    if (DIR* d = opendir(path_.c_str())) {
      while (dirent* e = readdir(d)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
      }
      closedir(d);
    }
    return names;
  }

 private:
  std::string path_;
};

// The parts of a WAV file the tests look at.
struct Wav {
  bool ok = false;
  uint16_t formatTag = 0, channels = 0, blockAlign = 0, bits = 0;
  uint32_t rate = 0, byteRate = 0;
  std::vector<uint8_t> data;
};

uint32_t U32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t{p[3]} << 24); }
uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

Wav ParseWav(const std::vector<uint8_t>& f) {
  Wav w;
  if (f.size() < 12 || std::memcmp(f.data(), "RIFF", 4) != 0 || std::memcmp(f.data() + 8, "WAVE", 4) != 0) return w;
  size_t pos = 12;
  bool haveFmt = false;
  while (pos + 8 <= f.size()) {
    const uint32_t size = U32(&f[pos + 4]);
    const uint8_t* body = &f[pos + 8];
    if (std::memcmp(&f[pos], "fmt ", 4) == 0 && size >= 16) {
      w.formatTag = U16(body);
      w.channels = U16(body + 2);
      w.rate = U32(body + 4);
      w.byteRate = U32(body + 8);
      w.blockAlign = U16(body + 12);
      w.bits = U16(body + 14);
      if (w.formatTag == 0xFFFE && size >= 40) w.formatTag = U16(body + 24);  // extensible: sub-format
      haveFmt = true;
    } else if (std::memcmp(&f[pos], "data", 4) == 0) {
      const size_t n = std::min<size_t>(size, f.size() - pos - 8);
      w.data.assign(body, body + n);
      w.ok = haveFmt;
      return w;
    }
    pos += 8 + size + (size & 1);
  }
  return w;
}

std::vector<int16_t> AsInt16(const std::vector<uint8_t>& bytes) {
  std::vector<int16_t> s(bytes.size() / 2);
  std::memcpy(s.data(), bytes.data(), s.size() * 2);
  return s;
}

bool HaveMpg123() { return access("/usr/bin/mpg123", X_OK) == 0; }

// mpg123's 16-bit output of a file (raw, native order), or empty.
std::vector<uint8_t> Mpg123(const std::string& file) {
  const auto r = RunProcess("/usr/bin/mpg123", {"-q", "-s", file});
  return r.exitCode == 0 ? std::vector<uint8_t>(r.out.begin(), r.out.end()) : std::vector<uint8_t>();
}

TEST(KxhostDecode, Wav16) {
  TempDir dir;
  const std::string out = dir / "out.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m1_44100_joint_cbr.mp3", "-o", out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Wav w = ParseWav(ReadBytes(out));
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
  EXPECT_EQ(dir.Files(), std::vector<std::string>{"out.wav"});
}

TEST(KxhostDecode, WavFloat) {
  TempDir dir;
  const std::string out = dir / "float.wav";
  const auto r =
      RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m2_16000_mono_cbr.mp3", "-o", out, "--float"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Wav w = ParseWav(ReadBytes(out));
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
  if (!HaveMpg123()) GTEST_SKIP() << "mpg123 is not installed; it is the oracle of this test";
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
  if (!HaveMpg123()) GTEST_SKIP() << "mpg123 is not installed; it is the oracle of this test";
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
  TempDir dir;
  const std::string junk = dir / "junk.mp3";
  {
    std::ofstream f(junk, std::ios::binary);
    f << std::string(6000, 'j');
  }
  const std::string out = dir / "never.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", junk, "-o", out});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("kxhost: " + junk + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("(AF_E_"), std::string::npos) << r.err;
  EXPECT_FALSE(Exists(out));
  EXPECT_EQ(dir.Files(), std::vector<std::string>{"junk.mp3"});
}

TEST(KxhostDecode, ReplacesAnExistingFile) {
  TempDir dir;
  const std::string out = dir / "old.wav";
  {
    std::ofstream f(out, std::ios::binary);
    f << "old contents";
  }
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kData + "m25_11025_stereo_cbr.mp3", "-o", out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Wav w = ParseWav(ReadBytes(out));
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
  EXPECT_EQ(U32(&bytes[4]), 0xFFFFFFFFu);  // a pipe cannot be rewound to fill in the lengths
  EXPECT_EQ(r.out.substr(8, 8), "WAVEfmt ");
  EXPECT_EQ(U16(&bytes[20]), 1);           // PCM
  EXPECT_EQ(U16(&bytes[22]), 2);           // channels
  EXPECT_EQ(U32(&bytes[24]), 44100u);
  EXPECT_EQ(U16(&bytes[34]), 16);
  EXPECT_EQ(r.out.substr(36, 4), "data");
  EXPECT_EQ(U32(&bytes[40]), 0xFFFFFFFFu);
  EXPECT_TRUE(r.out.substr(44) == raw.out);
  EXPECT_EQ(r.err, "(standard output): 44100 samples, 44100 Hz, 2 channels, 16-bit, 0:01.000\n");
  const auto bad = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", "-", "--format", "mp3"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_TRUE(bad.out.empty());
}

}  // namespace
