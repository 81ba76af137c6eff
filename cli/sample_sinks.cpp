// The sinks that write samples as they come, on any system (see output_file.h):
// raw samples, and a WAV stream header for outputs that cannot seek. A WAV file
// that can seek is each system's own (MakeWavFileSink in output_file.cpp).
#include "output_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace kxhost {

namespace {

class RawSink : public SampleSink {
 public:
  explicit RawSink(int fd) : fd_(fd) {}
  bool Write(const uint8_t* bytes, size_t count) override {
    while (count > 0) {
      // At most 1 GiB a call: Windows' write takes an unsigned int.
      const ssize_t n = ::write(fd_, bytes, std::min<size_t>(count, size_t{1} << 30));
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

// A WAV header for an output that cannot seek back to fill in the lengths: they
// are 0xFFFFFFFF ("unknown"), which players and converters read as "until the end".
class WavStreamSink : public SampleSink {
 public:
  WavStreamSink(int fd, const PCMWAVEFORMAT& format) : raw_(fd) {
    const bool isFloat = format.wBitsPerSample == 64;
    std::vector<uint8_t> h;
    auto put = [&h](uint32_t value, int bytes) {
      for (int i = 0; i < bytes; ++i) h.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    auto tag = [&h](const char* four) { h.insert(h.end(), four, four + 4); };
    tag("RIFF");
    put(0xFFFFFFFFu, 4);
    tag("WAVE");
    tag("fmt ");
    put(isFloat ? 18 : 16, 4);
    put(isFloat ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM, 2);
    put(format.nChannels, 2);
    put(format.nSamplesPerSec, 4);
    put(format.nSamplesPerSec * format.nBlockAlign, 4);
    put(format.nBlockAlign, 2);
    put(format.wBitsPerSample, 2);
    if (isFloat) put(0, 2);  // cbSize
    tag("data");
    put(0xFFFFFFFFu, 4);
    header_ = std::move(h);
  }
  bool Write(const uint8_t* bytes, size_t count) override {
    if (!header_.empty()) {
      if (!raw_.Write(header_.data(), header_.size())) return false;
      header_.clear();
    }
    return raw_.Write(bytes, count);
  }
  bool Close() override {
    if (!header_.empty() && !raw_.Write(header_.data(), header_.size())) return false;
    header_.clear();
    return true;
  }

 private:
  RawSink raw_;
  std::vector<uint8_t> header_;  // written with the first samples
};

}  // namespace

std::unique_ptr<SampleSink> MakeRawSink(int fd) { return std::make_unique<RawSink>(fd); }

std::unique_ptr<SampleSink> MakeWavSink(int fd, bool seekable, const PCMWAVEFORMAT& format,
                                        const std::string& displayName) {
  if (!seekable) return std::make_unique<WavStreamSink>(fd, format);
  return MakeWavFileSink(fd, format, displayName);
}

}  // namespace kxhost
