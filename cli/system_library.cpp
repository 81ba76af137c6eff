// Libraries opened on first use (see system_library.h).
#include "system_library.h"

#include <dlfcn.h>

#include "cli_error.h"

namespace kxhost {

namespace {

std::string LastLoaderError() {
  const char* why = dlerror();
  return why != nullptr ? why : "unknown reason";
}

}  // namespace

SystemLibrary::SystemLibrary(const char* soname, const std::string& purpose) : soname_(soname), purpose_(purpose) {
  handle_ = dlopen(soname, RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) throw CliError(purpose_ + " needs " + soname_ + ", which cannot be loaded: " + LastLoaderError());
}

void* SystemLibrary::Address(const char* name) const {
  dlerror();
  void* address = dlsym(handle_, name);
  if (address == nullptr) {
    throw CliError(purpose_ + " needs " + name + " from " + soname_ + ", which does not have it: " + LastLoaderError());
  }
  return address;
}

}  // namespace kxhost
