// The checks the fuzz target bodies share: reporting a broken promise, named result
// codes, well-formed records, streams that hold the input with the caller's extra
// reference counted, core memory given back, and a small hash that picks the
// variants (output format, open flags, code page, request sizes) of one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/kx_result_codes.h"
#include "host/kx_comment_record.h"
#include "host/kx_mp3_info.h"
#include "host/kx_replaygain_record.h"
#include "support/memory_stream.h"

namespace kxfuzz {

// Reports a broken promise (printf-style message) to the violation handler.
[[gnu::format(printf, 1, 2)]] void Violation(const char* format, ...);

// Reports `what` when `condition` is false.
inline void Require(bool condition, const char* what) {
  if (!condition) Violation("%s", what);
}

// Every code the module hands out must be one of the named result codes.
void RequireNamedCode(KxResult code, const char* where);

// A comment record: FourCC ZAFC, size 64 + 2 x (units), seven zero-terminated
// strings back to back from offset 0 in field order, none holding CR, LF or TAB.
// `bytes` is the block's size when known (0: trust the record's size field).
void CheckCommentRecord(const void* record, size_t bytes, const char* where);

// A ReplayGain record: FourCC RPGI, size 44, only the four value flags.
void CheckReplayGainRecord(const kxmp3::ReplayGainRecord& record, const char* where);

// A zero-terminated UTF-16 text within `capacity` units.
void CheckTerminated(const char16_t* text, size_t capacity, const char* where);

// FNV-1a over the input: picks the variants of a run, so the same input always runs
// the same way.
uint32_t InputHash(const uint8_t* data, size_t size);

// A memory stream holding a copy of the input, with one reference kept by the
// holder beside the one handed to the code under test. Finish() checks that the
// code under test gave back what it was handed (`handedOver`: it was handed a
// reference of its own that it must release) and releases the holder's reference.
class HeldStream {
 public:
  HeldStream(const uint8_t* data, size_t size, const char16_t* name);
  ~HeldStream();
  HeldStream(const HeldStream&) = delete;
  HeldStream& operator=(const HeldStream&) = delete;

  kxtest::MemoryStream* get() const { return stream_; }
  // Adds the reference the code under test will own.
  kxtest::MemoryStream* HandOver();
  // Checks that every reference handed over has been released, then releases the
  // holder's own reference.
  void Finish(const char* where);

 private:
  kxtest::MemoryStream* stream_;
  uint32_t handedOver_ = 0;
};

// Core memory blocks live at construction must be the only ones left at Check().
class CoreMemoryWatch {
 public:
  CoreMemoryWatch();
  void Check(const char* where) const;

 private:
  int64_t live_;
};

// Stream position (relative to its bounds), or -1 when it cannot be told.
int64_t PositionOf(kxtest::MemoryStream* stream);

}  // namespace kxfuzz
