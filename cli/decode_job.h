// Decoding one file to one output, as `decode` does for a single file and for each
// file of a batch: open the decoder, seek to --start through SetCurrentPosition,
// pull PCM in player-sized requests until the end (or --duration), write it to a
// temporary file and rename it when complete.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/kxaudiofile.h"
#include "module_loader.h"
#include "time_value.h"

namespace kxhost {

struct DecodeSettings {
  bool useFloat = false;      // 64-bit float samples instead of 16-bit integers
  bool raw = false;           // raw samples instead of a WAV file
  bool noDeemphasis = false;  // open with de-emphasis switched off
  std::optional<TimeValue> start;
  std::optional<TimeValue> duration;
};

struct DecodeOutcome {
  PCMWAVEFORMAT format{};
  uint64_t bytes = 0;          // PCM bytes written
  uint64_t sampleFrames = 0;   // bytes / block alignment
  uint32_t concealedCalls = 0; // reads that reported a concealed damaged frame
};

// Called now and then with (bytes written, bytes expected; 0 when unknown).
using DecodeProgressFn = std::function<void(uint64_t, uint64_t)>;

// Decodes `input` to `output` ("-": raw samples to standard output). Throws
// FileError for the input (cannot open, decoding failed, start beyond the end),
// CliError for the output, and Interruption when a signal arrived: in every case
// nothing is left under the output's name (an existing file there is untouched).
DecodeOutcome DecodeFile(const LoadedModule& module, const std::string& input, const std::string& output,
                         const DecodeSettings& settings, const DecodeProgressFn& progress);

}  // namespace kxhost
