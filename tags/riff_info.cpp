// RIFF INFO reader (see riff_info.h).
//
// The chunk walk only moves forward and stops at the stream's end, so it ends after
// at most size / 8 steps. The body buffer is never larger than the bytes the stream
// still holds: a LIST that claims more is read as far as the data goes and the rest
// counts as zeros, which is what a short read leaves there anyway.
#include "riff_info.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "../engine/byte_order.h"
#include "../host/kxcore.h"
#include "comment_record.h"
#include "text_convert.h"

namespace kxmp3 {
namespace {

enum Field : int { kArtist, kTitle, kAlbum, kYear, kTrack, kGenre, kComment, kFieldCount };

struct InfoChunk {
  char id[5];
  int field;
};
const InfoChunk kInfoChunks[] = {
    {"IART", kArtist}, {"INAM", kTitle}, {"IPRD", kAlbum}, {"ICRD", kYear},
    {"ITRK", kTrack},  {"IGNR", kGenre}, {"ICMT", kComment},
};

bool ReadExact(Class_ZStream* stream, void* buffer, uint32_t bytes) {
  uint32_t got = 0;
  return stream->Read(buffer, bytes, &got) == AF_S_OK && got == bytes;
}

struct CoreBlock {
  explicit CoreBlock(void* p) : block(static_cast<uint8_t*>(p)) {}
  ~CoreBlock() { ZCoreFree(block); }
  CoreBlock(const CoreBlock&) = delete;
  CoreBlock& operator=(const CoreBlock&) = delete;
  uint8_t* block;
};

// Finds the first LIST chunk and checks its type. On success the stream stands at
// the body behind "INFO" and *listSize holds the chunk's size.
bool FindInfoList(Class_ZStream* stream, uint32_t* listSize) {
  uint8_t bytes[8];
  if (stream->Seek(0, ZS_SEEK_SET) != AF_S_OK || !ReadExact(stream, bytes, 4) ||
      std::memcmp(bytes, "RIFF", 4) != 0) {
    return false;
  }
  if (!ReadExact(stream, bytes, 8)) return false;  // RIFF size and form type, unused
  int64_t streamSize = 0;
  if (stream->GetSize(&streamSize) != AF_S_OK) return false;
  if (!ReadExact(stream, bytes, 8)) return false;
  int64_t position = 20;
  while (std::memcmp(bytes, "LIST", 4) != 0) {
    const uint64_t size = LittleEndian32(bytes + 4);
    const uint64_t skip = size + (size & 1);
    // Past the end the next read could only fail: stop here, which also bounds the walk.
    if (skip > static_cast<uint64_t>(streamSize - position)) return false;
    if (stream->Seek(static_cast<int64_t>(skip), ZS_SEEK_CUR) != AF_S_OK) return false;
    if (!ReadExact(stream, bytes, 8)) return false;
    position += static_cast<int64_t>(skip) + 8;
  }
  *listSize = LittleEndian32(bytes + 4);
  if (*listSize < 5) return false;  // kept deliberately: only the first LIST is considered
  return ReadExact(stream, bytes, 4) && std::memcmp(bytes, "INFO", 4) == 0;
}

}  // namespace

void* ReadRiffInfoList(Class_ZStream* stream, const char16_t* id3v1Track) {
  if (stream == nullptr) return nullptr;
  int64_t saved = 0;
  if (stream->GetPosition(&saved) != AF_S_OK) return nullptr;
  auto giveUp = [&]() -> void* {
    stream->Seek(saved, ZS_SEEK_SET);
    return nullptr;
  };

  uint32_t listSize = 0;
  if (!FindInfoList(stream, &listSize)) return giveUp();
  const uint64_t body = listSize - 4;  // B: the bytes the chunk says follow "INFO"

  int64_t position = 0;
  int64_t streamSize = 0;
  if (stream->GetPosition(&position) != AF_S_OK || stream->GetSize(&streamSize) != AF_S_OK) return giveUp();
  const uint64_t remaining = streamSize > position ? static_cast<uint64_t>(streamSize - position) : 0;
  const size_t held = static_cast<size_t>(std::min<uint64_t>(body, remaining));  // bytes that can arrive
  CoreBlock buffer(ZCoreAlloc(ZMEM_PLAIN, held + 1));
  uint8_t* data = buffer.block;
  if (data == nullptr) return giveUp();
  std::memset(data, 0, held + 1);
  uint32_t got = 0;
  const KxResult result = held > 0 ? stream->Read(data, static_cast<uint32_t>(held), &got) : AF_S_OK;
  if (result != AF_S_OK && !(result == ZS_E_END_OF_DATA && got < held)) return giveUp();
  // Bytes beyond `held` (up to B) read as zero.
  auto byteAt = [&](uint64_t i) -> uint8_t { return i < held ? data[i] : uint8_t{0}; };

  int64_t text[kFieldCount];
  std::fill(std::begin(text), std::end(text), -1);
  bool titleFromName = false;
  if (body >= 8) {
    uint64_t o = 0;
    while (o < held) {  // beyond the data only zero chunks remain, which name nothing
      char id[4];
      uint8_t sizeBytes[4];
      for (int k = 0; k < 4; ++k) id[k] = static_cast<char>(byteAt(o + k));
      for (int k = 0; k < 4; ++k) sizeBytes[k] = byteAt(o + 4 + k);
      const uint64_t length = LittleEndian32(sizeBytes);
      const uint64_t next = o + length + (length & 1) + 8;
      if (next > body) break;  // claims more than the list holds
      data[o] = 0;             // ends the text of the chunk before
      for (const InfoChunk& chunk : kInfoChunks) {
        if (std::memcmp(id, chunk.id, 4) == 0) {
          text[chunk.field] = static_cast<int64_t>(o + 8);
          if (chunk.field == kTitle) titleFromName = true;
        }
      }
      if (std::memcmp(id, "ISBJ", 4) == 0 && !titleFromName) text[kTitle] = static_cast<int64_t>(o + 8);
      o = next;
      if (o + 8 > body) break;
    }
    if (o < held) data[o] = 0;
  }
  stream->Seek(saved, ZS_SEEK_SET);

  std::u16string wide[kFieldCount];
  for (int f = 0; f < kFieldCount; ++f) {
    if (text[f] >= 0 && static_cast<uint64_t>(text[f]) < held) {
      wide[f] = AnsiToWide(reinterpret_cast<const char*>(data + text[f]));
    }
  }
  if (wide[kTrack].empty() && id3v1Track != nullptr && id3v1Track[0] != 0) {
    // Through the ANSI code page and back, as every other text of the list.
    wide[kTrack] = AnsiToWide(WideToAnsi(id3v1Track).c_str());
  }
  return BuildCommentRecord(wide[kArtist].c_str(), wide[kTitle].c_str(), wide[kAlbum].c_str(),
                            wide[kYear].c_str(), wide[kTrack].c_str(), wide[kGenre].c_str(),
                            wide[kComment].c_str());
}

}  // namespace kxmp3
