// The file stream of the object factory (kind ZSNF). See file_stream.h and
// host/zstream.h for the contract; the system calls are behind file_io.h.
//
// Reading: bytes come from the read buffer when the position lies inside it;
// a request at least as large as the buffer goes straight to the caller; otherwise
// the buffer is refilled from the position. Reads name their offset, so the position
// is ours alone.
#include "file_stream.h"

#include <algorithm>
#include <cstring>

#include "host/kxcore.h"

namespace kxcore {
namespace {

// The longest path accepted, in UTF-16 units; a longer "path" is bad input.
constexpr size_t kMaxPathUnits = 32768;

}  // namespace

FileStream::FileStream() { SetCoreData(sizeof(FileStream), FOURCC_ZSNF); }

FileStream::~FileStream() { Close(); }

void FileStream::Close() {
  if (file_ != kNoFile) CloseNativeFile(file_);
  file_ = kNoFile;
  ZCoreFree(buffer_);
  buffer_ = nullptr;
  writable_ = false;
  accessMode_ = 0;
  name_.clear();
  fileSize_ = pos_ = 0;
  bounded_ = false;
  boundStart_ = boundLength_ = 0;
  bufferStart_ = 0;
  bufferFill_ = 0;
}

KxResult FileStream::ResetData() {
  Close();
  SetCreatedFlag(0);
  return Class_ZStream::ResetData();
}

KxResult FileStream::QueryInterface(uint32_t fourcc, void** out) { return Class_ZStream::QueryInterface(fourcc, out); }

KxResult FileStream::Create(void* params) {
  if (params == nullptr) return ZS_E_INVALID_ARG;
  ZStreamOpenRecord record;
  std::memcpy(&record, params, sizeof(record));
  if (record.tag != FOURCC_ZSTM || record.size != sizeof(ZStreamOpenRecord)) return ZS_E_INVALID_ARG;
  if (record.mode != ZS_MODE_READ && record.mode != ZS_MODE_WRITE) return ZS_E_INVALID_ARG;
  if (record.source == nullptr) return ZS_E_INVALID_ARG;
  if (file_ != kNoFile) return AF_E_ALREADY_CREATED;

  const auto* path = static_cast<const char16_t*>(record.source);
  size_t units = 0;
  while (units <= kMaxPathUnits && path[units] != 0) ++units;
  if (units == 0) return ZS_E_NOT_FOUND;
  if (units > kMaxPathUnits) return ZS_E_INVALID_ARG;

  NativeFile file = kNoFile;
  int64_t size = 0;
  if (const KxResult rc = OpenNativeFile(path, units, record.mode, &file, &size); rc != AF_S_OK) return rc;
  auto* buffer = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, kBufferBytes));
  if (buffer == nullptr) {
    CloseNativeFile(file);
    return AF_E_FAIL;
  }
  file_ = file;
  buffer_ = buffer;
  writable_ = record.mode == ZS_MODE_WRITE;
  accessMode_ = record.mode;
  name_.assign(path, std::min<size_t>(units, ZS_NAME_CHARS - 1));
  fileSize_ = size;
  pos_ = 0;
  bounded_ = false;
  boundStart_ = boundLength_ = 0;
  bufferFill_ = 0;
  SetCreatedFlag(1);
  return AF_S_OK;
}

bool FileStream::Refill() {
  bufferStart_ = pos_;
  bufferFill_ = 0;
  const int64_t left = fileSize_ - pos_;
  if (left <= 0) return true;
  const auto want = static_cast<size_t>(std::min<int64_t>(left, kBufferBytes));
  const int64_t got = ReadNativeFile(file_, buffer_, want, pos_);
  if (got < 0) return false;
  bufferFill_ = static_cast<uint32_t>(got);
  return true;
}

KxResult FileStream::Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) {
  if (bytesRead != nullptr) *bytesRead = 0;
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  if (bytes == 0) return AF_S_OK;
  if (buffer == nullptr) return ZS_E_INVALID_ARG;
  const int64_t available = std::max<int64_t>(0, End() - pos_);
  const auto want = static_cast<uint32_t>(std::min<int64_t>(available, bytes));
  auto* out = static_cast<uint8_t*>(buffer);
  uint32_t done = 0;
  KxResult result = AF_S_OK;
  while (done < want) {
    if (pos_ >= bufferStart_ && pos_ < bufferStart_ + bufferFill_) {
      const auto offset = static_cast<uint32_t>(pos_ - bufferStart_);
      const uint32_t n = std::min(want - done, bufferFill_ - offset);
      std::memcpy(out + done, buffer_ + offset, n);
      done += n;
      pos_ += n;
      continue;
    }
    const uint32_t remaining = want - done;
    if (remaining >= kBufferBytes) {  // large request: straight into the caller's memory
      const int64_t got = ReadNativeFile(file_, out + done, remaining, pos_);
      if (got < 0) {
        result = ZS_E_FAIL;
        break;
      }
      done += static_cast<uint32_t>(got);
      pos_ += got;
      if (static_cast<uint32_t>(got) < remaining) break;  // the file is shorter than we knew
      continue;
    }
    if (!Refill()) {
      result = ZS_E_FAIL;
      break;
    }
    if (bufferFill_ == 0) break;  // the file is shorter than we knew
  }
  if (bytesRead != nullptr) *bytesRead = done;
  if (result != AF_S_OK) return result;
  return done == bytes ? AF_S_OK : ZS_E_END_OF_DATA;
}

KxResult FileStream::GetPosition(int64_t* position) {
  if (position == nullptr) return ZS_E_INVALID_ARG;
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  *position = pos_ - boundStart_;
  return AF_S_OK;
}

KxResult FileStream::Seek(int64_t offset, uint32_t origin) {
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  int64_t base;
  switch (origin) {
    case ZS_SEEK_SET: base = 0; break;
    case ZS_SEEK_CUR: base = pos_ - boundStart_; break;
    case ZS_SEEK_END: base = Length(); break;
    default: return ZS_E_INVALID_ARG;
  }
  int64_t target;
  if (__builtin_add_overflow(base, offset, &target) || target < 0 || target > Length()) return ZS_E_SEEK;
  pos_ = boundStart_ + target;
  return AF_S_OK;
}

KxResult FileStream::GetSize(int64_t* size) {
  if (size == nullptr) return ZS_E_INVALID_ARG;
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  *size = Length();
  return AF_S_OK;
}

KxResult FileStream::GetName(char16_t* buffer) {
  if (buffer == nullptr) return ZS_E_INVALID_ARG;
  std::copy(name_.begin(), name_.end(), buffer);  // at most ZS_NAME_CHARS - 1 units
  buffer[name_.size()] = 0;
  return file_ != kNoFile ? AF_S_OK : ZS_E_NOT_OPEN;
}

KxResult FileStream::SetBounds(int64_t start, int64_t length) {
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  int64_t end;
  if (start < 0 || length < 0 || __builtin_add_overflow(start, length, &end) || end > fileSize_) {
    return ZS_E_INVALID_ARG;
  }
  bounded_ = true;
  boundStart_ = start;
  boundLength_ = length;
  pos_ = start;
  return AF_S_OK;
}

KxResult FileStream::Write(const void* buffer, uint32_t bytes, uint32_t* bytesWritten) {
  if (bytesWritten != nullptr) *bytesWritten = 0;
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  if (accessMode_ != ZS_MODE_WRITE) return ZS_E_ACCESS;
  if (bytes == 0) return AF_S_OK;
  if (buffer == nullptr) return ZS_E_INVALID_ARG;
  const int64_t n = WriteNativeFile(file_, buffer, bytes, pos_);
  if (n < 0) return ZS_E_FAIL;
  // Buffered bytes the write replaced are stale now.
  if (bufferFill_ > 0 && pos_ < bufferStart_ + bufferFill_ && pos_ + n > bufferStart_) bufferFill_ = 0;
  pos_ += n;
  fileSize_ = std::max(fileSize_, pos_);
  if (bounded_ && pos_ > boundStart_ + boundLength_) boundLength_ = pos_ - boundStart_;  // the window grows
  if (bytesWritten != nullptr) *bytesWritten = static_cast<uint32_t>(n);
  return static_cast<uint32_t>(n) == bytes ? AF_S_OK : ZS_E_FAIL;
}

KxResult FileStream::SetEnd() {
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  if (accessMode_ != ZS_MODE_WRITE) return ZS_E_ACCESS;
  if (!TruncateNativeFile(file_, pos_)) return ZS_E_FAIL;
  fileSize_ = pos_;
  if (bounded_) boundLength_ = pos_ - boundStart_;
  if (bufferStart_ + bufferFill_ > pos_) bufferFill_ = pos_ > bufferStart_ ? static_cast<uint32_t>(pos_ - bufferStart_) : 0;
  return AF_S_OK;
}

KxResult FileStream::SetAccessMode(uint32_t mode) {
  if (file_ == kNoFile) return ZS_E_NOT_OPEN;
  if (mode == ZS_MODE_READ) {
    accessMode_ = mode;
    return AF_S_OK;
  }
  if (mode == ZS_MODE_WRITE) {
    if (!writable_) return ZS_E_ACCESS;  // opened read-only
    accessMode_ = mode;
    return AF_S_OK;
  }
  return ZS_E_INVALID_ARG;
}

// Reading is always allowed; writing in access mode 2 only.
uint32_t FileStream::GetOpenMode() {
  if (file_ == kNoFile) return 0;
  return accessMode_ == ZS_MODE_WRITE ? (ZS_OPEN_READ | ZS_OPEN_WRITE) : ZS_OPEN_READ;
}

uint32_t FileStream::GetIdentCode() { return FOURCC_ZSTM; }

}  // namespace kxcore
