// Class_ZStream: the stream interface's base. Every stream identifies itself with
// FOURCC_ZSTM and answers QueryInterface(FOURCC_ZSTM) with itself.
#include "host/zstream.h"

Class_ZStream::Class_ZStream() { SetCoreData(sizeof(Class_ZStream), FOURCC_ZSTM); }

Class_ZStream::~Class_ZStream() = default;

KxResult Class_ZStream::QueryInterface(uint32_t fourcc, void** out) {
  if (out == nullptr) return AF_E_POINTER;
  if (fourcc == FOURCC_ZSTM) {
    *out = static_cast<Class_ZStream*>(this);
    AddRef();
    return AF_S_OK;
  }
  return Class_ZCOM::QueryInterface(fourcc, out);
}
