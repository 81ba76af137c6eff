// The core allocator: kinds 1 and 5, 16-byte alignment, growth of zero-filled blocks
// on reallocation, and the allocation counters.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "host/kxcore.h"

namespace {

bool AllZero(const void* p, size_t n) {
  const auto* b = static_cast<const uint8_t*>(p);
  for (size_t i = 0; i < n; ++i) {
    if (b[i] != 0) return false;
  }
  return true;
}

TEST(Allocator, BothKindsAreSixteenByteAligned) {
  for (uint32_t kind : {ZMEM_PLAIN, ZMEM_ZEROED}) {
    for (size_t bytes : {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{17}, size_t{4096}, size_t{25616}}) {
      void* p = ZCoreAlloc(kind, bytes);
      ASSERT_NE(p, nullptr) << kind << " " << bytes;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << kind << " " << bytes;
      EXPECT_EQ(ZCoreBlockSize(p), bytes);
      EXPECT_EQ(ZCoreBlockKind(p), kind);
      ZCoreFree(p);
    }
  }
}

TEST(Allocator, KindFiveIsZeroFilledEvenWhenMemoryIsReused) {
  for (int round = 0; round < 20; ++round) {
    void* dirty = ZCoreAlloc(ZMEM_PLAIN, 4096);
    std::memset(dirty, 0xA5, 4096);
    ZCoreFree(dirty);
    void* clean = ZCoreAlloc(ZMEM_ZEROED, 4096);
    ASSERT_NE(clean, nullptr);
    EXPECT_TRUE(AllZero(clean, 4096));
    ZCoreFree(clean);
  }
}

TEST(Allocator, OtherKindsAreRefused) {
  const uint64_t count = ZCoreAllocationCount();
  const int64_t live = ZCoreLiveBlocks();
  for (uint32_t kind : {0u, 2u, 3u, 4u, 6u, 0xFFFFFFFFu}) EXPECT_EQ(ZCoreAlloc(kind, 16), nullptr) << kind;
  EXPECT_EQ(ZCoreAllocationCount(), count);
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(Allocator, ImpossibleSizesFail) {
  EXPECT_EQ(ZCoreAlloc(ZMEM_PLAIN, SIZE_MAX), nullptr);
  EXPECT_EQ(ZCoreAlloc(ZMEM_ZEROED, SIZE_MAX - 8), nullptr);
  void* p = ZCoreAlloc(ZMEM_PLAIN, 8);
  std::memcpy(p, "12345678", 8);
  EXPECT_EQ(ZCoreRealloc(p, SIZE_MAX), nullptr);
  EXPECT_EQ(std::memcmp(p, "12345678", 8), 0);  // untouched after a failed resize
  ZCoreFree(p);
}

TEST(Allocator, CountersFollowAllocationsAndFrees) {
  const uint64_t count = ZCoreAllocationCount();
  const int64_t live = ZCoreLiveBlocks();
  std::vector<void*> blocks;
  for (int i = 0; i < 10; ++i) blocks.push_back(ZCoreAlloc(i % 2 ? ZMEM_PLAIN : ZMEM_ZEROED, 100 + i));
  EXPECT_EQ(ZCoreAllocationCount(), count + 10);
  EXPECT_EQ(ZCoreLiveBlocks(), live + 10);
  blocks[0] = ZCoreRealloc(blocks[0], 5000);  // a resize is not a new block
  EXPECT_EQ(ZCoreAllocationCount(), count + 10);
  EXPECT_EQ(ZCoreLiveBlocks(), live + 10);
  for (void* b : blocks) ZCoreFree(b);
  EXPECT_EQ(ZCoreLiveBlocks(), live);
  EXPECT_EQ(ZCoreAllocationCount(), count + 10);  // counts every allocation ever made
  ZCoreFree(nullptr);                              // ignored
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(Allocator, ReallocZeroFillsTheGrowthOfKindFive) {
  auto* p = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, 10));
  std::memset(p, 0x5A, 10);
  size_t size = 10;
  // Grow in many steps, so the block moves several times.
  for (size_t next : {size_t{33}, size_t{1000}, size_t{70000}, size_t{1 << 20}}) {
    p = static_cast<uint8_t*>(ZCoreRealloc(p, next));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    for (size_t i = 0; i < 10; ++i) ASSERT_EQ(p[i], 0x5A) << "kept byte " << i;
    EXPECT_TRUE(AllZero(p + 10, next - 10)) << "growth to " << next;
    EXPECT_EQ(ZCoreBlockKind(p), ZMEM_ZEROED);
    size = next;
  }
  // Shrink, dirty the rest, grow again: the new growth is zero again.
  p = static_cast<uint8_t*>(ZCoreRealloc(p, 20));
  std::memset(p + 10, 0x77, 10);
  p = static_cast<uint8_t*>(ZCoreRealloc(p, 4000));
  EXPECT_EQ(p[19], 0x77);
  EXPECT_TRUE(AllZero(p + 20, 4000 - 20));
  (void)size;
  ZCoreFree(p);
}

TEST(Allocator, ReallocOfKindOneKeepsTheContents) {
  auto* p = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, 100));
  for (int i = 0; i < 100; ++i) p[i] = static_cast<uint8_t>(i);
  p = static_cast<uint8_t*>(ZCoreRealloc(p, 100000));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(p[i], i);
  EXPECT_EQ(ZCoreBlockKind(p), ZMEM_PLAIN);
  ZCoreFree(p);
}

TEST(Allocator, ReallocOfNullAllocatesAndToZeroKeepsABlock) {
  const int64_t live = ZCoreLiveBlocks();
  void* p = ZCoreRealloc(nullptr, 64);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(ZCoreLiveBlocks(), live + 1);
  EXPECT_EQ(ZCoreBlockKind(p), ZMEM_PLAIN);
  p = ZCoreRealloc(p, 0);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(ZCoreBlockSize(p), 0u);
  EXPECT_EQ(ZCoreLiveBlocks(), live + 1);
  ZCoreFree(p);
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(AllocatorDeathTest, FreeingAForeignPointerStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        alignas(16) static uint8_t foreign[64] = {};
        ZCoreFree(foreign + 16);
      },
      "not a live core memory block");
}

}  // namespace
