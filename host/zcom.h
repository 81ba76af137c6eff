// Class_ZCOM: the reference-counted object base of the host core library.
//
// Counting: AddRef adds one; Release removes one and, at zero, calls ResetData and
// then DeleteInstance (delete this); a Release at zero does nothing. QueryInterface
// of the base answers FourCC 0 and the object's own FourCC (set by SetCoreData)
// with `this` and a new reference, anything else with AF_E_UNSUPPORTED. Copies take
// the FourCC and size only (a copy has one reference, its own lock, and is not
// created). The object lock is recursive and excludes other threads.
//
// Every host object (streams, audio-file readers, plug-in decoder objects) derives
// from it. The virtual functions are declared in the interface's slot order; plug-ins
// override the first six and inherit the rest. Objects are allocated with the class's
// own operator new (the core library's zero-filling allocator) and start with a
// reference count of 1; the last Release calls ResetData and then DeleteInstance.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "kx_export.h"
#include "kx_result_codes.h"
#include "kx_types.h"

class KXCORE_API Class_ZCOM {
 public:
  Class_ZCOM();
  Class_ZCOM(const Class_ZCOM& other);
  Class_ZCOM& operator=(const Class_ZCOM& other);

  // Slot 1: destructor.
  virtual ~Class_ZCOM();
  // Slot 2: open / initialise the object from a parameter record.
  virtual KxResult Create(void* params);
  // Slot 3: release every resource and return to the just-constructed state.
  virtual KxResult ResetData();
  // Slot 4: ask for an interface by FourCC; on success the result holds a reference.
  virtual KxResult QueryInterface(uint32_t fourcc, void** out);
  // Slot 5 and 6: register / unregister the object in the core interface registry.
  virtual KxResult AddInterface(void* arg);
  virtual KxResult DeleteInterface();
  // Slots 7 to 18: reference counting, identity and locking.
  virtual uint32_t AddRef();
  // Adds a reference only while the object is alive (count above 0); returns the new count or 0.
  virtual uint32_t SafeAddRef();
  virtual uint32_t Release();
  virtual uint32_t GetRefCount();
  virtual KxResult DeleteInstance();
  virtual uint32_t GetFourCC();
  virtual uint32_t IsCreated();
  virtual void SetCoreData(uint32_t objectSize, uint32_t fourcc);
  // Removes a reference without ever deleting; returns the new count.
  virtual uint32_t DecRef();
  virtual KxResult LockObject(const char* file, int line);
  virtual KxResult TryLockObject(const char* file, int line);
  virtual KxResult UnLockObject();

  // Core-library allocation (zero-filled) for every object of the family. The plain
  // form throws std::bad_alloc on failure; the nothrow form returns null. Placement
  // new constructs in memory the caller provides (and frees).
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
  static void* operator new(std::size_t, void* where) noexcept { return where; }
  static void operator delete(void* p);
  static void operator delete(void* p, const std::nothrow_t&) noexcept;
  static void operator delete(void*, void*) noexcept {}

  uint32_t ObjectSize() const { return objectSize_; }

 protected:
  void SetCreatedFlag(uint32_t created) { created_ = created; }

 private:
  friend struct ZcomLockAccess;
  std::atomic<int32_t> refCount_;
  uint32_t created_ = 0;
  uint32_t fourcc_ = 0;
  uint32_t objectSize_ = 0;
  void* lock_ = nullptr;  // recursive lock owned by the core library
};
