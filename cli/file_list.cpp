// Expanding FILE|DIR arguments into files (see file_list.h).
#include "file_list.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "cli_error.h"
#include "path_names.h"

namespace kxhost {

namespace {

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void ListDirectory(const std::string& dir, const std::string& relative, bool recursive,
                   std::vector<InputFile>& out) {
  DIR* handle = opendir(dir.c_str());
  if (handle == nullptr) {
    InputFile failed;
    failed.path = dir;
    failed.relative = relative;
    failed.fromDirectory = true;
    failed.listError = errno == EACCES ? ZS_E_ACCESS : ZS_E_FAIL;
    failed.listReason = errno == EACCES ? "cannot read the directory: permission denied" : "cannot read the directory";
    out.push_back(failed);
    return;
  }
  std::vector<std::string> names;
  while (dirent* entry = readdir(handle)) {
    if (entry->d_name[0] != '.') names.push_back(entry->d_name);
  }
  closedir(handle);
  std::sort(names.begin(), names.end());
  for (const auto& name : names) {
    // Names below the folder are joined as the folder's own text joins them.
    const std::string path = JoinPath(dir, name);
    const std::string rel = relative.empty() ? name : relative + SeparatorIn(dir) + name;
    struct stat link {};
    if (lstat(path.c_str(), &link) != 0) continue;
    if (S_ISDIR(link.st_mode)) {
      if (recursive) ListDirectory(path, rel, recursive, out);
      continue;
    }
    struct stat target {};
    if (stat(path.c_str(), &target) != 0 || !S_ISREG(target.st_mode)) continue;  // dangling link, FIFO, device
    InputFile file;
    file.path = path;
    file.relative = rel;
    file.fromDirectory = true;
    out.push_back(file);
  }
}

}  // namespace

std::vector<InputFile> ExpandInputs(const std::vector<std::string>& arguments, bool recursive) {
  std::vector<InputFile> out;
  for (const auto& argument : arguments) {
    if (IsDirectory(argument)) {
      ListDirectory(argument, "", recursive, out);
      continue;
    }
    InputFile file;
    file.path = argument;
    file.relative = BaseName(argument);
    out.push_back(file);
  }
  return out;
}

}  // namespace kxhost
