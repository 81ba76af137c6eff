// kxhost.exe play: waveOut devices are named by number or by the start of their
// name; one that does not exist ends the run with one line and status 2, as on
// Linux. (What play sends to a device is compared with Linux's play by
// tests/windows/kxhost_exe_play_test.sh, which records through Wine's ALSA driver.)
#include <gtest/gtest.h>

#include <string>

#include "run_process.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kSample = std::string(KX_TEST_DATA_DIR) + "/sample.mp3";

TEST(KxhostWindowsPlay, ADeviceThatDoesNotExistIsOneLineAndStatusTwo) {
  for (const std::string device : {"no_such_device", "4096"}) {
    const auto r = RunProcess(kHost, {"--plugin", kModule, "play", "--device", device, "--float", kSample});
    EXPECT_EQ(r.exitCode, 2) << device;
    EXPECT_EQ(r.err, "kxhost: cannot open the audio device " + device + ": no such device\n");
    EXPECT_TRUE(r.out.empty());
  }
}

}  // namespace
