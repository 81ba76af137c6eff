// Opening a file as a host stream (see file_stream.h).
#include "file_stream.h"

#include <sys/stat.h>

#include "cli_error.h"
#include "host/kxcore.h"
#include "text.h"

namespace kxhost {

Class_ZStream* OpenFileStream(const std::string& path) {
  void* object = nullptr;
  KxResult rc = ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object);
  if (rc != AF_S_OK || object == nullptr) {
    throw CliError("the core library could not make a file stream (" + ResultText(rc) + ")");
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
    // The stream says "not found" for anything that is not a regular file too.
    struct stat st {};
    const bool exists = stat(path.c_str(), &st) == 0;
    std::string reason = ResultReason(rc);
    if (rc == ZS_E_NOT_FOUND && exists && S_ISDIR(st.st_mode)) reason = "a directory, not a file";
    else if (rc == ZS_E_NOT_FOUND && exists && !S_ISREG(st.st_mode)) reason = "not a regular file";
    throw FileError(path, reason, rc);
  }
  return stream.Release();
}

}  // namespace kxhost
