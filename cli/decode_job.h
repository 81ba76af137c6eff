// Decoding one file to one output, as `decode` does for a single file and for each
// file of a batch: open the decoder, seek to --start through SetCurrentPosition,
// pull PCM frame by frame until the end (or --duration), and write it to the output
// (see output_file.h for how each kind of output is written).
//
// Honest lengths: when the information record's length comes from the file itself
// (a VBR header's frame count, or every frame counted) and the decoder ends before
// it, the outcome says how much is missing. When decoding fails in the middle, what
// decoded so far is kept under the output's name and the failure is returned with
// it, unless `strict` asks for all or nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli_error.h"
#include "host/kxaudiofile.h"
#include "module_loader.h"
#include "replay_gain.h"
#include "time_value.h"

namespace kxhost {

struct DecodeSettings {
  bool useFloat = false;      // 64-bit float samples instead of 16-bit integers
  bool raw = false;           // raw samples instead of a WAV file
  bool noDeemphasis = false;  // open with de-emphasis switched off
  bool strict = false;        // a short or failed decode keeps nothing (a FileError instead)
  GainSettings gain;          // ReplayGain (off by default)
  std::optional<TimeValue> start;
  std::optional<TimeValue> duration;
};

// A stretch of output in which the decoder concealed damaged frames.
struct ConcealedStretch {
  uint64_t firstSample = 0;  // position in the file, samples per channel
  uint64_t endSample = 0;    // one past the last
};

struct DecodeOutcome {
  PCMWAVEFORMAT format{};      // of the output
  AppliedGain gain;            // the ReplayGain factor applied (1 when none)
  uint64_t bytes = 0;          // PCM bytes written
  uint64_t sampleFrames = 0;   // bytes / block alignment
  uint64_t startSample = 0;    // where the output begins in the file (--start)
  // The samples the file declares for this output, when its length is known from
  // the file (0: not known, e.g. a frame count estimated from the first frames).
  uint64_t expectedFrames = 0;
  bool shortInput = false;     // the decoder ended before expectedFrames
  std::vector<ConcealedStretch> concealed;
  // A failure in the middle: the output holds what decoded before it.
  std::optional<FileError> failure;
};

// Called after each read with (samples written, samples expected or 0 when
// unknown, sample rate); samples are per channel.
using DecodeProgressFn = std::function<void(uint64_t, uint64_t, uint32_t)>;

// Decodes `input` to `output` ("-": standard output). Throws FileError for the
// input (cannot open, nothing decoded, start beyond the end; with `strict` also a
// short or failed decode), CliError for the output, and Interruption when a signal
// arrived: in those cases nothing is left under the output's name (an existing
// file there is untouched).
DecodeOutcome DecodeFile(const LoadedModule& module, const std::string& input, const std::string& output,
                         const DecodeSettings& settings, const DecodeProgressFn& progress);

}  // namespace kxhost
