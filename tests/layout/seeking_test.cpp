// Seeking without the engine: position and time arithmetic over a view of where
// decoding stands, the range checks and targets of a seek for each origin and the
// quick relative case, and the seek's choice of restart frame, its reset and its
// pre-roll driven by a stand-in decode step that reads frames and tags its output
// with the frame number. (The object lock and the delivery cursor are the
// plug-in's: tests/plugin/position_time_test.cpp.)
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "engine/frame_index.h"
#include "engine/synthesis.h"
#include "engine/tables.h"
#include "host/kxcore.h"
#include "layout/seeking.h"
#include "support/layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

// An engine state with buffers from the core allocator, over a memory stream, and
// the delivery's side of the position: frame size, read position, start skip,
// total.
struct Harness {
  EngineState e{};
  StreamPtr stream;
  std::vector<uint8_t> frameBuffer;
  uint32_t channels = 2;
  uint32_t sampleRate = 44100;
  uint32_t bitsPerSample = 16;
  uint32_t frameBytes = 4608;
  uint32_t readPos = 4608;   // nothing buffered
  uint32_t startSkip = 0;    // samples
  uint64_t totalBytes = 0;

  explicit Harness(Bytes data, uint32_t channelCount = 2, uint32_t fb = 4608, uint32_t capacity = 16)
      : channels(channelCount), frameBytes(fb), readPos(fb) {
    stream = MakeStream(std::move(data));
    frameBuffer.assign(fb, 0);
    e.bytesPerSample = 2;
    e.frameBytes = fb;
    e.workBlockRaw = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kWorkBlockRawBytes));
    e.workBlock = e.workBlockRaw;
    e.workBlockHigh = e.workBlockRaw + kSynthesisAreaBytes;
    e.reservoir = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kReservoirBytes));
    e.frameIndexCapacity = capacity;
    e.frameIndex = static_cast<FrameIndexEntry*>(ZCoreAlloc(ZMEM_ZEROED, capacity * sizeof(FrameIndexEntry)));
  }
  ~Harness() {
    ZCoreFree(e.workBlockRaw);
    ZCoreFree(e.reservoir);
    ZCoreFree(e.frameIndex);
  }
  DeliveryPosition View() const {
    DeliveryPosition p;
    p.framesRead = e.frameCounter;
    p.frameBytes = frameBytes;
    p.readPos = readPos;
    p.blockAlign = channels * e.bytesPerSample;
    p.startSkipBytes = uint64_t{startSkip} * p.blockAlign;
    p.totalBytes = totalBytes;
    p.bytesPerSecond = uint64_t{bitsPerSample / 8} * sampleRate * channels;
    return p;
  }
};

QWUNION Bytes64(int64_t v) {
  QWUNION q{};
  q.i = v;
  return q;
}

TEST(Position, CurrentPositionFormula) {
  Harness h({});
  h.e.frameCounter = 10;
  h.readPos = 1000;             // 3608 bytes unread
  h.startSkip = 1105 + 1152;    // samples
  h.totalBytes = 400000;
  const uint64_t expect = 10ull * 4608 - (1105 + 1152) * 4 - 3608;
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_START), expect);
  EXPECT_EQ(CurrentPosition(h.View(), 7), expect);  // any other origin: from the start
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_END), 400000 - expect);
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_CURRENT), 0u);
  // 64-bit float output: bytes per sample 8.
  h.e.bytesPerSample = 8;
  h.frameBytes = 4 * 4608;
  h.readPos = h.frameBytes;
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_START), 10ull * 4 * 4608 - (1105 + 1152) * 16);
}

TEST(Time, ReferenceAndTotalTime) {
  Harness h({});
  h.totalBytes = 44100 * 4 * 3;  // 3 s
  // Total: the announced length while less has been decoded...
  h.e.frameCounter = 5;
  EXPECT_EQ(TotalTime(h.View()), 3000000);
  // ...and never less than what was decoded already.
  h.e.frameCounter = 200;  // 200 x 4608 bytes = 5.224 s
  EXPECT_EQ(TotalTime(h.View()), 200ll * 4608 * 1000000 / (44100 * 4));
  EXPECT_GT(TotalTime(h.View()), 3000000);
  // Reference time: (frames - 1) x fb + read position.
  h.e.frameCounter = 3;
  h.readPos = 1764;
  EXPECT_EQ(ReferenceTime(h.View()), (2ll * 4608 + 1764) * 1000000 / (44100 * 4));
  // Float output counts 8-byte samples.
  h.bitsPerSample = 64;
  h.e.bytesPerSample = 8;
  EXPECT_EQ(ReferenceTime(h.View()), (2ll * 4608 + 1764) * 1000000 / (44100 * 16));
}

TEST(Time, SampleConversions) {
  EXPECT_EQ(ReferenceTimeToSampleCount(44100, 1000000), 44100);
  EXPECT_EQ(ReferenceTimeToSampleCount(44100, 500), 22);  // 22.05 truncated
  EXPECT_EQ(SampleCountToReferenceTime(44100, 44100), 1000000);
  EXPECT_EQ(SampleCountToReferenceTime(44100, 1), 22);  // 22.67 truncated
  // Large values do not overflow: 10 hours of samples.
  EXPECT_EQ(SampleCountToReferenceTime(44100, 44100ll * 36000), 36000ll * 1000000);
  EXPECT_EQ(ReferenceTimeToSampleCount(8000, 36000ll * 1000000), 8000ll * 36000);
}

TEST(PlanSeek, RangeChecks) {
  Harness h({});
  h.totalBytes = 100000;
  h.e.frameCounter = 4;
  h.readPos = 4608;
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(100004), AF_ORIGIN_START).refusal, AF_E_OUT_OF_RANGE);
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(-4), AF_ORIGIN_START).refusal, AF_E_OUT_OF_RANGE);
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(100000), AF_ORIGIN_START).refusal, AF_S_OK);
  // From the end: refused when -position exceeds the total, or when the target
  // would fall before the stream's first byte (no delay here).
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(-100004), AF_ORIGIN_END).refusal, AF_E_OUT_OF_RANGE);
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(INT64_MIN), AF_ORIGIN_END).refusal, AF_E_OUT_OF_RANGE);
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(100004), AF_ORIGIN_END).refusal, AF_E_OUT_OF_RANGE);
  // Relative: current = 4 x 4608 (the buffer is empty); past the end, or before the start.
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(100000 - 4 * 4608 + 4), AF_ORIGIN_CURRENT).refusal, AF_E_OUT_OF_RANGE);
  EXPECT_EQ(PlanSeek(h.View(), Bytes64(-(4 * 4608 + 4)), AF_ORIGIN_CURRENT).refusal, AF_E_OUT_OF_RANGE);
}

TEST(PlanSeek, QuickRelativeCaseKeepsExactlyPositionBytesUnread) {
  Harness h({});
  h.totalBytes = 1000000;
  h.e.frameCounter = 6;
  h.readPos = 1000;  // 3608 unread
  auto keep = [&h](int64_t position) {
    const SeekPlan plan = PlanSeek(h.View(), Bytes64(position), AF_ORIGIN_CURRENT);
    EXPECT_EQ(plan.refusal, AF_S_OK);
    EXPECT_TRUE(plan.withinBuffer);
    h.readPos = h.frameBytes - plan.keepUnread;  // as the delivery applies it
  };
  keep(2000);
  EXPECT_EQ(h.readPos, 4608u - 2000);
  // Equal to what is unread (2000 now): nothing changes.
  keep(2000);
  EXPECT_EQ(h.readPos, 2608u);
  // Rounded down to whole sample frames (4 bytes): 2003 -> 2000.
  keep(2003);
  EXPECT_EQ(h.readPos, 2608u);
  // 0 drops the buffered bytes.
  keep(3);
  EXPECT_EQ(h.readPos, 4608u);
  EXPECT_EQ(h.e.frameCounter, 6u);
}

// --- Seek control flow with a stand-in decoder ---

// Reads the frame at the stream's position (frames of kH here), records its index
// offset as the engine does and fills the output with its frame number.
int g_decodeCalls = 0;
int32_t FakeDecode(EngineState& e, Class_ZStream* stream, uint8_t* output, uint32_t* made) {
  ++g_decodeCalls;
  *made = 0;
  int64_t pos = 0;
  uint8_t head[4];
  uint32_t got = 0;
  if (stream->GetPosition(&pos) != AF_S_OK || stream->Read(head, 4, &got) != AF_S_OK || got != 4)
    return AF_S_END_OF_DATA;
  uint32_t h = (uint32_t(head[0]) << 24) | (head[1] << 16) | (head[2] << 8) | head[3];
  if ((h >> 21) != 0x7FF) return AF_E_BAD_FORMAT;
  if (stream->Seek(FrameBytes(h) - 4, ZS_SEEK_CUR) != AF_S_OK) return AF_S_END_OF_DATA;
  if (e.frameCounter >= e.frameIndexCapacity) return AF_E_FAIL;
  e.frameIndex[e.frameCounter].offset = static_cast<uint64_t>(pos);
  std::memset(output, static_cast<int>(e.frameCounter & 0xFF), e.frameBytes);
  *made = e.frameBytes;
  ++e.frameCounter;
  return e.frameCounter % 5 == 0 ? AF_S_FRAME_ERROR : (e.frameCounter % 7 == 0 ? AF_E_UNDERFLOW : AF_S_OK);
}

struct SeekFixture {
  Harness h;
  uint32_t kH = MakeHeader({});
  explicit SeekFixture(uint32_t frames) : h(MakeFramesData(frames), 2, 4608, frames + 16) {}
  static Bytes MakeFramesData(uint32_t frames) {
    Bytes d;
    AppendFrames(d, MakeHeader({}), frames);
    return d;
  }
  int64_t StreamPos() {
    int64_t p = 0;
    h.stream->GetPosition(&p);
    return p;
  }
  int32_t Decode() {
    uint32_t made = 0;
    return FakeDecode(h.e, h.stream.get(), h.frameBuffer.data(), &made);
  }
  SeekOutcome Seek(uint32_t frame, FrameDecodeFn decode = FakeDecode) {
    return SeekToFrame(h.e, h.stream.get(), frame, h.frameBuffer.data(), decode);
  }
  // Seeks as the decoder object does: the plan, the restart, and the target frame
  // decoded with its first `offset` bytes dropped (the read position moves to it).
  KxResult SeekTo(int64_t position, uint32_t origin) {
    const SeekPlan plan = PlanSeek(h.View(), Bytes64(position), origin);
    if (plan.refusal != AF_S_OK) return plan.refusal;
    if (plan.withinBuffer) {
      h.readPos = h.frameBytes - plan.keepUnread;
      return AF_S_OK;
    }
    const SeekOutcome outcome = Seek(plan.frame);
    if (outcome.restarted || outcome.atEnd) h.readPos = h.frameBytes;
    if (outcome.result != AF_S_OK || plan.offset == 0) return outcome.result;
    const int32_t r = Decode();
    if (r != AF_S_OK && r != AF_S_FRAME_ERROR && r != static_cast<int32_t>(AF_E_UNDERFLOW)) return r;
    h.readPos = plan.offset;
    return AF_S_OK;
  }
};

TEST(SeekToFrame, EarlyFramesRestartFromTheFirstFrame) {
  for (uint32_t f : {0u, 1u, 17u, 32u}) {
    SeekFixture fx(100);
    for (int i = 0; i < 50; ++i) ASSERT_NE(fx.Decode(), AF_S_END_OF_DATA);
    fx.h.e.muteCounter = 2;
    std::memset(fx.h.e.workBlockRaw, 0x7F, kWorkBlockRawBytes);
    fx.h.e.deemphasisState.primed = 1;
    g_decodeCalls = 0;
    const SeekOutcome outcome = fx.Seek(f);
    ASSERT_EQ(outcome.result, AF_S_OK);
    EXPECT_EQ(g_decodeCalls, static_cast<int>(f)) << f;  // decoded again from frame 0
    EXPECT_EQ(fx.h.e.frameCounter, f);
    EXPECT_TRUE(outcome.restarted) << "the delivery empties its frame buffer and clears the end";
    EXPECT_FALSE(outcome.atEnd);
    EXPECT_EQ(fx.StreamPos(), static_cast<int64_t>(f) * 417);
    EXPECT_EQ(fx.h.e.muteCounter, 0u);
    EXPECT_EQ(fx.h.e.deemphasisState.primed, 0u);
    // The rings cleared to silence (ClearSynthesisRing: every row +0.0 where the ring
    // stores values as they are, -0.0 where it stores them negated), the overlap
    // stores to zeros.
    double silent[64];
    for (int i = 0; i < 64; ++i) silent[i] = i >= 17 ? -0.0 : 0.0;
    for (uint32_t ch = 0; ch < 2; ++ch) {
      const double* ring = reinterpret_cast<const double*>(fx.h.e.workBlock) + ch * kSynthesisRingSize;
      for (uint32_t m = 1; m <= 15; ++m) {
        ASSERT_EQ(0, std::memcmp(SynthesisRingRow(ring, fx.h.e.ringPos[ch], m), silent, sizeof(silent))) << ch << m;
      }
    }
    for (uint32_t i = 0; i < kOverlapAreaBytes; ++i) ASSERT_EQ(fx.h.e.workBlockHigh[i], 0) << i;
  }
}

TEST(SeekToFrame, PreRollEndsBeforeTheTargetFrame) {
  SeekFixture fx(100);
  g_decodeCalls = 0;
  ASSERT_EQ(fx.Seek(20).result, AF_S_OK);
  EXPECT_EQ(g_decodeCalls, 20);
  EXPECT_EQ(fx.h.e.frameCounter, 20u);
  EXPECT_EQ(fx.StreamPos(), 20 * 417) << "the target frame is the next one read";
  EXPECT_EQ(fx.h.frameBuffer[0], 19) << "the pre-roll's last frame went to the frame buffer";
}

TEST(SeekToFrame, IndexedFrameRestartsThirtyTwoFramesEarlier) {
  SeekFixture fx(200);
  for (int i = 0; i < 150; ++i) ASSERT_NE(fx.Decode(), AF_S_END_OF_DATA);
  // Index entry 68 as the engine left it.
  fx.h.e.frameIndex[68].reservoirBitPos = 12345;
  fx.h.e.frameIndex[68].reservoirWrite = 321;
  fx.h.e.frameIndex[68].reservoirFill = 999;
  for (int i = 0; i < 512; ++i) fx.h.e.reservoir[(fx.h.e.reservoirBitPos / 8 + i) % 4096] = static_cast<uint8_t>(i);
  g_decodeCalls = 0;
  // A stand-in that only records the state the pre-roll starts from.
  static EngineState seen;
  auto firstCall = [](EngineState& e, Class_ZStream* stream, uint8_t* output, uint32_t* made) -> int32_t {
    if (g_decodeCalls == 0) seen = e;
    return FakeDecode(e, stream, output, made);
  };
  ASSERT_EQ(fx.Seek(100, firstCall).result, AF_S_OK);
  EXPECT_EQ(g_decodeCalls, 32);
  EXPECT_EQ(seen.frameCounter, 68u);
  EXPECT_EQ(seen.reservoirBitPos, 12345u);
  EXPECT_EQ(seen.reservoirWriteIndex, 321u);
  EXPECT_EQ(seen.reservoirByteCount, 999u);
  // The 512 reservoir bytes moved to the restored read position.
  for (int i = 0; i < 512; ++i) ASSERT_EQ(fx.h.e.reservoir[(12345 / 8 + i) % 4096], static_cast<uint8_t>(i)) << i;
  EXPECT_EQ(fx.h.e.frameCounter, 100u);
  EXPECT_EQ(fx.StreamPos(), 100 * 417);
}

TEST(SeekToFrame, UnindexedFramesAheadAreScannedFirst) {
  SeekFixture fx(300);
  fx.h.totalBytes = 300 * 4608;
  for (int i = 0; i < 10; ++i) ASSERT_NE(fx.Decode(), AF_S_END_OF_DATA);
  g_decodeCalls = 0;
  ASSERT_EQ(fx.SeekTo(250 * 4608 + 4, AF_ORIGIN_START), AF_S_OK);
  EXPECT_EQ(g_decodeCalls, 33);  // 32 frames of pre-roll and the target frame
  EXPECT_EQ(fx.h.e.frameCounter, 251u);
  EXPECT_EQ(fx.h.readPos, 4u);
  EXPECT_EQ(fx.h.frameBuffer[4], 250);
  // The scan indexed every frame it passed.
  for (uint32_t i = 10; i < 250; ++i) ASSERT_EQ(uint64_t(fx.h.e.frameIndex[i].offset), i * 417ull) << i;
}

TEST(SeekToFrame, BackwardToAnUnindexedFrameFails) {
  SeekFixture fx(200);
  for (int i = 0; i < 120; ++i) ASSERT_NE(fx.Decode(), AF_S_END_OF_DATA);
  fx.h.e.frameIndex[60].offset = 0;  // forgotten
  EXPECT_EQ(fx.Seek(92).result, AF_E_FAIL);
  // Past the last frame: the decode step's end of data comes through.
  SeekFixture end(50);
  end.h.totalBytes = 100 * 4608;
  EXPECT_EQ(end.SeekTo(40 * 4608, AF_ORIGIN_START), AF_S_OK);
  EXPECT_EQ(end.SeekTo(49 * 4608 + 8, AF_ORIGIN_START), AF_S_OK);
  EXPECT_EQ(end.SeekTo(50 * 4608 + 8, AF_ORIGIN_START), AF_S_END_OF_DATA);
  const SeekOutcome past = end.Seek(60);
  EXPECT_EQ(past.result, AF_S_END_OF_DATA);
  EXPECT_TRUE(past.atEnd);
}

TEST(PlanSeek, TargetsFrameAndOffsetForEachOrigin) {
  SeekFixture fx(400);
  Harness& h = fx.h;
  h.startSkip = 1105 + 1152;
  const uint64_t delay = (1105 + 1152) * 4;
  h.totalBytes = 380ull * 4608 - delay;
  // From the start.
  ASSERT_EQ(fx.SeekTo(50 * 4608 + 103, AF_ORIGIN_START), AF_S_OK);  // rounded down to 100 bytes past frame 50
  uint64_t target = 50 * 4608 + 100 + delay;
  EXPECT_EQ(h.e.frameCounter, target / 4608 + 1);
  EXPECT_EQ(h.readPos, target % 4608);
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_START), 50u * 4608 + 100);
  // From the end.
  ASSERT_EQ(fx.SeekTo(4608 * 10, AF_ORIGIN_END), AF_S_OK);
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_END), 4608u * 10);
  // Relative, past the buffered bytes: cur + position + delay.
  const uint64_t before = CurrentPosition(h.View(), AF_ORIGIN_START);
  ASSERT_EQ(fx.SeekTo(20000, AF_ORIGIN_CURRENT), AF_S_OK);
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_START), before + 20000 + delay);
}

// From the end, only -position > total is refused: a position larger than the
// total (up to the start skip) lands inside the start skip, and a negative one
// lies past the end; beyond the last frame the decoder stands at the end of data.
TEST(PlanSeek, FromTheEndRefusesOnlyANegativePositionBeyondTheTotal) {
  SeekFixture fx(400);
  Harness& h = fx.h;
  h.startSkip = 1105 + 1152;
  const uint64_t delay = (1105 + 1152) * 4;
  const uint64_t total = 380ull * 4608 - delay;
  h.totalBytes = total;
  // Thirty frames past the end of the announced length: beyond the stream's 400
  // frames. The scan for the target meets the end: the seek reports the end of
  // the data, and the decoder stands there with nothing buffered.
  const SeekPlan beyond = PlanSeek(h.View(), Bytes64(-30 * 4608), AF_ORIGIN_END);
  ASSERT_EQ(beyond.refusal, AF_S_OK);
  const SeekOutcome outcome = fx.Seek(beyond.frame);
  EXPECT_EQ(outcome.result, AF_S_END_OF_DATA);
  EXPECT_TRUE(outcome.atEnd);
  EXPECT_EQ(h.e.frameCounter, 400u);
  // 100 bytes before the first real sample: inside the start skip.
  ASSERT_EQ(fx.SeekTo(static_cast<int64_t>(total + 100), AF_ORIGIN_END), AF_S_OK);
  EXPECT_EQ(h.e.frameCounter, (delay - 100) / 4608 + 1);
  EXPECT_EQ(h.readPos, (delay - 100) % 4608);
  // Five frames past the end of the announced length: the stream has them.
  ASSERT_EQ(fx.SeekTo(-5 * 4608, AF_ORIGIN_END), AF_S_OK);
  EXPECT_EQ(h.e.frameCounter, (total + 5 * 4608 + delay) / 4608);
  EXPECT_EQ(h.readPos, 4608u);
  // The largest negative position taken: the whole total past the end.
  EXPECT_EQ(fx.SeekTo(-static_cast<int64_t>(total), AF_ORIGIN_END), AF_S_END_OF_DATA);
  EXPECT_EQ(fx.SeekTo(-static_cast<int64_t>(total) - 4, AF_ORIGIN_END), AF_E_OUT_OF_RANGE);
  // Past the start skip: before the stream's first byte.
  EXPECT_EQ(fx.SeekTo(static_cast<int64_t>(total + delay + 4), AF_ORIGIN_END), AF_E_OUT_OF_RANGE);
  ASSERT_EQ(fx.SeekTo(static_cast<int64_t>(total), AF_ORIGIN_END), AF_S_OK);
  EXPECT_EQ(CurrentPosition(h.View(), AF_ORIGIN_START), 0u);
}

}  // namespace
}  // namespace kxmp3
