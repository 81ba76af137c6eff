// Loading a .zss module with dlopen, and the POSIX side of finding it (see
// module_loader.h, module_files.h).
#include "module_loader.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "host/kx_result_codes.h"
#include "module_files.h"

namespace kxhost {

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

std::string FullPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : path;
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
