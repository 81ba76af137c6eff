// A temporary folder for file-stream tests, removed with everything in it when the
// test ends, and helpers to write and open files in it.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/kxcore.h"
#include "host/zstream.h"
#include "support/temp_folder.h"

namespace kxtest {

class TempDir {
 public:
  TempDir() {
    path_ = MakeTempFolder("kxhostlib-");
  }
  ~TempDir() {
    if (path_.empty()) return;
    std::error_code ec;
#if !defined(_WIN32)
    // Give back permissions a test took away, so that everything can be removed.
    for (auto& entry : std::filesystem::recursive_directory_iterator(path_, ec)) {
      chmod(entry.path().c_str(), 0700);
    }
#endif
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& Path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<uint8_t> PatternBytes(size_t count, uint32_t seed = 1) {
  std::vector<uint8_t> bytes(count);
  for (auto& b : bytes) {
    seed = seed * 1664525u + 1013904223u;
    b = static_cast<uint8_t>(seed >> 24);
  }
  return bytes;
}

inline std::u16string Utf16(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// Makes a file stream through the object factory and opens `path` in `mode`;
// *result gets Create's code. Returns the stream (released by the caller) or null.
inline Class_ZStream* OpenStream(const std::u16string& path, uint32_t mode, KxResult* result) {
  void* object = nullptr;
  *result = ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object);
  if (*result != AF_S_OK) return nullptr;
  auto* stream = static_cast<Class_ZStream*>(object);
  ZStreamOpenRecord record{};
  record.tag = FOURCC_ZSTM;
  record.size = sizeof(record);
  record.mode = mode;
  record.source = path.c_str();
  *result = stream->Create(&record);
  return stream;
}

}  // namespace kxtest
