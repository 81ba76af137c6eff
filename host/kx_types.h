// Basic types shared by the host libraries and every plug-in module:
// FourCC codes, the 64-bit position/time union and opaque window handles.
#pragma once

#include <cstddef>
#include <cstdint>

// A FourCC is a 32-bit code whose first character sits in the low byte.
constexpr uint32_t MakeFourCC(char a, char b, char c, char d) {
  return static_cast<uint32_t>(static_cast<uint8_t>(a)) |
         (static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8) |
         (static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24);
}

constexpr uint32_t FOURCC_ZMP3 = MakeFourCC('Z', 'M', 'P', '3');  // this format, its info record
constexpr uint32_t FOURCC_ZAFC = MakeFourCC('Z', 'A', 'F', 'C');  // generic audio-file interface/records
constexpr uint32_t FOURCC_RPGI = MakeFourCC('R', 'P', 'G', 'I');  // ReplayGain record
constexpr uint32_t FOURCC_ZSNF = MakeFourCC('Z', 'S', 'N', 'F');  // file-stream object kind
constexpr uint32_t FOURCC_ZSTM = MakeFourCC('Z', 'S', 'T', 'M');  // stream interface / stream-open record

// 64-bit value used for positions and times.
union QWUNION {
  int64_t i;
  uint64_t u;
  double d;
};
static_assert(sizeof(QWUNION) == 8);

// Opaque window handle of the platform layer (HWND on Windows).
struct KxWindow;
using HWND = KxWindow*;
// Opaque module handle (HMODULE / HINSTANCE on Windows).
struct KxModule;
using HMODULE = KxModule*;
