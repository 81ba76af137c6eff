// The ALSA sound output of `kxhost play` (see audio_device.h).
#include "audio_device.h"

#include <alloca.h>
#include <alsa/asoundlib.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "cli_error.h"
#include "system_library.h"

namespace kxhost {

const char* const kAudioDeviceHelp = "the ALSA PCM to play through (default: default)";

namespace {

// The ALSA calls of the sound output, from the library opened on first use.
struct AlsaCalls {
  decltype(&snd_pcm_open) pcmOpen;
  decltype(&snd_pcm_set_params) pcmSetParams;
  decltype(&snd_pcm_close) pcmClose;
  decltype(&snd_lib_error_set_handler) libErrorSetHandler;
  decltype(&snd_strerror) strerror;
  decltype(&snd_pcm_hw_params_sizeof) pcmHwParamsSizeof;
  decltype(&snd_pcm_hw_params_current) pcmHwParamsCurrent;
  decltype(&snd_pcm_hw_params_can_pause) pcmHwParamsCanPause;
  decltype(&snd_pcm_hw_params_get_buffer_time) pcmHwParamsGetBufferTime;
  decltype(&snd_pcm_writei) pcmWritei;
  decltype(&snd_pcm_recover) pcmRecover;
  decltype(&snd_pcm_pause) pcmPause;
  decltype(&snd_pcm_drop) pcmDrop;
  decltype(&snd_pcm_prepare) pcmPrepare;
  decltype(&snd_pcm_drain) pcmDrain;
  decltype(&snd_pcm_delay) pcmDelay;
};

const AlsaCalls& Alsa() {
  return LibraryCalls<AlsaCalls>("libasound.so.2", "playing sound", [](const SystemLibrary& library) {
    return AlsaCalls{KX_LIBRARY_FUNCTION(library, snd_pcm_open), KX_LIBRARY_FUNCTION(library, snd_pcm_set_params),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_close), KX_LIBRARY_FUNCTION(library, snd_lib_error_set_handler),
                     KX_LIBRARY_FUNCTION(library, snd_strerror), KX_LIBRARY_FUNCTION(library, snd_pcm_hw_params_sizeof),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_hw_params_current),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_hw_params_can_pause),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_hw_params_get_buffer_time),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_writei), KX_LIBRARY_FUNCTION(library, snd_pcm_recover),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_pause), KX_LIBRARY_FUNCTION(library, snd_pcm_drop),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_prepare), KX_LIBRARY_FUNCTION(library, snd_pcm_drain),
                     KX_LIBRARY_FUNCTION(library, snd_pcm_delay)};
  });
}

constexpr unsigned kLatencyMicroseconds = 500000;

// ALSA's own messages on standard error ("ALSA lib pcm.c:...") are kept quiet:
// kxhost says what failed in one line of its own.
void QuietAlsa(const char*, int, const char*, int, const char*, ...) {}

// Opens `name` and sets the format; returns 0 or a negative ALSA error.
int OpenAndSet(const std::string& name, const AudioFormat& format, snd_pcm_t** pcm) {
  int rc = Alsa().pcmOpen(pcm, name.c_str(), SND_PCM_STREAM_PLAYBACK, 0);
  if (rc < 0) return rc;
  rc = Alsa().pcmSetParams(*pcm, format.float64 ? SND_PCM_FORMAT_FLOAT64_LE : SND_PCM_FORMAT_S16_LE,
                          SND_PCM_ACCESS_RW_INTERLEAVED, format.channels, format.rate, 1, kLatencyMicroseconds);
  if (rc < 0) {
    Alsa().pcmClose(*pcm);
    *pcm = nullptr;
  }
  return rc;
}

}  // namespace

struct AudioDevice::System {
  snd_pcm_t* pcm = nullptr;
  bool canPause = false;
  bool paused = false;
  uint64_t pacedFrames = 0;  // frames written since the pacing clock started
  std::chrono::steady_clock::time_point pacingStart;
  std::chrono::microseconds bufferTime{500000};

  ~System() {
    if (pcm != nullptr) Alsa().pcmClose(pcm);
  }
  void RestartClock() {
    pacedFrames = 0;
    pacingStart = std::chrono::steady_clock::now();
  }
  // A device that takes samples faster than it plays them (one without a clock)
  // is held to the wall clock: never more than its buffer's time ahead.
  void Pace(size_t frames, uint32_t rate) {
    pacedFrames += frames;
    const auto ahead = std::chrono::microseconds(pacedFrames * 1000000 / rate) - bufferTime;
    const auto due = pacingStart + ahead;
    const auto now = std::chrono::steady_clock::now();
    if (due > now) std::this_thread::sleep_for(due - now);
  }
};

std::unique_ptr<AudioDevice> AudioDevice::Open(const std::string& name, const AudioFormat& format) {
  Alsa().libErrorSetHandler(QuietAlsa);
  snd_pcm_t* pcm = nullptr;
  int rc = OpenAndSet(name, format, &pcm);
  // A device that does not take this format (a bare hw: device and float samples)
  // is opened again through the plug layer, which converts.
  if (rc < 0 && rc != -ENOENT && name.rfind("plug:", 0) != 0 && name.rfind("default", 0) != 0) {
    const int first = rc;
    rc = OpenAndSet("plug:'" + name + "'", format, &pcm);
    if (rc < 0) rc = first;
  }
  if (rc < 0) {
    throw CliError("cannot open the audio device " + name + ": " + Alsa().strerror(rc), kExitUsage);
  }
  std::unique_ptr<AudioDevice> device(new AudioDevice(format));
  System& system = *device->system_;
  system.pcm = pcm;
  // Room for the parameters, as snd_pcm_hw_params_alloca makes it.
  const size_t paramsSize = Alsa().pcmHwParamsSizeof();
  auto* params = static_cast<snd_pcm_hw_params_t*>(alloca(paramsSize));
  std::memset(params, 0, paramsSize);
  if (Alsa().pcmHwParamsCurrent(pcm, params) == 0) {
    system.canPause = Alsa().pcmHwParamsCanPause(params) != 0;
    unsigned bufferTime = 0;
    int dir = 0;
    if (Alsa().pcmHwParamsGetBufferTime(params, &bufferTime, &dir) == 0 && bufferTime > 0) {
      system.bufferTime = std::chrono::microseconds(bufferTime);
    }
  }
  system.RestartClock();
  return device;
}

AudioDevice::AudioDevice(const AudioFormat& format) : system_(std::make_unique<System>()), format_(format) {}

AudioDevice::~AudioDevice() = default;

bool AudioDevice::Write(const uint8_t* data, size_t frames, std::string* error) {
  const uint32_t frameBytes = format_.BytesPerFrame();
  size_t left = frames;
  while (left > 0) {
    const snd_pcm_sframes_t n = Alsa().pcmWritei(system_->pcm, data, left);
    if (n < 0) {
      // An underrun (-EPIPE) or a suspended device (-ESTRPIPE) is recovered and the
      // write goes on; anything else ends the playback.
      const int rc = Alsa().pcmRecover(system_->pcm, static_cast<int>(n), 1);
      if (rc < 0) {
        if (error != nullptr) *error = Alsa().strerror(rc);
        return false;
      }
      continue;
    }
    data += static_cast<size_t>(n) * frameBytes;
    left -= static_cast<size_t>(n);
    framesWritten_ += static_cast<uint64_t>(n);
    system_->Pace(static_cast<size_t>(n), format_.rate);
  }
  return true;
}

void AudioDevice::SetPaused(bool paused) {
  System& system = *system_;
  if (paused == system.paused) return;
  system.paused = paused;
  if (system.canPause) {
    Alsa().pcmPause(system.pcm, paused ? 1 : 0);
  } else if (paused) {
    Alsa().pcmDrop(system.pcm);
    Alsa().pcmPrepare(system.pcm);
  }
  if (!paused) system.RestartClock();  // the clock starts again from here
}

void AudioDevice::Discard() {
  Alsa().pcmDrop(system_->pcm);
  Alsa().pcmPrepare(system_->pcm);
  system_->RestartClock();
}

void AudioDevice::Drain() {
  if (system_->paused) SetPaused(false);
  Alsa().pcmDrain(system_->pcm);
}

uint64_t AudioDevice::FramesPlayed() const {
  snd_pcm_sframes_t delay = 0;
  if (Alsa().pcmDelay(system_->pcm, &delay) < 0 || delay < 0) delay = 0;
  const uint64_t buffered = static_cast<uint64_t>(delay);
  return framesWritten_ > buffered ? framesWritten_ - buffered : 0;
}

}  // namespace kxhost
