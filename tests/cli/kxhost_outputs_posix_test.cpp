// Where kxhost decode writes, in the POSIX file system's other kinds of file: a device
// node or a FIFO given to -o is written in place and is still there afterwards
// (nodes are made in a scratch folder, never the machine's own /dev); a symbolic
// link stays a link; and every command that writes to standard output fails with
// status 2 when it cannot (/dev/full).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";
const std::string kInput = kMp3 + "m1_44100_joint_cbr.mp3";  // 44100 stereo samples

struct stat StatOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  return st;
}

// Makes a character device node with the numbers of /dev/null (1, 3) or /dev/full
// (1, 7); false (with the reason) when this system does not allow it.
bool MakeCharDevice(const std::string& path, unsigned minor, std::string* why) {
  if (mknod(path.c_str(), S_IFCHR | 0666, makedev(1, minor)) == 0) return true;
  *why = std::string("mknod is not permitted here (") + std::strerror(errno) + "); run the tests as root";
  return false;
}

// Reads a FIFO to its end on a thread, as a player at the other end would.
class FifoReader {
 public:
  explicit FifoReader(const std::string& path)
      : thread_([this, path] {
          const int fd = open(path.c_str(), O_RDONLY);
          if (fd < 0) return;
          char buffer[65536];
          for (ssize_t n; (n = read(fd, buffer, sizeof(buffer))) > 0;) data_.append(buffer, static_cast<size_t>(n));
          close(fd);
        }) {}
  std::string Join() {
    thread_.join();
    return data_;
  }

 private:
  std::string data_;
  std::thread thread_;
};

TEST(KxhostOutputs, ADeviceNodeIsWrittenInPlaceAndStaysADevice) {
  kxtest::ScratchDir dir;
  std::string why;
  const std::string null = dir / "null";
  if (!MakeCharDevice(null, 3, &why)) GTEST_SKIP() << why;
  for (const char* format : {"wav", "raw"}) {
    SCOPED_TRACE(format);
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", null, "--format", format});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, null + ": 44100 samples, 44100 Hz, 2 channels, 16-bit, 0:01.000\n");
    const struct stat st = StatOf(null);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    EXPECT_EQ(st.st_rdev, makedev(1, 3));
  }
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"null"});  // no temporary file, no WAV
}

TEST(KxhostOutputs, AWriteErrorOnADeviceIsReportedAndTheDeviceStays) {
  kxtest::ScratchDir dir;
  std::string why;
  const std::string full = dir / "full";
  if (!MakeCharDevice(full, 7, &why)) GTEST_SKIP() << why;
  for (const char* format : {"wav", "raw"}) {
    SCOPED_TRACE(format);
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", full, "--format", format});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "kxhost: cannot write " + full + ": No space left on device\n");
    EXPECT_TRUE(S_ISCHR(StatOf(full).st_mode));
  }
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"full"});
}

TEST(KxhostOutputs, AFifoIsWrittenInPlaceForItsReader) {
  kxtest::ScratchDir dir;
  const std::string fifo = dir / "player";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0) << std::strerror(errno);
  const std::string raw = kxtest::DecodeToRaw(kInput);
  ASSERT_EQ(raw.size(), 44100u * 4);
  {
    FifoReader reader(fifo);
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", fifo, "--format", "raw"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(reader.Join() == raw);
  }
  {
    // WAV into a FIFO: a stream header (lengths unknown), then the same samples.
    FifoReader reader(fifo);
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", fifo});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::string wav = reader.Join();
    ASSERT_EQ(wav.size(), 44 + raw.size());
    EXPECT_EQ(wav.substr(0, 4), "RIFF");
    EXPECT_EQ(wav.substr(4, 4), std::string(4, '\xFF'));
    EXPECT_TRUE(wav.substr(44) == raw);
  }
  EXPECT_TRUE(S_ISFIFO(StatOf(fifo).st_mode));
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"player"});
}

TEST(KxhostOutputs, ASymbolicLinkStaysALinkToTheNewFile) {
  kxtest::ScratchDir dir;
  kxtest::WriteFileBytes(dir / "real.wav", {'o', 'l', 'd'});
  ASSERT_EQ(symlink("real.wav", (dir / "link.wav").c_str()), 0);
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "link.wav"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(S_ISLNK(StatOf(dir / "link.wav").st_mode));
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "real.wav").size(), 44u + 44100 * 4);
  EXPECT_EQ(kxtest::ListNames(dir.Path()), (std::vector<std::string>{"link.wav", "real.wav"}));
}

// Runs kxhost with standard output on /dev/full.
kxtest::ProcessResult RunIntoFull(const std::vector<std::string>& args) {
  std::vector<std::string> shell = {"-c", "exec \"$0\" \"$@\" >/dev/full", kHost, "--plugin", kModule};
  shell.insert(shell.end(), args.begin(), args.end());
  return RunProcess("/bin/sh", shell);
}

TEST(KxhostOutputs, EveryCommandFailsWhenStandardOutputCannotBeWritten) {
  const std::string sample = std::string(KX_TEST_DATA_DIR) + "/sample.mp3";
  const std::vector<std::vector<std::string>> commands = {
      {"info", sample},     {"info", "--json", sample}, {"info", "--fields", "file", sample},
      {"plugins"},          {"probe", sample},          {"dialog", sample},
      {"decode", sample, "-o", "-", "--format", "raw"}, {"decode", sample, "-o", "-"},
      {"--version"},        {"--help"},                 {"info", "--help"}};
  for (const auto& args : commands) {
    SCOPED_TRACE(args[0] + " " + args.back());
    const auto r = RunIntoFull(args);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("kxhost: cannot write standard output: No space left on device\n"), std::string::npos)
        << r.err;
  }
}

}  // namespace
