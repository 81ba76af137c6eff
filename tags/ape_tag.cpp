// APE tag analysis and reader (see ape_tag.h).
//
// The footer's numbers are checked before anything is allocated: the item area is at
// most 16 MiB and must lie inside the stream; every item is bounded by the item area;
// the field container stops growing at 256 fields.
#include "ape_tag.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "../engine/byte_order.h"
#include "comment_record.h"
#include "genres.h"
#include "id3v1.h"
#include "replaygain.h"
#include "text_convert.h"

namespace kxmp3 {
namespace {

std::u16string Ascii(const char* text) {
  std::u16string wide;
  for (; *text != 0; ++text) wide.push_back(static_cast<char16_t>(static_cast<uint8_t>(*text)));
  return wide;
}

// One ID3v1 text field as an APE field: trailing blanks and zeros cut (bytewise, as
// the APE tag tools do it), ANSI to wide, stored as UTF-8; empty removes the field.
void LoadId3v1Text(ApeTagFields* fields, const char16_t* name, const uint8_t* tag, size_t offset, size_t bytes) {
  std::string text(reinterpret_cast<const char*>(tag + offset), bytes);
  const size_t zero = text.find('\0');
  if (zero != std::string::npos) text.resize(zero);
  while (!text.empty() && text.back() == ' ') text.pop_back();
  const std::u16string wide = AnsiToWide(text.c_str());
  if (wide.empty()) {
    fields->RemoveField(fields->FindField(name));
  } else {
    fields->SetFieldText(name, wide.c_str());
  }
}

void LoadId3v1Fields(ApeTagFields* fields, const uint8_t* tag) {
  LoadId3v1Text(fields, u"Artist", tag, 33, 30);
  LoadId3v1Text(fields, u"Album", tag, 63, 30);
  LoadId3v1Text(fields, u"Title", tag, 3, 30);
  LoadId3v1Text(fields, u"Comment", tag, 97, 30);
  LoadId3v1Text(fields, u"Year", tag, 93, 4);
  if (tag[125] == 0 && tag[126] != 0) {
    char number[8];
    std::snprintf(number, sizeof(number), "%d", static_cast<int>(tag[126]));
    fields->SetFieldText(u"Track", Ascii(number).c_str());
  } else {
    fields->RemoveField(fields->FindField(u"Track"));
  }
  const uint8_t genre = tag[127];
  fields->SetFieldText(u"Genre", genre < kApeGenreNameCount ? ApeGenreNames[genre] : u"Undefined");
}

// Parses up to `count` items of items[0..size). The first malformed item ends the list.
void LoadItems(ApeTagFields* fields, const uint8_t* items, size_t size, uint32_t count) {
  size_t offset = 0;
  for (uint32_t n = 0; n < count; ++n) {
    if (size - offset < 8) return;
    const uint32_t valueBytes = LittleEndian32(items + offset);
    const uint32_t flags = LittleEndian32(items + offset + 4);
    const size_t keyStart = offset + 8;
    size_t keyEnd = keyStart;
    while (keyEnd < size && items[keyEnd] != 0) {
      if (items[keyEnd] < 32 || items[keyEnd] > 126) return;  // not a key: the list ends
      ++keyEnd;
    }
    if (keyEnd >= size) return;  // no terminator inside the item area
    const size_t valueStart = keyEnd + 1;
    if (valueBytes > size - valueStart) return;  // value runs past the item area
    const std::u16string key = ApeUtf8ToWide(items + keyStart, keyEnd - keyStart);
    fields->SetFieldBytes(key.c_str(), items + valueStart, valueBytes, flags);
    offset = valueStart + valueBytes;
  }
}

}  // namespace

void AnalyzeApeTag(CIO* io, ApeTagFields* fields) {
  fields->RemoveAllFields();
  fields->analysed = true;
  const int64_t position = io->GetPosition();
  fields->hasId3v1 = false;
  fields->hasApeTag = false;
  fields->apeVersion = -1;
  fields->totalTagBytes = 0;

  uint8_t id3v1[kId3v1TagBytes];
  uint32_t got = 0;
  if (io->Seek(-static_cast<int64_t>(kId3v1TagBytes), 2) == 0 && io->Read(id3v1, kId3v1TagBytes, &got) == 0 &&
      got == kId3v1TagBytes && std::memcmp(id3v1, "TAG", 3) == 0) {
    fields->hasId3v1 = true;
    fields->totalTagBytes += kId3v1TagBytes;
    LoadId3v1Fields(fields, id3v1);
  }

  const int64_t footerEnd = fields->hasId3v1 ? kId3v1TagBytes : 0;  // bytes behind the footer
  uint8_t footer[kApeFooterBytes] = {};
  got = 0;
  const bool footerRead = io->Seek(-(footerEnd + kApeFooterBytes), 2) == 0 &&
                          io->Read(footer, kApeFooterBytes, &got) == 0 && got == kApeFooterBytes;
  const uint32_t version = LittleEndian32(footer + 8);
  const uint32_t tagBytes = LittleEndian32(footer + 12);
  const uint32_t itemCount = LittleEndian32(footer + 16);
  const uint32_t flags = LittleEndian32(footer + 20);
  if (footerRead && std::memcmp(footer, "APETAGEX", 8) == 0 && version <= kApeMaxVersion &&
      itemCount <= kApeMaxItems && tagBytes >= kApeFooterBytes && tagBytes - kApeFooterBytes <= kApeMaxItemBytes &&
      (flags & kApeFlagIsHeader) == 0) {
    fields->hasApeTag = true;
    fields->apeVersion = static_cast<int32_t>(version);
    fields->totalTagBytes += tagBytes + ((flags & kApeFlagHasHeader) != 0 ? kApeFooterBytes : 0);

    const size_t itemBytes = tagBytes - kApeFooterBytes;
    const int64_t size = io->GetSize();
    // The item area must lie inside the stream before a buffer is made for it.
    if (itemBytes > 0 && size >= footerEnd + static_cast<int64_t>(tagBytes) &&
        io->Seek(-(footerEnd + static_cast<int64_t>(tagBytes)), 2) == 0) {
      std::vector<uint8_t> items(itemBytes);
      got = 0;
      if (io->Read(items.data(), static_cast<uint32_t>(itemBytes), &got) == 0 && got == itemBytes) {
        LoadItems(fields, items.data(), itemBytes, itemCount);
      }
    }
  }
  io->Seek(position, 0);
}

void* ReadApeTag(Class_ZStream* stream, ReplayGainRecord* replayGain) {
  ResetReplayGainRecord(replayGain);
  if (stream == nullptr) return nullptr;
  int64_t saved = 0;
  if (stream->GetPosition(&saved) != AF_S_OK) return nullptr;

  std::unique_ptr<KXMACIO> io(new (std::nothrow) KXMACIO());
  if (!io) return nullptr;
  io->Attach(stream);
  ApeTagFields fields;
  AnalyzeApeTag(io.get(), &fields);

  void* record = nullptr;
  if (fields.hasApeTag && fields.FieldCount() > 0) {
    // Each text is fetched the way a caller with a fixed buffer does it: its length
    // first, then the text.
    auto fetch = [&fields](const char16_t* name) -> std::u16string {
      char16_t probe[1];
      int length = 1;
      if (fields.GetFieldText(name, probe, &length) == 0) return std::u16string();
      if (length <= 0) return std::u16string();
      std::u16string text(static_cast<size_t>(length), u'\0');
      if (fields.GetFieldText(name, text.data(), &length) != 0) return std::u16string();
      return UpToZero(text);
    };
    const std::u16string title = fetch(u"Title");
    const std::u16string artist = fetch(u"Artist");
    const std::u16string album = fetch(u"Album");
    const std::u16string year = fetch(u"Year");
    const std::u16string comment = fetch(u"Comment");
    const std::u16string track = fetch(u"Track");
    const std::u16string genre = fetch(u"Genre");
    record = BuildCommentRecord(artist.c_str(), title.c_str(), album.c_str(), year.c_str(), track.c_str(),
                                genre.c_str(), comment.c_str());

    struct GainItem {
      const char16_t* name;
      uint32_t flag;
      bool isGain;
    };
    const GainItem gainItems[] = {
        {kReplayGainTrackGainKey, RG_FLAG_TRACK_GAIN, true},
        {kReplayGainTrackPeakKey, RG_FLAG_TRACK_PEAK, false},
        {kReplayGainAlbumGainKey, RG_FLAG_ALBUM_GAIN, true},
        {kReplayGainAlbumPeakKey, RG_FLAG_ALBUM_PEAK, false},
    };
    for (const GainItem& item : gainItems) {
      if (replayGain == nullptr) break;
      char16_t buffer[256];
      int length = 256;
      if (fields.GetFieldText(item.name, buffer, &length) != 0) continue;  // absent or too long
      size_t end = static_cast<size_t>(length - 1);
      if (item.isGain) end = GainTextEnd(buffer, end);
      const double value = ReadWideNumber(buffer, end);
      if (value == 0.0) continue;  // kept deliberately: a zero value counts as absent
      switch (item.flag) {
        case RG_FLAG_TRACK_GAIN: replayGain->trackGain = value; break;
        case RG_FLAG_TRACK_PEAK: replayGain->trackPeak = value; break;
        case RG_FLAG_ALBUM_GAIN: replayGain->albumGain = value; break;
        default: replayGain->albumPeak = value; break;
      }
      replayGain->flags |= item.flag;
    }
  }
  io.reset();
  stream->Seek(saved, ZS_SEEK_SET);
  return record;
}

}  // namespace kxmp3
