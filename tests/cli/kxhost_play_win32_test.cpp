// kxhost.exe play: the Windows build has no sound output yet. The command takes
// Linux's command lines (files and play's options) and answers with one line and
// status 2, as for a device that cannot be opened.
#include <gtest/gtest.h>

#include <string>

#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kSample = std::string(KX_TEST_DATA_DIR) + "/sample.mp3";

TEST(KxhostWindowsPlay, SaysInOneLineThatThereIsNoSoundOutput) {
  const auto r = RunProcess(kHost, {"--plugin", kModule, "play", "--device", "hw:1,0", "--float", kSample});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "kxhost: play has no sound output on Windows in this build; use decode\n");
  EXPECT_TRUE(r.out.empty());
}

}  // namespace
