// Shared checks of the fuzz target bodies (see checks.h) and the target table.
#include "checks.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness.h"
#include "host/kx_types.h"
#include "host/kxcore.h"

namespace kxfuzz {

namespace {

void AbortOnViolation(const char* message) {
  std::fprintf(stderr, "kxfuzz: broken promise: %s\n", message);
  std::fflush(stderr);
  std::abort();
}

ViolationHandler gHandler = &AbortOnViolation;

}  // namespace

void SetViolationHandler(ViolationHandler handler) { gHandler = handler != nullptr ? handler : &AbortOnViolation; }

void Violation(const char* format, ...) {
  char message[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof(message), format, args);
  va_end(args);
  gHandler(message);
}

void RequireNamedCode(KxResult code, const char* where) {
  if (KxResultName(code) == nullptr) Violation("%s: result 0x%08X is not a named code", where, code);
}

void CheckCommentRecord(const void* record, size_t bytes, const char* where) {
  if (record == nullptr) return;
  kxmp3::CommentRecordHeader header;
  std::memcpy(&header, record, sizeof(header));
  if (header.fourcc != FOURCC_ZAFC) Violation("%s: comment record without its FourCC", where);
  if (header.size < sizeof(header) || (header.size - sizeof(header)) % 2 != 0) {
    Violation("%s: comment record size %u", where, header.size);
    return;
  }
  if (bytes != 0 && header.size > bytes) Violation("%s: comment record says %u bytes, block holds %zu", where,
                                                   header.size, bytes);
  const size_t units = (header.size - sizeof(header)) / 2;
  const auto* area = static_cast<const uint8_t*>(record) + sizeof(header);
  size_t expected = 0;
  for (int field = 0; field < 7; ++field) {
    if (header.fields[field].offset < 0 || static_cast<size_t>(header.fields[field].offset) != expected) {
      Violation("%s: field %d at offset %d, expected %zu", where, field, header.fields[field].offset, expected);
      return;
    }
    size_t k = expected;
    for (;; ++k) {
      if (k >= units) {
        Violation("%s: field %d runs past the record", where, field);
        return;
      }
      char16_t c;
      std::memcpy(&c, area + 2 * k, 2);
      if (c == 0) break;
      if (c == u'\r' || c == u'\n' || c == u'\t') Violation("%s: field %d holds a line break or tab", where, field);
    }
    expected = k + 1;
  }
  if (expected != units) Violation("%s: %zu units of strings in a record of %zu", where, expected, units);
}

void CheckReplayGainRecord(const kxmp3::ReplayGainRecord& record, const char* where) {
  // A RIFF container's tags leave the record as the new object holds it: all zero.
  static const kxmp3::ReplayGainRecord untouched{};
  if (std::memcmp(&record, &untouched, sizeof(record)) == 0) return;
  if (record.fourcc != FOURCC_RPGI || record.size != sizeof(kxmp3::ReplayGainRecord)) {
    Violation("%s: ReplayGain record header %08X/%u", where, record.fourcc, record.size);
  }
  if ((record.flags & ~15u) != 0) Violation("%s: ReplayGain flags 0x%X", where, record.flags);
}

void CheckTerminated(const char16_t* text, size_t capacity, const char* where) {
  for (size_t i = 0; i < capacity; ++i) {
    if (text[i] == 0) return;
  }
  Violation("%s: text not terminated within %zu units", where, capacity);
}

uint32_t InputHash(const uint8_t* data, size_t size) {
  uint32_t h = 2166136261u;
  for (size_t i = 0; i < size; ++i) h = (h ^ data[i]) * 16777619u;
  return h ^ static_cast<uint32_t>(size);
}

HeldStream::HeldStream(const uint8_t* data, size_t size, const char16_t* name)
    : stream_(kxtest::MemoryStream::Make(std::vector<uint8_t>(data, data + size), name)) {}

HeldStream::~HeldStream() {
  if (stream_ != nullptr) stream_->Release();
}

kxtest::MemoryStream* HeldStream::HandOver() {
  stream_->AddRef();
  ++handedOver_;
  return stream_;
}

void HeldStream::Finish(const char* where) {
  const uint32_t count = stream_->GetRefCount();
  if (count != 1) {
    Violation("%s: the stream holds %u references after the code under test finished (%u handed over)", where,
              count, handedOver_);
  }
  stream_->Release();
  stream_ = nullptr;
}

CoreMemoryWatch::CoreMemoryWatch() : live_(ZCoreLiveBlocks()) {}

void CoreMemoryWatch::Check(const char* where) const {
  const int64_t now = ZCoreLiveBlocks();
  if (now != live_) Violation("%s: %lld core memory blocks not given back", where, static_cast<long long>(now - live_));
}

int64_t PositionOf(kxtest::MemoryStream* stream) {
  int64_t position = -1;
  if (stream->GetPosition(&position) != AF_S_OK) return -1;
  return position;
}

const Target kTargets[] = {
    {"module", &RunModule},           {"id3v1", &RunId3v1},
    {"id3v2", &RunId3v2},             {"ape_tag", &RunApeTag},
    {"riff_info", &RunRiffInfo},      {"frame_header", &RunFrameHeader},
    {"vbr_header", &RunVbrHeader},
};
const size_t kTargetCount = sizeof(kTargets) / sizeof(kTargets[0]);

const Target* FindTarget(const char* name) {
  for (const Target& target : kTargets) {
    if (std::strcmp(target.name, name) == 0) return &target;
  }
  return nullptr;
}

}  // namespace kxfuzz
