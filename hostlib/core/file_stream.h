// Internal to the core library: the file stream (object kind ZSNF) made by the
// object factory. Reads go through a 64 KiB buffer so that the many small reads of a
// frame parser cost a copy, not a system call; positions are 64-bit. The system
// calls are behind file_io.h.
#pragma once

#include <cstdint>
#include <string>

#include "file_io.h"
#include "host/zstream.h"

namespace kxcore {

class FileStream final : public Class_ZStream {
 public:
  static constexpr uint32_t kBufferBytes = 64 * 1024;

  FileStream();
  ~FileStream() override;

  // Opens the file a ZStreamOpenRecord names: mode 1 an existing file, read-only;
  // mode 2 created or truncated, read-write.
  KxResult Create(void* params) override;
  KxResult ResetData() override;
  KxResult QueryInterface(uint32_t fourcc, void** out) override;

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
  void Close();
  int64_t Length() const { return bounded_ ? boundLength_ : fileSize_; }
  int64_t End() const { return boundStart_ + Length(); }  // absolute end of the visible data
  bool Refill();

  NativeFile file_ = kNoFile;
  bool writable_ = false;       // opened read-write (mode 2)
  uint32_t accessMode_ = 0;     // ZS_MODE_READ or ZS_MODE_WRITE
  std::u16string name_;         // the path as given
  int64_t fileSize_ = 0;
  int64_t pos_ = 0;             // absolute file offset
  bool bounded_ = false;
  int64_t boundStart_ = 0;
  int64_t boundLength_ = 0;
  uint8_t* buffer_ = nullptr;   // core memory, kBufferBytes
  int64_t bufferStart_ = 0;     // file offset of buffer_[0]
  uint32_t bufferFill_ = 0;     // valid bytes in buffer_
};

}  // namespace kxcore
