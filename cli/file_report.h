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
  uint64_t fileSize = 0;             // bytes (of the copy, for a pipe)
  // The file ends before the last frame its VBR header counts: `presentSamples`
  // (per channel) is what it holds; otherwise presentSamples is the total.
  bool truncated = false;
  uint64_t presentSamples = 0;
};

// Opens `file` for information only through `module` and reads the three records.
// When the frame count comes from a VBR header, a second decoder checks that the
// file reaches the last frame it counts (a seek to the last sample: the module
// walks the frame headers, no decoding but 32 frames of pre-roll) and, when it does
// not, decodes the end of what is there to count the samples exactly.
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
// "none", "50/15 us", "CCITT J.17" or "reserved" for emphasis 0 to 3.
const char* EmphasisName(uint32_t emphasis);
// Where the frame count comes from: "vbr-header", "counted", "estimated" or
// "unknown" (the JSON value), and the text view's words for it.
const char* FrameCountSourceKey(const kxmp3::MP3Info& info);
const char* FrameCountSourceText(const kxmp3::MP3Info& info);

}  // namespace kxhost
