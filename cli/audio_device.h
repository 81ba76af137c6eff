// The system's sound output for `kxhost play`, opened for one format (rate,
// channels, 16-bit integer or 64-bit float samples, interleaved).
//
// Linux: an ALSA PCM. PipeWire and PulseAudio systems take it through their ALSA
// plug-ins; a device that does not take the format itself is opened through ALSA's
// plug layer, which converts. Writes block while the device's buffer is full,
// recover from underruns, and are never allowed to run more than the buffer's time
// ahead of the wall clock (a device without a clock of its own, such as ALSA's null
// PCM, then plays in real time too).
//
// Windows: a waveOut device (the wave mapper, or one named by number or name),
// fed through a ring of blocks that together hold about half a second; a write
// waits while every block is queued. A device that refuses 64-bit float samples is
// given 32-bit float ones, converted here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kxhost {

// What `--device` takes on this system, for the help text.
extern const char* const kAudioDeviceHelp;

struct AudioFormat {
  uint32_t rate = 0;
  uint32_t channels = 0;
  bool float64 = false;  // 64-bit float samples, else 16-bit integers
  uint32_t BytesPerFrame() const { return channels * (float64 ? 8u : 2u); }
  bool operator==(const AudioFormat& other) const {
    return rate == other.rate && channels == other.channels && float64 == other.float64;
  }
};

class AudioDevice {
 public:
  // Opens `name` (an ALSA PCM name; on Windows "default", a device number or the
  // start of a device's name) for `format`. Throws CliError (exit status 2) with the
  // system's reason when it cannot.
  static std::unique_ptr<AudioDevice> Open(const std::string& name, const AudioFormat& format);
  ~AudioDevice();
  AudioDevice(const AudioDevice&) = delete;
  AudioDevice& operator=(const AudioDevice&) = delete;

  const AudioFormat& Format() const { return format_; }
  // Plays `frames` sample frames. Underruns are recovered; returns false with the
  // reason in *error only when the device failed for good.
  bool Write(const uint8_t* data, size_t frames, std::string* error);
  // Stops and resumes output (the buffered samples stay; where the device cannot
  // pause, they are dropped).
  void SetPaused(bool paused);
  // Drops what is buffered (after a seek or a skip, so that the new place is heard
  // at once).
  void Discard();
  // Plays what is buffered to its end (before the device is closed).
  void Drain();
  // Where playback stands: the sample frames handed to the device less those still
  // in its buffer.
  uint64_t FramesPlayed() const;
  // The sample frames handed to the device since it was opened.
  uint64_t FramesWritten() const { return framesWritten_; }

 private:
  struct System;  // the backend's own state
  explicit AudioDevice(const AudioFormat& format);

  std::unique_ptr<System> system_;
  AudioFormat format_;
  uint64_t framesWritten_ = 0;
};

}  // namespace kxhost
