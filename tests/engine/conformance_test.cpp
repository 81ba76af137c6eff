// The ISO conformance streams decoded through the engine harness and compared with
// the reference decoder's 16-bit output over their common length: every sample
// within 1 LSB, and the PSNR printed. The float output, scaled by 32768 and rounded,
// must equal the 16-bit output wherever nothing saturates. The free-format stream
// must be refused or concealed, the mode-switching one must decode without a hang.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "support/engine/engine_harness.h"
#include "engine/frame_header.h"
#include "host/kx_result_codes.h"

namespace kxtest {
namespace {

struct Stream {
  const char* name;
  uint32_t channels;
};

const Stream kConformant[] = {
    {"l3-compl", 1},       {"l3-he_32khz", 1},         {"l3-he_44khz", 1},         {"l3-he_48khz", 1},
    {"l3-hecommon", 2},    {"l3-si", 1},               {"l3-si_block", 1},         {"l3-si_huff", 1},
    {"l3-sin1k0db", 2},    {"M2L3_bitrate_16_all", 1}, {"M2L3_bitrate_22_all", 1}, {"M2L3_bitrate_24_all", 1},
    {"M2L3_compl24", 1},   {"M2L3_noise", 2},
};

std::string Dir() {
  const std::string shared = SharedDir();
  return shared.empty() ? shared : shared + "/conformance/";
}

struct Comparison {
  size_t compared = 0;
  int maxDiff = 0;
  double psnr = 0;
  size_t firstBad = 0;  // index of the first sample more than 1 apart
  size_t badSamples = 0;
};

Comparison Compare(const std::vector<int16_t>& ours, size_t ourOffset, const std::vector<int16_t>& ref) {
  Comparison c;
  const size_t n = std::min(ours.size() - std::min(ours.size(), ourOffset), ref.size());
  c.compared = n;
  double sq = 0;
  c.firstBad = n;
  for (size_t i = 0; i < n; ++i) {
    const int d = std::abs(int{ours[ourOffset + i]} - int{ref[i]});
    if (d > c.maxDiff) c.maxDiff = d;
    if (d > 1) {
      if (c.firstBad == n) c.firstBad = i;
      ++c.badSamples;
    }
    sq += double(d) * d;
  }
  c.psnr = sq == 0 ? INFINITY : 10 * std::log10(32768.0 * 32768.0 / (sq / double(n)));
  return c;
}

class Conformance : public ::testing::TestWithParam<Stream> {};

// Emphasis code of every frame, in stream order (the header's two low bits).
std::vector<uint32_t> FrameEmphasis(const std::vector<uint8_t>& bits) {
  std::vector<uint32_t> codes;
  int64_t p = FindFirstFrame(bits);
  while (p >= 0 && static_cast<size_t>(p) + 4 <= bits.size()) {
    const uint32_t w = (uint32_t{bits[p]} << 24) | (uint32_t{bits[p + 1]} << 16) | (uint32_t{bits[p + 2]} << 8) | bits[p + 3];
    if (!kxmp3::IsLayer3Header(w)) break;
    codes.push_back(w & 3);
    kxmp3::FrameHeader h{};
    h.version = ((~w >> 20) & 1) + ((~w >> 19) & 1);
    h.bitrate_index = (w >> 12) & 15;
    h.rate_code = h.version * 3 + ((w >> 10) & 3);
    h.padding = (w >> 9) & 1;
    p += kxmp3::FrameLength(h);
  }
  return codes;
}

// The reference decoder never applies de-emphasis; this decoder does for frames
// whose header asks for it (codes 1 and 3), unless it is switched off at open.
// l3-hecommon carries emphasis 1 in frame 9 and 3 in frame 11, so there the
// comparison is made with de-emphasis off, and the default output is shown to
// differ from the reference in those frames only.
TEST_P(Conformance, SixteenBitOutputWithinOneLsbOfTheReference) {
  const std::string dir = Dir();
  if (dir.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  const Stream& st = GetParam();
  const auto bits = ReadFile(dir + st.name + ".bit");
  const auto ref = AsInt16(ReadFile(dir + st.name + ".pcm"));
  ASSERT_FALSE(bits.empty()) << st.name;
  ASSERT_FALSE(ref.empty()) << st.name;
  const auto emphasis = FrameEmphasis(bits);
  bool emphasised = false;
  for (uint32_t e : emphasis) emphasised |= e == 1 || e == 3;

  // l3-sin1k0db: its first two frames point before the stream and come out as
  // silence here; the reference leaves them out.
  const bool sine = std::string(st.name) == "l3-sin1k0db";
  const size_t offset = sine ? 2 * 1152 * 2 : 0;
  const size_t frameSamples = st.channels * (std::string(st.name).rfind("M2L3", 0) == 0 ? 576 : 1152);

  for (const bool deemphasis : {false, true}) {
    if (deemphasis && !emphasised) continue;
    HarnessOptions o;
    o.noDeemphasis = !deemphasis;
    auto h = EngineHarness::Open(bits, o);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(h->Channels(), st.channels);
    auto run = h->DecodeAll();
    EXPECT_TRUE(run.ended);
    if (sine) {
      ASSERT_EQ(run.statuses[0], int32_t{AF_E_UNDERFLOW});
      ASSERT_EQ(run.statuses[1], int32_t{AF_E_UNDERFLOW});
    }
    const auto ours = AsInt16(run.pcm);
    const Comparison c = Compare(ours, offset, ref);
    std::printf("[ conform ] %-22s %s samples %9zu  max diff %4d  PSNR %.2f dB  (ours %zu, ref %zu)\n", st.name,
                deemphasis ? "de-emphasis on " : "de-emphasis off", c.compared, c.maxDiff, c.psnr,
                ours.size() - offset, ref.size());
    EXPECT_GE(c.compared + 2 * frameSamples, ref.size()) << "decoded output much shorter than the reference";
    if (!deemphasis) {
      EXPECT_LE(c.maxDiff, 1) << st.name << ": " << c.badSamples << " samples differ by more than 1, first at "
                              << c.firstBad << " (frame " << (c.firstBad + offset) / frameSamples << ")";
      EXPECT_GT(c.psnr, 100.0) << st.name;
    } else {
      // Differences beyond 1 LSB only inside the frames that ask for de-emphasis.
      EXPECT_GT(c.maxDiff, 1) << "de-emphasis should change the emphasised frames";
      for (size_t i = 0; i < c.compared; ++i) {
        const size_t frame = (i + offset) / frameSamples;
        if (std::abs(int{ours[i + offset]} - int{ref[i]}) > 1) {
          ASSERT_LT(frame, emphasis.size());
          ASSERT_TRUE(emphasis[frame] == 1 || emphasis[frame] == 3) << "sample " << i << " frame " << frame;
        }
      }
    }
  }
}

TEST_P(Conformance, FloatOutputScaledIsTheSixteenBitOutput) {
  const std::string dir = Dir();
  if (dir.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  const Stream& st = GetParam();
  const auto bits = ReadFile(dir + st.name + ".bit");
  // De-emphasis off: its 16-bit variant filters the rounded samples and truncates,
  // a deliberate second quantisation that the float path does not have.
  HarnessOptions opt16;
  opt16.noDeemphasis = true;
  HarnessOptions opt64;
  opt64.noDeemphasis = true;
  opt64.bytesPerSample = 8;
  auto h16 = EngineHarness::Open(bits, opt16);
  auto h64 = EngineHarness::Open(bits, opt64);
  ASSERT_NE(h16, nullptr);
  ASSERT_NE(h64, nullptr);
  const auto pcm16 = AsInt16(h16->DecodeAll().pcm);
  const auto pcm64 = AsDouble(h64->DecodeAll().pcm);
  ASSERT_EQ(pcm16.size(), pcm64.size());
  size_t checked = 0;
  size_t saturated = 0;
  for (size_t i = 0; i < pcm16.size(); ++i) {
    const double scaled = pcm64[i] * 32768.0;
    if (scaled >= 32767.5 || scaled < -32768.5) {
      ++saturated;
      EXPECT_EQ(pcm16[i], scaled > 0 ? 32767 : -32768) << st.name << " sample " << i;
      continue;
    }
    ++checked;
    ASSERT_EQ(pcm16[i], static_cast<int16_t>(std::nearbyint(scaled))) << st.name << " sample " << i;
  }
  EXPECT_GT(checked, pcm16.size() / 2);
  if (saturated != 0) std::printf("[ conform ] %-22s %zu saturated samples\n", st.name, saturated);
}

INSTANTIATE_TEST_SUITE_P(Streams, Conformance, ::testing::ValuesIn(kConformant),
                         [](const ::testing::TestParamInfo<Stream>& info) {
                           std::string n = info.param.name;
                           for (char& ch : n)
                             if (ch == '-') ch = '_';
                           return n;
                         });

// Free format (bitrate index 0) is not supported: no frame header of the stream
// passes the frame-start tests; forced open, every frame is searched past (only a
// chance false sync in the data may be found) and the decode ends cleanly.
TEST(ConformanceFreeFormat, RefusedOrConcealedCleanly) {
  const std::string dir = Dir();
  if (dir.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  auto bits = ReadFile(dir + "l3-he_free.bit");
  ASSERT_GT(bits.size(), 4u);
  const uint32_t firstWord = (uint32_t{bits[0]} << 24) | (uint32_t{bits[1]} << 16) | (uint32_t{bits[2]} << 8) | bits[3];
  ASSERT_EQ(firstWord & 0xFFE00000u, 0xFFE00000u) << "the stream starts with a frame header";
  ASSERT_EQ((firstWord >> 12) & 15, 0u) << "bitrate index 0: free format";
  EXPECT_FALSE(kxmp3::IsLayer3Header(firstWord));
  // Force it open with a legal MPEG-1 header of the same rate as the reference.
  std::vector<uint8_t> forced = bits;
  forced.insert(forced.begin(), {0xFF, 0xFB, 0x90, 0x00});
  HarnessOptions o;
  o.audioStart = 0;
  auto h = EngineHarness::Open(forced, o);
  ASSERT_NE(h, nullptr);
  auto run = h->DecodeAll(10000);
  EXPECT_TRUE(run.ended);
  size_t searches = 0;
  for (int32_t s : run.statuses) {
    searches += s == int32_t{AF_E_BAD_FORMAT};
    EXPECT_TRUE(s == int32_t{AF_S_OK} || s == int32_t{AF_S_FRAME_ERROR} || s == int32_t{AF_E_UNDERFLOW} ||
                s == int32_t{AF_E_BAD_FORMAT} || s == int32_t{AF_S_END_OF_DATA} || s == -1)
        << std::hex << s;
  }
  EXPECT_GT(searches, 0u) << "the free-format frames are never accepted";
  std::printf("[ conform ] l3-he_free: %zu calls, %zu fruitless searches, %zu bytes out\n", run.statuses.size(),
              searches, run.pcm.size());
}

TEST(ConformanceModeSwitch, DecodesWithoutCrashOrHang) {
  const std::string dir = Dir();
  if (dir.empty()) GTEST_SKIP() << "shared conformance streams missing (no ../shared/conformance beside the repository)";
  const auto bits = ReadFile(dir + "l3-he_mode.bit");
  ASSERT_FALSE(bits.empty());
  for (uint32_t bps : {2u, 8u}) {
    HarnessOptions o;
    o.bytesPerSample = bps;
    auto h = EngineHarness::Open(bits, o);
    ASSERT_NE(h, nullptr);
    auto run = h->DecodeAll(100000);
    EXPECT_TRUE(run.ended);
    size_t resyncs = 0;
    for (int32_t s : run.statuses) resyncs += s == int32_t{AF_S_FRAME_ERROR};
    // Channel mode may change from frame to frame without a loss of sync.
    EXPECT_EQ(resyncs, 0u);
    EXPECT_EQ(run.pcm.size(), size_t{h->FrameCount()} * h->State().frameBytes);
  }
}

}  // namespace
}  // namespace kxtest
