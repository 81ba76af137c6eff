// Where kxhost decode writes, as a user meets it: -n keeps an existing file; the
// output's extension chooses WAV or raw and contradictions are refused; a folder
// given to -o is refused before anything is decoded. (Device nodes, FIFOs, links and
// a full standard output: kxhost_outputs_posix_test.cpp.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli_test_support.h"
#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kMp3 = std::string(KX_TEST_DATA_DIR) + "/mp3/";
const std::string kInput = kMp3 + "m1_44100_joint_cbr.mp3";  // 44100 stereo samples

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
  EXPECT_EQ(kxtest::ListNames(dir.Path()), std::vector<std::string>{"song.wav"});  // no temporary file left
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
  const std::string raw = kxtest::DecodeToRaw(kInput);
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

}  // namespace
