// Tests of the frame driver: the statuses of DecodeFrame and SkipFrame, the
// reservoir and its counters, the frame index and its growth, muting after damage,
// the underflow silence, and frames whose channel count differs from the stream's.
// Where a frame's output goes and how it is cut at the output limit is the PCM
// delivery's (tests/plugin/frame_delivery_test.cpp).
#include <gtest/gtest.h>

#include <cstring>

#include "engine/decode_frame.h"
#include "engine/frame_header.h"
#include "support/engine/engine_harness.h"
#include "support/engine/frame_builder.h"
#include "host/kxcore.h"

namespace kxmp3 {
namespace {

using kxtest::EngineHarness;
using kxtest::HarnessOptions;
using kxtest::HeaderFields;

constexpr int32_t kOk = 0;
constexpr int32_t kFrameError = static_cast<int32_t>(AF_S_FRAME_ERROR);
constexpr int32_t kUnderflow = static_cast<int32_t>(AF_E_UNDERFLOW);
constexpr int32_t kEnd = static_cast<int32_t>(AF_S_END_OF_DATA);
constexpr int32_t kBadFormat = static_cast<int32_t>(AF_E_BAD_FORMAT);

HeaderFields Stereo() { return HeaderFields{}; }  // MPEG-1, 44.1 kHz, 128 kbit/s
HeaderFields Mono() {
  HeaderFields h;
  h.mode = 3;
  return h;
}

void Append(std::vector<uint8_t>& d, const std::vector<uint8_t>& f) { d.insert(d.end(), f.begin(), f.end()); }

using kxtest::ToneFrame;
std::vector<uint8_t> Silent(const HeaderFields& h, int count) { return kxtest::SilentFrames(h, count); }

// FrameIndexEntry is packed: its fields are read by value, never bound to a reference.
template <typename T>
T Copy(T value) {
  return value;
}

bool AllZero(const uint8_t* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] != 0) return false;
  return true;
}

std::string FixturePath(const char* name) { return std::string(KX_TEST_DATA_DIR) + "/mp3/" + name; }

// ---- statuses and targets ----

TEST(DecodeFrame, CheckWordIsKeptAndNeverVerified) {
  HeaderFields p = Stereo();
  p.noCrc = 0;
  std::vector<uint8_t> d;
  Append(d, ToneFrame(p));
  Append(d, ToneFrame(p));
  auto h = EngineHarness::Open(d);
  EngineState& s = h->State();
  uint32_t made = 0;
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), h->FrameBuffer(), &made), kOk);  // the builder's check word is not a valid CRC
  EXPECT_EQ(made, h->FrameBytes());
  EXPECT_EQ(s.lastCheckWord, 0xABCDu);
  EXPECT_FALSE(AllZero(h->FrameBuffer(), h->FrameBytes()));
}

TEST(DecodeFrame, EmphasisInUse) {
  for (uint32_t e : {0u, 1u, 2u, 3u}) {
    for (bool off : {false, true}) {
      HeaderFields f = Stereo();
      f.emphasis = e;
      HarnessOptions o;
      o.noDeemphasis = off;
      auto h = EngineHarness::Open(Silent(f, 2), o);
      EngineState& s = h->State();
      EXPECT_EQ(DecodeFrame(s, &h->Stream(), h->FrameBuffer(), nullptr), kOk);
      EXPECT_EQ(s.emphasis, (off || e == 2) ? 0u : e) << e << " " << off;
    }
  }
}

TEST(DecodeFrame, ChannelModeChangesFromFrameToFrame) {
  // Stereo stream with a single-channel frame: it plays on both channels.
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo()));
  Append(d, ToneFrame(Mono()));
  HeaderFields joint = Stereo();
  joint.mode = 1;
  joint.modeExt = 2;
  Append(d, ToneFrame(joint));
  Append(d, ToneFrame(Stereo()));
  auto h = EngineHarness::Open(d);
  ASSERT_EQ(h->Channels(), 2u);
  auto run = h->DecodeAll();
  ASSERT_EQ(run.statuses.size(), 5u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(run.statuses[i], kOk) << i;
  const auto pcm = kxtest::AsInt16(run.pcm);
  ASSERT_EQ(pcm.size(), 4u * 2304);
  bool any = false;
  for (size_t i = 2304; i < 2 * 2304; i += 2) {
    ASSERT_EQ(pcm[i], pcm[i + 1]) << "mono frame duplicated, sample " << i;
    any |= pcm[i] != 0;
  }
  EXPECT_TRUE(any);

  // Single-channel stream with a two-channel frame: channel 0 is output, nothing overflows.
  std::vector<uint8_t> m;
  Append(m, ToneFrame(Mono()));
  Append(m, ToneFrame(Stereo()));
  Append(m, ToneFrame(Mono()));
  auto hm = EngineHarness::Open(m);
  ASSERT_EQ(hm->Channels(), 1u);
  auto rm = hm->DecodeAll();
  EXPECT_EQ(rm.pcm.size(), 3u * 1152 * 2);
  EXPECT_EQ(rm.statuses[1], kOk);
}

TEST(DecodeFrame, NoCoreAllocationPerFrame) {
  const auto bytes = kxtest::ReadFile(FixturePath("m1_44100_joint_cbr.mp3"));
  ASSERT_FALSE(bytes.empty());
  auto h = EngineHarness::Open(bytes);
  EngineState& s = h->State();
  std::vector<uint8_t> out(s.frameBytes);
  const uint64_t before = ZCoreAllocationCount();
  int frames = 0;
  for (;;) {
    uint32_t made = 0;
    const int32_t st = DecodeFrame(s, &h->Stream(), out.data(), &made);
    if (st == kEnd) break;
    ASSERT_EQ(st, kOk);
    ++frames;
  }
  EXPECT_GT(frames, 30);
  EXPECT_EQ(ZCoreAllocationCount(), before) << "the index was sized for the stream: nothing to allocate";
}

// ---- reservoir ----

TEST(DecodeFrame, UnderflowAtTheStartThenResumes) {
  // Frame 0 points 10 bytes before the stream; frame 1 points into frame 0's data.
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo(), 10));
  Append(d, ToneFrame(Stereo(), 5));
  Append(d, ToneFrame(Stereo(), 0));
  auto h = EngineHarness::Open(d);
  EngineState& s = h->State();
  const uint32_t L = kxtest::MainDataBytes(Stereo());
  std::vector<uint8_t> out(s.frameBytes, 0xEE);
  uint32_t made = 0;
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), out.data(), &made), kUnderflow);
  EXPECT_EQ(made, s.frameBytes);
  EXPECT_TRUE(AllZero(out.data(), out.size())) << "a frame of silence";
  EXPECT_EQ(s.frameCounter, 1u);
  EXPECT_EQ(s.reservoirBitPos, 0u) << "the read position does not move";
  EXPECT_EQ(s.reservoirByteCount, L);
  EXPECT_EQ(Copy(s.frameIndex[0].reservoirBitPos), 0u);
  EXPECT_EQ(Copy(s.frameIndex[0].reservoirFill), L);
  EXPECT_EQ(Copy(s.frameIndex[0].reservoirWrite), L);
  // Frame 1: Skip = L - 5 - 0 >= 0.
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), out.data(), &made), kOk);
  EXPECT_EQ(s.frameCounter, 2u);
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), out.data(), &made), kOk);
}

TEST(DecodeFrame, ReservoirCountersAndFrameIndexEntries) {
  const auto bytes = kxtest::ReadFile(FixturePath("m1_44100_joint_cbr.mp3"));
  ASSERT_FALSE(bytes.empty());
  HarnessOptions o;
  o.indexSlack = 0;
  o.frameCountOverride = 1;  // capacity 1: the index must grow
  const uint32_t frames = EngineHarness::Open(bytes)->FrameCount();
  ASSERT_GT(frames, 30u);
  auto h = EngineHarness::Open(bytes, o);
  ASSERT_NE(h, nullptr);
  EngineState& s = h->State();
  ASSERT_EQ(s.frameIndexCapacity, 1u);
  uint64_t expectOffset = 0;
  uint32_t appended = 0;
  for (uint32_t i = 0; i < frames; ++i) {
    FrameHeader hdr{};
    uint32_t ref = s.referenceHeader;
    {
      // Peek the frame's header through a copy of the stream position.
      int64_t pos = 0;
      h->Stream().GetPosition(&pos);
      ASSERT_EQ(static_cast<uint64_t>(pos), expectOffset);
      ASSERT_EQ(ReadFrameHeader(hdr, &h->Stream(), ref), AF_S_OK);
      h->Stream().Seek(pos, ZS_SEEK_SET);
    }
    const int32_t st = DecodeFrame(s, &h->Stream(), h->FrameBuffer(), nullptr);
    ASSERT_TRUE(st == kOk || st == kUnderflow) << i << " " << st;
    appended += static_cast<uint32_t>(MainDataLength(hdr));
    const FrameIndexEntry& e = s.frameIndex[i];
    EXPECT_EQ(Copy(e.offset), expectOffset) << i;
    EXPECT_EQ(Copy(e.reservoirWrite), appended % 4096) << i;
    EXPECT_EQ(Copy(e.reservoirFill), s.reservoirByteCount) << i;
    EXPECT_EQ(Copy(e.reservoirBitPos), s.reservoirBitPos) << i;
    // The ring never holds more than it can: unread bytes stay within 4096.
    const int64_t unread = int64_t{s.reservoirByteCount} - int64_t{s.reservoirBitPos / 8};
    EXPECT_GE(unread, 0) << i;
    EXPECT_LE(unread, 4096) << i;
    EXPECT_LE(s.reservoirBitPos, 2u * 4096 * 8) << "the counters are pulled back as the ring wraps";
    expectOffset += FrameLength(hdr);
  }
  EXPECT_EQ(s.frameIndexCapacity, 1u + 100u * ((frames - 1 + 99) / 100)) << "grown by 100 at a time";
  EXPECT_GT(appended, 4096u * 3) << "the ring wrapped several times";
}

TEST(DecodeFrame, IndexGrowsWhenFramesReadReachTheCapacity) {
  HarnessOptions o;
  o.indexSlack = 0;
  o.frameCountOverride = 2;
  auto h = EngineHarness::Open(Silent(Stereo(), 3), o);
  EngineState& s = h->State();
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), h->FrameBuffer(), nullptr), kOk);
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), h->FrameBuffer(), nullptr), kOk);
  EXPECT_EQ(s.frameIndexCapacity, 2u);
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), h->FrameBuffer(), nullptr), kOk);
  EXPECT_EQ(s.frameIndexCapacity, 102u);
  EXPECT_EQ(Copy(s.frameIndex[2].offset), 2u * kxtest::FrameBytes(Stereo()));
  EXPECT_EQ(Copy(s.frameIndex[0].offset), 0u);
  EXPECT_EQ(Copy(s.frameIndex[3].offset), 0u) << "the added entries are zero";
}

// ---- damage and muting ----

TEST(DecodeFrame, ResyncMutesTheFoundFrameAndTheNext) {
  const auto clean = kxtest::ReadFile(FixturePath("m1_44100_joint_cbr.mp3"));
  ASSERT_FALSE(clean.empty());
  auto hc = EngineHarness::Open(clean);
  auto cleanRun = hc->DecodeAll();
  const uint32_t frameBytes = hc->State().frameBytes;
  // Junk after frame 10 (found by walking the frames).
  int64_t p = kxtest::FindFirstFrame(clean);
  for (int i = 0; i < 10; ++i) {
    FrameHeader hdr{};
    auto* st = kxtest::MemoryStream::Make(std::vector<uint8_t>(clean.begin() + p, clean.begin() + p + 4));
    uint32_t ref = (uint32_t{clean[p]} << 24) | (uint32_t{clean[p + 1]} << 16) | (uint32_t{clean[p + 2]} << 8) | clean[p + 3];
    ASSERT_EQ(ReadFrameHeader(hdr, st, ref), AF_S_OK);
    st->Release();
    p += FrameLength(hdr);
  }
  std::vector<uint8_t> damaged(clean.begin(), clean.begin() + p);
  for (int i = 0; i < 333; ++i) damaged.push_back(static_cast<uint8_t>(i * 7 + 1));
  damaged.insert(damaged.end(), clean.begin() + p, clean.end());
  auto hd = EngineHarness::Open(damaged);
  ASSERT_EQ(hd->FrameCount(), 10u);  // the harness's walk stops at the junk
  auto run = hd->DecodeAll();
  ASSERT_EQ(run.statuses.size(), cleanRun.statuses.size());
  for (size_t i = 0; i + 1 < run.statuses.size(); ++i) EXPECT_EQ(run.statuses[i], i == 10 ? kFrameError : kOk) << i;
  EXPECT_EQ(hd->State().errorCount, 1u);
  EXPECT_EQ(hd->State().muteCounter, 0u);
  ASSERT_EQ(run.pcm.size(), cleanRun.pcm.size());
  for (size_t f = 0; f * frameBytes < run.pcm.size(); ++f) {
    const uint8_t* a = run.pcm.data() + f * frameBytes;
    const uint8_t* b = cleanRun.pcm.data() + f * frameBytes;
    if (f == 10 || f == 11) {
      EXPECT_TRUE(AllZero(a, frameBytes)) << "frame " << f << " muted";
      EXPECT_FALSE(AllZero(b, frameBytes)) << "frame " << f << " has sound in the clean stream";
    } else {
      // Muted frames are still decoded, so the filterbank state follows the stream.
      EXPECT_EQ(std::memcmp(a, b, frameBytes), 0) << "frame " << f;
    }
  }
}

TEST(DecodeFrame, ClippedBigValuesMuteTheFrameAndTheNext) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo()));
  // A frame whose side information says big_values 300 for granule 0 channel 0.
  kxtest::SideFields side;
  side.gr[0][0].big_values = 300;
  Append(d, kxtest::MakeFrame(Stereo(), kxtest::EncodeSideInfo(side, true, 2), {}));
  Append(d, ToneFrame(Stereo()));
  Append(d, ToneFrame(Stereo()));
  auto h = EngineHarness::Open(d);
  EngineState& s = h->State();
  std::vector<uint8_t> out;
  EXPECT_EQ(h->DecodeOne(out), kOk);
  EXPECT_EQ(h->DecodeOne(out), kFrameError);
  EXPECT_EQ(s.errorCount, 1u);
  EXPECT_EQ(s.muteCounter, 1u);
  EXPECT_EQ(h->DecodeOne(out), kOk);
  EXPECT_EQ(s.muteCounter, 0u);
  EXPECT_TRUE(AllZero(out.data() + 4608, 2 * 4608)) << "the damaged frame and the next are silent";
  EXPECT_EQ(h->DecodeOne(out), kOk);
  EXPECT_FALSE(AllZero(out.data() + 3 * 4608, 4608));
}

TEST(DecodeFrame, SwitchedWindowOfBlockType0IsHandedUp) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo()));
  kxtest::SideFields side;
  side.gr[1][1].window_switching = 1;
  side.gr[1][1].block_type = 0;
  Append(d, kxtest::MakeFrame(Stereo(), kxtest::EncodeSideInfo(side, true, 2), {}));
  Append(d, ToneFrame(Stereo()));
  Append(d, ToneFrame(Stereo()));
  auto h = EngineHarness::Open(d);
  EngineState& s = h->State();
  std::vector<uint8_t> out(4608);
  uint32_t made = 0;
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), out.data(), &made), kOk);
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), out.data(), &made), kBadFormat);
  EXPECT_EQ(made, 0u);
  EXPECT_EQ(s.frameCounter, 1u) << "the abandoned frame is not counted";
  // Its main data is then read as a header: the search finds the next frame.
  EXPECT_EQ(DecodeFrame(s, &h->Stream(), out.data(), &made), kFrameError);
  EXPECT_EQ(made, 4608u);
}

// ---- SkipFrame ----

TEST(SkipFrame, FirstFrameIsSilenceAndPrimesTheReservoir) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo()));
  Append(d, ToneFrame(Stereo(), 20));  // its main data begins in the skipped frame
  Append(d, ToneFrame(Stereo()));
  HarnessOptions o;
  o.skipFirstFrame = true;
  auto h = EngineHarness::Open(d, o);
  EngineState& s = h->State();
  std::vector<uint8_t> out;
  EXPECT_EQ(h->DecodeOne(out), kOk);
  ASSERT_EQ(out.size(), 4608u);
  EXPECT_TRUE(AllZero(out.data(), out.size()));
  EXPECT_EQ(s.frameCounter, 1u);
  EXPECT_EQ(s.reservoirByteCount, kxtest::MainDataBytes(Stereo()));
  EXPECT_EQ(s.reservoirBitPos, 0u);
  EXPECT_EQ(h->DecodeOne(out), kOk) << "not an underflow: the skipped frame's data is there";
  EXPECT_FALSE(AllZero(out.data() + 4608, 4608));
}

TEST(SkipFrame, ResyncIsReportedButDoesNotMute) {
  std::vector<uint8_t> d(50, 0);
  Append(d, Silent(Stereo(), 3));
  // Opened on the real frames, then moved back onto the junk before them.
  auto h2 = EngineHarness::Open(d);
  ASSERT_NE(h2, nullptr);
  EngineState& s = h2->State();
  h2->Stream().SetBounds(0, static_cast<int64_t>(d.size()));
  h2->Stream().Seek(0, ZS_SEEK_SET);
  EXPECT_EQ(SkipFrame(s, &h2->Stream(), h2->FrameBuffer(), nullptr), kFrameError);
  EXPECT_EQ(s.errorCount, 1u);
  EXPECT_EQ(s.muteCounter, 0u);
  EXPECT_EQ(s.frameCounter, 1u);
}

}  // namespace
}  // namespace kxmp3
