// Streams whose frames change MPEG version midway (two files joined): the decoder's
// buffers are sized at open for one layout (two granules a frame for MPEG-1, one for
// MPEG-2 and 2.5), so frames of the other version must never be decoded into them,
// whether they are met by decoding, by the seek's frame scan or by both. Once the
// module fuzz target found the scan taking such a frame's header as the reference,
// after which the decoder wrote two granules into a frame buffer sized for one
// (tests/data/regression/module/seek_scan_adopts_other_mpeg_version.mp3).
#include <gtest/gtest.h>

#include "engine/header_word.h"
#include "reliability_util.h"

namespace {

using namespace kxrel;

// The first file, its Xing frame count made four times larger so that the stream's
// length reaches into the second file, then the second file.
Bytes Joined(const char* first, const char* second) {
  Bytes a = kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + first);
  const Bytes b = kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + second);
  const int64_t xing = XingOffset(a);
  EXPECT_GT(xing, 0) << first << " has no Xing header";
  if (xing > 0 && (a[xing + 7] & 1) != 0) {
    const size_t at = static_cast<size_t>(xing + 8);
    const uint32_t frames = uint32_t{a[at]} << 24 | uint32_t{a[at + 1]} << 16 | uint32_t{a[at + 2]} << 8 | a[at + 3];
    PutBigEndian32(a, at, frames * 4);
  }
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

void CheckStaysInLayout(const Bytes& data) {
  Opened o = Open(data, u"joined.mp3");
  ASSERT_EQ(o.result, AF_S_OK);
  const kxmp3::DecoderState& s = o.decoder->State();
  const uint32_t version = kxmp3::header_word::VersionIndex(s.engine.referenceHeader);
  const uint64_t total = s.info.generic.totalPcmBytes;
  // Seeks far ahead (the scan walks over the joint), back, and to the end; then
  // decoding to the end.
  for (uint64_t permille : {950u, 100u, 600u, 999u}) {
    QWUNION position{};
    position.u = total / 1000 * permille / 4 * 4;
    EXPECT_TRUE(Named(o.decoder->SetCurrentPosition(position, AF_ORIGIN_START)));
    EXPECT_EQ(kxmp3::header_word::VersionIndex(s.engine.referenceHeader), version) << "after a seek to " << permille;
    const Drained d = Drain(o.decoder, 4608, 3, 1);
    EXPECT_TRUE(d.named);
    EXPECT_LE(s.frameOutputBytes, s.pcmBufferSize);
  }
  EXPECT_EQ(o.decoder->Rewind(), AF_S_OK);
  const Drained d = Drain(o.decoder, 4608, 100000, 1000);
  EXPECT_TRUE(d.named);
  EXPECT_EQ(d.last, AF_S_END_OF_DATA);
  EXPECT_EQ(kxmp3::header_word::VersionIndex(s.engine.referenceHeader), version);
  // The decoding went through the second file to the stream's end.
  EXPECT_EQ(static_cast<size_t>(o.stream->RawPosition()), data.size());
  Close(o);
}

TEST(LayoutChange, MpegTwoThenMpegOneKeepsTheMpegTwoLayout) {
  CheckStaysInLayout(Joined("m2_24000_joint_vbr.mp3", "m1_44100_joint_cbr.mp3"));
}

TEST(LayoutChange, MpegOneThenMpegTwoKeepsTheMpegOneLayout) {
  CheckStaysInLayout(Joined("m1_48000_stereo_vbr.mp3", "m2_22050_dual_cbr.mp3"));
}

TEST(LayoutChange, MpegTwoPointFiveThenMpegOneKeepsItsLayout) {
  CheckStaysInLayout(Joined("m25_12000_mono_vbr.mp3", "m1_32000_joint_cbr_long.mp3"));
}

}  // namespace
