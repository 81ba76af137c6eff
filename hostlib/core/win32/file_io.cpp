// The file stream's system calls on Windows (see file_io.h): CreateFileW with the
// UTF-16 name as given, so that any name the file system holds opens (Japanese, an
// emoji); reads and writes at an offset through ReadFile and WriteFile with an
// OVERLAPPED position on a handle opened for synchronous access.
#include "platform/win32/windows_api.h"

#include <algorithm>
#include <string>

#include "../file_io.h"

namespace kxcore {
namespace {

// Reads and writes go in pieces a DWORD can count.
constexpr size_t kMaxPiece = 1u << 30;

KxResult OpenError(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return ZS_E_NOT_FOUND;
    case ERROR_INVALID_NAME:
      return ZS_E_INVALID_ARG;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
      return ZS_E_ACCESS;
    default:
      return ZS_E_FAIL;
  }
}

OVERLAPPED At(int64_t offset) {
  OVERLAPPED at{};
  at.Offset = static_cast<DWORD>(static_cast<uint64_t>(offset) & 0xFFFFFFFFu);
  at.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(offset) >> 32);
  return at;
}

}  // namespace

KxResult OpenNativeFile(const char16_t* path, size_t units, uint32_t mode, NativeFile* file, int64_t* size) {
  const std::wstring name(reinterpret_cast<const wchar_t*>(path), units);
  const bool write = mode == ZS_MODE_WRITE;
  // Others may read, write, rename or delete the file meanwhile, as on POSIX.
  HANDLE handle = CreateFileW(name.c_str(), write ? (GENERIC_READ | GENERIC_WRITE) : GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              write ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    // A folder cannot be opened as a file: it is no file, not a denied one.
    const DWORD attributes = GetFileAttributesW(name.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ZS_E_NOT_FOUND;
    return OpenError(error);
  }
  // A device, pipe or console is not a file.
  LARGE_INTEGER length{};
  if (GetFileType(handle) != FILE_TYPE_DISK || !GetFileSizeEx(handle, &length)) {
    CloseHandle(handle);
    return ZS_E_NOT_FOUND;
  }
  *file = reinterpret_cast<NativeFile>(handle);
  *size = length.QuadPart;
  return AF_S_OK;
}

void CloseNativeFile(NativeFile file) { CloseHandle(reinterpret_cast<HANDLE>(file)); }

int64_t ReadNativeFile(NativeFile file, void* buffer, size_t bytes, int64_t offset) {
  size_t done = 0;
  while (done < bytes) {
    const DWORD want = static_cast<DWORD>(std::min(bytes - done, kMaxPiece));
    OVERLAPPED at = At(offset + static_cast<int64_t>(done));
    DWORD got = 0;
    if (!ReadFile(reinterpret_cast<HANDLE>(file), static_cast<char*>(buffer) + done, want, &got, &at)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      return -1;
    }
    if (got == 0) break;
    done += got;
  }
  return static_cast<int64_t>(done);
}

int64_t WriteNativeFile(NativeFile file, const void* buffer, size_t bytes, int64_t offset) {
  size_t done = 0;
  while (done < bytes) {
    const DWORD want = static_cast<DWORD>(std::min(bytes - done, kMaxPiece));
    OVERLAPPED at = At(offset + static_cast<int64_t>(done));
    DWORD put = 0;
    if (!WriteFile(reinterpret_cast<HANDLE>(file), static_cast<const char*>(buffer) + done, want, &put, &at) ||
        put == 0) {
      return done > 0 ? static_cast<int64_t>(done) : -1;
    }
    done += put;
  }
  return static_cast<int64_t>(done);
}

bool TruncateNativeFile(NativeFile file, int64_t size) {
  HANDLE handle = reinterpret_cast<HANDLE>(file);
  LARGE_INTEGER to{};
  to.QuadPart = size;
  return SetFilePointerEx(handle, to, nullptr, FILE_BEGIN) && SetEndOfFile(handle);
}

}  // namespace kxcore
