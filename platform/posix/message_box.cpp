// MessageBoxW through a replaceable handler. A host (or a test) installs its own to
// show or capture boxes; the default writes "caption: text" to standard error and
// answers IDOK, as a headless system has no one to click.
#include <cstdio>
#include <mutex>
#include <string>

#include "platform/kx_platform.h"
#include "platform/utf8_codec.h"

namespace {

std::mutex g_mutex;
KxMessageBoxHandler g_handler = nullptr;
void* g_context = nullptr;

std::string ToUtf8(const char16_t* text) {
  std::string out;
  if (text == nullptr) return out;
  size_t units = 0;
  while (text[units] != 0) ++units;
  kxplat::Utf8Encode(text, units, out);
  return out;
}

}  // namespace

extern "C" {

void KxSetMessageBoxHandler(KxMessageBoxHandler handler, void* context) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_handler = handler;
  g_context = context;
}

int KxMessageBoxW(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type) {
  KxMessageBoxHandler handler;
  void* context;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    handler = g_handler;
    context = g_context;
  }
  if (handler != nullptr) return handler(owner, text != nullptr ? text : u"", caption != nullptr ? caption : u"", type, context);
  std::fprintf(stderr, "%s: %s\n", ToUtf8(caption).c_str(), ToUtf8(text).c_str());
  return IDOK;
}

}  // extern "C"
