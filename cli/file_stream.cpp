// Opening a file as a host stream (see file_stream.h).
#include "file_stream.h"

#include <sys/stat.h>

#include <cstdio>

#include "host/kxcore.h"
#include "module_loader.h"
#include "text.h"

namespace kxhost {

Class_ZStream* OpenFileStream(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) throw CliError("file not found: " + path);
  if (!S_ISREG(st.st_mode)) throw CliError("not a regular file: " + path);
  void* object = nullptr;
  KxResult rc = ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object);
  if (rc != AF_S_OK || object == nullptr) {
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%X", rc);
    throw CliError(std::string("the core library could not make a file stream: ") + hex);
  }
  StreamRef stream(static_cast<Class_ZStream*>(object));
  const std::u16string wide = ToUtf16(path);
  ZStreamOpenRecord record{};
  record.tag = FOURCC_ZSTM;
  record.size = sizeof(record);
  record.mode = ZS_MODE_READ;
  record.source = wide.c_str();
  rc = stream.Get()->Create(&record);
  if (rc != AF_S_OK) {
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%X", rc);
    throw CliError("cannot open " + path + ": stream error " + hex);
  }
  return stream.Release();
}

}  // namespace kxhost
