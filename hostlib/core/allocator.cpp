// The core allocator (ordinals 18, 19, 22). Every block carries a 16-byte header in
// front of it that remembers its size and kind, so that ZCoreRealloc can zero the
// growth of a zero-filled (kind 5) block, and so that ZCoreFree can tell a core
// block from a foreign pointer. The header keeps the 16-byte alignment of the C
// library's allocator for the block itself, which the SSE2 kernels rely on.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/kxcore.h"

namespace {

constexpr uint32_t kMagic = 0x4B58434Du;  // "MCXK": a live core block
constexpr uint32_t kFreed = 0x44454546u;  // "FEED": a block already freed

struct alignas(16) BlockHeader {
  uint64_t size;
  uint32_t kind;
  uint32_t magic;
};
static_assert(sizeof(BlockHeader) == 16);
static_assert(alignof(std::max_align_t) >= 16, "the C allocator must return 16-byte aligned memory");

std::atomic<uint64_t> g_allocations{0};
std::atomic<int64_t> g_live{0};
std::atomic<int64_t> g_liveBytes{0};
std::atomic<int64_t> g_peakBytes{0};

// Counts `delta` bytes in or out of the live total and raises the peak with it.
void CountBytes(int64_t delta) {
  const int64_t now = g_liveBytes.fetch_add(delta, std::memory_order_relaxed) + delta;
  int64_t peak = g_peakBytes.load(std::memory_order_relaxed);
  while (now > peak && !g_peakBytes.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
}

BlockHeader* HeaderOf(void* block) {
  auto* header = reinterpret_cast<BlockHeader*>(static_cast<unsigned char*>(block) - sizeof(BlockHeader));
  if (header->magic != kMagic) {
    std::fprintf(stderr, "KXLibCore: %p is not a live core memory block%s\n", block,
                 header->magic == kFreed ? " (freed twice)" : "");
    std::abort();
  }
  return header;
}

}  // namespace

extern "C" {

void* ZCoreAlloc(uint32_t kind, std::size_t bytes) {
  if (kind != ZMEM_PLAIN && kind != ZMEM_ZEROED) return nullptr;
  if (bytes > SIZE_MAX - sizeof(BlockHeader)) return nullptr;
  void* raw = kind == ZMEM_ZEROED ? std::calloc(1, sizeof(BlockHeader) + bytes) : std::malloc(sizeof(BlockHeader) + bytes);
  if (raw == nullptr) return nullptr;
  auto* header = static_cast<BlockHeader*>(raw);
  header->size = bytes;
  header->kind = kind;
  header->magic = kMagic;
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  g_live.fetch_add(1, std::memory_order_relaxed);
  CountBytes(static_cast<int64_t>(bytes));
  return header + 1;
}

void ZCoreFree(void* block) {
  if (block == nullptr) return;
  BlockHeader* header = HeaderOf(block);
  header->magic = kFreed;
  g_live.fetch_sub(1, std::memory_order_relaxed);
  CountBytes(-static_cast<int64_t>(header->size));
  std::free(header);
}

void* ZCoreRealloc(void* block, std::size_t bytes) {
  if (block == nullptr) return ZCoreAlloc(ZMEM_PLAIN, bytes);
  if (bytes > SIZE_MAX - sizeof(BlockHeader)) return nullptr;
  BlockHeader* header = HeaderOf(block);
  const uint64_t oldSize = header->size;
  const uint32_t kind = header->kind;
  auto* moved = static_cast<BlockHeader*>(std::realloc(header, sizeof(BlockHeader) + bytes));
  if (moved == nullptr) return nullptr;  // the old block is untouched
  moved->size = bytes;
  CountBytes(static_cast<int64_t>(bytes) - static_cast<int64_t>(oldSize));
  if (kind == ZMEM_ZEROED && bytes > oldSize) {
    std::memset(reinterpret_cast<unsigned char*>(moved + 1) + oldSize, 0, bytes - oldSize);
  }
  return moved + 1;
}

uint64_t ZCoreAllocationCount(void) { return g_allocations.load(); }

int64_t ZCoreLiveBlocks(void) { return g_live.load(); }

int64_t ZCoreLiveBytes(void) { return g_liveBytes.load(); }

int64_t ZCorePeakLiveBytes(void) { return g_peakBytes.load(); }

void ZCoreResetPeakLiveBytes(void) { g_peakBytes.store(g_liveBytes.load()); }

size_t ZCoreBlockSize(const void* block) {
  if (block == nullptr) return 0;
  return static_cast<size_t>(HeaderOf(const_cast<void*>(block))->size);
}

uint32_t ZCoreBlockKind(const void* block) {
  if (block == nullptr) return 0;
  return HeaderOf(const_cast<void*>(block))->kind;
}

}  // extern "C"
