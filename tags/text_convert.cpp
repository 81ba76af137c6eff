// ANSI and UTF-8 conversions of the tag readers (see text_convert.h).
#include "text_convert.h"

#include <climits>
#include <cstring>

#include "../host/kxcore.h"
#include "../platform/kx_platform.h"

namespace kxmp3 {

std::u16string AnsiToWide(const char* text, size_t bytes) {
  if (text == nullptr || bytes == 0 || bytes > static_cast<size_t>(INT_MAX)) return {};
  const int count = static_cast<int>(bytes);
  const int units = KxMultiByteToWideChar(CP_ACP, 0, text, count, nullptr, 0);
  if (units <= 0) return {};
  std::u16string wide(static_cast<size_t>(units), u'\0');
  const int written = KxMultiByteToWideChar(CP_ACP, 0, text, count, wide.data(), units);
  wide.resize(written > 0 ? static_cast<size_t>(written) : 0);
  return wide;
}

std::u16string AnsiToWide(const char* text) {
  if (text == nullptr) return {};
  return AnsiToWide(text, std::strlen(text));
}

std::string WideToAnsi(const char16_t* text) {
  if (text == nullptr || text[0] == 0) return {};
  size_t length = 0;
  while (text[length] != 0) ++length;
  if (length > static_cast<size_t>(INT_MAX)) return {};
  const int count = static_cast<int>(length);
  const int bytes = KxWideCharToMultiByte(CP_ACP, 0, text, count, nullptr, 0);
  if (bytes <= 0) return {};
  std::string narrow(static_cast<size_t>(bytes), '\0');
  const int written = KxWideCharToMultiByte(CP_ACP, 0, text, count, narrow.data(), bytes);
  narrow.resize(written > 0 ? static_cast<size_t>(written) : 0);
  return narrow;
}

std::u16string Utf8ToWideCore(const char* text, size_t bytes) {
  if (text == nullptr || bytes == 0 || bytes > static_cast<size_t>(INT32_MAX)) return {};
  const auto count = static_cast<int32_t>(bytes);
  const int32_t units = ZCoreUtf8ToUtf16(nullptr, 0, text, count);
  if (units <= 0) return {};
  std::u16string wide(static_cast<size_t>(units), u'\0');
  const int32_t written = ZCoreUtf8ToUtf16(wide.data(), units, text, count);
  wide.resize(written > 0 ? static_cast<size_t>(written) : 0);
  return wide;
}

std::u16string UpToZero(const std::u16string& text) {
  const size_t zero = text.find(u'\0');
  return zero == std::u16string::npos ? text : text.substr(0, zero);
}

}  // namespace kxmp3
