// Loading a .zss module on Windows (see ../module_loader.h) with LoadLibraryExW and
// GetProcAddress, and the Windows side of finding it (../module_files.h). The
// libraries the module imports are looked for in its own folder, then beside
// kxhost.exe and in the system's.
#include "../../platform/win32/windows_api.h"

#include "../module_loader.h"

#include <sys/stat.h>

#include <cstdlib>
#include <vector>

#include "../module_files.h"
#include "host/kx_result_codes.h"
#include "system_error.h"
#include "utf16_path.h"

namespace kxhost {

bool IsRegularFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string ExecutableDir() {
  std::vector<wchar_t> buffer(32768);
  const DWORD n = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  if (n == 0 || n >= buffer.size()) return ".";
  std::string path = Utf8Path(std::wstring(buffer.data(), n));
  const size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string FullPath(const std::string& path) {
  const std::wstring wide = Utf16Path(path);
  const DWORD n = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  if (n == 0) return path;
  std::vector<wchar_t> buffer(n);
  const DWORD written = GetFullPathNameW(wide.c_str(), n, buffer.data(), nullptr);
  return written > 0 && written < n ? Utf8Path(std::wstring(buffer.data(), written)) : path;
}

LoadedModule::LoadedModule(const std::string& path) : path_(path) {
  if (!IsRegularFile(path)) throw CliError("module not found: " + path);
  const std::wstring full = Utf16Path(FullPath(path));
  WinHMODULE module =
      LoadLibraryExW(full.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
  if (module == nullptr) {
    throw CliError("not a loadable module: " + path + " (" + SystemMessage(GetLastError()) + ")");
  }
  handle_ = module;
  ReadRecords();
}

void LoadedModule::Unload() {
  if (handle_ != nullptr) FreeLibrary(static_cast<WinHMODULE>(handle_));
  handle_ = nullptr;
}

LoadedModule::~LoadedModule() { Unload(); }

void* LoadedModule::Symbol(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<WinHMODULE>(handle_), name));
}

}  // namespace kxhost
