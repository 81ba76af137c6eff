// Opening an input as a host stream. A regular file whose name is UTF-8 is opened
// the way a player does: an object of kind ZSNF from the core library, opened with
// a ZSTM record naming the path. Anything else gets a stream of kxhost's own over a
// descriptor: a regular file whose name is not UTF-8 (names are bytes), and
// standard input ("-"), a pipe or a FIFO, which are first copied into a temporary
// file (removed at exit) so that the module can seek and find tags at the end.
// That copy is bounded; an input past the bound is refused with a clear error.
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

}  // namespace kxhost
