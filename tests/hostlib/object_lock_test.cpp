// Object locks: recursive for the owner, exclusive against other threads, with the
// owner's source location kept; the Class_ZCOM methods go through the same lock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "host/kxcore.h"
#include "host/zcom.h"

namespace {

class Lockable : public Class_ZCOM {};

TEST(ObjectLock, RecursiveForTheOwnerWithSourceLocation) {
  auto* o = new Lockable;
  EXPECT_EQ(ZCoreGetLockOwner(o, nullptr, nullptr, nullptr), 0);
  ASSERT_EQ(ZCoreLockObject(o, "KXMP3", 2560), AF_S_OK);
  ASSERT_EQ(ZCoreLockObject(o, "again", 1), AF_S_OK);
  const char* file = nullptr;
  int line = 0;
  uint32_t depth = 0;
  EXPECT_EQ(ZCoreGetLockOwner(o, &file, &line, &depth), 1);
  EXPECT_STREQ(file, "KXMP3");  // the first lock's location
  EXPECT_EQ(line, 2560);
  EXPECT_EQ(depth, 2u);
  EXPECT_EQ(ZCoreUnlockObject(o), AF_S_OK);
  EXPECT_EQ(ZCoreGetLockOwner(o, nullptr, nullptr, &depth), 1);
  EXPECT_EQ(depth, 1u);
  EXPECT_EQ(ZCoreUnlockObject(o), AF_S_OK);
  EXPECT_EQ(ZCoreGetLockOwner(o, &file, &line, &depth), 0);
  EXPECT_EQ(depth, 0u);
  EXPECT_EQ(ZCoreUnlockObject(o), AF_E_FAIL);  // not held
  o->Release();
}

TEST(ObjectLock, NullObjectFails) {
  EXPECT_EQ(ZCoreLockObject(nullptr, "x", 1), AF_E_FAIL);
  EXPECT_EQ(ZCoreTryLockObject(nullptr, "x", 1), AF_E_FAIL);
  EXPECT_EQ(ZCoreUnlockObject(nullptr), AF_E_FAIL);
}

TEST(ObjectLock, OtherThreadsAreKeptOut) {
  auto* o = new Lockable;
  ASSERT_EQ(o->LockObject("owner", 10), AF_S_OK);
  KxResult tryResult = AF_S_OK, unlockResult = AF_S_OK;
  std::thread other([&] {
    tryResult = o->TryLockObject("other", 20);
    unlockResult = ZCoreUnlockObject(o);  // not this thread's lock
  });
  other.join();
  EXPECT_EQ(tryResult, AF_E_FAIL);
  EXPECT_EQ(unlockResult, AF_E_FAIL);
  EXPECT_EQ(o->TryLockObject("owner again", 11), AF_S_OK);  // the owner may recurse
  EXPECT_EQ(o->UnLockObject(), AF_S_OK);
  EXPECT_EQ(o->UnLockObject(), AF_S_OK);
  std::thread after([&] {
    tryResult = o->TryLockObject("other", 21);
    if (tryResult == AF_S_OK) o->UnLockObject();
  });
  after.join();
  EXPECT_EQ(tryResult, AF_S_OK);
  o->Release();
}

TEST(ObjectLock, ALockWaitsUntilTheOwnerUnlocks) {
  auto* o = new Lockable;
  ASSERT_EQ(ZCoreLockObject(o, "first", 1), AF_S_OK);
  std::atomic<bool> acquired{false};
  std::thread waiter([&] {
    ZCoreLockObject(o, "second", 2);
    acquired = true;
    ZCoreUnlockObject(o);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired.load());
  ZCoreUnlockObject(o);
  waiter.join();
  EXPECT_TRUE(acquired.load());
  o->Release();
}

TEST(ObjectLock, MutualExclusionUnderContention) {
  auto* o = new Lockable;
  long counter = 0;  // deliberately not atomic: only the lock protects it
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  constexpr int kThreads = 4, kRounds = 5000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        ZCoreLockObject(o, __FILE__, __LINE__);
        if (inside.fetch_add(1) != 0) ++overlaps;
        const long read = counter;
        if (i % 64 == 0) std::this_thread::yield();
        counter = read + 1;
        inside.fetch_sub(1);
        ZCoreUnlockObject(o);
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(overlaps.load(), 0);
  EXPECT_EQ(counter, static_cast<long>(kThreads) * kRounds);
  o->Release();
}

TEST(ObjectLock, DifferentObjectsDoNotExcludeEachOther) {
  auto* a = new Lockable;
  auto* b = new Lockable;
  ASSERT_EQ(ZCoreLockObject(a, "a", 1), AF_S_OK);
  KxResult onB = AF_E_FAIL;
  std::thread other([&] {
    onB = ZCoreTryLockObject(b, "b", 2);
    ZCoreUnlockObject(b);
  });
  other.join();
  EXPECT_EQ(onB, AF_S_OK);
  ZCoreUnlockObject(a);
  a->Release();
  b->Release();
}

}  // namespace
