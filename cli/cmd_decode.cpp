// kxhost decode: decodes through the module to WAV files (16-bit integer, or 64-bit
// IEEE float with --float) or raw little-endian samples; the format follows the
// output's extension (.wav; .raw or .pcm) or --format. One file goes to -o OUT
// ("-": standard output); several files or folders go to --out-dir DIR, decoded in
// parallel (-j N workers, each with its own decoder objects), keeping the folders'
// layout. Files of a folder that the module does not take are skipped; a file that
// fails is reported and the others go on. --start and --duration cut the output
// through SetCurrentPosition. Outputs are written as output_file.h describes: only
// kxhost's own regular output file is ever replaced.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "decode_job.h"
#include "decoder_session.h"
#include "file_list.h"
#include "interrupt.h"
#include "output_file.h"
#include "path_names.h"
#include "progress.h"
#include "text.h"

namespace kxhost {

namespace {

struct DecodeOptions {
  std::vector<std::string> inputs;
  std::string out;
  std::string outDir;
  std::string format = "wav";
  bool formatGiven = false;
  std::string start;
  std::string duration;
  bool startGiven = false;
  bool durationGiven = false;
  bool useFloat = false;
  bool noDeemphasis = false;
  bool recursive = false;
  bool noClobber = false;
  bool strict = false;
  bool allowShort = false;
  bool verbose = false;
  std::string replayGain = "off";
  double preamp = 0;
  double fallbackGain = 0;
  unsigned jobs = 0;  // 0: one per core
};

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// mkdir -p; throws CliError.
void MakeDirectories(const std::string& path) {
  if (path.empty() || IsDirectory(path)) return;
  const size_t slash = LastSeparator(path);
  if (slash != std::string::npos && slash != 0) MakeDirectories(path.substr(0, slash));
  if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
    throw CliError("cannot make the folder " + path + ": " + std::strerror(errno));
  }
}

// "a/b.mp3" -> "a/b.wav": the extension of the last path element replaced.
std::string WithExtension(const std::string& relative, const std::string& extension) {
  const size_t slash = LastSeparator(relative);
  const size_t dot = relative.find_last_of('.');
  const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
  return (hasExtension ? relative.substr(0, dot) : relative) + extension;
}

// The extension of the last path element, lower case, without the dot ("" if none).
std::string ExtensionOf(const std::string& path) {
  const size_t slash = LastSeparator(path);
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash + 2) || dot == 0) return "";
  std::string ext = path.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return ext;
}

// The format -o's name asks for: "wav", "raw", "" for a name that says nothing,
// or "other" for the extension of another audio format (refused).
std::string FormatOfName(const std::string& path) {
  const std::string ext = ExtensionOf(path);
  if (ext == "wav" || ext == "wave") return "wav";
  if (ext == "raw" || ext == "pcm") return "raw";
  static const std::set<std::string> kOtherAudio = {"mp3", "mp2", "mp1", "mpa", "mpg", "flac", "ogg", "oga",
                                                    "opus", "m4a", "aac", "wma", "aif", "aiff", "au", "snd",
                                                    "w64", "caf", "ape", "wv", "mka", "mp4", "rmp"};
  return kOtherAudio.count(ext) != 0 ? "other" : "";
}

// The output format of a single decode to `out`; throws CliError when -o's name
// contradicts --format or names a format kxhost does not write.
std::string ChooseFormat(const DecodeOptions& opts) {
  if (ClassifyOutput(opts.out) != OutputKind::kFile) return opts.format;  // a device or pipe has no extension to follow
  const std::string named = FormatOfName(opts.out);
  if (named == "other") {
    throw CliError(opts.out + ": kxhost writes WAV or raw samples, not ." + ExtensionOf(opts.out) +
                   "; name the output .wav, .raw or .pcm");
  }
  if (named.empty()) return opts.format;
  if (opts.formatGiven && named != opts.format) {
    throw CliError(opts.out + ": the name says " + named + " but --format says " + opts.format +
                   "; make them agree");
  }
  return named;
}

std::optional<TimeValue> TimeOption(bool given, const std::string& text, const char* name) {
  if (!given) return std::nullopt;
  const auto value = ParseTime(text);
  if (!value) {
    throw CliError(std::string("bad ") + name + " " + text + ": use seconds (90, 12.5) or mm:ss.fff (1:30.250)");
  }
  return value;
}

std::string SampleFormatText(const PCMWAVEFORMAT& format) {
  return format.wBitsPerSample == 64 ? "64-bit float" : "16-bit";
}

// The lines a decode leaves on standard error beside its summary: a short input,
// a failure in the middle, concealed damage. Returns the file's exit status.
int ReportOutcome(Progress& progress, const DecodeOptions& opts, const std::string& input,
                  const std::string& outputName, const DecodeOutcome& outcome) {
  const uint32_t rate = outcome.format.nSamplesPerSec;
  int status = kExitOk;
  if (outcome.failure) {
    progress.Message("kxhost: " + std::string(outcome.failure->what()));
    progress.Message("kxhost: warning: " + outputName + " holds the " +
                     FormatSamplesAsTime(outcome.sampleFrames, rate) + " decoded before the failure");
    status = kExitFileFailed;
  }
  if (outcome.shortInput) {
    progress.Message("kxhost: warning: " + input + ": the file ends at " +
                     FormatSamplesAsTime(outcome.startSample + outcome.sampleFrames, rate) + ", before the " +
                     FormatSamplesAsTime(outcome.startSample + outcome.expectedFrames, rate) +
                     " its header declares; " + outputName + " holds all there was (" +
                     std::to_string(outcome.sampleFrames) + " of " + std::to_string(outcome.expectedFrames) +
                     " samples)");
    if (!opts.allowShort) status = kExitShort;
  }
  if (!outcome.concealed.empty()) {
    uint64_t samples = 0;
    for (const auto& stretch : outcome.concealed) samples += stretch.endSample - stretch.firstSample;
    std::string line = "kxhost: " + input + ": damaged frames concealed in " +
                       CountOf(outcome.concealed.size(), "place", "places") + " (" +
                       FormatSamplesAsTime(samples, rate) + " of audio muted), first at " +
                       FormatSamplesAsTime(outcome.concealed.front().firstSample, rate);
    if (!opts.verbose && outcome.concealed.size() > 1) line += "; -v lists them";
    progress.Message(line);
    if (opts.verbose) {
      for (const auto& stretch : outcome.concealed) {
        progress.Message("  concealed " + FormatSamplesAsTime(stretch.firstSample, rate) + " - " +
                         FormatSamplesAsTime(stretch.endSample, rate));
      }
    }
  }
  return status;
}

int RunSingle(const GlobalOptions& options, const DecodeOptions& opts, DecodeSettings settings) {
  if (opts.inputs.size() != 1 || IsDirectory(opts.inputs[0])) {
    throw CliError("-o names one output file: give one FILE, or use --out-dir DIR for several files or a folder");
  }
  const OutputKind kind = ClassifyOutput(opts.out);
  if (kind == OutputKind::kDirectory) {
    throw CliError(opts.out + " is a folder: -o names a file (use --out-dir DIR for a folder)");
  }
  settings.raw = ChooseFormat(opts) == "raw";
  const bool exists = IsExistingRegularFile(opts.out);
  if (exists && opts.noClobber) {
    if (!options.quiet) std::fprintf(stderr, "kxhost: %s exists; kept (-n)\n", opts.out.c_str());
    return kExitOk;
  }
  const auto module = PrepareModule(options);
  Progress progress(options.quiet, 1, "");
  const std::string& input = opts.inputs[0];
  const std::string shownName = BaseName(input);
  const DecodeOutcome outcome =
      DecodeFile(*module, input, opts.out, settings, [&](uint64_t done, uint64_t total, uint32_t rate) {
        progress.FileProgress(0, shownName, done, total, rate);
      });
  progress.Clear();
  const std::string outputName = kind == OutputKind::kStandardOutput ? "(standard output)" : opts.out;
  const int status = ReportOutcome(progress, opts, input, outputName, outcome);
  if (!options.quiet) {
    std::string line = outputName + ": " + CountOf(outcome.sampleFrames, "sample", "samples") + ", " +
                       std::to_string(outcome.format.nSamplesPerSec) + " Hz, " +
                       CountOf(outcome.format.nChannels, "channel", "channels") + ", " +
                       SampleFormatText(outcome.format) + ", " +
                       FormatSamplesAsTime(outcome.sampleFrames, outcome.format.nSamplesPerSec);
    if (exists) line += " (replaced the existing file)";
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  return status;
}

struct BatchJob {
  InputFile input;
  std::string output;
  std::string clash;  // the input whose output has the same name (an error)
};

int RunBatch(const GlobalOptions& options, const DecodeOptions& opts, const DecodeSettings& settings) {
  if (!opts.out.empty()) throw CliError("give either -o OUT (one file) or --out-dir DIR, not both");
  if (IsExistingRegularFile(opts.outDir)) {
    throw CliError("--out-dir " + opts.outDir + " is a file, not a folder");
  }
  const auto module = PrepareModule(options);
  const std::vector<InputFile> files = ExpandInputs(opts.inputs, opts.recursive);
  MakeDirectories(opts.outDir);
  const std::string extension = settings.raw ? ".raw" : ".wav";
  std::atomic<unsigned> decoded{0}, failed{0}, skipped{0}, kept{0}, shortInputs{0};
  auto report = [&failed](Progress& progress, const std::string& message) {
    ++failed;
    progress.Message("kxhost: " + message);
  };

  // First the files to decode: a folder's other files (covers, playlists) are not
  // ours and are skipped quietly; a file named on the command line is always tried.
  std::vector<BatchJob> jobs;
  // Every input, so that no output replaces one (a folder decoded into itself).
  std::set<std::pair<dev_t, ino_t>> inputIds;
  for (const auto& file : files) {
    struct stat st {};
    if (stat(file.path.c_str(), &st) == 0) inputIds.emplace(st.st_dev, st.st_ino);
  }
  {
    Progress scan(options.quiet || files.size() < 50, files.size(), "files scanned");
    std::map<std::string, std::string> owners;  // output -> input
    for (const auto& file : files) {
      if (Interrupted()) break;
      scan.Advance(1, file.relative);
      if (file.listError != AF_S_OK) {
        report(scan, FileError(file.path, file.listReason, file.listError).what());
        continue;
      }
      try {
        if (file.fromDirectory && !ProbeFile(*module, file.path)) {
          ++skipped;
          if (opts.verbose) scan.Message("kxhost: skipped " + file.path + " (not MPEG audio)");
          continue;
        }
      } catch (const CliError& e) {
        report(scan, e.what());
        continue;
      }
      BatchJob job;
      job.input = file;
      job.output = JoinPath(opts.outDir, WithExtension(file.relative, extension));
      if (auto [it, added] = owners.emplace(job.output, file.path); !added) job.clash = it->second;
      struct stat st {};
      if (stat(job.output.c_str(), &st) == 0 && inputIds.count({st.st_dev, st.st_ino}) != 0) {
        report(scan, file.path + ": its output " + job.output + " would replace an input file");
        continue;
      }
      if (opts.noClobber && IsExistingRegularFile(job.output)) {
        ++kept;
        if (opts.verbose) scan.Message("kxhost: kept " + job.output + " (exists, -n)");
        continue;
      }
      jobs.push_back(std::move(job));
    }
  }
  ExitIfInterrupted();

  unsigned workers = opts.jobs != 0 ? opts.jobs : std::max(1u, std::thread::hardware_concurrency());
  if (workers > jobs.size()) workers = std::max<unsigned>(1, static_cast<unsigned>(jobs.size()));
  Progress progress(options.quiet, jobs.size(), "files");
  std::atomic<size_t> next{0};
  std::mutex folderMutex;
  auto work = [&](unsigned slot) {
    for (;;) {
      const size_t index = next.fetch_add(1);
      if (index >= jobs.size() || Interrupted()) return;
      const BatchJob& job = jobs[index];
      try {
        if (!job.clash.empty()) {
          throw CliError(job.input.path + ": its output " + job.output + " is also the output of " + job.clash);
        }
        if (ClassifyOutput(job.output) == OutputKind::kDirectory) {
          throw CliError(job.input.path + ": its output " + job.output + " is a folder");
        }
        {
          std::lock_guard<std::mutex> lock(folderMutex);
          const size_t slash = LastSeparator(job.output);
          if (slash != std::string::npos) MakeDirectories(job.output.substr(0, slash));
        }
        const DecodeOutcome outcome =
            DecodeFile(*module, job.input.path, job.output, settings, [&](uint64_t done, uint64_t total, uint32_t rate) {
              progress.FileProgress(slot, job.input.relative, done, total, rate);
            });
        const int status = ReportOutcome(progress, opts, job.input.path, job.output, outcome);
        if (status == kExitFileFailed) ++failed;
        else ++decoded;
        if (outcome.shortInput) ++shortInputs;
      } catch (const Interruption&) {
        return;
      } catch (const CliError& e) {
        report(progress, e.what());
      } catch (const std::exception& e) {
        report(progress, job.input.path + ": " + e.what());
      }
      progress.FileDone(slot);
    }
  };
  std::vector<std::thread> threads;
  for (unsigned i = 1; i < workers; ++i) threads.emplace_back(work, i);
  work(0);
  for (auto& t : threads) t.join();
  progress.Clear();
  ExitIfInterrupted();
  if (!options.quiet) {
    std::string line = "decoded " + CountOf(decoded.load(), "file", "files") + " to " + opts.outDir;
    if (failed != 0) line += ", " + std::to_string(failed.load()) + " failed";
    if (shortInputs != 0) line += ", " + std::to_string(shortInputs.load()) + " shorter than declared";
    if (kept != 0) line += ", " + std::to_string(kept.load()) + " kept (output exists)";
    if (skipped != 0) line += ", " + std::to_string(skipped.load()) + " skipped (not MPEG audio)";
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  if (failed != 0) return kExitFileFailed;
  return shortInputs != 0 && !opts.allowShort ? kExitShort : kExitOk;
}

int RunDecode(const GlobalOptions& options, const DecodeOptions& opts) {
  if (opts.strict && opts.allowShort) throw CliError("--strict and --allow-short contradict each other; give one");
  DecodeSettings settings;
  settings.useFloat = opts.useFloat;
  settings.raw = opts.format == "raw";
  settings.noDeemphasis = opts.noDeemphasis;
  settings.strict = opts.strict;
  if (!ParseGainMode(opts.replayGain, &settings.gain.mode)) {
    throw CliError("bad --replaygain " + opts.replayGain + ": use off, track or album");
  }
  settings.gain.preampDb = opts.preamp;
  settings.gain.fallbackDb = opts.fallbackGain;
  settings.start = TimeOption(opts.startGiven, opts.start, "--start");
  settings.duration = TimeOption(opts.durationGiven, opts.duration, "--duration");
  if (!opts.outDir.empty()) return RunBatch(options, opts, settings);
  if (opts.out.empty()) throw CliError("say where to write: -o OUT for one file, or --out-dir DIR");
  return RunSingle(options, opts, settings);
}

}  // namespace

void AddDecodeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("decode", "decode to WAV files (or raw samples)");
  static DecodeOptions opts;  // the parsed arguments, read by the callback
  sub->add_option("FILE", opts.inputs, "audio file (- for standard input); with --out-dir also several files or folders")
      ->required();
  sub->add_option("-o,--output", opts.out,
                  "output file (.wav, or .raw/.pcm for raw samples); - for standard output; a device or FIFO is "
                  "written in place");
  sub->add_option("--out-dir", opts.outDir, "folder for the outputs of several files or folders (made if missing)");
  sub->add_option("--format", opts.format, "wav (default) or raw (s16le, or f64le with --float)")
      ->check(CLI::IsMember({"wav", "raw"}));
  sub->add_flag("--float", opts.useFloat, "64-bit IEEE float samples instead of 16-bit integers");
  sub->add_option("--start", opts.start, "start at TIME (seconds, or mm:ss.fff)");
  sub->add_option("--duration", opts.duration, "decode TIME at most (seconds, or mm:ss.fff)");
  sub->add_flag("--no-deemphasis", opts.noDeemphasis, "never apply de-emphasis");
  sub->add_option("--replaygain", opts.replayGain,
                  "off (default), track or album: scale by the tags' ReplayGain, kept from clipping by the peak");
  sub->add_option("--preamp", opts.preamp, "decibels added to the tags' ReplayGain (default 0)");
  sub->add_option("--fallback-gain", opts.fallbackGain,
                  "decibels for a file without ReplayGain values when --replaygain is on (default 0)");
  sub->add_flag("-n,--no-clobber", opts.noClobber, "keep existing output files (they are not decoded again)");
  sub->add_flag("--allow-short", opts.allowShort,
                "a file that ends before the length its header declares is not an error (exit 0, still warned)");
  sub->add_flag("--strict", opts.strict,
                "all or nothing: a file that is short or fails in the middle leaves no output (exit 1)");
  sub->add_flag("-v,--verbose", opts.verbose, "list skipped files, kept outputs and each concealed stretch");
  sub->add_flag("-r,--recursive", opts.recursive, "with --out-dir: descend into subfolders, keeping their layout");
  sub->add_option("-j,--jobs", opts.jobs, "files decoded at once with --out-dir (default: one per core)")
      ->check(CLI::Range(1u, 256u));
  sub->footer(
      "A regular output file is written under a temporary name and renamed when\n"
      "complete: an interrupted (Ctrl-C) run leaves nothing under the requested name,\n"
      "and an existing file is replaced only then (-n keeps it). A device, FIFO or\n"
      "standard output is written in place and never removed or replaced. With\n"
      "--out-dir, FOLDER/a/b.mp3 becomes DIR/a/b.wav; files the module does not take\n"
      "are skipped; a file that fails is reported and the others go on.\n"
      "\n"
      "Exit status: 0 done; 1 a file failed (decoding that failed in the middle keeps\n"
      "what decoded, unless --strict); 2 bad arguments or an output that cannot be\n"
      "written; 3 a file ended before the length its header declares (the output holds\n"
      "all there was; --allow-short makes this 0).\n"
      "\n"
      "Examples:\n"
      "  kxhost decode song.mp3 -o song.wav\n"
      "  kxhost decode song.mp3 -o song.wav --float\n"
      "  kxhost decode song.mp3 -o - --format raw | aplay -f S16_LE -r 44100 -c 2\n"
      "  curl -s https://example.org/song.mp3 | kxhost decode - -o song.wav\n"
      "  kxhost decode song.mp3 -o intro.wav --start 1:05.5 --duration 10\n"
      "  kxhost decode -r ~/Music --out-dir /tmp/wav -j 4 -n");
  sub->callback([&options, &result, sub] {
    opts.startGiven = sub->count("--start") > 0;
    opts.durationGiven = sub->count("--duration") > 0;
    opts.formatGiven = sub->count("--format") > 0;
    result.exitCode = RunDecode(options, opts);
  });
}

}  // namespace kxhost
