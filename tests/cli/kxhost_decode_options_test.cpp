// kxhost decode options as a user runs them: --start and --duration in both TIME
// forms cut exactly the samples of a whole decode, a start beyond the end and a
// malformed TIME are clear errors, the output may never replace the input, and the
// WAV files read back (by libsndfile where the system has it) hold exactly the
// module's own PCM (decoded here in-process through the same module).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli_test_support.h"
#include "decoder_session.h"
#include "run_process.h"
#include "wav_file.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";

std::vector<uint8_t> DecodeRaw(const std::vector<std::string>& extra, const std::string& file) {
  const std::string raw = kxtest::DecodeToRaw(file, extra);
  return std::vector<uint8_t>(raw.begin(), raw.end());
}

// The module's own PCM for a file, pulled in-process as a player would.
std::vector<uint8_t> ModulePcm(const std::string& file, uint32_t bits) {
  kxhost::LoadedModule module(kModule);
  kxhost::DecoderSession session(module, file, 0, bits);
  std::vector<uint8_t> pcm;
  std::vector<uint8_t> buffer(10000);
  for (;;) {
    int32_t written = 0;
    const KxResult rc = session.Audio()->DecodeToPCMData(buffer.data(), static_cast<int32_t>(buffer.size()), &written);
    pcm.insert(pcm.end(), buffer.begin(), buffer.begin() + std::max(written, 0));
    if (rc == AF_S_END_OF_DATA) break;
    EXPECT_TRUE(rc == AF_S_OK || rc == AF_S_FRAME_ERROR) << rc;
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR) break;
  }
  return pcm;
}

TEST(KxhostDecodeOptions, WavReadBackIsTheModulesPcm) {
  kxtest::ScratchDir dir;
  for (const char* name : {"m1_44100_joint_cbr.mp3", "m2_16000_mono_cbr.mp3", "m25_11025_stereo_cbr.mp3",
                           "riff_wave_55.wav", "id3v2_ape.mp3"}) {
    for (const bool useFloat : {false, true}) {
      SCOPED_TRACE(std::string(name) + (useFloat ? " float" : " 16-bit"));
      const std::string out = dir / "out.wav";
      std::vector<std::string> args = {"--plugin", kModule, "decode", kMp3 + name, "-o", out};
      if (useFloat) args.push_back("--float");
      const auto r = RunProcess(kHost, args);
      ASSERT_EQ(r.exitCode, 0) << r.err;
      const kxtest::WavSamples wav = kxtest::ReadWavSamples(out, useFloat);
      EXPECT_TRUE(wav.read);
      EXPECT_EQ(wav.encoding, useFloat ? kxtest::WavSamples::Encoding::kFloat64 : kxtest::WavSamples::Encoding::kPcm16);
      const std::vector<uint8_t> pcm = ModulePcm(kMp3 + name, useFloat ? 64 : 16);
      ASSERT_FALSE(pcm.empty());
      EXPECT_EQ(wav.bytes.size(), pcm.size());
      EXPECT_TRUE(wav.bytes == pcm);
    }
  }
}

TEST(KxhostDecodeOptions, StartAndDurationCutTheWholeDecodeExactly) {
  const std::string file = kMp3 + "m1_44100_joint_vbr_long.mp3";  // 6 s, 44.1 kHz stereo
  const std::vector<uint8_t> whole = DecodeRaw({}, file);
  ASSERT_EQ(whole.size(), 264600u * 4);
  struct Cut {
    const char* start;
    const char* duration;
    size_t startSample;
    size_t samples;
  };
  // Targets before and after the 32-frame pre-roll distance, and inside a frame.
  for (const Cut& cut : {Cut{"0.01", "0.7", 441, 30870}, Cut{"0:00.500", "1", 22050, 44100},
                         Cut{"1.0", "0:00.250", 44100, 11025}, Cut{"0:03.3", "0.7", 145530, 30870},
                         Cut{"5.9", "10", 260190, 264600 - 260190}}) {
    SCOPED_TRACE(std::string(cut.start) + " + " + cut.duration);
    const std::vector<uint8_t> part = DecodeRaw({"--start", cut.start, "--duration", cut.duration}, file);
    ASSERT_EQ(part.size(), cut.samples * 4);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + static_cast<long>(cut.startSample * 4)));
  }
  // --start alone runs to the end; --duration alone starts at the beginning.
  const std::vector<uint8_t> tail = DecodeRaw({"--start", "0:05"}, file);
  EXPECT_EQ(tail.size(), (264600u - 220500u) * 4);
  EXPECT_TRUE(std::equal(tail.begin(), tail.end(), whole.begin() + 220500 * 4));
  const std::vector<uint8_t> head = DecodeRaw({"--duration", "0.1"}, file);
  EXPECT_EQ(head.size(), 4410u * 4);
  EXPECT_TRUE(std::equal(head.begin(), head.end(), whole.begin()));
  // Float output is cut at the same samples.
  const std::vector<uint8_t> floats = DecodeRaw({"--float", "--start", "1", "--duration", "0.01"}, file);
  EXPECT_EQ(floats.size(), 441u * 16);
}

TEST(KxhostDecodeOptions, StartBeyondTheEndIsAnErrorAndWritesNothing) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "late.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "m1_44100_joint_cbr.mp3", "-o", out,
                                    "--start", "2:00"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "kxhost: " + kMp3 +
                       "m1_44100_joint_cbr.mp3: --start is beyond the end of the audio (44100 samples) "
                       "(AF_E_OUT_OF_RANGE, 0x3105)\n");
  EXPECT_TRUE(kxtest::ListNames(dir.Path()).empty());
  // Exactly at the end: an empty but valid output.
  const auto end = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "m1_44100_joint_cbr.mp3", "-o", "-",
                                      "--format", "raw", "--start", "1"});
  EXPECT_EQ(end.exitCode, 0) << end.err;
  EXPECT_TRUE(end.out.empty());
}

TEST(KxhostDecodeOptions, MalformedTimeIsAUsageError) {
  for (const char* bad : {"abc", "-1", "1:60", "1:2:3:4", "1.", ".5", "1.1234567891", ""}) {
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "m1_44100_joint_cbr.mp3", "-o", "-",
                                      "--format", "raw", "--start", bad});
    EXPECT_EQ(r.exitCode, 2) << bad;
    EXPECT_TRUE(r.out.empty()) << bad;
    EXPECT_FALSE(r.err.empty()) << bad;
  }
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "m1_44100_joint_cbr.mp3", "-o", "-",
                                    "--format", "raw", "--duration", "x1"});
  EXPECT_EQ(r.err, "kxhost: bad --duration x1: use seconds (90, 12.5) or mm:ss.fff (1:30.250)\n");
}

TEST(KxhostDecodeOptions, TheOutputNeverReplacesTheInput) {
  kxtest::ScratchDir dir;
  const std::string input = dir / "song.wav";  // a RIFF WAVE holding MP3: a plausible target name
  const std::vector<uint8_t> original = kxtest::ReadFileBytes(kMp3 + "riff_wave_55.wav");
  ASSERT_TRUE(kxtest::WriteFileBytes(input, original));
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", input});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "kxhost: " + input + ": the output would replace the input; choose another name\n");
  EXPECT_TRUE(kxtest::ReadFileBytes(input) == original);
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"song.wav"});
  // The same through another path to it.
  const auto other = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", dir.Path() + "/./song.wav"});
  EXPECT_EQ(other.exitCode, 2);
  EXPECT_TRUE(kxtest::ReadFileBytes(input) == original);
}

TEST(KxhostDecodeOptions, NoDeemphasisAndCodePageAreAccepted) {
  const std::vector<uint8_t> on = DecodeRaw({}, kMp3 + "m2_22050_emphccitt.mp3");
  const std::vector<uint8_t> off = DecodeRaw({"--no-deemphasis", "--codepage", "932"}, kMp3 + "m2_22050_emphccitt.mp3");
  ASSERT_EQ(on.size(), off.size());
  ASSERT_EQ(on.size(), 11025u * 2);
  EXPECT_FALSE(on == off);  // the CCITT J.17 filter changes the samples
}

TEST(KxhostDecodeOptions, OutputChoicesMustFitTogether) {
  kxtest::ScratchDir dir;
  const auto none = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3"});
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_EQ(none.err, "kxhost: say where to write: -o OUT for one file, or --out-dir DIR\n");
  const auto two = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", kMp3 + "apetag.mp3", "-o",
                                      dir / "x.wav"});
  EXPECT_EQ(two.exitCode, 2);
  EXPECT_NE(two.err.find("--out-dir"), std::string::npos) << two.err;
  const auto both = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "-o", dir / "x.wav",
                                       "--out-dir", dir.Path()});
  EXPECT_EQ(both.exitCode, 2);
  EXPECT_EQ(both.err, "kxhost: give either -o OUT (one file) or --out-dir DIR, not both\n");
  const auto jobs = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "--out-dir", dir.Path(),
                                       "-j", "0"});
  EXPECT_EQ(jobs.exitCode, 2);
  EXPECT_TRUE(kxtest::ListNames(dir.Path()).empty());
}

TEST(KxhostDecodeOptions, AnOutputThatCannotBeWrittenIsAClearError) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "no/such/folder/x.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "-o", out});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "kxhost: cannot write " + out + ": No such file or directory\n");
  EXPECT_TRUE(kxtest::ListNames(dir.Path()).empty());
}

}  // namespace
