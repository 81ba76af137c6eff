// Honest lengths, as a user meets them: a file cut before the end its VBR header
// declares is reported by info (text and JSON, with the samples it really holds,
// the same count decode delivers) and by decode (a warning and status 3, or 0 with
// --allow-short, or nothing kept with --strict); a decode that fails in the middle
// keeps what decoded, with a warning and status 1, unless --strict; concealed damage
// is told in places and seconds, each stretch listed with -v.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;
using nlohmann::json;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";
// An MPEG-1 stream whose 11th frame switches to a frame the decoder refuses: the
// decode fails after 8064 samples, and conceals one damaged frame before that.
const std::string kFailsMidway =
    std::string(KX_TEST_DATA_DIR) + "/regression/module/relative_seek_keeps_sample_phase.mp3";

// The first 35000 of the 71370 bytes of a 6-second VBR file: its Xing header
// still declares 231 frames (264600 samples), about half of them are there.
std::string MakeTruncated(const kxtest::ScratchDir& dir) {
  std::vector<uint8_t> bytes = kxtest::ReadFileBytes(kMp3 + "m1_44100_joint_vbr_long.mp3");
  bytes.resize(35000);
  const std::string path = dir / "cut.mp3";
  kxtest::WriteFileBytes(path, bytes);
  return path;
}

constexpr uint64_t kPresent = 127919;  // samples the cut file holds (decode delivers them all)

TEST(KxhostLengths, InfoSaysWhereATruncatedFileEnds) {
  kxtest::ScratchDir dir;
  const std::string cut = MakeTruncated(dir);
  const auto text = RunProcess(kHost, {"--plugin", kModule, "info", cut});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_NE(text.out.find("frames: 231 (from the VBR header)\nduration: 0:06.000 (6000 ms)\n"
                          "samples: 264600 per channel\n"
                          "truncated: the file ends at 0:02.900 (127919 samples), before the 0:06.000 its VBR "
                          "header declares\nfile size: 35000 bytes\naudio data: 35000 bytes\n"),
            std::string::npos)
      << text.out;
  const auto j = RunProcess(kHost, {"--plugin", kModule, "info", "--json", cut, kMp3 + "m1_44100_joint_vbr_long.mp3"});
  EXPECT_EQ(j.exitCode, 0);
  EXPECT_EQ(j.err, "kxhost: warning: " + cut + ": the file ends before the length its header declares\n");
  const json doc = json::parse(j.out);
  EXPECT_EQ(doc[0]["truncated"], true);
  EXPECT_EQ(doc[0]["total_samples"], 264600);
  EXPECT_EQ(doc[0]["present_samples"], kPresent);
  EXPECT_EQ(doc[0]["present_duration_ms"], 2900);
  EXPECT_EQ(doc[0]["duration_ms"], 6000);
  EXPECT_EQ(doc[1]["truncated"], false);
  EXPECT_EQ(doc[1]["present_samples"], 264600);
  EXPECT_EQ(doc[1]["present_duration_ms"], 6000);
}

TEST(KxhostLengths, DecodeWarnsAndExitsThreeOnATruncatedFile) {
  kxtest::ScratchDir dir;
  const std::string cut = MakeTruncated(dir);
  const std::string out = dir / "cut.wav";
  const std::string warning = "kxhost: warning: " + cut + ": the file ends at 0:02.900, before the 0:06.000 its "
                              "header declares; " + out + " holds all there was (127919 of 264600 samples)\n";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", cut, "-o", out});
  EXPECT_EQ(r.exitCode, 3);
  EXPECT_EQ(r.err, warning + out + ": 127919 samples, 44100 Hz, 2 channels, 16-bit, 0:02.900\n");
  EXPECT_EQ(kxtest::ReadFileBytes(out).size(), 44 + kPresent * 4);
  // --allow-short: the same output and warning, status 0; -q keeps the warning.
  const auto allowed = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", cut, "-o", out, "--allow-short"});
  EXPECT_EQ(allowed.exitCode, 0);
  EXPECT_EQ(allowed.err, warning);
  // --strict: all or nothing.
  const std::string strictOut = dir / "strict.wav";
  const auto strict = RunProcess(kHost, {"--plugin", kModule, "decode", cut, "-o", strictOut, "--strict"});
  EXPECT_EQ(strict.exitCode, 1);
  EXPECT_EQ(strict.err, "kxhost: " + cut + ": the file ends at 0:02.900, before the 0:06.000 its header declares "
                        "(ZS_E_END_OF_DATA, 0x210A)\n");
  EXPECT_FALSE(kxtest::PathExists(strictOut));
  const auto both = RunProcess(kHost, {"--plugin", kModule, "decode", cut, "-o", strictOut, "--strict", "--allow-short"});
  EXPECT_EQ(both.exitCode, 2);
  // --start past where the file really ends.
  const auto late = RunProcess(kHost, {"--plugin", kModule, "decode", cut, "-o", strictOut, "--start", "5"});
  EXPECT_EQ(late.exitCode, 1);
  EXPECT_EQ(late.err, "kxhost: " + cut + ": --start 0:05.000 is beyond where the file ends (it is shorter than its "
                      "header declares) (ZS_E_END_OF_DATA, 0x210A)\n");
  // A batch: counted, status 3.
  kxtest::MakeDir(dir / "in");
  kxtest::WriteFileBytes(dir / "in/cut.mp3", kxtest::ReadFileBytes(cut));
  kxtest::WriteFileBytes(dir / "in/whole.mp3", kxtest::ReadFileBytes(kMp3 + "m1_44100_joint_vbr_long.mp3"));
  const auto batch = RunProcess(kHost, {"--plugin", kModule, "decode", dir / "in", "--out-dir", dir / "out"});
  EXPECT_EQ(batch.exitCode, 3);
  EXPECT_NE(batch.err.find("decoded 2 files to " + dir / "out" + ", 1 shorter than declared\n"), std::string::npos)
      << batch.err;
  // Complete files never warn.
  const auto whole = RunProcess(kHost, {"--plugin", kModule, "decode", dir / "in/whole.mp3", "-o", dir / "w.wav"});
  EXPECT_EQ(whole.exitCode, 0);
  EXPECT_EQ(whole.err, dir / "w.wav" + ": 264600 samples, 44100 Hz, 2 channels, 16-bit, 0:06.000\n");
}

TEST(KxhostLengths, AFailureInTheMiddleKeepsWhatDecoded) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "part.wav";
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kFailsMidway, "-o", out});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "kxhost: " + kFailsMidway + ": decoding failed at 0:00.182 (AF_E_BAD_FORMAT, 0x3109)\n"
                   "kxhost: warning: " + out + " holds the 0:00.182 decoded before the failure\n"
                   "kxhost: " + kFailsMidway + ": damaged frames concealed in 1 place (0:00.026 of audio muted), "
                   "first at 0:00.052\n" +
                   out + ": 8064 samples, 44100 Hz, 2 channels, 16-bit, 0:00.182\n");
  EXPECT_EQ(kxtest::ReadFileBytes(out).size(), 44u + 8064 * 4);
  // The kept samples are those a full decode gives up to the failure.
  const auto raw = RunProcess(kHost, {"--plugin", kModule, "decode", kFailsMidway, "-o", "-", "--format", "raw"});
  EXPECT_EQ(raw.exitCode, 1);
  EXPECT_EQ(raw.out.size(), 8064u * 4);
  // --strict keeps nothing.
  const std::string strictOut = dir / "strict.wav";
  const auto strict = RunProcess(kHost, {"--plugin", kModule, "decode", kFailsMidway, "-o", strictOut, "--strict"});
  EXPECT_EQ(strict.exitCode, 1);
  EXPECT_EQ(strict.err, "kxhost: " + kFailsMidway + ": decoding failed at 0:00.182 (AF_E_BAD_FORMAT, 0x3109)\n");
  EXPECT_FALSE(kxtest::PathExists(strictOut));
}

TEST(KxhostLengths, ConcealedStretchesAreListedWithTheirTimes) {
  kxtest::ScratchDir dir;
  const auto r = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", "-v", kFailsMidway, "-o", dir / "v.wav"});
  EXPECT_NE(r.err.find("damaged frames concealed in 1 place (0:00.026 of audio muted), first at 0:00.052\n"
                       "  concealed 0:00.052 - 0:00.078\n"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(r.err.find("reads"), std::string::npos);
}

}  // namespace
