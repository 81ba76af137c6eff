// A host stream of kxhost's own over an open file descriptor, for what the core
// library's file stream cannot open by name: files whose names are not UTF-8 (a
// name is bytes on POSIX; the core stream takes UTF-16 names), and standard input
// or a pipe once it has been copied into a temporary file. It behaves as the core
// file stream does: positions relative to the bounds, reads that reach the end
// return ZS_E_END_OF_DATA with the bytes that arrived, read-only.
#pragma once

#include <cstdint>
#include <string>

#include "host/zstream.h"

namespace kxhost {

class DescriptorStream final : public Class_ZStream {
 public:
  // Takes `fd` (a regular file, read from offset 0) over; `name` is what GetName
  // reports (the module looks at its extension).
  DescriptorStream(int fd, const std::u16string& name);
  ~DescriptorStream() override;

  KxResult Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) override;
  KxResult GetPosition(int64_t* position) override;
  KxResult Seek(int64_t offset, uint32_t origin) override;
  KxResult GetSize(int64_t* size) override;
  KxResult GetName(char16_t* buffer) override;
  KxResult SetBounds(int64_t start, int64_t length) override;
  KxResult Write(const void* buffer, uint32_t bytes, uint32_t* bytesWritten) override;
  KxResult SetEnd() override;
  KxResult SetAccessMode(uint32_t mode) override;
  uint32_t GetOpenMode() override;
  uint32_t GetIdentCode() override;

 private:
  static constexpr uint32_t kBufferBytes = 64 * 1024;
  int64_t Length() const { return bounded_ ? boundLength_ : fileSize_; }
  int64_t End() const { return boundStart_ + Length(); }

  int fd_ = -1;
  std::u16string name_;
  int64_t fileSize_ = 0;
  int64_t pos_ = 0;  // absolute file offset
  bool bounded_ = false;
  int64_t boundStart_ = 0;
  int64_t boundLength_ = 0;
  // Small reads (a frame parser's) are served from here.
  uint8_t buffer_[kBufferBytes];
  int64_t bufferStart_ = 0;
  uint32_t bufferFill_ = 0;
};

}  // namespace kxhost
