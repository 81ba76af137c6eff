// kxhost's stream over a file descriptor (see descriptor_stream.h).
#include "descriptor_stream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kxhost {

namespace {

// pread until `bytes` arrived, the end of the file, or an error (-1).
ssize_t ReadAt(int fd, uint8_t* buffer, size_t bytes, int64_t offset) {
  size_t done = 0;
  while (done < bytes) {
    const ssize_t n = pread(fd, buffer + done, bytes - done, static_cast<off_t>(offset + static_cast<int64_t>(done)));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace

DescriptorStream::DescriptorStream(int fd, const std::u16string& name) : fd_(fd) {
  SetCoreData(sizeof(DescriptorStream), FOURCC_ZSNF);
  name_ = name.substr(0, ZS_NAME_CHARS - 1);
  struct stat st {};
  if (fstat(fd_, &st) == 0) fileSize_ = st.st_size;
  SetCreatedFlag(1);
}

DescriptorStream::~DescriptorStream() {
  if (fd_ >= 0) ::close(fd_);
}

KxResult DescriptorStream::Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) {
  if (bytesRead != nullptr) *bytesRead = 0;
  if (bytes == 0) return AF_S_OK;
  if (buffer == nullptr) return ZS_E_INVALID_ARG;
  const int64_t available = std::max<int64_t>(0, End() - pos_);
  const auto want = static_cast<uint32_t>(std::min<int64_t>(available, bytes));
  auto* out = static_cast<uint8_t*>(buffer);
  uint32_t done = 0;
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
      const ssize_t got = ReadAt(fd_, out + done, remaining, pos_);
      if (got < 0) {
        if (bytesRead != nullptr) *bytesRead = done;
        return ZS_E_FAIL;
      }
      done += static_cast<uint32_t>(got);
      pos_ += got;
      if (static_cast<uint32_t>(got) < remaining) break;  // the file is shorter than it was
      continue;
    }
    bufferStart_ = pos_;
    const ssize_t got = ReadAt(fd_, buffer_, static_cast<size_t>(std::min<int64_t>(kBufferBytes, fileSize_ - pos_)), pos_);
    bufferFill_ = got > 0 ? static_cast<uint32_t>(got) : 0;
    if (got < 0) {
      if (bytesRead != nullptr) *bytesRead = done;
      return ZS_E_FAIL;
    }
    if (got == 0) break;
  }
  if (bytesRead != nullptr) *bytesRead = done;
  return done == bytes ? AF_S_OK : ZS_E_END_OF_DATA;
}

KxResult DescriptorStream::GetPosition(int64_t* position) {
  if (position == nullptr) return ZS_E_INVALID_ARG;
  *position = pos_ - boundStart_;
  return AF_S_OK;
}

KxResult DescriptorStream::Seek(int64_t offset, uint32_t origin) {
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

KxResult DescriptorStream::GetSize(int64_t* size) {
  if (size == nullptr) return ZS_E_INVALID_ARG;
  *size = Length();
  return AF_S_OK;
}

KxResult DescriptorStream::GetName(char16_t* buffer) {
  if (buffer == nullptr) return ZS_E_INVALID_ARG;
  std::copy(name_.begin(), name_.end(), buffer);
  buffer[name_.size()] = 0;
  return AF_S_OK;
}

KxResult DescriptorStream::SetBounds(int64_t start, int64_t length) {
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

// Inputs are never written: the tag code asks for writing only to edit tags.
KxResult DescriptorStream::Write(const void*, uint32_t, uint32_t* bytesWritten) {
  if (bytesWritten != nullptr) *bytesWritten = 0;
  return ZS_E_ACCESS;
}

KxResult DescriptorStream::SetEnd() { return ZS_E_ACCESS; }

KxResult DescriptorStream::SetAccessMode(uint32_t mode) {
  if (mode == ZS_MODE_READ) return AF_S_OK;
  return mode == ZS_MODE_WRITE ? ZS_E_ACCESS : ZS_E_INVALID_ARG;
}

uint32_t DescriptorStream::GetOpenMode() { return ZS_OPEN_READ; }

uint32_t DescriptorStream::GetIdentCode() { return FOURCC_ZSTM; }

}  // namespace kxhost
