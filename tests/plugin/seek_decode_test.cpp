// Layout and seeking with the real frame decoder, through the decoder object as a
// host drives it (opened on an in-memory copy of a fixture, de-emphasis off):
// - the gapless length and alignment of lame-made streams against mpg123's output,
// - 200 seeks at random positions with every origin in a VBR and a CBR stream,
//   forward and backward, before and after the index has seen the target: the
//   bytes that follow each seek equal those of one decode from the start,
// - the frame scan's index entries equal the ones the decoder writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>

#include "decoder_fixture.h"
#include "engine/frame_index.h"
#include "layout/seeking.h"
#include "support/layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

// A decoder object opened on a fixture (16-bit output, or 64-bit float with
// `bytesPerSample` 8; no de-emphasis).
class Decoder {
 public:
  explicit Decoder(const std::string& fixture, uint32_t bytesPerSample = 2)
      : decoder_(kxtest::OpenFixture(fixture, OPEN_FLAG_NO_DEEMPHASIS, bytesPerSample == 8 ? 64 : 16)) {}
  ~Decoder() {
    if (decoder_ != nullptr) decoder_->Release();
  }
  bool ok() const { return decoder_ != nullptr; }
  DecoderState& state() { return decoder_->State(); }
  Class_KXMP3* object() { return decoder_; }

  // Reads up to `n` bytes; fewer at the end of the stream.
  Bytes Read(size_t n) {
    Bytes out(n);
    size_t got = 0;
    while (got < n) {
      const int32_t want = static_cast<int32_t>(std::min<size_t>(n - got, 1 << 20));
      int32_t written = 0;
      const KxResult r = decoder_->DecodeToPCMData(out.data() + got, want, &written);
      got += static_cast<size_t>(written);
      if (r != AF_S_OK && r != AF_S_FRAME_ERROR) break;
    }
    out.resize(got);
    return out;
  }
  uint64_t Position() {
    QWUNION p{};
    decoder_->GetCurrentPosition(&p, AF_ORIGIN_START);
    return p.u;
  }
  KxResult Seek(QWUNION position, uint32_t origin) { return decoder_->SetCurrentPosition(position, origin); }

 private:
  Class_KXMP3* decoder_;
};

uint64_t ManifestSamples(const std::string& name) {
  for (const FixtureInfo& f : LoadManifest())
    if (f.name == name) return f.samples * f.channels;
  return 0;
}

TEST(GaplessDecode, LengthAndAlignmentMatchAnotherDecoder) {
  for (const char* name : {"m2_22050_dual_cbr", "m1_48000_stereo_vbr"}) {
    SCOPED_TRACE(name);
    Decoder d(std::string(name) + ".mp3");
    ASSERT_TRUE(d.ok());
    Bytes ours = d.Read(1 << 24);
    Bytes theirs = LoadFixture(std::string(name) + ".mpg123.raw");
    ASSERT_FALSE(theirs.empty());
    // Exactly the encoder's input length.
    EXPECT_EQ(ours.size(), ManifestSamples(std::string(name) + ".mp3") * 2);
    ASSERT_EQ(ours.size(), theirs.size());
    // Sample for sample: two decoders agree to a few LSB; a shift by one sample of
    // these sweeps would differ by hundreds.
    int worst = 0;
    for (size_t i = 0; i + 1 < ours.size(); i += 2) {
      int a = static_cast<int16_t>(ours[i] | (ours[i + 1] << 8));
      int b = static_cast<int16_t>(theirs[i] | (theirs[i + 1] << 8));
      worst = std::max(worst, std::abs(a - b));
    }
    EXPECT_LE(worst, 2);
  }
}

TEST(GaplessDecode, EveryTaggedFixtureDecodesToItsInputLength) {
  for (const FixtureInfo& f : LoadManifest()) {
    if (f.name.find("noheader") != std::string::npos || f.keys.count("container")) continue;
    SCOPED_TRACE(f.name);
    Decoder d(f.name);
    ASSERT_TRUE(d.ok());
    EXPECT_EQ(d.Read(1 << 24).size(), f.samples * f.channels * 2);
  }
}

TEST(GaplessDecode, StreamWithoutHeaderLosesNoFrame) {
  // Counted stream: every frame's output comes out, nothing trimmed.
  Decoder d("m1_44100_noheader_short.mp3");
  ASSERT_TRUE(d.ok());
  EXPECT_EQ(d.Read(1 << 24).size(), uint64_t{d.state().frameCount} * 1152 * 4);
}

void RandomSeeks(const std::string& fixture, int seeks, uint32_t seed, uint32_t bytesPerSample = 2) {
  Decoder whole(fixture, bytesPerSample);
  ASSERT_TRUE(whole.ok());
  const Bytes ref = whole.Read(1 << 26);
  const uint64_t total = whole.state().info.generic.totalPcmBytes;
  ASSERT_EQ(ref.size(), total);
  const uint64_t block = whole.state().info.generic.channels * bytesPerSample;

  std::mt19937 rng(seed);
  std::unique_ptr<Decoder> d;
  int scanned = 0, indexed = 0, early = 0;
  for (int i = 0; i < seeks; ++i) {
    // A fresh decoder now and then, so that targets ahead of the index come up.
    if (i % 25 == 0) {
      d = std::make_unique<Decoder>(fixture, bytesPerSample);
      ASSERT_TRUE(d->ok());
    }
    DecoderState& s = d->state();
    const uint64_t want = std::uniform_int_distribution<uint64_t>(0, total / block - 1)(rng) * block;
    const uint32_t origin = std::array<uint32_t, 3>{AF_ORIGIN_START, AF_ORIGIN_END, AF_ORIGIN_CURRENT}[i % 3];
    const uint64_t now = d->Position();
    const uint64_t delay = uint64_t{s.startSkip} * block;
    const uint64_t unread = s.pcmBufferSize - s.pcmReadPos;
    const uint32_t fb = s.pcmBufferSize;
    QWUNION request{};
    uint64_t expect = want;
    if (origin == AF_ORIGIN_START) {
      request.u = want;
    } else if (origin == AF_ORIGIN_END) {
      request.u = total - want;
    } else {
      // Relative: the seek goes to current + request + delay (the delay counted
      // again on top of the current byte count), and a request within the
      // buffered bytes leaves exactly that many unread.
      request.u = want - now - delay;
      if (request.u <= unread) {
        expect = now + unread - request.u;
      }
    }
    const uint64_t target = expect + delay;
    const uint32_t frame = static_cast<uint32_t>(target / fb);
    if (frame <= kSeekPreRollFrames) {
      ++early;
    } else if (frame - kSeekPreRollFrames < s.engine.frameIndexCapacity && s.engine.frameIndex[frame - kSeekPreRollFrames].offset != 0) {
      ++indexed;
    } else {
      ++scanned;
    }
    ASSERT_EQ(d->Seek(request, origin), AF_S_OK) << i;
    ASSERT_EQ(d->Position(), expect) << i;
    Bytes got = d->Read(3200);  // whole sample frames, so the next relative request stays aligned
    const size_t n = static_cast<size_t>(std::min<uint64_t>(3200, total - expect));
    ASSERT_EQ(got.size(), n) << i;
    ASSERT_TRUE(std::equal(got.begin(), got.end(), ref.begin() + static_cast<std::ptrdiff_t>(expect)))
        << "seek " << i << " origin " << origin << " to " << expect;
  }
  // Every path was taken.
  EXPECT_GT(scanned, 0);
  EXPECT_GT(indexed, 0);
  EXPECT_GT(early, 0);
}

TEST(SeekDecode, RandomPositionsInAVbrStream) { RandomSeeks("m1_44100_joint_vbr_long.mp3", 100, 7); }
TEST(SeekDecode, RandomPositionsInACbrStream) { RandomSeeks("m1_32000_joint_cbr_long.mp3", 100, 11); }
TEST(SeekDecode, RandomPositionsWithFloatOutput) { RandomSeeks("m1_44100_joint_vbr_long.mp3", 40, 17, 8); }
TEST(SeekDecode, RandomPositionsInAStreamWithoutHeader) { RandomSeeks("m25_8000_noheader_long.mp3", 40, 13); }

TEST(SeekDecode, QuickRelativeSeekOfZeroDropsTheBuffer) {
  Decoder d("m1_32000_joint_cbr_long.mp3");
  ASSERT_TRUE(d.ok());
  d.Read(1000);
  const uint64_t before = d.Position();
  const uint64_t unread = d.state().pcmBufferSize - d.state().pcmReadPos;
  ASSERT_GT(unread, 0u);
  QWUNION zero{};
  ASSERT_EQ(d.Seek(zero, AF_ORIGIN_CURRENT), AF_S_OK);
  EXPECT_EQ(d.Position(), before + unread);
}

TEST(SeekDecode, RelativeSeekFromMidSampleKeepsTheOffsetInTheSample) {
  // A host that took an odd number of bytes stands inside a sample; a relative seek
  // moves by whole samples from there, so the output goes on inside a sample, at
  // the same bytes one decode from the start has there.
  const std::string fixture = "m1_32000_joint_cbr_long.mp3";
  Decoder whole(fixture);
  ASSERT_TRUE(whole.ok());
  const Bytes ref = whole.Read(1 << 26);
  Decoder d(fixture);
  ASSERT_TRUE(d.ok());
  ASSERT_EQ(d.Read(1001).size(), 1001u);
  const uint64_t block = d.state().info.generic.channels * 2;
  const uint64_t delay = uint64_t{d.state().startSkip} * block;
  const uint64_t before = d.Position();
  ASSERT_EQ(before % block, 1001 % block);
  QWUNION forward{};
  forward.u = 40003;  // rounded down to whole samples: 40000
  ASSERT_EQ(d.Seek(forward, AF_ORIGIN_CURRENT), AF_S_OK);
  const uint64_t expect = before + 40000 + delay;
  ASSERT_EQ(d.Position(), expect);
  EXPECT_EQ(d.Position() % block, 1001 % block);
  const Bytes got = d.Read(4096);
  ASSERT_EQ(got.size(), 4096u);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), ref.begin() + static_cast<std::ptrdiff_t>(expect)));
}

TEST(FrameScan, EntriesEqualTheDecodersOwn) {
  for (const char* name : {"m1_44100_joint_vbr_long.mp3", "m1_32000_joint_cbr_long.mp3", "m1_44100_crc.mp3",
                           "m2_24000_joint_vbr.mp3", "m25_12000_mono_vbr.mp3"}) {
    SCOPED_TRACE(name);
    Decoder decoded(name);
    Decoder scanned(name);
    ASSERT_TRUE(decoded.ok());
    ASSERT_TRUE(scanned.ok());
    decoded.Read(1 << 26);
    DecoderState& a = decoded.state();
    DecoderState& b = scanned.state();
    const uint32_t from = b.engine.frameCounter;  // the start skip decoded these already
    while (ScanFrame(b.engine, b.stream) == AF_S_OK) {
    }
    EXPECT_EQ(b.engine.frameCounter, a.engine.frameCounter);
    for (uint32_t i = from; i < a.engine.frameCounter && i < b.engine.frameCounter; ++i) {
      ASSERT_EQ(uint64_t(b.engine.frameIndex[i].offset), uint64_t(a.engine.frameIndex[i].offset)) << i;
      ASSERT_EQ(b.engine.frameIndex[i].reservoirBitPos, a.engine.frameIndex[i].reservoirBitPos) << i;
      ASSERT_EQ(b.engine.frameIndex[i].reservoirWrite, a.engine.frameIndex[i].reservoirWrite) << i;
      ASSERT_EQ(b.engine.frameIndex[i].reservoirFill, a.engine.frameIndex[i].reservoirFill) << i;
    }
  }
}

}  // namespace
}  // namespace kxmp3
