// The system's side of finding a module (module_loader.cpp on POSIX,
// win32/module_loader.cpp on Windows), for module_search.cpp.
#pragma once

#include <string>

namespace kxhost {

// Whether `path` names a regular file.
bool IsRegularFile(const std::string& path);
// The folder of the running program ("." when the system does not say).
std::string ExecutableDir();
// `path` made absolute and without "." and ".." (as it is when that fails).
std::string FullPath(const std::string& path);

}  // namespace kxhost
