// Where decoded samples go. A file is written under a temporary name beside the
// requested one and renamed over it only when complete, so a failed or interrupted
// run never leaves a partial file under the requested name. WAV files are written
// by libsndfile; raw samples go straight to a descriptor (a file or standard output).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/kxaudiofile.h"

namespace kxhost {

// A temporary file beside `target` ("TARGET.kxhost-XXXXXX"), removed on destruction
// unless Commit renamed it to `target`. Throws CliError when it cannot be made.
class TempOutput {
 public:
  explicit TempOutput(const std::string& target);
  ~TempOutput();
  TempOutput(const TempOutput&) = delete;
  TempOutput& operator=(const TempOutput&) = delete;
  int Fd() const { return fd_; }
  const std::string& Target() const { return target_; }
  // Closes the descriptor (if still open) and renames the file to the target.
  void Commit();

 private:
  std::string target_;
  std::string path_;
  int fd_ = -1;
  bool committed_ = false;
};

class SampleSink {
 public:
  virtual ~SampleSink() = default;
  // Writes bytes of interleaved little-endian samples; false on failure (errno set).
  virtual bool Write(const uint8_t* bytes, size_t count) = 0;
  // Finishes the output (WAV: writes the final header); false on failure.
  virtual bool Close() = 0;
};

// Raw samples to `fd` (standard output is never closed).
std::unique_ptr<SampleSink> MakeRawSink(int fd);
// A WAV file on `fd` for `format` (16-bit integer or 64-bit float); throws CliError
// naming `displayName` when libsndfile refuses.
std::unique_ptr<SampleSink> MakeWavSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName);

// Whether `a` and `b` name the same existing file (same device and inode).
bool SameFile(const std::string& a, const std::string& b);

}  // namespace kxhost
