// kxhost decode: decodes through the module to WAV files (16-bit integer, or 64-bit
// IEEE float with --float) written by libsndfile, or to raw little-endian samples
// (--format raw; "-o -" is standard output). One file goes to -o OUT; several files
// or folders go to --out-dir DIR, decoded in parallel (-j N workers, each with its
// own decoder objects), keeping the folders' layout. Files of a folder that the
// module does not take are skipped; a file that fails is reported and the others go
// on. --start and --duration cut the output through SetCurrentPosition.
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
#include "progress.h"

namespace kxhost {

namespace {

struct DecodeOptions {
  std::vector<std::string> inputs;
  std::string out;
  std::string outDir;
  std::string format = "wav";
  std::string start;
  std::string duration;
  bool startGiven = false;
  bool durationGiven = false;
  bool useFloat = false;
  bool noDeemphasis = false;
  bool recursive = false;
  unsigned jobs = 0;  // 0: one per core
};

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// mkdir -p; throws CliError.
void MakeDirectories(const std::string& path) {
  if (path.empty() || IsDirectory(path)) return;
  const size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash != 0) MakeDirectories(path.substr(0, slash));
  if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
    throw CliError("cannot make the folder " + path + ": " + std::strerror(errno));
  }
}

// "a/b.mp3" -> "a/b.wav": the extension of the last path element replaced.
std::string WithExtension(const std::string& relative, const std::string& extension) {
  const size_t slash = relative.find_last_of('/');
  const size_t dot = relative.find_last_of('.');
  const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
  return (hasExtension ? relative.substr(0, dot) : relative) + extension;
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

int RunSingle(const GlobalOptions& options, const DecodeOptions& opts, const DecodeSettings& settings) {
  if (opts.inputs.size() != 1 || IsDirectory(opts.inputs[0])) {
    throw CliError("-o names one output file: give one FILE, or use --out-dir DIR for several files or a folder");
  }
  const bool toStdout = opts.out == "-";
  if (toStdout && !settings.raw) {
    throw CliError("WAV output needs a file name; use --format raw to write samples to standard output");
  }
  const auto module = PrepareModule(options);
  Progress progress(options.quiet, 0, "");
  const DecodeOutcome outcome =
      DecodeFile(*module, opts.inputs[0], opts.out, settings, [&progress](uint64_t done, uint64_t total) {
        if (!progress.Enabled()) return;
        progress.SetTotal(total);
        progress.Update(done);
      });
  progress.Clear();
  if (!options.quiet) {
    std::string line = (toStdout ? std::string("(standard output)") : opts.out) + ": " +
                       std::to_string(outcome.sampleFrames) + " samples, " +
                       std::to_string(outcome.format.nSamplesPerSec) + " Hz, " +
                       std::to_string(outcome.format.nChannels) + " channels, " + SampleFormatText(outcome.format);
    if (outcome.concealedCalls != 0) {
      line += ", damaged frames concealed in " + std::to_string(outcome.concealedCalls) + " reads";
    }
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  return kExitOk;
}

struct BatchJob {
  InputFile input;
  std::string output;
  std::string clash;  // the input whose output has the same name (an error)
};

int RunBatch(const GlobalOptions& options, const DecodeOptions& opts, const DecodeSettings& settings) {
  if (!opts.out.empty()) throw CliError("give either -o OUT (one file) or --out-dir DIR, not both");
  const auto module = PrepareModule(options);
  const std::vector<InputFile> files = ExpandInputs(opts.inputs, opts.recursive);
  MakeDirectories(opts.outDir);
  const std::string extension = settings.raw ? ".raw" : ".wav";
  std::atomic<unsigned> decoded{0}, failed{0}, skipped{0};
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
          continue;
        }
      } catch (const CliError& e) {
        report(scan, e.what());
        continue;
      }
      BatchJob job;
      job.input = file;
      job.output = opts.outDir + (opts.outDir.back() == '/' ? "" : "/") + WithExtension(file.relative, extension);
      if (auto [it, added] = owners.emplace(job.output, file.path); !added) job.clash = it->second;
      struct stat st {};
      if (stat(job.output.c_str(), &st) == 0 && inputIds.count({st.st_dev, st.st_ino}) != 0) {
        report(scan, file.path + ": its output " + job.output + " would replace an input file");
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
  auto work = [&] {
    for (;;) {
      const size_t index = next.fetch_add(1);
      if (index >= jobs.size() || Interrupted()) return;
      const BatchJob& job = jobs[index];
      try {
        if (!job.clash.empty()) {
          throw CliError(job.input.path + ": its output " + job.output + " is also the output of " + job.clash);
        }
        {
          std::lock_guard<std::mutex> lock(folderMutex);
          const size_t slash = job.output.find_last_of('/');
          if (slash != std::string::npos) MakeDirectories(job.output.substr(0, slash));
        }
        DecodeFile(*module, job.input.path, job.output, settings, nullptr);
        ++decoded;
      } catch (const Interruption&) {
        return;
      } catch (const CliError& e) {
        report(progress, e.what());
      } catch (const std::exception& e) {
        report(progress, job.input.path + ": " + e.what());
      }
      progress.Advance(1, job.input.relative);
    }
  };
  std::vector<std::thread> threads;
  for (unsigned i = 1; i < workers; ++i) threads.emplace_back(work);
  work();
  for (auto& t : threads) t.join();
  progress.Clear();
  ExitIfInterrupted();
  if (!options.quiet) {
    std::string line = "decoded " + std::to_string(decoded.load()) + " files to " + opts.outDir;
    if (failed != 0) line += ", " + std::to_string(failed.load()) + " failed";
    if (skipped != 0) line += ", " + std::to_string(skipped.load()) + " skipped (not MPEG audio)";
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  return failed != 0 ? kExitFileFailed : kExitOk;
}

int RunDecode(const GlobalOptions& options, const DecodeOptions& opts) {
  DecodeSettings settings;
  settings.useFloat = opts.useFloat;
  settings.raw = opts.format == "raw";
  settings.noDeemphasis = opts.noDeemphasis;
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
  sub->add_option("FILE", opts.inputs, "audio file; with --out-dir also several files or folders")->required();
  sub->add_option("-o,--output", opts.out, "output file; - for standard output (with --format raw)");
  sub->add_option("--out-dir", opts.outDir, "folder for the outputs of several files or folders (made if missing)");
  sub->add_option("--format", opts.format, "wav (default) or raw (s16le, or f64le with --float)")
      ->check(CLI::IsMember({"wav", "raw"}));
  sub->add_flag("--float", opts.useFloat, "64-bit IEEE float samples instead of 16-bit integers");
  sub->add_option("--start", opts.start, "start at TIME (seconds, or mm:ss.fff)");
  sub->add_option("--duration", opts.duration, "decode TIME at most (seconds, or mm:ss.fff)");
  sub->add_flag("--no-deemphasis", opts.noDeemphasis, "never apply de-emphasis");
  sub->add_flag("-r,--recursive", opts.recursive, "with --out-dir: descend into subfolders, keeping their layout");
  sub->add_option("-j,--jobs", opts.jobs, "files decoded at once with --out-dir (default: one per core)")
      ->check(CLI::Range(1u, 256u));
  sub->footer(
      "The output is written under a temporary name and renamed when complete: a failed\n"
      "or interrupted (Ctrl-C) run leaves nothing under the requested name. With\n"
      "--out-dir, FOLDER/a/b.mp3 becomes DIR/a/b.wav; files the module does not take\n"
      "are skipped; a file that fails is reported and the others go on (exit status 1).\n"
      "\n"
      "Examples:\n"
      "  kxhost decode song.mp3 -o song.wav\n"
      "  kxhost decode song.mp3 -o song.wav --float\n"
      "  kxhost decode song.mp3 -o - --format raw | aplay -f S16_LE -r 44100 -c 2\n"
      "  kxhost decode song.mp3 -o intro.wav --start 1:05.5 --duration 10\n"
      "  kxhost decode -r ~/Music --out-dir /tmp/wav -j 4");
  sub->callback([&options, &result, sub] {
    opts.startGiven = sub->count("--start") > 0;
    opts.durationGiven = sub->count("--duration") > 0;
    result.exitCode = RunDecode(options, opts);
  });
}

}  // namespace kxhost
