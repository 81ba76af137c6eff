// System error codes in kxhost's words (see system_error.h).
#include "../../platform/win32/windows_api.h"

#include "system_error.h"

#include <cerrno>

#include "utf16_path.h"

namespace kxhost {

int ErrnoOf(unsigned long error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
      return ENOENT;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
      return EACCES;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
      return EEXIST;
    case ERROR_DIRECTORY:
      return ENOTDIR;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return ENOSPC;
    case ERROR_NO_DATA:
    case ERROR_BROKEN_PIPE:
      return EPIPE;
    case ERROR_WRITE_PROTECT:
      return EROFS;
    default:
      return EIO;
  }
}

std::string SystemMessage(unsigned long error) {
  wchar_t* text = nullptr;
  const DWORD n = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                     FORMAT_MESSAGE_IGNORE_INSERTS,
                                 nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string message = n > 0 ? Utf8Path(std::wstring(text, n)) : "error " + std::to_string(error);
  LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' ' ||
                              message.back() == '.')) {
    message.pop_back();
  }
  return message;
}

}  // namespace kxhost
