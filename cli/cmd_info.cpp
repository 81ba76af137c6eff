// kxhost info [--json] [-r] FILE|DIR...: opens each file for information only and
// prints everything the module knows of it: container, MPEG version and layer,
// rate, channels and mode, bitrate and VBR, frames, duration, samples, encoder,
// start skip and removed samples, emphasis, CRC and header bits, the merged tags and
// the ReplayGain values. Text for people, or one JSON array for programs. A file
// that cannot be opened is reported (one line on standard error, an "error" object
// in JSON) and the others go on; the exit status then is 1.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "file_list.h"
#include "file_report.h"
#include "info_json.h"
#include "interrupt.h"
#include "progress.h"
#include "text.h"

namespace kxhost {

namespace {

struct InfoOptions {
  std::vector<std::string> inputs;
  bool json = false;
  bool recursive = false;
};

const char* EmphasisName(uint32_t emphasis) {
  switch (emphasis) {
    case 0: return "none";
    case 1: return "50/15 us";
    case 3: return "CCITT J.17";
    default: return "reserved";
  }
}

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
  const char* countSource = (info.headerFlags & kxmp3::MP3_HEADER_FLAG_COUNT_FROM_HEADER) ? "from the VBR header"
                            : (info.headerFlags & kxmp3::MP3_HEADER_FLAG_ESTIMATED)     ? "estimated"
                            : (info.headerFlags & kxmp3::MP3_HEADER_FLAG_SCANNED)       ? "counted"
                                                                                         : "unknown";
  std::printf("frames: %u (%s)\n", info.frameCount, countSource);
  std::printf("duration: %llu:%02llu.%03llu (%llu ms)\n", static_cast<unsigned long long>(ms / 60000),
              static_cast<unsigned long long>(ms / 1000 % 60), static_cast<unsigned long long>(ms % 1000),
              static_cast<unsigned long long>(ms));
  std::printf("samples: %llu per channel\n", static_cast<unsigned long long>(TotalSamples(info)));
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

int RunInfo(const GlobalOptions& options, const InfoOptions& opts) {
  const auto module = PrepareModule(options);
  const std::vector<InputFile> files = ExpandInputs(opts.inputs, opts.recursive);
  Progress progress(options.quiet || files.size() < 2, files.size(), "files");
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  int failures = 0;
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
      report = ReadFileReport(*module, input.path);
    }
    if (report.failed) {
      ++failures;
      progress.Message("kxhost: " + report.file + ": " + report.errorReason + " (" + ResultText(report.errorCode) +
                       ")");
    }
    if (opts.json) {
      array.push_back(ReportToJson(report));
    } else if (!report.failed) {
      progress.Clear();
      if (!first) std::printf("\n");
      first = false;
      PrintText(report);
      std::fflush(stdout);
    }
    progress.Advance(1, input.relative);
  }
  progress.Clear();
  ExitIfInterrupted();
  if (opts.json) std::fputs(ReportsToJsonText(array).c_str(), stdout);
  if (files.empty() && !options.quiet) std::fprintf(stderr, "kxhost: no files found\n");
  return failures != 0 ? kExitFileFailed : kExitOk;
}

}  // namespace

void AddInfoCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("info", "print everything the module knows of each file");
  static InfoOptions opts;  // the parsed arguments, read by the callback
  sub->add_option("FILE", opts.inputs, "audio files, or folders whose files are all reported")->required();
  sub->add_flag("--json", opts.json, "print one JSON array with an object per file");
  sub->add_flag("-r,--recursive", opts.recursive, "descend into the subfolders of a folder");
  sub->footer(
      "Text output: one block per file. \"start skip\" is the number of samples the\n"
      "decoder drops at the start (encoder delay, the decoder's own delay and a\n"
      "header-only first frame); \"removed\" is the encoder delay plus padding taken\n"
      "off the length. A file that cannot be opened is reported on standard error and\n"
      "the others go on; the exit status is then 1.\n"
      "\n"
      "JSON keys: file, container (riff-wave, mp3, riff-rmp3, id3v2, ape), container_type\n"
      "(1-5), mpeg_version (\"1\", \"2\", \"2.5\"), layer, sample_rate, channels, channel_mode,\n"
      "bitrate_kbps, vbr, frames, duration_ms, total_samples (per channel), encoder (or\n"
      "null), description, delay (= start skip), removed_samples, emphasis (0-3), tags\n"
      "(only when the file has a tag), replaygain (numbers or null); a file that cannot\n"
      "be opened gives {file, error: {name, code, reason}}.\n"
      "\n"
      "Examples:\n"
      "  kxhost info song.mp3\n"
      "  kxhost info --json album/*.mp3 > album.json\n"
      "  kxhost info -r --json ~/Music | jq '.[] | select(.error)'\n"
      "  kxhost info --codepage 932 japanese.mp3");
  sub->callback([&options, &result] { result.exitCode = RunInfo(options, opts); });
}

}  // namespace kxhost
