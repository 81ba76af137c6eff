// The decoder object's life: construction, copies, ResetData (the one place that
// releases what the object owns), the interface query and registration overrides,
// and the factory CreateInstance_KXMP3.
#include <cstring>
#include <new>

#include "../host/kxcore.h"
#include "kxmp3.h"

Class_KXMP3::Class_KXMP3() : Class_ZCOM(), Class_KXAudioFile() {
  // state_ is left alone: it is zero from the allocator (see kxmp3.h).
  SetCoreData(sizeof(Class_KXMP3), FOURCC_ZMP3);
}

Class_KXMP3::Class_KXMP3(const Class_KXMP3& other) : Class_ZCOM(other), Class_KXAudioFile(other) {
  std::memcpy(&state_, &other.state_, sizeof(state_));
}

Class_KXMP3& Class_KXMP3::operator=(const Class_KXMP3& other) {
  if (this != &other) {
    Class_KXAudioFile::operator=(other);
    std::memcpy(&state_, &other.state_, sizeof(state_));
  }
  return *this;
}

Class_KXMP3::~Class_KXMP3() = default;

KxResult Class_KXMP3::ResetData() {
  if (state_.stream != nullptr) state_.stream->Release();
  if (state_.engine.frameIndex != nullptr) ZCoreFree(state_.engine.frameIndex);
  if (state_.pcmBuffer != nullptr) ZCoreFree(state_.pcmBuffer);
  if (state_.engine.workBlockRaw != nullptr) ZCoreFree(state_.engine.workBlockRaw);
  if (state_.engine.reservoir != nullptr) ZCoreFree(state_.engine.reservoir);
  std::memset(&state_, 0, sizeof(state_));
  return Class_KXAudioFile::ResetData();
}

KxResult Class_KXMP3::QueryInterface(uint32_t fourcc, void** out) {
  if (fourcc == FOURCC_ZMP3) {
    if (out == nullptr) return AF_E_POINTER;
    // Handed out as the audio-file interface: that is what a ZMP3 client calls.
    Class_KXAudioFile* self = this;
    *out = self;
    AddRef();
    return AF_S_OK;
  }
  return Class_KXAudioFile::QueryInterface(fourcc, out);
}

KxResult Class_KXMP3::AddInterface(void* arg) {
  Class_ZCOM* zcom = this;
  ZCoreRegisterInterface(this, zcom, FOURCC_ZMP3, arg);
  // The base is always given 0, whatever the caller passed: its registration takes
  // no argument of its own.
  return Class_KXAudioFile::AddInterface(nullptr);
}

KxResult Class_KXMP3::DeleteInterface() {
  ZCoreUnregisterInterface(this);
  return Class_KXAudioFile::DeleteInterface();
}

extern "C" KxResult CreateInstance_KXMP3(Class_ZCOM** out) {
  if (out == nullptr) return AF_E_FAIL;
  // Class_ZCOM's own operator hands out zero-filled core memory; it is called
  // directly so that an allocation failure (null or a throw) is answered here,
  // before any constructor runs. The object is later freed by the release path with
  // the matching Class_ZCOM::operator delete.
  void* memory = nullptr;
  try {
    memory = Class_ZCOM::operator new(sizeof(Class_KXMP3));
  } catch (const std::bad_alloc&) {
    memory = nullptr;
  }
  if (memory == nullptr) {
    *out = nullptr;
    return AF_E_FAIL;
  }
  Class_KXMP3* object = nullptr;
  try {
    object = ::new (memory) Class_KXMP3();
  } catch (...) {
    Class_ZCOM::operator delete(memory);
    *out = nullptr;
    return AF_E_FAIL;
  }
  *out = static_cast<Class_ZCOM*>(object);
  return AF_S_OK;
}
