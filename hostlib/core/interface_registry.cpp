// The interface registry (ordinals 33 and 34): which objects have made which of
// their interfaces known to the host. An object may register several interfaces
// (a decoder registers its own format and the generic audio-file one); each
// unregistration takes back the object's most recent registration.
#include <algorithm>
#include <mutex>
#include <vector>

#include "host/kxcore.h"

namespace {

struct Registration {
  void* object;
  Class_ZCOM* zcom;
  uint32_t fourcc;
  void* arg;
};

std::mutex g_mutex;
std::vector<Registration>& Registry() {
  static std::vector<Registration> registry;
  return registry;
}

}  // namespace

extern "C" {

KxResult ZCoreRegisterInterface(void* object, Class_ZCOM* zcom, uint32_t fourcc, void* arg) {
  if (object == nullptr || zcom == nullptr) return AF_E_POINTER;
  std::lock_guard<std::mutex> lock(g_mutex);
  Registry().push_back({object, zcom, fourcc, arg});
  return AF_S_OK;
}

KxResult ZCoreUnregisterInterface(void* object) {
  if (object == nullptr) return AF_E_POINTER;
  std::lock_guard<std::mutex> lock(g_mutex);
  auto& registry = Registry();
  auto it = std::find_if(registry.rbegin(), registry.rend(), [object](const Registration& r) { return r.object == object; });
  if (it == registry.rend()) return AF_E_FAIL;  // nothing registered for it
  registry.erase(std::next(it).base());
  return AF_S_OK;
}

uint32_t ZCoreInterfaceCount(const void* object) {
  std::lock_guard<std::mutex> lock(g_mutex);
  const auto& registry = Registry();
  return static_cast<uint32_t>(
      std::count_if(registry.begin(), registry.end(), [object](const Registration& r) { return r.object == object; }));
}

int ZCoreHasInterface(const void* object, uint32_t fourcc, Class_ZCOM** zcom, void** arg) {
  std::lock_guard<std::mutex> lock(g_mutex);
  for (const Registration& r : Registry()) {
    if (r.object == object && r.fourcc == fourcc) {
      if (zcom != nullptr) *zcom = r.zcom;
      if (arg != nullptr) *arg = r.arg;
      return 1;
    }
  }
  return 0;
}

}  // extern "C"
