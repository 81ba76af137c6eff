// Where kxhost looks for the module (see module_loader.h), the same on both systems;
// the file tests and paths are each system's (module_files.h).
#include "module_files.h"
#include "module_loader.h"
#include "path_names.h"

#include <cstdlib>
#include <vector>

#ifndef KX_INSTALL_PLUGIN_DIR
#define KX_INSTALL_PLUGIN_DIR ""
#endif

namespace kxhost {

std::string FindModule(const std::string& explicitPath) {
  if (!explicitPath.empty()) {
    if (!IsRegularFile(explicitPath)) throw CliError("module not found: " + explicitPath);
    return explicitPath;
  }
  if (const char* env = std::getenv("KX_PLUGIN_PATH"); env != nullptr && *env != 0) {
    if (!IsRegularFile(env)) throw CliError(std::string("module not found: ") + env + " (from KX_PLUGIN_PATH)");
    return env;
  }
  const std::string dir = ExecutableDir();
  // Beside the program, then an install's and the build tree's plug-in folders, each
  // written with the separator the program's folder uses.
  const auto under = [&dir](std::initializer_list<const char*> names) {
    std::string path = dir;
    for (const char* name : names) path = JoinPath(path, name);
    return JoinPath(path, kModuleFileName);
  };
  std::vector<std::string> candidates = {under({}), under({"..", "lib", "kxmp3", "plugins"}), under({"..", "plugins"})};
  if (*KX_INSTALL_PLUGIN_DIR != 0) candidates.push_back(std::string(KX_INSTALL_PLUGIN_DIR) + "/" + kModuleFileName);
  for (const auto& candidate : candidates) {
    if (IsRegularFile(candidate)) return FullPath(candidate);
  }
  throw CliError(std::string("module not found: no ") + kModuleFileName + " beside " + dir +
                 ", in ../lib/kxmp3/plugins or ../plugins (use --plugin PATH or KX_PLUGIN_PATH)");
}

}  // namespace kxhost
