// ID3v2 reader (see id3v2.h). The whole tag body is read with one call into one
// buffer and decoded in place; UTF-16 big-endian text is byte-swapped there and
// unsynchronisation removed there.
//
// Every frame is bounded by the tag's end, whatever size its header claims, and the
// buffer carries 16 zero bytes behind the tag, so no frame can make the reader look
// outside the block it allocated. The block is never larger than the stream.
#include "id3v2.h"

#include <algorithm>
#include <cstring>

#include "../engine/byte_order.h"
#include "../host/kxcore.h"
#include "comment_record.h"
#include "genres.h"
#include "replaygain.h"
#include "text_convert.h"

namespace kxmp3 {
namespace {

constexpr uint32_t kHeaderBytes = 10;
constexpr size_t kSpareBytes = 16;
constexpr uint8_t kFlagUnsynchronisation = 0x80;
constexpr uint8_t kFlagExtendedHeader = 0x40;
// Second (format) byte of a frame's flags.
constexpr uint8_t kFrameCompressedOrEncrypted = 0x08 | 0x04;
constexpr uint8_t kFrameUnsynchronised = 0x02;

constexpr uint32_t kVersion22 = 0x0200;
constexpr uint32_t kVersion23 = 0x0300;
constexpr uint32_t kVersion24 = 0x0400;
// Kept deliberately: 2.3.1 is read with the 2.4 rules.
constexpr uint32_t kVersion231 = 0x0301;

enum Slot : int { kArtist, kTitle, kAlbum, kYear, kTrack, kGenre, kComment, kSlotCount };
enum class FrameKind { kUnknown, kText, kComment, kUserText };

struct KnownFrame {
  char id[5];
  FrameKind kind;
  int slot;
};
const KnownFrame kKnownFrames[] = {
    {"TPE1", FrameKind::kText, kArtist}, {"TIT2", FrameKind::kText, kTitle},
    {"TALB", FrameKind::kText, kAlbum},  {"TDRC", FrameKind::kText, kYear},
    {"TRCK", FrameKind::kText, kTrack},  {"TCON", FrameKind::kText, kGenre},
    {"COMM", FrameKind::kComment, kComment}, {"TXXX", FrameKind::kUserText, -1},
};

// Version 2.2 three-character IDs that map onto the frames above.
struct IdMapping {
  char from[4];
  char to[5];
};
const IdMapping kV22Ids[] = {
    {"TP1", "TPE1"}, {"TT2", "TIT2"}, {"TYE", "TDRC"}, {"TRK", "TRCK"},
    {"TAL", "TALB"}, {"COM", "COMM"}, {"TCO", "TCON"},
};

uint32_t SyncSafe32(const uint8_t* p) {
  return (static_cast<uint32_t>(p[0] & 0x7F) << 21) | (static_cast<uint32_t>(p[1] & 0x7F) << 14) |
         (static_cast<uint32_t>(p[2] & 0x7F) << 7) | static_cast<uint32_t>(p[3] & 0x7F);
}

// Swaps the bytes of every whole pair in p[0..bytes); an odd last byte stays.
void SwapPairs(uint8_t* p, size_t bytes) {
  for (size_t i = 0; i + 1 < bytes; i += 2) std::swap(p[i], p[i + 1]);
}

// `count` little-endian UTF-16 units from p; with stopAtZero the copy ends at the
// first zero unit.
std::u16string Units(const uint8_t* p, size_t count, bool stopAtZero) {
  std::u16string text;
  text.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const auto unit = static_cast<char16_t>(p[2 * i] | (p[2 * i + 1] << 8));
    if (stopAtZero && unit == 0) break;
    text.push_back(unit);
  }
  return text;
}

uint16_t LittleEndian16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

struct CoreBlock {
  explicit CoreBlock(void* p) : block(p) {}
  ~CoreBlock() { ZCoreFree(block); }
  CoreBlock(const CoreBlock&) = delete;
  CoreBlock& operator=(const CoreBlock&) = delete;
  void* block;
};

class TagReader {
 public:
  explicit TagReader(ReplayGainRecord* replayGain) : replayGain_(replayGain) {}

  // Walks the frames of tag data[0..size); data[size] and 16 bytes behind are zero.
  // False when the tag is too short for one frame header.
  bool Walk(uint8_t* data, size_t size, uint32_t version);
  void* BuildRecord() const {
    return BuildCommentRecord(slots_[kArtist].c_str(), slots_[kTitle].c_str(), slots_[kAlbum].c_str(),
                              slots_[kYear].c_str(), slots_[kTrack].c_str(), slots_[kGenre].c_str(),
                              slots_[kComment].c_str());
  }

 private:
  // Text-frame decoding of d[0..size) (d[0] the encoding). keepZeros: the whole body
  // with its inner zeros (for "TXXX"), else the text up to its first zero. False when
  // the frame is to be ignored.
  static bool DecodeText(uint8_t* d, size_t size, bool keepZeros, std::u16string* text);
  static bool DecodeComment(uint8_t* d, size_t size, std::u16string* text);
  void HandleFrame(const KnownFrame& frame, uint8_t* d, size_t size);

  ReplayGainRecord* replayGain_;
  std::u16string slots_[kSlotCount];
};

bool TagReader::DecodeText(uint8_t* d, size_t size, bool keepZeros, std::u16string* text) {
  switch (d[0]) {
    case 0: {
      std::u16string converted = AnsiToWide(reinterpret_cast<const char*>(d + 1), size - 1);
      *text = keepZeros ? converted : UpToZero(converted);
      return true;
    }
    case 1: {
      if (size < 3) return false;
      const uint16_t mark = LittleEndian16(d + 1);
      if (mark == 0xFFFE) {
        SwapPairs(d + 1, size - 1);  // big-endian behind its mark
      } else if (mark != 0xFEFF) {
        return false;
      }
      *text = size >= 5 ? Units(d + 3, (size - 3) / 2, !keepZeros) : std::u16string();
      return true;
    }
    case 2:
      if (size < 3) return false;
      SwapPairs(d + 1, size - 1);
      *text = Units(d + 1, (size - 1) / 2, !keepZeros);
      return true;
    case 3: {
      std::u16string converted = Utf8ToWideCore(reinterpret_cast<const char*>(d + 1), size - 1);
      *text = keepZeros ? converted : UpToZero(converted);
      return true;
    }
    default:
      return false;
  }
}

// "COMM": encoding, three language bytes, a description in the frame's encoding
// (skipped, never compared), then the text.
bool TagReader::DecodeComment(uint8_t* d, size_t size, std::u16string* text) {
  const uint8_t encoding = d[0];
  if (encoding == 0 || encoding == 3) {
    size_t i = 4;
    while (i < size && d[i] != 0) ++i;
    const char* start = reinterpret_cast<const char*>(d + i + 1);
    if (encoding == 0) {
      if (!(i + 1 < size - 1)) return false;
      *text = UpToZero(AnsiToWide(start, size - i - 1));
    } else {
      if (size < i + 2) return false;
      *text = UpToZero(Utf8ToWideCore(start, size - i - 1));
    }
    return true;
  }
  if (encoding != 1 && encoding != 2) return false;
  size_t i = 4;
  while (i + 1 < size && (d[i] != 0 || d[i + 1] != 0)) i += 2;
  const size_t j = i + 2;
  if (size <= j) return false;
  if (encoding == 2) {
    SwapPairs(d + j, size - j);
    *text = Units(d + j, (size - j) / 2, true);
    return true;
  }
  if (j + 1 >= size) return false;  // no room for a byte-order mark
  const uint16_t mark = LittleEndian16(d + j);
  if (mark == 0xFFFE) {
    SwapPairs(d + j, size - j);
  } else if (mark != 0xFEFF) {
    return false;
  }
  *text = Units(d + j + 2, (size - j - 2) / 2, true);
  return true;
}

void TagReader::HandleFrame(const KnownFrame& frame, uint8_t* d, size_t size) {
  std::u16string text;
  switch (frame.kind) {
    case FrameKind::kText:
      if (!DecodeText(d, size, false, &text)) return;
      slots_[frame.slot] = frame.slot == kGenre ? ResolveGenreText(text) : text;
      return;
    case FrameKind::kComment:
      if (DecodeComment(d, size, &text)) slots_[frame.slot] = text;
      return;
    case FrameKind::kUserText:
      if (DecodeText(d, size, true, &text)) ParseReplayGainText(text.data(), text.size(), replayGain_);
      return;
    case FrameKind::kUnknown:
      return;
  }
}

const KnownFrame* FindFrame(const char id[4]) {
  for (const KnownFrame& frame : kKnownFrames) {
    if (std::memcmp(frame.id, id, 4) == 0) return &frame;
  }
  return nullptr;
}

bool TagReader::Walk(uint8_t* data, size_t size, uint32_t version) {
  const size_t headerBytes = version < kVersion23 ? 6 : 10;
  if (size < headerBytes) return false;
  uint64_t p = 0;
  while (p < size - headerBytes) {
    const uint8_t* h = data + p;
    char id[4] = {0, 0, 0, 0};
    uint64_t frameSize;
    uint8_t formatFlags = 0;
    if (version < kVersion23) {
      for (const IdMapping& mapping : kV22Ids) {
        if (std::memcmp(mapping.from, h, 3) == 0) std::memcpy(id, mapping.to, 4);
      }
      frameSize = BigEndian24(h + 3);
    } else {
      std::memcpy(id, h, 4);
      if (version < kVersion24 && std::memcmp(id, "TYER", 4) == 0) std::memcpy(id, "TDRC", 4);
      frameSize = version < kVersion24 ? BigEndian32(h + 4) : SyncSafe32(h + 4);
      formatFlags = h[9];
    }
    const KnownFrame* frame = FindFrame(id);
    if (frameSize > 1 && frame != nullptr && (formatFlags & kFrameCompressedOrEncrypted) == 0) {
      // The frame ends where the tag ends, whatever its header claims.
      size_t bodyBytes = static_cast<size_t>(std::min<uint64_t>(frameSize, size - p - headerBytes));
      if ((formatFlags & kFrameUnsynchronised) != 0) {
        // Kept deliberately: the removal runs over the start of the tag data, not over
        // the frame's own bytes, and the walk then advances by the length it returns.
        bodyBytes = RemoveUnsynchronisation(data, bodyBytes);
        frameSize = bodyBytes;
      }
      if (bodyBytes >= 1) HandleFrame(*frame, data + p + headerBytes, bodyBytes);
    }
    p += frameSize + headerBytes;
  }
  data[std::min<uint64_t>(p, size)] = 0;
  return true;
}

}  // namespace

size_t RemoveUnsynchronisation(uint8_t* data, size_t length) {
  if (length == 0 || data == nullptr) return 0;
  size_t write = 0;
  bool afterFF = false;
  for (size_t read = 0; read < length; ++read) {
    const uint8_t byte = data[read];
    if (afterFF && byte == 0) {
      afterFF = false;
      continue;
    }
    data[write++] = byte;
    afterFF = byte == 0xFF;
  }
  std::memset(data + write, 0, length - write);
  return write;
}

std::u16string ResolveGenreText(const std::u16string& text) {
  const size_t length = text.size();
  bool opened = false;
  bool allDigits = false;
  size_t open = 0;
  size_t close = length;  // length: no ")" ended the scan
  for (size_t i = 0; i < length; ++i) {
    const char16_t c = text[i];
    if (!opened) {
      const char16_t next = i + 1 < length ? text[i + 1] : char16_t{0};
      if (c == u'(' && next != u'(') {
        opened = true;
        allDigits = true;
        open = i;
      }
    } else if (c == u')') {
      close = i;
      break;
    } else if (c < u'0' || c > u'9') {
      allDigits = false;
    }
  }
  if (close < length) {
    const std::u16string rest = text.substr(close + 1);
    for (char16_t c : rest) {
      const bool blank = c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == 0x3000;
      if (!blank) return rest;
    }
  }
  if (opened && allDigits) {
    uint32_t number = 0;
    for (size_t i = open + 1; i < length && text[i] >= u'0' && text[i] <= u'9'; ++i) {
      number = std::min<uint32_t>(number * 10 + static_cast<uint32_t>(text[i] - u'0'), 1000000);
    }
    return GenreNames[number < kGenreUnknown + 1 ? number : kGenreUnknown];
  }
  return text;
}

void* ReadId3v2Tag(Class_ZStream* stream, ReplayGainRecord* replayGain) {
  ResetReplayGainRecord(replayGain);
  if (stream == nullptr) return nullptr;
  int64_t saved = 0;
  if (stream->GetPosition(&saved) != AF_S_OK) return nullptr;
  if (stream->Seek(0, ZS_SEEK_SET) != AF_S_OK) return nullptr;

  uint8_t header[kHeaderBytes];
  uint32_t got = 0;
  if (stream->Read(header, kHeaderBytes, &got) != AF_S_OK || got != kHeaderBytes) return nullptr;
  // Kept deliberately: "ea3" stands in for "ID3" in some players' files.
  if (std::memcmp(header, "ID3", 3) != 0 && std::memcmp(header, "ea3", 3) != 0) return nullptr;
  uint32_t version = header[3] * 256u + header[4];
  if (version > kVersion24) return nullptr;
  if (version == kVersion231) version = kVersion24;
  const uint8_t flags = header[5];
  size_t size = SyncSafe32(header + 6);

  // From here on a failure puts the stream back where it was.
  auto fail = [&]() -> void* {
    stream->Seek(saved, ZS_SEEK_SET);
    return nullptr;
  };
  // A tag cannot be larger than the stream that holds it: check before allocating.
  int64_t streamSize = 0;
  if (stream->GetSize(&streamSize) != AF_S_OK || streamSize < static_cast<int64_t>(kHeaderBytes) ||
      static_cast<uint64_t>(streamSize) - kHeaderBytes < size) {
    return fail();
  }
  CoreBlock buffer(ZCoreAlloc(ZMEM_ZEROED, size + kSpareBytes));
  auto* data = static_cast<uint8_t*>(buffer.block);
  if (data == nullptr) return fail();
  std::memset(data, 0, size + kSpareBytes);
  if (size > 0 && (stream->Read(data, static_cast<uint32_t>(size), &got) != AF_S_OK || got != size)) return fail();

  if ((flags & kFlagUnsynchronisation) != 0) size = RemoveUnsynchronisation(data, size);
  data[size] = 0;

  if (version != kVersion22 && (flags & kFlagExtendedHeader) != 0) {
    // Kept deliberately: 4 is added for both versions, so a 2.4 extended header
    // (whose size already counts itself) is skipped 4 bytes too far.
    const uint64_t extended = uint64_t{version >= kVersion24 ? SyncSafe32(data) : BigEndian32(data)} + 4;
    if (extended >= size) return fail();
    data += extended;
    size -= static_cast<size_t>(extended);
  }

  TagReader reader(replayGain);
  if (!reader.Walk(data, size, version)) return fail();
  void* record = reader.BuildRecord();
  stream->Seek(saved, ZS_SEEK_SET);
  return record;
}

}  // namespace kxmp3
