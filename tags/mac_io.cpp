// KXMACIO: the APE tag code's I/O over a host stream (see mac_io.h).
#include "mac_io.h"

#include <algorithm>

#include "../host/kx_types.h"
#include "../host/kxcore.h"

namespace kxmp3 {

KXMACIO::~KXMACIO() { ReleaseStream(); }

void KXMACIO::ReleaseStream() {
  if (stream_ != nullptr) stream_->Release();
  stream_ = nullptr;
  openMode_ = 0;
}

int KXMACIO::FailureResult() {
  return (stream_ != nullptr && stream_->GetIdentCode() == FOURCC_ZSTM) ? 0 : -1;
}

int KXMACIO::Attach(Class_ZStream* stream) {
  if (stream != nullptr) stream->AddRef();  // before the release: the same stream may come back
  ReleaseStream();
  stream_ = stream;
  openMode_ = stream_ != nullptr ? stream_->GetOpenMode() : 0;
  return 0;
}

int KXMACIO::OpenFile(const char16_t* name, uint32_t mode) {
  ReleaseStream();
  void* object = nullptr;
  if (ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object) != AF_S_OK || object == nullptr) return -1;
  auto* stream = static_cast<Class_ZStream*>(object);
  ZStreamOpenRecord record{};
  record.tag = FOURCC_ZSTM;
  record.size = sizeof(ZStreamOpenRecord);
  record.mode = mode;
  record.source = name;
  if (stream->Create(&record) != AF_S_OK) {
    stream->Release();
    return -1;
  }
  stream_ = stream;
  openMode_ = stream_->GetOpenMode();
  return 0;
}

int KXMACIO::Open(const char16_t* name) { return OpenFile(name, ZS_MODE_READ); }
int KXMACIO::Create(const char16_t* name) { return OpenFile(name, ZS_MODE_WRITE); }

int KXMACIO::Close() {
  ReleaseStream();
  return 0;
}

int KXMACIO::Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) {
  if (bytesRead != nullptr) *bytesRead = 0;
  if (stream_ == nullptr) return -1;
  const bool switched = (openMode_ & ZS_OPEN_READ) == 0;
  if (switched && stream_->SetAccessMode(ZS_MODE_READ) != AF_S_OK) return -1;
  uint32_t got = 0;
  const KxResult result = stream_->Read(buffer, bytes, &got);
  if (bytesRead != nullptr) *bytesRead = got;
  int status = (result == AF_S_OK || result == ZS_E_END_OF_DATA) ? 0 : -1;  // a short read is no failure
  if (switched && stream_->SetAccessMode(ZS_MODE_WRITE) != AF_S_OK) status = -1;
  return status;
}

int KXMACIO::Write(const void* buffer, uint32_t bytes, uint32_t* bytesWritten) {
  if (bytesWritten != nullptr) *bytesWritten = 0;
  if (stream_ == nullptr) return -1;
  const bool switched = (openMode_ & ZS_OPEN_WRITE) == 0;
  if (switched && stream_->SetAccessMode(ZS_MODE_WRITE) != AF_S_OK && FailureResult() != 0) return -1;
  uint32_t written = 0;
  const KxResult result = stream_->Write(buffer, bytes, &written);
  if (bytesWritten != nullptr) *bytesWritten = written;
  int status = 0;
  if (result != AF_S_OK) status = FailureResult();
  if (switched && stream_->SetAccessMode(ZS_MODE_READ) != AF_S_OK && FailureResult() != 0) status = -1;
  return status;
}

int KXMACIO::Seek(int64_t distance, uint32_t method) {
  if (stream_ == nullptr) return -1;
  const uint32_t origin = method == 1 ? ZS_SEEK_CUR : method == 2 ? ZS_SEEK_END : ZS_SEEK_SET;
  if (stream_->Seek(distance, origin) != AF_S_OK) return FailureResult();
  return 0;
}

int KXMACIO::Delete() { return -1; }

int KXMACIO::SetEOF() {
  if (stream_ == nullptr) return -1;
  int64_t position = 0;
  if (stream_->GetPosition(&position) != AF_S_OK && FailureResult() != 0) return -1;
  if (stream_->SetEnd() != AF_S_OK) return FailureResult();
  return 0;
}

int64_t KXMACIO::GetPosition() {
  if (stream_ == nullptr) return -1;
  int64_t position = 0;
  if (stream_->GetPosition(&position) != AF_S_OK && FailureResult() != 0) return -1;
  return position;
}

int64_t KXMACIO::GetSize() {
  if (stream_ == nullptr) return -1;
  int64_t size = 0;
  if (stream_->GetSize(&size) != AF_S_OK && FailureResult() != 0) return -1;
  return size;
}

int KXMACIO::GetName(char16_t* buffer) {
  if (stream_ == nullptr || buffer == nullptr) return -1;
  char16_t name[ZS_NAME_CHARS] = {};
  if (stream_->GetName(name) != AF_S_OK && FailureResult() != 0) return -1;
  name[ZS_NAME_CHARS - 1] = 0;
  size_t length = 0;
  while (length + 1 < kNameChars && name[length] != 0) ++length;
  std::copy_n(name, length, buffer);
  buffer[length] = 0;
  return 0;
}

}  // namespace kxmp3
