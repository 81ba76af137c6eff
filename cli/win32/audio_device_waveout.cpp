// The Windows sound output of `kxhost play` (see ../audio_device.h): a waveOut
// device fed through a ring of blocks. Each block is prepared once and queued
// when full; a write that finds the next block still queued waits for the device
// to hand it back (an event set by the device). Where playback stands comes from
// the device's own sample position.
#include "../../platform/win32/windows_api.h"

#include <mmsystem.h>
#include <mmreg.h>

#include <cstring>
#include <cwctype>
#include <memory>
#include <vector>

#include "../audio_device.h"
#include "../cli_error.h"
#include "utf16_path.h"

namespace kxhost {

const char* const kAudioDeviceHelp =
    "the waveOut device to play through: default (the wave mapper), a device number, "
    "or the start of a device's name";

namespace {

constexpr uint32_t kBlocks = 8;          // blocks in the ring
constexpr uint32_t kBlocksPerSecond = 16;  // so that the ring holds half a second

std::string WaveOutMessage(MMRESULT result) {
  wchar_t text[MAXERRORLENGTH] = {};
  if (waveOutGetErrorTextW(result, text, MAXERRORLENGTH) != MMSYSERR_NOERROR) return "error " + std::to_string(result);
  return Utf8Path(text);
}

std::wstring Lower(std::wstring text) {
  for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
  return text;
}

// The device `name` stands for: the wave mapper for "default", a device by its
// number, or the first whose name starts with `name` (letter case aside).
bool FindDevice(const std::string& name, UINT* id) {
  if (name.empty() || name == "default") {
    *id = WAVE_MAPPER;
    return true;
  }
  const UINT count = waveOutGetNumDevs();
  if (name.find_first_not_of("0123456789") == std::string::npos && name.size() <= 9) {
    *id = static_cast<UINT>(std::stoul(name));
    return *id < count;
  }
  const std::wstring wanted = Lower(Utf16Path(name));
  for (UINT i = 0; i < count; ++i) {
    WAVEOUTCAPSW caps{};
    if (waveOutGetDevCapsW(i, &caps, sizeof(caps)) != MMSYSERR_NOERROR) continue;
    if (Lower(caps.szPname).rfind(wanted, 0) == 0) {
      *id = i;
      return true;
    }
  }
  return false;
}

WAVEFORMATEX WaveFormat(const AudioFormat& format, uint16_t bits) {
  WAVEFORMATEX wave{};
  wave.wFormatTag = format.float64 ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
  wave.nChannels = static_cast<WORD>(format.channels);
  wave.nSamplesPerSec = format.rate;
  wave.wBitsPerSample = bits;
  wave.nBlockAlign = static_cast<WORD>(format.channels * bits / 8);
  wave.nAvgBytesPerSec = format.rate * wave.nBlockAlign;
  return wave;
}

}  // namespace

struct AudioDevice::System {
  HWAVEOUT wave = nullptr;
  HANDLE done = nullptr;         // set by the device whenever it hands a block back
  bool single = false;           // 64-bit float samples given to the device as 32-bit
  uint32_t deviceFrameBytes = 0;
  uint32_t blockFrames = 0;
  std::vector<std::vector<uint8_t>> buffers;
  std::vector<WAVEHDR> headers;
  uint32_t current = 0;          // the block being filled
  uint32_t filled = 0;           // frames in it
  bool paused = false;
  uint64_t playedBeforeReset = 0;  // frames counted as played when the device was last reset

  ~System() {
    if (wave != nullptr) {
      waveOutReset(wave);
      for (WAVEHDR& header : headers) waveOutUnprepareHeader(wave, &header, sizeof(header));
      waveOutClose(wave);
    }
    if (done != nullptr) CloseHandle(done);
  }
  bool Queued(uint32_t block) const {
    const WAVEHDR& header = headers[block];
    return (header.dwFlags & WHDR_INQUEUE) != 0 && (header.dwFlags & WHDR_DONE) == 0;
  }
  // Queues the block being filled and moves on to the next.
  MMRESULT QueueCurrent() {
    WAVEHDR& header = headers[current];
    header.dwBufferLength = filled * deviceFrameBytes;
    header.dwFlags &= ~static_cast<DWORD>(WHDR_DONE);
    const MMRESULT result = waveOutWrite(wave, &header, sizeof(header));
    current = (current + 1) % kBlocks;
    filled = 0;
    return result;
  }
  void WaitWhileQueued(uint32_t block) const {
    while (Queued(block)) WaitForSingleObject(done, 100);
  }
};

AudioDevice::AudioDevice(const AudioFormat& format) : system_(std::make_unique<System>()), format_(format) {}

AudioDevice::~AudioDevice() = default;

std::unique_ptr<AudioDevice> AudioDevice::Open(const std::string& name, const AudioFormat& format) {
  UINT id = WAVE_MAPPER;
  if (!FindDevice(name, &id)) throw CliError("cannot open the audio device " + name + ": no such device", kExitUsage);
  std::unique_ptr<AudioDevice> device(new AudioDevice(format));
  System& system = *device->system_;
  system.done = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  if (system.done == nullptr) throw CliError("cannot open the audio device " + name + ": no event", kExitUsage);
  const auto open = [&](uint16_t bits) {
    const WAVEFORMATEX wave = WaveFormat(format, bits);
    system.deviceFrameBytes = wave.nBlockAlign;
    return waveOutOpen(&system.wave, id, &wave, reinterpret_cast<DWORD_PTR>(system.done), 0, CALLBACK_EVENT);
  };
  MMRESULT result = open(format.float64 ? 64 : 16);
  if (result == WAVERR_BADFORMAT && format.float64) {
    // Windows' own mixer takes 32-bit float at most.
    system.single = true;
    result = open(32);
  }
  if (result != MMSYSERR_NOERROR) {
    system.wave = nullptr;
    throw CliError("cannot open the audio device " + name + ": " + WaveOutMessage(result), kExitUsage);
  }
  system.blockFrames = format.rate / kBlocksPerSecond > 0 ? format.rate / kBlocksPerSecond : 1;
  system.buffers.assign(kBlocks, std::vector<uint8_t>(static_cast<size_t>(system.blockFrames) * system.deviceFrameBytes));
  system.headers.assign(kBlocks, WAVEHDR{});
  for (uint32_t i = 0; i < kBlocks; ++i) {
    WAVEHDR& header = system.headers[i];
    header.lpData = reinterpret_cast<LPSTR>(system.buffers[i].data());
    header.dwBufferLength = static_cast<DWORD>(system.buffers[i].size());
    result = waveOutPrepareHeader(system.wave, &header, sizeof(header));
    if (result != MMSYSERR_NOERROR) {
      throw CliError("cannot open the audio device " + name + ": " + WaveOutMessage(result), kExitUsage);
    }
    header.dwFlags |= WHDR_DONE;  // free to fill
  }
  return device;
}

bool AudioDevice::Write(const uint8_t* data, size_t frames, std::string* error) {
  System& system = *system_;
  const uint32_t frameBytes = format_.BytesPerFrame();
  while (frames > 0) {
    if (system.filled == 0) system.WaitWhileQueued(system.current);
    const uint32_t room = system.blockFrames - system.filled;
    const uint32_t take = frames < room ? static_cast<uint32_t>(frames) : room;
    uint8_t* to = system.buffers[system.current].data() + static_cast<size_t>(system.filled) * system.deviceFrameBytes;
    if (system.single) {
      const size_t count = static_cast<size_t>(take) * format_.channels;
      for (size_t i = 0; i < count; ++i) {
        double sample;
        std::memcpy(&sample, data + i * sizeof(double), sizeof(sample));
        const float narrow = static_cast<float>(sample);
        std::memcpy(to + i * sizeof(float), &narrow, sizeof(narrow));
      }
    } else {
      std::memcpy(to, data, static_cast<size_t>(take) * frameBytes);
    }
    data += static_cast<size_t>(take) * frameBytes;
    frames -= take;
    system.filled += take;
    framesWritten_ += take;
    if (system.filled == system.blockFrames) {
      const MMRESULT result = system.QueueCurrent();
      if (result != MMSYSERR_NOERROR) {
        if (error != nullptr) *error = WaveOutMessage(result);
        return false;
      }
    }
  }
  return true;
}

void AudioDevice::SetPaused(bool paused) {
  if (paused == system_->paused) return;
  system_->paused = paused;
  if (paused) {
    waveOutPause(system_->wave);
  } else {
    waveOutRestart(system_->wave);
  }
}

void AudioDevice::Discard() {
  System& system = *system_;
  waveOutReset(system.wave);  // every queued block comes back, and the position restarts at 0
  system.filled = 0;
  system.playedBeforeReset = framesWritten_;
  if (system.paused) {
    // A reset device plays again at once; the pause holds for what comes next.
    waveOutPause(system.wave);
  }
}

void AudioDevice::Drain() {
  System& system = *system_;
  if (system.paused) SetPaused(false);
  if (system.filled > 0) system.QueueCurrent();
  for (uint32_t i = 0; i < kBlocks; ++i) system.WaitWhileQueued(i);
}

uint64_t AudioDevice::FramesPlayed() const {
  MMTIME time{};
  time.wType = TIME_SAMPLES;
  uint64_t position = 0;
  if (waveOutGetPosition(system_->wave, &time, sizeof(time)) == MMSYSERR_NOERROR && time.wType == TIME_SAMPLES) {
    position = time.u.sample;
  }
  const uint64_t played = system_->playedBeforeReset + position;
  return played < framesWritten_ ? played : framesWritten_;
}

}  // namespace kxhost
