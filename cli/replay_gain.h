// ReplayGain for playback and decoding: the factor a file's samples are scaled by,
// chosen from the track or album values of its tags (either falling back on the
// other when missing), raised by the pre-amplification, held down by the peak so
// that the result never clips, and the fallback gain for a file without values. The
// scaling works on the module's 64-bit float samples in double precision; the
// 16-bit output is rounded from the scaled values as the module rounds its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/kx_replaygain_record.h"

namespace kxhost {

enum class GainMode { kOff, kTrack, kAlbum };

struct GainSettings {
  GainMode mode = GainMode::kOff;
  double preampDb = 0;    // added to the tag's gain
  double fallbackDb = 0;  // the gain of a file whose tags give none
};

struct AppliedGain {
  double factor = 1.0;     // linear factor on the samples
  double gainDb = 0;       // the gain asked for, before clipping prevention
  bool fromTag = false;    // the gain came from the file's tags
  bool limitedByPeak = false;  // the peak held the factor down
};

// "off", "track", "album"; false for anything else.
bool ParseGainMode(const std::string& text, GainMode* mode);

// The factor for a file with the ReplayGain record `record` (flags 0: no values).
AppliedGain ComputeGain(const kxmp3::ReplayGainRecord& record, const GainSettings& settings);

// Scales `count` samples by `factor` in place (64-bit float output).
void ScaleFloat(double* samples, size_t count, double factor);
// Scales `count` float samples by `factor` into 16-bit samples: full scale 32768,
// rounded to nearest (ties to even), saturated.
void ScaleTo16(const double* samples, size_t count, double factor, int16_t* out);

}  // namespace kxhost
