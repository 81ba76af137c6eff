// Linux: the platform layer's windows are headless (see show_windows.h).
#include "show_windows.h"

namespace kxhost {

void KeepDialogsShown(double /*seconds*/) {}

bool RunMessageBoxClosedAfter(double /*seconds*/, const std::function<void()>& open) {
  open();
  return true;
}

}  // namespace kxhost
