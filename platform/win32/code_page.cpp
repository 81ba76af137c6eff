// Code pages on Windows: the conversions and the lead-byte test are the system's
// (MultiByteToWideChar, WideCharToMultiByte, IsDBCSLeadByteEx), except for UTF-8
// (code page 65001), which the layer's own codec converts as on every system: the
// systems disagree on how many replacement characters an invalid sequence gives, and
// tag text read on Windows should come out as it does elsewhere. Code page 0 stands
// for the system's ANSI code page, unless the process environment names another in
// KX_ANSI_CODEPAGE: the environment is the one setting that the host and every module
// in the process (each with its own copy of this backend) read alike.
#include "windows_api.h"

#include <cwchar>

#include "../kx_platform.h"
#include "../utf8_codec.h"

namespace {

constexpr wchar_t kSettingName[] = L"KX_ANSI_CODEPAGE";

// The code page the process setting names, or 0 when there is none (or it is not a
// number). Read on every call, as KxSetAnsiCodePage may change it at any time.
uint32_t SettingCodePage() {
  wchar_t value[16] = {};
  const DWORD length = GetEnvironmentVariableW(kSettingName, value, 16);
  if (length == 0 || length >= 16) return 0;
  uint32_t codePage = 0;
  for (DWORD i = 0; i < length; ++i) {
    if (value[i] < L'0' || value[i] > L'9') return 0;
    codePage = codePage * 10 + static_cast<uint32_t>(value[i] - L'0');
  }
  return codePage;
}

// The code page a conversion uses for `codePage` (CP_ACP: the setting, else the
// system's ANSI code page).
UINT Resolve(uint32_t codePage) {
  if (codePage != CP_ACP) return codePage;
  const uint32_t setting = SettingCodePage();
  return setting != 0 ? setting : CP_ACP;
}

}  // namespace

extern "C" {

int KxSetAnsiCodePage(uint32_t codePage) {
  if (codePage == 0) {
    SetEnvironmentVariableW(kSettingName, nullptr);
    return 0;
  }
  if (!IsValidCodePage(codePage)) return -1;
  wchar_t value[16];
  std::swprintf(value, 16, L"%u", codePage);
  return SetEnvironmentVariableW(kSettingName, value) ? 0 : -1;
}

uint32_t KxGetAnsiCodePage(void) {
  const uint32_t setting = SettingCodePage();
  return setting != 0 ? setting : GetACP();
}

int KxMultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* src, int srcBytes, char16_t* dst,
                          int dstChars) {
  if (src == nullptr || srcBytes == 0 || dstChars < 0) return 0;
  if (Resolve(codePage) == CP_UTF8) return kxplat::Utf8ToWide(flags, src, srcBytes, dst, dstChars);
  return MultiByteToWideChar(Resolve(codePage), flags, src, srcBytes, kxwin::Wide(dst), dstChars);
}

int KxWideCharToMultiByte(uint32_t codePage, uint32_t flags, const char16_t* src, int srcChars, char* dst,
                          int dstBytes) {
  if (src == nullptr || srcChars == 0 || dstBytes < 0) return 0;
  if (Resolve(codePage) == CP_UTF8) return kxplat::WideToUtf8(src, srcChars, dst, dstBytes);
  return WideCharToMultiByte(Resolve(codePage), flags, kxwin::Wide(src), srcChars, dst, dstBytes, nullptr,
                             nullptr);
}

int KxIsDBCSLeadByteEx(uint32_t codePage, uint8_t byte) {
  return IsDBCSLeadByteEx(Resolve(codePage), byte) ? 1 : 0;
}

}  // extern "C"
