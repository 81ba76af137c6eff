// The POSIX calls of kxhost that mingw-w64 lacks or makes ANSI-only, on the system's
// UTF-16 calls (declared in win32/include: sys/stat.h, dirent.h).
#include "../../platform/win32/windows_api.h"

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <string>

#include <dirent.h>
#include <sys/stat.h>
#include "system_error.h"
#include "utf16_path.h"

#undef stat
#undef lstat

namespace {

uint64_t Mix(uint64_t x) {  // splitmix64's finaliser
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

}  // namespace

int kx_stat(const char* path, struct kx_stat* status) {
  const std::wstring wide = kxhost::Utf16Path(path);
  // Backup semantics: a folder opens too, to read its identity.
  HANDLE handle = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    errno = kxhost::ErrnoOf(GetLastError());
    return -1;
  }
  BY_HANDLE_FILE_INFORMATION info{};
  const bool ok = GetFileInformationByHandle(handle, &info) != 0;
  const DWORD type = GetFileType(handle);
  CloseHandle(handle);
  if (!ok) {
    errno = EIO;
    return -1;
  }
  *status = {};
  const bool folder = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const bool readOnly = (info.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  status->st_mode = static_cast<unsigned short>(
      (folder ? _S_IFDIR : (type == FILE_TYPE_DISK ? _S_IFREG : _S_IFCHR)) | _S_IREAD | (readOnly ? 0 : _S_IWRITE));
  const uint64_t index = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
  const uint64_t identity = Mix(index ^ Mix(info.dwVolumeSerialNumber));
  status->st_dev = static_cast<dev_t>(identity & 0xFFFFFFFFu);
  status->st_ino = static_cast<ino_t>((identity >> 32) & 0xFFFFu);
  status->st_size = static_cast<long long>((static_cast<uint64_t>(info.nFileSizeHigh) << 32) | info.nFileSizeLow);
  return 0;
}

int kx_lstat(const char* path, struct kx_stat* status) { return kx_stat(path, status); }

int mkdir(const char* path, mode_t /*mode*/) {
  if (CreateDirectoryW(kxhost::Utf16Path(path).c_str(), nullptr)) return 0;
  errno = kxhost::ErrnoOf(GetLastError());
  return -1;
}

struct KxDirectory {
  HANDLE find = INVALID_HANDLE_VALUE;
  WIN32_FIND_DATAW data{};
  bool pending = true;  // `data` holds an entry not handed out yet
  dirent entry{};
};

DIR* opendir(const char* path) {
  std::wstring pattern = kxhost::Utf16Path(path);
  const DWORD attributes = GetFileAttributesW(pattern.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    errno = kxhost::ErrnoOf(GetLastError());
    return nullptr;
  }
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    errno = ENOTDIR;
    return nullptr;
  }
  if (!pattern.empty() && pattern.back() != L'/' && pattern.back() != L'\\') pattern += L'\\';
  pattern += L'*';
  auto* directory = new KxDirectory;
  directory->find = FindFirstFileW(pattern.c_str(), &directory->data);
  if (directory->find == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_NOT_FOUND) {
      delete directory;
      errno = kxhost::ErrnoOf(error);
      return nullptr;
    }
    directory->pending = false;  // an empty folder
  }
  return directory;
}

dirent* readdir(DIR* directory) {
  if (directory == nullptr || directory->find == INVALID_HANDLE_VALUE) return nullptr;
  if (!directory->pending && !FindNextFileW(directory->find, &directory->data)) return nullptr;
  directory->pending = false;
  const std::string name = kxhost::Utf8Path(directory->data.cFileName);
  const size_t length = std::min(name.size(), sizeof(directory->entry.d_name) - 1);
  std::memcpy(directory->entry.d_name, name.data(), length);
  directory->entry.d_name[length] = 0;
  return &directory->entry;
}

int closedir(DIR* directory) {
  if (directory == nullptr) return -1;
  if (directory->find != INVALID_HANDLE_VALUE) FindClose(directory->find);
  delete directory;
  return 0;
}
