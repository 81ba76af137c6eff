// In-memory host stream for tests (see memory_stream.h).
#include "memory_stream.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace kxtest {

MemoryStream* MemoryStream::Make(std::vector<uint8_t> data, std::u16string name) {
  auto* s = new MemoryStream();
  s->data_ = std::move(data);
  s->name_ = std::move(name);
  return s;
}

bool MemoryStream::Fault() {
  ++calls_;
  if (failOnly_ != 0 && calls_ == failOnly_) return true;
  return failFrom_ != 0 && calls_ >= failFrom_;
}

KxResult MemoryStream::Create(void*) { return AF_S_OK; }

KxResult MemoryStream::Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) {
  if (bytesRead) *bytesRead = 0;
  if (Fault()) return ZS_E_FAIL;
  if (bytes == 0) return AF_S_OK;
  if (buffer == nullptr) return ZS_E_INVALID_ARG;
  const int64_t end = boundLength_ < 0 ? static_cast<int64_t>(data_.size())
                                       : std::min<int64_t>(boundStart_ + boundLength_, data_.size());
  int64_t avail = std::max<int64_t>(0, end - pos_);
  int64_t n = std::min<int64_t>(avail, bytes);
  if (readLimit_ != 0) n = std::min<int64_t>(n, readLimit_);
  if (n > 0) std::memcpy(buffer, data_.data() + pos_, static_cast<size_t>(n));
  pos_ += n;
  if (bytesRead) *bytesRead = static_cast<uint32_t>(n);
  return n == bytes ? AF_S_OK : ZS_E_END_OF_DATA;
}

KxResult MemoryStream::GetPosition(int64_t* position) {
  if (Fault()) return ZS_E_FAIL;
  if (!position) return ZS_E_INVALID_ARG;
  *position = pos_ - boundStart_;
  return AF_S_OK;
}

KxResult MemoryStream::Seek(int64_t offset, uint32_t origin) {
  if (Fault()) return ZS_E_FAIL;
  const int64_t length = boundLength_ < 0 ? static_cast<int64_t>(data_.size()) - boundStart_ : boundLength_;
  int64_t base;
  switch (origin) {
    case ZS_SEEK_SET: base = 0; break;
    case ZS_SEEK_CUR: base = pos_ - boundStart_; break;
    case ZS_SEEK_END: base = length; break;
    default: return ZS_E_INVALID_ARG;
  }
  const int64_t target = base + offset;
  if (target < 0 || target > length) return ZS_E_SEEK;
  pos_ = boundStart_ + target;
  return AF_S_OK;
}

KxResult MemoryStream::GetSize(int64_t* size) {
  if (Fault()) return ZS_E_FAIL;
  if (!size) return ZS_E_INVALID_ARG;
  *size = boundLength_ < 0 ? static_cast<int64_t>(data_.size()) - boundStart_ : boundLength_;
  return AF_S_OK;
}

KxResult MemoryStream::GetName(char16_t* buffer) {
  if (!buffer) return ZS_E_INVALID_ARG;
  size_t n = std::min<size_t>(name_.size(), ZS_NAME_CHARS - 1);
  std::copy_n(name_.data(), n, buffer);
  buffer[n] = 0;
  return AF_S_OK;
}

KxResult MemoryStream::SetBounds(int64_t start, int64_t length) {
  if (start < 0 || length < 0 || start + length > static_cast<int64_t>(data_.size())) return ZS_E_INVALID_ARG;
  boundStart_ = start;
  boundLength_ = length;
  pos_ = start;
  return AF_S_OK;
}

KxResult MemoryStream::Write(const void*, uint32_t, uint32_t* bytesWritten) {
  if (bytesWritten) *bytesWritten = 0;
  return ZS_E_ACCESS;
}
KxResult MemoryStream::SetEnd() { return ZS_E_ACCESS; }
KxResult MemoryStream::SetAccessMode(uint32_t mode) { return mode == ZS_MODE_READ ? AF_S_OK : ZS_E_ACCESS; }
uint32_t MemoryStream::GetOpenMode() { return ZS_OPEN_READ; }
uint32_t MemoryStream::GetIdentCode() { return MakeFourCC('M', 'E', 'M', 'S'); }

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string SharedDir() {
  struct stat st {};
  std::string dir = KX_SHARED_DIR;
  if (stat((dir + "/conformance").c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return dir;
  return {};
}

}  // namespace kxtest
