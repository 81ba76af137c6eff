// MessageBoxW: the system's message box, or a handler a host (or a test) installed
// to capture boxes instead of showing them.
#include "windows_api.h"

#include <mutex>

#include "../kx_platform.h"

namespace {

std::mutex g_mutex;
KxMessageBoxHandler g_handler = nullptr;
void* g_context = nullptr;

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
  return MessageBoxW(kxwin::Native(owner), kxwin::Wide(text), kxwin::Wide(caption), type);
}

}  // extern "C"
