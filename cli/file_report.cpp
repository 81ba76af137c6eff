// Gathering what the module knows about one file (see file_report.h).
#include "file_report.h"

#include <cstring>
#include <optional>
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

// Samples per channel the file really holds when its VBR header counts more
// frames than it has; nothing when it reaches the last one.
std::optional<uint64_t> PresentSamples(const LoadedModule& module, const std::string& file, uint64_t totalSamples) {
  DecoderSession session(module, file, 0, 16);
  Class_KXAudioFile* audio = session.Audio();
  PCMWAVEFORMAT format{};
  if (audio->GetPCMWaveFormat(&format) != AF_S_OK || format.nBlockAlign == 0 || totalSamples == 0) return std::nullopt;
  const uint64_t block = format.nBlockAlign;
  QWUNION position{};
  position.u = (totalSamples - 1) * block;
  const KxResult rc = audio->SetCurrentPosition(position, AF_ORIGIN_START);
  if (rc != AF_S_END_OF_DATA && rc != AF_E_OUT_OF_RANGE) return std::nullopt;  // the last sample is there
  // The failed seek stopped where the frames ran out: start near there and count
  // what still decodes; from the start if the decoder cannot go there.
  QWUNION reached{};
  uint64_t counted = 0;
  if (audio->GetCurrentPosition(&reached, AF_ORIGIN_START) == AF_S_OK && reached.u > 0 &&
      reached.u < totalSamples * block) {
    reached.u -= reached.u % block;
    if (audio->SetCurrentPosition(reached, AF_ORIGIN_START) == AF_S_OK) counted = reached.u;
  }
  if (counted == 0 && audio->Rewind() != AF_S_OK) return std::nullopt;
  std::vector<uint8_t> buffer(64 * 1024);
  for (;;) {
    int32_t written = 0;
    const KxResult r = audio->DecodeToPCMData(buffer.data(), static_cast<int32_t>(buffer.size()), &written);
    if (written > 0) counted += static_cast<uint64_t>(written);
    if (r == AF_S_END_OF_DATA || (r != AF_S_OK && r != AF_S_FRAME_ERROR) || written <= 0) break;
  }
  return counted / block;
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
    report.fileSize = session.FileSize();

    report.presentSamples = TotalSamples(report.info);
    if (report.info.headerFlags & kxmp3::MP3_HEADER_FLAG_COUNT_FROM_HEADER) {
      if (const auto present = PresentSamples(module, file, report.presentSamples)) {
        report.truncated = *present < report.presentSamples;
        report.presentSamples = *present;
      }
    }
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

const char* EmphasisName(uint32_t emphasis) {
  switch (emphasis) {
    case 0: return "none";
    case 1: return "50/15 us";
    case 3: return "CCITT J.17";
    default: return "reserved";
  }
}

const char* FrameCountSourceKey(const kxmp3::MP3Info& info) {
  if (info.headerFlags & kxmp3::MP3_HEADER_FLAG_COUNT_FROM_HEADER) return "vbr-header";
  if (info.headerFlags & kxmp3::MP3_HEADER_FLAG_ESTIMATED) return "estimated";
  if (info.headerFlags & kxmp3::MP3_HEADER_FLAG_SCANNED) return "counted";
  return "unknown";
}

const char* FrameCountSourceText(const kxmp3::MP3Info& info) {
  if (info.headerFlags & kxmp3::MP3_HEADER_FLAG_COUNT_FROM_HEADER) return "from the VBR header";
  if (info.headerFlags & kxmp3::MP3_HEADER_FLAG_ESTIMATED) return "estimated";
  if (info.headerFlags & kxmp3::MP3_HEADER_FLAG_SCANNED) return "counted";
  return "unknown";
}

uint64_t TotalSamples(const kxmp3::MP3Info& info) {
  const uint32_t channels = info.generic.channels;
  return channels == 0 ? 0 : info.generic.totalPcmBytes / (2ull * channels);
}

}  // namespace kxhost
