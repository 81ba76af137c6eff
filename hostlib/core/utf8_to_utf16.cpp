// UTF-8 to UTF-16 (ordinal 63), on the platform layer's code page 65001 codec:
// invalid sequences become U+FFFD and code points above U+FFFF surrogate pairs. A
// destination too small takes the first `capacity` units (a surrogate pair is never
// split); nothing is added after them.
#include <cstring>
#include <vector>

#include "host/kxcore.h"
#include "platform/kx_platform.h"

extern "C" int32_t ZCoreUtf8ToUtf16(char16_t* dst, int32_t capacity, const char* src, int32_t srcBytes) {
  if (src == nullptr || srcBytes == 0) return 0;
  const int bytes = srcBytes < 0 ? static_cast<int>(std::strlen(src) + 1) : srcBytes;
  const int needed = KxMultiByteToWideChar(CP_UTF8, 0, src, bytes, nullptr, 0);
  if (dst == nullptr) return needed;
  if (capacity <= 0 || needed <= 0) return 0;
  if (needed <= capacity) return KxMultiByteToWideChar(CP_UTF8, 0, src, bytes, dst, capacity);
  std::vector<char16_t> all(static_cast<size_t>(needed));
  KxMultiByteToWideChar(CP_UTF8, 0, src, bytes, all.data(), needed);
  int32_t count = capacity;
  if (all[count - 1] >= 0xD800 && all[count - 1] <= 0xDBFF) --count;  // keep the pair whole
  std::memcpy(dst, all.data(), static_cast<size_t>(count) * sizeof(char16_t));
  return count;
}
