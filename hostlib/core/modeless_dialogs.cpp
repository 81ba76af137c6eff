// The modeless-dialog list (ordinals 39 and 40): the dialogs whose messages the host
// routes to their dialog procedures. A dialog is in the list once, however often it
// was registered. ZCoreIsDialogMessage is the routing step of a host's message loop.
#include <mutex>
#include <set>
#include <vector>

#include "host/kxcore.h"
#include "platform/kx_platform.h"

namespace {

std::mutex g_mutex;
std::set<HWND>& Dialogs() {
  static std::set<HWND> dialogs;
  return dialogs;
}

}  // namespace

extern "C" {

KxResult ZCoreRegisterModelessDialog(HWND dialog) {
  if (dialog == nullptr) return AF_E_POINTER;
  std::lock_guard<std::mutex> lock(g_mutex);
  Dialogs().insert(dialog);
  return AF_S_OK;
}

KxResult ZCoreUnregisterModelessDialog(HWND dialog) {
  if (dialog == nullptr) return AF_E_POINTER;
  std::lock_guard<std::mutex> lock(g_mutex);
  return Dialogs().erase(dialog) != 0 ? AF_S_OK : AF_E_FAIL;
}

int ZCoreIsModelessDialog(HWND dialog) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return Dialogs().count(dialog) != 0 ? 1 : 0;
}

int ZCoreIsDialogMessage(void* message) {
  if (message == nullptr) return 0;
  // A dialog procedure run by the routing may register or unregister dialogs.
  std::vector<HWND> dialogs;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    dialogs.assign(Dialogs().begin(), Dialogs().end());
  }
  for (HWND dialog : dialogs) {
    if (KxIsDialogMessageW(dialog, message) != 0) return 1;
  }
  return 0;
}

int ZCoreModelessDialogCount(void) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return static_cast<int>(Dialogs().size());
}

}  // extern "C"
