// Class_KXAudioFile: the reader base. It owns the reader's comment record (core
// memory; the 32-bit size at offset 4 says how long it is) and answers GetComment
// from it; the rest of the audio-file interface belongs to the readers, and the base
// answers it with AF_E_NOT_READY.
#include "host/kxaudiofile.h"

#include <cstring>

#include "host/kxcore.h"

namespace {

uint32_t RecordSize(const void* record) {
  uint32_t size;
  std::memcpy(&size, static_cast<const unsigned char*>(record) + 4, sizeof(size));
  return size;
}

// A copy of a comment record in core memory (null for null).
void* CopyRecord(const void* record) {
  if (record == nullptr) return nullptr;
  const uint32_t size = RecordSize(record);
  void* copy = ZCoreAlloc(ZMEM_PLAIN, size);
  if (copy != nullptr) std::memcpy(copy, record, size);
  return copy;
}

}  // namespace

Class_KXAudioFile::Class_KXAudioFile() = default;

// The copy owns a copy of the comment record.
Class_KXAudioFile::Class_KXAudioFile(const Class_KXAudioFile& other) : Class_ZCOM(other), comment_(CopyRecord(other.comment_)) {}

Class_KXAudioFile& Class_KXAudioFile::operator=(const Class_KXAudioFile& other) {
  if (this != &other) {
    Class_ZCOM::operator=(other);
    SetCommentSource(CopyRecord(other.comment_));
  }
  return *this;
}

Class_KXAudioFile::~Class_KXAudioFile() {
  ZCoreFree(comment_);
  comment_ = nullptr;
}

KxResult Class_KXAudioFile::GetInfo(uint32_t, void*, uint32_t*) { return AF_E_NOT_READY; }

KxResult Class_KXAudioFile::GetComment(uint32_t code, void* record, uint32_t* size) {
  if (code != FOURCC_ZAFC) return AF_E_UNKNOWN_CODE;
  if (comment_ == nullptr) return AF_E_NO_COMMENT;
  if (size == nullptr) return AF_E_POINTER;
  const uint32_t needed = RecordSize(comment_);
  if (record == nullptr) {
    *size = needed;
    return AF_S_OK;
  }
  if (*size < needed) {
    *size = needed;
    return AF_E_BUFFER_TOO_SMALL;
  }
  std::memcpy(record, comment_, needed);
  *size = needed;
  return AF_S_OK;
}

KxResult Class_KXAudioFile::GetPCMWaveFormat(PCMWAVEFORMAT*) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::DecodeToPCMData(void*, int32_t, int32_t* bytesWritten) {
  if (bytesWritten != nullptr) *bytesWritten = 0;
  return AF_E_NOT_READY;
}
KxResult Class_KXAudioFile::Rewind() { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::FileInfoDialog(HWND) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::GetCurrentPosition(QWUNION*, uint32_t) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::SetCurrentPosition(QWUNION, uint32_t) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::ReferenceTimeToSamples(QWUNION, QWUNION*) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::SamplesToReferenceTime(QWUNION, QWUNION*) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::GetReferenceTime(QWUNION*) { return AF_E_NOT_READY; }
KxResult Class_KXAudioFile::GetTotalTime(QWUNION*) { return AF_E_NOT_READY; }

KxResult Class_KXAudioFile::ResetData() {
  ZCoreFree(comment_);
  comment_ = nullptr;
  return Class_ZCOM::ResetData();
}

KxResult Class_KXAudioFile::QueryInterface(uint32_t fourcc, void** out) {
  if (out == nullptr) return AF_E_POINTER;
  if (fourcc == FOURCC_ZAFC) {
    *out = this;  // as Class_KXAudioFile*
    AddRef();
    return AF_S_OK;
  }
  return Class_ZCOM::QueryInterface(fourcc, out);
}

KxResult Class_KXAudioFile::AddInterface(void* arg) {
  return ZCoreRegisterInterface(this, static_cast<Class_ZCOM*>(this), FOURCC_ZAFC, arg);
}

KxResult Class_KXAudioFile::DeleteInterface() { return ZCoreUnregisterInterface(this); }

void Class_KXAudioFile::SetCommentSource(void* commentRecord) {
  if (commentRecord == comment_) return;
  ZCoreFree(comment_);
  comment_ = commentRecord;
}
