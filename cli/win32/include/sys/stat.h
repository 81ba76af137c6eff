// kxhost on Windows: <sys/stat.h> as kxhost's POSIX code uses it, over the system's
// UTF-16 calls (cli/win32/posix_compat.cpp), so that UTF-8 paths with any characters
// work: stat and lstat (there are no symbolic links to tell apart) and a mkdir that
// takes a mode (ignored). What a name is comes from its attributes, without opening
// it (cli/win32/file_kind.h): a device or pipe is _S_IFCHR. A file's identity
// (st_dev, st_ino) is its volume's serial number and the file's 64-bit index, folded
// into the 48 bits that mingw-w64's dev_t (32) and ino_t (16) hold: two different
// files compare equal only by a 2^-48 chance (a device has none: 0).
#pragma once

#include_next <sys/stat.h>

#include <sys/types.h>

struct kx_stat {
  unsigned short st_mode;  // _S_IFDIR, _S_IFREG or _S_IFCHR (and the access bits)
  dev_t st_dev;
  ino_t st_ino;
  long long st_size;
};

int kx_stat(const char* path, struct kx_stat* status);
int kx_lstat(const char* path, struct kx_stat* status);
int mkdir(const char* path, mode_t mode);

#define stat kx_stat
#define lstat kx_lstat
