// kxhost play as a user runs it, without a sound card: each test gives ALSA a
// configuration of its own (ALSA_CONFIG_PATH) whose default PCM is a "file" PCM over
// the "null" PCM, recording what is played into files named after the rate,
// channels and sample bits; a device opened again for the same format records into
// a new file (".0001"), so the files also show when the device was reopened. The
// recordings are held to `kxhost decode`'s output: gapless pairs back to back, a
// change of rate between files, ReplayGain track and album against the tags' gains
// and peaks; the keys are driven through a pseudo-terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kPlay = std::string(KX_TEST_DATA_DIR) + "/play/";

using Bytes = std::vector<uint8_t>;

// A scratch folder with an ALSA configuration that records into it.
struct Recorder {
  kxtest::ScratchDir dir;
  std::string config;
  Recorder() {
    config = dir / "asound.conf";
    std::ofstream(config) << "pcm.!default {\n  type file\n  slave.pcm \"silent\"\n  file \"" << dir.Path()
                          << "/rec-%r-%c-%b.raw\"\n  format \"raw\"\n  truncate false\n}\n"
                             "pcm.silent {\n  type null\n}\n";
  }
  std::map<std::string, std::string> Env() const { return {{"ALSA_CONFIG_PATH", config}}; }
  // The recordings, by name.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const std::string& name : kxtest::ListNames(dir.Path()))
      if (name.rfind("rec-", 0) == 0) names.push_back(name);
    return names;
  }
  Bytes Read(const std::string& name) const { return kxtest::ReadFileBytes(dir / name); }
};

kxtest::ProcessResult Play(const Recorder& r, std::vector<std::string> args) {
  args.insert(args.begin(), {"--plugin", kModule, "play"});
  return RunProcess(kHost, args, r.Env());
}

Bytes Decode(const std::string& file, std::vector<std::string> extra = {}) {
  std::vector<std::string> args{"--plugin", kModule, "-q", "decode", file, "-o", "-", "--format", "raw"};
  args.insert(args.end(), extra.begin(), extra.end());
  const auto r = RunProcess(kHost, args);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return Bytes(r.out.begin(), r.out.end());
}

Bytes Concat(const Bytes& a, const Bytes& b) {
  Bytes all = a;
  all.insert(all.end(), b.begin(), b.end());
  return all;
}

// The float decode scaled by `factor` and rounded to 16 bits (nearest, ties to even,
// saturated), as the ReplayGain path must give it.
Bytes Scaled16(const Bytes& floats, double factor) {
  Bytes out(floats.size() / 4);
  for (size_t i = 0; i < floats.size() / 8; ++i) {
    double v = 0;
    std::memcpy(&v, floats.data() + 8 * i, 8);
    double s = std::nearbyint(v * factor * 32768.0);
    s = s > 32767 ? 32767 : s < -32768 ? -32768 : s;
    const auto sample = static_cast<int16_t>(s);
    std::memcpy(out.data() + 2 * i, &sample, 2);
  }
  return out;
}

TEST(KxhostPlay, GaplessHalvesPlayAsTheirDecodesBackToBack) {
  Recorder r;
  const auto result = Play(r, {kPlay + "gapless_a.mp3", kPlay + "gapless_b.mp3"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  // One recording: the device was opened once for both files.
  ASSERT_EQ(r.Files(), (std::vector<std::string>{"rec-44100-2-16.raw"}));
  const Bytes expected = Concat(Decode(kPlay + "gapless_a.mp3"), Decode(kPlay + "gapless_b.mp3"));
  const Bytes recorded = r.Read("rec-44100-2-16.raw");
  EXPECT_EQ(recorded.size(), expected.size());
  EXPECT_TRUE(recorded == expected) << "no silence, overlap or lost sample at the join";
  // The two halves of one 3-second signal (lame trims its delay and padding).
  EXPECT_EQ(recorded.size(), 3u * 44100 * 4);
  // Without a terminal: one line per file.
  EXPECT_NE(result.err.find("playing: gapless_a.mp3 (0:01)\n"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("playing: gapless_b.mp3 (0:01)\n"), std::string::npos) << result.err;
}

TEST(KxhostPlay, FloatSamplesGoToTheDeviceAsDecoded) {
  Recorder r;
  const auto result = Play(r, {"--float", kPlay + "gapless_a.mp3", kPlay + "gapless_b.mp3"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(r.Files(), (std::vector<std::string>{"rec-44100-2-64.raw"}));
  EXPECT_TRUE(r.Read("rec-44100-2-64.raw") ==
              Concat(Decode(kPlay + "gapless_a.mp3", {"--float"}), Decode(kPlay + "gapless_b.mp3", {"--float"})));
}

TEST(KxhostPlay, AChangeOfRateReopensTheDeviceAndOnlyThen) {
  Recorder r;
  const auto result =
      Play(r, {"--quiet", kPlay + "gapless_a.mp3", kPlay + "rate_48k.mp3", kPlay + "gapless_b.mp3"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(result.err.empty()) << result.err;
  ASSERT_EQ(r.Files(), (std::vector<std::string>{"rec-44100-2-16.raw", "rec-44100-2-16.raw.0001", "rec-48000-2-16.raw"}));
  EXPECT_TRUE(r.Read("rec-44100-2-16.raw") == Decode(kPlay + "gapless_a.mp3"));
  EXPECT_TRUE(r.Read("rec-48000-2-16.raw") == Decode(kPlay + "rate_48k.mp3"));
  EXPECT_TRUE(r.Read("rec-44100-2-16.raw.0001") == Decode(kPlay + "gapless_b.mp3"));
}

TEST(KxhostPlay, ReplayGainScalesByTheTagsGainHeldByThePeak) {
  const std::string file = kPlay + "replaygain.mp3";
  const Bytes floats = Decode(file, {"--float"});
  struct Case {
    std::vector<std::string> options;
    double factor;
  };
  const Case cases[] = {
      {{}, std::pow(10.0, -6.5 / 20)},                                  // track is play's default
      {{"--replaygain", "track", "--preamp", "2"}, std::pow(10.0, -4.5 / 20)},
      {{"--replaygain", "track", "--preamp", "9"}, std::pow(10.0, 2.5 / 20)},  // x 0.5 peak: still below 1
      {{"--replaygain", "track", "--preamp", "13"}, 1 / 0.5},            // +6.5 dB would pass 1 at the peak 0.5
      {{"--replaygain", "album"}, 1 / 0.9},                              // +3 dB x 0.9 > 1: held by the peak
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.options));
    Recorder r;
    std::vector<std::string> args = c.options;
    args.push_back(file);
    const auto result = Play(r, args);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    ASSERT_EQ(r.Files(), (std::vector<std::string>{"rec-44100-2-16.raw"}));
    const Bytes expected = Scaled16(floats, c.factor);
    EXPECT_TRUE(r.Read("rec-44100-2-16.raw") == expected);
    // decode applies the same gain, in the same way.
    std::vector<std::string> decodeArgs = c.options;
    if (c.options.empty()) decodeArgs = {"--replaygain", "track"};
    EXPECT_TRUE(Decode(file, decodeArgs) == expected);
  }
  // Off: the decoder's own 16-bit samples.
  Recorder off;
  ASSERT_EQ(Play(off, {"--replaygain", "off", file}).exitCode, 0);
  EXPECT_TRUE(off.Read("rec-44100-2-16.raw") == Decode(file));
  // decode's default is off.
  EXPECT_TRUE(Decode(file) != Scaled16(floats, std::pow(10.0, -6.5 / 20)));
}

TEST(KxhostPlay, AFileWithoutValuesPlaysAtTheFallbackGain) {
  const std::string file = kPlay + "no_replaygain.mp3";
  Recorder plain;
  ASSERT_EQ(Play(plain, {file}).exitCode, 0);
  EXPECT_TRUE(plain.Read("rec-44100-2-16.raw") == Decode(file)) << "0 dB: the decoder's samples as they are";
  Recorder lower;
  ASSERT_EQ(Play(lower, {"--fallback-gain", "-3", "--preamp", "6", file}).exitCode, 0);
  EXPECT_TRUE(lower.Read("rec-44100-2-16.raw") == Scaled16(Decode(file, {"--float"}), std::pow(10.0, -3.0 / 20)));
}

TEST(KxhostPlay, ADeviceThatCannotBeOpenedIsOneLineAndStatusTwo) {
  Recorder r;
  const auto result = Play(r, {"--device", "no_such_pcm", kPlay + "gapless_a.mp3"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.err, "kxhost: cannot open the audio device no_such_pcm: No such file or directory\n");
  EXPECT_TRUE(r.Files().empty());
}

TEST(KxhostPlay, AFileThatDoesNotOpenIsReportedAndSkipped) {
  Recorder r;
  kxtest::WriteFileBytes(r.dir / "junk.mp3", Bytes(5000, 0x55));
  const auto result = Play(r, {"--quiet", kPlay + "gapless_a.mp3", r.dir / "missing.mp3", r.dir / "junk.mp3",
                               kPlay + "gapless_b.mp3"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("missing.mp3: "), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("junk.mp3: "), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(", skipped\n"), std::string::npos) << result.err;
  // The others play gaplessly still: the skipped files leave no gap.
  EXPECT_TRUE(r.Read("rec-44100-2-16.raw") ==
              Concat(Decode(kPlay + "gapless_a.mp3"), Decode(kPlay + "gapless_b.mp3")));
}

TEST(KxhostPlay, AFileThatFailsMidwayKeepsWhatPlayedAndTheNextGoesOn) {
  Recorder r;
  const std::string broken = std::string(KX_TEST_DATA_DIR) + "/regression/module/relative_seek_keeps_sample_phase.mp3";
  const auto result = Play(r, {"--quiet", broken, kPlay + "gapless_a.mp3"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("decoding failed at 0:00"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(", skipped\n"), std::string::npos) << result.err;
  // What played of it, then the next file whole. (How far a damaged file gets
  // before the failure depends on the request sizes; its start is what `decode`
  // keeps of it.)
  const auto kept = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", broken, "-o", "-", "--format", "raw"});
  EXPECT_EQ(kept.exitCode, 1);
  ASSERT_FALSE(kept.out.empty());
  const Bytes a = Decode(kPlay + "gapless_a.mp3");
  const Bytes recorded = r.Read("rec-44100-2-16.raw");
  ASSERT_GT(recorded.size(), a.size() + kept.out.size() - 1);
  EXPECT_TRUE(std::equal(kept.out.begin(), kept.out.end(), recorded.begin(),
                         [](char x, uint8_t y) { return static_cast<uint8_t>(x) == y; }));
  EXPECT_TRUE(std::equal(a.begin(), a.end(), recorded.end() - static_cast<std::ptrdiff_t>(a.size())));
}

TEST(KxhostPlay, FoldersInNameOrderSubfoldersWithRAndShuffle) {
  Recorder r;
  const std::string music = r.dir / "music";
  kxtest::MakeDir(music);
  kxtest::MakeDir(music + "/sub");
  kxtest::WriteFileBytes(music + "/1.mp3", kxtest::ReadFileBytes(kPlay + "gapless_a.mp3"));
  kxtest::WriteFileBytes(music + "/README.txt", Bytes{'h', 'i', '\n'});
  kxtest::WriteFileBytes(music + "/sub/2.mp3", kxtest::ReadFileBytes(kPlay + "gapless_b.mp3"));
  const Bytes a = Decode(kPlay + "gapless_a.mp3");
  const Bytes b = Decode(kPlay + "gapless_b.mp3");
  // Without -r: the folder's own files only; the README is not played, and is no error.
  auto result = Play(r, {"--quiet", music});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(r.Read("rec-44100-2-16.raw") == a);
  // With -r: the subfolder too, in name order.
  Recorder all;
  result = Play(all, {"--quiet", "-r", music});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(all.Read("rec-44100-2-16.raw") == Concat(a, b));
  // Shuffled: both files, in one order or the other.
  Recorder shuffled;
  result = Play(shuffled, {"--quiet", "--shuffle", "-r", music});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const Bytes played = shuffled.Read("rec-44100-2-16.raw");
  EXPECT_TRUE(played == Concat(a, b) || played == Concat(b, a));
}

// kxhost play on a pseudo-terminal (standard input and error), with keys typed at
// given times after its status line first appears (the player is then reading keys,
// however long the start took).
struct TerminalRun {
  std::string drawn;            // what it wrote on the terminal
  int exitCode = -1;            // or 128 + signal
  double seconds = 0;           // how long it ran
  bool restored = false;        // the terminal's line editing and echo are back on
};

struct Keystroke {
  int afterMs;
  std::string keys;  // "\x03" is Ctrl-C
};

TerminalRun PlayOnTerminal(const Recorder& r, const std::vector<std::string>& files,
                           const std::vector<Keystroke>& strokes) {
  TerminalRun run;
  int master = -1;
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    setenv("ALSA_CONFIG_PATH", r.config.c_str(), 1);
    signal(SIGINT, SIG_DFL);
    std::vector<std::string> strings{kHost, "--plugin", kModule, "play"};
    strings.insert(strings.end(), files.begin(), files.end());
    std::vector<char*> argv;
    for (auto& s : strings) argv.push_back(s.data());
    argv.push_back(nullptr);
    execv(kHost.c_str(), argv.data());
    _exit(127);
  }
  if (pid < 0) return run;
  size_t next = 0;
  int status = 0;
  bool exited = false;
  std::chrono::steady_clock::time_point shown{};
  bool statusShown = false;
  for (;;) {
    const auto now = std::chrono::steady_clock::now();
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - start).count();
    if (!statusShown && run.drawn.find(" / ") != std::string::npos) {
      statusShown = true;
      shown = now;
    }
    const auto sinceShown = std::chrono::duration_cast<std::chrono::milliseconds>(now - shown).count();
    if (statusShown && next < strokes.size() && sinceShown >= strokes[next].afterMs) {
      const std::string& k = strokes[next].keys;
      if (write(master, k.data(), k.size()) < 0) break;
      ++next;
    }
    struct pollfd p {};
    p.fd = master;
    p.events = POLLIN;
    if (poll(&p, 1, 10) > 0) {
      char buffer[4096];
      const ssize_t n = read(master, buffer, sizeof(buffer));
      if (n > 0) run.drawn.append(buffer, static_cast<size_t>(n));
    }
    if (!exited && waitpid(pid, &status, WNOHANG) == pid) exited = true;
    if (exited) {
      // Whatever is still in the terminal, then the terminal's settings as it left them.
      char buffer[4096];
      while (poll(&p, 1, 50) > 0) {
        const ssize_t n = read(master, buffer, sizeof(buffer));
        if (n <= 0) break;
        run.drawn.append(buffer, static_cast<size_t>(n));
      }
      struct termios t {};
      run.restored = tcgetattr(master, &t) == 0 && (t.c_lflag & ICANON) != 0 && (t.c_lflag & ECHO) != 0;
      break;
    }
    if (elapsed > 60000) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
  }
  close(master);
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
  return run;
}

// Where `part` starts inside `whole`, or -1.
int64_t Find(const Bytes& whole, const Bytes& part) {
  if (part.empty() || part.size() > whole.size()) return -1;
  for (size_t i = 0; i + part.size() <= whole.size(); i += 2) {
    if (std::memcmp(whole.data() + i, part.data(), part.size()) == 0) return static_cast<int64_t>(i);
  }
  return -1;
}

TEST(KxhostPlayKeys, StatusLineAndQuit) {
  Recorder r;
  const TerminalRun run = PlayOnTerminal(r, {kPlay + "long_mono.mp3"}, {{1200, "q"}});
  EXPECT_EQ(run.exitCode, 0) << run.drawn;
  EXPECT_LT(run.seconds, 10) << "quit ends the 24-second file at once";
  EXPECT_TRUE(run.restored);
  EXPECT_NE(run.drawn.find("Sweep Band \u2013 Long Sweep  0:0"), std::string::npos) << run.drawn;
  EXPECT_NE(run.drawn.find(" / 0:24 ["), std::string::npos) << run.drawn;
  // What was played is the start of the file, as decoded.
  const Bytes recorded = r.Read("rec-11025-1-16.raw");
  const Bytes whole = Decode(kPlay + "long_mono.mp3");
  ASSERT_GT(recorded.size(), 0u);
  ASSERT_LT(recorded.size(), whole.size() / 4);
  EXPECT_TRUE(std::equal(recorded.begin(), recorded.end(), whole.begin()));
}

TEST(KxhostPlayKeys, RightArrowSeeksTenSecondsAhead) {
  Recorder r;
  const TerminalRun run = PlayOnTerminal(r, {kPlay + "long_mono.mp3"}, {{800, "\x1b[C"}, {1800, "q"}});
  EXPECT_EQ(run.exitCode, 0) << run.drawn;
  const Bytes recorded = r.Read("rec-11025-1-16.raw");
  const Bytes whole = Decode(kPlay + "long_mono.mp3");
  ASSERT_GT(recorded.size(), 4000u);
  ASSERT_LT(recorded.size(), whole.size() / 3) << "ten seconds were skipped, and the run was quit";
  // The last samples played lie more than ten seconds into the file, where a
  // straight decode has exactly those samples.
  const Bytes tail(recorded.end() - 2000, recorded.end());
  const int64_t at = Find(whole, tail);
  ASSERT_GE(at, 0) << "the samples after the seek are the file's own";
  EXPECT_GT(at / 2, 10 * 11025) << "more than ten seconds in";
  EXPECT_TRUE(run.restored);
}

TEST(KxhostPlayKeys, UpArrowPastTheEndPreviousAndDownArrowToTheStart) {
  Recorder r;
  // Up: 60 s ahead, past the end of the 24-second file, so on to the next file; p
  // there goes back to the first, down seeks 60 s back (to its start), and n goes on
  // to the second, which then plays whole.
  const TerminalRun run = PlayOnTerminal(r, {kPlay + "long_mono.mp3", kPlay + "gapless_a.mp3"},
                                         {{600, "\x1b[A"}, {1100, "p"}, {1900, "\x1b[B"}, {2600, "n"}});
  EXPECT_EQ(run.exitCode, 0) << run.drawn;
  const Bytes whole = Decode(kPlay + "long_mono.mp3");
  const Bytes a = Decode(kPlay + "gapless_a.mp3");
  // The device was opened for each change of format: four recordings.
  ASSERT_EQ(r.Files(), (std::vector<std::string>{"rec-11025-1-16.raw", "rec-11025-1-16.raw.0001",
                                                 "rec-44100-2-16.raw", "rec-44100-2-16.raw.0001"}));
  const Bytes first = r.Read("rec-11025-1-16.raw");
  ASSERT_GT(first.size(), 0u);
  ASSERT_LT(first.size(), whole.size() / 4) << "cut short by the seek past the end";
  EXPECT_TRUE(std::equal(first.begin(), first.end(), whole.begin()));
  const Bytes cut = r.Read("rec-44100-2-16.raw");
  ASSERT_LT(cut.size(), a.size()) << "the second file, cut short by p";
  EXPECT_TRUE(std::equal(cut.begin(), cut.end(), a.begin()));
  // Back in the first file: its start, then (after down) its start again.
  const Bytes again = r.Read("rec-11025-1-16.raw.0001");
  size_t k = 0;
  while (k + 1 < again.size() && again[k] == whole[k] && again[k + 1] == whole[k + 1]) k += 2;
  ASSERT_GT(k, 0u);
  ASSERT_LT(k, again.size()) << "the down arrow started the file over";
  const Bytes rest(again.begin() + static_cast<std::ptrdiff_t>(k), again.end());
  EXPECT_TRUE(std::equal(rest.begin(), rest.end(), whole.begin())) << "from its first sample";
  EXPECT_TRUE(r.Read("rec-44100-2-16.raw.0001") == a);
}

TEST(KxhostPlayKeys, PauseHoldsThePlaybackAndNextGoesOn) {
  Recorder r;
  const TerminalRun run = PlayOnTerminal(r, {kPlay + "long_mono.mp3", kPlay + "gapless_a.mp3"},
                                         {{600, " "}, {2600, " "}, {3000, "n"}});
  EXPECT_EQ(run.exitCode, 0) << run.drawn;
  EXPECT_NE(run.drawn.find("|| Sweep Band"), std::string::npos) << "the status line shows the pause";
  EXPECT_GT(run.seconds, 2.5) << "the pause held the playback for two seconds";
  // Less than the first file (next cut it short), all of the second.
  const Bytes first = r.Read("rec-11025-1-16.raw");
  const Bytes whole = Decode(kPlay + "long_mono.mp3");
  ASSERT_GT(first.size(), 0u);
  ASSERT_LT(first.size(), whole.size() / 3);
  EXPECT_TRUE(std::equal(first.begin(), first.end(), whole.begin())) << "paused and resumed without a gap";
  EXPECT_TRUE(r.Read("rec-44100-2-16.raw") == Decode(kPlay + "gapless_a.mp3"));
  EXPECT_TRUE(run.restored);
}

TEST(KxhostPlayKeys, CtrlCStopsAtOnceAndLeavesTheTerminalAsItWas) {
  Recorder r;
  const TerminalRun run = PlayOnTerminal(r, {kPlay + "long_mono.mp3"}, {{800, "\x03"}});
  EXPECT_EQ(run.exitCode, 128 + SIGINT) << run.drawn;
  EXPECT_LT(run.seconds, 10);
  EXPECT_TRUE(run.restored);
}

}  // namespace
