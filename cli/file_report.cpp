// Gathering what the module knows about one file (see file_report.h).
#include "file_report.h"

#include <cstring>
#include <vector>

#include "decoder_session.h"
#include "text.h"

namespace kxhost {

const char* const kTagFieldNames[7] = {"artist", "title", "album", "year", "track", "genre", "comment"};

namespace {

// The comment record's seven strings. A field whose offset points outside the
// record reads as empty: the record comes from the module and is not trusted blindly.
TagFields ParseCommentRecord(const std::vector<uint8_t>& record) {
  TagFields fields;
  kxmp3::CommentRecordHeader header;
  std::memcpy(&header, record.data(), sizeof(header));
  const size_t units = (record.size() - sizeof(header)) / 2;
  std::vector<char16_t> strings(units + 1, 0);  // always terminated
  std::memcpy(strings.data(), record.data() + sizeof(header), units * 2);
  for (int i = 0; i < 7; ++i) {
    const int32_t offset = header.fields[i].offset;
    if (offset >= 0 && static_cast<size_t>(offset) < units) fields[i] = ToUtf8(strings.data() + offset);
  }
  return fields;
}

}  // namespace

FileReport ReadFileReport(const LoadedModule& module, const std::string& file) {
  FileReport report;
  report.file = file;
  try {
    DecoderSession session(module, file, OPEN_FLAG_INFO_ONLY, 16);
    Class_KXAudioFile* audio = session.Audio();
    uint32_t size = sizeof(report.info);
    KxResult rc = audio->GetInfo(FOURCC_ZMP3, &report.info, &size);
    if (rc != AF_S_OK) throw FileError(file, "the decoder refused its information record", rc);

    // The merged tags; AF_E_NO_COMMENT (or any refusal) means the file has none.
    uint32_t commentSize = 0;
    rc = audio->GetComment(FOURCC_ZAFC, nullptr, &commentSize);
    if (rc == AF_S_OK && commentSize >= sizeof(kxmp3::CommentRecordHeader)) {
      std::vector<uint8_t> record(commentSize);
      if (audio->GetComment(FOURCC_ZAFC, record.data(), &commentSize) == AF_S_OK &&
          commentSize <= record.size()) {
        record.resize(commentSize);
        report.tags = ParseCommentRecord(record);
      }
    }

    size = sizeof(report.replayGain);
    if (audio->GetInfo(FOURCC_RPGI, &report.replayGain, &size) != AF_S_OK) report.replayGain.flags = 0;
  } catch (const FileError& e) {
    report.failed = true;
    report.errorCode = e.Code();
    report.errorReason = e.Reason();
  }
  return report;
}

const char* ContainerKey(uint32_t containerType) {
  switch (containerType) {
    case 1: return "riff-wave";
    case 2: return "mp3";
    case 3: return "riff-rmp3";
    case 4: return "id3v2";
    case 5: return "ape";
    default: return "unknown";
  }
}

const char* ContainerName(uint32_t containerType) {
  switch (containerType) {
    case 1: return "RIFF WAVE (MP3)";
    case 2: return "MP3";
    case 3: return "RIFF MP3";
    case 4: return "ID3 v2.x";
    case 5: return "MP3 with APE tag";
    default: return "Unknown";
  }
}

const char* MpegVersionText(uint32_t mpegVersion) {
  switch (mpegVersion) {
    case 1: return "1";
    case 2: return "2";
    case 3: return "2.5";
    default: return "";
  }
}

std::optional<std::string> EncoderFromDescription(const std::string& description) {
  const size_t cut = description.find(" (Compatible with MPEG ");
  if (cut == std::string::npos || cut == 0) return std::nullopt;
  return description.substr(0, cut);
}

uint64_t TotalSamples(const kxmp3::MP3Info& info) {
  const uint32_t channels = info.generic.channels;
  return channels == 0 ? 0 : info.generic.totalPcmBytes / (2ull * channels);
}

}  // namespace kxhost
