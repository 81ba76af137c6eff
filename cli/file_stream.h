// Opening an input as a host stream, the way a player does: an object of kind ZSNF
// from the core library, opened with a ZSTM record naming a UTF-8 path. Inputs that
// have no such path get one in a private temporary folder (removed at exit):
// standard input ("-"), a pipe or a FIFO is copied into a file there, so that the
// module can seek and find tags at the end (bounded; past the bound the input is
// refused with a clear error); a regular file whose name is not UTF-8 (names are
// bytes) gets a symbolic link there. Either keeps the input's extension (".mp3"
// for standard input), which the module looks at.
#pragma once

#include <cstdint>
#include <string>

#include "host/zstream.h"

namespace kxhost {

// One reference to a stream, released on destruction.
class StreamRef {
 public:
  StreamRef() = default;
  explicit StreamRef(Class_ZStream* stream) : stream_(stream) {}
  ~StreamRef() { Reset(); }
  StreamRef(const StreamRef&) = delete;
  StreamRef& operator=(const StreamRef&) = delete;
  Class_ZStream* Get() const { return stream_; }
  // Gives the reference away (to a decoder that takes it over).
  Class_ZStream* Release() {
    Class_ZStream* s = stream_;
    stream_ = nullptr;
    return s;
  }
  void Reset() {
    if (stream_ != nullptr) stream_->Release();
    stream_ = nullptr;
  }

 private:
  Class_ZStream* stream_ = nullptr;
};

// The most bytes taken from standard input or a pipe (default 1 GiB).
constexpr uint64_t kDefaultPipeLimit = uint64_t{1} << 30;
void SetPipeLimit(uint64_t bytes);

// Opens `path` for reading ("-": standard input); throws FileError with the
// stream's code (file not found, permission denied, a directory, a pipe past the
// bound). Opening the same pipe again gives its copy again.
Class_ZStream* OpenFileStream(const std::string& path);

// Removes the temporary folder now (also done at exit, and before a signal ends
// the process).
void RemoveInputCopies();

}  // namespace kxhost
