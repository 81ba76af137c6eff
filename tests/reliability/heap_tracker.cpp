// The global operator new and delete of the reliability suite (see heap_tracker.h):
// plain malloc and free, with the block sizes (as the C library reports them)
// counted in and out of a live total and its peak.
#include "heap_tracker.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int64_t> gLive{0};
std::atomic<int64_t> gPeak{0};

void Count(int64_t delta) {
  const int64_t now = gLive.fetch_add(delta, std::memory_order_relaxed) + delta;
  int64_t peak = gPeak.load(std::memory_order_relaxed);
  while (now > peak && !gPeak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
}

void* Allocate(std::size_t bytes) {
  void* p = std::malloc(bytes == 0 ? 1 : bytes);
  if (p == nullptr) throw std::bad_alloc();
  Count(static_cast<int64_t>(malloc_usable_size(p)));
  return p;
}

void Free(void* p) noexcept {
  if (p == nullptr) return;
  Count(-static_cast<int64_t>(malloc_usable_size(p)));
  std::free(p);
}

}  // namespace

namespace kxrel {

int64_t HeapLiveBytes() { return gLive.load(); }
int64_t HeapPeakBytes() { return gPeak.load(); }
void ResetHeapPeak() { gPeak.store(gLive.load()); }

}  // namespace kxrel

void* operator new(std::size_t bytes) { return Allocate(bytes); }
void* operator new[](std::size_t bytes) { return Allocate(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return Allocate(bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return Allocate(bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* p) noexcept { Free(p); }
void operator delete[](void* p) noexcept { Free(p); }
void operator delete(void* p, std::size_t) noexcept { Free(p); }
void operator delete[](void* p, std::size_t) noexcept { Free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Free(p); }
