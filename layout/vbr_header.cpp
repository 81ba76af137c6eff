// Header parser of the first frame: header fields, the "Xing"/"Info" or "VBRI"
// header, the "LAME"/"GOGO" encoder tag (name, delay, padding, its CRC-16), the
// frame count (from the header, by walking the frames, or estimated after 512
// frames) and the values derived from them for the information record.
#include "vbr_header.h"

#include <cstring>
#include <string>

#include "../engine/frame_header.h"
#include "../engine/header_word.h"
#include "../platform/kx_platform.h"
#include "stream_io.h"

namespace kxmp3 {

using namespace layout_io;
using namespace header_word;

namespace {

constexpr uint32_t kXingFlagFrames = 1u << 0;
constexpr uint32_t kXingFlagBytes = 1u << 1;
constexpr uint32_t kXingFlagToc = 1u << 2;
constexpr uint32_t kXingFlagQuality = 1u << 3;
constexpr uint32_t kTocBytes = 100;

// The encoder tag: 4 identifying characters and 32 more bytes; its CRC-16 covers
// the frame up to 34 bytes past the end of the Xing fields.
constexpr uint32_t kEncoderTagBytes = 36;
constexpr uint32_t kEncoderTagCrcSpan = 34;
constexpr uint32_t kMinTagRoom = 36;    // frame bytes after the Xing fields needed to look for a tag
constexpr uint32_t kSlideRoom = 33;     // frame bytes that must remain to slide on by one
constexpr uint32_t kCrcWindow = 256;    // bytes of the frame the CRC word is looked for in
constexpr uint32_t kVbriOffset = 36;    // "VBRI" block offset from the frame start
constexpr uint32_t kVbriBytes = 18;
constexpr uint32_t kVbriFramesOffset = 14;
constexpr uint32_t kWalkResyncBytes = 8192;

const char16_t* const kModeNames[4] = {u"Stereo", u"Joint Stereo", u"Dual Channel", u"Monaural"};

void Append(std::u16string& s, const char* ascii) {
  for (; *ascii; ++ascii) s.push_back(static_cast<unsigned char>(*ascii));
}

void CopyOut(char16_t* dst, size_t capacity, const std::u16string& s) {
  size_t n = s.size() < capacity - 1 ? s.size() : capacity - 1;
  std::memcpy(dst, s.data(), n * sizeof(char16_t));
  dst[n] = 0;
}

// Encoder name of a "LAME" or "GOGO" tag: version characters at tag bytes 4, 6, 7,
// byte 8 choosing "Alpha", "Beta" or a fourth version character.
std::u16string TagEncoderName(const uint8_t* tag) {
  std::u16string s;
  Append(s, std::memcmp(tag, "LAME", 4) == 0 ? "Lame Audio Codec v" : "Gogo-no-Coda v");
  s.push_back(tag[4]);
  s.push_back(u'.');
  s.push_back(tag[6]);
  s.push_back(tag[7]);
  if (tag[8] == 'a' || tag[8] == 'A') {
    Append(s, " Alpha");
  } else if (tag[8] == 'b' || tag[8] == 'B') {
    Append(s, " Beta");
  } else {
    s.push_back(tag[8]);
  }
  // A zero version character ends the text there, as it would end a C string.
  size_t nul = s.find(char16_t(0));
  if (nul != std::u16string::npos) s.resize(nul);
  return s;
}

// Another encoder's tag under a good CRC: its first 9 bytes through the ANSI code
// page, or "Unknown Codec" when the first is zero.
std::u16string OtherEncoderName(const uint8_t* tag) {
  if (tag[0] == 0) return u"Unknown Codec";
  int bytes = 0;
  while (bytes < 9 && tag[bytes] != 0) ++bytes;
  char16_t wide[16] = {};
  int n = KxMultiByteToWideChar(CP_ACP, 0, reinterpret_cast<const char*>(tag), bytes, wide, 15);
  if (n <= 0) return u"Unknown Codec";
  return std::u16string(wide, static_cast<size_t>(n));
}

// What the walk over the frames found.
struct WalkResult {
  uint32_t frames = 0;
  uint32_t bitrateChangeFrame = 0;  // 1-based number of the first frame whose bitrate index differs
  bool estimated = false;
};

// Header word at an absolute position; false when it cannot be read.
bool WordAt(Class_ZStream* stream, int64_t pos, uint32_t* word) {
  uint8_t b[4];
  if (!SeekTo(stream, pos) || !ReadExact(stream, b, 4)) return false;
  *word = BigEndian32(b);
  return true;
}

bool Agrees(uint32_t word, uint32_t previous) {
  return IsLayer3Header(word) && ((word ^ previous) & kWalkCompareMask) == 0;
}

// A frame start found after a mismatch: a valid Layer III header of the stream
// (the bits the frame reader compares: sync, version, layer, sampling frequency)
// whose successor one frame length further on agrees with it in sync, version,
// layer, protection and sampling frequency. A frame that ends exactly at the end
// of the audio data has no successor to ask and is taken as it stands, as the
// frame reader takes the last frame of a stream.
bool ConfirmedStart(Class_ZStream* stream, int64_t pos, int64_t end, uint32_t reference, uint32_t* word) {
  uint32_t candidate = 0;
  if (!WordAt(stream, pos, &candidate)) return false;
  if (!IsLayer3Header(candidate) || ((candidate ^ reference) & kHeaderCompareMask) != 0) return false;
  const int64_t next = pos + HeaderFrameLength(candidate);
  uint32_t successor = 0;
  const bool confirmed = next == end || (next + 4 <= end && WordAt(stream, next, &successor) &&
                                         Agrees(successor, candidate));
  if (confirmed) *word = candidate;
  return confirmed;
}

// Counts the frames in [pos, end). A frame that agrees with the previous one in
// sync, version, layer, protection and sampling frequency is counted at once.
// Otherwise a frame start is looked for from that very byte on, one byte at a
// time over at most 8,192 bytes, and taken when it is confirmed (above): so a
// change of protection, bitrate, channel mode, padding or emphasis goes on
// counting, and only damage or the end of the frames ends the count. Without
// full-count mode and while the bitrate has not changed, stops after 512 frames
// and estimates the count from the last frame's length.
WalkResult WalkFrames(Class_ZStream* stream, int64_t pos, int64_t end, uint32_t previous, bool fullCount) {
  WalkResult w;
  const int64_t walkStart = pos;
  uint32_t previousBitrate = BitrateIndex(previous);
  while (pos + 4 <= end) {
    uint32_t word = 0;
    if (!WordAt(stream, pos, &word)) break;
    if (!Agrees(word, previous)) {
      bool found = false;
      for (uint32_t step = 0; step <= kWalkResyncBytes && pos + step + 4 <= end; ++step) {
        if (ConfirmedStart(stream, pos + step, end, previous, &word)) {
          pos += step;
          found = true;
          break;
        }
      }
      if (!found) break;
    }
    ++w.frames;
    if (w.bitrateChangeFrame == 0 && BitrateIndex(word) != previousBitrate) w.bitrateChangeFrame = w.frames;
    previousBitrate = BitrateIndex(word);
    previous = word;
    uint32_t length = HeaderFrameLength(word);
    if (w.frames == kEstimateAfterFrames && w.bitrateChangeFrame == 0 && !fullCount) {
      uint64_t bytes = static_cast<uint64_t>(end - walkStart);
      w.frames = static_cast<uint32_t>((bytes + length - 1) / length);
      w.estimated = true;
      return w;
    }
    pos += length;
  }
  return w;
}

}  // namespace

uint16_t EncoderTagCrc16(const uint8_t* data, uint32_t bytes) {
  uint16_t crc = 0;
  for (uint32_t i = 0; i < bytes; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
  }
  return crc;
}

namespace {

// The five tests of the first frame header, in order, each with its own code.
KxResult CheckFirstHeader(uint32_t header) {
  if (SyncBits(header) != 0x7FF) return AF_E_NO_SYNC;
  if (VersionBits(header) == 1) return AF_E_BAD_VERSION;
  if (LayerBits(header) != 1) return AF_E_BAD_LAYER;
  if (BitrateIndex(header) == 0 || BitrateIndex(header) == 15) return AF_E_BAD_BITRATE;
  if (RateBits(header) == 3) return AF_E_BAD_SAMPLERATE;
  return AF_S_OK;
}

// The record's fields that the first frame header gives.
void FillHeaderFields(uint32_t header, MP3Info& rec, StreamLayout& out) {
  rec.generic.fourcc = FOURCC_ZMP3;
  rec.generic.size = sizeof(MP3Info);
  rec.generic.formatFourCC = FOURCC_ZMP3;
  rec.generic.bitsPerSample = 16;
  rec.generic.sampleRate = kSampleRates[RateCode(header)];
  rec.generic.channels = Channels(header);
  rec.mpegVersion = VersionIndex(header) + 1;
  rec.layer = 3;
  rec.errorProtection = ProtectionBit(header) == 0 ? 1 : 0;
  rec.privateBit = PrivateBit(header);
  rec.copyrightBit = CopyrightBit(header);
  rec.originalBit = OriginalBit(header);
  rec.emphasis = EmphasisBits(header);
  CopyOut(rec.generic.channelModeName, 64, kModeNames[ModeBits(header)]);
  out.samplesPerFrame = SamplesPerFrame(header);
}

// What the Xing/Info header gave.
struct XingHeader {
  bool found = false;      // "Xing" or "Info" after the side information
  bool complete = false;   // every field its flags announce could be read
  bool haveCount = false;  // it has a frames field
  uint32_t end = 0;        // bytes from the frame start to the end of its fields
};

// A "Xing" or "Info" header after the side information of the first frame: its
// flags, then each field whose flag is set (frames, bytes, table of contents,
// quality).
XingHeader ReadXingHeader(Class_ZStream* stream, int64_t frameStart, uint32_t header, StreamLayout& out) {
  XingHeader x;
  uint8_t id[4];
  const uint32_t xingOffset = 4 + SideInfoBytes(header);
  if (!SeekTo(stream, frameStart + xingOffset) || !ReadExact(stream, id, 4) ||
      (std::memcmp(id, "Xing", 4) != 0 && std::memcmp(id, "Info", 4) != 0)) {
    return x;
  }
  x.found = true;
  out.vbrKind = std::memcmp(id, "Xing", 4) == 0 ? 1 : 0;
  out.vbrHeaderFrame = 1;
  x.end = xingOffset + 4;
  bool ok = true;
  uint8_t word[4];
  auto field = [&](uint32_t* value) {
    ok = ok && ReadExact(stream, word, 4);
    if (ok) {
      *value = BigEndian32(word);
      x.end += 4;
    }
    return ok;
  };
  uint32_t flags = 0;
  if (field(&flags)) out.xingFlags = flags;
  uint32_t value = 0;
  if (ok && (flags & kXingFlagFrames) && field(&value)) {
    out.frameCount = value;
    x.haveCount = true;
  }
  if (ok && (flags & kXingFlagBytes) && field(&value)) out.xingBytes = value;
  if (ok && (flags & kXingFlagToc)) {
    ok = ReadExact(stream, out.xingToc, kTocBytes);
    if (ok) {
      out.hasToc = 1;
      x.end += kTocBytes;
    }
  }
  if (ok && (flags & kXingFlagQuality) && field(&value)) out.xingQuality = value;
  x.complete = ok;
  return x;
}

// What the encoder tag after the Xing fields gave.
struct EncoderTag {
  bool found = false;  // a "LAME"/"GOGO" tag, or another vouched for by its CRC
  std::u16string name;
  uint32_t delay = 0;
  uint32_t padding = 0;
};

// The encoder tag after the Xing fields (which end `xingEnd` bytes into the frame),
// checked by its CRC-16, or looked for by sliding when the CRC is not found.
EncoderTag ReadEncoderTag(Class_ZStream* stream, int64_t frameStart, uint32_t frameLength, uint32_t xingEnd) {
  EncoderTag t;
  if (frameLength < xingEnd || frameLength - xingEnd < kMinTagRoom) return t;
  // The frame plus room for a tag that slides towards its end.
  uint8_t frame[2048 + kEncoderTagBytes];
  uint32_t want = frameLength + kEncoderTagBytes;
  if (want > sizeof(frame)) want = sizeof(frame);
  const uint32_t got = SeekTo(stream, frameStart) ? ReadSome(stream, frame, want) : 0;

  // CRC over the first N bytes; its word is looked for from N onward within the
  // first 256 bytes. Only a tag right after the Xing fields (distance 0) can match
  // in practice, since the summed range stays N bytes.
  const uint32_t n = xingEnd + kEncoderTagCrcSpan;
  const uint32_t window = got < kCrcWindow ? got : kCrcWindow;
  bool crcGood = false;
  uint32_t tagPos = xingEnd;
  if (n + 2 <= window) {
    const uint16_t crc = EncoderTagCrc16(frame, n);
    for (uint32_t p = n; p + 2 <= window; ++p) {
      if (((frame[p] << 8) | frame[p + 1]) == crc) {
        crcGood = true;
        tagPos = xingEnd + (p - n);
        break;
      }
    }
  }
  auto isKnownTag = [&](uint32_t p) {
    return p + 4 <= got && (std::memcmp(frame + p, "LAME", 4) == 0 || std::memcmp(frame + p, "GOGO", 4) == 0);
  };
  if (!crcGood) {
    while (!isKnownTag(tagPos) && frameLength >= tagPos && frameLength - tagPos >= kSlideRoom) ++tagPos;
  }
  if (tagPos + kEncoderTagBytes > got) return t;
  const uint8_t* tag = frame + tagPos;
  if (isKnownTag(tagPos)) {
    t.found = true;
    t.name = TagEncoderName(tag);
    if (!crcGood) Append(t.name, " [Bad CRC]");
  } else if (crcGood) {
    // Another encoder writing the same tag layout, vouched for by the CRC.
    t.found = true;
    t.name = OtherEncoderName(tag);
  }
  if (t.found) {
    t.delay = tag[21] * 16u + tag[22] / 16u;
    t.padding = (tag[22] % 16u) * 256u + tag[23];
  }
  return t;
}

// A "VBRI" header 36 bytes into the first frame: its frame count.
bool ReadVbriHeader(Class_ZStream* stream, int64_t frameStart, StreamLayout& out) {
  uint8_t vbri[kVbriBytes];
  if (!SeekTo(stream, frameStart + kVbriOffset) || ReadSome(stream, vbri, kVbriBytes) != kVbriBytes ||
      std::memcmp(vbri, "VBRI", 4) != 0) {
    return false;
  }
  out.frameCount = BigEndian32(vbri + kVbriFramesOffset);
  out.vbrKind = 1;
  return true;
}

// The frame count of a stream whose VBR header gives none: the frames are walked
// from the first (after a header frame, which holds no audio and is not counted).
void CountByWalking(Class_ZStream* stream, int64_t frameStart, uint32_t frameLength, uint32_t header,
                    uint32_t openFlags, StreamLayout& out) {
  const int64_t audioEnd = static_cast<int64_t>(out.audioStart + out.audioLength);
  const int64_t walkFrom = frameStart + (out.vbrHeaderFrame ? frameLength : 0);
  uint32_t previous = header;
  if (out.vbrHeaderFrame) WordAt(stream, walkFrom, &previous);
  const WalkResult w = WalkFrames(stream, walkFrom, audioEnd, previous, (openFlags & OPEN_FLAG_FULL_SCAN) != 0);
  out.frameCount = w.frames;
  out.bitrateChangeFrame = w.bitrateChangeFrame;
  if (w.estimated) {
    out.countSource = MP3_HEADER_FLAG_ESTIMATED;
  } else {
    out.countSource = MP3_HEADER_FLAG_SCANNED;
    out.outputLimitInForce = 1;
  }
}

// The record's "VBR header kind": a walked stream whose bitrate changes reports the
// frame where it first changed, any other the header's kind.
uint32_t RecordVbrKind(const StreamLayout& out) {
  return out.bitrateChangeFrame != 0 ? out.bitrateChangeFrame : out.vbrKind;
}

// Total PCM bytes, playing time, bitrate, format flags and description. False when
// the total is not positive.
bool DeriveFields(uint32_t header, const StreamLayout& out, bool identified, const std::u16string& encoder,
                  MP3Info& rec) {
  const uint32_t version = VersionIndex(header);
  const uint32_t rate = kSampleRates[RateCode(header)];
  const uint32_t channels = Channels(header);
  const int64_t total = static_cast<int64_t>(version == 0 ? 2 : 1) * out.frameCount * channels * 1152 -
                        static_cast<int64_t>(out.samplesRemoved) * channels * 2;
  if (total <= 0) return false;
  const bool vbr = RecordVbrKind(out) != 0;
  rec.generic.totalPcmBytes = static_cast<uint64_t>(total);
  rec.generic.playTimeMs = static_cast<uint64_t>(total) * 1000 / (static_cast<uint64_t>(rate) * channels * 2);
  rec.generic.bitrateKbps =
      vbr ? static_cast<uint32_t>(16ull * rate * channels * out.audioLength / (static_cast<uint64_t>(total) * 1000))
          : kBitrates[version == 0 ? 0 : 1][BitrateIndex(header)];
  rec.generic.formatFlags = vbr ? AFI_FLAG_VBR : 0;

  std::u16string description;
  char versionText[8] = "2.5";
  if (version != 2) {
    versionText[0] = static_cast<char>('1' + version);
    versionText[1] = '.';
    versionText[2] = '0';
  }
  if (identified) {
    description = encoder;
    Append(description, " (Compatible with MPEG ");
    Append(description, versionText);
    Append(description, " Audio Layer-III)");
  } else {
    Append(description, "MPEG ");
    Append(description, versionText);
    Append(description, " Audio Layer-III");
  }
  CopyOut(rec.generic.description, 128, description);

  rec.frameCount = out.frameCount;
  rec.vbrKind = RecordVbrKind(out);
  rec.startSkip = out.startSkip;
  rec.samplesRemoved = out.samplesRemoved;
  rec.vbrHeaderFrame = out.vbrHeaderFrame;
  rec.headerFlags = out.countSource | (identified ? MP3_HEADER_FLAG_ENCODER_IDENTIFIED : 0);
  return true;
}

}  // namespace

KxResult ParseFirstFrame(Class_ZStream* stream, uint32_t header, MP3Info* info, uint32_t openFlags,
                         StreamLayout* layout) {
  MP3Info localInfo{};
  StreamLayout localLayout{};
  MP3Info& rec = info ? *info : localInfo;
  StreamLayout& out = layout ? *layout : localLayout;

  // Header fields that the parser owns in the layout, cleared for a fresh start.
  auto clearParsed = [&out]() {
    StreamLayout keep = out;
    out = StreamLayout{};
    out.containerType = keep.containerType;
    out.audioStart = keep.audioStart;
    out.audioLength = keep.audioLength;
    out.firstHeader = keep.firstHeader;
  };
  auto refuse = [&](KxResult code) {
    rec = MP3Info{};
    clearParsed();
    return code;
  };
  clearParsed();

  // 1. The header.
  const KxResult checked = CheckFirstHeader(header);
  if (checked != AF_S_OK) return refuse(checked);
  int64_t frameStart = static_cast<int64_t>(out.audioStart);
  if (!Tell(stream, &frameStart)) frameStart = static_cast<int64_t>(out.audioStart);
  FillHeaderFields(header, rec, out);
  const uint32_t frameLength = HeaderFrameLength(header);

  // 2. The VBR header: "Xing"/"Info" with its encoder tag, or "VBRI".
  const XingHeader xing = ReadXingHeader(stream, frameStart, header, out);
  EncoderTag tag;
  bool vbriFound = false;
  if (xing.found) {
    if (xing.complete) tag = ReadEncoderTag(stream, frameStart, frameLength, xing.end);
  } else {
    vbriFound = ReadVbriHeader(stream, frameStart, out);
  }

  // 3. The frame count: from the header, or by walking the frames.
  if (xing.haveCount || vbriFound) {
    out.countSource = MP3_HEADER_FLAG_COUNT_FROM_HEADER;
    out.outputLimitInForce = 1;
  } else {
    CountByWalking(stream, frameStart, frameLength, header, openFlags, out);
  }

  // 4. Delay and padding. With an encoder tag the open skips the encoder delay, the
  // decoder's own delay and the header frame (decoded as one frame of silence);
  // without one it skips only the silent header frame, so that no audio is lost.
  // A "VBRI" frame is decoded like any other frame but holds no audio either.
  out.encoderDelay = tag.delay;
  out.encoderPadding = tag.padding;
  out.samplesRemoved = tag.delay + tag.padding;
  out.startSkip = (tag.found ? tag.delay + kDecoderDelay : 0) + (out.vbrHeaderFrame || vbriFound ? out.samplesPerFrame : 0);
  CopyOut(out.encoderName, 64, tag.name);

  // 5. The derived fields.
  if (!DeriveFields(header, out, tag.found, tag.name, rec)) {
    SeekTo(stream, frameStart);
    return refuse(AF_E_BAD_FORMAT);
  }
  SeekTo(stream, frameStart);
  return AF_S_OK;
}

}  // namespace kxmp3
