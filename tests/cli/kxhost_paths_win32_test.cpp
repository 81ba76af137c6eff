// kxhost.exe with paths as Windows users write them, with '\' between the names: a
// file decoded into --out-dir keeps only its own name, a folder's files and
// subfolders are named with the folder's separator, and the progress bar shows the
// file's name alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";

std::string Backslashed(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

TEST(KxhostWindowsPaths, AFileIntoAnOutputFolder) {
  kxtest::ScratchDir dir;
  kxtest::WriteFileBytes(dir / "song.mp3", kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  const std::string input = Backslashed(dir / "song.mp3");
  const std::string out = Backslashed(dir / "wav");
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", input, "--out-dir", out});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, "decoded 1 file to " + out + "\n");
  EXPECT_EQ(kxtest::ListNames(dir / "wav"), std::vector<std::string>{"song.wav"});
  // The bar names the file, not its folders.
  const auto bar = RunProcess(kHost, {"--plugin", kModule, "--progress", "decode", input, "-o", out + "\\bar.wav"});
  EXPECT_EQ(bar.exitCode, 0) << bar.err;
  EXPECT_NE(bar.err.find("] song.mp3  0:"), std::string::npos) << bar.err;
}

TEST(KxhostWindowsPaths, AFolderTreeIsNamedWithItsSeparator) {
  kxtest::ScratchDir dir;
  kxtest::MakeDir(dir / "in");
  kxtest::MakeDir(dir / "in/cd1");
  kxtest::WriteFileBytes(dir / "in/a.mp3", kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  kxtest::WriteFileBytes(dir / "in/cd1/b.mp3", kxtest::ReadFileBytes(kMp3 + "apetag.mp3"));
  kxtest::WriteFileBytes(dir / "in/notes.txt", std::vector<uint8_t>(100, 'n'));
  const std::string in = Backslashed(dir / "in");
  const std::string out = Backslashed(dir / "out");
  const auto info = RunProcess(kHost, {"--plugin", kModule, "info", "--json", "-r", "-v", in});
  EXPECT_EQ(info.exitCode, 0) << info.err;
  const auto doc = nlohmann::json::parse(info.out);
  ASSERT_EQ(doc.size(), 2u);
  EXPECT_EQ(doc[0]["file"], in + "\\a.mp3");
  EXPECT_EQ(doc[1]["file"], in + "\\cd1\\b.mp3");
  EXPECT_EQ(info.err, "kxhost: skipped " + in + "\\notes.txt (not MPEG audio)\n"
                      "kxhost: 1 file skipped (not MPEG audio)\n");
  const auto decode = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", "-r", in, "--out-dir", out});
  EXPECT_EQ(decode.exitCode, 0) << decode.err;
  EXPECT_EQ(kxtest::ListNames(dir / "out"), (std::vector<std::string>{"a.wav", "cd1"}));
  EXPECT_EQ(kxtest::ListNames(dir / "out/cd1"), std::vector<std::string>{"b.wav"});
}

}  // namespace
