// Internal to the platform layer: the calls each backend (posix/, win32/) makes of
// its system, under the parts of the layer that are the same everywhere.
#pragma once

#include <cstdint>

#include "kx_platform.h"

namespace kxplat {

// Shows a message box when no handler is installed: the system's own box, or on a
// headless system "caption: text" on standard error, answering IDOK.
int SystemMessageBox(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type);

// Asks the system to stop the module's thread notifications; the system's answer
// (POSIX has none to stop: 1).
int SystemDisableThreadLibraryCalls(HMODULE module);

}  // namespace kxplat
