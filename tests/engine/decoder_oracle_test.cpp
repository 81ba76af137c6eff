// The lame-encoded fixtures decoded through the engine and compared with another
// decoder's output (made once as test data, see tests/data/engine/README.md; when
// mpg123 is installed, every fixture is also compared with it at run time). Above
// all this proves the MPEG-2.5 band layouts, which no conformance stream covers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "support/engine/engine_harness.h"

namespace kxtest {
namespace {

std::string Fixture(const std::string& name) { return std::string(KX_TEST_DATA_DIR) + "/mp3/" + name + ".mp3"; }

// Samples of one frame when the first frame carries a Xing/Info header (the other
// decoder skips that frame), else 0.
size_t HeaderFrameSamples(const std::vector<uint8_t>& bits, uint32_t channels, uint32_t rate) {
  const int64_t first = FindFirstFrame(bits);
  if (first < 0) return 0;
  const size_t end = std::min(bits.size(), static_cast<size_t>(first) + 64);
  for (size_t i = static_cast<size_t>(first); i + 4 <= end; ++i) {
    if (std::memcmp(&bits[i], "Xing", 4) == 0 || std::memcmp(&bits[i], "Info", 4) == 0)
      return channels * (rate >= 32000 ? 1152 : 576);
  }
  return 0;
}

struct Diff {
  size_t n = 0;
  int maxDiff = 0;
  double psnr = INFINITY;
};

Diff Compare(const std::vector<int16_t>& ours, size_t offset, const std::vector<int16_t>& ref) {
  Diff d;
  d.n = std::min(ours.size() > offset ? ours.size() - offset : 0, ref.size());
  double sq = 0;
  for (size_t i = 0; i < d.n; ++i) {
    const int e = std::abs(int{ours[offset + i]} - int{ref[i]});
    d.maxDiff = std::max(d.maxDiff, e);
    sq += double(e) * e;
  }
  if (sq > 0) d.psnr = 10 * std::log10(32768.0 * 32768.0 / (sq / double(d.n)));
  return d;
}

void CheckAgainst(const std::string& name, const std::vector<int16_t>& ref) {
  const auto bits = ReadFile(Fixture(name));
  ASSERT_FALSE(bits.empty()) << name;
  HarnessOptions o;
  o.noDeemphasis = true;  // the other decoder does not de-emphasise
  auto h = EngineHarness::Open(bits, o);
  ASSERT_NE(h, nullptr) << name;
  auto run = h->DecodeAll();
  EXPECT_TRUE(run.ended);
  const auto ours = AsInt16(run.pcm);
  const size_t offset = HeaderFrameSamples(bits, h->Channels(), h->SampleRate());
  const Diff d = Compare(ours, offset, ref);
  std::printf("[ oracle  ] %-26s %6u Hz  samples %7zu  max diff %d  PSNR %.1f dB\n", name.c_str(), h->SampleRate(), d.n,
              d.maxDiff, d.psnr);
  EXPECT_GT(d.n, ref.size() * 9 / 10) << name;
  EXPECT_LE(d.maxDiff, 1) << name;
  EXPECT_GT(d.psnr, 100.0) << name;
}

class Mpeg25Layout : public ::testing::TestWithParam<const char*> {};

TEST_P(Mpeg25Layout, MatchesTheStoredReference) {
  const std::string name = GetParam();
  const auto ref = AsInt16(ReadFile(std::string(KX_TEST_DATA_DIR) + "/engine/" + name + ".mpg123.pcm"));
  ASSERT_FALSE(ref.empty()) << name;
  CheckAgainst(name, ref);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Mpeg25Layout,
                         ::testing::Values("m25_11025_stereo_cbr", "m25_12000_mono_vbr", "m25_8000_joint_abr"));

// Every fixture against mpg123 itself when it is installed.
TEST(DecoderOracle, EveryRateAndModeMatchesMpg123) {
  if (std::system("mpg123 --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "mpg123 not installed: no run-time oracle";
  const char* names[] = {"m1_44100_joint_cbr", "m1_48000_stereo_vbr", "m1_32000_mono_abr", "m2_22050_dual_cbr",
                         "m2_24000_joint_vbr", "m2_16000_mono_cbr",  "m25_11025_stereo_cbr", "m25_12000_mono_vbr",
                         "m25_8000_joint_abr", "m1_44100_crc",       "m1_44100_noheader_vbr"};
  for (const char* name : names) {
    const std::string out = std::string(KX_BINARY_DIR) + "/oracle_" + name + ".pcm";
    const std::string cmd = "mpg123 -q -s --no-gapless '" + Fixture(name) + "' > '" + out + "' 2>/dev/null";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    CheckAgainst(name, AsInt16(ReadFile(out)));
    std::remove(out.c_str());
  }
}

}  // namespace
}  // namespace kxtest
