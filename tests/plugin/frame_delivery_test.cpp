// Tests of the PCM delivery's decode step (DeliverFrame): where a frame's output
// goes (the caller's buffer when its room holds a whole frame, else the frame
// buffer), the statuses that come of that, the end of the stream, the underflow
// silence and its trimming, and the cut at the output limit, for DecodeFrame's and
// SkipFrame's frames alike.
#include <gtest/gtest.h>

#include <cstring>

#include "delivery_harness.h"
#include "support/engine/frame_builder.h"

namespace kxmp3 {
namespace {

using kxtest::DeliveryHarness;
using kxtest::DeliveryOptions;
using kxtest::HeaderFields;
using kxtest::ToneFrame;

constexpr int32_t kOk = 0;
constexpr int32_t kUnderflow = static_cast<int32_t>(AF_E_UNDERFLOW);
constexpr int32_t kRoom = static_cast<int32_t>(AF_E_ROOM_TOO_SMALL);
constexpr int32_t kEnd = static_cast<int32_t>(AF_S_END_OF_DATA);

HeaderFields Stereo() { return HeaderFields{}; }  // MPEG-1, 44.1 kHz, 128 kbit/s

void Append(std::vector<uint8_t>& d, const std::vector<uint8_t>& f) { d.insert(d.end(), f.begin(), f.end()); }
std::vector<uint8_t> Silent(const HeaderFields& h, int count) { return kxtest::SilentFrames(h, count); }

bool AllZero(const uint8_t* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] != 0) return false;
  return true;
}

TEST(DecodeFrame, DecodesIntoTheFrameBufferOrTheCallersBuffer) {
  std::vector<uint8_t> d;
  for (int i = 0; i < 4; ++i) Append(d, ToneFrame(Stereo()));
  auto h = DeliveryHarness::Open(d);
  ASSERT_NE(h, nullptr);
  DecoderState& s = h->State();
  ASSERT_EQ(s.pcmBufferSize, 1152u * 2 * 2);
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  EXPECT_EQ(s.pcmReadPos, 0u);
  EXPECT_EQ(s.pcmFill, s.pcmBufferSize);
  EXPECT_EQ(s.frameOutputBytes, s.pcmBufferSize);
  EXPECT_FALSE(AllZero(s.pcmBuffer, s.pcmBufferSize));

  std::vector<uint8_t> out(s.pcmBufferSize + 10, 0xEE);
  int32_t count = static_cast<int32_t>(out.size());
  s.pcmReadPos = s.pcmFill;  // frame buffer handed out
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kOk);
  EXPECT_EQ(count, static_cast<int32_t>(s.pcmBufferSize));
  EXPECT_EQ(s.pcmReadPos, s.pcmFill) << "the frame buffer is left alone";
  EXPECT_EQ(out[s.pcmBufferSize], 0xEE) << "nothing written beyond the frame";
  EXPECT_FALSE(AllZero(out.data(), s.pcmBufferSize));
}


TEST(DecodeFrame, CallerRoomOneByteShortGoesToTheFrameBuffer) {
  std::vector<uint8_t> d;
  for (int i = 0; i < 3; ++i) Append(d, ToneFrame(Stereo()));
  auto h = DeliveryHarness::Open(d);
  DecoderState& s = h->State();
  std::vector<uint8_t> out(s.pcmBufferSize - 1, 0xEE);
  int32_t count = static_cast<int32_t>(out.size());
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kRoom);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(s.pcmReadPos, 0u);
  EXPECT_EQ(s.pcmFill, s.pcmBufferSize);
  EXPECT_EQ(s.engine.frameCounter, 1u) << "the frame was decoded";
  for (uint8_t b : out) ASSERT_EQ(b, 0xEE);
  EXPECT_FALSE(AllZero(s.pcmBuffer, s.pcmBufferSize));
}


TEST(DecodeFrame, EndOfStreamSetsTheFlag) {
  auto h = DeliveryHarness::Open(Silent(Stereo(), 2));
  DecoderState& s = h->State();
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  int32_t count = 99;
  std::vector<uint8_t> out(s.pcmBufferSize);
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kEnd);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(s.endOfData, 1u);
  EXPECT_EQ(s.frameOutputBytes, 0u);
  EXPECT_EQ(s.engine.frameCounter, 2u);
}


TEST(DecodeFrame, UnderflowIntoTheFrameBuffer) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo(), 1));
  Append(d, ToneFrame(Stereo(), 0));
  auto h = DeliveryHarness::Open(d);
  DecoderState& s = h->State();
  std::memset(s.pcmBuffer, 0x55, s.pcmBufferSize);
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kUnderflow);
  EXPECT_EQ(s.pcmReadPos, 0u);
  EXPECT_EQ(s.pcmFill, s.pcmBufferSize);
  EXPECT_TRUE(AllZero(s.pcmBuffer, s.pcmBufferSize));
}


TEST(DecodeFrame, UnderflowIsTrimmedAgainstTheLimitEvenWhenNotInForce) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo(), 0));
  Append(d, ToneFrame(Stereo(), 0));
  Append(d, ToneFrame(Stereo(), 511));  // more than the reservoir holds
  Append(d, ToneFrame(Stereo(), 0));
  DeliveryOptions o;
  o.outputLimitInForce = false;
  o.outputLimit = 2 * 4608 + 1000;
  auto h = DeliveryHarness::Open(d, o);
  DecoderState& s = h->State();
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kUnderflow);
  EXPECT_EQ(s.frameOutputBytes, 1000u);
  EXPECT_EQ(s.pcmFill, 1000u);
  // A normally decoded frame past the limit is not trimmed while the limit is not in force.
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  EXPECT_EQ(s.frameOutputBytes, 4608u);
}


TEST(DecodeFrame, UnderflowBeyondTheLimitEndsTheStreamUncounted) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo(), 0));
  Append(d, ToneFrame(Stereo(), 400));
  DeliveryOptions o;
  o.outputLimit = 4608;
  auto h = DeliveryHarness::Open(d, o);
  DecoderState& s = h->State();
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  int32_t count = 5;
  std::vector<uint8_t> out(4608);
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kEnd);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(s.endOfData, 1u);
  EXPECT_EQ(s.frameOutputBytes, 0u);
  EXPECT_EQ(s.engine.frameCounter, 1u) << "the frame is not counted";
}


TEST(DecodeFrame, LastFrameIsCutAtTheOutputLimit) {
  DeliveryOptions o;
  o.outputLimitInForce = true;
  o.outputLimit = 3 * 4608 - 1000;
  std::vector<uint8_t> d;
  for (int i = 0; i < 5; ++i) Append(d, ToneFrame(Stereo()));
  auto h = DeliveryHarness::Open(d, o);
  DecoderState& s = h->State();
  std::vector<uint8_t> out(4608);
  int32_t count = 4608;
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kOk);
  EXPECT_EQ(count, 4608);
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kOk);
  count = 4608;
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kOk);
  EXPECT_EQ(count, 4608 - 1000);
  EXPECT_EQ(s.frameOutputBytes, 4608u - 1000);
  count = 4608;
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kEnd);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(s.endOfData, 1u);
  EXPECT_EQ(s.frameOutputBytes, 0u);
}


TEST(DecodeFrame, LimitOnAFrameBoundaryEndsWithTheNextFrame) {
  DeliveryOptions o;
  o.outputLimitInForce = true;
  o.outputLimit = 2 * 4608;
  auto h = DeliveryHarness::Open(Silent(Stereo(), 4), o);
  auto run = h->DecodeAll();
  ASSERT_EQ(run.statuses.size(), 3u);
  EXPECT_EQ(run.statuses[2], kEnd);
  EXPECT_EQ(run.pcm.size(), 2u * 4608);
  EXPECT_EQ(h->State().engine.frameCounter, 3u) << "the frame that yields nothing was read";
}


TEST(SkipFrame, IntoTheCallerAndWithTooLittleRoom) {
  DeliveryOptions o;
  o.skipFirstFrame = true;
  auto h = DeliveryHarness::Open(Silent(Stereo(), 3), o);
  DecoderState& s = h->State();
  std::vector<uint8_t> out(4608, 0xEE);
  // Too little room: the header frame's silence goes to the frame buffer, and the
  // step answers before the frame is counted.
  std::memset(s.pcmBuffer, 0x77, s.pcmBufferSize);
  int32_t count = 4607;
  const uint32_t counter = s.engine.frameCounter;
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kRoom);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(AllZero(s.pcmBuffer, s.pcmBufferSize));
  EXPECT_EQ(s.pcmReadPos, 0u);
  EXPECT_EQ(s.engine.frameCounter, counter) << "returned before the frame is counted";
  // With room: the silence goes to the caller.
  count = 4608;
  EXPECT_EQ(DeliverFrame(s, 1, out.data(), &count), kOk);
  EXPECT_EQ(count, 4608);
  EXPECT_TRUE(AllZero(out.data(), 4608));
}

TEST(SkipFrame, NoTrimmingAtTheLimitAndSkipAppliedWhateverItsSign) {
  std::vector<uint8_t> d;
  Append(d, ToneFrame(Stereo(), 3));  // points before the stream
  Append(d, ToneFrame(Stereo()));
  DeliveryOptions o;
  o.outputLimitInForce = true;
  o.outputLimit = 100;
  o.skipFirstFrame = true;
  auto h = DeliveryHarness::Open(d, o);
  DecoderState& s = h->State();
  EXPECT_EQ(DeliverFrame(s, 0, nullptr, nullptr), kOk);
  EXPECT_EQ(s.frameOutputBytes, 4608u);
  EXPECT_EQ(s.pcmFill, 4608u);
  EXPECT_EQ(s.engine.reservoirBitPos, static_cast<uint32_t>(-3 * 8)) << "Skip = 0 - 3 - 0 applied";
}


}  // namespace
}  // namespace kxmp3
