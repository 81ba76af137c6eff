// MessageBoxW through a replaceable handler. A host (or a test) installs its own to
// show or capture boxes; without one the backend shows the system's box (on a
// headless system: "caption: text" on standard error, answering IDOK).
#include <mutex>

#include "backend.h"
#include "kx_platform.h"

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
  if (text == nullptr) text = u"";
  if (caption == nullptr) caption = u"";
  if (handler != nullptr) return handler(owner, text, caption, type, context);
  return kxplat::SystemMessageBox(owner, text, caption, type);
}

}  // extern "C"
