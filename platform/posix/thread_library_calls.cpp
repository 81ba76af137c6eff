// DisableThreadLibraryCalls: POSIX has no per-thread library notifications, so the
// call only records the module, and tests can ask whether a module made it.
#include <mutex>
#include <set>

#include "platform/kx_platform.h"

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
  std::lock_guard<std::mutex> lock(g_mutex);
  RequestedModules().insert(module);
  return 1;
}

int KxThreadLibraryCallsRequested(HMODULE module) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return RequestedModules().count(module) != 0 ? 1 : 0;
}

}  // extern "C"
