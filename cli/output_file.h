// Where decoded samples go. What an output path names decides how it is written:
// - a regular file (or a name not taken yet) is written under a temporary name
//   beside it and renamed over it only when complete, so that a failed or
//   interrupted run never leaves a partial file under the requested name (a
//   symbolic link to a file: the file it points to is the one replaced);
// - anything else (a device such as /dev/null, a FIFO, a terminal, a socket, and
//   standard output) is opened and written in place, never removed or replaced.
// WAV goes through libsndfile where the output can seek (on Windows through
// kxhost's own writer of the same bytes); to a pipe, FIFO or terminal a WAV stream
// header (lengths "unknown", 0xFFFFFFFF) is written instead. Raw samples go
// straight to the descriptor. What a path names and how it is opened is each
// system's own: output_file.cpp (POSIX) and win32/output_file.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/kxaudiofile.h"

namespace kxhost {

enum class OutputKind {
  kFile,            // a regular file, or nothing yet: temporary name, then rename
  kInPlace,         // a device, FIFO, terminal or socket: written where it is
  kStandardOutput,  // "-"
  kDirectory,       // refused
};

// What `path` names now ("-": standard output). A dangling symbolic link is a
// file to be made where the link points.
OutputKind ClassifyOutput(const std::string& path);

// Whether `path` names an existing regular file (through links); never "-".
bool IsExistingRegularFile(const std::string& path);

// One output being written: its descriptor while open, and what becomes of it.
class OutputTarget {
 public:
  // Opens the output for `path` (see OutputKind); throws CliError when it cannot.
  explicit OutputTarget(const std::string& path);
  ~OutputTarget();  // an output not committed: its temporary file is removed
  OutputTarget(const OutputTarget&) = delete;
  OutputTarget& operator=(const OutputTarget&) = delete;

  int Fd() const { return fd_; }
  // Whether the descriptor can seek (libsndfile needs it for a WAV header).
  bool Seekable() const { return seekable_; }
  // "standard output" or the path.
  const std::string& DisplayName() const { return display_; }
  // Closes the descriptor (standard output: checks its close) and, for a regular
  // file, renames the temporary file to its name. Throws CliError.
  void Commit();

 private:
  OutputKind kind_;
  std::string target_;  // where the rename goes (a link's destination)
  std::string temp_;    // the temporary file (regular outputs)
  std::string display_;
  int fd_ = -1;
  bool seekable_ = false;
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

// Raw samples to `fd` (the descriptor stays the caller's).
std::unique_ptr<SampleSink> MakeRawSink(int fd);
// A WAV file on `fd` for `format` (16-bit integer or 64-bit float): through
// libsndfile when `seekable`, else as a stream with unknown lengths. Throws
// CliError naming `displayName` when libsndfile refuses.
std::unique_ptr<SampleSink> MakeWavSink(int fd, bool seekable, const PCMWAVEFORMAT& format,
                                        const std::string& displayName);

// A WAV file on the seekable `fd`, its header completed at Close: libsndfile on
// Linux, kxhost's own writer of the same bytes on Windows (each system's
// output_file.cpp). Throws CliError naming `displayName`.
std::unique_ptr<SampleSink> MakeWavFileSink(int fd, const PCMWAVEFORMAT& format, const std::string& displayName);

// Whether `a` and `b` name the same existing file (same device and inode).
bool SameFile(const std::string& a, const std::string& b);

}  // namespace kxhost
