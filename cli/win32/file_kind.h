// kxhost on Windows: what a name is, told without opening it. Opening a pipe's name
// connects to the pipe, and under Wine opening a FIFO lets its writer start, to find
// no reader once the handle is closed; so names are classified by their attributes,
// and only files and folders are ever opened to read their identity.
#pragma once

#include <string>

namespace kxhost {

enum class FileKind {
  kMissing,  // nothing by that name (or its folder is missing)
  kDenied,   // not accessible
  kFile,     // a regular file on a disk
  kFolder,
  kDevice,   // anything else that the name opens: NUL, CON, COM1, \\.\pipe\NAME, a FIFO
};

struct FileFacts {
  FileKind kind = FileKind::kMissing;
  unsigned long attributes = 0;  // FILE_ATTRIBUTE_* of a file or folder
  unsigned long long size = 0;   // of a file
};

// What `path` (UTF-8) names now.
FileFacts FactsOf(const std::string& path);

// Whether `path` names a device by its name alone: CON, PRN, AUX, NUL, COM1 to COM9,
// LPT1 to LPT9 (in any folder, with any extension), CONIN$, CONOUT$, or a name in the
// \\.\ namespace (pipes, volumes, ports).
bool IsDeviceName(const std::string& path);

// The volume serial number and file index of the file or folder `path`, folded into
// one number (0 when it cannot be read).
unsigned long long FileIdentity(const std::string& path);

}  // namespace kxhost
