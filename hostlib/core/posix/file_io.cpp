// The file stream's system calls on POSIX (see file_io.h): the UTF-16 name is opened
// as UTF-8; reads and writes are pread and pwrite.
#include "../file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/kx_platform.h"

namespace kxcore {
namespace {

KxResult OpenError(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ENAMETOOLONG:
    case ELOOP:
    case ENXIO:
      return ZS_E_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return ZS_E_ACCESS;
    default:
      return ZS_E_FAIL;
  }
}

}  // namespace

KxResult OpenNativeFile(const char16_t* path, size_t units, uint32_t mode, NativeFile* file, int64_t* size) {
  const int bytes = KxWideCharToMultiByte(CP_UTF8, 0, path, static_cast<int>(units), nullptr, 0);
  std::string utf8(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
  if (bytes <= 0 || KxWideCharToMultiByte(CP_UTF8, 0, path, static_cast<int>(units), utf8.data(), bytes) != bytes) {
    return ZS_E_INVALID_ARG;
  }
  // O_NONBLOCK keeps a FIFO from blocking the open; it is refused below anyway.
  const int flags = mode == ZS_MODE_READ ? (O_RDONLY | O_CLOEXEC | O_NONBLOCK)
                                         : (O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK);
  const int fd = ::open(utf8.c_str(), flags, 0666);
  if (fd < 0) return OpenError(errno);
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    ::close(fd);
    return ZS_E_FAIL;
  }
  if (!S_ISREG(st.st_mode)) {  // a directory, device or FIFO is not a file
    ::close(fd);
    return ZS_E_NOT_FOUND;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  *file = fd;
  *size = st.st_size;
  return AF_S_OK;
}

void CloseNativeFile(NativeFile file) { ::close(static_cast<int>(file)); }

// pread until `bytes` arrived, the end of the file, or an error (-1).
int64_t ReadNativeFile(NativeFile file, void* buffer, size_t bytes, int64_t offset) {
  size_t done = 0;
  while (done < bytes) {
    const ssize_t n = pread(static_cast<int>(file), static_cast<char*>(buffer) + done, bytes - done,
                            static_cast<off_t>(offset + static_cast<int64_t>(done)));
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

int64_t WriteNativeFile(NativeFile file, const void* buffer, size_t bytes, int64_t offset) {
  size_t done = 0;
  while (done < bytes) {
    const ssize_t n = pwrite(static_cast<int>(file), static_cast<const char*>(buffer) + done, bytes - done,
                             static_cast<off_t>(offset + static_cast<int64_t>(done)));
    if (n < 0) {
      if (errno == EINTR) continue;
      return done > 0 ? static_cast<int64_t>(done) : -1;
    }
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

bool TruncateNativeFile(NativeFile file, int64_t size) {
  return ftruncate(static_cast<int>(file), static_cast<off_t>(size)) == 0;
}

}  // namespace kxcore
