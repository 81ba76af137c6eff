// UTF-8 paths to UTF-16 and back with the system's conversions (see utf16_path.h).
#include "../../platform/win32/windows_api.h"

#include "utf16_path.h"

namespace kxhost {

std::wstring Utf16Path(const std::string& utf8) {
  if (utf8.empty()) return std::wstring();
  const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(units > 0 ? units : 0), L'\0');
  if (units > 0) MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), out.data(), units);
  return out;
}

std::string Utf8Path(const std::wstring& utf16) {
  if (utf16.empty()) return std::string();
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, utf16.data(), static_cast<int>(utf16.size()), nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
  if (bytes > 0) {
    WideCharToMultiByte(CP_UTF8, 0, utf16.data(), static_cast<int>(utf16.size()), out.data(), bytes, nullptr, nullptr);
  }
  return out;
}

}  // namespace kxhost
