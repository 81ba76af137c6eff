// Everything the module knows about one file, gathered once and printed by `info`
// as text or JSON: the MP3 information record, the merged tags and the ReplayGain
// values, or why the file could not be opened.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "host/kx_comment_record.h"
#include "host/kx_mp3_info.h"
#include "host/kx_replaygain_record.h"
#include "host/kx_result_codes.h"
#include "module_loader.h"

namespace kxhost {

// The seven text fields of a comment record, in record order, as UTF-8.
using TagFields = std::array<std::string, 7>;
// Their names in kxhost's output (text and JSON keys).
extern const char* const kTagFieldNames[7];

struct FileReport {
  std::string file;                  // the path as given
  // Set when the file could not be opened; nothing below is then meaningful.
  bool failed = false;
  KxResult errorCode = AF_S_OK;
  std::string errorReason;
  kxmp3::MP3Info info{};             // the format's own record (16-bit figures)
  std::optional<TagFields> tags;     // absent when the file has no tag
  kxmp3::ReplayGainRecord replayGain{};
};

// Opens `file` for information only through `module` and reads the three records.
// Never throws for a file the module cannot open: the report says why.
FileReport ReadFileReport(const LoadedModule& module, const std::string& file);

// Values derived from the information record, shared by the text and JSON forms.
// "riff-wave", "mp3", "riff-rmp3", "id3v2", "ape" for container types 1 to 5.
const char* ContainerKey(uint32_t containerType);
// "RIFF WAVE (MP3)", "MP3", "RIFF MP3", "ID3 v2.x", "MP3 with APE tag".
const char* ContainerName(uint32_t containerType);
// "1", "2", "2.5" for the record's version 1, 2, 3 ("" for anything else).
const char* MpegVersionText(uint32_t mpegVersion);
// The encoder named in front of a description of the form
// "NAME (Compatible with MPEG ...)", or nothing.
std::optional<std::string> EncoderFromDescription(const std::string& description);
// Samples per channel: the 16-bit PCM byte total over 2 x channels.
uint64_t TotalSamples(const kxmp3::MP3Info& info);

}  // namespace kxhost
