// kxhost play: plays files and folders through the system's sound output (ALSA on
// Linux, waveOut on Windows), gaplessly where consecutive files share their format,
// with ReplayGain, and on a terminal with keys and a status line.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "audio_device.h"
#include "commands.h"
#include "decoder_session.h"
#include "file_list.h"
#include "player.h"

namespace kxhost {

namespace {

struct PlayOptions {
  std::vector<std::string> inputs;
  bool recursive = false;
  bool shuffle = false;
  std::string device = "default";
  bool useFloat = false;
  bool noDeemphasis = false;
  std::string replayGain = "track";
  double preamp = 0;
  double fallbackGain = 0;
};

int RunPlay(const GlobalOptions& options, const PlayOptions& opts) {
  PlaySettings settings;
  if (!ParseGainMode(opts.replayGain, &settings.gain.mode)) {
    throw CliError("bad --replaygain " + opts.replayGain + ": use off, track or album");
  }
  settings.gain.preampDb = opts.preamp;
  settings.gain.fallbackDb = opts.fallbackGain;
  settings.device = opts.device;
  settings.useFloat = opts.useFloat;
  settings.noDeemphasis = opts.noDeemphasis;
  settings.quiet = options.quiet;
  auto module = PrepareModule(options);

  // Files named are played as they are (one that fails is reported and skipped);
  // the files of a folder only when the module takes them.
  std::vector<std::string> files;
  unsigned failures = 0;
  for (const InputFile& input : ExpandInputs(opts.inputs, opts.recursive)) {
    if (input.listError != AF_S_OK) {
      std::fprintf(stderr, "kxhost: %s: %s\n", input.path.c_str(), input.listReason.c_str());
      ++failures;
      continue;
    }
    if (input.fromDirectory) {
      bool taken = false;
      try {
        taken = ProbeFile(*module, input.path);
      } catch (const FileError&) {
        taken = false;
      }
      if (!taken) continue;
    }
    files.push_back(input.path);
  }
  if (opts.shuffle) {
    std::random_device seed;
    std::mt19937 order(seed());
    std::shuffle(files.begin(), files.end(), order);
  }
  if (files.empty()) {
    if (!options.quiet) std::fprintf(stderr, "kxhost: nothing to play\n");
    return failures != 0 ? kExitFileFailed : kExitOk;
  }
  const PlaySummary summary = PlayFiles(*module, files, settings);
  return failures + summary.failed != 0 ? kExitFileFailed : kExitOk;
}

}  // namespace

void AddPlayCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("play", "play files through the system's sound output, gaplessly");
  static PlayOptions opts;  // the parsed arguments, read by the callback
  sub->add_option("FILE", opts.inputs, "audio files, or folders whose files are played in name order")->required();
  sub->add_flag("-r,--recursive", opts.recursive, "descend into the subfolders of a folder");
  sub->add_flag("--shuffle", opts.shuffle, "play the files in a random order");
  sub->add_option("--device", opts.device, kAudioDeviceHelp);
  sub->add_flag("--float", opts.useFloat, "send 64-bit float samples (converted where the device needs it)");
  sub->add_flag("--no-deemphasis", opts.noDeemphasis, "never apply de-emphasis, whatever the file asks");
  sub->add_option("--replaygain", opts.replayGain, "off, track or album (default: track)");
  sub->add_option("--preamp", opts.preamp, "decibels added to the tags' ReplayGain (default 0)");
  sub->add_option("--fallback-gain", opts.fallbackGain, "decibels for a file without ReplayGain values (default 0)");
  sub->footer(
      "Consecutive files with the same sample rate and channel count play as one\n"
      "unbroken stream: the device receives exactly what `kxhost decode` gives for each\n"
      "file, back to back, and is opened again only when the format changes. ReplayGain\n"
      "scales the samples in double precision before they are rounded to 16 bits; the\n"
      "peak value of the tag, when there is one, keeps the result from clipping.\n"
      "\n"
      "Keys on a terminal: space pause/resume, left/right seek 10 s, up/down seek 60 s,\n"
      "n next file, p previous file, q quit. Without a terminal: one line per file on\n"
      "standard error (none with --quiet). A file that cannot be played is reported and\n"
      "skipped (exit status 1); a device that cannot be opened ends the run (status 2).\n"
      "\n"
      "Examples:\n"
      "  kxhost play album/\n"
      "  kxhost play -r --shuffle ~/Music\n"
      "  kxhost play --replaygain album --preamp 3 live/*.mp3\n"
      "  kxhost play --device 1 --float song.mp3");
  sub->callback([&options, &result] { result.exitCode = RunPlay(options, opts); });
}

}  // namespace kxhost
