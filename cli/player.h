// The playback of `kxhost play`: files one after another through the decoder and
// the sound output. Consecutive files of the same rate and channel count go to the
// device as one unbroken stream (exactly the samples `kxhost decode` gives for each
// file, back to back); the decoder of the next file is opened while the current one
// plays, and the device is opened again only when the format changes. ReplayGain
// scales the samples in double precision before they are rounded to 16 bits.
// On a terminal, keys pause, seek and skip, and a status line shows where playback
// stands.
#pragma once

#include <string>
#include <vector>

#include "module_loader.h"
#include "replay_gain.h"

namespace kxhost {

struct PlaySettings {
  std::string device = "default";
  bool useFloat = false;      // 64-bit float samples to the device
  bool noDeemphasis = false;
  GainSettings gain;
  bool quiet = false;
  bool keys = true;           // read keys when standard input is a terminal
};

struct PlaySummary {
  unsigned played = 0;
  unsigned failed = 0;
  bool quit = false;  // the user quit before the end
};

// Plays `files` in order. Throws CliError when the sound output cannot be opened,
// Interruption after Ctrl-C (the terminal restored, the device stopped).
PlaySummary PlayFiles(const LoadedModule& module, const std::vector<std::string>& files,
                      const PlaySettings& settings);

}  // namespace kxhost
