// Internal to the core library: the few system calls of the file stream, one file per
// system (posix/file_io.cpp: open and pread; win32/file_io.cpp: CreateFileW with the
// UTF-16 name as given, ReadFile at an offset). Reads and writes name their offset,
// so the system's own file position is never used.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/kx_result_codes.h"
#include "host/zstream.h"

namespace kxcore {

// An open file: a descriptor on POSIX, a HANDLE on Windows.
using NativeFile = intptr_t;
constexpr NativeFile kNoFile = -1;

// Opens `path` (UTF-16, `units` long) for reading (ZS_MODE_READ) or creates or
// truncates it for reading and writing (ZS_MODE_WRITE); only a regular file opens.
// Gives the file and its size. Failures: ZS_E_NOT_FOUND (missing, a directory or
// other non-regular file), ZS_E_ACCESS (permission denied), ZS_E_INVALID_ARG (a name
// the system cannot take), ZS_E_FAIL.
KxResult OpenNativeFile(const char16_t* path, size_t units, uint32_t mode, NativeFile* file, int64_t* size);
void CloseNativeFile(NativeFile file);
// Reads up to `bytes` at `offset`: the count read (short only at the end of the
// file), or -1 on an error.
int64_t ReadNativeFile(NativeFile file, void* buffer, size_t bytes, int64_t offset);
// Writes `bytes` at `offset`: the count written, or -1 when nothing could be.
int64_t WriteNativeFile(NativeFile file, const void* buffer, size_t bytes, int64_t offset);
// Sets the file's end at `size`.
bool TruncateNativeFile(NativeFile file, int64_t size);

}  // namespace kxcore
