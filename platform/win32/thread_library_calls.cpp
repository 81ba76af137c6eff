// DisableThreadLibraryCalls: the system stops sending the module's entry thread
// attach and detach notifications. The modules that asked are also recorded, so
// that tests can see the call was made (the system keeps no answer to ask).
#include "windows_api.h"

#include <mutex>
#include <set>

#include "../kx_platform.h"

namespace {

std::mutex g_mutex;
std::set<HMODULE>& DisabledModules() {
  static std::set<HMODULE> modules;
  return modules;
}

}  // namespace

extern "C" {

int KxDisableThreadLibraryCalls(HMODULE module) {
  if (module == nullptr) return 0;
  if (!DisableThreadLibraryCalls(kxwin::Native(module))) return 0;
  std::lock_guard<std::mutex> lock(g_mutex);
  DisabledModules().insert(module);
  return 1;
}

int KxThreadLibraryCallsDisabled(HMODULE module) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return DisabledModules().count(module) != 0 ? 1 : 0;
}

}  // extern "C"
