// Packing, merging and reading comment records (see comment_record.h).
#include "comment_record.h"

#include <cstring>

#include "../host/kxcore.h"
#include "../host/kx_types.h"

namespace kxmp3 {
namespace {

constexpr size_t kHeaderBytes = sizeof(CommentRecordHeader);

size_t Length(const char16_t* text) {
  size_t n = 0;
  if (text != nullptr) {
    while (text[n] != 0) ++n;
  }
  return n;
}

char16_t Blanked(char16_t c) { return (c == u'\n' || c == u'\r' || c == u'\t') ? u' ' : c; }

}  // namespace

void* BuildCommentRecord(const char16_t* artist, const char16_t* title, const char16_t* album,
                         const char16_t* year, const char16_t* track, const char16_t* genre,
                         const char16_t* comment) {
  const char16_t* texts[kCommentFieldCount] = {artist, title, album, year, track, genre, comment};
  size_t lengths[kCommentFieldCount];
  size_t units = 0;
  for (int i = 0; i < kCommentFieldCount; ++i) {
    lengths[i] = Length(texts[i]) + 1;  // with the terminator
    units += lengths[i];
  }
  const size_t bytes = kHeaderBytes + 2 * units;
  auto* block = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, bytes));
  if (block == nullptr) return nullptr;
  std::memset(block, 0, bytes);

  CommentRecordHeader header{};
  header.fourcc = FOURCC_ZAFC;
  header.size = static_cast<uint32_t>(bytes);
  auto* strings = reinterpret_cast<char16_t*>(block + kHeaderBytes);
  size_t offset = 0;
  for (int i = 0; i < kCommentFieldCount; ++i) {
    header.fields[i].offset = static_cast<int32_t>(offset);
    header.fields[i].reserved = 0;
    for (size_t k = 0; k + 1 < lengths[i]; ++k) strings[offset + k] = Blanked(texts[i][k]);
    strings[offset + lengths[i] - 1] = 0;
    offset += lengths[i];
  }
  std::memcpy(block, &header, kHeaderBytes);
  return block;
}

uint32_t CommentRecordSize(const void* record) {
  if (record == nullptr) return 0;
  CommentRecordHeader header;
  std::memcpy(&header, record, kHeaderBytes);
  if (header.fourcc != FOURCC_ZAFC || header.size < kHeaderBytes) return 0;
  return header.size;
}

std::u16string CommentRecordField(const void* record, int field) {
  const uint32_t size = CommentRecordSize(record);
  if (size == 0 || field < 0 || field >= kCommentFieldCount) return {};
  CommentRecordHeader header;
  std::memcpy(&header, record, kHeaderBytes);
  const int64_t offset = header.fields[field].offset;
  const int64_t units = (static_cast<int64_t>(size) - static_cast<int64_t>(kHeaderBytes)) / 2;
  if (offset < 0 || offset >= units) return {};
  const auto* bytes = static_cast<const uint8_t*>(record) + kHeaderBytes;
  std::u16string text;
  for (int64_t i = offset; i < units; ++i) {
    char16_t c;
    std::memcpy(&c, bytes + 2 * i, 2);
    if (c == 0) break;
    text.push_back(c);
  }
  return text;
}

void* MergeCommentRecords(const void* primary, const void* secondary) {
  std::u16string chosen[kCommentFieldCount];
  for (int i = 0; i < kCommentFieldCount; ++i) {
    chosen[i] = CommentRecordField(primary, i);
    if (chosen[i].empty()) chosen[i] = CommentRecordField(secondary, i);
  }
  return BuildCommentRecord(chosen[0].c_str(), chosen[1].c_str(), chosen[2].c_str(), chosen[3].c_str(),
                            chosen[4].c_str(), chosen[5].c_str(), chosen[6].c_str());
}

}  // namespace kxmp3
