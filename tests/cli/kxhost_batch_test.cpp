// kxhost decode on folders as a user runs it: 50 files decoded by two workers give
// the same bytes as decoding each on its own; the folder layout is kept, files that
// are not MPEG audio are skipped, a failing file is reported while the others go
// on; --progress draws the bar with the time left even when standard error is not a
// terminal.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";

std::string WavName(const std::string& relative) { return relative.substr(0, relative.rfind('.')) + ".wav"; }

TEST(KxhostBatch, FiftyFilesWithTwoWorkersGiveTheBytesOfOneByOne) {
  kxtest::ScratchDir dir;
  const std::vector<std::string> files = kxtest::MakeFiftyFiles(dir / "in");
  const auto batch = RunProcess(kHost, {"--plugin", kModule, "decode", "-r", dir / "in", "--out-dir", dir / "out",
                                        "-j", "2"});
  ASSERT_EQ(batch.exitCode, 0) << batch.err;
  EXPECT_EQ(batch.err, "decoded 50 files to " + dir / "out" + "\n");
  EXPECT_TRUE(batch.out.empty());
  EXPECT_EQ(kxtest::ListNames(dir / "out").size(), 22u);  // 20 files and two folders
  // The 50 files are copies of 10 fixtures (file i of fixture i % 10): each fixture
  // decoded once on its own gives the bytes of its five copies in the batch.
  kxtest::MakeDir(dir / "single");
  std::vector<std::vector<uint8_t>> singles;
  for (size_t i = 0; i < 10; ++i) {
    SCOPED_TRACE(files[i]);
    const std::string one = dir / ("single/" + std::to_string(i) + ".wav");
    const auto r = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", dir / ("in/" + files[i]), "-o", one});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;  // --quiet: no summary line
    singles.push_back(kxtest::ReadFileBytes(one));
    ASSERT_GT(singles.back().size(), 44u);
  }
  for (size_t i = 0; i < files.size(); ++i) {
    SCOPED_TRACE(files[i]);
    EXPECT_TRUE(kxtest::ReadFileBytes(dir / ("out/" + WavName(files[i]))) == singles[i % 10]);
  }
}

TEST(KxhostBatch, WithoutRecursionOnlyTheFolderItselfAndRawOutput) {
  kxtest::ScratchDir dir;
  kxtest::MakeFiftyFiles(dir / "in");
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", dir / "in", "--out-dir", dir / "out", "-j", "3",
                                    "--format", "raw", "--float"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto names = kxtest::ListNames(dir / "out");
  ASSERT_EQ(names.size(), 20u);
  EXPECT_EQ(names[0], "track00.raw");
  // Raw float output of a one-second 44.1 kHz stereo file.
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "out/track00.raw").size(), 44100u * 2 * 8);
}

TEST(KxhostBatch, FailuresAreReportedAndTheOthersGoOn) {
  kxtest::ScratchDir dir;
  kxtest::MakeDir(dir / "in");
  kxtest::WriteFileBytes(dir / "in/a.mp3", kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  kxtest::WriteFileBytes(dir / "in/b.mp3", kxtest::ReadFileBytes(kMp3 + "apetag.mp3"));
  kxtest::WriteFileBytes(dir / "in/cover.jpg", std::vector<uint8_t>(4000, 0xFF));  // not ours: skipped
  kxtest::WriteFileBytes(dir / "in/notes.txt", std::vector<uint8_t>(100, 'n'));
  const std::string junk = dir / "junk.mp3";  // named explicitly: tried, and fails
  kxtest::WriteFileBytes(junk, std::vector<uint8_t>(6000, 'j'));
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", dir / "in", junk, dir / "missing.mp3",
                                    "--out-dir", dir / "out"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("kxhost: " + junk + ": "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("kxhost: " + dir / "missing.mp3" + ": file not found (ZS_E_NOT_FOUND, 0x2102)\n"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("decoded 2 files to " + dir / "out" + ", 2 failed, 2 skipped (not MPEG audio)\n"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(kxtest::ListNames(dir / "out"), (std::vector<std::string>{"a.wav", "b.wav"}));
}

TEST(KxhostBatch, TwoInputsForOneOutputNameIsAnErrorForTheSecond) {
  kxtest::ScratchDir dir;
  kxtest::MakeDir(dir / "in");
  kxtest::WriteFileBytes(dir / "in/song.mp3", kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  kxtest::WriteFileBytes(dir / "in/song.wav", kxtest::ReadFileBytes(kMp3 + "riff_wave_50.wav"));
  const auto r = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", dir / "in", "--out-dir", dir / "out"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "kxhost: " + dir / "in/song.wav" + ": its output " + dir / "out/song.wav" +
                       " is also the output of " + dir / "in/song.mp3" + "\n");
  EXPECT_EQ(kxtest::ListNames(dir / "out"), std::vector<std::string>{"song.wav"});
  // Decoding a folder into itself never replaces an input of the same name.
  const std::vector<uint8_t> wav = kxtest::ReadFileBytes(dir / "in/song.wav");
  const auto self = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", dir / "in", "--out-dir", dir / "in"});
  EXPECT_EQ(self.exitCode, 1);
  EXPECT_EQ(self.err, "kxhost: " + dir / "in/song.mp3" + ": its output " + dir / "in/song.wav" +
                          " would replace an input file\nkxhost: " + dir / "in/song.wav" + ": its output " +
                          dir / "in/song.wav" + " would replace an input file\n");
  EXPECT_TRUE(kxtest::ReadFileBytes(dir / "in/song.wav") == wav);
}

TEST(KxhostProgress, ALongDecodeShowsTheTimeLeft) {
  kxtest::ScratchDir dir;
  const std::string input = kxtest::MakeLongStream(dir / "long.mp3", 1500);
  const auto r = RunProcess(kHost, {"--plugin", kModule, "--progress", "decode", input, "-o", dir / "a.raw"});
  EXPECT_EQ(r.exitCode, 0) << r.err.substr(0, 300);
  EXPECT_NE(r.err.find("  ETA 0:"), std::string::npos) << r.err.substr(0, 2000);
  // Each drawing starts over at the line's beginning, and the line is wiped at the end.
  EXPECT_NE(r.err.find("\r["), std::string::npos) << r.err.substr(0, 300);
  EXPECT_NE(r.err.find("\x1b[K"), std::string::npos) << r.err.substr(0, 300);
}

}  // namespace
