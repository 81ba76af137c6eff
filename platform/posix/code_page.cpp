// The ANSI code page of the process and the byte classes of the double-byte code
// pages. CP_ACP is a host setting on POSIX: KX_ANSI_CODEPAGE (a Windows code-page
// number, read when first needed) or KxSetAnsiCodePage; 1252 when neither is given
// or the given one cannot be converted.
#include "code_page.h"

#include <iconv.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "platform/kx_platform.h"

namespace kxplat {
namespace {

constexpr uint32_t kDefaultAnsiCodePage = 1252;
constexpr uint32_t kThreadAcp = 3;  // CP_THREAD_ACP: the same as CP_ACP here

std::atomic<uint32_t> g_override{0};  // set by KxSetAnsiCodePage; 0 = none
std::atomic<uint32_t> g_fromEnv{0};   // KX_ANSI_CODEPAGE as last read; 0 = not read yet

uint32_t ReadEnvironment() {
  const char* text = std::getenv("KX_ANSI_CODEPAGE");
  if (text == nullptr || *text == '\0') return kDefaultAnsiCodePage;
  char* end = nullptr;
  unsigned long value = std::strtoul(text, &end, 10);
  if (end == text || *end != '\0' || value == 0 || value > 65535) return kDefaultAnsiCodePage;
  const auto codePage = static_cast<uint32_t>(value);
  return IsSupportedCodePage(codePage) ? codePage : kDefaultAnsiCodePage;
}

}  // namespace

uint32_t ResolveCodePage(uint32_t codePage) {
  if (codePage == CP_ACP || codePage == kThreadAcp) return KxGetAnsiCodePage();
  return codePage;
}

std::string IconvName(uint32_t codePage) {
  switch (codePage) {
    case CP_ACP:
    case kThreadAcp:
    case CP_UTF8:  // converted by the layer's own UTF-8 codec
      return {};
    case 20127: return "ASCII";
    case 28591: return "ISO-8859-1";
    default: return "CP" + std::to_string(codePage);  // glibc names the Windows tables CPnnnn
  }
}

bool IsSupportedCodePage(uint32_t codePage) {
  if (codePage == CP_UTF8) return true;
  const std::string name = IconvName(codePage);
  if (name.empty()) return false;
  iconv_t cd = iconv_open("UTF-16LE", name.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  iconv_close(cd);
  return true;
}

// Lead bytes as the Windows code-page tables define them: Shift-JIS (932) 0x81-0x9F
// and 0xE0-0xFC; GBK (936), Unified Hangul (949) and Big5 (950) 0x81-0xFE.
bool IsLeadByte(uint32_t codePage, uint8_t byte) {
  switch (codePage) {
    case 932: return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
    case 936:
    case 949:
    case 950: return byte >= 0x81 && byte <= 0xFE;
    default: return false;
  }
}

// Trail bytes: 932 0x40-0x7E and 0x80-0xFC; 936 0x40-0x7E and 0x80-0xFE;
// 949 0x41-0x5A, 0x61-0x7A and 0x81-0xFE; 950 0x40-0x7E and 0xA1-0xFE.
bool IsTrailByte(uint32_t codePage, uint8_t byte) {
  switch (codePage) {
    case 932: return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0x80 && byte <= 0xFC);
    case 936: return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0x80 && byte <= 0xFE);
    case 949: return (byte >= 0x41 && byte <= 0x5A) || (byte >= 0x61 && byte <= 0x7A) || (byte >= 0x81 && byte <= 0xFE);
    case 950: return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0xA1 && byte <= 0xFE);
    default: return false;
  }
}

}  // namespace kxplat

extern "C" {

int KxSetAnsiCodePage(uint32_t codePage) {
  if (codePage == CP_ACP) {
    kxplat::g_override.store(0);
    kxplat::g_fromEnv.store(kxplat::ReadEnvironment());
    return 0;
  }
  if (!kxplat::IsSupportedCodePage(codePage)) return -1;
  kxplat::g_override.store(codePage);
  return 0;
}

uint32_t KxGetAnsiCodePage(void) {
  const uint32_t forced = kxplat::g_override.load();
  if (forced != 0) return forced;
  uint32_t fromEnv = kxplat::g_fromEnv.load();
  if (fromEnv == 0) {
    fromEnv = kxplat::ReadEnvironment();
    kxplat::g_fromEnv.store(fromEnv);
  }
  return fromEnv;
}

int KxIsDBCSLeadByteEx(uint32_t codePage, uint8_t byte) {
  return kxplat::IsLeadByte(kxplat::ResolveCodePage(codePage), byte) ? 1 : 0;
}

}  // extern "C"
