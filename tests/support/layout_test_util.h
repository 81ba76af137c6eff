// Helpers of the layout tests: frame header words and frames built byte by byte
// (frame lengths recomputed here from the standard's formula, independently of the
// engine's table), Xing/Info frames with an optional encoder tag and its CRC-16,
// RIFF and tag wrappers, a stream holder that releases its stream, and the fixture
// manifest of tests/data/mp3.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/memory_stream.h"

namespace layouttest {

using Bytes = std::vector<uint8_t>;

// Version bits of the header.
constexpr uint32_t kMpeg1 = 3;
constexpr uint32_t kMpeg2 = 2;
constexpr uint32_t kMpeg25 = 0;
// Mode bits of the header.
constexpr uint32_t kStereo = 0;
constexpr uint32_t kJoint = 1;
constexpr uint32_t kDual = 2;
constexpr uint32_t kMono = 3;

struct HeaderFields {
  uint32_t version = kMpeg1;
  uint32_t bitrateIndex = 9;  // 128 kbit/s for MPEG-1
  uint32_t rateBits = 0;      // 44100 Hz for MPEG-1
  uint32_t mode = kJoint;
  bool padding = false;
  bool crc = false;           // protection bit 0: a check word follows
  uint32_t emphasis = 0;
  bool privateBit = false;
  bool copyright = false;
  bool original = true;
  uint32_t layerBits = 1;     // 01 = Layer III
};

inline uint32_t MakeHeader(const HeaderFields& s) {
  return (0x7FFu << 21) | (s.version << 19) | (s.layerBits << 17) | ((s.crc ? 0u : 1u) << 16) |
         (s.bitrateIndex << 12) | (s.rateBits << 10) | ((s.padding ? 1u : 0u) << 9) |
         ((s.privateBit ? 1u : 0u) << 8) | (s.mode << 6) | ((s.copyright ? 1u : 0u) << 3) |
         ((s.original ? 1u : 0u) << 2) | s.emphasis;
}

// Layer III bitrates (kbit/s) of ISO/IEC 11172-3 and 13818-3, and sampling rates.
inline uint32_t BitrateOf(uint32_t versionBits, uint32_t index) {
  static const uint32_t m1[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
  static const uint32_t m2[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
  return versionBits == kMpeg1 ? m1[index] : m2[index];
}
inline uint32_t RateOf(uint32_t versionBits, uint32_t rateBits) {
  static const uint32_t base[3] = {44100, 48000, 32000};
  uint32_t div = versionBits == kMpeg1 ? 1 : (versionBits == kMpeg2 ? 2 : 4);
  return base[rateBits] / div;
}
// Frame length: floor(144000 x kbit/s / Hz) (MPEG-1) or floor(72000 x kbit/s / Hz), plus padding.
inline uint32_t FrameBytes(uint32_t header) {
  uint32_t v = (header >> 19) & 3;
  uint32_t kbps = BitrateOf(v, (header >> 12) & 15);
  uint32_t hz = RateOf(v, (header >> 10) & 3);
  return (v == kMpeg1 ? 144000 : 72000) * kbps / hz + ((header >> 9) & 1);
}
inline uint32_t SideInfoOf(uint32_t header) {
  bool mono = ((header >> 6) & 3) == kMono;
  if (((header >> 19) & 3) == kMpeg1) return mono ? 17 : 32;
  return mono ? 9 : 17;
}

inline void PutBE32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}
inline void PutLE32(Bytes& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
inline void PutLE16(Bytes& b, uint32_t v) {
  b.push_back(static_cast<uint8_t>(v));
  b.push_back(static_cast<uint8_t>(v >> 8));
}
inline void PutText(Bytes& b, const char* text) {
  for (const char* c = text; *c != 0; ++c) b.push_back(static_cast<uint8_t>(*c));
}

// One frame: the header and zero bytes up to its length.
inline Bytes Frame(uint32_t header) {
  Bytes f(FrameBytes(header), 0);
  PutBE32(f.data(), header);
  return f;
}
inline void AppendFrames(Bytes& out, uint32_t header, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    Bytes f = Frame(header);
    out.insert(out.end(), f.begin(), f.end());
  }
}

// CRC-16 of the encoder tag, computed bit by bit (reflected polynomial 0xA001, init 0).
inline uint16_t Crc16(const uint8_t* p, size_t n) {
  uint16_t crc = 0;
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int b = 0; b < 8; ++b) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
  }
  return crc;
}

struct XingFields {
  const char* id = "Xing";      // "Xing" or "Info"
  uint32_t flags = 0xF;         // frames, bytes, TOC, quality
  uint32_t frames = 0;
  uint32_t bytes = 0;
  uint32_t quality = 57;
  const char* tag = "LAME";     // "LAME", "GOGO", another 9-byte encoder text, or nullptr: no tag
  const char* version = "3.100";  // characters after the tag id (5 used: tag bytes 4..8)
  uint32_t delay = 576;
  uint32_t padding = 1404;
  bool goodCrc = true;
  uint32_t tagShift = 0;        // bytes of zeros between the Xing fields and the tag
};

// A frame carrying a Xing/Info header after the side information and, optionally,
// an encoder tag whose CRC covers the frame up to tag byte 34.
inline Bytes XingFrame(uint32_t header, const XingFields& x) {
  Bytes f = Frame(header);
  size_t p = 4 + SideInfoOf(header);
  std::memcpy(&f[p], x.id, 4);
  PutBE32(&f[p + 4], x.flags);
  p += 8;
  if (x.flags & 1) { PutBE32(&f[p], x.frames); p += 4; }
  if (x.flags & 2) { PutBE32(&f[p], x.bytes); p += 4; }
  if (x.flags & 4) { for (int i = 0; i < 100; ++i) f[p + i] = static_cast<uint8_t>(i * 2); p += 100; }
  if (x.flags & 8) { PutBE32(&f[p], x.quality); p += 4; }
  if (x.tag != nullptr) {
    size_t t = p + x.tagShift;
    size_t idLen = std::strlen(x.tag);
    std::memcpy(&f[t], x.tag, idLen < 9 ? idLen : 9);
    if (idLen == 4) std::memcpy(&f[t + 4], x.version, std::strlen(x.version) < 5 ? std::strlen(x.version) : 5);
    f[t + 21] = static_cast<uint8_t>(x.delay >> 4);
    f[t + 22] = static_cast<uint8_t>(((x.delay & 15) << 4) | (x.padding >> 8));
    f[t + 23] = static_cast<uint8_t>(x.padding);
    uint16_t crc = Crc16(f.data(), t + 34);
    if (!x.goodCrc) crc ^= 0x5A5A;
    f[t + 34] = static_cast<uint8_t>(crc >> 8);
    f[t + 35] = static_cast<uint8_t>(crc);
  }
  return f;
}

inline Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

inline Bytes RiffChunk(const char* id, const Bytes& body) {
  Bytes c;
  PutText(c, id);
  PutLE32(c, static_cast<uint32_t>(body.size()));
  c.insert(c.end(), body.begin(), body.end());
  if (body.size() & 1) c.push_back(0);
  return c;
}
inline Bytes Riff(const char* form, const Bytes& chunks) {
  Bytes r;
  PutText(r, "RIFF");
  PutLE32(r, static_cast<uint32_t>(4 + chunks.size()));
  PutText(r, form);
  r.insert(r.end(), chunks.begin(), chunks.end());
  return r;
}
// A WAVE "fmt " body: format tag, 2 channels, 44100 Hz, and `extra` after the 18 bytes.
inline Bytes WaveFormat(uint16_t tag, const Bytes& extra, bool withCbSize = true) {
  Bytes f;
  PutLE16(f, tag);
  PutLE16(f, 2);
  PutLE32(f, 44100);
  PutLE32(f, 16000);
  PutLE16(f, 1);
  PutLE16(f, 0);
  if (withCbSize) PutLE16(f, static_cast<uint32_t>(extra.size()));
  f.insert(f.end(), extra.begin(), extra.end());
  return f;
}
// The 22 bytes after WAVEFORMATEX of an MPEG (0x0050) format, head layer first.
inline Bytes MpegFormatExtra(uint16_t headLayer) {
  Bytes e;
  PutLE16(e, headLayer);
  PutLE32(e, 128000);
  for (int i = 0; i < 4; ++i) PutLE16(e, 0);
  PutLE32(e, 0);
  PutLE32(e, 0);
  return e;
}

inline Bytes Id3v1Tag() {
  Bytes t(128, 0);
  std::memcpy(t.data(), "TAG", 3);
  std::memcpy(t.data() + 3, "Title", 5);
  return t;
}
// ID3v2.3 header with a synchsafe size and `size` zero bytes of body.
inline Bytes Id3v2Tag(uint32_t size, uint32_t bodyBytes) {
  Bytes t = {'I', 'D', '3', 3, 0, 0, static_cast<uint8_t>((size >> 21) & 0x7F),
             static_cast<uint8_t>((size >> 14) & 0x7F), static_cast<uint8_t>((size >> 7) & 0x7F),
             static_cast<uint8_t>(size & 0x7F)};
  t.resize(10 + bodyBytes, 0);
  return t;
}
// APE tag: items area of `itemBytes` zero bytes, then the footer; with a header in
// front when `withHeader`. `footerFlags` adds flags to the footer.
inline Bytes ApeTag(uint32_t itemBytes, bool withHeader, uint32_t footerFlags = 0, uint32_t version = 2000,
                    uint32_t items = 1) {
  auto block = [&](uint32_t flags) {
    Bytes b;
    PutText(b, "APETAGEX");
    PutLE32(b, version);
    PutLE32(b, itemBytes + 32);
    PutLE32(b, items);
    PutLE32(b, flags);
    b.resize(b.size() + 8, 0);
    return b;
  };
  uint32_t hasHeader = withHeader ? (1u << 31) : 0;
  Bytes t;
  if (withHeader) t = block(hasHeader | (1u << 29));
  t.resize(t.size() + itemBytes, 0);
  Bytes f = block(hasHeader | footerFlags);
  t.insert(t.end(), f.begin(), f.end());
  return t;
}

// Owns one reference of a memory stream.
struct StreamDeleter {
  void operator()(kxtest::MemoryStream* s) const { s->Release(); }
};
using StreamPtr = std::unique_ptr<kxtest::MemoryStream, StreamDeleter>;
inline StreamPtr MakeStream(Bytes data, std::u16string name = u"test.mp3") {
  return StreamPtr(kxtest::MemoryStream::Make(std::move(data), std::move(name)));
}

// One line of tests/data/mp3/manifest.txt.
struct FixtureInfo {
  std::string name;
  uint32_t rate = 0;
  uint32_t channels = 0;
  uint64_t samples = 0;
  std::string options;          // lame options, or the container description
  std::map<std::string, std::string> keys;  // container=, of=, offset=, length=
};
std::vector<FixtureInfo> LoadManifest();
std::string FixturePath(const std::string& name);
Bytes LoadFixture(const std::string& name);

}  // namespace layouttest
