// The inputs of a command that takes FILE|DIR...: each file as given, and the files
// of each directory (its subfolders too with -r), in a stable order (names sorted
// byte-wise) so that output never depends on the order the system lists them in.
#pragma once

#include <string>
#include <vector>

#include "host/kx_result_codes.h"

namespace kxhost {

struct InputFile {
  std::string path;          // to open
  std::string relative;      // below the directory it was found in; the base name for a FILE argument
  bool fromDirectory = false;
  // A directory that could not be read is listed as one failed entry.
  KxResult listError = AF_S_OK;
  std::string listReason;
};

// Expands the arguments. A FILE argument is kept as it is, even when it does not
// exist (opening it then reports why). Hidden entries (names starting with '.') of
// a directory are skipped; symbolic links to files are followed, links to
// directories are not (no loops).
std::vector<InputFile> ExpandInputs(const std::vector<std::string>& arguments, bool recursive);

}  // namespace kxhost
