// Object locks on Windows (ordinals 43 and 45, and the non-blocking variant): a
// critical section per object, recursive per thread as the system's is; another
// thread waits until the owner has left it as often as it entered. The owner's
// thread id and depth are kept beside it so that an unlock by a thread that does not
// hold the lock is refused, and for diagnostics with the first lock's source location.
#include "platform/win32/windows_api.h"

#include "../object_lock.h"

#include "host/kxcore.h"

namespace kxcore {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(ObjectLock::section));

namespace {
CRITICAL_SECTION* Section(ObjectLock* lock) { return reinterpret_cast<CRITICAL_SECTION*>(lock->section); }

// Called with the section entered.
void Entered(ObjectLock* lock, const char* file, int line) {
  if (lock->depth.load(std::memory_order_relaxed) == 0) {
    lock->owner.store(GetCurrentThreadId(), std::memory_order_relaxed);
    lock->file.store(file, std::memory_order_relaxed);
    lock->line.store(line, std::memory_order_relaxed);
  }
  lock->depth.fetch_add(1, std::memory_order_release);
}
}  // namespace

ObjectLock::ObjectLock() { InitializeCriticalSection(Section(this)); }
ObjectLock::~ObjectLock() { DeleteCriticalSection(Section(this)); }

}  // namespace kxcore

extern "C" {

KxResult ZCoreLockObject(Class_ZCOM* object, const char* file, int line) {
  if (object == nullptr) return AF_E_FAIL;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return AF_E_FAIL;
  EnterCriticalSection(kxcore::Section(lock));
  kxcore::Entered(lock, file, line);
  return AF_S_OK;
}

KxResult ZCoreTryLockObject(Class_ZCOM* object, const char* file, int line) {
  if (object == nullptr) return AF_E_FAIL;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return AF_E_FAIL;
  if (!TryEnterCriticalSection(kxcore::Section(lock))) return AF_E_FAIL;
  kxcore::Entered(lock, file, line);
  return AF_S_OK;
}

KxResult ZCoreUnlockObject(Class_ZCOM* object) {
  if (object == nullptr) return AF_E_FAIL;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return AF_E_FAIL;
  // Only the owner may see its own id here: another thread's id is never stored
  // while this one holds the section.
  if (lock->depth.load(std::memory_order_acquire) == 0 ||
      lock->owner.load(std::memory_order_relaxed) != GetCurrentThreadId()) {
    return AF_E_FAIL;  // not this thread's
  }
  if (lock->depth.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    lock->owner.store(0, std::memory_order_relaxed);
    lock->file.store(nullptr, std::memory_order_relaxed);
    lock->line.store(0, std::memory_order_relaxed);
  }
  LeaveCriticalSection(kxcore::Section(lock));
  return AF_S_OK;
}

int ZCoreGetLockOwner(Class_ZCOM* object, const char** file, int* line, uint32_t* depth) {
  if (object == nullptr) return 0;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return 0;
  const uint32_t held = lock->depth.load(std::memory_order_acquire);
  if (file != nullptr) *file = lock->file.load(std::memory_order_relaxed);
  if (line != nullptr) *line = lock->line.load(std::memory_order_relaxed);
  if (depth != nullptr) *depth = held;
  return held > 0 ? 1 : 0;
}

}  // extern "C"
