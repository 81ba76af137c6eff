// Library attach and detach: the work done once per process when the module is
// loaded (store the module handle, build the decoder tables, switch off thread
// notifications), guarded by an atomic attach counter so that a second attach
// neither rebuilds the tables nor replaces the handle. module_entry.cpp calls these
// from the module's load and unload hooks.
#include <atomic>

#include "../engine/tables.h"
#include "../platform/kx_platform.h"
#include "plugin_info.h"

namespace kxmp3 {

namespace {

std::atomic<uint32_t> gAttachCount{0};
std::atomic<uint32_t> gTableBuilds{0};
std::atomic<HMODULE> gModule{nullptr};

void BuildDecoderTables() {
  InitDecoderTables();
  gTableBuilds.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

bool ProcessAttach(HMODULE module) {
  if (gAttachCount.fetch_add(1, std::memory_order_acq_rel) != 0) return false;
  gModule.store(module, std::memory_order_release);
  BuildDecoderTables();
  KxDisableThreadLibraryCalls(module);
  return true;
}

void ProcessDetach() {
  gAttachCount.fetch_sub(1, std::memory_order_acq_rel);
}

HMODULE ModuleHandle() { return gModule.load(std::memory_order_acquire); }
uint32_t AttachCount() { return gAttachCount.load(std::memory_order_acquire); }
uint32_t TableBuildCount() { return gTableBuilds.load(std::memory_order_acquire); }

}  // namespace kxmp3
