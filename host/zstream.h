// The host stream interface: a reference-counted byte stream made by the core
// library's object factory (kind ZSNF) or handed to a plug-in by its host.
//
// Positions and sizes are 64-bit. After SetBounds(start, length) the stream shows only
// that window of the underlying data: position 0 is `start`, the size is `length`, and
// seeks outside [0, length] fail. A read that reaches the end of the data returns
// ZS_E_END_OF_DATA (8458) with the count of bytes that did arrive.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kx_export.h"
#include "kx_result_codes.h"
#include "kx_types.h"
#include "zcom.h"

// Seek origins.
constexpr uint32_t ZS_SEEK_SET = 0;
constexpr uint32_t ZS_SEEK_CUR = 1;
constexpr uint32_t ZS_SEEK_END = 2;

// Open-mode flags (GetOpenMode) and access modes (SetAccessMode / ZSTM record mode).
constexpr uint32_t ZS_OPEN_READ = 1;   // bit 0: readable
constexpr uint32_t ZS_OPEN_WRITE = 2;  // bit 1: writable
constexpr uint32_t ZS_MODE_READ = 1;   // open an existing file for reading
constexpr uint32_t ZS_MODE_WRITE = 2;  // create (or truncate) a file for writing

// Length of a stream name buffer, in UTF-16 units (terminator included).
constexpr uint32_t ZS_NAME_CHARS = 1024;

#pragma pack(push, 1)
// Stream-open record handed to a stream's Create.
struct ZStreamOpenRecord {
  uint32_t tag;         // FOURCC_ZSTM
  uint32_t size;        // 44
  uint32_t mode;        // ZS_MODE_READ or ZS_MODE_WRITE
  const void* source;   // for file streams: a zero-terminated UTF-16 path (const char16_t*)
  uint8_t reserved[24]; // zero
};
#pragma pack(pop)
static_assert(sizeof(ZStreamOpenRecord) == 44);
static_assert(offsetof(ZStreamOpenRecord, tag) == 0);
static_assert(offsetof(ZStreamOpenRecord, size) == 4);
static_assert(offsetof(ZStreamOpenRecord, mode) == 8);
static_assert(offsetof(ZStreamOpenRecord, source) == 12);
static_assert(offsetof(ZStreamOpenRecord, reserved) == 20);

class KXCORE_API Class_ZStream : public Class_ZCOM {
 public:
  Class_ZStream();
  ~Class_ZStream() override;

  // FOURCC_ZSTM gives this stream (with a reference); other codes go to Class_ZCOM.
  KxResult QueryInterface(uint32_t fourcc, void** out) override;

  // Reads up to `bytes`; *bytesRead (may be null) gets the count read. 0 when all
  // bytes arrived, ZS_E_END_OF_DATA when the end came first, another code on error.
  virtual KxResult Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) = 0;
  virtual KxResult GetPosition(int64_t* position) = 0;
  // origin: ZS_SEEK_SET, ZS_SEEK_CUR or ZS_SEEK_END.
  virtual KxResult Seek(int64_t offset, uint32_t origin) = 0;
  virtual KxResult GetSize(int64_t* size) = 0;
  // Copies the stream's name (zero-terminated, at most ZS_NAME_CHARS units).
  virtual KxResult GetName(char16_t* buffer) = 0;
  virtual KxResult SetBounds(int64_t start, int64_t length) = 0;
  virtual KxResult Write(const void* buffer, uint32_t bytes, uint32_t* bytesWritten) = 0;
  // Truncates / extends the data at the current position.
  virtual KxResult SetEnd() = 0;
  // Switches the access mode: ZS_MODE_READ or ZS_MODE_WRITE.
  virtual KxResult SetAccessMode(uint32_t mode) = 0;
  // ZS_OPEN_READ | ZS_OPEN_WRITE as currently allowed.
  virtual uint32_t GetOpenMode() = 0;
  // Identification code of the stream implementation (FOURCC_ZSTM for core streams).
  virtual uint32_t GetIdentCode() = 0;
};
