// The headless system's message box: no one to click, so the caption and text go to
// standard error and the answer is IDOK.
#include <cstdio>
#include <string>

#include "platform/backend.h"
#include "platform/utf8_codec.h"

namespace {

std::string ToUtf8(const char16_t* text) {
  std::string out;
  size_t units = 0;
  while (text[units] != 0) ++units;
  kxplat::Utf8Encode(text, units, out);
  return out;
}

}  // namespace

namespace kxplat {

int SystemMessageBox(HWND, const char16_t* text, const char16_t* caption, uint32_t) {
  std::fprintf(stderr, "%s: %s\n", ToUtf8(caption).c_str(), ToUtf8(text).c_str());
  return IDOK;
}

}  // namespace kxplat
