// Finding and loading a .zss module (see module_loader.h).
#include "module_loader.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "host/kx_result_codes.h"

#ifndef KX_INSTALL_PLUGIN_DIR
#define KX_INSTALL_PLUGIN_DIR ""
#endif

namespace kxhost {

namespace {

bool IsRegularFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string ExecutableDir() {
  std::vector<char> buffer(4096);
  const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
  if (n <= 0) return ".";
  std::string path(buffer.data(), static_cast<size_t>(n));
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

}  // namespace

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
  std::vector<std::string> candidates = {
      dir + "/" + kModuleFileName,
      dir + "/../lib/kxmp3/plugins/" + kModuleFileName,
      dir + "/../plugins/" + kModuleFileName,
  };
  if (*KX_INSTALL_PLUGIN_DIR != 0) candidates.push_back(std::string(KX_INSTALL_PLUGIN_DIR) + "/" + kModuleFileName);
  for (const auto& candidate : candidates) {
    if (!IsRegularFile(candidate)) continue;
    char resolved[PATH_MAX];
    return realpath(candidate.c_str(), resolved) != nullptr ? std::string(resolved) : candidate;
  }
  throw CliError(std::string("module not found: no ") + kModuleFileName + " beside " + dir +
                 ", in ../lib/kxmp3/plugins or ../plugins (use --plugin PATH or KX_PLUGIN_PATH)");
}

LoadedModule::LoadedModule(const std::string& path) : path_(path) {
  if (!IsRegularFile(path)) throw CliError("module not found: " + path);
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* why = dlerror();
    throw CliError("not a loadable module: " + path + (why != nullptr ? std::string(" (") + why + ")" : ""));
  }
  ReadRecords();
}

void LoadedModule::Unload() {
  if (handle_ != nullptr) dlclose(handle_);
  handle_ = nullptr;
}

LoadedModule::~LoadedModule() { Unload(); }

void* LoadedModule::Symbol(const char* name) const { return dlsym(handle_, name); }

}  // namespace kxhost
