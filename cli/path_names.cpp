// The names in kxhost's paths (see path_names.h).
#include "path_names.h"

namespace kxhost {

size_t LastSeparator(const std::string& path) {
  for (size_t i = path.size(); i > 0; --i) {
    if (IsPathSeparator(path[i - 1])) return i - 1;
  }
  return std::string::npos;
}

std::string BaseName(const std::string& path) {
  const size_t separator = LastSeparator(path);
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

char SeparatorIn(const std::string& folder) {
  const size_t separator = LastSeparator(folder);
  return separator == std::string::npos ? '/' : folder[separator];
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  if (IsPathSeparator(folder.back())) return folder + name;
  return folder + SeparatorIn(folder) + name;
}

}  // namespace kxhost
