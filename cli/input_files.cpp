// The POSIX side of opening kxhost's inputs (see input_files.h): stat and open to
// tell files from FIFOs and devices, mkdtemp for the private folder.
#include "input_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "cli_error.h"
#include "text.h"

namespace kxhost {

namespace {

bool IsUtf8(const std::string& text) { return ToUtf8(ToUtf16(text)) == text; }

[[noreturn]] void CannotOpen(const std::string& path, int error) {
  throw FileError(path, std::string("cannot open: ") + std::strerror(error), ZS_E_FAIL);
}

// The regular file `path`: by its name when that is UTF-8 (names are bytes here),
// else through a link to its absolute name.
InputNode RegularFile(const std::string& path) {
  if (IsUtf8(path)) return InputNode{};
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) CannotOpen(path, errno);
  InputNode node;
  node.kind = InputNode::Kind::kUnnamedFile;
  node.target = resolved;
  std::free(resolved);
  return node;
}

InputNode Stream(int fd) {
  InputNode node;
  node.kind = InputNode::Kind::kStream;
  node.fd = fd;
  return node;
}

}  // namespace

InputNode ExamineInput(const std::string& path) {
  if (path == "-") return Stream(STDIN_FILENO);
  // A FIFO is opened as any reader of a FIFO opens it: waiting for its writer.
  struct stat named {};
  if (stat(path.c_str(), &named) == 0 && S_ISFIFO(named.st_mode)) {
    const int fifo = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fifo < 0) CannotOpen(path, errno);
    return Stream(fifo);
  }
  // O_NONBLOCK: a device that would block its opener (a tape, a modem) must not hang here.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) throw FileError(path, "file not found", ZS_E_NOT_FOUND);
    if (error == EACCES || error == EPERM) throw FileError(path, "permission denied", ZS_E_ACCESS);
    CannotOpen(path, error);
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
    ::close(fd);
    return RegularFile(path);
  }
  if (S_ISCHR(st.st_mode) || S_ISSOCK(st.st_mode)) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return Stream(fd);
  }
  ::close(fd);
  throw FileError(path, "not a regular file", ZS_E_NOT_FOUND);
}

std::string MakePrivateFolder() {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/kxhost-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) return std::string();
  return std::string(name.data()) + "/";
}

int CreatePrivateFile(const std::string& path) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
}

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
  return symlink(target.c_str(), link.c_str()) == 0;
}

void RemoveFile(const std::string& path) { ::unlink(path.c_str()); }

void RemoveFolder(const std::string& folder) { ::rmdir(folder.c_str()); }

}  // namespace kxhost
