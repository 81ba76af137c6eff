// The two records every module hands out, read the same way whichever system
// loaded the module (see module_loader.h).
#include "module_loader.h"

namespace kxhost {

void LoadedModule::ReadRecords() {
  try {
    ReadEachRecord();
  } catch (...) {
    Unload();
    throw;
  }
}

void LoadedModule::ReadEachRecord() {
  auto getInfo = reinterpret_cast<ZssGetPluginInfoFn>(Symbol(ZSS_EXPORT_GET_PLUGIN_INFO));
  if (getInfo == nullptr) throw CliError(std::string("missing export ") + ZSS_EXPORT_GET_PLUGIN_INFO + " in " + path_);
  KxResult rc = getInfo(&info_);
  if (rc != AF_S_OK || info_.getFormatInfo == nullptr) {
    throw CliError("the module refused its plug-in information: " + ResultText(rc) + " in " + path_);
  }
  rc = info_.getFormatInfo(&format_);
  if (rc != AF_S_OK) throw CliError("the module refused its format record: " + ResultText(rc) + " in " + path_);
}

}  // namespace kxhost
