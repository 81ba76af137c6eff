// Output files and sample sinks on Windows (see ../output_file.h). The temporary file
// is made with CreateFileW beside the target and renamed over it with MoveFileExW.
// WAV files are written by kxhost itself, since libsndfile has no Windows build among
// the build machine's packages: the same header layout as libsndfile writes on Linux
// (16-bit: "fmt " and "data"; 64-bit float: "fmt ", "fact", "PEAK" and "data"), so
// that both builds write the same bytes (the PEAK chunk's time stamp aside).
#include "../../platform/win32/windows_api.h"

#include "../output_file.h"

#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "../cli_error.h"
#include "utf16_path.h"

namespace kxhost {

namespace {

bool WriteAll(int fd, const uint8_t* bytes, size_t count) {
  while (count > 0) {
    const unsigned piece = static_cast<unsigned>(std::min<size_t>(count, 1u << 30));
    const int n = ::_write(fd, bytes, piece);
    if (n <= 0) return false;
    bytes += n;
    count -= static_cast<size_t>(n);
  }
  return true;
}

// Standard output carries samples, not text: no line-end translation.
void MakeBinary(int fd) {
  if (fd == 1) _setmode(fd, _O_BINARY);
}

class RawSink : public SampleSink {
 public:
  explicit RawSink(int fd) : fd_(fd) { MakeBinary(fd); }
  bool Write(const uint8_t* bytes, size_t count) override { return WriteAll(fd_, bytes, count); }
  // The descriptor belongs to the caller (a temporary file or standard output).
  bool Close() override { return true; }

 private:
  int fd_;
};

void Put16(std::vector<uint8_t>& out, uint32_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}
void Put32(std::vector<uint8_t>& out, uint32_t value) {
  Put16(out, value & 0xFFFF);
  Put16(out, value >> 16);
}
void PutTag(std::vector<uint8_t>& out, const char* tag) { out.insert(out.end(), tag, tag + 4); }

// A WAV file written front to back: the header with the sizes of an empty file first,
// the samples, then the header again with the final sizes (and peaks).
class WavSink : public SampleSink {
 public:
  WavSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName)
      : fd_(fd), format_(format), isDouble_(format.wBitsPerSample == 64), peaks_(format.nChannels) {
    const bool supported = format.nChannels >= 1 && format.nChannels <= 2 && format.nBlockAlign != 0 &&
                           (format.wBitsPerSample == 16 || format.wBitsPerSample == 64);
    if (!supported) throw CliError("cannot write WAV " + displayName + ": unsupported sample format");
    if (!WriteHeader()) throw CliError("cannot write WAV " + displayName + ": " + std::strerror(errno));
  }

  bool Write(const uint8_t* bytes, size_t count) override {
    if (isDouble_) Measure(bytes, count);
    dataBytes_ += count;
    return WriteAll(fd_, bytes, count);
  }

  bool Close() override {
    if (dataBytes_ % 2 != 0) {  // chunks are padded to an even size
      const uint8_t pad = 0;
      if (!WriteAll(fd_, &pad, 1)) return false;
    }
    return _lseeki64(fd_, 0, SEEK_SET) == 0 && WriteHeader();
  }

 private:
  // The peak of each channel and the sample frame where it is first reached.
  struct Peak {
    double value = 0.0;
    uint32_t position = 0;
  };

  // Samples may arrive cut anywhere; whole ones are measured as they complete.
  void Measure(const uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      partial_[partialBytes_++] = bytes[i];
      if (partialBytes_ < 8) continue;
      partialBytes_ = 0;
      double sample;
      std::memcpy(&sample, partial_, 8);
      Peak& peak = peaks_[channel_];
      if (std::fabs(sample) > peak.value) {
        peak.value = std::fabs(sample);
        peak.position = static_cast<uint32_t>(frame_);
      }
      if (++channel_ == peaks_.size()) {
        channel_ = 0;
        ++frame_;
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
        const float value = static_cast<float>(peak.value);
        uint32_t bits;
        std::memcpy(&bits, &value, 4);
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
  uint64_t dataBytes_ = 0;
  std::vector<Peak> peaks_;
  uint8_t partial_[8] = {};
  size_t partialBytes_ = 0;
  size_t channel_ = 0;
  uint64_t frame_ = 0;
};

bool FileIdentity(const std::string& path, BY_HANDLE_FILE_INFORMATION* info) {
  HANDLE handle = CreateFileW(Utf16Path(path).c_str(), FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool ok = GetFileInformationByHandle(handle, info) != 0;
  CloseHandle(handle);
  return ok;
}

std::string SystemReason() {
  switch (GetLastError()) {
    case ERROR_PATH_NOT_FOUND: return std::strerror(ENOENT);
    case ERROR_ACCESS_DENIED: return std::strerror(EACCES);
    case ERROR_DISK_FULL: return std::strerror(ENOSPC);
    default: return "error " + std::to_string(GetLastError());
  }
}

}  // namespace

TempOutput::TempOutput(const std::string& target) : target_(target) {
  std::random_device random;
  static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  for (int attempt = 0; attempt < 100 && fd_ < 0; ++attempt) {
    std::string name = target + ".kxhost-";
    for (int i = 0; i < 6; ++i) name.push_back(kLetters[random() % (sizeof(kLetters) - 1)]);
    HANDLE handle = CreateFileW(Utf16Path(name).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
      if (GetLastError() == ERROR_FILE_EXISTS) continue;
      throw CliError("cannot write " + target + ": " + SystemReason());
    }
    fd_ = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_BINARY);
    if (fd_ < 0) {
      CloseHandle(handle);
      throw CliError("cannot write " + target + ": " + std::strerror(errno));
    }
    path_ = name;
  }
  if (fd_ < 0) throw CliError("cannot write " + target + ": no free temporary name");
}

TempOutput::~TempOutput() {
  if (fd_ >= 0) ::_close(fd_);
  if (!committed_) DeleteFileW(Utf16Path(path_).c_str());
}

void TempOutput::Commit() {
  if (fd_ >= 0) {
    const int rc = ::_close(fd_);
    fd_ = -1;
    if (rc != 0) throw CliError("cannot finish " + target_ + ": " + std::strerror(errno));
  }
  if (!MoveFileExW(Utf16Path(path_).c_str(), Utf16Path(target_).c_str(), MOVEFILE_REPLACE_EXISTING)) {
    throw CliError("cannot rename the output to " + target_ + ": " + SystemReason());
  }
  committed_ = true;
}

std::unique_ptr<SampleSink> MakeRawSink(int fd) { return std::make_unique<RawSink>(fd); }

std::unique_ptr<SampleSink> MakeWavSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName) {
  return std::make_unique<WavSink>(fd, format, displayName);
}

bool SameFile(const std::string& a, const std::string& b) {
  BY_HANDLE_FILE_INFORMATION ia{};
  BY_HANDLE_FILE_INFORMATION ib{};
  return FileIdentity(a, &ia) && FileIdentity(b, &ib) && ia.dwVolumeSerialNumber == ib.dwVolumeSerialNumber &&
         ia.nFileIndexHigh == ib.nFileIndexHigh && ia.nFileIndexLow == ib.nFileIndexLow;
}

}  // namespace kxhost
