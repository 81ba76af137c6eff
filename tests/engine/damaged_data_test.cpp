// Damaged input through the engine: random byte flips, a stream cut at every byte
// of a frame, junk between frames, a stream of junk, and failing stream calls.
// Decoding must go on (muting, resync, 0x30FF) or end cleanly with 0x3007: no
// crash, no hang, no access out of bounds (the suite also runs under ASan), and
// never more than one frame of output per call.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "engine/decode_frame.h"
#include "support/engine/engine_harness.h"
#include "support/engine/frame_builder.h"
#include "host/kx_result_codes.h"

namespace kxtest {
namespace {

std::vector<uint8_t> Fixture(const char* name) { return ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + name); }

const std::set<int32_t> kAllowed = {
    int32_t{AF_S_OK},        int32_t{AF_S_FRAME_ERROR}, int32_t{AF_E_UNDERFLOW}, int32_t{AF_S_END_OF_DATA},
    int32_t{AF_E_BAD_FORMAT}, int32_t{AF_E_ROOM_TOO_SMALL}, -1};

// Decodes to the end (or `maxCalls`) and checks every call's status and output.
EngineHarness::RunResult Survive(std::unique_ptr<EngineHarness>& h, bool intoCaller, const std::string& what,
                                 uint32_t maxCalls = 20000) {
  const uint32_t frameBytes = h->State().frameBytes;
  auto run = intoCaller ? h->DecodeAllIntoCaller(frameBytes) : h->DecodeAll(maxCalls);
  EXPECT_TRUE(run.ended) << what << ": no end after " << run.statuses.size() << " calls";
  for (int32_t s : run.statuses) EXPECT_TRUE(kAllowed.count(s) != 0) << what << ": status " << std::hex << s;
  EXPECT_LE(run.pcm.size(), size_t{frameBytes} * run.statuses.size()) << what;
  return run;
}

TEST(DamagedData, RandomByteFlips) {
  const char* names[] = {"m1_44100_joint_cbr.mp3", "m2_24000_joint_vbr.mp3", "m25_8000_joint_abr.mp3",
                         "m1_32000_mono_abr.mp3", "m1_44100_crc.mp3", "m2_22050_dual_cbr.mp3"};
  for (const char* name : names) {
    const auto clean = Fixture(name);
    ASSERT_FALSE(clean.empty()) << name;
    for (uint32_t seed = 1; seed <= 12; ++seed) {
      std::mt19937 rng(seed * 7919 + static_cast<uint32_t>(clean.size()));
      auto bytes = clean;
      const int64_t first = FindFirstFrame(bytes);
      const uint32_t flips = 1 + seed * 8;
      for (uint32_t i = 0; i < flips; ++i) {
        const size_t at = static_cast<size_t>(first) + 4 + rng() % (bytes.size() - first - 4);
        bytes[at] ^= static_cast<uint8_t>(1 + rng() % 255);
      }
      for (uint32_t bps : {2u, 8u}) {
        HarnessOptions o;
        o.bytesPerSample = bps;
        o.audioStart = first;
        auto h = EngineHarness::Open(bytes, o);
        ASSERT_NE(h, nullptr);
        Survive(h, seed % 2 == 0, std::string(name) + " seed " + std::to_string(seed));
      }
    }
  }
}

TEST(DamagedData, FlippedSideInformationAndHeaders) {
  // Damage aimed at the parts the parser trusts most: the four header bytes and the
  // side information of every frame.
  const auto clean = Fixture("m1_44100_joint_cbr.mp3");
  ASSERT_FALSE(clean.empty());
  std::mt19937 rng(4242);
  auto bytes = clean;
  int64_t p = FindFirstFrame(bytes);
  const uint32_t frameLen = 417;  // 128 kbit/s at 44.1 kHz (padding varies by one)
  for (size_t at = static_cast<size_t>(p); at + 40 < bytes.size(); at += frameLen) {
    bytes[at + 4 + rng() % 32] ^= static_cast<uint8_t>(1u << (rng() % 8));
    if (rng() % 4 == 0) bytes[at + 1 + rng() % 3] ^= static_cast<uint8_t>(1u << (rng() % 8));
  }
  HarnessOptions o;
  o.audioStart = p;
  auto h = EngineHarness::Open(bytes, o);
  ASSERT_NE(h, nullptr);
  Survive(h, false, "side information flips");
}

TEST(DamagedData, TruncatedAtEveryByteOfAFrame) {
  const auto clean = Fixture("m1_44100_joint_cbr.mp3");
  ASSERT_FALSE(clean.empty());
  const int64_t first = FindFirstFrame(clean);
  // The sixth frame: walk five frames.
  auto probe = EngineHarness::Open(clean);
  const uint32_t frameBytes = probe->State().frameBytes;
  std::vector<uint8_t> sink;
  for (int i = 0; i < 5; ++i) probe->DecodeOne(sink);
  int64_t start = 0;
  probe->Stream().GetPosition(&start);
  start += first;
  const int64_t end = start + 418;
  for (int64_t cut = start; cut <= end; ++cut) {
    std::vector<uint8_t> bytes(clean.begin(), clean.begin() + cut);
    HarnessOptions o;
    o.audioStart = first;
    auto h = EngineHarness::Open(bytes, o);
    ASSERT_NE(h, nullptr);
    auto run = Survive(h, cut % 2 == 1, "cut at " + std::to_string(cut));
    // Five whole frames always come out; a cut frame may add one more.
    EXPECT_GE(run.pcm.size(), size_t{5} * frameBytes) << cut;
    EXPECT_LE(run.pcm.size(), size_t{6} * frameBytes) << cut;
  }
}

TEST(DamagedData, NineThousandBytesOfJunkBetweenFrames) {
  const auto clean = Fixture("m2_22050_dual_cbr.mp3");
  ASSERT_FALSE(clean.empty());
  auto hc = EngineHarness::Open(clean);
  const auto cleanRun = hc->DecodeAll();
  const int64_t first = FindFirstFrame(clean);
  // After the fourth frame (at 64 kbit/s and 22.05 kHz frames are 208 or 209 bytes).
  auto probe = EngineHarness::Open(clean);
  std::vector<uint8_t> sink;
  for (int i = 0; i < 4; ++i) probe->DecodeOne(sink);
  int64_t cutAt = 0;
  probe->Stream().GetPosition(&cutAt);
  cutAt += first;
  std::mt19937 rng(9000);
  std::vector<uint8_t> bytes(clean.begin(), clean.begin() + cutAt);
  for (int i = 0; i < 9000; ++i) bytes.push_back(static_cast<uint8_t>(rng() & 0x7F));  // no 0xFF: no false sync
  bytes.insert(bytes.end(), clean.begin() + cutAt, clean.end());
  HarnessOptions o;
  o.audioStart = first;
  auto h = EngineHarness::Open(bytes, o);
  ASSERT_NE(h, nullptr);
  auto run = Survive(h, false, "junk");
  ASSERT_GE(run.statuses.size(), 6u);
  EXPECT_EQ(run.statuses[4], int32_t{AF_E_BAD_FORMAT}) << "8192 fruitless steps";
  EXPECT_EQ(run.statuses[5], int32_t{AF_S_FRAME_ERROR}) << "then the resync";
  EXPECT_EQ(h->State().errorCount, 1u);
  // Nothing lost but the two muted frames: the output has the clean length.
  EXPECT_EQ(run.pcm.size(), cleanRun.pcm.size());
}

TEST(DamagedData, AStreamOfJunk) {
  std::mt19937 rng(77);
  std::vector<uint8_t> bytes;
  auto f = SilentFrame(HeaderFields{});
  bytes.insert(bytes.end(), f.begin(), f.end());
  for (int i = 0; i < 60000; ++i) bytes.push_back(static_cast<uint8_t>(rng()));
  HarnessOptions o;
  o.audioStart = 0;
  auto h = EngineHarness::Open(bytes, o);
  ASSERT_NE(h, nullptr);
  Survive(h, false, "junk stream");
}

TEST(DamagedData, FailingStreamCalls) {
  const auto clean = Fixture("m1_44100_crc.mp3");
  ASSERT_FALSE(clean.empty());
  for (uint64_t failAt : {1u, 2u, 3u, 5u, 8u, 13u, 40u, 77u, 120u}) {
    for (bool once : {true, false}) {
      auto h = EngineHarness::Open(clean);
      ASSERT_NE(h, nullptr);
      if (once) {
        h->Stream().FailCall(h->Stream().CallCount() + failAt);
      } else {
        h->Stream().FailFromCall(h->Stream().CallCount() + failAt);
      }
      Survive(h, false, "fail at " + std::to_string(failAt));
    }
  }
  // Reads cut short: main data is not checked, the next header read ends the stream.
  auto h = EngineHarness::Open(clean);
  h->Stream().LimitReads(100);
  Survive(h, false, "short reads");
}

}  // namespace
}  // namespace kxtest
