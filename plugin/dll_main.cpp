// The module's library entry on Windows: DllMain runs the process-attach handling
// (library_attach.cpp: the atomic attach counter, the module handle, the decoder
// tables, DisableThreadLibraryCalls) and the detach handling, and always reports
// success. The first attach asks for thread notifications to be switched off;
// Windows declines for a library with a C runtime's TLS directory, as every
// mingw-w64 library has, so thread attach and detach may still arrive and are
// ignored. module_entry.cpp is the same for POSIX.
#include "../platform/win32/windows_api.h"

#include "plugin_info.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    kxmp3::ProcessAttach(kxwin::Portable(static_cast<WinHMODULE>(instance)));
  } else if (reason == DLL_PROCESS_DETACH) {
    kxmp3::ProcessDetach();
  }
  return TRUE;
}
