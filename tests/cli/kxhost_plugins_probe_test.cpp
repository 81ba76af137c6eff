// kxhost as a user runs it: "plugins" prints the module's records, "probe" says
// whether the module takes a file (exit 0) or not (exit 1), and every error is one
// clear line on standard error with a non-zero exit.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kData = std::string(KX_TEST_DATA_DIR) + "/mp3/";

int LineCount(const std::string& text) {
  int n = 0;
  for (char c : text) n += c == '\n';
  return n;
}

// A scratch file that is removed at the end of the test.
class TempFile {
 public:
  explicit TempFile(const std::string& contents) : path_(dir_ / "file") {
    kxtest::WriteFileBytes(path_, std::vector<uint8_t>(contents.begin(), contents.end()));
  }
  const std::string& Path() const { return path_; }

 private:
  kxtest::ScratchDir dir_;
  std::string path_;
};

// A real shared library of the system that does not export ZSSGetPluginInfo.
#ifdef _WIN32
const std::string kSystemLibrary = "C:/windows/system32/kernel32.dll";
#else
const std::string kSystemLibrary = "/lib/x86_64-linux-gnu/libm.so.6";
#endif

TEST(KxhostPlugins, PrintsEveryStringAndFourCC) {
  const auto r = RunProcess(kHost, {"plugins", "--plugin", kModule});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("library: Kx MPEG Audio Layer-III File Library\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("description: MPEG Audio Layer-III File Reader/Decoder\n"), std::string::npos);
  EXPECT_NE(r.out.find("maker: KXMP3Lib developers\n"), std::string::npos);
  EXPECT_NE(r.out.find("web: https://kxmp3lib.invalid/\n"), std::string::npos);
  EXPECT_NE(r.out.find("interface version: 0x3000\n"), std::string::npos);
  EXPECT_NE(r.out.find("formats: 1\n"), std::string::npos);
  EXPECT_NE(r.out.find("  ZMP3  MPEG Audio Layer-III File\n"), std::string::npos);
  EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST(KxhostPlugins, FindsTheModuleWithoutAnOption) {
  // In the build tree the module sits in ../plugins from kxhost's folder.
  const auto r = RunProcess(kHost, {"plugins"}, {{"KX_PLUGIN_PATH", ""}});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("ZMP3"), std::string::npos);
  EXPECT_NE(r.out.find("KXMP3Lib.zss"), std::string::npos);
}

TEST(KxhostPlugins, TakesTheModuleFromTheEnvironment) {
  const auto r = RunProcess(kHost, {"plugins"}, {{"KX_PLUGIN_PATH", kModule}});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("module: " + kModule + "\n"), std::string::npos) << r.out;
  // The option wins over the environment.
  const auto bad = RunProcess(kHost, {"plugins", "--plugin", "/nonexistent/x.zss"}, {{"KX_PLUGIN_PATH", kModule}});
  EXPECT_NE(bad.exitCode, 0);
}

TEST(KxhostErrors, MissingModule) {
  const auto r = RunProcess(kHost, {"plugins", "--plugin", "/nonexistent/KXMP3Lib.zss"});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_NE(r.exitCode, 1);
  EXPECT_EQ(LineCount(r.err), 1) << r.err;
  EXPECT_NE(r.err.find("module not found: /nonexistent/KXMP3Lib.zss"), std::string::npos) << r.err;
  EXPECT_TRUE(r.out.empty());
  const auto env = RunProcess(kHost, {"plugins"}, {{"KX_PLUGIN_PATH", "/nonexistent/env.zss"}});
  EXPECT_NE(env.exitCode, 0);
  EXPECT_NE(env.err.find("/nonexistent/env.zss"), std::string::npos) << env.err;
}

TEST(KxhostErrors, NotAModule) {
  TempFile junk("this is not a shared object\n");
  const auto r = RunProcess(kHost, {"plugins", "--plugin", junk.Path()});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_EQ(LineCount(r.err), 1) << r.err;
  EXPECT_NE(r.err.find("not a loadable module: " + junk.Path()), std::string::npos) << r.err;
}

TEST(KxhostErrors, MissingExport) {
  const auto r = RunProcess(kHost, {"plugins", "--plugin", kSystemLibrary});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_EQ(LineCount(r.err), 1) << r.err;
  EXPECT_NE(r.err.find("missing export ZSSGetPluginInfo"), std::string::npos) << r.err;
}

TEST(KxhostErrors, NoCommandIsAUsageError) {
  const auto r = RunProcess(kHost, {});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_FALSE(r.err.empty());
}

TEST(KxhostProbe, TakesMpegAudioFiles) {
  for (const char* name : {"m1_44100_joint_cbr.mp3", "id3v2.mp3", "riff_wave_55.wav", "apetag.mp3"}) {
    const auto r = RunProcess(kHost, {"probe", kData + name, "--plugin", kModule});
    EXPECT_EQ(r.exitCode, 0) << name << ": " << r.out << r.err;
    EXPECT_NE(r.out.find("ZMP3"), std::string::npos) << r.out;
  }
}

TEST(KxhostProbe, RefusesOtherFiles) {
  TempFile text(std::string(5000, 'x'));
  const auto r = RunProcess(kHost, {"probe", text.Path(), "--plugin", kModule});
  EXPECT_EQ(r.exitCode, 1) << r.out << r.err;
  EXPECT_NE(r.out.find("not taken"), std::string::npos);
  TempFile empty("");
  EXPECT_EQ(RunProcess(kHost, {"probe", empty.Path(), "--plugin", kModule}).exitCode, 1);
}

TEST(KxhostProbe, ADirectoryIsAnError) {
  kxtest::ScratchDir dir;
  const auto r = RunProcess(kHost, {"probe", dir.Path(), "--plugin", kModule});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_NE(r.exitCode, 1);
  EXPECT_EQ(LineCount(r.err), 1) << r.err;
  EXPECT_EQ(r.err, "kxhost: " + dir.Path() + ": a directory, not a file (ZS_E_NOT_FOUND, 0x2102)\n");
}

TEST(KxhostProbe, MissingFileIsAnError) {
  const auto r = RunProcess(kHost, {"probe", "/nonexistent/song.mp3", "--plugin", kModule});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_NE(r.exitCode, 1);
  EXPECT_EQ(LineCount(r.err), 1) << r.err;
  EXPECT_EQ(r.err, "kxhost: /nonexistent/song.mp3: file not found (ZS_E_NOT_FOUND, 0x2102)\n");
}

}  // namespace
