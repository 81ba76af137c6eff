// The tag-reader targets: each reader alone on a stream that holds the input, with
// the stream standing somewhere inside it (the readers must put it back), under a
// single-byte or a double-byte ANSI code page. The records they return are checked
// for form and released; the ReplayGain record must keep its header whatever
// happens; the readers' helpers are run on the same bytes.
#include <cstring>
#include <string>
#include <vector>

#include "checks.h"
#include "harness.h"
#include "host/kxcore.h"
#include "platform/kx_platform.h"
#include "tags/ape_fields.h"
#include "tags/ape_tag.h"
#include "tags/id3v1.h"
#include "tags/id3v2.h"
#include "tags/mac_io.h"
#include "tags/riff_info.h"

namespace kxfuzz {

namespace {

// Code page and start position of one run, from the input's hash.
struct Setup {
  uint32_t hash;
  int64_t start;
};

Setup Prepare(const uint8_t* data, size_t size) {
  Setup setup{InputHash(data, size), 0};
  KxSetAnsiCodePage((setup.hash & 1) != 0 ? 932 : 1252);
  if (size > 0 && (setup.hash & 2) != 0) setup.start = static_cast<int64_t>((setup.hash >> 8) % (size + 1));
  return setup;
}

void PlaceStream(HeldStream& stream, const Setup& setup) {
  if (stream.get()->Seek(setup.start, ZS_SEEK_SET) != AF_S_OK) Violation("the harness could not place the stream");
}

// Checks a reader's outcome: the record's form, the ReplayGain header, the stream's
// position (when the reader promises it), then releases the record.
void Conclude(void* record, const kxmp3::ReplayGainRecord& gain, HeldStream& stream, const Setup& setup,
              bool positionKept, const char* where) {
  if (record != nullptr) CheckCommentRecord(record, ZCoreBlockSize(record), where);
  CheckReplayGainRecord(gain, where);
  if (positionKept && PositionOf(stream.get()) != setup.start) {
    Violation("%s: the stream was left at %lld, found at %lld", where, static_cast<long long>(PositionOf(stream.get())),
              static_cast<long long>(setup.start));
  }
  ZCoreFree(record);
  stream.Finish(where);
}

}  // namespace

void RunId3v1(const uint8_t* data, size_t size) {
  const Setup setup = Prepare(data, size);
  const CoreMemoryWatch memory;
  {
    HeldStream stream(data, size, u"fuzz.mp3");
    PlaceStream(stream, setup);
    kxmp3::ReplayGainRecord gain{};
    void* record = kxmp3::ReadId3v1Tag(stream.get(), &gain);
    if (gain.flags != 0) Violation("the ID3v1 reader set ReplayGain flags");
    Conclude(record, gain, stream, setup, true, "ReadId3v1Tag");
  }
  // The trimming scan on the input as one field, terminated right at its end.
  std::vector<char> field(data, data + size);
  field.push_back(0);
  kxmp3::TrimTrailingBlanksDbcs(field.data(), field.size());
  memory.Check("id3v1");
}

void RunId3v2(const uint8_t* data, size_t size) {
  const Setup setup = Prepare(data, size);
  const CoreMemoryWatch memory;
  {
    HeldStream stream(data, size, u"fuzz.mp3");
    PlaceStream(stream, setup);
    kxmp3::ReplayGainRecord gain{};
    void* record = kxmp3::ReadId3v2Tag(stream.get(), &gain);
    // After a failure the caller repositions the stream itself.
    Conclude(record, gain, stream, setup, record != nullptr, "ReadId3v2Tag");
  }
  std::vector<uint8_t> copy(data, data + size);
  const size_t kept = kxmp3::RemoveUnsynchronisation(copy.data(), copy.size());
  if (kept > size) Violation("unsynchronisation removal grew the data");
  std::u16string genre;
  for (size_t i = 0; i + 1 < size && genre.size() < 64; i += 2) genre.push_back(static_cast<char16_t>(data[i] | data[i + 1] << 8));
  const std::u16string resolved = kxmp3::ResolveGenreText(genre);
  if (resolved.size() > genre.size() && resolved.size() > 64) Violation("a genre text grew beyond the table's names");
  memory.Check("id3v2");
}

void RunApeTag(const uint8_t* data, size_t size) {
  const Setup setup = Prepare(data, size);
  const CoreMemoryWatch memory;
  {
    HeldStream stream(data, size, u"fuzz.mp3");
    PlaceStream(stream, setup);
    kxmp3::ReplayGainRecord gain{};
    void* record = kxmp3::ReadApeTag(stream.get(), &gain);
    Conclude(record, gain, stream, setup, true, "ReadApeTag");
  }
  {
    // The analysis through the I/O adapter, and every field read back as text in
    // buffers too small and large enough.
    HeldStream stream(data, size, u"fuzz.mp3");
    PlaceStream(stream, setup);
    {
      kxmp3::KXMACIO io;
      io.Attach(stream.get());
      kxmp3::ApeTagFields fields;
      kxmp3::AnalyzeApeTag(&io, &fields);
      if (fields.FieldCount() > kxmp3::ApeTagFields::kMaxFields) Violation("%zu APE fields", fields.FieldCount());
      if (fields.hasApeTag && (fields.apeVersion < 0 || fields.apeVersion > 2000)) Violation("APE version");
      for (size_t i = 0; i < fields.FieldCount(); ++i) {
        const std::u16string name = fields.FieldAt(i).name;
        if (fields.FindField(name.c_str()) < 0) Violation("an APE field cannot be found by its name");
        int needed = 1;
        char16_t one[1];
        fields.GetFieldText(name.c_str(), one, &needed);
        if (needed <= 0) continue;
        std::vector<char16_t> text(static_cast<size_t>(needed));
        int length = needed;
        if (fields.GetFieldText(name.c_str(), text.data(), &length) != 0) Violation("an APE field did not fit its size");
        CheckTerminated(text.data(), text.size(), "APE field text");
      }
    }
    if (PositionOf(stream.get()) != setup.start) Violation("the APE analysis moved the stream");
    stream.Finish("AnalyzeApeTag");
  }
  const std::u16string wide = kxmp3::ApeUtf8ToWide(data, size);
  if (wide.size() > size) Violation("APE UTF-8 decoding made more characters than bytes");
  kxmp3::WideToApeUtf8(wide.c_str());
  memory.Check("ape_tag");
}

void RunRiffInfo(const uint8_t* data, size_t size) {
  const Setup setup = Prepare(data, size);
  const CoreMemoryWatch memory;
  {
    HeldStream stream(data, size, u"fuzz.wav");
    PlaceStream(stream, setup);
    const char16_t* track = (setup.hash & 4) != 0 ? u"07" : nullptr;
    void* record = kxmp3::ReadRiffInfoList(stream.get(), track);
    kxmp3::ReplayGainRecord gain{};
    gain.fourcc = FOURCC_RPGI;
    gain.size = sizeof(gain);
    Conclude(record, gain, stream, setup, true, "ReadRiffInfoList");
  }
  memory.Check("riff_info");
}

}  // namespace kxfuzz
