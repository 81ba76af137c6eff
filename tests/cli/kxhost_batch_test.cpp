// kxhost decode on folders as a user runs it: 50 files decoded by two workers give
// the same bytes as decoding them one by one; the folder layout is kept, files that
// are not MPEG audio are skipped, a failing file is reported while the others go
// on; Ctrl-C in the middle of a file leaves nothing under the requested name; the
// progress bar is drawn only on a terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

extern char** environ;

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";

const char* const kSources[] = {"m1_44100_joint_cbr.mp3", "m2_16000_mono_cbr.mp3", "m25_11025_stereo_cbr.mp3",
                                "id3v2_ape.mp3", "riff_wave_50.wav", "m1_32000_mono_abr.mp3",
                                "m2_24000_joint_vbr.mp3", "apetag.mp3", "m1_44100_noheader_short.mp3",
                                "riff_rmp3.rmp"};

// 50 files in a folder and two subfolders, each a copy of a fixture; the names keep
// each fixture's extension.
std::vector<std::string> MakeFifty(const std::string& root) {
  kxtest::MakeDir(root);
  kxtest::MakeDir(root + "/cd1");
  kxtest::MakeDir(root + "/cd2");
  std::vector<std::string> relative;
  for (int i = 0; i < 50; ++i) {
    const std::string source = kSources[i % 10];
    const std::string ext = source.substr(source.rfind('.'));
    const std::string folder = i < 20 ? "" : (i < 35 ? "cd1/" : "cd2/");
    char name[32];
    std::snprintf(name, sizeof(name), "track%02d", i);
    relative.push_back(folder + name + ext);
    kxtest::WriteFileBytes(root + "/" + relative.back(), kxtest::ReadFileBytes(kMp3 + source));
  }
  return relative;
}

std::string WavName(const std::string& relative) { return relative.substr(0, relative.rfind('.')) + ".wav"; }

TEST(KxhostBatch, FiftyFilesWithTwoWorkersGiveTheBytesOfOneByOne) {
  kxtest::ScratchDir dir;
  const std::vector<std::string> files = MakeFifty(dir / "in");
  const auto batch = RunProcess(kHost, {"--plugin", kModule, "decode", "-r", dir / "in", "--out-dir", dir / "out",
                                        "-j", "2"});
  ASSERT_EQ(batch.exitCode, 0) << batch.err;
  EXPECT_EQ(batch.err, "decoded 50 files to " + dir / "out" + "\n");
  EXPECT_TRUE(batch.out.empty());
  EXPECT_EQ(kxtest::ListNames(dir / "out").size(), 22u);  // 20 files and two folders
  kxtest::MakeDir(dir / "single");
  for (const auto& rel : files) {
    SCOPED_TRACE(rel);
    const std::string one = dir / ("single/" + std::to_string(&rel - files.data()) + ".wav");
    const auto r = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", dir / ("in/" + rel), "-o", one});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;  // --quiet: no summary line
    const std::vector<uint8_t> expected = kxtest::ReadFileBytes(one);
    ASSERT_GT(expected.size(), 44u);
    EXPECT_TRUE(kxtest::ReadFileBytes(dir / ("out/" + WavName(rel))) == expected);
  }
}

TEST(KxhostBatch, WithoutRecursionOnlyTheFolderItselfAndRawOutput) {
  kxtest::ScratchDir dir;
  MakeFifty(dir / "in");
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

// A long stream: the frames of a file without a VBR header, many times over.
std::string MakeLongFile(const std::string& path, int copies) {
  const std::vector<uint8_t> one = kxtest::ReadFileBytes(kMp3 + "m1_44100_noheader_short.mp3");
  std::vector<uint8_t> all;
  for (int i = 0; i < copies; ++i) all.insert(all.end(), one.begin(), one.end());
  kxtest::WriteFileBytes(path, all);
  return path;
}

pid_t Spawn(const std::vector<std::string>& args, int stderrFd) {
  std::vector<std::string> strings{kHost};
  strings.insert(strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (stderrFd >= 0) posix_spawn_file_actions_adddup2(&actions, stderrFd, 2);
  else posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  // SIGINT and SIGTERM with their default actions, whatever this process inherited.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGINT);
  sigaddset(&defaults, SIGTERM);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, kHost.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return rc == 0 ? pid : -1;
}

TEST(KxhostInterrupt, CtrlCInTheMiddleOfAFileLeavesNoOutput) {
  kxtest::ScratchDir dir;
  const std::string input = MakeLongFile(dir / "long.mp3", 1500);  // about 14 minutes of audio
  for (const char* format : {"wav", "raw"}) {
    SCOPED_TRACE(format);
    const std::string outName = std::string("out.") + format;
    const std::string out = dir / outName;
    const pid_t pid = Spawn({"--plugin", kModule, "decode", input, "-o", out, "--format", format}, -1);
    ASSERT_GT(pid, 0);
    // Wait until the temporary output holds samples: the decode is under way.
    bool started = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!started && std::chrono::steady_clock::now() < deadline) {
      for (const auto& name : kxtest::ListNames(dir.Path())) {
        struct stat st {};
        if (name.rfind(outName + ".kxhost-", 0) == 0 && stat((dir / name).c_str(), &st) == 0 && st.st_size > 100000) {
          started = true;
        }
      }
      if (!started) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_TRUE(started) << "the decode never wrote its temporary file";
    kill(pid, SIGINT);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFSIGNALED(status)) << "ended with status " << WEXITSTATUS(status) << " (finished before the signal?)";
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    // Neither the requested name nor the temporary file is left.
    EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"long.mp3"});
  }
}

TEST(KxhostInterrupt, CtrlCKeepsAnOlderFileUnderTheRequestedName) {
  kxtest::ScratchDir dir;
  const std::string input = MakeLongFile(dir / "long.mp3", 1500);
  const std::string out = dir / "out.wav";
  kxtest::WriteFileBytes(out, {'o', 'l', 'd'});
  const pid_t pid = Spawn({"--plugin", kModule, "decode", input, "-o", out}, -1);
  ASSERT_GT(pid, 0);
  bool started = false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!started && std::chrono::steady_clock::now() < deadline) {
    for (const auto& name : kxtest::ListNames(dir.Path())) started = started || name.rfind("out.wav.kxhost-", 0) == 0;
    if (!started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_TRUE(started);
  kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(kxtest::ReadFileBytes(out), (std::vector<uint8_t>{'o', 'l', 'd'}));
  EXPECT_EQ(kxtest::ListNames(dir.Path()), (std::vector<std::string>{"long.mp3", "out.wav"}));
}

// Runs kxhost with standard error on a pseudo-terminal and returns what it drew.
std::string RunOnTerminal(const std::vector<std::string>& args, int* exitCode) {
  int master = -1, slave = -1;
  if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) return "openpty failed";
  const pid_t pid = Spawn(args, slave);
  close(slave);
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t n = read(master, buffer, sizeof(buffer));  // EIO once the child has gone
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  close(master);
  int status = 0;
  waitpid(pid, &status, 0);
  *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return text;
}

TEST(KxhostProgress, DrawnOnATerminalOnly) {
  kxtest::ScratchDir dir;
  const std::string input = MakeLongFile(dir / "long.mp3", 40);
  int exitCode = -1;
  const std::string drawn =
      RunOnTerminal({"--plugin", kModule, "decode", input, "-o", dir / "a.wav"}, &exitCode);
  EXPECT_EQ(exitCode, 0) << drawn;
  // The file, its position / duration and the speed.
  EXPECT_NE(drawn.find("\r["), std::string::npos) << drawn;
  EXPECT_NE(drawn.find("] long.mp3  0:"), std::string::npos) << drawn;
  EXPECT_NE(drawn.find(" / 0:21.9"), std::string::npos) << drawn;  // 967680 samples at 44.1 kHz
  EXPECT_NE(drawn.find("  speed "), std::string::npos) << drawn;
  EXPECT_NE(drawn.find("a.wav: "), std::string::npos) << drawn;  // the summary line after the bar
  // --quiet: nothing at all on the terminal.
  const std::string quiet =
      RunOnTerminal({"--plugin", kModule, "--quiet", "decode", input, "-o", dir / "b.wav"}, &exitCode);
  EXPECT_EQ(exitCode, 0);
  EXPECT_TRUE(quiet.empty()) << quiet;
  // Not a terminal: the summary line only, no bar.
  const auto piped = RunProcess(kHost, {"--plugin", kModule, "decode", input, "-o", dir / "c.wav"});
  EXPECT_EQ(piped.exitCode, 0);
  EXPECT_EQ(piped.err.find('\r'), std::string::npos);
  EXPECT_EQ(piped.err.rfind(dir / "c.wav: ", 0), 0u) << piped.err;
  // --progress draws it anyway (for logs).
  const auto forced = RunProcess(kHost, {"--plugin", kModule, "--progress", "decode", input, "-o", dir / "d.wav"});
  EXPECT_EQ(forced.exitCode, 0);
  EXPECT_NE(forced.err.find("\r["), std::string::npos) << forced.err;
  // A batch: files done of all, and the file under way with its position, as it decodes.
  MakeFifty(dir / "in");
  const std::string batch =
      RunOnTerminal({"--plugin", kModule, "decode", "-j", "1", "-r", dir / "in", "--out-dir", dir / "out"}, &exitCode);
  EXPECT_EQ(exitCode, 0);
  EXPECT_NE(batch.find("] 0/50 "), std::string::npos) << batch;  // drawn before the first file ends
  EXPECT_NE(batch.find("/50 "), std::string::npos) << batch;
  EXPECT_NE(batch.find(".mp3  0:"), std::string::npos) << batch;
}

TEST(KxhostProgress, ALongDecodeShowsTheTimeLeft) {
  kxtest::ScratchDir dir;
  const std::string input = MakeLongFile(dir / "long.mp3", 1500);
  const auto r = RunProcess(kHost, {"--plugin", kModule, "--progress", "decode", input, "-o", dir / "a.raw"});
  EXPECT_EQ(r.exitCode, 0) << r.err.substr(0, 300);
  EXPECT_NE(r.err.find("  ETA 0:"), std::string::npos) << r.err.substr(0, 2000);
}

}  // namespace
