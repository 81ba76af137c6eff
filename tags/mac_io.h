// CIO: the abstract file I/O the APE tag code works on, and KXMACIO, its
// implementation over a host stream (Class_ZStream). The APE tag code never touches
// the host stream directly; it reads and seeks through a CIO.
#pragma once

#include <cstdint>

#include "../host/zstream.h"

namespace kxmp3 {

// Abstract I/O. Every operation returns 0 for success and -1 for failure, except
// GetPosition and GetSize, which return the value.
class CIO {
 public:
  virtual ~CIO() = default;
  virtual int Open(const char16_t* name) = 0;
  virtual int Close() = 0;
  virtual int Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) = 0;
  virtual int Write(const void* buffer, uint32_t bytes, uint32_t* bytesWritten) = 0;
  // method: 0 from the beginning, 1 from the current position, 2 from the end.
  virtual int Seek(int64_t distance, uint32_t method) = 0;
  virtual int Create(const char16_t* name) = 0;
  virtual int Delete() = 0;
  virtual int SetEOF() = 0;
  virtual int64_t GetPosition() = 0;
  virtual int64_t GetSize() = 0;
  // Copies the name into `buffer` (capacity kNameChars characters).
  virtual int GetName(char16_t* buffer) = 0;

  static constexpr uint32_t kNameChars = 260;
};

// CIO over a host stream. Holds one reference to its stream and the stream's
// open-mode flags. Reads on a stream not open for reading (and writes on one not open
// for writing) switch its access mode for the call. A failing Write, Seek, SetEOF,
// GetPosition, GetSize or GetName is overlooked when the stream is a core stream
// (identification code ZSTM), whose failures there are harmless.
class KXMACIO : public virtual CIO {
 public:
  KXMACIO() = default;
  ~KXMACIO() override;
  KXMACIO(const KXMACIO&) = delete;
  KXMACIO& operator=(const KXMACIO&) = delete;

  // Releases the stream held so far, takes a reference to `stream` (may be null) and
  // fetches its open-mode flags. Returns 0.
  virtual int Attach(Class_ZStream* stream);

  int Open(const char16_t* name) override;
  int Close() override;
  int Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) override;
  int Write(const void* buffer, uint32_t bytes, uint32_t* bytesWritten) override;
  int Seek(int64_t distance, uint32_t method) override;
  int Create(const char16_t* name) override;
  int Delete() override;
  int SetEOF() override;
  int64_t GetPosition() override;
  int64_t GetSize() override;
  int GetName(char16_t* buffer) override;

  Class_ZStream* Stream() const { return stream_; }

 private:
  // Opens a new file stream with the given ZSTM mode (ZS_MODE_READ / ZS_MODE_WRITE).
  int OpenFile(const char16_t* name, uint32_t mode);
  void ReleaseStream();
  // After a failed stream call: 0 when the failure is overlooked, else -1.
  int FailureResult();

  Class_ZStream* stream_ = nullptr;
  uint32_t openMode_ = 0;
};

}  // namespace kxmp3
