// ID3v1 reader: 128 bytes at the end of the stream to a comment record (see id3v1.h).
#include "id3v1.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "../platform/kx_platform.h"
#include "comment_record.h"
#include "genres.h"
#include "replaygain.h"
#include "text_convert.h"

namespace kxmp3 {
namespace {

// Field offsets and sizes of the tag.
constexpr size_t kTitleOffset = 3;
constexpr size_t kArtistOffset = 33;
constexpr size_t kAlbumOffset = 63;
constexpr size_t kYearOffset = 93;
constexpr size_t kCommentOffset = 97;
constexpr size_t kTextBytes = 30;
constexpr size_t kYearBytes = 4;
constexpr size_t kCommentBytesV11 = 28;  // ID3v1.1: comment, zero at 125, track at 126
constexpr size_t kTrackMarkerOffset = 125;
constexpr size_t kTrackOffset = 126;
constexpr size_t kGenreOffset = 127;

// C white space: blank, TAB, LF, VT, FF, CR.
bool IsCSpace(uint8_t byte) { return byte == ' ' || (byte >= 0x09 && byte <= 0x0D); }

// Copies at most `bytes` bytes of the field, stopping at a zero, into a zero-filled
// buffer of bytes + 1.
std::string CopyField(const uint8_t* tag, size_t offset, size_t bytes) {
  std::string field(bytes + 1, '\0');
  for (size_t i = 0; i < bytes && tag[offset + i] != 0; ++i) field[i] = static_cast<char>(tag[offset + i]);
  return field;
}

std::u16string ToWide(std::string& field) {
  if (field[0] != 0) TrimTrailingBlanksDbcs(field.data(), field.size());
  return AnsiToWide(field.c_str());
}

}  // namespace

void TrimTrailingBlanksDbcs(char* text, size_t capacity) {
  if (text == nullptr || capacity == 0) return;
  size_t runStart = capacity;  // none open
  size_t i = 0;
  while (i < capacity && text[i] != 0) {
    const auto byte = static_cast<uint8_t>(text[i]);
    if (KxIsDBCSLeadByteEx(CP_ACP, byte)) {
      runStart = capacity;
      // The trail byte belongs to the character; a lone lead byte at the end of the
      // text has none, and the scan must not step over the terminator.
      i += (i + 1 < capacity && text[i + 1] != 0) ? 2 : 1;
      continue;
    }
    if (byte >= 0x80) {
      runStart = capacity;
    } else if (IsCSpace(byte)) {
      if (runStart == capacity) runStart = i;
    } else {
      runStart = capacity;
    }
    ++i;
  }
  if (runStart < capacity) text[runStart] = 0;
}

void* ReadId3v1Tag(Class_ZStream* stream, ReplayGainRecord* replayGain) {
  ResetReplayGainRecord(replayGain);
  if (stream == nullptr) return nullptr;
  int64_t saved = 0;
  if (stream->GetPosition(&saved) != AF_S_OK) return nullptr;

  uint8_t tag[kId3v1TagBytes];
  uint32_t got = 0;
  const bool read = stream->Seek(-static_cast<int64_t>(kId3v1TagBytes), ZS_SEEK_END) == AF_S_OK &&
                    stream->Read(tag, kId3v1TagBytes, &got) == AF_S_OK && got == kId3v1TagBytes;
  stream->Seek(saved, ZS_SEEK_SET);
  if (!read || std::memcmp(tag, "TAG", 3) != 0) return nullptr;

  const uint8_t genreByte = tag[kGenreOffset];
  const char16_t* genre = GenreNames[genreByte < kGenreUnknown ? genreByte : kGenreUnknown];

  std::string title = CopyField(tag, kTitleOffset, kTextBytes);
  std::string artist = CopyField(tag, kArtistOffset, kTextBytes);
  std::string album = CopyField(tag, kAlbumOffset, kTextBytes);
  std::string year = CopyField(tag, kYearOffset, kYearBytes);
  std::string comment;
  std::u16string track;
  if (tag[kTrackMarkerOffset] == 0 && tag[kTrackOffset] != 0) {
    char number[8];
    std::snprintf(number, sizeof(number), "%02u", static_cast<unsigned>(tag[kTrackOffset]));
    for (const char* p = number; *p != 0; ++p) track.push_back(static_cast<char16_t>(*p));
    comment = CopyField(tag, kCommentOffset, kCommentBytesV11);
  } else {
    comment = CopyField(tag, kCommentOffset, kTextBytes);
  }

  const std::u16string wideTitle = ToWide(title);
  const std::u16string wideArtist = ToWide(artist);
  const std::u16string wideAlbum = ToWide(album);
  const std::u16string wideYear = ToWide(year);
  const std::u16string wideComment = ToWide(comment);
  return BuildCommentRecord(wideArtist.c_str(), wideTitle.c_str(), wideAlbum.c_str(), wideYear.c_str(),
                            track.c_str(), genre, wideComment.c_str());
}

}  // namespace kxmp3
