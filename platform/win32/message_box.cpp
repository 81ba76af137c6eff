// MessageBoxW: the system's message box.
#include "windows_api.h"

#include "../backend.h"

namespace kxplat {

int SystemMessageBox(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type) {
  return MessageBoxW(kxwin::Native(owner), kxwin::Wide(text), kxwin::Wide(caption), type);
}

}  // namespace kxplat
