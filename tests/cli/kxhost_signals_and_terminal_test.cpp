// kxhost on POSIX signals and terminals, as a user meets them: Ctrl-C (SIGINT) in
// the middle of a file leaves nothing under the requested name, or keeps the older
// file there; the progress bar is drawn only when standard error is a terminal (a
// pseudo-terminal here), for one file and for a batch.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
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
  const std::string input = kxtest::MakeLongStream(dir / "long.mp3", 1500);  // about 14 minutes of audio
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
        if (name.rfind(outName + ".kxhost-", 0) == 0 && kxtest::FileSize(dir / name) > 100000) {
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
  const std::string input = kxtest::MakeLongStream(dir / "long.mp3", 1500);
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
  const std::string input = kxtest::MakeLongStream(dir / "long.mp3", 40);
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
  kxtest::MakeFiftyFiles(dir / "in");
  const std::string batch =
      RunOnTerminal({"--plugin", kModule, "decode", "-j", "1", "-r", dir / "in", "--out-dir", dir / "out"}, &exitCode);
  EXPECT_EQ(exitCode, 0);
  EXPECT_NE(batch.find("] 0/50 "), std::string::npos) << batch;  // drawn before the first file ends
  EXPECT_NE(batch.find("/50 "), std::string::npos) << batch;
  EXPECT_NE(batch.find(".mp3  0:"), std::string::npos) << batch;
}

}  // namespace
