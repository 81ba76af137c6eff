// The Windows side of opening kxhost's inputs (see ../input_files.h). Names come as
// UTF-8 from the UTF-16 arguments, so every regular file opens by its name; what a
// name is comes from its attributes (file_kind.h): a file, or a device or pipe (CON,
// NUL, \\.\pipe\NAME, a serial port) whose bytes are copied. The private folder
// is made in the user's temporary folder (GetTempPathW), which only the user reads.
#include "../../platform/win32/windows_api.h"

#include "../input_files.h"

#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <random>

#include "../cli_error.h"
#include "file_kind.h"
#include "system_error.h"
#include "utf16_path.h"

namespace kxhost {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

InputNode Stream(int fd) {
  InputNode node;
  node.kind = InputNode::Kind::kStream;
  node.fd = fd;
  return node;
}

// Six letters and digits for a new name.
std::string RandomSuffix() {
  static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::string suffix;
  for (int i = 0; i < 6; ++i) suffix.push_back(kLetters[random() % (sizeof(kLetters) - 1)]);
  return suffix;
}

}  // namespace

InputNode ExamineInput(const std::string& path) {
  if (path == "-") {
    _setmode(0, _O_BINARY);  // the bytes as they are, no line-end translation
    return Stream(0);
  }
  switch (FactsOf(path).kind) {
    case FileKind::kMissing: throw FileError(path, "file not found", ZS_E_NOT_FOUND);
    case FileKind::kDenied: throw FileError(path, "permission denied", ZS_E_ACCESS);
    case FileKind::kFolder: throw FileError(path, "a directory, not a file", ZS_E_NOT_FOUND);
    case FileKind::kFile: return InputNode{};
    case FileKind::kDevice: break;
  }
  // Reading a pipe's name connects to it, as any reader of the pipe does.
  HANDLE handle = CreateFileW(Utf16Path(path).c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    throw FileError(path, "cannot open: " + SystemMessage(error), ErrnoOf(error) == EACCES ? ZS_E_ACCESS : ZS_E_FAIL);
  }
  const DWORD type = GetFileType(handle);
  if (type == FILE_TYPE_PIPE || type == FILE_TYPE_CHAR) {
    const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDONLY | _O_BINARY);
    if (fd >= 0) return Stream(fd);
  }
  CloseHandle(handle);
  throw FileError(path, "not a regular file", ZS_E_NOT_FOUND);
}

std::string MakePrivateFolder() {
  wchar_t temp[MAX_PATH + 1];
  const DWORD n = GetTempPathW(MAX_PATH + 1, temp);
  if (n == 0 || n > MAX_PATH) {
    errno = ENOENT;
    return std::string();
  }
  std::string base = Utf8Path(std::wstring(temp, n));
  if (base.back() != '\\' && base.back() != '/') base.push_back('\\');
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string folder = base + "kxhost-" + RandomSuffix();
    if (CreateDirectoryW(Utf16Path(folder).c_str(), nullptr)) return folder + "\\";
    if (GetLastError() != ERROR_ALREADY_EXISTS) {
      errno = ErrnoOf(GetLastError());
      return std::string();
    }
  }
  errno = EEXIST;
  return std::string();
}

int CreatePrivateFile(const std::string& path) {
  HANDLE handle = CreateFileW(Utf16Path(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                              CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    errno = ErrnoOf(GetLastError());
    return -1;
  }
  const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_WRONLY | _O_BINARY);
  if (fd < 0) CloseHandle(handle);
  return fd;
}

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
  constexpr DWORD kUnprivileged = 0x2;  // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE (developer mode)
  if (CreateSymbolicLinkW(Utf16Path(link).c_str(), Utf16Path(target).c_str(), kUnprivileged)) return true;
  errno = ErrnoOf(GetLastError());
  return false;
}

void RemoveFile(const std::string& path) { DeleteFileW(Utf16Path(path).c_str()); }

void RemoveFolder(const std::string& folder) { RemoveDirectoryW(Utf16Path(folder).c_str()); }

}  // namespace kxhost
