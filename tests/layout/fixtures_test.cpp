// Detection on the lame-made fixtures of tests/data/mp3: container type and
// bounds, sampling rate and channels, frame count, encoder name, and the gapless
// arithmetic (frames x samples per frame - delay - padding = the encoder's input
// length from the manifest) for every stream with an encoder tag.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "layout/container.h"
#include "layout/vbr_header.h"
#include "support/layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

struct Result {
  KxResult code = 0;
  StreamLayout layout{};
  alignas(8) MP3Info info{};
};

Result DetectFixture(const std::string& name, uint32_t flags = 0) {
  Bytes data = LoadFixture(name);
  EXPECT_FALSE(data.empty()) << name;
  std::u16string wide(name.begin(), name.end());
  StreamPtr s = MakeStream(std::move(data), u"/music/" + wide);
  Result r;
  r.code = DetectContainer(s.get(), flags, &r.layout, &r.info, nullptr);
  EXPECT_EQ(s->RawPosition(), 0) << name;
  return r;
}

// Frames counted by walking headers from `start` (independent of the code under test).
uint32_t CountFrames(const Bytes& data, size_t start, size_t end) {
  uint32_t n = 0;
  size_t pos = start;
  while (pos + 4 <= end) {
    uint32_t h = (uint32_t(data[pos]) << 24) | (data[pos + 1] << 16) | (data[pos + 2] << 8) | data[pos + 3];
    if ((h >> 21) != 0x7FF) break;
    ++n;
    pos += FrameBytes(h);
  }
  return n;
}

uint32_t ContainerOf(const FixtureInfo& f) {
  auto it = f.keys.find("container");
  if (it == f.keys.end()) return kContainerBare;
  if (it->second == "riff_wave") return kContainerRiffWave;
  if (it->second == "riff_rmp3") return kContainerRiffRmp3;
  if (it->second == "id3v2") return kContainerId3v2;
  if (it->second == "bare_ape") return kContainerBareApe;
  return kContainerBare;
}

TEST(Fixtures, ManifestIsComplete) {
  std::vector<FixtureInfo> all = LoadManifest();
  ASSERT_GE(all.size(), 24u);
  // All nine sampling rates are present.
  std::set<uint32_t> rates;
  for (const FixtureInfo& f : all) rates.insert(f.rate);
  EXPECT_EQ(rates, (std::set<uint32_t>{8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000}));
}

TEST(Fixtures, EachIsDetectedWithItsBoundsAndCounts) {
  for (const FixtureInfo& f : LoadManifest()) {
    SCOPED_TRACE(f.name);
    Result r = DetectFixture(f.name);
    ASSERT_EQ(r.code, AF_S_OK);
    EXPECT_EQ(r.layout.containerType, ContainerOf(f));
    EXPECT_EQ(r.info.containerType, ContainerOf(f));
    EXPECT_EQ(r.info.generic.sampleRate, f.rate);
    EXPECT_EQ(r.info.generic.channels, f.channels);
    std::u16string name(r.info.generic.name);
    EXPECT_EQ(name, u"/music/" + std::u16string(f.name.begin(), f.name.end()));

    // The stream inside a container: its offset and length.
    std::string inner = f.keys.count("of") ? f.keys.at("of") : f.name;
    uint64_t offset = f.keys.count("offset") ? std::stoull(f.keys.at("offset")) : 0;
    Bytes innerData = LoadFixture(inner);
    // Behind an ID3v2 tag only a trailing ID3v1 tag is cut: an APE tag stays inside.
    uint64_t length = innerData.size();
    if (f.name == "id3v2_ape.mp3") length = LoadFixture(f.name).size() - offset - 128;
    EXPECT_EQ(r.layout.audioStart, offset);
    EXPECT_EQ(r.layout.audioLength, length);
    EXPECT_EQ(uint64_t(r.info.generic.dataLength), length);

    uint32_t frames = CountFrames(innerData, 0, innerData.size());
    uint32_t spf = f.rate >= 32000 ? 1152 : 576;
    EXPECT_EQ(r.layout.samplesPerFrame, spf);
    bool noHeader = inner.find("noheader") != std::string::npos;
    if (!noHeader) {
      // lame's header counts the audio frames, not itself.
      EXPECT_EQ(r.layout.frameCount, frames - 1);
      EXPECT_EQ(r.layout.vbrHeaderFrame, 1u);
      EXPECT_EQ(r.layout.countSource, MP3_HEADER_FLAG_COUNT_FROM_HEADER);
      EXPECT_EQ(std::u16string(r.layout.encoderName), u"Lame Audio Codec v3.100");
      EXPECT_EQ(r.layout.encoderDelay, 576u);
      // Gapless: what the open keeps is exactly the encoder's input.
      EXPECT_EQ(uint64_t(r.layout.frameCount) * spf - r.layout.samplesRemoved, f.samples);
      EXPECT_EQ(uint64_t(r.info.generic.totalPcmBytes), f.samples * f.channels * 2);
      EXPECT_EQ(r.layout.startSkip, 576u + 529 + spf);
      EXPECT_EQ(r.info.startSkip, r.layout.startSkip);
      EXPECT_EQ(r.layout.outputLimitInForce, 1u);
      bool vbr = inner.find("vbr") != std::string::npos || inner.find("abr") != std::string::npos;
      EXPECT_EQ(r.layout.vbrKind, vbr ? 1u : 0u);
      EXPECT_EQ(r.info.generic.formatFlags & AFI_FLAG_VBR, vbr ? AFI_FLAG_VBR : 0u);
      const char* version = spf == 1152 ? "1.0" : (f.rate >= 16000 ? "2.0" : "2.5");
      std::string text = std::string("Lame Audio Codec v3.100 (Compatible with MPEG ") + version + " Audio Layer-III)";
      EXPECT_EQ(std::u16string(r.info.generic.description), std::u16string(text.begin(), text.end()));
      EXPECT_EQ(uint64_t(r.info.generic.playTimeMs), f.samples * 1000 / f.rate);
    } else {
      EXPECT_EQ(r.layout.vbrHeaderFrame, 0u);
      EXPECT_EQ(r.layout.encoderName[0], 0);
      EXPECT_EQ(r.layout.startSkip, 0u);
      EXPECT_EQ(r.layout.frameCount, frames);
    }
  }
}

TEST(Fixtures, HeaderFieldsOfParticularStreams) {
  Result r = DetectFixture("m1_44100_crc.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.info.errorProtection, 1u);
  EXPECT_EQ(std::u16string(r.info.generic.channelModeName), u"Joint Stereo");
  r = DetectFixture("m1_44100_emph5015.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.info.emphasis, 1u);
  EXPECT_EQ(r.info.errorProtection, 0u);
  EXPECT_EQ(r.info.copyrightBit, 0u);
  EXPECT_EQ(r.info.originalBit, 1u);
  EXPECT_EQ(std::u16string(r.info.generic.channelModeName), u"Monaural");
  r = DetectFixture("m2_22050_emphccitt.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.info.emphasis, 3u);
  EXPECT_EQ(r.info.copyrightBit, 1u);
  r = DetectFixture("m2_22050_dual_cbr.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(std::u16string(r.info.generic.channelModeName), u"Dual Channel");
  EXPECT_EQ(r.info.mpegVersion, 2u);
  EXPECT_EQ(r.info.generic.bitrateKbps, 64u);
  r = DetectFixture("m1_48000_stereo_vbr.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(std::u16string(r.info.generic.channelModeName), u"Stereo");
  EXPECT_EQ(r.layout.hasToc, 1u);
  EXPECT_EQ(r.layout.xingBytes, LoadFixture("m1_48000_stereo_vbr.mp3").size());
  r = DetectFixture("m25_8000_joint_abr.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.info.mpegVersion, 3u);
}

TEST(Fixtures, StreamWithoutHeaderIsEstimatedAfter512Frames) {
  Bytes data = LoadFixture("m25_8000_noheader_long.mp3");
  uint32_t frames = CountFrames(data, 0, data.size());
  ASSERT_GT(frames, 512u);
  Result r = DetectFixture("m25_8000_noheader_long.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.layout.countSource, MP3_HEADER_FLAG_ESTIMATED);
  EXPECT_EQ(r.layout.outputLimitInForce, 0u);
  EXPECT_EQ(r.layout.frameCount, frames);  // constant 72-byte frames: the estimate is exact
  EXPECT_EQ(r.info.generic.bitrateKbps, 8u);
  r = DetectFixture("m25_8000_noheader_long.mp3", OPEN_FLAG_FULL_SCAN);
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  EXPECT_EQ(r.layout.outputLimitInForce, 1u);
  EXPECT_EQ(r.layout.frameCount, frames);
}

TEST(Fixtures, ShortAndVariableStreamsWithoutHeaderAreCounted) {
  Result r = DetectFixture("m1_44100_noheader_short.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  EXPECT_EQ(r.layout.bitrateChangeFrame, 0u);
  r = DetectFixture("m1_44100_noheader_vbr.mp3");
  ASSERT_EQ(r.code, AF_S_OK);
  EXPECT_EQ(r.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  EXPECT_GE(r.layout.bitrateChangeFrame, 2u);
  EXPECT_EQ(r.info.generic.formatFlags & AFI_FLAG_VBR, AFI_FLAG_VBR);
}

TEST(Fixtures, BadCrcOnARealTag) {
  // One byte changed inside the range the tag's CRC covers (a TOC entry).
  Bytes data = LoadFixture("m1_44100_joint_cbr.mp3");
  ASSERT_GT(data.size(), 200u);
  data[60] ^= 0x01;
  StreamPtr s = MakeStream(data, u"x.mp3");
  StreamLayout layout{};
  ASSERT_EQ(DetectContainer(s.get(), 0, &layout, nullptr, nullptr), AF_S_OK);
  EXPECT_EQ(std::u16string(layout.encoderName), u"Lame Audio Codec v3.100 [Bad CRC]");
  EXPECT_EQ(layout.encoderDelay, 576u);
  EXPECT_EQ(layout.encoderPadding, 1404u);
}

TEST(Fixtures, JunkBeforeNeedsTheMp3Name) {
  Bytes data = LoadFixture("junk_before.mp3");
  StreamPtr s = MakeStream(data, u"junk_before.dat");
  StreamLayout layout{};
  EXPECT_EQ(DetectContainer(s.get(), 0, &layout, nullptr, nullptr), AF_E_NO_SYNC);
}

}  // namespace
}  // namespace kxmp3
