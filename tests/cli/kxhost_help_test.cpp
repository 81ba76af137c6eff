// What a new user meets first: --help of kxhost and of every command, with
// examples; usage errors as one clear line and status 2; the dialog command's
// error for a file it cannot open; hidden files left out of a folder.
#include <gtest/gtest.h>

#include <string>

#include <nlohmann/json.hpp>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";

TEST(KxhostHelp, EveryCommandHasHelpWithExamples) {
  const auto top = RunProcess(kHost, {"--help"});
  EXPECT_EQ(top.exitCode, 0);
  for (const char* command : {"plugins", "probe", "info", "decode", "play", "dialog", "about"}) {
    EXPECT_NE(top.out.find(std::string("  ") + command), std::string::npos) << command;
  }
  EXPECT_NE(top.out.find("Examples:"), std::string::npos);
  EXPECT_NE(top.out.find("--codepage"), std::string::npos);
  EXPECT_NE(top.out.find("--quiet"), std::string::npos);
  for (const char* command : {"plugins", "probe", "info", "decode", "play", "dialog", "about"}) {
    SCOPED_TRACE(command);
    const auto r = RunProcess(kHost, {command, "--help"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("Examples:\n  kxhost "), std::string::npos) << r.out;
    EXPECT_TRUE(r.err.empty()) << r.err;
  }
  const auto info = RunProcess(kHost, {"info", "--help"});
  EXPECT_NE(info.out.find("delay (= start skip)"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("removed_samples"), std::string::npos);
  const auto decode = RunProcess(kHost, {"decode", "--help"});
  for (const char* option : {"--start", "--duration", "--float", "--format", "--out-dir", "--jobs", "--recursive",
                             "--no-deemphasis"}) {
    EXPECT_NE(decode.out.find(option), std::string::npos) << option;
  }
}

TEST(KxhostHelp, UsageErrorsAreOneLineAndStatusTwo) {
  const auto unknown = RunProcess(kHost, {"transcode", "x.mp3"});
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_FALSE(unknown.err.empty());
  const auto noFile = RunProcess(kHost, {"--plugin", kModule, "info"});
  EXPECT_EQ(noFile.exitCode, 2);
  EXPECT_NE(noFile.err.find("FILE"), std::string::npos) << noFile.err;
  const auto badOption = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "--bogus"});
  EXPECT_EQ(badOption.exitCode, 2);
  const auto badFormat = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "-o", "-",
                                            "--format", "flac"});
  EXPECT_EQ(badFormat.exitCode, 2);
  EXPECT_TRUE(badFormat.out.empty());
}

TEST(KxhostDialogErrors, AFileItCannotOpen) {
  const auto missing = RunProcess(kHost, {"--plugin", kModule, "dialog", "/nonexistent/x.mp3"});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "kxhost: /nonexistent/x.mp3: file not found (ZS_E_NOT_FOUND, 0x2102)\n");
  EXPECT_TRUE(missing.out.empty());
  kxtest::ScratchDir dir;
  kxtest::WriteFileBytes(dir / "text.mp3", std::vector<uint8_t>(3000, 't'));
  const auto junk = RunProcess(kHost, {"--plugin", kModule, "dialog", dir / "text.mp3"});
  EXPECT_EQ(junk.exitCode, 1);
  EXPECT_EQ(junk.err.rfind("kxhost: " + dir / "text.mp3" + ": ", 0), 0u) << junk.err;
  EXPECT_NE(junk.err.find("(AF_E_"), std::string::npos) << junk.err;
}

TEST(KxhostFolders, HiddenFilesAndSubfoldersWithoutRecursionAreLeftOut) {
  kxtest::ScratchDir dir;
  const auto bytes = kxtest::ReadFileBytes(kMp3 + "id3v1.mp3");
  kxtest::WriteFileBytes(dir / "b.mp3", bytes);
  kxtest::WriteFileBytes(dir / "a.mp3", bytes);
  kxtest::WriteFileBytes(dir / ".hidden.mp3", bytes);
  kxtest::MakeDir(dir / "sub");
  kxtest::WriteFileBytes(dir / "sub/c.mp3", bytes);
  const auto r = RunProcess(kHost, {"--plugin", kModule, "info", "--json", dir.Path()});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto doc = nlohmann::json::parse(r.out);
  ASSERT_EQ(doc.size(), 2u);
  EXPECT_EQ(doc[0]["file"], dir / "a.mp3");
  EXPECT_EQ(doc[1]["file"], dir / "b.mp3");
  const auto deep = RunProcess(kHost, {"--plugin", kModule, "info", "--json", "-r", dir.Path()});
  const auto all = nlohmann::json::parse(deep.out);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[2]["file"], dir / "sub/c.mp3");
  // Text output: one block per file, separated by an empty line.
  const auto text = RunProcess(kHost, {"--plugin", kModule, "info", dir.Path()});
  EXPECT_NE(text.out.find("replaygain: none\n\nfile: " + dir / "b.mp3" + "\n"), std::string::npos) << text.out;
}

TEST(KxhostHelp, VersionUnknownCommandsAndOnePrefixOnEveryError) {
  const auto version = RunProcess(kHost, {"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out, "kxhost 0.1.0\n");
  const std::string next = "Run \"kxhost --help\" (or \"kxhost COMMAND --help\") for more.\n";
  const auto unknown = RunProcess(kHost, {"--plugin", kModule, "transcode", "x.mp3"});
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_EQ(unknown.err, "kxhost: unknown command \"transcode\" (commands: plugins, probe, info, decode, play, dialog, about)\n" + next);
  const auto none = RunProcess(kHost, {"--plugin", kModule});
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_EQ(none.err, "kxhost: name a command: plugins, probe, info, decode, play, dialog, about\n" + next);
  const auto noFile = RunProcess(kHost, {"--plugin", kModule, "info"});
  EXPECT_EQ(noFile.err, "kxhost: FILE is required\n" + next);
  const auto bogus = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "id3v1.mp3", "--bogus"});
  EXPECT_EQ(bogus.err, "kxhost: The following argument was not expected: --bogus\n" + next);
}

TEST(KxhostHelp, SingularAndPluralAreRight) {
  kxtest::ScratchDir dir;
  const auto mono = RunProcess(kHost, {"--plugin", kModule, "decode", kMp3 + "m2_16000_mono_cbr.mp3", "-o", dir / "m.wav"});
  EXPECT_EQ(mono.exitCode, 0);
  EXPECT_NE(mono.err.find(", 16000 Hz, 1 channel, 16-bit, "), std::string::npos) << mono.err;
  kxtest::MakeDir(dir / "in");
  kxtest::WriteFileBytes(dir / "in/a.mp3", kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  kxtest::WriteFileBytes(dir / "in/notes.txt", std::vector<uint8_t>(100, 'n'));
  const auto one = RunProcess(kHost, {"--plugin", kModule, "decode", dir / "in", "--out-dir", dir / "out"});
  EXPECT_EQ(one.err, "decoded 1 file to " + dir / "out" + ", 1 skipped (not MPEG audio)\n");
  const auto info = RunProcess(kHost, {"--plugin", kModule, "info", dir / "in"});
  EXPECT_EQ(info.err, "kxhost: 1 file skipped (not MPEG audio); -v lists them\n");
}

}  // namespace
