// DisableThreadLibraryCalls on POSIX: there are no per-thread library
// notifications to stop, so every request is granted.
#include "platform/backend.h"

namespace kxplat {

int SystemDisableThreadLibraryCalls(HMODULE) { return 1; }

}  // namespace kxplat
