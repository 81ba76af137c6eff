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

// Template 203 of the resource module, "File Information", and its controls.
constexpr int ZCORE_DIALOG_FILE_INFO = 203;
constexpr int ZCORE_ID_OK = 1;            // button "OK"
constexpr int ZCORE_ID_CANCEL = 2;        // button "Cancel"
constexpr int ZCORE_ID_INFO_TEXT = 1000;  // edit: the information text
constexpr int ZCORE_ID_GENRE = 1002;      // combo box: genre
constexpr int ZCORE_ID_FILE_NAME = 1009;  // static: file name
constexpr int ZCORE_ID_TITLE = 1010;      // edits: the tag fields
constexpr int ZCORE_ID_ARTIST = 1011;
constexpr int ZCORE_ID_ALBUM = 1012;
constexpr int ZCORE_ID_TRACK = 1013;
constexpr int ZCORE_ID_YEAR = 1014;
constexpr int ZCORE_ID_COMMENT = 1015;

extern "C" {

// 18: allocate `bytes` of kind ZMEM_PLAIN or ZMEM_ZEROED; 16-byte aligned; null on
// failure or for any other kind. 0 bytes gives a valid (empty) block.
KXCORE_API void* ZCoreAlloc(uint32_t kind, std::size_t bytes);
// 19: free a block of ZCoreAlloc / ZCoreRealloc (null is ignored). A pointer that is
// not a live core block (freed twice, or from another allocator) stops the process
// with a message, as it is a bug of the caller.
KXCORE_API void ZCoreFree(void* block);
// 22: resize a block, keeping its kind (a null block allocates a ZMEM_PLAIN one); bytes
// added to a ZMEM_ZEROED block are zero; 0 bytes keeps an empty block (it is not freed).
// On failure returns null and leaves the block untouched.
KXCORE_API void* ZCoreRealloc(void* block, std::size_t bytes);
// Size and kind of a live core block (0 for null), for checks and tests.
KXCORE_API size_t ZCoreBlockSize(const void* block);
KXCORE_API uint32_t ZCoreBlockKind(const void* block);

// 32: create a new object of kind `kind` (FOURCC_ZSNF: file stream) and return its
// interface `iface` (0 or FOURCC_ZSTM for a stream; both give the Class_ZStream*) with
// one reference in *out. Unknown kind: ZS_E_UNKNOWN_KIND; unknown interface:
// AF_E_UNSUPPORTED; null out: AF_E_POINTER; *out is null on failure.
//
// The file stream's Create takes a ZStreamOpenRecord: mode ZS_MODE_READ opens an
// existing regular file read-only, ZS_MODE_WRITE creates or truncates one read-write;
// the source is a UTF-16 path (opened as UTF-8). Failures: ZS_E_INVALID_ARG (null or
// malformed record, null source), ZS_E_NOT_FOUND (missing file, empty path, a
// directory or other non-regular file), ZS_E_ACCESS (permission denied),
// AF_E_ALREADY_CREATED (opened twice). An empty file opens (its size is 0). The name
// is the path as given, cut to ZS_NAME_CHARS - 1 units. Access mode 1 allows reads,
// access mode 2 reads and writes (GetOpenMode: ZS_OPEN_READ, or both bits); writes,
// SetEnd in mode 1 give ZS_E_ACCESS, as does switching a read-only stream to mode 2.
// A write past the end of the bounds extends them; SetEnd truncates the file (and
// the bounds) at the position. Calls before Create give ZS_E_NOT_OPEN.
KXCORE_API KxResult ZCoreCreateObject(uint32_t kind, uint32_t iface, void** out);

// 33 / 34: interface registry. Registers `object` (its ZCOM part `zcom`) under `fourcc`
// (AF_E_POINTER for a null object or zcom). An object may hold several registrations;
// unregistering takes back its most recent one (AF_E_FAIL when it has none).
KXCORE_API KxResult ZCoreRegisterInterface(void* object, Class_ZCOM* zcom, uint32_t fourcc, void* arg);
KXCORE_API KxResult ZCoreUnregisterInterface(void* object);
// Host side of the registry: number of registrations of `object` (0 when none).
KXCORE_API uint32_t ZCoreInterfaceCount(const void* object);
// Host side: is `object` registered under `fourcc`? Gives its zcom and arg (may be null).
KXCORE_API int ZCoreHasInterface(const void* object, uint32_t fourcc, Class_ZCOM** zcom, void** arg);

// 39 / 40: modeless-dialog list used for message routing. A dialog is listed once
// however often it is registered; unregistering one not listed gives AF_E_FAIL; null
// gives AF_E_POINTER.
KXCORE_API KxResult ZCoreRegisterModelessDialog(HWND dialog);
KXCORE_API KxResult ZCoreUnregisterModelessDialog(HWND dialog);
// Host side: is `dialog` in the list? How many are?
KXCORE_API int ZCoreIsModelessDialog(HWND dialog);
KXCORE_API int ZCoreModelessDialogCount(void);
// Host side, the routing step of a message loop: offers `message` (a system MSG) to
// each listed dialog (IsDialogMessageW); 1 when one took it, and then the loop neither
// translates nor dispatches it. Headless dialogs take no messages: 0.
KXCORE_API int ZCoreIsDialogMessage(void* message);

// 43 / 45: lock / unlock an object (recursive; really excludes other threads).
// `file` and `line` name the caller for diagnostics.
KXCORE_API KxResult ZCoreLockObject(Class_ZCOM* object, const char* file, int line);
KXCORE_API KxResult ZCoreUnlockObject(Class_ZCOM* object);
// Non-blocking variant used by Class_ZCOM::TryLockObject; AF_E_FAIL when held elsewhere.
KXCORE_API KxResult ZCoreTryLockObject(Class_ZCOM* object, const char* file, int line);
// Lock and unlock give AF_E_FAIL for a null object; unlock also when the calling thread
// does not hold the lock.
// Diagnostics: 1 when the object's lock is held; the holder's first source location
// and its recursion depth (any pointer may be null).
KXCORE_API int ZCoreGetLockOwner(Class_ZCOM* object, const char** file, int* line, uint32_t* depth);

// 63: UTF-8 to UTF-16. With dst null returns the number of UTF-16 units needed for
// `srcBytes` bytes of `src` (srcBytes < 0: up to and including the terminator).
// Otherwise converts at most `capacity` units and returns the count written (when the
// text is longer, its first units, never half a surrogate pair, and no terminator
// beyond those the source had). Invalid sequences (maximal invalid subparts) become
// U+FFFD; code points above U+FFFF become surrogate pairs. Null src or 0 bytes: 0.
KXCORE_API int32_t ZCoreUtf8ToUtf16(char16_t* dst, int32_t capacity, const char* src, int32_t srcBytes);

// 65: the host's dialog routine, called by a plug-in's dialog procedure at the end of
// its initialisation (the host applies its look and registers the dialog). Here: on
// WM_INITDIALOG it adds the dialog to the modeless-dialog list, on WM_DESTROY it takes
// it out; it always answers 0.
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
// Bytes of the live blocks (block sizes as asked, headers not counted), the most
// there have been since the last reset, and the reset, which sets that most to
// the bytes live now. Process-wide: measure from one thread at a time.
KXCORE_API int64_t ZCoreLiveBytes(void);
KXCORE_API int64_t ZCorePeakLiveBytes(void);
KXCORE_API void ZCoreResetPeakLiveBytes(void);

}  // extern "C"
