// Class_ZCOM: reference counting, the release path (ResetData, then deletion),
// identity, QueryInterface of the base, copies, and the class's own allocation.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/kxcore.h"
#include "host/zcom.h"

namespace {

constexpr uint32_t kTestFourCC = MakeFourCC('T', 'E', 'S', 'T');

// Records the calls of the release path in a log the test owns.
class Probe : public Class_ZCOM {
 public:
  explicit Probe(std::vector<std::string>* log) : log_(log) { SetCoreData(sizeof(Probe), kTestFourCC); }
  Probe(const Probe& other) = default;
  ~Probe() override {
    if (log_ != nullptr) log_->push_back("destructor");
  }
  KxResult ResetData() override {
    if (log_ != nullptr) log_->push_back("ResetData");
    return Class_ZCOM::ResetData();
  }
  void MarkCreated() { SetCreatedFlag(1); }
  uint8_t raw[256];  // left uninitialised: the allocation must have zeroed it

 private:
  std::vector<std::string>* log_;
};

TEST(Zcom, StartsWithOneReference) {
  std::vector<std::string> log;
  auto* p = new Probe(&log);
  EXPECT_EQ(p->GetRefCount(), 1u);
  EXPECT_EQ(p->IsCreated(), 0u);
  EXPECT_EQ(p->GetFourCC(), kTestFourCC);
  EXPECT_EQ(p->ObjectSize(), sizeof(Probe));
  EXPECT_EQ(p->Release(), 0u);
}

TEST(Zcom, LastReleaseResetsThenDeletes) {
  std::vector<std::string> log;
  auto* p = new Probe(&log);
  EXPECT_EQ(p->AddRef(), 2u);
  EXPECT_EQ(p->AddRef(), 3u);
  EXPECT_EQ(p->Release(), 2u);
  EXPECT_EQ(p->Release(), 1u);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(p->Release(), 0u);
  EXPECT_EQ(log, (std::vector<std::string>{"ResetData", "destructor"}));
}

TEST(Zcom, SafeAddRefAndDecRef) {
  std::vector<std::string> log;
  auto* p = new Probe(&log);
  EXPECT_EQ(p->SafeAddRef(), 2u);
  EXPECT_EQ(p->DecRef(), 1u);
  EXPECT_EQ(p->DecRef(), 0u);  // never deletes
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(p->SafeAddRef(), 0u);  // a dead object cannot be revived
  EXPECT_EQ(p->GetRefCount(), 0u);
  EXPECT_EQ(p->DecRef(), 0u);   // does not go below zero
  EXPECT_EQ(p->Release(), 0u);  // releasing a dead object does nothing
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(p->DeleteInstance(), AF_S_OK);
  EXPECT_EQ(log, (std::vector<std::string>{"destructor"}));
}

TEST(Zcom, BaseQueryInterface) {
  auto* p = new Probe(nullptr);
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(p->QueryInterface(kTestFourCC, &out), AF_S_OK);
  EXPECT_EQ(out, static_cast<Class_ZCOM*>(p));
  EXPECT_EQ(p->GetRefCount(), 2u);
  out = nullptr;
  EXPECT_EQ(p->QueryInterface(0, &out), AF_S_OK);
  EXPECT_EQ(out, static_cast<Class_ZCOM*>(p));
  EXPECT_EQ(p->GetRefCount(), 3u);
  out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(p->QueryInterface(FOURCC_ZMP3, &out), AF_E_UNSUPPORTED);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(p->GetRefCount(), 3u);
  EXPECT_EQ(p->QueryInterface(kTestFourCC, nullptr), AF_E_POINTER);
  EXPECT_EQ(p->GetRefCount(), 3u);
  p->Release();
  p->Release();
  p->Release();
}

TEST(Zcom, BaseOperationsSucceed) {
  auto* p = new Probe(nullptr);
  EXPECT_EQ(p->Create(nullptr), AF_S_OK);
  EXPECT_EQ(p->ResetData(), AF_S_OK);
  EXPECT_EQ(p->AddInterface(nullptr), AF_S_OK);
  EXPECT_EQ(p->DeleteInterface(), AF_S_OK);
  EXPECT_EQ(ZCoreInterfaceCount(p), 0u);  // the bare base registers nothing
  p->SetCoreData(1234, FOURCC_ZMP3);
  EXPECT_EQ(p->GetFourCC(), FOURCC_ZMP3);
  EXPECT_EQ(p->ObjectSize(), 1234u);
  p->MarkCreated();
  EXPECT_EQ(p->IsCreated(), 1u);
  p->Release();
}

TEST(Zcom, AllocatedZeroFilledFromCoreMemory) {
  const int64_t live = ZCoreLiveBlocks();
  for (int round = 0; round < 10; ++round) {
    // Dirty memory of the same size first, so a reused block would show.
    void* dirty = ZCoreAlloc(ZMEM_PLAIN, sizeof(Probe));
    std::memset(dirty, 0xEE, sizeof(Probe));
    ZCoreFree(dirty);
    auto* p = new Probe(nullptr);
    EXPECT_EQ(ZCoreLiveBlocks(), live + 1);
    EXPECT_EQ(ZCoreBlockKind(static_cast<Class_ZCOM*>(p)), ZMEM_ZEROED);
    for (uint8_t b : p->raw) ASSERT_EQ(b, 0);
    p->Release();
    EXPECT_EQ(ZCoreLiveBlocks(), live);
  }
}

TEST(Zcom, NothrowAndPlacementForms) {
  const int64_t live = ZCoreLiveBlocks();
  auto* p = new (std::nothrow) Probe(nullptr);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(ZCoreLiveBlocks(), live + 1);
  p->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), live);
  alignas(16) unsigned char storage[sizeof(Probe)];
  auto* q = new (storage) Probe(nullptr);
  EXPECT_EQ(static_cast<void*>(q), storage);
  EXPECT_EQ(ZCoreLiveBlocks(), live);
  q->~Probe();
}

TEST(Zcom, CopyTakesIdentityOnly) {
  auto* original = new Probe(nullptr);
  original->AddRef();
  original->MarkCreated();
  ASSERT_EQ(original->LockObject("zcom_test", 1), AF_S_OK);
  auto* copy = new Probe(*original);
  EXPECT_EQ(copy->GetRefCount(), 1u);
  EXPECT_EQ(copy->IsCreated(), 0u);
  EXPECT_EQ(copy->GetFourCC(), kTestFourCC);
  EXPECT_EQ(copy->ObjectSize(), sizeof(Probe));
  // Its lock is its own: free although the original's is held.
  EXPECT_EQ(ZCoreGetLockOwner(copy, nullptr, nullptr, nullptr), 0);
  original->UnLockObject();

  // Assignment takes the identity and keeps the target's count and created flag.
  auto* target = new Probe(nullptr);
  target->SetCoreData(8, FOURCC_ZSNF);
  target->AddRef();
  static_cast<Class_ZCOM&>(*target) = static_cast<const Class_ZCOM&>(*original);
  EXPECT_EQ(target->GetFourCC(), kTestFourCC);
  EXPECT_EQ(target->ObjectSize(), sizeof(Probe));
  EXPECT_EQ(target->GetRefCount(), 2u);
  EXPECT_EQ(target->IsCreated(), 0u);
  target->Release();
  target->Release();
  copy->Release();
  original->Release();
  original->Release();
}

}  // namespace
