// The comment record: the seven tag texts (artist, title, album, year, track, genre,
// comment) packed into one block of core memory that the decoder object hands to its
// base class and the host copies out. Every tag reader ends in one of these; the open
// sequence merges several into one (tag_merge.h).
//
// Layout: the CommentRecordHeader of host/kx_comment_record.h (FourCC ZAFC, total size, seven
// character offsets), then the seven zero-terminated UTF-16 strings back to back from
// byte 64. Records are allocated with ZCoreAlloc(ZMEM_ZEROED, ...) and released with
// ZCoreFree by whoever holds them last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "../host/kx_comment_record.h"

namespace kxmp3 {

constexpr int kCommentFieldCount = 7;

// Packs the seven strings (null = empty) into a new record. CR, LF and TAB become
// blanks one for one, so no text of a record ever breaks a line.
void* BuildCommentRecord(const char16_t* artist, const char16_t* title, const char16_t* album,
                         const char16_t* year, const char16_t* track, const char16_t* genre,
                         const char16_t* comment);

// Per field the primary's text when it is not empty, else the secondary's; a new
// record. Either input may be null (taken as all empty). The inputs stay owned by
// the caller.
void* MergeCommentRecords(const void* primary, const void* secondary);

// Total size of a record in bytes (0 for null or a block that is not a record).
uint32_t CommentRecordSize(const void* record);

// The text of field `field` (kComment* of host/kx_comment_record.h). Defensive: a null record,
// a wrong FourCC, an offset outside the record or a missing terminator gives "" (or
// the text up to the record's end), never a read outside the block.
std::u16string CommentRecordField(const void* record, int field);

}  // namespace kxmp3
