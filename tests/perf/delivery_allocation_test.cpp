// DecodeToPCMData allocates nothing once Create has run: not through the core
// library (its allocation counter), not through operator new and not through malloc
// (both replaced in this executable by counting versions). Files whose frame count
// is known, so that the frame index never has to grow; 16-bit and float output;
// requests smaller than a frame, of odd sizes and of many frames; after a seek and a
// rewind too.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "engine/tables.h"
#include "host/kxcore.h"
#include "plugin/kxmp3.h"
#include "support/memory_stream.h"

namespace {

std::atomic<uint64_t> gNewCalls{0};
std::atomic<uint64_t> gMallocCalls{0};

void* CountedNew(std::size_t bytes) {
  gNewCalls.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(bytes == 0 ? 1 : bytes)) return p;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t bytes) { return CountedNew(bytes); }
void* operator new[](std::size_t bytes) { return CountedNew(bytes); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

// malloc and its relatives, counted and passed to the C library's own. Left out
// under the sanitizers, whose run-time libraries own these names.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);

void* malloc(size_t bytes) {
  gMallocCalls.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(bytes);
}
void* calloc(size_t count, size_t bytes) {
  gMallocCalls.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, bytes);
}
void* realloc(void* p, size_t bytes) {
  gMallocCalls.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(p, bytes);
}
void* aligned_alloc(size_t alignment, size_t bytes) {
  gMallocCalls.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, bytes);
}
void* memalign(size_t alignment, size_t bytes) {
  gMallocCalls.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, bytes);
}
int posix_memalign(void** out, size_t alignment, size_t bytes) {
  gMallocCalls.fetch_add(1, std::memory_order_relaxed);
  void* p = __libc_memalign(alignment, bytes);
  if (p == nullptr) return 12;  // ENOMEM
  *out = p;
  return 0;
}
void free(void* p) { __libc_free(p); }
}
constexpr bool kMallocCounted = true;
#else
constexpr bool kMallocCounted = false;
#endif

namespace {

class TablesEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { kxmp3::InitDecoderTables(); }
};
const ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new TablesEnvironment);

struct Counts {
  uint64_t core = ZCoreAllocationCount();
  uint64_t news = gNewCalls.load();
  uint64_t mallocs = gMallocCalls.load();
};

Class_KXMP3* OpenFixture(const std::string& name, uint32_t bits) {
  auto bytes = kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + name);
  if (bytes.empty()) return nullptr;
  Class_ZCOM* object = nullptr;
  if (CreateInstance_KXMP3(&object) != AF_S_OK) return nullptr;
  auto* decoder = dynamic_cast<Class_KXMP3*>(object);
  OpenParams params{};
  params.tag = FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = OPEN_FLAG_STREAM;
  params.source = kxtest::MemoryStream::Make(std::move(bytes), u"memory.mp3");
  params.requestedBits = bits;
  if (decoder->Create(&params) != AF_S_OK) {
    decoder->Release();
    return nullptr;
  }
  return decoder;
}

// Reads to the end in requests cycling through `sizes`; returns the bytes read and
// gives the allocation counts just before and just after the reading. Nothing in the
// loop allocates but what the decoder might.
uint64_t ReadToEnd(Class_KXMP3* decoder, const std::vector<int32_t>& sizes, std::vector<uint8_t>& buffer,
                   Counts& before, Counts& after) {
  uint64_t total = 0;
  size_t k = 0;
  before = Counts{};
  for (int calls = 0; calls < 1000000; ++calls) {
    int32_t written = 0;
    const KxResult rc = decoder->DecodeToPCMData(buffer.data(), sizes[k++ % sizes.size()], &written);
    total += static_cast<uint64_t>(written);
    if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR) break;
  }
  after = Counts{};
  return total;
}

void ExpectNoAllocation(const Counts& before, const Counts& after, const std::string& what) {
  EXPECT_EQ(after.core, before.core) << what << ": core-library allocations";
  EXPECT_EQ(after.news, before.news) << what << ": operator new";
  if (kMallocCounted) {
    EXPECT_EQ(after.mallocs, before.mallocs) << what << ": malloc";
  }
}

TEST(DeliveryAllocation, TheCountersSeeAllocations) {
  // The counters work: one allocation of each kind is seen.
  const Counts before;
  void* core = ZCoreAlloc(1, 64);
  auto* object = new int(3);
  void* block = std::malloc(32);
  // The pointers escape, so that no compiler removes a paired allocation and
  // release (clang does, as the language allows).
  asm volatile("" : : "r"(object), "r"(block) : "memory");
  const Counts after;
  ZCoreFree(core);
  delete object;
  std::free(block);
  EXPECT_EQ(after.core, before.core + 1);
  EXPECT_GE(after.news, before.news + 1);
  if (kMallocCounted) {
    EXPECT_GE(after.mallocs, before.mallocs + 2);  // new goes through malloc too
  }
}

TEST(DeliveryAllocation, DecodingToTheEndAllocatesNothing) {
  const std::vector<std::vector<int32_t>> patterns = {
      {4608}, {65540}, {1000, 3, 17000, 4607, 4609}, {1}, {18432 * 3 + 8}};
  for (const char* name : {"m1_44100_joint_cbr.mp3", "m1_44100_joint_vbr_long.mp3", "m2_24000_joint_vbr.mp3",
                           "m1_32000_mono_abr.mp3", "m1_44100_emph5015.mp3", "m25_8000_joint_abr.mp3"}) {
    for (uint32_t bits : {16u, 64u}) {
      for (const auto& sizes : patterns) {
        Class_KXMP3* decoder = OpenFixture(name, bits);
        ASSERT_NE(decoder, nullptr) << name;
        std::vector<uint8_t> buffer(70000);
        Counts before, after;
        const uint64_t total = ReadToEnd(decoder, sizes, buffer, before, after);
        const std::string what = std::string(name) + ", " + std::to_string(bits) + "-bit, first request " +
                                 std::to_string(sizes[0]);
        EXPECT_GT(total, 10000u) << what;
        ExpectNoAllocation(before, after, what);
        decoder->Release();
      }
    }
  }
}

TEST(DeliveryAllocation, DecodingAfterASeekAndARewindAllocatesNothing) {
  for (uint32_t bits : {16u, 64u}) {
    Class_KXMP3* decoder = OpenFixture("m1_44100_joint_vbr_long.mp3", bits);
    ASSERT_NE(decoder, nullptr);
    std::vector<uint8_t> buffer(70000);
    QWUNION target{};
    target.u = 3 * 44100 * 2 * (bits / 8);  // three seconds in
    ASSERT_EQ(decoder->SetCurrentPosition(target, AF_ORIGIN_START), AF_S_OK);
    Counts before, after;
    EXPECT_GT(ReadToEnd(decoder, {4608, 333}, buffer, before, after), 10000u);
    ExpectNoAllocation(before, after, "after a seek");
    ASSERT_EQ(decoder->Rewind(), AF_S_OK);
    EXPECT_GT(ReadToEnd(decoder, {65540}, buffer, before, after), 10000u);
    ExpectNoAllocation(before, after, "after a rewind");
    decoder->Release();
  }
}

}  // namespace
