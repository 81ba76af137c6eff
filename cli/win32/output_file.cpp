// Outputs on Windows (see ../output_file.h). What a name is comes from its
// attributes, without opening it (file_kind.h): a regular file (or a name not taken
// yet) is written under a temporary name beside it (CreateFileW) and renamed over it
// with MoveFileExW; a device (NUL, CON, a serial port) or a pipe (\\.\pipe\NAME) is
// opened as it is and written in place.
//
// WAV files are written by kxhost itself, since libsndfile has no Windows build
// among the build machine's packages: the same bytes as libsndfile writes on Linux
// (16-bit: "fmt " and "data"; 64-bit float: "fmt ", "fact", "PEAK" and "data"), the
// PEAK chunk's time stamp aside.
#include "../../platform/win32/windows_api.h"

#include "../output_file.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "../cli_error.h"
#include "file_kind.h"
#include "system_error.h"
#include "utf16_path.h"

namespace kxhost {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool WriteAll(int fd, const uint8_t* bytes, size_t count) {
  while (count > 0) {
    const unsigned piece = static_cast<unsigned>(std::min<size_t>(count, size_t{1} << 30));
    const int n = ::_write(fd, bytes, piece);
    if (n <= 0) return false;
    bytes += n;
    count -= static_cast<size_t>(n);
  }
  return true;
}

void Put16(std::vector<uint8_t>& out, uint32_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}
void Put32(std::vector<uint8_t>& out, uint32_t value) {
  Put16(out, value & 0xFFFF);
  Put16(out, value >> 16);
}
void PutTag(std::vector<uint8_t>& out, const char* tag) { out.insert(out.end(), tag, tag + 4); }

// A WAV file written front to back from where the descriptor stands: the header with
// the sizes of an empty file first, the samples, then the header again with the
// final sizes (and peaks).
class WavFileSink : public SampleSink {
 public:
  WavFileSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName)
      : fd_(fd), format_(format), isDouble_(format.wBitsPerSample == 64), peaks_(format.nChannels) {
    const bool supported = format.nChannels >= 1 && format.nChannels <= 2 && format.nBlockAlign != 0 &&
                           (format.wBitsPerSample == 16 || format.wBitsPerSample == 64);
    if (!supported) throw CliError("cannot write WAV " + displayName + ": unsupported sample format");
    start_ = _lseeki64(fd_, 0, SEEK_CUR);
    if (start_ < 0 || !WriteHeader()) throw CliError("cannot write " + displayName + ": " + std::strerror(errno));
  }

  // Whole sample frames are written as each call completes them; the bytes of a
  // frame cut between two calls wait for the rest.
  bool Write(const uint8_t* bytes, size_t count) override {
    pending_.insert(pending_.end(), bytes, bytes + count);
    const size_t whole = pending_.size() / format_.nBlockAlign * format_.nBlockAlign;
    if (whole == 0) return true;
    if (isDouble_) MeasurePeaks(whole / 8);
    const bool ok = WriteAll(fd_, pending_.data(), whole);
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(whole));
    dataBytes_ += whole;
    return ok;
  }

  bool Close() override {
    if (dataBytes_ % 2 != 0) {  // chunks are padded to an even size
      const uint8_t pad = 0;
      if (!WriteAll(fd_, &pad, 1)) return false;
    }
    return _lseeki64(fd_, start_, SEEK_SET) == start_ && WriteHeader();
  }

 private:
  // The peak of each channel as a float, and the sample frame it belongs to.
  struct Peak {
    float value = 0.0f;
    uint32_t position = 0;
  };

  // The peaks as libsndfile keeps them, one write at a time: in each write, for each
  // channel, the running maximum is held as a float and moves to any later sample
  // whose magnitude exceeds that float (so, where a float rounds the maximum down,
  // to its last occurrence in the write); it replaces the file's peak when it is
  // larger as a float, placed at the frames written before plus its frame in the write.
  void MeasurePeaks(size_t samples) {
    const size_t channels = peaks_.size();
    std::vector<double> values(samples);
    std::memcpy(values.data(), pending_.data(), samples * 8);
    for (size_t channel = 0; channel < channels && channel < samples; ++channel) {
      float maximum = static_cast<float>(std::fabs(values[channel]));
      size_t position = 0;
      for (size_t k = channel; k < samples; k += channels) {
        if (maximum < std::fabs(values[k])) {
          maximum = static_cast<float>(std::fabs(values[k]));
          position = k;
        }
      }
      if (maximum > peaks_[channel].value) {
        peaks_[channel].value = maximum;
        peaks_[channel].position = static_cast<uint32_t>(dataBytes_ / format_.nBlockAlign + position / channels);
      }
    }
  }

  bool WriteHeader() {
    const uint32_t data = static_cast<uint32_t>(dataBytes_);
    std::vector<uint8_t> header;
    PutTag(header, "RIFF");
    Put32(header, 0);  // set below
    PutTag(header, "WAVE");
    PutTag(header, "fmt ");
    Put32(header, 16);
    Put16(header, isDouble_ ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM);
    Put16(header, format_.nChannels);
    Put32(header, format_.nSamplesPerSec);
    Put32(header, format_.nSamplesPerSec * format_.nBlockAlign);
    Put16(header, format_.nBlockAlign);
    Put16(header, format_.wBitsPerSample);
    if (isDouble_) {
      PutTag(header, "fact");
      Put32(header, 4);
      Put32(header, static_cast<uint32_t>(dataBytes_ / format_.nBlockAlign));
      PutTag(header, "PEAK");
      Put32(header, static_cast<uint32_t>(8 + 8 * peaks_.size()));
      Put32(header, 1);  // version
      Put32(header, static_cast<uint32_t>(std::time(nullptr)));
      for (const Peak& peak : peaks_) {
        uint32_t bits;
        std::memcpy(&bits, &peak.value, 4);
        Put32(header, bits);
        Put32(header, peak.position);
      }
    }
    PutTag(header, "data");
    Put32(header, data);
    const uint32_t riff = static_cast<uint32_t>(header.size() - 8 + dataBytes_ + (dataBytes_ % 2));
    std::memcpy(header.data() + 4, &riff, 4);
    return WriteAll(fd_, header.data(), header.size());
  }

  int fd_;
  PCMWAVEFORMAT format_;
  bool isDouble_;
  int64_t start_ = 0;  // where the file begins on the descriptor
  uint64_t dataBytes_ = 0;
  std::vector<Peak> peaks_;
  std::vector<uint8_t> pending_;
};

[[noreturn]] void CannotWrite(const std::string& path, DWORD error) {
  throw CliError("cannot write " + path + ": " + std::strerror(ErrnoOf(error)));
}

// The file a symbolic link leads to (the link's own name when it is none).
std::string LinkDestination(const std::string& path) {
  const FileFacts facts = FactsOf(path);
  if (facts.kind != FileKind::kFile || (facts.attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return path;
  HANDLE handle = CreateFileW(Utf16Path(path).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, 0,
                              nullptr);
  if (handle == INVALID_HANDLE_VALUE) return path;
  std::vector<wchar_t> name(32768);
  const DWORD n = GetFinalPathNameByHandleW(handle, name.data(), static_cast<DWORD>(name.size()), 0);
  CloseHandle(handle);
  return n > 0 && n < name.size() ? Utf8Path(std::wstring(name.data(), n)) : path;
}

// `path` followed by a dot and six random letters or digits.
std::string TemporaryName(const std::string& path) {
  static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::random_device random;
  std::string name = path + ".kxhost-";
  for (int i = 0; i < 6; ++i) name.push_back(kLetters[random() % (sizeof(kLetters) - 1)]);
  return name;
}

// A descriptor on `handle` for writing samples; the handle is closed on failure.
int WritingDescriptor(HANDLE handle, const std::string& path) {
  const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_WRONLY | _O_BINARY);
  if (fd < 0) {
    CloseHandle(handle);
    throw CliError("cannot write " + path + ": " + std::strerror(errno));
  }
  return fd;
}

bool IsSeekable(int fd) {
  const HANDLE handle = reinterpret_cast<HANDLE>(_get_osfhandle(fd));
  return handle != INVALID_HANDLE_VALUE && GetFileType(handle) == FILE_TYPE_DISK;
}

}  // namespace

OutputKind ClassifyOutput(const std::string& path) {
  if (path == "-") return OutputKind::kStandardOutput;
  switch (FactsOf(path).kind) {
    case FileKind::kFolder: return OutputKind::kDirectory;
    case FileKind::kDevice: return OutputKind::kInPlace;
    default: return OutputKind::kFile;  // a file, or not there yet
  }
}

bool IsExistingRegularFile(const std::string& path) { return path != "-" && FactsOf(path).kind == FileKind::kFile; }

OutputTarget::OutputTarget(const std::string& path) : kind_(ClassifyOutput(path)), target_(path), display_(path) {
  if (kind_ == OutputKind::kDirectory) {
    throw CliError(path + " is a folder: -o names a file (use --out-dir DIR for a folder)");
  }
  if (kind_ == OutputKind::kStandardOutput) {
    display_ = "standard output";
    fd_ = 1;
    seekable_ = IsSeekable(fd_);
    return;
  }
  if (kind_ == OutputKind::kInPlace) {
    // Neither created nor truncated: a device or pipe is used as it is.
    HANDLE handle = CreateFileW(Utf16Path(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) CannotWrite(path, GetLastError());
    fd_ = WritingDescriptor(handle, path);
    seekable_ = IsSeekable(fd_);
    return;
  }
  // A symbolic link stays a link: the file it points to is the one replaced.
  target_ = LinkDestination(path);
  for (int attempt = 0; attempt < 100 && fd_ < 0; ++attempt) {
    const std::string name = TemporaryName(target_);
    HANDLE handle = CreateFileW(Utf16Path(name).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
      if (GetLastError() == ERROR_FILE_EXISTS) continue;
      CannotWrite(path, GetLastError());
    }
    fd_ = WritingDescriptor(handle, path);
    temp_ = name;
  }
  if (fd_ < 0) throw CliError("cannot write " + path + ": no free temporary name beside it");
  seekable_ = true;
}

OutputTarget::~OutputTarget() {
  if (fd_ >= 0 && kind_ != OutputKind::kStandardOutput) ::_close(fd_);
  if (!committed_ && !temp_.empty()) DeleteFileW(Utf16Path(temp_).c_str());
}

void OutputTarget::Commit() {
  if (fd_ >= 0 && kind_ != OutputKind::kStandardOutput) {  // standard output: closed and checked by main
    const int rc = ::_close(fd_);
    fd_ = -1;
    if (rc != 0) throw CliError("cannot finish " + display_ + ": " + std::strerror(errno));
  }
  if (!temp_.empty() &&
      !MoveFileExW(Utf16Path(temp_).c_str(), Utf16Path(target_).c_str(), MOVEFILE_REPLACE_EXISTING)) {
    throw CliError("cannot rename the output to " + target_ + ": " + std::strerror(ErrnoOf(GetLastError())));
  }
  committed_ = true;
}

std::unique_ptr<SampleSink> MakeWavFileSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName) {
  return std::make_unique<WavFileSink>(fd, format, displayName);
}

bool SameFile(const std::string& a, const std::string& b) {
  const unsigned long long identity = FileIdentity(a);
  return identity != 0 && identity == FileIdentity(b);
}

}  // namespace kxhost
