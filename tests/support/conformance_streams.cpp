// Conformance stream list, frame count and renamed copies (see conformance_streams.h).
#include "conformance_streams.h"

#include <filesystem>

#include "temp_folder.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "memory_stream.h"

namespace kxtest {

const std::vector<ConformanceStream>& ConformantStreams() {
  static const std::vector<ConformanceStream> streams = {
      {"l3-compl", 1, 1152, 0},           {"l3-he_32khz", 1, 1152, 0},        {"l3-he_44khz", 1, 1152, 0},
      {"l3-he_48khz", 1, 1152, 0},        {"l3-hecommon", 2, 1152, 0},        {"l3-si", 1, 1152, 0},
      {"l3-si_block", 1, 1152, 0},        {"l3-si_huff", 1, 1152, 0},         {"l3-sin1k0db", 2, 1152, 2},
      {"M2L3_bitrate_16_all", 1, 576, 0}, {"M2L3_bitrate_22_all", 1, 576, 0}, {"M2L3_bitrate_24_all", 1, 576, 0},
      {"M2L3_compl24", 1, 576, 0},        {"M2L3_noise", 2, 576, 0},
  };
  return streams;
}

size_t CountFrames(const std::vector<uint8_t>& bits) {
  // Layer III bitrates (kbit/s) of MPEG-1 and of MPEG-2/2.5, and the sampling
  // frequencies by version.
  static const uint32_t kKbps[2][15] = {{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
                                        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};
  static const uint32_t kRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};
  size_t pos = 0;
  while (pos + 1 < bits.size() && !(bits[pos] == 0xFF && (bits[pos + 1] & 0xE0) == 0xE0)) ++pos;
  size_t frames = 0;
  while (pos + 4 <= bits.size()) {
    const uint32_t w = (uint32_t{bits[pos]} << 24) | (uint32_t{bits[pos + 1]} << 16) | (uint32_t{bits[pos + 2]} << 8) |
                       bits[pos + 3];
    const uint32_t versionBits = (w >> 19) & 3;
    const uint32_t bitrate = (w >> 12) & 15;
    const uint32_t rateBits = (w >> 10) & 3;
    if ((w >> 21) != 0x7FF || versionBits == 1 || bitrate == 0 || bitrate == 15 || rateBits == 3) break;
    const uint32_t version = versionBits == 3 ? 0 : versionBits == 2 ? 1 : 2;
    const uint32_t kbps = kKbps[version == 0 ? 0 : 1][bitrate];
    pos += (version == 0 ? 144000 : 72000) * kbps / kRates[version][rateBits] + ((w >> 9) & 1);
    ++frames;
  }
  return frames;
}

RenamedCopy::RenamedCopy(const std::string& from, const std::string& name) {
  dir_ = MakeTempFolder("kx_renamed_copy_");
  if (dir_.empty()) return;
  path_ = dir_ + "/" + name;
  const auto bytes = ReadFile(from);
  std::ofstream(path_, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

RenamedCopy::~RenamedCopy() {
  if (!path_.empty()) std::remove(path_.c_str());
  if (!dir_.empty()) std::filesystem::remove(dir_);
}

}  // namespace kxtest
