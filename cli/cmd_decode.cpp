// kxhost decode FILE -o OUT: decodes FILE through the module to a WAV file (16-bit
// integer, or 64-bit IEEE float with --float), or to raw little-endian samples with
// --format raw (OUT "-" is standard output). A file is written under a temporary
// name beside OUT and renamed when it is complete, so a failed run never leaves a
// partial OUT behind.
#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "decoder_session.h"
#include "text.h"

namespace kxhost {

namespace {

struct DecodeOptions {
  std::string file;
  std::string out;
  std::string format = "wav";
  bool useFloat = false;
  bool noDeemphasis = false;
};

// Where the samples go: a WAV file through libsndfile or raw bytes to a descriptor.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual bool Write(const uint8_t* bytes, size_t count) = 0;
  virtual bool Close() = 0;
};

class RawSink : public Sink {
 public:
  explicit RawSink(int fd) : fd_(fd) {}
  bool Write(const uint8_t* bytes, size_t count) override {
    while (count > 0) {
      const ssize_t n = ::write(fd_, bytes, count);
      if (n <= 0) return false;
      bytes += n;
      count -= static_cast<size_t>(n);
    }
    return true;
  }
  bool Close() override { return fd_ == STDOUT_FILENO || ::close(fd_) == 0; }

 private:
  int fd_;
};

class WavSink : public Sink {
 public:
  WavSink(int fd, const PCMWAVEFORMAT& format) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(format.nSamplesPerSec);
    info.channels = format.nChannels;
    info.format = SF_FORMAT_WAV | (format.wBitsPerSample == 64 ? SF_FORMAT_DOUBLE : SF_FORMAT_PCM_16);
    file_ = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (file_ == nullptr) error_ = sf_strerror(nullptr);
  }
  ~WavSink() override {
    if (file_ != nullptr) sf_close(file_);
  }
  bool Ok() const { return file_ != nullptr; }
  const std::string& Error() const { return error_; }
  // The decoder's bytes are already the file's little-endian samples: no conversion.
  bool Write(const uint8_t* bytes, size_t count) override {
    return sf_write_raw(file_, bytes, static_cast<sf_count_t>(count)) == static_cast<sf_count_t>(count);
  }
  bool Close() override {
    const int rc = sf_close(file_);
    file_ = nullptr;
    return rc == 0;
  }

 private:
  SNDFILE* file_ = nullptr;
  std::string error_;
};

// A temporary file beside `target`, removed unless Commit renamed it.
class TempOutput {
 public:
  explicit TempOutput(const std::string& target) : target_(target) {
    std::string pattern = target + ".kxhost-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    fd_ = mkstemp(name.data());
    if (fd_ < 0) throw CliError("cannot write " + target + ": " + std::strerror(errno));
    path_ = name.data();
    fchmod(fd_, 0644);
  }
  ~TempOutput() {
    if (!committed_) ::unlink(path_.c_str());
  }
  int Fd() const { return fd_; }
  void Commit() {
    if (std::rename(path_.c_str(), target_.c_str()) != 0) {
      throw CliError("cannot rename the output to " + target_ + ": " + std::strerror(errno));
    }
    committed_ = true;
  }

 private:
  std::string target_;
  std::string path_;
  int fd_ = -1;
  bool committed_ = false;
};

int RunDecode(const GlobalOptions& options, const DecodeOptions& opts) {
  const bool raw = opts.format == "raw";
  const bool toStdout = opts.out == "-";
  if (toStdout && !raw) throw CliError("WAV output needs a file name; use --format raw to write to standard output");
  LoadedModule module(FindModule(options.plugin));
  const uint32_t flags = opts.noDeemphasis ? OPEN_FLAG_NO_DEEMPHASIS : 0;
  DecoderSession session(module, opts.file, flags, opts.useFloat ? 64 : 16);
  Class_KXAudioFile* audio = session.Audio();
  PCMWAVEFORMAT format{};
  KxResult rc = audio->GetPCMWaveFormat(&format);
  if (rc != AF_S_OK) throw CliError("the decoder refused its PCM format: " + ResultText(rc));

  std::unique_ptr<TempOutput> temp;
  std::unique_ptr<Sink> sink;
  if (toStdout) {
    sink = std::make_unique<RawSink>(STDOUT_FILENO);
  } else {
    temp = std::make_unique<TempOutput>(opts.out);
    if (raw) {
      sink = std::make_unique<RawSink>(temp->Fd());
    } else {
      auto wav = std::make_unique<WavSink>(temp->Fd(), format);
      if (!wav->Ok()) throw CliError("cannot write WAV " + opts.out + ": " + wav->Error());
      sink = std::move(wav);
    }
  }

  // Requests of a size that is no multiple of a frame, as a player's would be.
  std::vector<uint8_t> buffer(65536 + 4);
  uint64_t total = 0;
  uint32_t concealed = 0;
  for (;;) {
    int32_t written = 0;
    rc = audio->DecodeToPCMData(buffer.data(), static_cast<int32_t>(buffer.size()), &written);
    if (written > 0) {
      if (!sink->Write(buffer.data(), static_cast<size_t>(written))) {
        throw CliError("cannot write " + opts.out + ": " + std::strerror(errno));
      }
      total += static_cast<uint64_t>(written);
    }
    if (rc == AF_S_END_OF_DATA) break;
    if (rc == AF_S_FRAME_ERROR) {
      ++concealed;
    } else if (rc != AF_S_OK) {
      throw CliError("decoding " + opts.file + " failed after " + std::to_string(total) + " bytes: " + ResultText(rc));
    }
  }
  if (!sink->Close()) throw CliError("cannot finish " + opts.out + ": " + std::strerror(errno));
  if (temp) temp->Commit();
  const uint64_t frames = format.nBlockAlign != 0 ? total / format.nBlockAlign : 0;
  std::fprintf(stderr, "%s: %llu sample frames, %u Hz, %u channels, %s%s\n", toStdout ? "(stdout)" : opts.out.c_str(),
               static_cast<unsigned long long>(frames), format.nSamplesPerSec, format.nChannels,
               format.wBitsPerSample == 64 ? "64-bit float" : "16-bit",
               concealed != 0 ? (", " + std::to_string(concealed) + " calls with concealed frames").c_str() : "");
  return 0;
}

}  // namespace

void AddDecodeCommand(CLI::App& app, const GlobalOptions& options, CommandResult& result) {
  CLI::App* sub = app.add_subcommand("decode", "decode FILE to a WAV file (or raw samples)");
  static DecodeOptions opts;  // the parsed arguments, read by the callback
  sub->add_option("FILE", opts.file, "audio file")->required();
  sub->add_option("-o,--output", opts.out, "output file; - for standard output (with --format raw)")->required();
  sub->add_option("--format", opts.format, "wav (default) or raw (s16le / f64le samples)")
      ->check(CLI::IsMember({"wav", "raw"}));
  sub->add_flag("--float", opts.useFloat, "64-bit IEEE float samples instead of 16-bit integers");
  sub->add_flag("--no-deemphasis", opts.noDeemphasis, "never apply de-emphasis");
  sub->callback([&options, &result] { result.exitCode = RunDecode(options, opts); });
}

}  // namespace kxhost
