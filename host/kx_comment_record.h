// The header of a comment record (FourCC ZAFC): seven character offsets into the
// UTF-16 string area that starts at byte 64 (artist, title, album, year, track,
// genre, comment). The tag readers build such records and GetComment hands them to
// the host. Packed; every size and offset is fixed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kxmp3 {

#pragma pack(push, 1)

struct CommentField {
  int32_t offset;      // UTF-16 units from byte 64
  uint32_t reserved;
};
struct CommentRecordHeader {
  uint32_t fourcc;          // FOURCC_ZAFC
  uint32_t size;            // 64 + 2 x (sum of string lengths with terminators)
  CommentField fields[7];   // artist, title, album, year, track, genre, comment
};
static_assert(sizeof(CommentRecordHeader) == 64);
static_assert(offsetof(CommentRecordHeader, fields) == 8);

#pragma pack(pop)

enum CommentFieldIndex : int {
  kCommentArtist = 0,
  kCommentTitle = 1,
  kCommentAlbum = 2,
  kCommentYear = 3,
  kCommentTrack = 4,
  kCommentGenre = 5,
  kCommentComment = 6,
};

}  // namespace kxmp3
