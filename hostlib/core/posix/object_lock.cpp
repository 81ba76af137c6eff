// Object locks (ordinals 43 and 45, and the non-blocking variant): recursive per
// object and per thread; another thread waits until the owner has unlocked as often
// as it locked. The source location of the first lock is kept for diagnostics.
#include "../object_lock.h"

#include "host/kxcore.h"

extern "C" {

KxResult ZCoreLockObject(Class_ZCOM* object, const char* file, int line) {
  if (object == nullptr) return AF_E_FAIL;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return AF_E_FAIL;
  const std::thread::id self = std::this_thread::get_id();
  std::unique_lock<std::mutex> guard(lock->mutex);
  if (lock->depth > 0 && lock->owner == self) {
    ++lock->depth;
    return AF_S_OK;
  }
  lock->released.wait(guard, [lock] { return lock->depth == 0; });
  lock->owner = self;
  lock->depth = 1;
  lock->file = file;
  lock->line = line;
  return AF_S_OK;
}

KxResult ZCoreTryLockObject(Class_ZCOM* object, const char* file, int line) {
  if (object == nullptr) return AF_E_FAIL;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return AF_E_FAIL;
  const std::thread::id self = std::this_thread::get_id();
  std::lock_guard<std::mutex> guard(lock->mutex);
  if (lock->depth > 0) {
    if (lock->owner != self) return AF_E_FAIL;
    ++lock->depth;
    return AF_S_OK;
  }
  lock->owner = self;
  lock->depth = 1;
  lock->file = file;
  lock->line = line;
  return AF_S_OK;
}

KxResult ZCoreUnlockObject(Class_ZCOM* object) {
  if (object == nullptr) return AF_E_FAIL;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return AF_E_FAIL;
  std::lock_guard<std::mutex> guard(lock->mutex);
  if (lock->depth == 0 || lock->owner != std::this_thread::get_id()) return AF_E_FAIL;  // not this thread's
  if (--lock->depth == 0) {
    lock->owner = std::thread::id();
    lock->file = nullptr;
    lock->line = 0;
    lock->released.notify_one();
  }
  return AF_S_OK;
}

int ZCoreGetLockOwner(Class_ZCOM* object, const char** file, int* line, uint32_t* depth) {
  if (object == nullptr) return 0;
  kxcore::ObjectLock* lock = ZcomLockAccess::Get(object);
  if (lock == nullptr) return 0;
  std::lock_guard<std::mutex> guard(lock->mutex);
  if (file != nullptr) *file = lock->file;
  if (line != nullptr) *line = lock->line;
  if (depth != nullptr) *depth = lock->depth;
  return lock->depth > 0 ? 1 : 0;
}

}  // extern "C"
