// Opening an input as a host stream (see file_stream.h).
#include "file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "cli_error.h"
#include "descriptor_stream.h"
#include "host/kxcore.h"
#include "text.h"

namespace kxhost {

namespace {

std::mutex g_pipeMutex;
uint64_t g_pipeLimit = kDefaultPipeLimit;
// Pipes already copied, by the name they were given: the copy's descriptor.
std::map<std::string, int> g_pipeCopies;

std::string SizeText(uint64_t bytes) {
  if (bytes % (uint64_t{1} << 30) == 0) return std::to_string(bytes >> 30) + " GiB";
  if (bytes % (uint64_t{1} << 20) == 0) return std::to_string(bytes >> 20) + " MiB";
  return std::to_string(bytes) + " bytes";
}

Class_ZStream* OpenCoreStream(const std::string& path) {
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
  if (rc != AF_S_OK) throw FileError(path, ResultReason(rc), rc);
  return stream.Release();
}

// Copies everything `fd` gives into an unlinked temporary file; returns its
// descriptor. Throws FileError past the bound or on a read or write error.
int CopyPipe(int fd, const std::string& path) {
  const char* dir = std::getenv("TMPDIR");
  std::string pattern = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/kxhost-input-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int copy = mkostemp(name.data(), O_CLOEXEC);
  if (copy < 0) {
    throw FileError(path, std::string("cannot make a temporary copy of the pipe: ") + std::strerror(errno), ZS_E_FAIL);
  }
  ::unlink(name.data());
  std::vector<uint8_t> buffer(1 << 16);
  uint64_t total = 0;
  for (;;) {
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      ::close(copy);
      throw FileError(path, std::string("read error: ") + std::strerror(error), ZS_E_FAIL);
    }
    if (n == 0) break;
    total += static_cast<uint64_t>(n);
    if (total > g_pipeLimit) {
      ::close(copy);
      throw FileError(path, "more than " + SizeText(g_pipeLimit) +
                                " from a pipe; save it to a file, or raise the bound with --pipe-limit",
                      ZS_E_FAIL);
    }
    for (ssize_t done = 0; done < n;) {
      const ssize_t w = ::write(copy, buffer.data() + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) {
        const int error = errno;
        ::close(copy);
        throw FileError(path, std::string("cannot copy the pipe to a temporary file: ") + std::strerror(error),
                        ZS_E_FAIL);
      }
      done += w;
    }
  }
  return copy;
}

// A stream over the copy of the pipe named `path` when it was read before, else null.
Class_ZStream* OpenCopyAgain(const std::string& path) {
  std::lock_guard<std::mutex> lock(g_pipeMutex);
  const auto it = g_pipeCopies.find(path);
  if (it == g_pipeCopies.end()) return nullptr;
  const int own = fcntl(it->second, F_DUPFD_CLOEXEC, 0);
  if (own < 0) throw FileError(path, std::string("read error: ") + std::strerror(errno), ZS_E_FAIL);
  return new DescriptorStream(own, path == "-" ? u"stdin" : ToUtf16(path));
}

// A descriptor stream over a copy of the pipe `fd` (taken over), made once per name.
Class_ZStream* OpenPipeStream(int fd, const std::string& path) {
  std::lock_guard<std::mutex> lock(g_pipeMutex);
  auto it = g_pipeCopies.find(path);
  if (it == g_pipeCopies.end()) {
    int copy;
    try {
      copy = CopyPipe(fd, path);
    } catch (...) {
      if (fd != STDIN_FILENO) ::close(fd);
      throw;
    }
    if (fd != STDIN_FILENO) ::close(fd);
    it = g_pipeCopies.emplace(path, copy).first;
  } else if (fd != STDIN_FILENO) {
    ::close(fd);
  }
  const int own = fcntl(it->second, F_DUPFD_CLOEXEC, 0);
  if (own < 0) throw FileError(path, std::string("read error: ") + std::strerror(errno), ZS_E_FAIL);
  return new DescriptorStream(own, path == "-" ? u"stdin" : ToUtf16(path));
}

bool IsUtf8(const std::string& text) { return ToUtf8(ToUtf16(text)) == text; }

}  // namespace

void SetPipeLimit(uint64_t bytes) {
  std::lock_guard<std::mutex> lock(g_pipeMutex);
  g_pipeLimit = bytes;
}

Class_ZStream* OpenFileStream(const std::string& path) {
  // A pipe can be read once: a second open (probe, then info or decode) gets its copy.
  if (Class_ZStream* again = OpenCopyAgain(path)) return again;
  if (path == "-") {
    struct stat st {};
    if (fstat(STDIN_FILENO, &st) == 0 && S_ISREG(st.st_mode) && lseek(STDIN_FILENO, 0, SEEK_CUR) == 0) {
      // A file redirected to standard input is read in place.
      const int own = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
      if (own >= 0) return new DescriptorStream(own, u"stdin");
    }
    return OpenPipeStream(STDIN_FILENO, path);
  }
  // A FIFO is opened as any reader of a FIFO opens it: waiting for its writer.
  struct stat named {};
  if (stat(path.c_str(), &named) == 0 && S_ISFIFO(named.st_mode)) {
    const int fifo = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fifo < 0) throw FileError(path, std::string("cannot open: ") + std::strerror(errno), ZS_E_FAIL);
    return OpenPipeStream(fifo, path);
  }
  // O_NONBLOCK: a device that would block its opener (a tape, a modem) must not hang here.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) throw FileError(path, "file not found", ZS_E_NOT_FOUND);
    if (error == EACCES || error == EPERM) throw FileError(path, "permission denied", ZS_E_ACCESS);
    throw FileError(path, std::string("cannot open: ") + std::strerror(error), ZS_E_FAIL);
  }
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    ::close(fd);
    throw FileError(path, "read error", ZS_E_FAIL);
  }
  if (S_ISDIR(st.st_mode)) {
    ::close(fd);
    throw FileError(path, "a directory, not a file", ZS_E_NOT_FOUND);
  }
  if (S_ISREG(st.st_mode)) {
    if (IsUtf8(path)) {
      ::close(fd);
      return OpenCoreStream(path);
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return new DescriptorStream(fd, ToUtf16(path));
  }
  if (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode) || S_ISSOCK(st.st_mode)) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return OpenPipeStream(fd, path);
  }
  ::close(fd);
  throw FileError(path, "not a regular file", ZS_E_NOT_FOUND);
}

}  // namespace kxhost
