// kxhost info [--json] [-r] FILE|DIR...: opens each file for information only and
// prints everything the module knows of it: container, MPEG version and layer,
// rate, channels and mode, bitrate and VBR, frames and where their count comes
// from, duration, samples, whether the file holds all its header declares, file
// and audio sizes, encoder, start skip and removed samples, emphasis, CRC and
// header bits, the merged tags and the ReplayGain values. Text for people, or one
// JSON array for programs (--fields picks keys). A file named on the command line
// that cannot be opened is reported (one line on standard error, an "error" object
// in JSON) and the others go on; the exit status then is 1. Files of a folder that
// the module does not take are skipped, as decode skips them (-v lists them).
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "decoder_session.h"
#include "file_list.h"
#include "file_report.h"
#include "info_json.h"
#include "interrupt.h"
#include "progress.h"
#include "standard_output.h"
#include "text.h"
#include "time_value.h"

namespace kxhost {

namespace {

struct InfoOptions {
  std::vector<std::string> inputs;
  bool json = false;
  bool recursive = false;
  bool verbose = false;
  std::string fields;  // comma-separated JSON keys
};

const char* YesNo(uint32_t value) { return value != 0 ? "yes" : "no"; }

void PrintText(const FileReport& report) {
  const kxmp3::MP3Info& info = report.info;
  const AudioFileInfo& g = info.generic;
  const uint64_t ms = g.playTimeMs;
  const std::string description = ToUtf8(g.description);
  std::printf("file: %s\n", report.file.c_str());
  std::printf("container: %s\n", ContainerName(info.containerType));
  std::printf("format: %s\n", description.c_str());
  std::printf("version: MPEG-%s Layer %u\n", MpegVersionText(info.mpegVersion), info.layer);
  std::printf("sample rate: %u Hz\n", g.sampleRate);
  std::printf("channels: %u (%s)\n", g.channels, ToUtf8(g.channelModeName).c_str());
  std::printf("bitrate: %u kbps (%s)\n", g.bitrateKbps, (g.formatFlags & AFI_FLAG_VBR) ? "VBR" : "CBR");
  std::printf("frames: %u (%s)\n", info.frameCount, FrameCountSourceText(info));
  std::printf("duration: %s (%llu ms)\n", FormatMilliseconds(ms).c_str(), static_cast<unsigned long long>(ms));
  std::printf("samples: %llu per channel\n", static_cast<unsigned long long>(TotalSamples(info)));
  if (report.truncated) {
    std::printf("truncated: the file ends at %s (%llu samples), before the %s its VBR header declares\n",
                FormatSamplesAsTime(report.presentSamples, g.sampleRate).c_str(),
                static_cast<unsigned long long>(report.presentSamples), FormatMilliseconds(ms).c_str());
  }
  std::printf("file size: %llu bytes\n", static_cast<unsigned long long>(report.fileSize));
  std::printf("audio data: %llu bytes\n", static_cast<unsigned long long>(g.dataLength));
  const auto encoder = EncoderFromDescription(description);
  std::printf("encoder: %s\n", encoder ? encoder->c_str() : "not identified");
  std::printf("start skip: %u samples\n", info.startSkip);
  std::printf("removed: %u samples (encoder delay and padding)\n", info.samplesRemoved);
  std::printf("emphasis: %s\n", EmphasisName(info.emphasis));
  std::printf("crc: %s, private: %s, copyright: %s, original: %s\n", YesNo(info.errorProtection),
              YesNo(info.privateBit), YesNo(info.copyrightBit), YesNo(info.originalBit));
  if (report.tags) {
    std::printf("tags:\n");
    for (int i = 0; i < 7; ++i) {
      const std::string label = std::string(kTagFieldNames[i]) + ":";
      std::printf("  %-8s %s\n", label.c_str(), (*report.tags)[i].c_str());
    }
  } else {
    std::printf("tags: none\n");
  }
  const kxmp3::ReplayGainRecord& rg = report.replayGain;
  if (rg.flags == 0) {
    std::printf("replaygain: none\n");
  } else {
    std::printf("replaygain:\n");
    if (rg.flags & kxmp3::RG_FLAG_TRACK_GAIN) std::printf("  track gain: %+.2f dB\n", double{rg.trackGain});
    if (rg.flags & kxmp3::RG_FLAG_TRACK_PEAK) std::printf("  track peak: %.6f\n", double{rg.trackPeak});
    if (rg.flags & kxmp3::RG_FLAG_ALBUM_GAIN) std::printf("  album gain: %+.2f dB\n", double{rg.albumGain});
    if (rg.flags & kxmp3::RG_FLAG_ALBUM_PEAK) std::printf("  album peak: %.6f\n", double{rg.albumPeak});
  }
}

// "a,b , c" -> {"a", "b", "c"}; throws CliError for a key the objects do not have.
std::vector<std::string> ParseFields(const std::string& text) {
  std::vector<std::string> fields;
  std::stringstream in(text);
  std::string field;
  while (std::getline(in, field, ',')) {
    const size_t first = field.find_first_not_of(' ');
    const size_t last = field.find_last_not_of(' ');
    if (first == std::string::npos) continue;
    field = field.substr(first, last - first + 1);
    bool known = false;
    for (const auto& key : kInfoJsonKeys) known = known || key == field;
    if (!known) {
      std::string all;
      for (const auto& key : kInfoJsonKeys) all += (all.empty() ? "" : ", ") + key;
      throw CliError("--fields: no field \"" + field + "\" (fields: " + all + ")");
    }
    fields.push_back(field);
  }
  if (fields.empty()) throw CliError("--fields: name at least one field (file,duration_ms,...)");
  return fields;
}

int RunInfo(const GlobalOptions& options, InfoOptions opts) {
  std::vector<std::string> fields;
  if (!opts.fields.empty()) {
    fields = ParseFields(opts.fields);
    opts.json = true;
  }
  const auto module = PrepareModule(options);
  const std::vector<InputFile> files = ExpandInputs(opts.inputs, opts.recursive);
  Progress progress(options.quiet || files.size() < 2, files.size(), "files");
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  int failures = 0;
  int truncated = 0;
  size_t skipped = 0;
  bool first = true;
  for (const auto& input : files) {
    if (Interrupted()) break;
    FileReport report;
    if (input.listError != AF_S_OK) {
      report.file = input.path;
      report.failed = true;
      report.errorCode = input.listError;
      report.errorReason = input.listReason;
    } else {
      // A folder's other files (covers, playlists) are not ours: skipped, as decode does.
      bool taken = true;
      if (input.fromDirectory) {
        try {
          taken = ProbeFile(*module, input.path);
        } catch (const CliError&) {
          taken = true;  // cannot be read: opening it reports why
        }
      }
      if (!taken) {
        ++skipped;
        if (opts.verbose) progress.Message("kxhost: skipped " + input.path + " (not MPEG audio)");
        progress.Advance(1, input.relative);
        continue;
      }
      report = ReadFileReport(*module, input.path);
    }
    if (report.failed) {
      ++failures;
      progress.Message("kxhost: " + report.file + ": " + report.errorReason + " (" + ResultText(report.errorCode) +
                       ")");
    } else if (report.truncated) {
      ++truncated;
      if (opts.json) {
        progress.Message("kxhost: warning: " + report.file + ": the file ends before the length its header declares");
      }
    }
    if (opts.json) {
      nlohmann::ordered_json object = ReportToJson(report);
      array.push_back(fields.empty() ? object : SelectFields(object, fields));
    } else if (!report.failed) {
      progress.Clear();
      if (!first) std::printf("\n");
      first = false;
      PrintText(report);
      FlushStandardOutput();
    }
    progress.Advance(1, input.relative);
  }
  progress.Clear();
  ExitIfInterrupted();
  if (opts.json) {
    std::fputs(ReportsToJsonText(array).c_str(), stdout);
    FlushStandardOutput();
  }
  if (!options.quiet) {
    if (files.empty()) std::fprintf(stderr, "kxhost: no files found\n");
    if (skipped != 0) {
      std::fprintf(stderr, "kxhost: %s skipped (not MPEG audio)%s\n", CountOf(skipped, "file", "files").c_str(),
                   opts.verbose ? "" : "; -v lists them");
    }
  }
  return failures != 0 ? kExitFileFailed : kExitOk;
}

}  // namespace

void AddInfoCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("info", "print everything the module knows of each file");
  static InfoOptions opts;  // the parsed arguments, read by the callback
  sub->add_option("FILE", opts.inputs, "audio files (- for standard input), or folders whose audio files are reported")
      ->required();
  sub->add_flag("--json", opts.json, "print one JSON array with an object per file");
  sub->add_option("--fields", opts.fields, "JSON with only these keys (comma-separated; implies --json)");
  sub->add_flag("-r,--recursive", opts.recursive, "descend into the subfolders of a folder");
  sub->add_flag("-v,--verbose", opts.verbose, "list the files of folders that were skipped (not MPEG audio)");
  sub->footer(
      "Text output: one block per file. \"start skip\" is the number of samples the\n"
      "decoder drops at the start (encoder delay, the decoder's own delay and a\n"
      "header-only first frame); \"removed\" is the encoder delay plus padding taken\n"
      "off the length. A file whose VBR header counts more frames than it holds gets a\n"
      "\"truncated:\" line saying where it ends. A file that cannot be opened is\n"
      "reported on standard error and the others go on; the exit status is then 1.\n"
      "Files of a folder that the module does not take are skipped.\n"
      "\n"
      "JSON keys (kxhost-info.schema.json describes each with its unit): file,\n"
      "container, container_type, mpeg_version, layer, sample_rate, channels,\n"
      "channel_mode, bitrate_kbps, vbr, frames, frames_source, duration_ms,\n"
      "total_samples, truncated, present_samples, present_duration_ms, file_size,\n"
      "audio_bytes, encoder, description, start_skip, delay (= start skip),\n"
      "removed_samples, emphasis, emphasis_name, crc, private, copyright, original,\n"
      "tags (only when the file has a tag), replaygain; a file that cannot be opened\n"
      "gives {file, error: {name, code (\"0x3101\"), reason}}.\n"
      "\n"
      "Examples:\n"
      "  kxhost info song.mp3\n"
      "  kxhost info --json album/*.mp3 > album.json\n"
      "  kxhost info --fields file,duration_ms,truncated -r ~/Music\n"
      "  kxhost info -r --json ~/Music | jq '.[] | select(.error)'\n"
      "  curl -s https://example.org/song.mp3 | kxhost info -\n"
      "  kxhost info --codepage 932 japanese.mp3");
  sub->callback([&options, &result] { result.exitCode = RunInfo(options, opts); });
}

}  // namespace kxhost
