// The module's load and unload hooks (the library entry): on load the module finds
// its own handle and runs the process-attach handling, on unload the detach
// handling. Nothing else lives here; the work is in library_attach.cpp.
#include <dlfcn.h>

#include "plugin_info.h"

namespace {

__attribute__((constructor)) void KxMp3ModuleLoad() {
  Dl_info info{};
  HMODULE module = nullptr;
  if (dladdr(reinterpret_cast<void*>(&KxMp3ModuleLoad), &info) != 0) {
    module = static_cast<HMODULE>(info.dli_fbase);
  }
  kxmp3::ProcessAttach(module);
}

__attribute__((destructor)) void KxMp3ModuleUnload() { kxmp3::ProcessDetach(); }

}  // namespace
