// kxhost decode of whole streams, as a user runs it: every ISO conformance stream
// to raw samples on standard output, 16-bit and float, at the reference decoder's
// full length (the two frames of l3-sin1k0db whose main data points before the
// stream come out as silence in front) and within 1 LSB of it; and the streams
// whose headers change mid-stream at mpg123's and ffmpeg's length.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "run_process.h"
#include "support/conformance_streams.h"

namespace {

using kxtest::RunProcess;

const std::string kHost = KX_KXHOST_PATH;
const std::string kModule = KX_MODULE_PATH;
const std::string kShared = std::string(KX_SHARED_DIR) + "/conformance/";
const std::string kMixed = std::string(KX_TEST_DATA_DIR) + "/mixed/";

std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<int16_t> Int16(const std::string& bytes) {
  std::vector<int16_t> s(bytes.size() / 2);
  std::memcpy(s.data(), bytes.data(), s.size() * 2);
  return s;
}

std::vector<double> Doubles(const std::string& bytes) {
  std::vector<double> s(bytes.size() / 8);
  std::memcpy(s.data(), bytes.data(), s.size() * 8);
  return s;
}

TEST(KxhostWholeStream, EveryConformanceStreamAtFullLengthWithinOneLsb) {
  if (ReadBytes(kShared + "l3-si.bit").empty()) {
    GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  }
  for (const kxtest::ConformanceStream& st : kxtest::ConformantStreams()) {
    SCOPED_TRACE(st.name);
    const std::string bit = kShared + st.name + ".bit";
    const auto refBytes = ReadBytes(kShared + st.name + ".pcm");
    std::vector<int16_t> ref(refBytes.size() / 2);
    std::memcpy(ref.data(), refBytes.data(), ref.size() * 2);
    ASSERT_FALSE(ref.empty());
    const size_t front = size_t{st.silentFramesInFront} * st.samplesPerFrame * st.channels;
    // Every frame plays (the reference sometimes stops a frame early).
    const size_t whole = kxtest::CountFrames(ReadBytes(bit)) * st.samplesPerFrame * st.channels;
    ASSERT_GE(whole, ref.size() + front);
    // Zero bytes before the first frame are passed over in a file named .mp3.
    const kxtest::RenamedCopy copy(bit, std::string(st.name) + ".mp3");
    const std::string input = st.silentFramesInFront != 0 ? copy.Path() : bit;
    // The reference decoder does not apply de-emphasis.
    const auto r16 = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", input, "-o", "-", "--format", "raw",
                                        "--no-deemphasis"});
    ASSERT_EQ(r16.exitCode, 0) << r16.err;
    const auto ours = Int16(r16.out);
    ASSERT_EQ(ours.size(), whole) << "the reference has " << ref.size();
    int maxDiff = 0;
    for (size_t i = 0; i < front; ++i) ASSERT_EQ(ours[i], 0) << "sample " << i;
    for (size_t i = 0; i < ref.size(); ++i) maxDiff = std::max(maxDiff, std::abs(ours[front + i] - ref[i]));
    EXPECT_LE(maxDiff, 1);

    const auto r64 = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", input, "-o", "-", "--format", "raw",
                                        "--float", "--no-deemphasis"});
    ASSERT_EQ(r64.exitCode, 0) << r64.err;
    const auto floats = Doubles(r64.out);
    ASSERT_EQ(floats.size(), ours.size());
    for (size_t i = 0; i < ref.size(); ++i) {
      const double v = std::nearbyint(floats[front + i] * 32768.0);
      const double clamped = v > 32767 ? 32767 : v < -32768 ? -32768 : v;
      ASSERT_LE(std::fabs(clamped - ref[i]), 1.0) << "sample " << i;
    }
  }
}

TEST(KxhostWholeStream, HeaderChangesMidStreamAtThePeersLength) {
  std::ifstream manifest(kMixed + "manifest.txt");
  std::string line;
  size_t checked = 0;
  while (std::getline(manifest, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name;
    uint64_t rate = 0, channels = 0, frames = 0, mpg123 = 0, ffmpeg = 0;
    fields >> name >> rate >> channels >> frames >> mpg123 >> ffmpeg;
    SCOPED_TRACE(name);
    ASSERT_EQ(mpg123, ffmpeg);
    const auto r = RunProcess(kHost, {"--plugin", kModule, "-q", "decode", kMixed + name, "-o", "-", "--format", "raw"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.size() / 2 / channels, mpg123);
    ++checked;
  }
  EXPECT_GE(checked, 6u);
}

}  // namespace
