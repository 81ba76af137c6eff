// DisableThreadLibraryCalls: asks the system to stop sending the module's entry
// thread attach and detach notifications. Windows declines for a library with a
// TLS directory, and every library mingw-w64 links has one (its C runtime's TLS
// callbacks free per-thread storage when a thread ends), so the answer is passed
// back and the caller goes on either way.
#include "windows_api.h"

#include "../backend.h"

namespace kxplat {

int SystemDisableThreadLibraryCalls(HMODULE module) {
  return DisableThreadLibraryCalls(kxwin::Native(module)) ? 1 : 0;
}

}  // namespace kxplat
