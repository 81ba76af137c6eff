// Container detection on byte-built streams: each container type, the frame
// search and its 8,192-position window, the extension rules, trailing ID3v1 and
// APE tags, the RIFF length rule, every failure code, and the stream position
// being restored whatever happens.
#include <gtest/gtest.h>

#include <string>

#include "layout/container.h"
#include "support/layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

// 44.1 kHz, 128 kbit/s, joint stereo: 417-byte frames.
const uint32_t kH = MakeHeader({});
const uint32_t kFrameLen = 417;

struct Detected {
  KxResult code = 0;
  StreamLayout layout{};
  alignas(8) MP3Info info{};
  uint32_t header = 0;
  int64_t positionAfter = -1;
};

// Runs detection with the stream at `p0`; checks that the position is restored.
Detected Detect(const Bytes& data, std::u16string name, int64_t p0 = 0, uint32_t flags = 0) {
  StreamPtr s = MakeStream(data, std::move(name));
  EXPECT_EQ(s->Seek(p0, ZS_SEEK_SET), AF_S_OK);
  Detected d;
  d.code = DetectContainer(s.get(), flags, &d.layout, &d.info, &d.header);
  s->GetPosition(&d.positionAfter);
  EXPECT_EQ(d.positionAfter, p0) << "stream position not restored";
  if (d.code != AF_S_OK) {
    EXPECT_EQ(d.layout.containerType, kContainerNone);
    EXPECT_EQ(d.layout.audioStart, 0u);
    EXPECT_EQ(d.layout.audioLength, 0u);
    EXPECT_EQ(d.header, 0u);
  }
  return d;
}

Bytes Frames(uint32_t count, uint32_t header = kH) {
  Bytes b;
  AppendFrames(b, header, count);
  return b;
}

// Junk with a lone frame header that no second header confirms.
Bytes Junk(size_t bytes) {
  Bytes j(bytes, 0x20);
  if (bytes >= 40) PutBE32(&j[10], kH);
  return j;
}

TEST(ContainerDetect, BareStreamNamedMp3IsFoundBehindJunk) {
  Bytes data = Concat({Junk(300), Frames(6)});
  Detected d = Detect(data, u"song.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
  EXPECT_EQ(d.layout.audioStart, 300u);
  EXPECT_EQ(d.layout.audioLength, 6u * kFrameLen);
  EXPECT_EQ(d.header, kH);
  EXPECT_EQ(d.layout.firstHeader, kH);
  EXPECT_EQ(d.info.containerType, kContainerBare);
  EXPECT_EQ(uint64_t(d.info.generic.dataLength), 6u * kFrameLen);
  EXPECT_EQ(std::u16string(d.info.generic.name), u"song.mp3");
}

TEST(ContainerDetect, ExtensionTestIgnoresCase) {
  Bytes data = Concat({Junk(50), Frames(3)});
  Detected d = Detect(data, u"C:\\Music\\SONG.Mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 50u);
}

TEST(ContainerDetect, BareStreamWithoutMp3NameStartsAtEntryPosition) {
  Bytes data = Concat({Junk(300), Frames(6)});
  // No search: the junk at the entry position is taken as the first header.
  EXPECT_EQ(Detect(data, u"song.bin").code, AF_E_NO_SYNC);
  EXPECT_EQ(Detect(data, u"").code, AF_E_NO_SYNC);
  EXPECT_EQ(Detect(data, u"mp3").code, AF_E_NO_SYNC);
  // Entered on the frame itself, the start is the entry position exactly.
  Detected d = Detect(data, u"song.bin", 300);
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 300u);
  EXPECT_EQ(d.layout.audioLength, 6u * kFrameLen);
  EXPECT_EQ(d.positionAfter, 300);
}

TEST(ContainerDetect, SearchStartsAtEntryPositionNotAtZero) {
  Bytes data = Concat({Frames(2), Junk(100), Frames(4)});
  Detected d = Detect(data, u"a.mp3", 2 * kFrameLen + 5);
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 2u * kFrameLen + 100);
  EXPECT_EQ(d.positionAfter, 2 * kFrameLen + 5);
}

TEST(FrameSearch, WindowIs8192Positions) {
  // Zeros hold no candidate; a frame at P + 8191 is found, one at P + 8192 is not.
  Bytes last = Concat({Bytes(8191, 0), Frames(3)});
  Detected d = Detect(last, u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 8191u);
  Bytes beyond = Concat({Bytes(8192, 0), Frames(3)});
  EXPECT_EQ(Detect(beyond, u"a.mp3").code, AF_E_NO_SYNC);
}

TEST(FrameSearch, NeedsASecondHeaderOneFrameOn) {
  // One frame alone is never confirmed.
  EXPECT_EQ(Detect(Concat({Bytes(10, 0), Frames(1), Bytes(20, 0)}), u"a.mp3").code, AF_E_NO_SYNC);
  // A second header that differs in version and rate still confirms the first.
  HeaderFields m2;
  m2.version = kMpeg2;
  m2.bitrateIndex = 8;
  uint32_t other = MakeHeader(m2);
  Bytes data = Concat({Bytes(7, 0), Frames(1), Frames(3, other)});
  Detected d = Detect(data, u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 7u);
}

TEST(FrameSearch, RefusesEachOfTheFiveTests) {
  // Candidates failing one test each, every one followed by a real header one
  // "frame" further on so that only the candidate test can refuse them.
  HeaderFields bad;
  for (int which = 0; which < 4; ++which) {
    HeaderFields s;
    if (which == 0) s.version = 1;        // reserved version
    if (which == 1) s.layerBits = 2;      // Layer II
    if (which == 2) s.bitrateIndex = 15;  // bad bitrate
    if (which == 3) s.rateBits = 3;       // reserved rate
    Bytes data(4, 0);
    PutBE32(data.data(), MakeHeader(s));
    data.resize(kFrameLen, 0);
    Bytes rest = Frames(1);
    data.insert(data.end(), rest.begin(), rest.end());
    // Only one real frame: nothing confirms it, so the search must fail.
    EXPECT_EQ(Detect(data, u"a.mp3").code, AF_E_NO_SYNC) << which;
  }
  // Free format (bitrate index 0) is refused as well.
  HeaderFields free;
  free.bitrateIndex = 0;
  Bytes data(8, 0);
  PutBE32(data.data(), MakeHeader(free));
  PutBE32(data.data() + 4, MakeHeader(free));
  data.resize(200, 0);
  EXPECT_EQ(Detect(data, u"a.mp3").code, AF_E_NO_SYNC);
}

TEST(FrameSearch, DirectCallReportsAbsolutePositionAndRestores) {
  StreamPtr s = MakeStream(Concat({Bytes(40, 0), Junk(60), Frames(3)}));
  ASSERT_EQ(s->Seek(40, ZS_SEEK_SET), AF_S_OK);
  int64_t found = 0;
  ASSERT_EQ(FindFirstFrame(s.get(), &found), AF_S_OK);
  EXPECT_EQ(found, 100);
  int64_t pos = 0;
  s->GetPosition(&pos);
  EXPECT_EQ(pos, 40);
  // First read failing (fewer than 3 bytes left).
  ASSERT_EQ(s->Seek(-2, ZS_SEEK_END), AF_S_OK);
  EXPECT_EQ(FindFirstFrame(s.get(), &found), AF_E_NO_SYNC);
  EXPECT_EQ(found, -1);
}

TEST(ContainerDetect, Id3v1IsCutFromBareStream) {
  Bytes data = Concat({Frames(4), Id3v1Tag()});
  Detected d = Detect(data, u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen);
}

TEST(ContainerDetect, ApeTagWithHeaderIsCut) {
  Bytes ape = ApeTag(100, true);
  ASSERT_EQ(ape.size(), 32u + 100 + 32);
  Detected d = Detect(Concat({Frames(4), ape}), u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBareApe);
  EXPECT_EQ(d.info.containerType, kContainerBareApe);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen);
}

TEST(ContainerDetect, ApeTagWithoutHeaderIsCut) {
  Detected d = Detect(Concat({Frames(4), ApeTag(60, false)}), u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBareApe);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen);
}

TEST(ContainerDetect, ApeTagBeforeId3v1IsCut) {
  Detected d = Detect(Concat({Frames(4), ApeTag(80, true), Id3v1Tag()}), u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBareApe);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen);
}

TEST(ContainerDetect, ApeFooterMarkedAsHeaderIsRefused) {
  Bytes ape = ApeTag(60, false, 1u << 29);
  Detected d = Detect(Concat({Frames(4), ape}), u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen + ape.size());
}

TEST(ContainerDetect, ApeFooterLimits) {
  struct Case {
    uint32_t version;
    uint32_t items;
    bool accepted;
  } cases[] = {{2000, 65536, true}, {2001, 1, false}, {1000, 65537, false}, {0, 0, true}};
  for (const Case& c : cases) {
    Bytes ape = ApeTag(60, false, 0, c.version, c.items);
    Detected d = Detect(Concat({Frames(4), ape}), u"a.mp3");
    ASSERT_EQ(d.code, AF_S_OK);
    EXPECT_EQ(d.layout.containerType, c.accepted ? kContainerBareApe : kContainerBare) << c.version << " " << c.items;
  }
  // A size field below 32 is refused (the size less 32 wraps round).
  Bytes small = ApeTag(0, false);
  small[12] = 16;
  Detected d = Detect(Concat({Frames(4), small}), u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
}

TEST(ContainerDetect, ApeItemAreaSizeLimit) {
  // Tag size less 32 must stay below 16,777,217.
  Bytes audio = Frames(2);
  Bytes fits = Concat({audio, ApeTag(16777216, false)});
  Detected d = Detect(fits, u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBareApe);
  EXPECT_EQ(d.layout.audioLength, audio.size());
  Bytes over = Concat({audio, ApeTag(16777217, false)});
  d = Detect(over, u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
}

TEST(ContainerDetect, ApeTagLargerThanTheAudioIsNotTaken) {
  Bytes ape = ApeTag(60, false);
  size_t footer = ape.size() - 32;
  ape[footer + 12] = 0xFF;  // size field claims far more than the stream holds
  ape[footer + 13] = 0xFF;
  Detected d = Detect(Concat({Frames(4), ape}), u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
}

// 8 kHz MPEG-2.5 at 8 kbit/s: 72-byte frames, small enough for streams near 132 bytes.
HeaderFields TinyHeader() {
  HeaderFields s;
  s.version = kMpeg25;
  s.bitrateIndex = 1;
  s.rateBits = 2;
  s.mode = kJoint;
  return s;
}

TEST(ContainerDetect, ShortStreamsAreNotCheckedForTrailingTags) {
  HeaderFields fields = TinyHeader();
  ASSERT_EQ(FrameBytes(MakeHeader(fields)), 72u);
  // 131 bytes: the last 128 begin with "TAG" (at offset 3, the header's fourth byte
  // 'T' = 0x54 is a valid joint-stereo byte), yet nothing is cut.
  fields.mode = kJoint;
  uint32_t h = MakeHeader(fields);
  h = (h & 0xFFFFFF00u) | 0x54;
  Bytes data(131, 0);
  PutBE32(data.data(), h);
  data[4] = 'A';
  data[5] = 'G';
  Detected d = Detect(data, u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioLength, 131u);
  // 132 bytes with "TAG" 128 bytes before the end: cut.
  Bytes data132(132, 0);
  PutBE32(data132.data(), MakeHeader(TinyHeader()));
  std::memcpy(&data132[4], "TAG", 3);
  d = Detect(data132, u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioLength, 4u);
  EXPECT_EQ(d.layout.containerType, kContainerBare);
}

TEST(ContainerDetect, Id3v2TagThenAudio) {
  Bytes tag = Id3v2Tag(500, 500);
  Bytes data = Concat({tag, Frames(5), Id3v1Tag()});
  Detected d = Detect(data, u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerId3v2);
  EXPECT_EQ(d.info.containerType, kContainerId3v2);
  EXPECT_EQ(d.layout.audioStart, 510u);
  EXPECT_EQ(d.layout.audioLength, 5u * kFrameLen);
}

TEST(ContainerDetect, Id3v2SynchsafeSizeUsesSevenBitsPerByte) {
  // Size 0x0201 -> bytes 00 00 04 01 (synchsafe); a plain reading would give 0x0401.
  Bytes tag = Id3v2Tag(0x201, 0x201);
  EXPECT_EQ(tag[8], 4);
  EXPECT_EQ(tag[9], 1);
  Detected d = Detect(Concat({tag, Frames(3)}), u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 10u + 0x201);
}

TEST(ContainerDetect, Id3v2WithPaddingSearchedOnlyForMp3Names) {
  // The tag's declared size stops 30 bytes short of the first frame.
  Bytes tag = Id3v2Tag(200, 230);
  Bytes data = Concat({tag, Frames(4)});
  Detected d = Detect(data, u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 240u);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen);
  // Without the extension the start is right behind the declared size.
  EXPECT_EQ(Detect(data, u"a.wav").code, AF_E_NO_SYNC);
}

TEST(ContainerDetect, Id3v2KeepsApeTagInsideTheAudio) {
  Bytes ape = ApeTag(64, true);
  Bytes data = Concat({Id3v2Tag(100, 100), Frames(4), ape, Id3v1Tag()});
  Detected d = Detect(data, u"a.mp3");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerId3v2);
  EXPECT_EQ(d.layout.audioLength, 4u * kFrameLen + ape.size());
}

TEST(ContainerDetect, Id3v2SizePastTheEnd) {
  Bytes data = Concat({Id3v2Tag(5000, 0), Frames(2)});
  Detected d = Detect(data, u"a.mp3");
  EXPECT_EQ(d.code, AF_E_BAD_FORMAT);
  // A size that ends exactly at the end: nothing is left to search.
  Bytes exact = Id3v2Tag(50, 50);
  EXPECT_EQ(Detect(exact, u"a.mp3").code, AF_E_NO_SYNC);
  EXPECT_EQ(Detect(exact, u"a.bin").code, AF_E_BAD_FORMAT);
}

TEST(ContainerDetect, Id3v2ShortRemainderIsNotCheckedForId3v1) {
  // 131 bytes after the tag; "TAG" 128 bytes before the end stays inside.
  HeaderFields fields = TinyHeader();
  uint32_t h = (MakeHeader(fields) & 0xFFFFFF00u) | 0x54;
  Bytes audio(131, 0);
  PutBE32(audio.data(), h);
  audio[4] = 'A';
  audio[5] = 'G';
  Detected d = Detect(Concat({Id3v2Tag(20, 20), audio}), u"a.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioLength, 131u);
}

Bytes WaveFile(const Bytes& fmtBody, const Bytes& audio, bool oddChunkFirst = true) {
  Bytes chunks;
  if (oddChunkFirst) chunks = RiffChunk("junk", Bytes{'a', 'b', 'c'});
  Bytes fmt = RiffChunk("fmt ", fmtBody);
  Bytes fact = RiffChunk("fact", Bytes{1, 2, 3, 4});
  Bytes data = RiffChunk("data", audio);
  Bytes list = RiffChunk("LIST", Bytes(20, 'x'));
  return Riff("WAVE", Concat({chunks, fmt, fact, data, list}));
}

TEST(ContainerDetect, RiffWaveLayer3) {
  Bytes audio = Frames(5);
  Bytes file = WaveFile(WaveFormat(0x0055, Bytes(12, 0)), audio);
  size_t d0 = 12 + 12 + 8 + 30 + 12 + 8;
  Detected d = Detect(file, u"x.wav");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerRiffWave);
  EXPECT_EQ(d.layout.audioStart, d0);
  EXPECT_EQ(d.layout.audioLength, audio.size());  // the LIST chunk after "data" is outside
  // Without the ".wav" extension the start is the data position, no search.
  d = Detect(file, u"x.riff");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, d0);
}

TEST(ContainerDetect, RiffWaveOddFormatChunkIsPadded) {
  Bytes fmt = WaveFormat(0x0055, Bytes(13, 0));  // 31 bytes: one pad byte follows
  ASSERT_EQ(fmt.size(), 31u);
  Bytes file = WaveFile(fmt, Frames(3), false);
  Detected d = Detect(file, u"x.bin");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.audioStart, 12u + 8 + 32 + 12 + 8);
}

TEST(ContainerDetect, RiffWaveMpegFormatNeedsHeadLayer4) {
  Bytes audio = Frames(3);
  Detected d = Detect(WaveFile(WaveFormat(0x0050, MpegFormatExtra(4)), audio), u"x.wav");
  ASSERT_EQ(d.code, AF_S_OK);
  EXPECT_EQ(d.layout.containerType, kContainerRiffWave);
  EXPECT_EQ(Detect(WaveFile(WaveFormat(0x0050, MpegFormatExtra(2)), audio), u"x.wav").code, AF_E_NOT_MPEG_LAYER3);
  EXPECT_EQ(Detect(WaveFile(WaveFormat(0x0050, MpegFormatExtra(1)), audio), u"x.wav").code, AF_E_NOT_MPEG_LAYER3);
  // A 16-byte MPEG format has no head-layer field.
  EXPECT_EQ(Detect(WaveFile(WaveFormat(0x0050, {}, false), audio), u"x.wav").code, AF_E_NOT_MPEG_LAYER3);
}

TEST(ContainerDetect, RiffWaveHoldingPcmIsRefused) {
  Bytes pcm(1000, 0x11);
  EXPECT_EQ(Detect(WaveFile(WaveFormat(0x0001, {}, false), pcm), u"x.wav").code, AF_E_NOT_MPEG_LAYER3);
  EXPECT_EQ(Detect(WaveFile(WaveFormat(0x0003, {}), pcm), u"x.wav").code, AF_E_NOT_MPEG_LAYER3);
}

TEST(ContainerDetect, RiffWaveShortFormatChunk) {
  Bytes fmt = WaveFormat(0x0055, {}, false);
  fmt.resize(14);
  EXPECT_EQ(Detect(WaveFile(fmt, Frames(3)), u"x.wav").code, AF_E_BAD_FORMAT);
}

TEST(ContainerDetect, RiffReadFailures) {
  Bytes file = WaveFile(WaveFormat(0x0055, Bytes(12, 0)), Frames(3));
  // Cut inside the RIFF header, before "fmt ", inside "fmt ", before "data".
  for (size_t cut : {size_t(6), size_t(12), size_t(26), size_t(40), size_t(70)}) {
    Bytes part(file.begin(), file.begin() + cut);
    EXPECT_EQ(Detect(part, u"x.wav").code, AF_E_BAD_FORMAT) << cut;
  }
  // No "data" chunk at all.
  Bytes nodata = Riff("WAVE", Concat({RiffChunk("fmt ", WaveFormat(0x0055, Bytes(12, 0))), RiffChunk("LIST", Bytes(8, 0))}));
  EXPECT_EQ(Detect(nodata, u"x.wav").code, AF_E_BAD_FORMAT);
  // A "fmt " chunk claiming more bytes than the file holds.
  Bytes huge = Riff("WAVE", RiffChunk("fmt ", WaveFormat(0x0055, Bytes(12, 0))));
  huge[16] = 0xF0;
  huge[17] = 0xFF;
  huge[18] = 0xFF;
  huge[19] = 0x7F;
  EXPECT_EQ(Detect(huge, u"x.wav").code, AF_E_BAD_FORMAT);
}

TEST(ContainerDetect, RiffUnknownFormIsRefused) {
  Bytes file = Riff("AVI ", RiffChunk("data", Frames(3)));
  EXPECT_EQ(Detect(file, u"x.avi").code, AF_E_BAD_FORMAT);
}

TEST(ContainerDetect, RiffRmp3) {
  Bytes audio = Frames(4);
  // A LIST chunk after "data" larger than the junk keeps the length off the file size.
  Bytes file = Riff("RMP3", Concat({RiffChunk("data", Concat({Junk(40), audio})), RiffChunk("LIST", Bytes(100, 0))}));
  // ".rmp" and ".mp3" search from the data position; other names take it as is.
  for (const char16_t* name : {u"x.rmp", u"x.RMP", u"x.mp3"}) {
    Detected d = Detect(file, name);
    ASSERT_EQ(d.code, AF_S_OK);
    EXPECT_EQ(d.layout.containerType, kContainerRiffRmp3);
    EXPECT_EQ(d.layout.audioStart, 20u + 40);
    // min(data size, size - start) - start + D0: the data size less the 40 junk bytes.
    EXPECT_EQ(d.layout.audioLength, audio.size());
  }
  EXPECT_EQ(Detect(file, u"x.wav").code, AF_E_NO_SYNC);
}

TEST(ContainerDetect, RiffLengthRuleWhenTheDataChunkIsTruncated) {
  // The data chunk claims 1,000,000 bytes; the file stops earlier. The search
  // moves the start on by k = 40, and the length loses k twice.
  Bytes audio = Frames(6);
  Bytes file = Riff("RMP3", RiffChunk("data", Concat({Junk(40), audio})));
  file[16] = 0x40;
  file[17] = 0x42;
  file[18] = 0x0F;
  file[19] = 0x00;
  Detected d = Detect(file, u"x.rmp");
  ASSERT_EQ(d.code, AF_S_OK);
  int64_t d0 = 20, k = 40;
  int64_t start = d0 + k;
  EXPECT_EQ(d.layout.audioStart, static_cast<uint64_t>(start));
  EXPECT_EQ(static_cast<int64_t>(d.layout.audioLength), static_cast<int64_t>(file.size()) - start - k);
  EXPECT_EQ(d.layout.audioLength, audio.size() - 40);
}

TEST(ContainerDetect, RiffLengthRuleWhenASmallChunkFollowsTheData) {
  // size - start is below the data size here (the LIST chunk after "data" is
  // shorter than the 40 junk bytes), so the moved start is taken off twice.
  Bytes audio = Frames(4);
  Bytes file = Riff("RMP3", Concat({RiffChunk("data", Concat({Junk(40), audio})), RiffChunk("LIST", Bytes(6, 0))}));
  Detected d = Detect(file, u"x.rmp");
  ASSERT_EQ(d.code, AF_S_OK);
  int64_t d0 = 20, start = 60, dataSize = 40 + static_cast<int64_t>(audio.size());
  int64_t room = static_cast<int64_t>(file.size()) - start;
  EXPECT_LT(room, dataSize);
  EXPECT_EQ(static_cast<int64_t>(d.layout.audioLength), room - start + d0);
  EXPECT_EQ(d.layout.audioLength, audio.size() - 26);
}

TEST(ContainerDetect, RiffEmptyDataChunkIsRefused) {
  Bytes file = Riff("RMP3", Concat({RiffChunk("data", {}), Frames(3)}));
  EXPECT_EQ(Detect(file, u"x.bin").code, AF_E_BAD_FORMAT);
}

TEST(ContainerDetect, BadFilesGiveClearCodes) {
  EXPECT_EQ(Detect({}, u"empty.mp3").code, AF_E_BAD_FORMAT);
  EXPECT_EQ(Detect({0xFF, 0xFB, 0x90}, u"three.mp3").code, AF_E_BAD_FORMAT);
  Bytes text;
  PutText(text, "This is a plain text file, not audio at all.\nSecond line of it.\n");
  while (text.size() < 3000) PutText(text, "more text ");
  EXPECT_EQ(Detect(text, u"notes.txt").code, AF_E_NO_SYNC);
  EXPECT_EQ(Detect(text, u"notes.mp3").code, AF_E_NO_SYNC);
  EXPECT_EQ(Detect(Bytes(5000, 0xFF), u"ff.mp3").code, AF_E_NO_SYNC);
}

TEST(ContainerDetect, HeaderParserCodesComeThrough) {
  HeaderFields s;
  s.layerBits = 2;
  Bytes data = Frames(3);
  PutBE32(data.data(), MakeHeader(s));
  EXPECT_EQ(Detect(data, u"a.bin").code, AF_E_BAD_LAYER);
}

TEST(ContainerDetect, NullRecordsAreAllowed) {
  StreamPtr s = MakeStream(Concat({Junk(20), Frames(3)}), u"a.mp3");
  StreamLayout layout{};
  EXPECT_EQ(DetectContainer(s.get(), 0, &layout, nullptr, nullptr), AF_S_OK);
  EXPECT_EQ(layout.audioStart, 20u);
  EXPECT_EQ(DetectContainer(s.get(), 0, nullptr, nullptr, nullptr), AF_S_OK);
  EXPECT_EQ(s->RawPosition(), 0);
}

TEST(ContainerDetect, InjectedStreamFailuresNeverCrash) {
  // Every single stream call failing in turn, for each container type: a clean
  // code (or success when the call was not needed), no crash.
  std::vector<std::pair<Bytes, std::u16string>> files = {
      {Concat({Junk(30), Frames(5), ApeTag(40, true), Id3v1Tag()}), u"a.mp3"},
      {Concat({Id3v2Tag(60, 60), Frames(5), Id3v1Tag()}), u"a.mp3"},
      {WaveFile(WaveFormat(0x0055, Bytes(12, 0)), Frames(5)), u"a.wav"},
      {Riff("RMP3", RiffChunk("data", Frames(5))), u"a.rmp"},
  };
  for (auto& [data, name] : files) {
    StreamPtr probe = MakeStream(data, name);
    StreamLayout layout{};
    ASSERT_EQ(DetectContainer(probe.get(), 0, &layout, nullptr, nullptr), AF_S_OK);
    uint64_t calls = probe->CallCount();
    for (uint64_t n = 1; n <= calls; ++n) {
      StreamPtr s = MakeStream(data, name);
      s->FailCall(n);
      alignas(8) MP3Info info{};
      KxResult r = DetectContainer(s.get(), 0, &layout, &info, nullptr);
      if (r != AF_S_OK) {
        EXPECT_TRUE(r == AF_E_BAD_FORMAT || r == AF_E_NO_SYNC) << std::hex << r << " call " << n;
        EXPECT_EQ(layout.containerType, kContainerNone);
      }
    }
  }
}

}  // namespace
}  // namespace kxmp3
