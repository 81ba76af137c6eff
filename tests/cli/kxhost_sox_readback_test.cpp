// Every audio fixture decoded by kxhost to a WAV file that sox, an independent
// reader, reads back with the fixture's rate, channel count and length: exactly the
// encoder's input length for files whose encoder tag gives delay and padding, and no
// less than it for files without one (nothing is lost).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "run_process.h"

namespace {

using kxtest::RunProcess;

struct Fixture {
  std::string name;
  long rate = 0;
  long channels = 0;
  long samples = 0;
};

std::vector<Fixture> Manifest() {
  std::vector<Fixture> list;
  std::ifstream in(std::string(KX_TEST_DATA_DIR) + "/mp3/manifest.txt");
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    Fixture f;
    if (fields >> f.name >> f.rate >> f.channels >> f.samples) list.push_back(f);
  }
  return list;
}

long SoxInfo(const std::string& flag, const std::string& file) {
  const auto r = RunProcess("/usr/bin/sox", {"--i", flag, file});
  if (r.exitCode != 0) return -1;
  return std::atol(r.out.c_str());
}

TEST(KxhostSoxReadback, EveryFixtureGivesAWavSoxReadsWithTheRightShape) {
  if (access("/usr/bin/sox", X_OK) != 0) GTEST_SKIP() << "sox is not installed; it is the independent WAV reader here";
  const auto fixtures = Manifest();
  ASSERT_GE(fixtures.size(), 20u) << "fixture manifest missing or short";
  char dirTemplate[] = "/tmp/kxhost_sox_XXXXXX";
  ASSERT_NE(mkdtemp(dirTemplate), nullptr);
  const std::string dir = dirTemplate;
  for (const auto& f : fixtures) {
    SCOPED_TRACE(f.name);
    const std::string in = std::string(KX_TEST_DATA_DIR) + "/mp3/" + f.name;
    const std::string out = dir + "/out.wav";
    const auto r = RunProcess(KX_KXHOST_PATH, {"decode", in, "-o", out, "--plugin", KX_MODULE_PATH});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(SoxInfo("-r", out), f.rate);
    EXPECT_EQ(SoxInfo("-c", out), f.channels);
    const long samples = SoxInfo("-s", out);
    if (f.name.find("noheader") != std::string::npos) {
      // No encoder tag: the decoder's own delay stays in, so the output is longer.
      EXPECT_GE(samples, f.samples);
      EXPECT_LE(samples, f.samples + 2 * 1152 + 529 + 1152);
    } else {
      EXPECT_EQ(samples, f.samples);
    }
    std::remove(out.c_str());
  }
  rmdir(dir.c_str());
}

}  // namespace
