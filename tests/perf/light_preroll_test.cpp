// The light pre-roll of a seek: frames of the pre-roll whose output is dropped skip
// their granule work, and nothing after the seek may tell. Each test seeks two
// decoders the same way, one with the light pre-roll and one without, and compares
// every byte read afterwards; the synthesis window calls made during a seek show
// which frames were decoded in full. Streams with de-emphasis in some frames (the
// header bits patched) check the look-ahead that keeps those frames, and the two
// before each, decoded.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "engine/decode_frame.h"
#include "engine/dsp_kernels.h"
#include "engine/frame_header.h"
#include "engine/tables.h"
#include "plugin/kxmp3.h"
#include "support/memory_stream.h"

namespace kxmp3 {
namespace {

std::vector<uint8_t> Fixture(const std::string& name) {
  return kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + name);
}

// Offsets of the frame headers: from the first Layer III header on, frame by frame.
std::vector<size_t> FrameOffsets(const std::vector<uint8_t>& bytes) {
  std::vector<size_t> offsets;
  auto word = [&](size_t i) {
    return (uint32_t{bytes[i]} << 24) | (uint32_t{bytes[i + 1]} << 16) | (uint32_t{bytes[i + 2]} << 8) | bytes[i + 3];
  };
  size_t at = 0;
  while (at + 4 <= bytes.size() && !IsLayer3Header(word(at))) ++at;
  while (at + 4 <= bytes.size() && IsLayer3Header(word(at))) {
    offsets.push_back(at);
    const uint32_t w = word(at);
    const uint32_t version = ((~w >> 20) & 1) + ((~w >> 19) & 1);
    at += kFrameLengthTable[version * 3 + ((w >> 10) & 3)][(w >> 12) & 15] + ((w >> 9) & 1);
  }
  return offsets;
}

// Sets the emphasis bits of the given frames (code 1, 50/15 us).
std::vector<uint8_t> WithEmphasis(std::vector<uint8_t> bytes, const std::vector<uint32_t>& frames) {
  const std::vector<size_t> offsets = FrameOffsets(bytes);
  for (uint32_t f : frames) {
    if (f < offsets.size()) bytes[offsets[f] + 3] = static_cast<uint8_t>((bytes[offsets[f] + 3] & ~3u) | 1u);
  }
  return bytes;
}

Class_KXMP3* Open(const std::vector<uint8_t>& bytes, uint32_t bits = 16, uint32_t flags = 0) {
  Class_ZCOM* object = nullptr;
  if (CreateInstance_KXMP3(&object) != AF_S_OK) return nullptr;
  auto* decoder = dynamic_cast<Class_KXMP3*>(object);
  OpenParams params{};
  params.tag = FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = flags | OPEN_FLAG_STREAM;
  params.source = kxtest::MemoryStream::Make(bytes, u"memory.mp3");
  params.requestedBits = bits;
  if (decoder->Create(&params) != AF_S_OK) {
    decoder->Release();
    return nullptr;
  }
  return decoder;
}

std::vector<uint8_t> Read(Class_KXMP3* decoder, int32_t bytes) {
  std::vector<uint8_t> out(static_cast<size_t>(bytes));
  int32_t written = 0;
  decoder->DecodeToPCMData(out.data(), bytes, &written);
  out.resize(static_cast<size_t>(written));
  return out;
}

// Counts the synthesis windows: one per time slot and channel synthesised (a call of
// a two-channel window counts two).
int gWindowCalls = 0;
const DspKernels* gInner = nullptr;
void CountingWindowInt16(int16_t* out, const double* const* taps) {
  ++gWindowCalls;
  gInner->windowInt16(out, taps);
}
void CountingWindowFloat(double* out, const double* const* taps) {
  ++gWindowCalls;
  gInner->windowFloat(out, taps);
}
void CountingWindowStereoInt16(void* out, const double* const* taps0, const double* const* taps1) {
  gWindowCalls += 2;
  gInner->windowStereoInt16(out, taps0, taps1);
}
void CountingWindowStereoFloat(void* out, const double* const* taps0, const double* const* taps1) {
  gWindowCalls += 2;
  gInner->windowStereoFloat(out, taps0, taps1);
}

class LightPreRollTest : public ::testing::Test {
 protected:
  void SetUp() override {
    InitDecoderTables();
    gInner = &Dsp();
    counting_ = Dsp();
    counting_.windowInt16 = CountingWindowInt16;
    counting_.windowFloat = CountingWindowFloat;
    counting_.windowStereoInt16 = CountingWindowStereoInt16;
    counting_.windowStereoFloat = CountingWindowStereoFloat;
    previous_ = &ReplaceDspKernelsForTesting(counting_);
  }
  void TearDown() override {
    ReplaceDspKernelsForTesting(*previous_);
    EnableLightPreRollForTesting(true);
  }
  DspKernels counting_{};
  const DspKernels* previous_ = nullptr;
};

// Seeks a decoder to the start of frame `target` (no partial frame after it) and
// returns the window calls the seek made.
int SeekToFrameStart(Class_KXMP3* decoder, uint32_t target) {
  const DecoderState& s = decoder->State();
  const uint64_t delay = uint64_t{s.startSkip} * s.info.generic.channels * s.engine.bytesPerSample;
  QWUNION position{};
  position.u = uint64_t{target} * s.pcmBufferSize - delay;
  gWindowCalls = 0;
  EXPECT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_START), AF_S_OK);
  EXPECT_EQ(s.engine.frameCounter, target);
  EXPECT_EQ(s.engine.preRollTarget, 0u) << "the seek clears it";
  return gWindowCalls;
}

TEST_F(LightPreRollTest, OnlyTheLastTwoFramesBeforeTheTargetAreDecoded) {
  const auto bytes = Fixture("m1_44100_joint_vbr_long.mp3");  // stereo, two granules a frame
  Class_KXMP3* light = Open(bytes);
  ASSERT_NE(light, nullptr);
  const int slotsPerFrame = 2 * 2 * 18;
  // Ahead of the index (the frames are scanned first), then back to indexed frames.
  for (uint32_t target : {150u, 90u, 40u, 200u}) {
    EXPECT_EQ(SeekToFrameStart(light, target), 2 * slotsPerFrame) << target;
  }
  // Early targets restart from the first frame: the same rule.
  EXPECT_EQ(SeekToFrameStart(light, 20), 2 * slotsPerFrame);
  // Without the light pre-roll every one of the 32 frames is decoded.
  EnableLightPreRollForTesting(false);
  EXPECT_EQ(SeekToFrameStart(light, 150), 32 * slotsPerFrame);
  light->Release();
}

TEST_F(LightPreRollTest, DeemphasisKeepsItsFramesAndTheTwoBeforeDecoded) {
  // Frame 144 of the stream uses de-emphasis: seeking to frame 150 decodes frames
  // 142 to 144 (the frame and the two before it) and 148, 149 in full.
  const auto bytes = WithEmphasis(Fixture("m1_44100_joint_vbr_long.mp3"), {144});
  Class_KXMP3* decoder = Open(bytes);
  ASSERT_NE(decoder, nullptr);
  EXPECT_EQ(SeekToFrameStart(decoder, 150), 5 * 2 * 2 * 18);
  // Switched off at open, de-emphasis changes nothing.
  Class_KXMP3* off = Open(bytes, 16, OPEN_FLAG_NO_DEEMPHASIS);
  ASSERT_NE(off, nullptr);
  EXPECT_EQ(SeekToFrameStart(off, 150), 2 * 2 * 2 * 18);
  decoder->Release();
  off->Release();
}

// Random seeks with every origin on two decoders, light and full pre-roll, and the
// bytes read after each compared.
void CompareRandomSeeks(const std::vector<uint8_t>& bytes, uint32_t bits, int seeks, uint32_t seed,
                        const std::string& what) {
  Class_KXMP3* light = Open(bytes, bits);
  Class_KXMP3* full = Open(bytes, bits);
  ASSERT_NE(light, nullptr) << what;
  ASSERT_NE(full, nullptr) << what;
  QWUNION total{};
  light->GetCurrentPosition(&total, AF_ORIGIN_END);
  const uint64_t block = uint64_t{light->State().info.generic.channels} * light->State().engine.bytesPerSample;
  std::mt19937 gen(seed);
  for (int i = 0; i < seeks; ++i) {
    QWUNION position{};
    position.u = std::uniform_int_distribution<uint64_t>(0, total.u / block - 1)(gen) * block;
    const uint32_t origin = i % 2 == 0 ? AF_ORIGIN_START : AF_ORIGIN_END;
    if (origin == AF_ORIGIN_END) position.u = total.u - position.u;
    EnableLightPreRollForTesting(true);
    const KxResult a = light->SetCurrentPosition(position, origin);
    const auto got = Read(light, 9000);
    EnableLightPreRollForTesting(false);
    const KxResult b = full->SetCurrentPosition(position, origin);
    const auto want = Read(full, 9000);
    ASSERT_EQ(a, b) << what << " seek " << i;
    ASSERT_EQ(got, want) << what << " seek " << i << " to " << position.u;
  }
  EnableLightPreRollForTesting(true);
  light->Release();
  full->Release();
}

TEST_F(LightPreRollTest, RandomSeeksReadTheSameBytesAsAFullPreRoll) {
  CompareRandomSeeks(Fixture("m1_44100_joint_vbr_long.mp3"), 16, 60, 1, "MPEG-1 VBR");
  CompareRandomSeeks(Fixture("m1_44100_joint_vbr_long.mp3"), 64, 30, 2, "MPEG-1 VBR, float");
  CompareRandomSeeks(Fixture("m1_32000_joint_cbr_long.mp3"), 16, 40, 3, "MPEG-1 CBR");
  // One granule a frame: the last two frames before the target hold the two
  // granules the target frame starts from.
  CompareRandomSeeks(Fixture("m25_8000_noheader_long.mp3"), 16, 40, 4, "MPEG-2.5 mono");
}

TEST_F(LightPreRollTest, RandomSeeksWithDeemphasisInSomeFrames) {
  // De-emphasis switched on and off along the stream: runs, single frames, frames
  // close together.
  std::vector<uint32_t> frames;
  for (uint32_t f = 60; f < 75; ++f) frames.push_back(f);
  for (uint32_t f : {100u, 104u, 107u, 130u, 131u, 160u, 162u, 200u}) frames.push_back(f);
  const auto mpeg1 = WithEmphasis(Fixture("m1_44100_joint_vbr_long.mp3"), frames);
  CompareRandomSeeks(mpeg1, 16, 80, 5, "MPEG-1 with de-emphasis");
  CompareRandomSeeks(mpeg1, 64, 30, 6, "MPEG-1 with de-emphasis, float");
  const auto mpeg25 = WithEmphasis(Fixture("m25_8000_noheader_long.mp3"), frames);
  CompareRandomSeeks(mpeg25, 16, 60, 7, "MPEG-2.5 with de-emphasis");
}

}  // namespace
}  // namespace kxmp3
