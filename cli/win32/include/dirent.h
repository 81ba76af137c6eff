// kxhost on Windows: reading a folder as POSIX does, over FindFirstFileW and
// FindNextFileW, with UTF-8 names (cli/win32/posix_compat.cpp); "." and ".." are
// listed as on POSIX.
#pragma once

struct dirent {
  char d_name[1024];  // UTF-8 (a Windows name has at most 255 UTF-16 units)
};

struct KxDirectory;
using DIR = KxDirectory;

DIR* opendir(const char* path);  // null with errno ENOENT, ENOTDIR or EACCES
dirent* readdir(DIR* directory);
int closedir(DIR* directory);
