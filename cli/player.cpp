// Gapless playback with ReplayGain, keys and a status line (see player.h).
#include "player.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

#include "audio_device.h"
#include "cli_error.h"
#include "decoder_session.h"
#include "file_report.h"
#include "interrupt.h"
#include "path_names.h"
#include "progress.h"
#include "terminal.h"

namespace kxhost {

namespace {

constexpr uint32_t kChunkFrames = 4096;        // sample frames pulled from the decoder at a time
constexpr double kSeekShortSeconds = 10;
constexpr double kSeekLongSeconds = 60;
constexpr auto kStatusInterval = std::chrono::milliseconds(100);

// One file, opened for playing.
struct Track {
  std::string path;
  std::string title;                 // "artist – title", or the file name
  std::unique_ptr<DecoderSession> session;
  PCMWAVEFORMAT format{};            // what the decoder delivers
  AudioFormat output;                // what the device gets
  AppliedGain gain;
  uint64_t totalFrames = 0;          // sample frames per the information record
};

// Opens `path` for playing: its tags and ReplayGain values first (for the title and
// the factor), then the decoder in the sample format the factor asks for. Throws
// FileError.
std::unique_ptr<Track> OpenTrack(const LoadedModule& module, const std::string& path, const PlaySettings& settings) {
  const FileReport report = ReadFileReport(module, path);
  if (report.failed) throw FileError(path, report.errorReason, report.errorCode);
  auto track = std::make_unique<Track>();
  track->path = path;
  const std::string artist = report.tags ? (*report.tags)[kxmp3::kCommentArtist] : std::string();
  const std::string title = report.tags ? (*report.tags)[kxmp3::kCommentTitle] : std::string();
  if (!title.empty()) {
    track->title = artist.empty() ? title : artist + " \u2013 " + title;
  } else {
    track->title = BaseName(path);
  }
  track->gain = ComputeGain(report.replayGain, settings.gain);
  // Unscaled samples come from the decoder as they are; scaled ones are computed
  // from its 64-bit float output and rounded here.
  const bool scaled = track->gain.factor != 1.0;
  const uint32_t bits = settings.useFloat || scaled ? 64 : 16;
  const uint32_t flags = settings.noDeemphasis ? OPEN_FLAG_NO_DEEMPHASIS : 0;
  track->session = std::make_unique<DecoderSession>(module, path, flags, bits);
  if (track->session->Audio()->GetPCMWaveFormat(&track->format) != AF_S_OK || track->format.nBlockAlign == 0) {
    throw FileError(path, "the decoder gave no sample format", AF_E_FAIL);
  }
  track->output.rate = track->format.nSamplesPerSec;
  track->output.channels = track->format.nChannels;
  track->output.float64 = settings.useFloat;
  track->totalFrames = TotalSamples(report.info);
  return track;
}

class Player {
 public:
  Player(const LoadedModule& module, const std::vector<std::string>& files, const PlaySettings& settings)
      : module_(module), files_(files), settings_(settings), keys_(settings.keys),
        statusLine_(!settings.quiet && StderrIsTerminal()) {}

  PlaySummary Run();

 private:
  enum class Next { kFollowing, kPrevious, kQuit };

  // Opens file `index`, reporting and skipping it when it fails; null past the end.
  std::unique_ptr<Track> OpenFrom(size_t* index);
  // Plays one track to its end or until a key or Ctrl-C ends it.
  Next PlayTrack(Track& track);
  // Handles one key; returns true when the track ends here.
  bool HandleKey(Key key, Track& track, Next* next);
  void SeekBy(Track& track, double seconds, Next* next, bool* ended);
  void EnsureDevice(const AudioFormat& format);
  double HeardSeconds(const Track& track) const;
  void ShowStatus(const Track& track, bool force);
  void ClearStatus();
  void Report(const std::string& line);

  const LoadedModule& module_;
  const std::vector<std::string>& files_;
  const PlaySettings& settings_;
  KeyReader keys_;
  bool statusLine_;
  std::unique_ptr<AudioDevice> device_;
  uint64_t trackStartFrames_ = 0;   // device frames written before the track's first frame (or its seek)
  uint64_t trackOffsetFrames_ = 0;  // the track's frame those device frames start at (after a seek)
  bool paused_ = false;
  bool statusShown_ = false;
  std::chrono::steady_clock::time_point lastStatus_{};
  PlaySummary summary_;
};

void Player::Report(const std::string& line) {
  ClearStatus();
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
}

void Player::ClearStatus() {
  if (statusShown_) {
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    statusShown_ = false;
  }
}

std::unique_ptr<Track> Player::OpenFrom(size_t* index) {
  while (*index < files_.size()) {
    const std::string& path = files_[*index];
    try {
      return OpenTrack(module_, path, settings_);
    } catch (const FileError& e) {
      Report("kxhost: " + e.File() + ": " + e.Reason() + " (" + ResultText(e.Code()) + "), skipped");
      ++summary_.failed;
      ++*index;
    }
  }
  return nullptr;
}

void Player::EnsureDevice(const AudioFormat& format) {
  if (device_ != nullptr && device_->Format() == format) return;
  if (device_ != nullptr) {
    device_->Drain();
    device_.reset();
  }
  device_ = AudioDevice::Open(settings_.device, format);
}

double Player::HeardSeconds(const Track& track) const {
  if (device_ == nullptr || track.output.rate == 0) return 0;
  const uint64_t played = device_->FramesPlayed();
  const uint64_t inTrack = played > trackStartFrames_ ? played - trackStartFrames_ : 0;
  return static_cast<double>(trackOffsetFrames_ + inTrack) / track.output.rate;
}

void Player::ShowStatus(const Track& track, bool force) {
  if (!statusLine_) return;
  const auto now = std::chrono::steady_clock::now();
  if (!force && now - lastStatus_ < kStatusInterval) return;
  lastStatus_ = now;
  const double total = track.output.rate != 0 ? static_cast<double>(track.totalFrames) / track.output.rate : 0;
  const double here = std::min(HeardSeconds(track), total > 0 ? total : HeardSeconds(track));
  constexpr int kBar = 24;
  const int filled = total > 0 ? static_cast<int>(here / total * kBar + 0.5) : 0;
  std::string bar(static_cast<size_t>(kBar), '-');
  for (int i = 0; i < filled && i < kBar; ++i) bar[static_cast<size_t>(i)] = '#';
  std::string line = (paused_ ? "|| " : "> ") + track.title + "  " + ClockText(here) + " / " + ClockText(total) +
                     " [" + bar + "]";
  std::fprintf(stderr, "\r\x1b[K%s", line.c_str());
  std::fflush(stderr);
  statusShown_ = true;
}

void Player::SeekBy(Track& track, double seconds, Next* next, bool* ended) {
  Class_KXAudioFile* audio = track.session->Audio();
  const uint32_t block = track.format.nBlockAlign;
  const double here = HeardSeconds(track);
  double target = here + seconds;
  if (target < 0) target = 0;
  const uint64_t targetFrames = static_cast<uint64_t>(target * track.output.rate);
  if (track.totalFrames != 0 && targetFrames >= track.totalFrames) {
    // Past the end: on to the next file.
    device_->Discard();
    *next = Next::kFollowing;
    *ended = true;
    return;
  }
  QWUNION position{};
  position.u = targetFrames * block;
  if (audio->SetCurrentPosition(position, AF_ORIGIN_START) != AF_S_OK) return;  // stays where it was
  device_->Discard();
  trackStartFrames_ = device_->FramesWritten();
  trackOffsetFrames_ = targetFrames;
}

bool Player::HandleKey(Key key, Track& track, Next* next) {
  bool ended = false;
  switch (key) {
    case Key::kPause:
      paused_ = !paused_;
      device_->SetPaused(paused_);
      break;
    case Key::kForward: SeekBy(track, kSeekShortSeconds, next, &ended); break;
    case Key::kBack: SeekBy(track, -kSeekShortSeconds, next, &ended); break;
    case Key::kForwardLong: SeekBy(track, kSeekLongSeconds, next, &ended); break;
    case Key::kBackLong: SeekBy(track, -kSeekLongSeconds, next, &ended); break;
    case Key::kNext:
      device_->Discard();
      *next = Next::kFollowing;
      ended = true;
      break;
    case Key::kPrevious:
      device_->Discard();
      *next = Next::kPrevious;
      ended = true;
      break;
    case Key::kQuit:
      device_->Discard();
      *next = Next::kQuit;
      ended = true;
      break;
    default:
      break;
  }
  if (paused_ && ended) {
    paused_ = false;
    device_->SetPaused(false);
  }
  return ended;
}

Player::Next Player::PlayTrack(Track& track) {
  EnsureDevice(track.output);
  if (!settings_.quiet && !statusLine_) {
    const double total = track.output.rate != 0 ? static_cast<double>(track.totalFrames) / track.output.rate : 0;
    Report("playing: " + track.title + " (" + ClockText(total) + ")");
  }
  // What the device was given before (the previous tracks) plays first.
  trackStartFrames_ = device_->FramesWritten();
  trackOffsetFrames_ = 0;
  const uint32_t block = track.format.nBlockAlign;
  const uint32_t outBlock = track.output.BytesPerFrame();
  std::vector<uint8_t> in(static_cast<size_t>(kChunkFrames) * block);
  std::vector<uint8_t> out(static_cast<size_t>(kChunkFrames) * outBlock);
  Class_KXAudioFile* audio = track.session->Audio();
  const bool scaled = track.gain.factor != 1.0;
  Next next = Next::kFollowing;
  for (;;) {
    if (Interrupted()) {
      device_->Discard();
      ClearStatus();
      RestoreTerminal();
      throw Interruption();
    }
    const Key key = keys_.Poll();
    if (key != Key::kNone && HandleKey(key, track, &next)) return next;
    if (paused_) {
      ShowStatus(track, false);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      continue;
    }
    int32_t written = 0;
    const KxResult rc = audio->DecodeToPCMData(in.data(), static_cast<int32_t>(in.size()), &written);
    const size_t frames = written > 0 ? static_cast<size_t>(written) / block : 0;
    if (frames > 0) {
      const uint8_t* data = in.data();
      if (scaled) {
        const auto* samples = reinterpret_cast<const double*>(in.data());
        const size_t count = frames * track.format.nChannels;
        if (settings_.useFloat) {
          ScaleFloat(reinterpret_cast<double*>(in.data()), count, track.gain.factor);
        } else {
          ScaleTo16(samples, count, track.gain.factor, reinterpret_cast<int16_t*>(out.data()));
          data = out.data();
        }
      }
      std::string error;
      if (!device_->Write(data, frames, &error)) {
        ClearStatus();
        throw CliError("the audio device " + settings_.device + " failed: " + error, kExitUsage);
      }
    }
    ShowStatus(track, false);
    if (rc == AF_S_END_OF_DATA) return Next::kFollowing;
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR) {
      Report("kxhost: " + track.path + ": decoding failed at " + ClockText(HeardSeconds(track)) + ": " +
             ResultReason(rc) + " (" + ResultText(rc) + "), skipped");
      ++summary_.failed;
      return Next::kFollowing;
    }
  }
}

PlaySummary Player::Run() {
  size_t index = 0;
  std::unique_ptr<Track> current = OpenFrom(&index);
  while (current != nullptr) {
    // The next file is opened ahead, so that the join never waits for it.
    size_t nextIndex = index + 1;
    std::unique_ptr<Track> following = OpenFrom(&nextIndex);
    const Next next = PlayTrack(*current);
    ++summary_.played;
    if (next == Next::kQuit) {
      summary_.quit = true;
      break;
    }
    if (next == Next::kPrevious) {
      size_t previous = index > 0 ? index - 1 : 0;
      current = OpenFrom(&previous);
      index = previous;
      continue;
    }
    current = std::move(following);
    index = nextIndex;
  }
  ClearStatus();
  if (device_ != nullptr && !summary_.quit) device_->Drain();
  device_.reset();
  return summary_;
}

}  // namespace

PlaySummary PlayFiles(const LoadedModule& module, const std::vector<std::string>& files, const PlaySettings& settings) {
  Player player(module, files, settings);
  return player.Run();
}

}  // namespace kxhost
