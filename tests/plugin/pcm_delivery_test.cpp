// PCM delivery: any request size gives the same bytes, frames go straight into the
// caller's buffer when they fit and through the frame buffer when not, the end is
// reported once everything was delivered, damaged frames and decoder failures
// reach the caller with the bytes written so far, and Rewind starts again.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "decoder_fixture.h"

namespace {

using namespace kxtest;

// Whole-stream decode with one request size.
std::vector<uint8_t> DecodeWith(const std::string& fixture, const std::vector<int32_t>& sizes, uint32_t bits = 16) {
  Class_KXMP3* decoder = OpenFixture(fixture, 0, bits);
  EXPECT_NE(decoder, nullptr);
  if (decoder == nullptr) return {};
  KxResult failure = AF_S_OK;
  std::vector<uint8_t> out = ReadAll(decoder, sizes, &failure);
  EXPECT_EQ(failure, AF_S_OK);
  decoder->Release();
  return out;
}

// Byte offsets of the first `count` frames of an MPEG-1 Layer III stream at 44.1 kHz
// and 128 kbit/s (417 bytes plus the padding byte).
std::vector<size_t> FrameOffsets128k(const std::vector<uint8_t>& data, size_t count) {
  std::vector<size_t> offsets;
  size_t pos = 0;
  while (offsets.size() < count && pos + 4 <= data.size()) {
    offsets.push_back(pos);
    pos += 417 + ((data[pos + 2] >> 1) & 1);
  }
  return offsets;
}

Class_KXMP3* OpenBytes(std::vector<uint8_t> bytes, uint32_t bits = 16) {
  Class_KXMP3* decoder = NewDecoder();
  MemoryStream* stream = MemoryStream::Make(std::move(bytes), u"damaged.mp3");
  OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream, bits);
  const KxResult rc = decoder->Create(&p);
  EXPECT_EQ(rc, AF_S_OK);
  if (rc != AF_S_OK) {
    decoder->Release();
    return nullptr;
  }
  return decoder;
}

TEST(PcmDelivery, EveryRequestSizeGivesTheSameBytes) {
  for (const char* fixture : {"m1_44100_joint_cbr.mp3", "m2_22050_dual_cbr.mp3", "m25_12000_mono_vbr.mp3"}) {
    const std::vector<uint8_t> reference = DecodeWith(fixture, {100000});
    ASSERT_GT(reference.size(), 0u) << fixture;
    for (int32_t size : {1, 3, 4607, 4608, 4609}) {
      const std::vector<uint8_t> out = DecodeWith(fixture, {size});
      EXPECT_EQ(out.size(), reference.size()) << fixture << " size " << size;
      EXPECT_TRUE(out == reference) << fixture << " size " << size;
    }
    std::mt19937 random(12345);
    std::vector<int32_t> mix;
    for (int i = 0; i < 200; ++i) mix.push_back(1 + static_cast<int32_t>(random() % 12000));
    const std::vector<uint8_t> mixed = DecodeWith(fixture, mix);
    EXPECT_TRUE(mixed == reference) << fixture << " random mix";
  }
}

TEST(PcmDelivery, ExactLengthForStreamsWithAnEncoderTag) {
  // The manifest's sample counts: 44100 stereo samples, 11025 stereo, 12000 mono.
  EXPECT_EQ(DecodeWith("m1_44100_joint_cbr.mp3", {65536}).size(), 44100u * 2 * 2);
  EXPECT_EQ(DecodeWith("m2_22050_dual_cbr.mp3", {65536}).size(), 11025u * 2 * 2);
  EXPECT_EQ(DecodeWith("m25_12000_mono_vbr.mp3", {65536}).size(), 12000u * 1 * 2);
  EXPECT_EQ(DecodeWith("m1_44100_joint_cbr.mp3", {65536}, 64).size(), 44100u * 2 * 8);
}

TEST(PcmDelivery, FloatOutputMatchesTheIntegerOutput) {
  const std::vector<uint8_t> pcm16 = DecodeWith("m1_48000_stereo_vbr.mp3", {50000});
  const std::vector<uint8_t> pcm64 = DecodeWith("m1_48000_stereo_vbr.mp3", {50000}, 64);
  ASSERT_EQ(pcm64.size(), 4 * pcm16.size());
  size_t differing = 0;
  for (size_t i = 0; i < pcm16.size() / 2; ++i) {
    int16_t s16;
    double s64;
    std::memcpy(&s16, pcm16.data() + 2 * i, 2);
    std::memcpy(&s64, pcm64.data() + 8 * i, 8);
    const double scaled = s64 * 32768.0;
    ASSERT_LE(std::abs(scaled - s16), 1.0 + 1e-9) << "sample " << i;
    differing += static_cast<int16_t>(std::lrint(std::max(-32768.0, std::min(32767.0, scaled)))) != s16;
  }
  EXPECT_EQ(differing, 0u);
}

TEST(PcmDelivery, SmallRequestsGoThroughTheFrameBuffer) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_noheader_short.mp3");
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  ASSERT_EQ(s.pcmFill, 0u);
  uint8_t buffer[8];
  int32_t written = -1;
  ASSERT_EQ(decoder->DecodeToPCMData(buffer, 3, &written), AF_S_OK);
  EXPECT_EQ(written, 3);
  EXPECT_EQ(s.pcmFill, s.pcmBufferSize);
  EXPECT_EQ(s.pcmReadPos, 3u);
  EXPECT_EQ(s.engine.frameCounter, 1u);
  EXPECT_EQ(std::memcmp(buffer, s.pcmBuffer, 3), 0);
  decoder->Release();
}

TEST(PcmDelivery, WholeFramesGoStraightIntoTheCallersBuffer) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_noheader_short.mp3");
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  ASSERT_EQ(s.pcmBufferSize, 4608u);
  std::vector<uint8_t> buffer(3 * 4608);
  int32_t written = -1;
  ASSERT_EQ(decoder->DecodeToPCMData(buffer.data(), 3 * 4608, &written), AF_S_OK);
  EXPECT_EQ(written, 3 * 4608);
  EXPECT_EQ(s.engine.frameCounter, 3u);
  // The frame buffer was never used.
  EXPECT_EQ(s.pcmFill, 0u);
  EXPECT_EQ(s.pcmReadPos, s.pcmBufferSize);
  // Two and a half frames: two straight in, the half through the frame buffer.
  ASSERT_EQ(decoder->DecodeToPCMData(buffer.data(), 2 * 4608 + 2304, &written), AF_S_OK);
  EXPECT_EQ(written, 2 * 4608 + 2304);
  EXPECT_EQ(s.engine.frameCounter, 6u);
  EXPECT_EQ(s.pcmFill, 4608u);
  EXPECT_EQ(s.pcmReadPos, 2304u);
  decoder->Release();
}

TEST(PcmDelivery, EndOfDataAfterTheLastByte) {
  Class_KXMP3* decoder = OpenFixture("m2_22050_dual_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  const uint32_t total = 11025 * 2 * 2;
  std::vector<uint8_t> buffer(total + 10000);
  int32_t written = -1;
  // Exactly what is left: the call succeeds with everything.
  uint32_t got = 0;
  while (got < total) {
    const int32_t want = static_cast<int32_t>(std::min<uint32_t>(total - got, 5000));
    ASSERT_EQ(decoder->DecodeToPCMData(buffer.data(), want, &written), AF_S_OK) << got;
    ASSERT_EQ(written, want);
    got += static_cast<uint32_t>(written);
  }
  // The next call: end of data, nothing written; and again.
  written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(buffer.data(), 4096, &written), AF_S_END_OF_DATA);
  EXPECT_EQ(written, 0);
  written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(buffer.data(), 1, &written), AF_S_END_OF_DATA);
  EXPECT_EQ(written, 0);
  decoder->Release();
}

TEST(PcmDelivery, EndOfDataWithAPartialLastCall) {
  Class_KXMP3* decoder = OpenFixture("m2_22050_dual_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  const int32_t total = 11025 * 2 * 2;
  std::vector<uint8_t> buffer(static_cast<size_t>(total) + 10000);
  int32_t written = -1;
  const KxResult rc = decoder->DecodeToPCMData(buffer.data(), total + 10000, &written);
  // Fewer bytes than asked: the whole stream, then end of data (in this call or the next).
  EXPECT_EQ(written, total);
  if (rc == AF_S_OK) {
    EXPECT_EQ(decoder->DecodeToPCMData(buffer.data(), 100, &written), AF_S_END_OF_DATA);
    EXPECT_EQ(written, 0);
  } else {
    EXPECT_EQ(rc, AF_S_END_OF_DATA);
  }
  decoder->Release();
}

TEST(PcmDelivery, BadArguments) {
  Class_KXMP3* decoder = OpenFixture("m2_22050_dual_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  const uint32_t framesBefore = decoder->State().engine.frameCounter;
  const uint32_t readPosBefore = decoder->State().pcmReadPos;
  int32_t written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(nullptr, 100, &written), AF_E_POINTER);
  EXPECT_EQ(written, 0);
  uint8_t buffer[4];
  written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(buffer, 0, &written), AF_S_OK);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(decoder->DecodeToPCMData(buffer, -5, &written), AF_S_OK);
  EXPECT_EQ(written, 0);
  // Nothing was consumed.
  EXPECT_EQ(decoder->State().engine.frameCounter, framesBefore);
  EXPECT_EQ(decoder->State().pcmReadPos, readPosBefore);
  decoder->Release();
}

TEST(PcmDelivery, ConcealedFramesAreReportedWithTheirData) {
  std::vector<uint8_t> bytes = Fixture("m1_44100_joint_cbr.mp3");
  const std::vector<size_t> offsets = FrameOffsets128k(bytes, 12);
  ASSERT_EQ(offsets.size(), 12u);
  // Junk between frames 10 and 11: the decoder loses sync and finds it again.
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(offsets[11]), 100, 0x00);
  Class_KXMP3* decoder = OpenBytes(bytes);
  ASSERT_NE(decoder, nullptr);
  std::vector<uint8_t> buffer(4608 * 4);
  int frameErrors = 0;
  uint64_t total = 0;
  for (;;) {
    int32_t written = -1;
    const KxResult rc = decoder->DecodeToPCMData(buffer.data(), static_cast<int32_t>(buffer.size()), &written);
    ASSERT_GE(written, 0);
    total += static_cast<uint32_t>(written);
    if (rc == AF_S_END_OF_DATA) break;
    ASSERT_TRUE(rc == AF_S_OK || rc == AF_S_FRAME_ERROR) << std::hex << rc;
    if (rc == AF_S_FRAME_ERROR) {
      ++frameErrors;
      EXPECT_EQ(written, static_cast<int32_t>(buffer.size()));  // the data came with the signal
    }
  }
  EXPECT_GE(frameErrors, 1);
  EXPECT_GE(decoder->State().engine.errorCount, 1u);
  EXPECT_EQ(total, 44100u * 2 * 2);
  decoder->Release();
}

TEST(PcmDelivery, DecoderFailuresArePassedOnWithTheBytesSoFar) {
  std::vector<uint8_t> bytes = Fixture("m1_44100_joint_cbr.mp3");
  const std::vector<size_t> offsets = FrameOffsets128k(bytes, 12);
  ASSERT_EQ(offsets.size(), 12u);
  // More junk than the resync search tries: the header reader gives up.
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(offsets[11]), 9000, 0x00);
  Class_KXMP3* decoder = OpenBytes(bytes);
  ASSERT_NE(decoder, nullptr);
  std::vector<uint8_t> buffer(4608 * 40);
  int32_t written = -1;
  const KxResult rc = decoder->DecodeToPCMData(buffer.data(), static_cast<int32_t>(buffer.size()), &written);
  EXPECT_EQ(rc, AF_E_BAD_FORMAT);
  // Eleven frames were delivered before the failure, less the start skip.
  const uint64_t skip = uint64_t{decoder->State().startSkip} * 2 * 2;
  EXPECT_EQ(static_cast<uint64_t>(written), 11u * 4608 - skip);
  decoder->Release();
}

// The same failure met by a request smaller than a frame, which decodes through
// the frame buffer: that step's result is not passed on. The call answers with
// what it has (fewer bytes than asked, with success), the next calls go on past
// the junk, and the whole stream arrives with the concealment signalled.
TEST(PcmDelivery, FrameBufferStepIgnoresResultsOtherThanConcealmentAndEnd) {
  std::vector<uint8_t> bytes = Fixture("m1_44100_joint_cbr.mp3");
  const std::vector<size_t> offsets = FrameOffsets128k(bytes, 12);
  ASSERT_EQ(offsets.size(), 12u);
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(offsets[11]), 9000, 0x00);
  Class_KXMP3* decoder = OpenBytes(bytes);
  ASSERT_NE(decoder, nullptr);
  std::vector<uint8_t> buffer(1000);
  uint64_t total = 0;
  int shortCalls = 0;
  int concealed = 0;
  for (int call = 0; call < 100000; ++call) {
    int32_t written = -1;
    const KxResult rc = decoder->DecodeToPCMData(buffer.data(), 1000, &written);
    ASSERT_GE(written, 0);
    total += static_cast<uint32_t>(written);
    if (rc == AF_S_END_OF_DATA) break;
    ASSERT_TRUE(rc == AF_S_OK || rc == AF_S_FRAME_ERROR) << std::hex << rc;
    if (rc == AF_S_OK && written < 1000) ++shortCalls;
    if (rc == AF_S_FRAME_ERROR) ++concealed;
  }
  EXPECT_EQ(total, 44100u * 2 * 2);
  EXPECT_EQ(shortCalls, 1);  // the call whose step gave up the search
  EXPECT_GE(concealed, 1);   // the frame found again after the junk
  decoder->Release();
}

// A request of 0 bytes: success while data remains, the end of the data once
// everything has been delivered.
TEST(PcmDelivery, ZeroByteRequestAfterTheEndAnswersEndOfData) {
  Class_KXMP3* decoder = OpenFixture("m2_22050_dual_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  uint8_t buffer[16];
  int32_t written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(buffer, 0, &written), AF_S_OK);
  EXPECT_EQ(written, 0);
  KxResult failure = AF_S_OK;
  const auto all = ReadAll(decoder, {3000}, &failure);
  ASSERT_EQ(failure, AF_S_OK);
  EXPECT_EQ(all.size(), 11025u * 2 * 2);
  written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(buffer, 0, &written), AF_S_END_OF_DATA);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(decoder->DecodeToPCMData(nullptr, 0, &written), AF_S_END_OF_DATA);
  decoder->Release();
}

TEST(PcmDelivery, RewindStartsAgainWithCumulativeGrowth) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  kxmp3::DecoderState& s = decoder->State();
  const uint64_t skip = uint64_t{s.startSkip} * 2 * 2;
  ASSERT_GT(skip, 0u);
  const uint64_t limitAfterOpen = s.pcmTotalBytes;
  const std::vector<uint8_t> first = ReadAll(decoder, {7000});
  ASSERT_EQ(first.size(), 44100u * 2 * 2);

  ASSERT_EQ(decoder->Rewind(), AF_S_OK);
  EXPECT_EQ(s.pcmTotalBytes, limitAfterOpen + skip);
  EXPECT_EQ(s.endOfData, 0u);
  const std::vector<uint8_t> second = ReadAll(decoder, {4608});
  ASSERT_GE(second.size(), first.size());
  EXPECT_TRUE(std::equal(first.begin(), first.end(), second.begin()));

  // Half-way through, then rewind again: the growth adds up.
  uint8_t buffer[1000];
  int32_t written = 0;
  ASSERT_EQ(decoder->Rewind(), AF_S_OK);
  ASSERT_EQ(decoder->DecodeToPCMData(buffer, sizeof(buffer), &written), AF_S_OK);
  ASSERT_EQ(decoder->Rewind(), AF_S_OK);
  EXPECT_EQ(s.pcmTotalBytes, limitAfterOpen + 3 * skip);
  const std::vector<uint8_t> third = ReadAll(decoder, {100000});
  ASSERT_GE(third.size(), first.size());
  EXPECT_TRUE(std::equal(first.begin(), first.end(), third.begin()));
  decoder->Release();
}

TEST(PcmDelivery, TwoRewindsGrowTheLimitByTwoSkips) {
  Class_KXMP3* decoder = OpenFixture("m25_8000_joint_abr.mp3");
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  const uint64_t skip = uint64_t{s.startSkip} * s.info.generic.channels * s.engine.bytesPerSample;
  ASSERT_GT(skip, 0u);
  const uint64_t afterOpen = s.pcmTotalBytes;
  ASSERT_EQ(decoder->Rewind(), AF_S_OK);
  ASSERT_EQ(decoder->Rewind(), AF_S_OK);
  EXPECT_EQ(s.pcmTotalBytes, afterOpen + 2 * skip);
  decoder->Release();
}

TEST(PcmDelivery, RewindWithoutDelayLeavesTheFrameBufferEmpty) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_noheader_short.mp3");
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  const std::vector<uint8_t> first = ReadAll(decoder, {3333});
  ASSERT_EQ(decoder->Rewind(), AF_S_OK);
  EXPECT_EQ(s.pcmReadPos, s.pcmBufferSize);
  EXPECT_EQ(s.pcmFill, 0u);
  EXPECT_EQ(s.engine.frameCounter, 0u);
  EXPECT_EQ(s.endOfData, 0u);
  EXPECT_EQ(s.pcmTotalBytes, s.info.generic.totalPcmBytes);
  EXPECT_TRUE(ReadAll(decoder, {3333}) == first);
  decoder->Release();
}

TEST(PcmDelivery, RewindPassesOnASeekFailure) {
  ForwardingStream* stream = ForwardingStream::Make(Fixture("m2_22050_dual_cbr.mp3"));
  Class_KXMP3* decoder = NewDecoder();
  OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
  ASSERT_EQ(decoder->Create(&p), AF_S_OK);
  stream->failSeekAfterBounds = ZS_E_SEEK;
  EXPECT_EQ(decoder->Rewind(), ZS_E_SEEK);
  decoder->Release();
}

}  // namespace
