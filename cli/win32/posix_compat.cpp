// The POSIX calls of kxhost that mingw-w64 lacks or makes ANSI-only, on the system's
// UTF-16 calls (declared in win32/include: sys/stat.h, dirent.h).
#include "../../platform/win32/windows_api.h"

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <string>

#include <dirent.h>
#include <sys/stat.h>
#include "file_kind.h"
#include "system_error.h"
#include "utf16_path.h"

#undef stat
#undef lstat

int kx_stat(const char* path, struct kx_stat* status) {
  const kxhost::FileFacts facts = kxhost::FactsOf(path);
  switch (facts.kind) {
    case kxhost::FileKind::kMissing: errno = ENOENT; return -1;
    case kxhost::FileKind::kDenied: errno = EACCES; return -1;
    default: break;
  }
  *status = {};
  const bool readOnly = (facts.attributes & FILE_ATTRIBUTE_READONLY) != 0;
  unsigned short type = _S_IFCHR;
  if (facts.kind == kxhost::FileKind::kFolder) type = _S_IFDIR;
  if (facts.kind == kxhost::FileKind::kFile) type = _S_IFREG;
  status->st_mode = static_cast<unsigned short>(type | _S_IREAD | (readOnly ? 0 : _S_IWRITE));
  const uint64_t identity = kxhost::FileIdentity(path);
  status->st_dev = static_cast<dev_t>(identity & 0xFFFFFFFFu);
  status->st_ino = static_cast<ino_t>((identity >> 32) & 0xFFFFu);
  status->st_size = static_cast<long long>(facts.size);
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
