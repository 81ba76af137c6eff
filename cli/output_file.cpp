// Output files and sample sinks (see output_file.h).
#include "output_file.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cli_error.h"
#include "system_library.h"

namespace kxhost {

namespace {

// The libsndfile calls of a WAV file, from the library opened on first use.
struct SndfileCalls {
  decltype(&sf_format_check) formatCheck;
  decltype(&sf_open_fd) openFd;
  decltype(&sf_strerror) strerror;
  decltype(&sf_write_double) writeDouble;
  decltype(&sf_write_short) writeShort;
  decltype(&sf_close) close;
};

const SndfileCalls& Sndfile() {
  return LibraryCalls<SndfileCalls>("libsndfile.so.1", "writing a WAV file", [](const SystemLibrary& library) {
    return SndfileCalls{KX_LIBRARY_FUNCTION(library, sf_format_check), KX_LIBRARY_FUNCTION(library, sf_open_fd),
                        KX_LIBRARY_FUNCTION(library, sf_strerror), KX_LIBRARY_FUNCTION(library, sf_write_double),
                        KX_LIBRARY_FUNCTION(library, sf_write_short), KX_LIBRARY_FUNCTION(library, sf_close)};
  });
}

class WavSink : public SampleSink {
 public:
  WavSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName)
      : sf_(Sndfile()), isDouble_(format.wBitsPerSample == 64), blockAlign_(format.nBlockAlign) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(format.nSamplesPerSec);
    info.channels = format.nChannels;
    info.format = SF_FORMAT_WAV | (isDouble_ ? SF_FORMAT_DOUBLE : SF_FORMAT_PCM_16);
    if (blockAlign_ == 0 || !sf_.formatCheck(&info)) {
      throw CliError("cannot write WAV " + displayName + ": libsndfile refuses this sample format");
    }
    errno = 0;  // libsndfile writes the header here; a system error leaves its reason
    file_ = sf_.openFd(fd, SFM_WRITE, &info, SF_FALSE);
    if (file_ == nullptr) {
      const int error = errno;
      throw CliError("cannot write " + displayName + ": " + (error != 0 ? std::strerror(error) : sf_.strerror(nullptr)));
    }
  }
  ~WavSink() override {
    if (file_ != nullptr) sf_.close(file_);
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
      ok = sf_.writeDouble(file_, samplesDouble_.data(), static_cast<sf_count_t>(samplesDouble_.size())) ==
           static_cast<sf_count_t>(samplesDouble_.size());
    } else {
      samplesShort_.resize(whole / 2);
      std::memcpy(samplesShort_.data(), pending_.data(), whole);
      ok = sf_.writeShort(file_, samplesShort_.data(), static_cast<sf_count_t>(samplesShort_.size())) ==
           static_cast<sf_count_t>(samplesShort_.size());
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(whole));
    if (!ok && errno == 0) errno = EIO;
    return ok;
  }
  bool Close() override {
    const int rc = sf_.close(file_);
    file_ = nullptr;
    return rc == 0;
  }

 private:
  const SndfileCalls& sf_;
  SNDFILE* file_ = nullptr;
  bool isDouble_;
  size_t blockAlign_;
  std::vector<uint8_t> pending_;
  std::vector<double> samplesDouble_;
  std::vector<short> samplesShort_;
};

}  // namespace

OutputKind ClassifyOutput(const std::string& path) {
  if (path == "-") return OutputKind::kStandardOutput;
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return OutputKind::kFile;  // not there yet (or a dangling link)
  if (S_ISDIR(st.st_mode)) return OutputKind::kDirectory;
  if (S_ISREG(st.st_mode)) return OutputKind::kFile;
  return OutputKind::kInPlace;
}

bool IsExistingRegularFile(const std::string& path) {
  struct stat st {};
  return path != "-" && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

OutputTarget::OutputTarget(const std::string& path) : kind_(ClassifyOutput(path)), target_(path), display_(path) {
  if (kind_ == OutputKind::kDirectory) {
    throw CliError(path + " is a folder: -o names a file (use --out-dir DIR for a folder)");
  }
  if (kind_ == OutputKind::kStandardOutput) {
    display_ = "standard output";
    fd_ = STDOUT_FILENO;
    seekable_ = lseek(fd_, 0, SEEK_CUR) >= 0;
    return;
  }
  if (kind_ == OutputKind::kInPlace) {
    // No O_CREAT, no O_TRUNC: a device or FIFO is used as it is. A FIFO waits
    // here for its reader, as any writer of a FIFO does.
    fd_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0) throw CliError("cannot write " + path + ": " + std::strerror(errno));
    seekable_ = lseek(fd_, 0, SEEK_CUR) >= 0;
    return;
  }
  // A symbolic link stays a link: the file it points to is the one replaced.
  struct stat link {};
  if (lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
      throw CliError("cannot write " + path + ": a symbolic link to nothing (" + std::strerror(errno) + ")");
    }
    target_ = resolved;
    std::free(resolved);
  }
  std::string pattern = target_ + ".kxhost-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  fd_ = mkostemp(name.data(), O_CLOEXEC);
  if (fd_ < 0) throw CliError("cannot write " + path + ": " + std::strerror(errno));
  temp_ = name.data();
  seekable_ = true;
  // mkstemp makes the file private; an output file gets the usual permissions.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd_, 0666 & ~mask);
}

OutputTarget::~OutputTarget() {
  if (fd_ >= 0 && fd_ != STDOUT_FILENO) ::close(fd_);
  if (!committed_ && !temp_.empty()) ::unlink(temp_.c_str());
}

void OutputTarget::Commit() {
  if (fd_ >= 0 && kind_ != OutputKind::kStandardOutput) {  // standard output: closed and checked by main
    const int rc = ::close(fd_);
    fd_ = -1;
    if (rc != 0) throw CliError("cannot finish " + display_ + ": " + std::strerror(errno));
  }
  if (!temp_.empty() && std::rename(temp_.c_str(), target_.c_str()) != 0) {
    throw CliError("cannot rename the output to " + target_ + ": " + std::strerror(errno));
  }
  committed_ = true;
}

std::unique_ptr<SampleSink> MakeWavFileSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName) {
  return std::make_unique<WavSink>(fd, format, displayName);
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {};
  struct stat sb {};
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace kxhost

