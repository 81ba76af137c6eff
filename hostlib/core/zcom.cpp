// Class_ZCOM: reference counting, identity (FourCC, object size, created flag),
// locking through the core lock functions, and allocation from the core allocator.
// The last Release calls ResetData (the object frees what it holds) and then
// DeleteInstance (which deletes it through the virtual destructor).
#include "host/zcom.h"

#include <new>

#include "host/kxcore.h"
#include "object_lock.h"

Class_ZCOM::Class_ZCOM() : refCount_(1) { ZcomLockAccess::Set(this, new kxcore::ObjectLock); }

// A copy is a new object: it takes the identity (FourCC and size) and nothing else;
// it has one reference, its own lock, and is not created.
Class_ZCOM::Class_ZCOM(const Class_ZCOM& other)
    : refCount_(1), created_(0), fourcc_(other.fourcc_), objectSize_(other.objectSize_) {
  ZcomLockAccess::Set(this, new kxcore::ObjectLock);
}

// Assignment copies the identity only; the target keeps its references, its lock
// and its created flag.
Class_ZCOM& Class_ZCOM::operator=(const Class_ZCOM& other) {
  if (this != &other) {
    fourcc_ = other.fourcc_;
    objectSize_ = other.objectSize_;
  }
  return *this;
}

Class_ZCOM::~Class_ZCOM() {
  delete ZcomLockAccess::Get(this);
  ZcomLockAccess::Set(this, nullptr);
}

KxResult Class_ZCOM::Create(void* /*params*/) { return AF_S_OK; }

KxResult Class_ZCOM::ResetData() { return AF_S_OK; }

KxResult Class_ZCOM::QueryInterface(uint32_t fourcc, void** out) {
  if (out == nullptr) return AF_E_POINTER;
  if (fourcc == 0 || fourcc == fourcc_) {
    *out = this;
    AddRef();
    return AF_S_OK;
  }
  *out = nullptr;
  return AF_E_UNSUPPORTED;
}

// A bare object has nothing to register; derived classes register their interfaces.
KxResult Class_ZCOM::AddInterface(void* /*arg*/) { return AF_S_OK; }

KxResult Class_ZCOM::DeleteInterface() { return AF_S_OK; }

uint32_t Class_ZCOM::AddRef() { return static_cast<uint32_t>(refCount_.fetch_add(1) + 1); }

uint32_t Class_ZCOM::SafeAddRef() {
  int32_t count = refCount_.load();
  while (count > 0) {
    if (refCount_.compare_exchange_weak(count, count + 1)) return static_cast<uint32_t>(count + 1);
  }
  return 0;
}

uint32_t Class_ZCOM::Release() {
  int32_t count = refCount_.load();
  for (;;) {
    if (count <= 0) return 0;  // released too often: leave the object alone
    if (refCount_.compare_exchange_weak(count, count - 1)) break;
  }
  if (count - 1 > 0) return static_cast<uint32_t>(count - 1);
  ResetData();
  DeleteInstance();
  return 0;
}

uint32_t Class_ZCOM::GetRefCount() {
  const int32_t count = refCount_.load();
  return count > 0 ? static_cast<uint32_t>(count) : 0;
}

KxResult Class_ZCOM::DeleteInstance() {
  delete this;
  return AF_S_OK;
}

uint32_t Class_ZCOM::GetFourCC() { return fourcc_; }

uint32_t Class_ZCOM::IsCreated() { return created_; }

void Class_ZCOM::SetCoreData(uint32_t objectSize, uint32_t fourcc) {
  objectSize_ = objectSize;
  fourcc_ = fourcc;
}

uint32_t Class_ZCOM::DecRef() {
  int32_t count = refCount_.load();
  while (count > 0) {
    if (refCount_.compare_exchange_weak(count, count - 1)) return static_cast<uint32_t>(count - 1);
  }
  return 0;
}

KxResult Class_ZCOM::LockObject(const char* file, int line) { return ZCoreLockObject(this, file, line); }

KxResult Class_ZCOM::TryLockObject(const char* file, int line) { return ZCoreTryLockObject(this, file, line); }

KxResult Class_ZCOM::UnLockObject() { return ZCoreUnlockObject(this); }

void* Class_ZCOM::operator new(std::size_t size) {
  void* p = ZCoreAlloc(ZMEM_ZEROED, size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void* Class_ZCOM::operator new(std::size_t size, const std::nothrow_t&) noexcept { return ZCoreAlloc(ZMEM_ZEROED, size); }

void Class_ZCOM::operator delete(void* p) { ZCoreFree(p); }

void Class_ZCOM::operator delete(void* p, const std::nothrow_t&) noexcept { ZCoreFree(p); }
