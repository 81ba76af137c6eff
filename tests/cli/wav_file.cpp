// The tests' WAV parser (see wav_file.h).
#include "wav_file.h"

#include <algorithm>
#include <cstring>

namespace kxtest {

uint16_t LittleU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t LittleU32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t{p[3]} << 24); }

Wav ParseWav(const std::vector<uint8_t>& f) {
  Wav w;
  if (f.size() < 12 || std::memcmp(f.data(), "RIFF", 4) != 0 || std::memcmp(f.data() + 8, "WAVE", 4) != 0) return w;
  size_t pos = 12;
  bool haveFmt = false;
  while (pos + 8 <= f.size()) {
    const uint32_t size = LittleU32(&f[pos + 4]);
    const uint8_t* body = &f[pos + 8];
    if (std::memcmp(&f[pos], "fmt ", 4) == 0 && size >= 16 && f.size() - pos - 8 >= size) {
      w.formatTag = LittleU16(body);
      w.channels = LittleU16(body + 2);
      w.rate = LittleU32(body + 4);
      w.byteRate = LittleU32(body + 8);
      w.blockAlign = LittleU16(body + 12);
      w.bits = LittleU16(body + 14);
      if (w.formatTag == 0xFFFE && size >= 40) w.formatTag = LittleU16(body + 24);  // extensible: sub-format
      haveFmt = true;
    } else if (std::memcmp(&f[pos], "data", 4) == 0) {
      const size_t n = std::min<size_t>(size, f.size() - pos - 8);
      w.data.assign(body, body + n);
      w.ok = haveFmt;
      return w;
    }
    pos += 8 + size + (size & 1);
  }
  return w;
}

}  // namespace kxtest
