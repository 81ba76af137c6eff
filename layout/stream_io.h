// Small helpers over the host stream used by container detection, the header
// parser and the frame scan: whole reads (a short read counts as a failure),
// reads at an absolute position, and the case-insensitive extension test on the
// stream's name. Words are assembled by engine/byte_order.h.
#pragma once

#include <cstdint>

#include "../engine/byte_order.h"
#include "../host/zstream.h"

namespace kxmp3::layout_io {

// Reads exactly `bytes`; false on any stream error or a short read.
inline bool ReadExact(Class_ZStream* stream, void* buffer, uint32_t bytes) {
  uint32_t got = 0;
  KxResult r = stream->Read(buffer, bytes, &got);
  return r == AF_S_OK && got == bytes;
}

// Reads up to `bytes`; returns the count that arrived (0 on an error before any byte).
inline uint32_t ReadSome(Class_ZStream* stream, void* buffer, uint32_t bytes) {
  uint32_t got = 0;
  KxResult r = stream->Read(buffer, bytes, &got);
  if (r != AF_S_OK && r != ZS_E_END_OF_DATA) return 0;
  return got > bytes ? bytes : got;
}

inline bool SeekTo(Class_ZStream* stream, int64_t position) {
  return stream->Seek(position, ZS_SEEK_SET) == AF_S_OK;
}

inline bool Tell(Class_ZStream* stream, int64_t* position) {
  return stream->GetPosition(position) == AF_S_OK;
}

// True when `ext` (a zero-terminated UTF-16 extension such as ".Mp3") equals the
// ASCII text `want` ignoring ASCII case.
inline bool ExtensionIs(const char16_t* ext, const char* want) {
  for (;; ++ext, ++want) {
    char16_t a = *ext;
    char16_t b = static_cast<unsigned char>(*want);
    if (a >= u'A' && a <= u'Z') a = static_cast<char16_t>(a - u'A' + u'a');
    if (b >= u'A' && b <= u'Z') b = static_cast<char16_t>(b - u'A' + u'a');
    if (a != b) return false;
    if (a == 0) return true;
  }
}

}  // namespace kxmp3::layout_io
