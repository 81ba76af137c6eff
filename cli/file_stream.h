// Opening a file as a host stream the way a player does: an object of kind ZSNF from
// the core library, opened with a ZSTM record naming the path.
#pragma once

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

// Opens `path` for reading; throws FileError with the stream's code (file not found,
// permission denied, a directory).
Class_ZStream* OpenFileStream(const std::string& path);

}  // namespace kxhost
