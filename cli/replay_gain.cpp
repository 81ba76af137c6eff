// ReplayGain factor and scaling (see replay_gain.h).
#include "replay_gain.h"

#include <cmath>

namespace kxhost {

bool ParseGainMode(const std::string& text, GainMode* mode) {
  if (text == "off") {
    *mode = GainMode::kOff;
  } else if (text == "track") {
    *mode = GainMode::kTrack;
  } else if (text == "album") {
    *mode = GainMode::kAlbum;
  } else {
    return false;
  }
  return true;
}

AppliedGain ComputeGain(const kxmp3::ReplayGainRecord& record, const GainSettings& settings) {
  AppliedGain gain;
  if (settings.mode == GainMode::kOff) return gain;
  const bool hasTrack = (record.flags & kxmp3::RG_FLAG_TRACK_GAIN) != 0;
  const bool hasAlbum = (record.flags & kxmp3::RG_FLAG_ALBUM_GAIN) != 0;
  // The value asked for, or the other one when the file has only that; each comes
  // with its own peak.
  const bool useAlbum = hasAlbum && (settings.mode == GainMode::kAlbum || !hasTrack);
  double peak = 0;
  bool hasPeak = false;
  if (useAlbum) {
    gain.gainDb = record.albumGain + settings.preampDb;
    hasPeak = (record.flags & kxmp3::RG_FLAG_ALBUM_PEAK) != 0;
    peak = record.albumPeak;
    gain.fromTag = true;
  } else if (hasTrack) {
    gain.gainDb = record.trackGain + settings.preampDb;
    hasPeak = (record.flags & kxmp3::RG_FLAG_TRACK_PEAK) != 0;
    peak = record.trackPeak;
    gain.fromTag = true;
  } else {
    gain.gainDb = settings.fallbackDb;
  }
  gain.factor = std::pow(10.0, gain.gainDb / 20.0);
  if (hasPeak && peak > 0 && gain.factor * peak > 1.0) {
    gain.factor = 1.0 / peak;
    gain.limitedByPeak = true;
  }
  return gain;
}

void ScaleFloat(double* samples, size_t count, double factor) {
  for (size_t i = 0; i < count; ++i) samples[i] *= factor;
}

void ScaleTo16(const double* samples, size_t count, double factor, int16_t* out) {
  for (size_t i = 0; i < count; ++i) {
    const double v = std::nearbyint(samples[i] * factor * 32768.0);
    out[i] = static_cast<int16_t>(v >= 32767.0 ? 32767.0 : v <= -32768.0 ? -32768.0 : v);
  }
}

}  // namespace kxhost
