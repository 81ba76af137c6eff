// Internal to the core library: the recursive object lock behind ordinals 43 and 45
// (and the try-lock), one per Class_ZCOM, made by its constructor.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "host/zcom.h"

namespace kxcore {

struct ObjectLock {
  std::mutex mutex;
  std::condition_variable released;
  std::thread::id owner;   // default id: nobody
  unsigned depth = 0;      // recursion depth of the owner
  const char* file = nullptr;  // where the owner took it first
  int line = 0;
};

}  // namespace kxcore

// Class_ZCOM befriends this to hand its lock to the core functions.
struct ZcomLockAccess {
  static kxcore::ObjectLock* Get(Class_ZCOM* object) { return static_cast<kxcore::ObjectLock*>(object->lock_); }
  static void Set(Class_ZCOM* object, kxcore::ObjectLock* lock) { object->lock_ = lock; }
};
