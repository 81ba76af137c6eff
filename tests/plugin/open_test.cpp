// The open sequence: parameter checks, both stream sources and the release of the
// stream on every failure, the output format choice, the information-only open,
// de-emphasis set-up, the decoding buffers and the output limit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "decoder_fixture.h"
#include "plugin/open_steps.h"

namespace {

using namespace kxtest;

TEST(OpenSequence, CreateTwiceIsRefused) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  EXPECT_EQ(decoder->IsCreated(), 1u);
  MemoryStream* stream = MemoryStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
  OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
  EXPECT_EQ(decoder->Create(&p), AF_E_ALREADY_CREATED);
  // Refused before the sequence runs: the caller keeps its stream.
  EXPECT_EQ(stream->GetRefCount(), 1u);
  stream->Release();
  decoder->Release();
}

TEST(OpenSequence, BothParameterTagsAreAccepted) {
  for (uint32_t tag : {FOURCC_ZAFC, FOURCC_ZMP3}) {
    Class_KXMP3* decoder = NewDecoder();
    MemoryStream* stream = MemoryStream::Make(Fixture("m2_22050_dual_cbr.mp3"));
    OpenParams p = MakeParams(OPEN_FLAG_STREAM | OPEN_FLAG_INFO_ONLY, stream, 16, tag);
    EXPECT_EQ(decoder->Create(&p), AF_S_OK);
    decoder->Release();
  }
}

TEST(OpenSequence, StreamHandedInIsTakenOver) {
  const int64_t live = ZCoreLiveBlocks();
  Class_KXMP3* decoder = NewDecoder();
  MemoryStream* stream = MemoryStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
  stream->AddRef();  // our own reference, to watch the object's
  OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
  ASSERT_EQ(decoder->Create(&p), AF_S_OK);
  EXPECT_EQ(decoder->State().stream, stream);
  EXPECT_EQ(decoder->State().openFlags & (OPEN_FLAG_STREAM | OPEN_FLAG_OWN_STREAM), OPEN_FLAG_STREAM);
  EXPECT_EQ(stream->GetRefCount(), 2u);
  decoder->Release();
  EXPECT_EQ(stream->GetRefCount(), 1u);
  stream->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(OpenSequence, StreamMadeFromAPath) {
  const int64_t live = ZCoreLiveBlocks();
  Class_KXMP3* decoder = NewDecoder();
  const std::string path = FixturePath("m1_44100_joint_cbr.mp3");
  const std::u16string wide(path.begin(), path.end());
  OpenParams p = MakeParams(OPEN_FLAG_INFO_ONLY, const_cast<char16_t*>(wide.c_str()));
  ASSERT_EQ(decoder->Create(&p), AF_S_OK);
  EXPECT_NE(decoder->State().stream, nullptr);
  EXPECT_EQ(decoder->State().openFlags & (OPEN_FLAG_STREAM | OPEN_FLAG_OWN_STREAM), OPEN_FLAG_OWN_STREAM);
  // The stream's name lands in the information record.
  EXPECT_EQ(std::u16string(decoder->State().info.generic.name), wide);
  decoder->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(OpenSequence, AMissingFileGivesTheStreamsCodeAndLeavesNothing) {
  const int64_t live = ZCoreLiveBlocks();
  Class_KXMP3* decoder = NewDecoder();
  const std::u16string path = u"/nonexistent/folder/song.mp3";
  OpenParams p = MakeParams(0, const_cast<char16_t*>(path.c_str()));
  const KxResult rc = decoder->Create(&p);
  EXPECT_EQ(rc, ZS_E_NOT_FOUND);
  EXPECT_EQ(decoder->IsCreated(), 0u);
  EXPECT_EQ(decoder->State().stream, nullptr);
  decoder->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(OpenSequence, ANullStreamIsRefused) {
  Class_KXMP3* decoder = NewDecoder();
  OpenParams p = MakeParams(OPEN_FLAG_STREAM, nullptr);
  EXPECT_EQ(decoder->Create(&p), AF_E_POINTER);
  EXPECT_EQ(decoder->IsCreated(), 0u);
  decoder->Release();
}

TEST(OpenSequence, DetectionFailureReleasesTheHandedInStream) {
  Class_KXMP3* decoder = NewDecoder();
  MemoryStream* stream = MemoryStream::Make(std::vector<uint8_t>(3000, 0x41), u"text.mp3");
  stream->AddRef();
  OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
  const KxResult rc = decoder->Create(&p);
  EXPECT_EQ(rc, AF_E_NO_SYNC);
  EXPECT_EQ(decoder->IsCreated(), 0u);
  EXPECT_EQ(stream->GetRefCount(), 1u);  // the object gave back the reference it was handed
  EXPECT_EQ(decoder->State().stream, nullptr);
  // Every later call answers "not ready".
  uint32_t size = 0;
  EXPECT_EQ(decoder->GetInfo(FOURCC_ZMP3, nullptr, &size), AF_E_NOT_READY);
  stream->Release();
  decoder->Release();
}

TEST(OpenSequence, StreamFailuresArePassedOnUnchanged) {
  // A read failure inside detection.
  {
    Class_KXMP3* decoder = NewDecoder();
    MemoryStream* stream = MemoryStream::Make(Fixture("m1_44100_joint_cbr.mp3"), u"plain");
    stream->AddRef();
    stream->FailFromCall(1);
    OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
    const KxResult rc = decoder->Create(&p);
    EXPECT_NE(rc, AF_S_OK);
    EXPECT_EQ(decoder->IsCreated(), 0u);
    EXPECT_EQ(stream->GetRefCount(), 1u);
    stream->Release();
    decoder->Release();
  }
  // The bounds.
  {
    Class_KXMP3* decoder = NewDecoder();
    ForwardingStream* stream = ForwardingStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
    stream->failBounds = ZS_E_INVALID_ARG;
    stream->AddRef();
    OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
    EXPECT_EQ(decoder->Create(&p), ZS_E_INVALID_ARG);
    EXPECT_EQ(decoder->IsCreated(), 0u);
    EXPECT_EQ(stream->GetRefCount(), 1u);
    stream->Release();
    decoder->Release();
  }
  // The seek to the start of the bounds.
  {
    Class_KXMP3* decoder = NewDecoder();
    ForwardingStream* stream = ForwardingStream::Make(Fixture("m1_44100_joint_cbr.mp3"));
    stream->failSeekAfterBounds = ZS_E_SEEK;
    stream->AddRef();
    OpenParams p = MakeParams(OPEN_FLAG_STREAM, stream);
    EXPECT_EQ(decoder->Create(&p), ZS_E_SEEK);
    EXPECT_EQ(decoder->IsCreated(), 0u);
    EXPECT_EQ(stream->GetRefCount(), 1u);
    stream->Release();
    decoder->Release();
  }
}

TEST(OpenSequence, RequestedBitsChooseTheOutputFormat) {
  uint64_t total16 = 0;
  for (uint32_t bits : {0u, 16u}) {
    Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY, bits);
    ASSERT_NE(decoder, nullptr) << bits;
    const kxmp3::DecoderState& s = decoder->State();
    EXPECT_EQ(s.engine.bytesPerSample, 2u);
    EXPECT_EQ(s.info.generic.bitsPerSample, 16u);
    EXPECT_EQ(s.info.generic.formatFlags & AFI_FLAG_FLOAT, 0u);
    total16 = s.info.generic.totalPcmBytes;
    decoder->Release();
  }
  ASSERT_GT(total16, 0u);
  for (uint32_t bits : {24u, 32u, 64u, 8u}) {
    Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY, bits);
    ASSERT_NE(decoder, nullptr) << bits;
    const kxmp3::DecoderState& s = decoder->State();
    EXPECT_EQ(s.engine.bytesPerSample, 8u);
    EXPECT_EQ(s.info.generic.bitsPerSample, 64u);
    EXPECT_EQ(s.info.generic.formatFlags & AFI_FLAG_FLOAT, AFI_FLAG_FLOAT);
    EXPECT_EQ(s.info.generic.totalPcmBytes, 4 * total16);
    decoder->Release();
  }
}

TEST(OpenSequence, InformationOnlyOpenHasNoBuffers) {
  const int64_t live = ZCoreLiveBlocks();
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  EXPECT_NE(s.openFlags & OPEN_FLAG_INFO_ONLY, 0u);
  EXPECT_EQ(s.pcmBuffer, nullptr);
  EXPECT_EQ(s.engine.workBlockRaw, nullptr);
  EXPECT_EQ(s.engine.reservoir, nullptr);
  EXPECT_EQ(s.engine.frameIndex, nullptr);
  EXPECT_EQ(s.pcmBufferSize, 0u);
  EXPECT_NE(s.stream, nullptr);
  // Information is there; decoding is not.
  kxmp3::MP3Info info{};
  uint32_t size = sizeof(info);
  EXPECT_EQ(decoder->GetInfo(FOURCC_ZMP3, &info, &size), AF_S_OK);
  EXPECT_EQ(info.generic.sampleRate, 44100u);
  uint8_t pcm[4608];
  int32_t written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(pcm, sizeof(pcm), &written), AF_E_NOT_READY);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(decoder->Rewind(), AF_E_NOT_READY);
  decoder->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(OpenSequence, LayoutResultsAreKept) {
  Class_KXMP3* decoder = OpenFixture("id3v2.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  EXPECT_EQ(s.containerType, 4u);
  EXPECT_EQ(s.info.containerType, 4u);
  EXPECT_EQ(s.audioStart, 340u);
  EXPECT_EQ(s.audioLength, 4805u);
  EXPECT_EQ(s.mpegVersion, 2u);
  EXPECT_EQ(s.frameCount, s.info.frameCount);
  EXPECT_EQ(s.startSkip, s.info.startSkip);
  EXPECT_GT(s.startSkip, 0u);
  // The stream now shows only the audio data, from its start.
  int64_t size = 0;
  int64_t pos = -1;
  ASSERT_EQ(s.stream->GetSize(&size), AF_S_OK);
  ASSERT_EQ(s.stream->GetPosition(&pos), AF_S_OK);
  EXPECT_EQ(size, 4805);
  EXPECT_EQ(pos, 0);
  decoder->Release();
}

TEST(OpenSequence, ReplayGainRecordIsResetForABareStream) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  const kxmp3::ReplayGainRecord& rg = decoder->State().replayGain;
  EXPECT_EQ(rg.fourcc, FOURCC_RPGI);
  EXPECT_EQ(rg.size, 44u);
  EXPECT_EQ(rg.flags, 0u);
  EXPECT_EQ(double{rg.trackGain}, 0.0);
  EXPECT_EQ(double{rg.albumPeak}, 0.0);
  decoder->Release();
}

TEST(OpenSequence, BuffersFollowTheFormat) {
  struct Case {
    const char* fixture;
    uint32_t bits;
    uint32_t granuleBytes;
    uint32_t frameBytes;
  };
  const Case cases[] = {
      {"m1_44100_joint_cbr.mp3", 16, 576 * 2 * 2, 2 * 576 * 2 * 2},
      {"m1_44100_joint_cbr.mp3", 32, 576 * 2 * 8, 2 * 576 * 2 * 8},
      {"m1_32000_mono_abr.mp3", 16, 576 * 1 * 2, 2 * 576 * 1 * 2},
      {"m2_16000_mono_cbr.mp3", 16, 576 * 1 * 2, 576 * 1 * 2},
      {"m25_11025_stereo_cbr.mp3", 64, 576 * 2 * 8, 576 * 2 * 8},
  };
  for (const Case& c : cases) {
    Class_KXMP3* decoder = OpenFixture(c.fixture, 0, c.bits);
    ASSERT_NE(decoder, nullptr) << c.fixture;
    const kxmp3::DecoderState& s = decoder->State();
    EXPECT_EQ(s.engine.granuleBytes, c.granuleBytes) << c.fixture;
    EXPECT_EQ(s.pcmBufferSize, c.frameBytes) << c.fixture;
    EXPECT_NE(s.pcmBuffer, nullptr);
    ASSERT_NE(s.engine.workBlockRaw, nullptr);
    const auto raw = reinterpret_cast<uintptr_t>(s.engine.workBlockRaw);
    const auto aligned = reinterpret_cast<uintptr_t>(s.engine.workBlock);
    EXPECT_EQ(aligned % 16, 0u);
    EXPECT_GE(aligned - raw, 1u);
    EXPECT_LE(aligned - raw, 16u);
    EXPECT_EQ(s.engine.workBlockHigh, s.engine.workBlock + kxmp3::kSynthesisAreaBytes);
    EXPECT_NE(s.engine.reservoir, nullptr);
    EXPECT_EQ(s.engine.frameIndexCapacity, s.frameCount + 16);
    EXPECT_NE(s.engine.frameIndex, nullptr);
    decoder->Release();
  }
}

TEST(OpenSequence, WorkBlockAlignmentAlwaysMoves) {
  alignas(16) uint8_t block[64];
  EXPECT_EQ(kxmp3::AlignWorkBlock(block), block + 16);
  EXPECT_EQ(kxmp3::AlignWorkBlock(block + 1), block + 16);
  EXPECT_EQ(kxmp3::AlignWorkBlock(block + 15), block + 16);
  EXPECT_EQ(kxmp3::AlignWorkBlock(block + 16), block + 32);
}

TEST(OpenSequence, NoEncoderDelayMeansNothingBuffered) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_noheader_short.mp3");
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  ASSERT_EQ(s.startSkip, 0u);
  EXPECT_EQ(s.pcmReadPos, s.pcmBufferSize);
  EXPECT_EQ(s.pcmFill, 0u);
  EXPECT_EQ(s.engine.frameCounter, 0u);
  EXPECT_EQ(s.pcmTotalBytes, s.info.generic.totalPcmBytes);
  // Nothing was decoded, so the first index entry still holds its marker.
  EXPECT_EQ(s.engine.frameIndex[0].offset, ~uint64_t{0});
  decoder->Release();
}

TEST(OpenSequence, OutputLimitIncludesTheStartSkip) {
  for (uint32_t bits : {16u, 64u}) {
    Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", 0, bits);
    ASSERT_NE(decoder, nullptr);
    const kxmp3::DecoderState& s = decoder->State();
    ASSERT_GT(s.startSkip, 0u);
    const uint64_t skip = uint64_t{s.startSkip} * s.info.generic.channels * s.engine.bytesPerSample;
    EXPECT_EQ(s.pcmTotalBytes, s.info.generic.totalPcmBytes + skip);
    decoder->Release();
  }
}

TEST(OpenSequence, DeemphasisCoefficientsFromTheSampleRate) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_emph5015.mp3");
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  EXPECT_EQ(s.openFlags & OPEN_FLAG_NO_DEEMPHASIS, 0u);
  // 50/15 us: t = tan(10000 / fs), a = (1 - t) / (1 + t), b0 = 0.3 + 0.7 t / (1 + t),
  // b1 = 0.7 t / (1 + t) - 0.3 a; for 44.1 kHz about 0.43123, -0.05629, 0.62506.
  const double t = std::tan(10000.0 / 44100.0);
  const double a = (1 - t) / (1 + t);
  EXPECT_NEAR(s.engine.deemphasis[1].a, a, 1e-12);
  EXPECT_NEAR(s.engine.deemphasis[1].b0, 0.3 + 0.7 * t / (1 + t), 1e-12);
  EXPECT_NEAR(s.engine.deemphasis[1].b1, 0.7 * t / (1 + t) - 0.3 * a, 1e-12);
  EXPECT_NEAR(s.engine.deemphasis[1].b0, 0.43123, 1e-5);
  EXPECT_NEAR(s.engine.deemphasis[1].b1, -0.05629, 1e-5);
  EXPECT_NEAR(s.engine.deemphasis[1].a, 0.62506, 1e-5);
  decoder->Release();
}

TEST(OpenSequence, DecodesAheadOverTheStartSkip) {
  for (uint32_t bits : {16u, 64u}) {
    Class_KXMP3* decoder = OpenFixture("m2_22050_dual_cbr.mp3", 0, bits);
    ASSERT_NE(decoder, nullptr);
    const kxmp3::DecoderState& s = decoder->State();
    const uint64_t skip = uint64_t{s.startSkip} * 2 * s.engine.bytesPerSample;
    ASSERT_GT(skip, 0u);
    // Whole frames were decoded into the frame buffer until the skip was used up;
    // what is left of the last one is the first real audio.
    const uint64_t frames = (skip + s.pcmBufferSize - 1) / s.pcmBufferSize;
    EXPECT_EQ(s.engine.frameCounter, frames);
    EXPECT_EQ(s.pcmFill, s.pcmBufferSize);
    EXPECT_EQ(s.pcmReadPos, skip - (frames - 1) * s.pcmBufferSize);
    EXPECT_EQ(s.endOfData, 0u);
    decoder->Release();
  }
}

TEST(OpenSequence, DeemphasisCanBeSwitchedOff) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_emph5015.mp3", OPEN_FLAG_NO_DEEMPHASIS);
  ASSERT_NE(decoder, nullptr);
  const kxmp3::DecoderState& s = decoder->State();
  EXPECT_NE(s.openFlags & OPEN_FLAG_NO_DEEMPHASIS, 0u);
  EXPECT_EQ(s.engine.deemphasis[1].b0, 0.0);
  EXPECT_EQ(s.engine.deemphasis[1].a, 0.0);
  decoder->Release();
}

}  // namespace
