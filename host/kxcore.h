// Functions of the host core library (KXLibCore). On Windows the plug-ins import
// them by ordinal; the ordinal of each is given with it, and ZCoreGetProcByOrdinal
// resolves an ordinal to the function at run time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kx_export.h"
#include "kx_result_codes.h"
#include "kx_types.h"

class Class_ZCOM;

// Allocation kinds.
constexpr uint32_t ZMEM_PLAIN = 1;   // contents undefined
constexpr uint32_t ZMEM_ZEROED = 5;  // zero-filled

extern "C" {

// 18: allocate `bytes` of kind ZMEM_PLAIN or ZMEM_ZEROED; 16-byte aligned; null on failure.
KXCORE_API void* ZCoreAlloc(uint32_t kind, std::size_t bytes);
// 19: free a block of ZCoreAlloc / ZCoreRealloc (null is ignored).
KXCORE_API void ZCoreFree(void* block);
// 22: resize a block (null block allocates); bytes added to a ZMEM_ZEROED block are zero.
// On failure returns null and leaves the block untouched.
KXCORE_API void* ZCoreRealloc(void* block, std::size_t bytes);

// 32: create a new object of kind `kind` (FOURCC_ZSNF: file stream) and return its
// interface `iface` (0 or FOURCC_ZSTM for a stream) with one reference in *out.
KXCORE_API KxResult ZCoreCreateObject(uint32_t kind, uint32_t iface, void** out);

// 33 / 34: interface registry. Registers `object` (its ZCOM part `zcom`) under `fourcc`.
KXCORE_API KxResult ZCoreRegisterInterface(void* object, Class_ZCOM* zcom, uint32_t fourcc, void* arg);
KXCORE_API KxResult ZCoreUnregisterInterface(void* object);
// Host side of the registry: number of registrations of `object` (0 when none).
KXCORE_API uint32_t ZCoreInterfaceCount(const void* object);

// 39 / 40: modeless-dialog list used for message routing.
KXCORE_API KxResult ZCoreRegisterModelessDialog(HWND dialog);
KXCORE_API KxResult ZCoreUnregisterModelessDialog(HWND dialog);
// Host side: is `dialog` in the list?
KXCORE_API int ZCoreIsModelessDialog(HWND dialog);

// 43 / 45: lock / unlock an object (recursive; really excludes other threads).
// `file` and `line` name the caller for diagnostics.
KXCORE_API KxResult ZCoreLockObject(Class_ZCOM* object, const char* file, int line);
KXCORE_API KxResult ZCoreUnlockObject(Class_ZCOM* object);
// Non-blocking variant used by Class_ZCOM::TryLockObject; AF_E_FAIL when held elsewhere.
KXCORE_API KxResult ZCoreTryLockObject(Class_ZCOM* object, const char* file, int line);

// 63: UTF-8 to UTF-16. With dst null returns the number of UTF-16 units needed for
// `srcBytes` bytes of `src` (srcBytes < 0: up to and including the terminator).
// Otherwise converts at most `capacity` units and returns the count written.
// Invalid sequences become U+FFFD.
KXCORE_API int32_t ZCoreUtf8ToUtf16(char16_t* dst, int32_t capacity, const char* src, int32_t srcBytes);

// 65: the host's dialog routine, called by a plug-in's dialog procedure at the end of
// its initialisation (the host applies its look and registers the dialog).
KXCORE_API intptr_t ZCoreDialogRoutine(HWND dialog, uint32_t message, uintptr_t wParam, intptr_t lParam);

// 80: the module that holds the host's dialog templates (template 203: file information).
KXCORE_API HMODULE ZCoreResourceModule(void);

// 84: a * b / c with a 128-bit intermediate, truncated toward zero; c == 0 gives 0,
// a result outside the 64-bit range saturates.
KXCORE_API int64_t ZCoreMulDiv64(int64_t a, int64_t b, int64_t c);

// Resolves an ordinal above to its function (null for an unknown ordinal).
KXCORE_API void* ZCoreGetProcByOrdinal(uint32_t ordinal);

// Diagnostics for tests and tools: blocks allocated so far and blocks still live.
KXCORE_API uint64_t ZCoreAllocationCount(void);
KXCORE_API int64_t ZCoreLiveBlocks(void);

}  // extern "C"
