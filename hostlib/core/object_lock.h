// Internal to the core library: the recursive object lock behind ordinals 43 and 45
// (and the try-lock), one per Class_ZCOM, made by its constructor. On POSIX a mutex
// and a condition variable; on Windows a critical section, which is recursive itself
// (posix/object_lock.cpp, win32/object_lock.cpp).
#pragma once

#include "host/zcom.h"

#if defined(_WIN32)
#include <atomic>
#include <cstdint>
#else
#include <condition_variable>
#include <mutex>
#include <thread>
#endif

namespace kxcore {

#if defined(_WIN32)
// The critical section lives in the core library's .cpp (it needs <windows.h>);
// here only what the diagnostics read, as atomics since other threads read them.
struct ObjectLock {
  ObjectLock();
  ~ObjectLock();
  ObjectLock(const ObjectLock&) = delete;
  ObjectLock& operator=(const ObjectLock&) = delete;

  alignas(16) unsigned char section[64];  // CRITICAL_SECTION (40 bytes on x64)
  std::atomic<uint32_t> owner{0};         // thread id of the owner, 0: nobody
  std::atomic<uint32_t> depth{0};         // recursion depth of the owner
  std::atomic<const char*> file{nullptr}; // where the owner took it first
  std::atomic<int> line{0};
};
#else
struct ObjectLock {
  std::mutex mutex;
  std::condition_variable released;
  std::thread::id owner;   // default id: nobody
  unsigned depth = 0;      // recursion depth of the owner
  const char* file = nullptr;  // where the owner took it first
  int line = 0;
};
#endif

}  // namespace kxcore

// Class_ZCOM befriends this to hand its lock to the core functions.
struct ZcomLockAccess {
  static kxcore::ObjectLock* Get(Class_ZCOM* object) { return static_cast<kxcore::ObjectLock*>(object->lock_); }
  static void Set(Class_ZCOM* object, kxcore::ObjectLock* lock) { object->lock_ = lock; }
};
