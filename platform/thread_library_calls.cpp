// DisableThreadLibraryCalls: the backend asks its system (see backend.h). Each
// request with a module handle is recorded whatever the answer, so that tests can
// see the call was made.
#include <mutex>
#include <set>

#include "backend.h"
#include "kx_platform.h"

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
  return kxplat::SystemDisableThreadLibraryCalls(module);
}

int KxThreadLibraryCallsRequested(HMODULE module) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return RequestedModules().count(module) != 0 ? 1 : 0;
}

}  // extern "C"
