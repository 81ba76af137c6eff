// Finding and loading a .zss module: where kxhost looks for it, dlopen, and the two
// records every module hands out (plug-in information and format record).
#pragma once

#include <string>

#include "cli_error.h"
#include "host/zss_plugin.h"

namespace kxhost {

// File name of this project's module.
constexpr const char* kModuleFileName = "KXMP3Lib.zss";

// Where the module is looked for: `explicitPath` when not empty, else the
// environment's KX_PLUGIN_PATH, else beside the executable, then in
// ../lib/kxmp3/plugins (an install) and ../plugins (the build tree) from the
// executable's folder. Throws CliError when none exists.
std::string FindModule(const std::string& explicitPath);

// A loaded module with its records. Unloads on destruction.
class LoadedModule {
 public:
  // Loads the module at `path` and reads its records; throws CliError.
  explicit LoadedModule(const std::string& path);
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  const std::string& Path() const { return path_; }
  const PluginInfo& Info() const { return info_; }
  const FormatInfo& Format() const { return format_; }
  // Looks up an exported symbol (null when absent).
  void* Symbol(const char* name) const;

 private:
  // Reads the two records of the loaded module; unloads it and throws CliError when
  // one is missing or refused.
  void ReadRecords();
  void ReadEachRecord();
  // Unloads the module (the system's call of each platform).
  void Unload();

  std::string path_;
  void* handle_ = nullptr;
  PluginInfo info_{};
  FormatInfo format_{};
};

}  // namespace kxhost
