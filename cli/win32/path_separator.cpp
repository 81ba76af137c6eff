// Windows separates a path's names with '/' and '\' alike (see ../path_names.h).
#include "../path_names.h"

namespace kxhost {

bool IsPathSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace kxhost
