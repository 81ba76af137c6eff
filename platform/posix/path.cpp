// PathFindExtensionW: the extension is the last '.' of the last path component
// (after the last '/' or '\'), up to the end; a name without one has none, and the
// result is then its terminator. A dot in a folder name ("/dir.x/file") does not count.
#include "platform/kx_platform.h"

extern "C" const char16_t* KxPathFindExtensionW(const char16_t* path) {
  if (path == nullptr) return nullptr;
  const char16_t* dot = nullptr;
  const char16_t* p = path;
  for (; *p != 0; ++p) {
    if (*p == u'/' || *p == u'\\') {
      dot = nullptr;  // a new component starts
    } else if (*p == u'.') {
      dot = p;
    }
  }
  return dot != nullptr ? dot : p;
}
