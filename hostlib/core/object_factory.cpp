// The object factory (ordinal 32): makes a new object of a kind and hands out the
// asked-for interface with one reference. The only kind is the file stream (ZSNF),
// whose interface is the stream (FOURCC_ZSTM, or 0 for the object itself, which is
// the same pointer).
#include <new>

#include "file_stream.h"
#include "host/kxcore.h"

extern "C" KxResult ZCoreCreateObject(uint32_t kind, uint32_t iface, void** out) {
  if (out == nullptr) return AF_E_POINTER;
  *out = nullptr;
  if (kind != FOURCC_ZSNF) return ZS_E_UNKNOWN_KIND;
  if (iface != 0 && iface != FOURCC_ZSTM) return AF_E_UNSUPPORTED;
  auto* stream = new (std::nothrow) kxcore::FileStream;
  if (stream == nullptr) return AF_E_FAIL;
  *out = static_cast<Class_ZStream*>(stream);
  return AF_S_OK;
}
