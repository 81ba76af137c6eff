// What kxhost reads, as a user meets it: standard input ("-", and /dev/stdin on
// POSIX) gives the same answers as the file itself (tags at the end included: the
// module can seek in the copy), and its copy is removed at the end; a pipe past
// --pipe-limit is a clear error; a name outside ASCII is a name like any other; and
// info -r skips what the module does not take, as decode does, -v listing it. (FIFOs
// and names that are not UTF-8: kxhost_inputs_posix_test.cpp.)
#include <gtest/gtest.h>

#include <map>
#include <string>
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

// The names of standard input: "-" everywhere, and the device's own name on POSIX.
#ifdef _WIN32
const char* const kStandardInputNames[] = {"-"};
// Windows programs take their temporary folder from TMP (then TEMP).
const char* const kTemporaryFolderVariable = "TMP";
#else
const char* const kStandardInputNames[] = {"-", "/dev/stdin"};
const char* const kTemporaryFolderVariable = "TMPDIR";
#endif

TEST(KxhostInputs, StandardInputGivesWhatTheFileGives) {
  // An APE tag at the end: found only if the module can seek in what was piped.
  // Junk before the first frame: standard input is taken as an .mp3 file, whose
  // first frame the module searches for.
  for (const char* name : {"apetag.mp3", "id3v2_ape.mp3", "m1_44100_joint_vbr_long.mp3", "junk_before.mp3"}) {
    SCOPED_TRACE(name);
    const std::string file = kMp3 + name;
    const auto direct = RunProcess(kHost, {"--plugin", kModule, "info", "--json", file});
    ASSERT_EQ(direct.exitCode, 0) << direct.err;
    for (const char* stdinName : kStandardInputNames) {
      SCOPED_TRACE(stdinName);
      const auto piped = RunProcess(kHost, {"--plugin", kModule, "info", "--json", stdinName}, {}, FileText(file));
      ASSERT_EQ(piped.exitCode, 0) << piped.err;
      EXPECT_EQ(json::parse(piped.out)[0]["file"], stdinName);
      EXPECT_EQ(kxtest::InfoWithoutName(piped), kxtest::InfoWithoutName(direct));
    }
    const auto raw = RunProcess(kHost, {"--plugin", kModule, "decode", file, "-o", "-", "--format", "raw"});
    const auto rawPiped =
        RunProcess(kHost, {"--plugin", kModule, "decode", "-", "-o", "-", "--format", "raw"}, {}, FileText(file));
    EXPECT_EQ(rawPiped.exitCode, 0) << rawPiped.err;
    EXPECT_TRUE(rawPiped.out == raw.out);
    EXPECT_FALSE(raw.out.empty());
  }
  const auto tags = RunProcess(kHost, {"--plugin", kModule, "info", "-"}, {}, FileText(kMp3 + "apetag.mp3"));
  EXPECT_NE(tags.out.find("file: -\n"), std::string::npos) << tags.out;
  EXPECT_NE(tags.out.find("container: MP3 with APE tag\n"), std::string::npos) << tags.out;
  // Nothing at all on standard input: an error about that input, not a hang.
  const auto empty = RunProcess(kHost, {"--plugin", kModule, "info", "-"}, {}, std::string());
  EXPECT_EQ(empty.exitCode, 1);
  EXPECT_EQ(empty.err.rfind("kxhost: -: ", 0), 0u) << empty.err;
}

TEST(KxhostInputs, CopiesOfStandardInputAreRemovedAtTheEnd) {
  kxtest::ScratchDir dir;
  kxtest::MakeDir(dir / "tmp");
  const std::map<std::string, std::string> env = {{kTemporaryFolderVariable, dir / "tmp"}};
  const auto piped = RunProcess(kHost, {"--plugin", kModule, "info", "-"}, env, FileText(kMp3 + "id3v1.mp3"));
  EXPECT_EQ(piped.exitCode, 0) << piped.err;
  const auto decoded = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", "-", "-o", dir / "x.wav"}, env,
                                  FileText(kMp3 + "id3v1.mp3"));
  EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
  const auto over = RunProcess(kHost, {"--plugin", kModule, "--pipe-limit", "1K", "info", "-"}, env,
                               FileText(kMp3 + "id3v1.mp3"));
  EXPECT_EQ(over.exitCode, 1);
  EXPECT_TRUE(kxtest::ListNames(dir / "tmp").empty());
}

TEST(KxhostInputs, APipePastTheBoundIsAClearError) {
  const std::string bytes = FileText(kMp3 + "m1_44100_joint_vbr_long.mp3");  // 71370 bytes
  const auto over = RunProcess(kHost, {"--plugin", kModule, "--pipe-limit", "64K", "info", "-"}, {}, bytes);
  EXPECT_EQ(over.exitCode, 1);
  EXPECT_EQ(over.err,
            "kxhost: -: more than 65536 bytes from a pipe; save it to a file, or raise the bound with --pipe-limit "
            "(ZS_E_FAIL, 0x2101)\n");
  EXPECT_TRUE(over.out.empty());
  const auto within = RunProcess(kHost, {"--plugin", kModule, "--pipe-limit", "1M", "info", "-"}, {}, bytes);
  EXPECT_EQ(within.exitCode, 0) << within.err;
  const auto bad = RunProcess(kHost, {"--plugin", kModule, "--pipe-limit", "lots", "info", "-"}, {}, bytes);
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.err, "kxhost: bad --pipe-limit lots: give bytes, or a number with K, M or G (512M, 2G)\n");
}

TEST(KxhostInputs, NamesOutsideAsciiAreNamesLikeAnyOther) {
  kxtest::ScratchDir dir;
  const std::string cafe = dir / "caf\u00e9 \u3042.mp3";  // UTF-8, as kxhost's arguments are everywhere
  ASSERT_TRUE(kxtest::WriteFileBytes(cafe, kxtest::ReadFileBytes(kMp3 + "id3v1.mp3")));
  const auto info = RunProcess(kHost, {"--plugin", kModule, "info", cafe});
  EXPECT_EQ(info.exitCode, 0) << info.err;
  EXPECT_EQ(info.out.rfind("file: " + cafe + "\n", 0), 0u) << info.out;
  const auto j = RunProcess(kHost, {"--plugin", kModule, "info", "--json", cafe});
  ASSERT_EQ(j.exitCode, 0) << j.err;
  EXPECT_EQ(json::parse(j.out)[0]["file"], cafe);
  const std::string out = dir / "\u00e9t\u00e9.wav";
  const auto decode = RunProcess(kHost, {"--plugin", kModule, "decode", cafe, "-o", out});
  EXPECT_EQ(decode.exitCode, 0) << decode.err;
  EXPECT_EQ(decode.err.rfind(out + ": ", 0), 0u) << decode.err;
  EXPECT_GT(kxtest::FileSize(out), 44u);
  // Found in a folder too, and its output keeps the name.
  const auto batch = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", dir.Path(), "--out-dir", dir / "wav"});
  EXPECT_EQ(batch.exitCode, 0) << batch.err;
  EXPECT_EQ(kxtest::ListNames(dir / "wav"), std::vector<std::string>{"caf\u00e9 \u3042.wav"});
}

TEST(KxhostInputs, InfoOnAFolderSkipsWhatTheModuleDoesNotTake) {
  kxtest::ScratchDir dir;
  kxtest::WriteFileBytes(dir / "README", std::vector<uint8_t>(200, 'r'));
  kxtest::WriteFileBytes(dir / "cover.jpg", std::vector<uint8_t>(4000, 0xFF));
  kxtest::WriteFileBytes(dir / "song.mp3", kxtest::ReadFileBytes(kMp3 + "id3v1.mp3"));
  const auto r = RunProcess(kHost, {"--plugin", kModule, "info", "--json", dir.Path()});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const json doc = json::parse(r.out);
  ASSERT_EQ(doc.size(), 1u);
  EXPECT_EQ(doc[0]["file"], dir / "song.mp3");
  EXPECT_EQ(r.err, "kxhost: 2 files skipped (not MPEG audio); -v lists them\n");
  const auto verbose = RunProcess(kHost, {"--plugin", kModule, "info", "-v", dir.Path()});
  EXPECT_EQ(verbose.exitCode, 0);
  EXPECT_EQ(verbose.err, "kxhost: skipped " + dir / "README" + " (not MPEG audio)\nkxhost: skipped " +
                             dir / "cover.jpg" + " (not MPEG audio)\nkxhost: 2 files skipped (not MPEG audio)\n");
  // A file named on the command line is always tried, and fails.
  const auto named = RunProcess(kHost, {"--plugin", kModule, "info", dir / "README"});
  EXPECT_EQ(named.exitCode, 1);
  // decode -v lists the same files.
  const auto decode = RunProcess(kHost, {"--plugin", kModule, "decode", "-v", dir.Path(), "--out-dir", dir / "out"});
  EXPECT_EQ(decode.exitCode, 0) << decode.err;
  EXPECT_EQ(decode.err, "kxhost: skipped " + dir / "README" + " (not MPEG audio)\nkxhost: skipped " + dir / "cover.jpg" +
                            " (not MPEG audio)\ndecoded 1 file to " + dir / "out" + ", 2 skipped (not MPEG audio)\n");
}

}  // namespace
