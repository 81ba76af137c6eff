// DisableThreadLibraryCalls: asks the system to stop sending the module's entry
// thread attach and detach notifications. Windows declines for a library with a
// TLS directory, and every library mingw-w64 links has one (its C runtime's TLS
// callbacks free per-thread storage when a thread ends), so the answer is passed
// back and the caller goes on either way. Each request is recorded whatever the
// answer, so that tests can see the call was made.
#include "windows_api.h"

#include <mutex>
#include <set>

#include "../kx_platform.h"

namespace {

std::mutex g_mutex;
std::set<HMODULE>& RequestedModules() {
  static std::set<HMODULE> modules;
  return modules;
}

}  // namespace

extern "C" {

int KxDisableThreadLibraryCalls(HMODULE module) {
  if (module == nullptr) return 0;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    RequestedModules().insert(module);
  }
  return DisableThreadLibraryCalls(kxwin::Native(module)) ? 1 : 0;
}

int KxThreadLibraryCallsRequested(HMODULE module) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return RequestedModules().count(module) != 0 ? 1 : 0;
}

}  // extern "C"
