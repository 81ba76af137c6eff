// An in-memory host stream for tests: the full Class_ZStream contract (bounds, seeks,
// end-of-data reads) over a byte vector, with optional fault injection: fail the
// n-th call of an operation, or cut reads short.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/zstream.h"

namespace kxtest {

class MemoryStream : public Class_ZStream {
 public:
  // Makes a stream holding `data`, named `name` (UTF-16), with one reference.
  static MemoryStream* Make(std::vector<uint8_t> data, std::u16string name = u"memory.mp3");

  KxResult Create(void* params) override;
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

  // Fault injection: the call with this 1-based number (counted over Read, Seek,
  // GetPosition and GetSize together) and every later one fails; 0 = never.
  void FailFromCall(uint64_t callNumber) { failFrom_ = callNumber; }
  // Fail only the call with this number.
  void FailCall(uint64_t callNumber) { failOnly_ = callNumber; }
  // Reads deliver at most this many bytes (0 = unlimited) and report end of data.
  void LimitReads(uint32_t maxBytes) { readLimit_ = maxBytes; }
  uint64_t CallCount() const { return calls_; }
  int64_t RawPosition() const { return pos_; }
  const std::vector<uint8_t>& Data() const { return data_; }

 private:
  MemoryStream() = default;
  bool Fault();
  std::vector<uint8_t> data_;
  std::u16string name_;
  int64_t pos_ = 0;          // absolute position in data_
  int64_t boundStart_ = 0;
  int64_t boundLength_ = -1; // -1: unbounded
  uint64_t calls_ = 0;
  uint64_t failFrom_ = 0;
  uint64_t failOnly_ = 0;
  uint32_t readLimit_ = 0;
};

// Reads a whole file; empty vector when it cannot be read.
std::vector<uint8_t> ReadFile(const std::string& path);
// The shared folder beside the repository (conformance streams); empty when missing.
std::string SharedDir();

}  // namespace kxtest
