// POSIX separates a path's names with '/' only (see path_names.h).
#include "path_names.h"

namespace kxhost {

bool IsPathSeparator(char c) { return c == '/'; }

}  // namespace kxhost
