// The first-frame header parser on byte-built streams: header checks in order,
// sampling rates, bitrates and channels, Xing/Info/VBRI headers, the encoder tag
// with its CRC-16 and name forms, delay and padding, the frame walk (count,
// 512-frame estimate, full count, bitrate change), and the derived fields.
#include <gtest/gtest.h>

#include <string>

#include "engine/frame_header.h"
#include "layout/container.h"
#include "layout/vbr_header.h"
#include "support/layout_test_util.h"
#include "platform/kx_platform.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

const uint32_t kH = MakeHeader({});  // MPEG-1 44.1 kHz 128 kbit/s joint stereo, 417 bytes

struct Parsed {
  KxResult code = 0;
  StreamLayout layout{};
  alignas(8) MP3Info info{};
};

// Parses the first frame of `data` (bare stream starting at 0, whole stream as audio).
Parsed Parse(const Bytes& data, uint32_t flags = 0, int64_t audioStart = 0) {
  StreamPtr s = MakeStream(data, u"t.bin");
  EXPECT_EQ(s->Seek(audioStart, ZS_SEEK_SET), AF_S_OK);
  Parsed p;
  std::memset(&p.info, 0xA5, sizeof(p.info));  // whatever was there before
  p.layout.audioStart = static_cast<uint64_t>(audioStart);
  p.layout.audioLength = data.size() - static_cast<uint64_t>(audioStart);
  uint32_t header = data.size() >= static_cast<size_t>(audioStart) + 4 ? (uint32_t(data[audioStart]) << 24) |
                                                                              (uint32_t(data[audioStart + 1]) << 16) |
                                                                              (uint32_t(data[audioStart + 2]) << 8) |
                                                                              data[audioStart + 3]
                                                                        : 0;
  p.code = ParseFirstFrame(s.get(), header, &p.info, flags, &p.layout);
  EXPECT_EQ(s->RawPosition(), audioStart) << "parser did not seek back";
  return p;
}

Parsed ParseWord(uint32_t header) {
  Bytes data = Frame(MakeHeader({}));
  PutBE32(data.data(), header);
  return Parse(data);
}

bool IsZero(const MP3Info& info) {
  const auto* p = reinterpret_cast<const uint8_t*>(&info);
  for (size_t i = 0; i < sizeof(info); ++i)
    if (p[i] != 0) return false;
  return true;
}

TEST(EncoderTagCrc, CheckValue) {
  // CRC-16 with the reflected polynomial 0xA001 and initial value 0: the check
  // value of "123456789" is 0xBB3D.
  const char* text = "123456789";
  EXPECT_EQ(EncoderTagCrc16(reinterpret_cast<const uint8_t*>(text), 9), 0xBB3D);
  EXPECT_EQ(EncoderTagCrc16(nullptr, 0), 0);
  Bytes random(300);
  for (size_t i = 0; i < random.size(); ++i) random[i] = static_cast<uint8_t>(i * 37 + 11);
  EXPECT_EQ(EncoderTagCrc16(random.data(), 300), Crc16(random.data(), 300));
}

TEST(HeaderChecks, CodesInOrderAndRecordZeroed) {
  struct Case {
    uint32_t word;
    KxResult code;
  };
  auto with = [](auto change) {
    HeaderFields h;
    change(h);
    return MakeHeader(h);
  };
  Case cases[] = {
      {kH & ~(1u << 23), AF_E_NO_SYNC},                                     // one sync bit clear
      {0, AF_E_NO_SYNC},
      {with([](HeaderFields& h) { h.version = 1; h.layerBits = 2; h.bitrateIndex = 15; h.rateBits = 3; }), AF_E_BAD_VERSION},
      {with([](HeaderFields& h) { h.layerBits = 2; h.bitrateIndex = 15; h.rateBits = 3; }), AF_E_BAD_LAYER},
      {with([](HeaderFields& h) { h.layerBits = 0; }), AF_E_BAD_LAYER},
      {with([](HeaderFields& h) { h.layerBits = 3; }), AF_E_BAD_LAYER},
      {with([](HeaderFields& h) { h.bitrateIndex = 15; h.rateBits = 3; }), AF_E_BAD_BITRATE},
      {with([](HeaderFields& h) { h.bitrateIndex = 0; }), AF_E_BAD_BITRATE},
      {with([](HeaderFields& h) { h.rateBits = 3; }), AF_E_BAD_SAMPLERATE},
  };
  for (const Case& c : cases) {
    Parsed p = ParseWord(c.word);
    EXPECT_EQ(p.code, c.code) << std::hex << c.word;
    EXPECT_TRUE(IsZero(p.info)) << std::hex << c.word;
    EXPECT_EQ(p.layout.frameCount, 0u);
  }
}

TEST(HeaderChecks, SampleRatesBitratesAndChannels) {
  const uint32_t versions[3] = {kMpeg1, kMpeg2, kMpeg25};
  const uint32_t expectRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};
  const uint32_t m1[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
  const uint32_t m2[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
  for (int v = 0; v < 3; ++v) {
    for (uint32_t r = 0; r < 3; ++r) {
      for (uint32_t b = 1; b <= 14; ++b) {
        HeaderFields fields;
        fields.version = versions[v];
        fields.rateBits = r;
        fields.bitrateIndex = b;
        fields.mode = (b % 4);
        uint32_t h = MakeHeader(fields);
        Bytes data;
        AppendFrames(data, h, 3);
        Parsed p = Parse(data);
        ASSERT_EQ(p.code, AF_S_OK) << v << " " << r << " " << b;
        EXPECT_EQ(p.info.generic.sampleRate, expectRates[v][r]);
        EXPECT_EQ(p.info.generic.bitrateKbps, v == 0 ? m1[b] : m2[b]);
        EXPECT_EQ(p.info.generic.channels, fields.mode == kMono ? 1u : 2u);
        EXPECT_EQ(p.info.mpegVersion, static_cast<uint32_t>(v + 1));
        EXPECT_EQ(p.info.layer, 3u);
        EXPECT_EQ(p.info.generic.bitsPerSample, 16u);
        EXPECT_EQ(p.layout.frameCount, 3u);
        EXPECT_EQ(p.layout.samplesPerFrame, v == 0 ? 1152u : 576u);
        // The engine's frame-length table agrees with the formula.
        EXPECT_EQ(kFrameLengthTable[v * 3 + r][b], FrameBytes(h));
      }
    }
  }
}

TEST(HeaderChecks, ModeNamesAndFlagBits) {
  const char16_t* names[4] = {u"Stereo", u"Joint Stereo", u"Dual Channel", u"Monaural"};
  for (uint32_t mode = 0; mode < 4; ++mode) {
    HeaderFields fields;
    fields.mode = mode;
    fields.emphasis = mode;  // 0..3
    fields.crc = mode & 1;
    fields.privateBit = mode == 2;
    fields.copyright = mode >= 2;
    fields.original = mode != 1;
    Bytes data;
    AppendFrames(data, MakeHeader(fields), 2);
    Parsed p = Parse(data);
    ASSERT_EQ(p.code, AF_S_OK);
    EXPECT_EQ(std::u16string(p.info.generic.channelModeName), names[mode]);
    EXPECT_EQ(p.info.emphasis, mode);
    EXPECT_EQ(p.info.errorProtection, mode & 1);
    EXPECT_EQ(p.info.privateBit, mode == 2 ? 1u : 0u);
    EXPECT_EQ(p.info.copyrightBit, mode >= 2 ? 1u : 0u);
    EXPECT_EQ(p.info.originalBit, mode != 1 ? 1u : 0u);
    EXPECT_EQ(p.info.generic.fourcc, FOURCC_ZMP3);
    EXPECT_EQ(p.info.generic.size, 2548u);
    EXPECT_EQ(p.info.generic.formatFourCC, FOURCC_ZMP3);
  }
}

TEST(HeaderChecks, DerivedFieldsOfAPlainStream) {
  // 10 frames of MPEG-1 stereo: 10 x 1152 samples x 4 bytes.
  Bytes data;
  AppendFrames(data, kH, 10);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), 10u * 1152 * 4);
  EXPECT_EQ(uint64_t(p.info.generic.playTimeMs), 10u * 1152 * 1000 / 44100);
  EXPECT_EQ(p.info.generic.bitrateKbps, 128u);
  EXPECT_EQ(p.info.generic.formatFlags, 0u);
  EXPECT_EQ(std::u16string(p.info.generic.description), u"MPEG 1.0 Audio Layer-III");
  EXPECT_EQ(p.info.frameCount, 10u);
  EXPECT_EQ(p.info.vbrKind, 0u);
  EXPECT_EQ(p.info.vbrHeaderFrame, 0u);
  EXPECT_EQ(p.info.startSkip, 0u);
  EXPECT_EQ(p.info.samplesRemoved, 0u);
  EXPECT_EQ(p.info.headerFlags, MP3_HEADER_FLAG_SCANNED);
  EXPECT_EQ(p.layout.startSkip, 0u);
  EXPECT_EQ(p.layout.outputLimitInForce, 1u);
  EXPECT_EQ(p.layout.encoderName[0], 0);

  HeaderFields m2;
  m2.version = kMpeg2;
  m2.bitrateIndex = 8;
  m2.mode = kMono;
  Bytes d2;
  AppendFrames(d2, MakeHeader(m2), 4);
  p = Parse(d2);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), 4u * 576 * 2);  // 1 x frames x 1 channel x 1152
  EXPECT_EQ(std::u16string(p.info.generic.description), u"MPEG 2.0 Audio Layer-III");
  m2.version = kMpeg25;
  Bytes d25;
  AppendFrames(d25, MakeHeader(m2), 4);
  p = Parse(d25);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.info.generic.description), u"MPEG 2.5 Audio Layer-III");
}

TEST(XingHeader, InfoGivesCbrWithCountAndDelayFromTheHeaders) {
  XingFields x;
  x.id = "Info";
  x.frames = 20;
  Bytes data = Concat({XingFrame(kH, x), Bytes()});
  AppendFrames(data, kH, 20);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.vbrKind, 0u);
  EXPECT_EQ(p.info.generic.formatFlags & AFI_FLAG_VBR, 0u);
  EXPECT_EQ(p.info.generic.bitrateKbps, 128u);
  EXPECT_EQ(p.layout.frameCount, 20u);
  EXPECT_EQ(p.layout.vbrHeaderFrame, 1u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_COUNT_FROM_HEADER);
  EXPECT_EQ(p.layout.encoderDelay, 576u);
  EXPECT_EQ(p.layout.encoderPadding, 1404u);
  EXPECT_EQ(p.layout.samplesRemoved, 1980u);
  EXPECT_EQ(p.layout.startSkip, 576u + 529 + 1152);
  EXPECT_EQ(p.info.startSkip, 576u + 529 + 1152);
  EXPECT_EQ(p.info.samplesRemoved, 1980u);
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), (20u * 1152 - 1980) * 4);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100");
  EXPECT_EQ(std::u16string(p.info.generic.description),
            u"Lame Audio Codec v3.100 (Compatible with MPEG 1.0 Audio Layer-III)");
  EXPECT_EQ(p.info.headerFlags, MP3_HEADER_FLAG_COUNT_FROM_HEADER | MP3_HEADER_FLAG_ENCODER_IDENTIFIED);
}

TEST(XingHeader, XingFieldsAndVbrBitrate) {
  XingFields x;
  x.frames = 30;
  x.bytes = 12345;
  x.quality = 78;
  x.tag = nullptr;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 30);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.vbrKind, 1u);
  EXPECT_EQ(p.info.vbrKind, 1u);
  EXPECT_EQ(p.info.generic.formatFlags & AFI_FLAG_VBR, AFI_FLAG_VBR);
  EXPECT_EQ(p.layout.xingFlags, 0xFu);
  EXPECT_EQ(p.layout.xingBytes, 12345u);
  EXPECT_EQ(p.layout.xingQuality, 78u);
  ASSERT_EQ(p.layout.hasToc, 1u);
  EXPECT_EQ(p.layout.xingToc[0], 0);
  EXPECT_EQ(p.layout.xingToc[99], 198);
  // No encoder tag: nothing to trim but the silent header frame.
  EXPECT_EQ(p.layout.encoderName[0], 0);
  EXPECT_EQ(p.layout.startSkip, 1152u);
  EXPECT_EQ(p.layout.samplesRemoved, 0u);
  uint64_t total = 30u * 1152 * 4;
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), total);
  EXPECT_EQ(p.info.generic.bitrateKbps, 16ull * 44100 * 2 * data.size() / (total * 1000));
  EXPECT_EQ(std::u16string(p.info.generic.description), u"MPEG 1.0 Audio Layer-III");
  EXPECT_EQ(p.info.headerFlags, MP3_HEADER_FLAG_COUNT_FROM_HEADER);
}

TEST(XingHeader, FieldsPresentOnlyByTheirFlags) {
  // Frames and quality only: the quality follows the frame count directly.
  XingFields x;
  x.flags = 1 | 8;
  x.frames = 5;
  x.quality = 99;
  x.tag = nullptr;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 5);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 5u);
  EXPECT_EQ(p.layout.xingQuality, 99u);
  EXPECT_EQ(p.layout.hasToc, 0u);
  EXPECT_EQ(p.layout.xingBytes, 0u);
}

TEST(XingHeader, WithoutFramesFieldTheFramesAreWalked) {
  XingFields x;
  x.flags = 2 | 4;
  x.bytes = 1000;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 7);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  // The header frame holds no audio and is not counted.
  EXPECT_EQ(p.layout.frameCount, 7u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  EXPECT_EQ(p.layout.outputLimitInForce, 1u);
  // The tag still follows the Xing fields.
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100");
  EXPECT_EQ(p.layout.startSkip, 576u + 529 + 1152);
}

TEST(XingHeader, SideInformationSizeDecidesWhereItIsLookedFor) {
  // MPEG-1 mono (17), MPEG-2 stereo (17), MPEG-2 mono (9), MPEG-2.5 stereo (17).
  struct Case {
    uint32_t version, mode, bitrate;
  } cases[] = {{kMpeg1, kMono, 9}, {kMpeg2, kJoint, 10}, {kMpeg2, kMono, 10}, {kMpeg25, kStereo, 8}};
  for (const Case& c : cases) {
    HeaderFields s;
    s.version = c.version;
    s.mode = c.mode;
    s.bitrateIndex = c.bitrate;
    uint32_t h = MakeHeader(s);
    XingFields x;
    x.frames = 9;
    Bytes data = XingFrame(h, x);
    AppendFrames(data, h, 9);
    Parsed p = Parse(data);
    ASSERT_EQ(p.code, AF_S_OK);
    EXPECT_EQ(p.layout.vbrKind, 1u) << c.version << c.mode;
    EXPECT_EQ(p.layout.frameCount, 9u);
    uint32_t spf = c.version == kMpeg1 ? 1152 : 576;
    EXPECT_EQ(p.layout.startSkip, 576u + 529 + spf);
    EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100");
  }
}

TEST(XingHeader, VbriHeader) {
  Bytes data = Frame(kH);
  std::memcpy(&data[36], "VBRI", 4);
  PutBE32(&data[36 + 14], 12);
  AppendFrames(data, kH, 12);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.vbrKind, 1u);
  EXPECT_EQ(p.layout.frameCount, 12u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_COUNT_FROM_HEADER);
  EXPECT_EQ(p.layout.vbrHeaderFrame, 0u);
  EXPECT_EQ(p.layout.startSkip, 1152u);
  EXPECT_EQ(p.info.generic.formatFlags & AFI_FLAG_VBR, AFI_FLAG_VBR);
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), 12u * 1152 * 4);
  // "VBRI" elsewhere is not looked at.
  Bytes other = Frame(kH);
  std::memcpy(&other[40], "VBRI", 4);
  AppendFrames(other, kH, 3);
  p = Parse(other);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.vbrKind, 0u);
  EXPECT_EQ(p.layout.frameCount, 4u);
}

TEST(EncoderTag, BadCrcStillGivesDelayAndPadding) {
  XingFields x;
  x.frames = 10;
  x.goodCrc = false;
  x.delay = 1105;
  x.padding = 2047;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 10);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100 [Bad CRC]");
  EXPECT_EQ(p.layout.encoderDelay, 1105u);
  EXPECT_EQ(p.layout.encoderPadding, 2047u);
  EXPECT_EQ(p.layout.startSkip, 1105u + 529 + 1152);
  EXPECT_EQ(std::u16string(p.info.generic.description),
            u"Lame Audio Codec v3.100 [Bad CRC] (Compatible with MPEG 1.0 Audio Layer-III)");
}

TEST(EncoderTag, DelayAndPaddingBitFields) {
  // d = byte21 x 16 + byte22 / 16, p = (byte22 mod 16) x 256 + byte23: the 12-bit extremes.
  for (auto [d, pad] : {std::pair<uint32_t, uint32_t>{0, 0}, {4095, 4095}, {0xABC, 0x123}, {1, 4094}}) {
    XingFields x;
    x.frames = 20;
    x.delay = d;
    x.padding = pad;
    Bytes data = XingFrame(kH, x);
    AppendFrames(data, kH, 20);
    Parsed p = Parse(data);
    ASSERT_EQ(p.code, AF_S_OK);
    EXPECT_EQ(p.layout.encoderDelay, d);
    EXPECT_EQ(p.layout.encoderPadding, pad);
    EXPECT_EQ(p.layout.samplesRemoved, d + pad);
  }
}

TEST(EncoderTag, NameForms) {
  struct Case {
    const char* id;
    const char* version;
    const char16_t* name;
  } cases[] = {
      {"LAME", "3.99r", u"Lame Audio Codec v3.99r"},
      {"LAME", "3.90a", u"Lame Audio Codec v3.90 Alpha"},
      {"LAME", "3.97A", u"Lame Audio Codec v3.97 Alpha"},
      {"LAME", "3.98b", u"Lame Audio Codec v3.98 Beta"},
      {"LAME", "3.98B", u"Lame Audio Codec v3.98 Beta"},
      {"GOGO", "3.13 ", u"Gogo-no-Coda v3.13 "},
      {"GOGO", "3.13a", u"Gogo-no-Coda v3.13 Alpha"},
      {"GOGO", "3.13b", u"Gogo-no-Coda v3.13 Beta"},
  };
  for (const Case& c : cases) {
    XingFields x;
    x.frames = 10;
    x.tag = c.id;
    x.version = c.version;
    Bytes data = XingFrame(kH, x);
    AppendFrames(data, kH, 10);
    Parsed p = Parse(data);
    ASSERT_EQ(p.code, AF_S_OK);
    EXPECT_EQ(std::u16string(p.layout.encoderName), c.name);
    EXPECT_EQ(p.info.headerFlags & MP3_HEADER_FLAG_ENCODER_IDENTIFIED, MP3_HEADER_FLAG_ENCODER_IDENTIFIED);
  }
}

TEST(EncoderTag, OtherEncoderUnderAGoodCrc) {
  KxSetAnsiCodePage(1252);
  XingFields x;
  x.id = "Info";
  x.frames = 10;
  x.tag = "Lavc58.91";
  x.delay = 1105;
  x.padding = 700;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 10);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lavc58.91");
  EXPECT_EQ(std::u16string(p.info.generic.description), u"Lavc58.91 (Compatible with MPEG 1.0 Audio Layer-III)");
  EXPECT_EQ(p.layout.encoderDelay, 1105u);
  EXPECT_EQ(p.layout.encoderPadding, 700u);
  EXPECT_EQ(p.layout.startSkip, 1105u + 529 + 1152);

  // Bytes of the ANSI code page (1252: 0xE9 is e-acute).
  x.tag = "Enc\xe9" "d 1.0";
  data = XingFrame(kH, x);
  AppendFrames(data, kH, 10);
  p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Enc\u00e9d 1.0");

  // A zero first byte: "Unknown Codec".
  XingFields z = x;
  z.tag = "";
  data = XingFrame(kH, z);
  AppendFrames(data, kH, 10);
  p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Unknown Codec");
  EXPECT_EQ(p.info.headerFlags & MP3_HEADER_FLAG_ENCODER_IDENTIFIED, MP3_HEADER_FLAG_ENCODER_IDENTIFIED);
  KxSetAnsiCodePage(0);
}

TEST(EncoderTag, OtherEncoderWithoutAGoodCrcIsIgnored) {
  XingFields x;
  x.frames = 10;
  x.tag = "Lavc58.91";
  x.goodCrc = false;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 10);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.encoderName[0], 0);
  EXPECT_EQ(p.layout.encoderDelay, 0u);
  EXPECT_EQ(p.layout.startSkip, 1152u);
  EXPECT_EQ(p.info.headerFlags & MP3_HEADER_FLAG_ENCODER_IDENTIFIED, 0u);
  EXPECT_EQ(std::u16string(p.info.generic.description), u"MPEG 1.0 Audio Layer-III");
}

TEST(EncoderTag, ShiftedTagIsFoundBySlidingWithBadCrc) {
  // Tag 3 bytes after the Xing fields, CRC over its own first 34 + 3 bytes: the
  // parser's sum over N bytes does not match, the slide finds "LAME".
  XingFields x;
  x.frames = 10;
  x.tagShift = 3;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 10);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100 [Bad CRC]");
  EXPECT_EQ(p.layout.encoderDelay, 576u);
}

TEST(EncoderTag, CrcWordFoundFurtherOnPlacesTheTag) {
  // The CRC over the first N bytes stored j = 5 bytes further on: good CRC, and the
  // tag is read 5 bytes after the Xing fields.
  XingFields x;
  x.frames = 10;
  x.tagShift = 5;
  Bytes frame = XingFrame(kH, x);
  const size_t xingEnd = 4 + 32 + 8 + 4 + 4 + 100 + 4;
  const size_t n = xingEnd + 34;
  frame[n + 5 + 0] = 0;  // clear the builder's own CRC word
  frame[n + 5 + 1] = 0;
  frame[n] = 0;
  frame[n + 1] = 0;
  uint16_t crc = Crc16(frame.data(), n);
  frame[n + 5] = static_cast<uint8_t>(crc >> 8);
  frame[n + 6] = static_cast<uint8_t>(crc);
  Bytes data = frame;
  AppendFrames(data, kH, 10);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100");
}

TEST(EncoderTag, NotLookedForWhenTheFrameHasNoRoom) {
  // MPEG-2 mono, 24 kHz, 56 kbit/s: 168-byte frames. With all four Xing fields they
  // end at 4 + 9 + 8 + 4 + 4 + 100 + 4 = 133, leaving 35 bytes: no tag is looked for.
  // The padded frame (169 bytes) leaves 36, and the tag is read.
  HeaderFields s;
  s.version = kMpeg2;
  s.rateBits = 1;
  s.mode = kMono;
  s.bitrateIndex = 7;
  uint32_t h = MakeHeader(s);
  ASSERT_EQ(FrameBytes(h), 168u);
  XingFields x;
  x.frames = 4;
  x.tag = nullptr;
  Bytes frame = XingFrame(h, x);
  std::memcpy(&frame[133], "LAME3.99r", 9);
  Bytes data = frame;
  AppendFrames(data, h, 4);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 4u);
  EXPECT_EQ(p.layout.encoderName[0], 0);
  EXPECT_EQ(p.layout.startSkip, 576u);

  s.padding = true;
  uint32_t padded = MakeHeader(s);
  ASSERT_EQ(FrameBytes(padded), 169u);
  x.tag = "LAME";
  data = XingFrame(padded, x);
  AppendFrames(data, h, 4);
  p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.layout.encoderName), u"Lame Audio Codec v3.100");
  EXPECT_EQ(p.layout.startSkip, 576u + 529 + 576);
}

TEST(FrameWalk, CbrStreamIsCountedFor512FramesThenEstimated) {
  // 520 frames and then 3 frames' worth of junk: the estimate counts the junk too.
  HeaderFields s;
  s.version = kMpeg25;
  s.rateBits = 2;
  s.bitrateIndex = 1;
  s.mode = kMono;
  uint32_t h = MakeHeader(s);
  ASSERT_EQ(FrameBytes(h), 72u);
  Bytes data;
  AppendFrames(data, h, 520);
  data.resize(data.size() + 3 * 72 - 10, 0x33);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 523u);  // ceil(bytes / 72)
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_ESTIMATED);
  EXPECT_EQ(p.info.headerFlags, MP3_HEADER_FLAG_ESTIMATED);
  EXPECT_EQ(p.layout.outputLimitInForce, 0u);
  EXPECT_EQ(p.layout.vbrKind, 0u);
  // Open-flag bit 31: every frame is counted.
  p = Parse(data, OPEN_FLAG_FULL_SCAN);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 520u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  EXPECT_EQ(p.layout.outputLimitInForce, 1u);
}

TEST(FrameWalk, BitrateChangeIsTheKindAndForcesAFullCount) {
  HeaderFields lo;
  HeaderFields hi;
  hi.bitrateIndex = 11;
  Bytes data;
  AppendFrames(data, MakeHeader(lo), 6);
  AppendFrames(data, MakeHeader(hi), 600);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.bitrateChangeFrame, 7u);  // the seventh frame is the first with another bitrate
  EXPECT_EQ(p.info.vbrKind, 7u);
  EXPECT_EQ(p.layout.frameCount, 606u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  EXPECT_EQ(p.info.generic.formatFlags & AFI_FLAG_VBR, AFI_FLAG_VBR);
  uint64_t total = 606ull * 1152 * 4;
  EXPECT_EQ(p.info.generic.bitrateKbps, 16ull * 44100 * 2 * data.size() / (total * 1000));
  // A change after frame 512 comes too late: the count is estimated.
  Bytes late;
  AppendFrames(late, MakeHeader(lo), 515);
  AppendFrames(late, MakeHeader(hi), 5);
  p = Parse(late);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.bitrateChangeFrame, 0u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_ESTIMATED);
  EXPECT_EQ(p.layout.frameCount, (late.size() + 416) / 417);
}

TEST(FrameWalk, ChannelModeAndPaddingMayChange) {
  HeaderFields a;
  HeaderFields b;
  b.mode = kStereo;
  b.padding = true;
  b.emphasis = 1;
  Bytes data;
  for (int i = 0; i < 5; ++i) {
    AppendFrames(data, MakeHeader(a), 1);
    AppendFrames(data, MakeHeader(b), 1);
  }
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 10u);
  EXPECT_EQ(p.layout.vbrKind, 0u);
}

TEST(FrameWalk, JunkBetweenFramesIsSkipped) {
  Bytes data;
  AppendFrames(data, kH, 3);
  data.insert(data.end(), 37, 0x00);
  AppendFrames(data, kH, 4);
  // A frame with another sampling rate is not counted, the walk slides past it.
  HeaderFields other;
  other.rateBits = 1;
  AppendFrames(data, MakeHeader(other), 1);
  AppendFrames(data, kH, 2);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 9u);
}

// A change of the protection bit is a mismatch with the previous frame, after
// which the frame start is looked for from that very byte: the changed frame is
// taken when the frame after it agrees with it, so the count goes on to the end.
TEST(FrameWalk, ProtectionChangeGoesOnCounting) {
  HeaderFields crc;
  crc.crc = true;
  Bytes data;
  AppendFrames(data, kH, 3);
  AppendFrames(data, MakeHeader(crc), 3);
  AppendFrames(data, kH, 2);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 8u);
  EXPECT_EQ(p.layout.countSource, MP3_HEADER_FLAG_SCANNED);
  // From the first frame on, with check words that stop after the fifth.
  Bytes first;
  AppendFrames(first, MakeHeader(crc), 5);
  AppendFrames(first, kH, 25);
  p = Parse(first);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 30u);
}

// The last frame of the audio has no successor to agree with: it is taken when
// it ends exactly at the end of the audio data, as the frame reader takes it.
TEST(FrameWalk, LastFrameWithAnotherProtectionBitIsCounted) {
  HeaderFields crc;
  crc.crc = true;
  Bytes data;
  AppendFrames(data, kH, 3);
  AppendFrames(data, MakeHeader(crc), 1);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 4u);
}

// A lone frame whose successor does not agree with it is not a confirmed start:
// the walk slides past it and the junk after it to the next confirmed frame.
TEST(FrameWalk, UnconfirmedChangedFrameIsPassedOver) {
  HeaderFields crc;
  crc.crc = true;
  Bytes data;
  AppendFrames(data, kH, 3);
  AppendFrames(data, MakeHeader(crc), 1);
  data.insert(data.end(), 37, 0x00);
  AppendFrames(data, kH, 2);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(p.layout.frameCount, 5u);
}

TEST(FrameWalk, StopsAtTheEndOfTheAudio) {
  Bytes data;
  AppendFrames(data, kH, 5);
  Bytes tail;
  AppendFrames(tail, kH, 3);  // frames beyond the audio length (as if inside a trailing tag)
  Bytes all = Concat({data, tail});
  StreamPtr s = MakeStream(all);
  StreamLayout layout{};
  layout.audioLength = data.size();
  alignas(8) MP3Info info{};
  ASSERT_EQ(ParseFirstFrame(s.get(), kH, &info, 0, &layout), AF_S_OK);
  EXPECT_EQ(layout.frameCount, 5u);
}

TEST(DerivedFields, NonPositiveTotalFails) {
  XingFields x;
  x.frames = 1;
  x.delay = 600;
  x.padding = 600;  // 1 x 1152 - 1200 < 0
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 3);
  Parsed p = Parse(data);
  EXPECT_EQ(p.code, AF_E_BAD_FORMAT);
  EXPECT_TRUE(IsZero(p.info));
  x.frames = 0;
  x.tag = nullptr;
  data = XingFrame(kH, x);
  AppendFrames(data, kH, 3);
  EXPECT_EQ(Parse(data).code, AF_E_BAD_FORMAT);
  // Exactly zero.
  x.frames = 1;
  x.tag = "LAME";
  x.delay = 576;
  x.padding = 576;
  data = XingFrame(kH, x);
  AppendFrames(data, kH, 3);
  EXPECT_EQ(Parse(data).code, AF_E_BAD_FORMAT);
  x.padding = 575;
  data = XingFrame(kH, x);
  AppendFrames(data, kH, 3);
  p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), 4u);
}

TEST(DerivedFields, PlayTimeUsesChannelsAndRate) {
  HeaderFields s;
  s.version = kMpeg2;
  s.rateBits = 2;  // 16 kHz
  s.bitrateIndex = 6;
  s.mode = kMono;
  XingFields x;
  x.frames = 100;
  x.delay = 576;
  x.padding = 1000;
  uint32_t h = MakeHeader(s);
  Bytes data = XingFrame(h, x);
  AppendFrames(data, h, 100);
  Parsed p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  uint64_t total = 100ull * 1152 - (576 + 1000) * 2;  // 1 x frames x 1 channel x 1152 less removed x 2
  EXPECT_EQ(uint64_t(p.info.generic.totalPcmBytes), total);
  EXPECT_EQ(uint64_t(p.info.generic.playTimeMs), total * 1000 / (16000 * 2));
  EXPECT_EQ(std::u16string(p.info.generic.description),
            u"Lame Audio Codec v3.100 (Compatible with MPEG 2.0 Audio Layer-III)");
  s.version = kMpeg25;
  h = MakeHeader(s);
  data = XingFrame(h, x);
  AppendFrames(data, h, 100);
  p = Parse(data);
  ASSERT_EQ(p.code, AF_S_OK);
  EXPECT_EQ(std::u16string(p.info.generic.description),
            u"Lame Audio Codec v3.100 (Compatible with MPEG 2.5 Audio Layer-III)");
}

TEST(VbrSearch, ReadFailuresEndTheSearchWithoutFailing) {
  XingFields x;
  x.frames = 8;
  Bytes data = XingFrame(kH, x);
  AppendFrames(data, kH, 8);
  StreamPtr probe = MakeStream(data);
  StreamLayout layout{};
  layout.audioLength = data.size();
  alignas(8) MP3Info info{};
  ASSERT_EQ(ParseFirstFrame(probe.get(), kH, &info, 0, &layout), AF_S_OK);
  uint64_t calls = probe->CallCount();
  int successes = 0;
  for (uint64_t n = 1; n <= calls; ++n) {
    StreamPtr s = MakeStream(data);
    s->FailCall(n);
    StreamLayout l{};
    l.audioLength = data.size();
    KxResult r = ParseFirstFrame(s.get(), kH, &info, 0, &l);
    EXPECT_TRUE(r == AF_S_OK || r == AF_E_BAD_FORMAT) << std::hex << r;
    successes += r == AF_S_OK;
  }
  EXPECT_GT(successes, 0);
}

}  // namespace
}  // namespace kxmp3
