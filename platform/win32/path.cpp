// PathFindExtensionW of the shell's path functions.
#include "windows_api.h"

#include "../kx_platform.h"

extern "C" const char16_t* KxPathFindExtensionW(const char16_t* path) {
  if (path == nullptr) return nullptr;
  // The system returns a pointer into the string it was given.
  const wchar_t* extension = PathFindExtensionW(kxwin::Wide(path));
  return path + (extension - kxwin::Wide(path));
}
