// Output files and sample sinks (see output_file.h).
#include "output_file.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cli_error.h"

namespace kxhost {

namespace {

class RawSink : public SampleSink {
 public:
  explicit RawSink(int fd) : fd_(fd) {}
  bool Write(const uint8_t* bytes, size_t count) override {
    while (count > 0) {
      const ssize_t n = ::write(fd_, bytes, count);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      bytes += n;
      count -= static_cast<size_t>(n);
    }
    return true;
  }
  // The descriptor belongs to the caller (a temporary file or standard output).
  bool Close() override { return true; }

 private:
  int fd_;
};

class WavSink : public SampleSink {
 public:
  WavSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName)
      : isDouble_(format.wBitsPerSample == 64), blockAlign_(format.nBlockAlign) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(format.nSamplesPerSec);
    info.channels = format.nChannels;
    info.format = SF_FORMAT_WAV | (isDouble_ ? SF_FORMAT_DOUBLE : SF_FORMAT_PCM_16);
    if (blockAlign_ == 0 || !sf_format_check(&info)) {
      throw CliError("cannot write WAV " + displayName + ": libsndfile refuses this sample format");
    }
    file_ = sf_open_fd(fd, SFM_WRITE, &info, SF_FALSE);
    if (file_ == nullptr) throw CliError("cannot write WAV " + displayName + ": " + sf_strerror(nullptr));
  }
  ~WavSink() override {
    if (file_ != nullptr) sf_close(file_);
  }
  // The decoder's bytes are native samples; libsndfile takes whole sample frames,
  // so a frame cut between two reads waits in `pending_` for its other bytes.
  bool Write(const uint8_t* bytes, size_t count) override {
    pending_.insert(pending_.end(), bytes, bytes + count);
    const size_t whole = pending_.size() / blockAlign_ * blockAlign_;
    if (whole == 0) return true;
    errno = 0;  // a failed write leaves the system's reason here, if it has one
    bool ok;
    if (isDouble_) {
      samplesDouble_.resize(whole / 8);
      std::memcpy(samplesDouble_.data(), pending_.data(), whole);
      ok = sf_write_double(file_, samplesDouble_.data(), static_cast<sf_count_t>(samplesDouble_.size())) ==
           static_cast<sf_count_t>(samplesDouble_.size());
    } else {
      samplesShort_.resize(whole / 2);
      std::memcpy(samplesShort_.data(), pending_.data(), whole);
      ok = sf_write_short(file_, samplesShort_.data(), static_cast<sf_count_t>(samplesShort_.size())) ==
           static_cast<sf_count_t>(samplesShort_.size());
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(whole));
    if (!ok && errno == 0) errno = EIO;
    return ok;
  }
  bool Close() override {
    const int rc = sf_close(file_);
    file_ = nullptr;
    return rc == 0;
  }

 private:
  SNDFILE* file_ = nullptr;
  bool isDouble_;
  size_t blockAlign_;
  std::vector<uint8_t> pending_;
  std::vector<double> samplesDouble_;
  std::vector<short> samplesShort_;
};

}  // namespace

TempOutput::TempOutput(const std::string& target) : target_(target) {
  std::string pattern = target + ".kxhost-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  fd_ = mkostemp(name.data(), O_CLOEXEC);
  if (fd_ < 0) throw CliError("cannot write " + target + ": " + std::strerror(errno));
  path_ = name.data();
  // mkstemp makes the file private; an output file gets the usual permissions.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd_, 0666 & ~mask);
}

TempOutput::~TempOutput() {
  if (fd_ >= 0) ::close(fd_);
  if (!committed_) ::unlink(path_.c_str());
}

void TempOutput::Commit() {
  if (fd_ >= 0) {
    const int rc = ::close(fd_);
    fd_ = -1;
    if (rc != 0) throw CliError("cannot finish " + target_ + ": " + std::strerror(errno));
  }
  if (std::rename(path_.c_str(), target_.c_str()) != 0) {
    throw CliError("cannot rename the output to " + target_ + ": " + std::strerror(errno));
  }
  committed_ = true;
}

std::unique_ptr<SampleSink> MakeRawSink(int fd) { return std::make_unique<RawSink>(fd); }

std::unique_ptr<SampleSink> MakeWavSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName) {
  return std::make_unique<WavSink>(fd, format, displayName);
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {};
  struct stat sb {};
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace kxhost

