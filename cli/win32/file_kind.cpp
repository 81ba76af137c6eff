// What a name is, without opening it (see file_kind.h).
#include "../../platform/win32/windows_api.h"

#include "file_kind.h"

#include <cerrno>

#include "system_error.h"
#include "utf16_path.h"

namespace kxhost {

namespace {

uint64_t Mix(uint64_t x) {  // splitmix64's finaliser
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

}  // namespace

bool IsDeviceName(const std::string& path) {
  const auto slash = [](char c) { return c == '\\' || c == '/'; };
  if (path.size() > 4 && slash(path[0]) && slash(path[1]) && path[2] == '.' && slash(path[3])) return true;
  const size_t last = path.find_last_of("/\\:");
  std::string name = path.substr(last == std::string::npos ? 0 : last + 1);
  name = name.substr(0, name.find('.'));
  while (!name.empty() && name.back() == ' ') name.pop_back();
  for (char& c : name) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  if (name == "CON" || name == "PRN" || name == "AUX" || name == "NUL" || name == "CONIN$" || name == "CONOUT$") {
    return true;
  }
  return name.size() == 4 && (name.compare(0, 3, "COM") == 0 || name.compare(0, 3, "LPT") == 0) &&
         name[3] >= '1' && name[3] <= '9';
}

FileFacts FactsOf(const std::string& path) {
  FileFacts facts;
  if (IsDeviceName(path)) {
    facts.kind = FileKind::kDevice;
    return facts;
  }
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(Utf16Path(path).c_str(), GetFileExInfoStandard, &data)) {
    // A name that exists but has no file attributes is a device (Wine answers so
    // for the FIFOs and devices of the Unix side).
    switch (ErrnoOf(GetLastError())) {
      case ENOENT: facts.kind = FileKind::kMissing; break;
      case EACCES: facts.kind = FileKind::kDenied; break;
      default: facts.kind = FileKind::kDevice; break;
    }
    return facts;
  }
  facts.attributes = data.dwFileAttributes;
  facts.kind = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::kFolder : FileKind::kFile;
  facts.size = (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
  return facts;
}

unsigned long long FileIdentity(const std::string& path) {
  const FileKind kind = FactsOf(path).kind;
  if (kind != FileKind::kFile && kind != FileKind::kFolder) return 0;
  // Backup semantics: a folder opens too.
  HANDLE handle = CreateFileW(Utf16Path(path).c_str(), FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return 0;
  BY_HANDLE_FILE_INFORMATION info{};
  const bool ok = GetFileInformationByHandle(handle, &info) != 0;
  CloseHandle(handle);
  if (!ok) return 0;
  const uint64_t index = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
  return Mix(index ^ Mix(info.dwVolumeSerialNumber)) | 1;  // never 0
}

}  // namespace kxhost
