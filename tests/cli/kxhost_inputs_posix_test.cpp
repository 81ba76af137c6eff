// What kxhost reads, in the POSIX file system's terms: a FIFO is read like a pipe,
// and a file name that is not UTF-8 (a Latin-1 byte) is a name like any other,
// reached through a link that is removed at the end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::FileText;
using kxtest::RunProcess;
using nlohmann::json;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";

TEST(KxhostInputs, AFifoIsReadLikeAPipe) {
  kxtest::ScratchDir dir;
  const std::string fifo = dir / "stream.mp3";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0) << std::strerror(errno);
  const std::string bytes = FileText(kMp3 + "id3v2.mp3");
  std::thread writer([&] {
    const int fd = open(fifo.c_str(), O_WRONLY);
    if (fd < 0) return;
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    close(fd);
  });
  const auto r = RunProcess(kHost, {"--plugin", kModule, "info", "--json", fifo});
  writer.join();
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto direct = RunProcess(kHost, {"--plugin", kModule, "info", "--json", kMp3 + "id3v2.mp3"});
  EXPECT_EQ(kxtest::InfoWithoutName(r), kxtest::InfoWithoutName(direct));
  EXPECT_EQ(json::parse(r.out)[0]["file_size"], bytes.size());
  EXPECT_TRUE(S_ISFIFO([&] { struct stat st {}; lstat(fifo.c_str(), &st); return st.st_mode; }()));
}

TEST(KxhostInputs, FileNamesAreBytesWhateverTheirEncoding) {
  kxtest::ScratchDir dir;
  const std::string latin1 = dir / "caf\xE9.mp3";  // "café" in Latin-1: not UTF-8
  ASSERT_TRUE(kxtest::WriteFileBytes(latin1, kxtest::ReadFileBytes(kMp3 + "id3v1.mp3")));
  const auto info = RunProcess(kHost, {"--plugin", kModule, "info", latin1});
  EXPECT_EQ(info.exitCode, 0) << info.err;
  EXPECT_EQ(info.out.rfind("file: " + latin1 + "\n", 0), 0u) << info.out;
  EXPECT_NE(info.out.find("sample rate: 22050 Hz\n"), std::string::npos) << info.out;
  const auto probe = RunProcess(kHost, {"--plugin", kModule, "probe", latin1});
  EXPECT_EQ(probe.exitCode, 0) << probe.err;
  const std::string out = dir / "\xE9t\xE9.wav";
  const auto decode = RunProcess(kHost, {"--plugin", kModule, "decode", latin1, "-o", out});
  EXPECT_EQ(decode.exitCode, 0) << decode.err;
  EXPECT_EQ(kxtest::ReadFileBytes(out).size(),
            44u + RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "-o", "-", "--format", "raw"})
                      .out.size());
  // Found in a folder too, and its output keeps the name's bytes.
  const auto batch = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", dir.Path(), "--out-dir", dir / "wav"});
  EXPECT_EQ(batch.exitCode, 0) << batch.err;
  EXPECT_EQ(kxtest::ListNames(dir / "wav"), std::vector<std::string>{"caf\xE9.wav"});
  // JSON stays valid UTF-8: the byte becomes U+FFFD.
  const auto j = RunProcess(kHost, {"--plugin", kModule, "info", "--json", latin1});
  EXPECT_EQ(json::parse(j.out)[0]["file"], dir / "caf\xEF\xBF\xBD.mp3");
}

TEST(KxhostInputs, LinksToNamesThatAreNotUtf8AreRemovedAtTheEnd) {
  kxtest::ScratchDir dir;
  kxtest::MakeDir(dir / "tmp");
  const std::map<std::string, std::string> env = {{"TMPDIR", dir / "tmp"}};
  const std::string latin1 = dir / "\xE9.mp3";
  kxtest::WriteFileBytes(latin1, kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  const auto named = RunProcess(kHost, {"--plugin", kModule, "decode", latin1, "-o", dir / "x.wav"}, env);
  EXPECT_EQ(named.exitCode, 0) << named.err;
  EXPECT_TRUE(kxtest::ListNames(dir / "tmp").empty());
}

}  // namespace
