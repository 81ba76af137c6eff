// Where kxhost decode writes, as a user meets it: a device node or a FIFO given to
// -o is written in place and is still there afterwards (nodes are made in a scratch
// folder, never the machine's own /dev); -n keeps an existing file; the output's
// extension chooses WAV or raw and contradictions are refused; a folder given to -o
// is refused before anything is decoded; a symbolic link stays a link; and every
// command that writes to standard output fails with status 2 when it cannot
// (/dev/full).
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

std::string RawOf(const std::string& input) {
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", "-", "--format", "raw"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return r.out;
}

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
  const std::string raw = RawOf(kInput);
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

TEST(KxhostOutputs, NoClobberKeepsAnExistingFileAndReplacingIsSaid) {
  kxtest::ScratchDir dir;
  const std::string out = dir / "song.wav";
  ASSERT_TRUE(kxtest::WriteFileBytes(out, {'o', 'l', 'd'}));
  const auto kept = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", out, "-n"});
  EXPECT_EQ(kept.exitCode, 0) << kept.err;
  EXPECT_EQ(kept.err, "kxhost: " + out + " exists; kept (-n)\n");
  EXPECT_EQ(kxtest::ReadFileBytes(out), (std::vector<uint8_t>{'o', 'l', 'd'}));
  const auto replaced = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", out});
  EXPECT_EQ(replaced.exitCode, 0) << replaced.err;
  EXPECT_EQ(replaced.err,
            out + ": 44100 samples, 44100 Hz, 2 channels, 16-bit, 0:01.000 (replaced the existing file)\n");
  EXPECT_EQ(kxtest::ReadFileBytes(out).size(), 44u + 44100 * 4);
  // A batch: existing outputs are kept and counted.
  kxtest::MakeDir(dir / "in");
  kxtest::WriteFileBytes(dir / "in/a.mp3", kxtest::ReadFileBytes(kInput));
  kxtest::WriteFileBytes(dir / "in/b.mp3", kxtest::ReadFileBytes(kInput));
  kxtest::MakeDir(dir / "out");
  kxtest::WriteFileBytes(dir / "out/a.wav", {'o', 'l', 'd'});
  const auto batch =
      RunProcess(kHost, {"--plugin", kModule, "decode", dir / "in", "--out-dir", dir / "out", "-n", "-v"});
  EXPECT_EQ(batch.exitCode, 0) << batch.err;
  EXPECT_EQ(batch.err, "kxhost: kept " + dir / "out/a.wav" + " (exists, -n)\ndecoded 1 file to " + dir / "out" +
                           ", 1 kept (output exists)\n");
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "out/a.wav"), (std::vector<uint8_t>{'o', 'l', 'd'}));
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "out/b.wav").size(), 44u + 44100 * 4);
}

TEST(KxhostOutputs, TheExtensionChoosesTheFormatAndContradictionsAreRefused) {
  kxtest::ScratchDir dir;
  const std::string raw = RawOf(kInput);
  for (const char* name : {"x.raw", "x.pcm", "X.RAW"}) {
    SCOPED_TRACE(name);
    const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / name});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const auto bytes = kxtest::ReadFileBytes(dir / name);
    EXPECT_TRUE(std::string(bytes.begin(), bytes.end()) == raw);
  }
  const auto wav = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "x.wav"});
  EXPECT_EQ(wav.exitCode, 0);
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "x.wav").size(), 44u + raw.size());
  // A name without an extension follows --format (WAV by default).
  const auto plain = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "plain", "--format", "raw"});
  EXPECT_EQ(plain.exitCode, 0);
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "plain").size(), raw.size());
  const size_t before = kxtest::ListNames(dir.Path()).size();
  const auto mp3 = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "out.mp3"});
  EXPECT_EQ(mp3.exitCode, 2);
  EXPECT_EQ(mp3.err, "kxhost: " + dir / "out.mp3" +
                         ": kxhost writes WAV or raw samples, not .mp3; name the output .wav, .raw or .pcm\n");
  const auto clash = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "y.raw", "--format", "wav"});
  EXPECT_EQ(clash.exitCode, 2);
  EXPECT_EQ(clash.err, "kxhost: " + dir / "y.raw" + ": the name says raw but --format says wav; make them agree\n");
  const auto clash2 = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "y.wav", "--format", "raw"});
  EXPECT_EQ(clash2.exitCode, 2);
  EXPECT_EQ(kxtest::ListNames(dir.Path()).size(), before);  // nothing made
}

TEST(KxhostOutputs, AFolderGivenToDashOIsRefusedBeforeDecoding) {
  kxtest::ScratchDir dir;
  kxtest::MakeDir(dir / "wavs");
  const auto r = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "-o", dir / "wavs"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "kxhost: " + dir / "wavs" + " is a folder: -o names a file (use --out-dir DIR for a folder)\n");
  EXPECT_TRUE(kxtest::ListNames(dir / "wavs").empty());
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"wavs"});
  // --out-dir naming a file is refused the same way.
  kxtest::WriteFileBytes(dir / "file", {'x'});
  const auto file = RunProcess(kHost, {"--plugin", kModule, "decode", kInput, "--out-dir", dir / "file"});
  EXPECT_EQ(file.exitCode, 2);
  EXPECT_EQ(file.err, "kxhost: --out-dir " + dir / "file" + " is a file, not a folder\n");
  EXPECT_EQ(kxtest::ReadFileBytes(dir / "file"), std::vector<uint8_t>{'x'});
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
