// Opening an input as a host stream (see file_stream.h).
#include "file_stream.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "cli_error.h"
#include "host/kxcore.h"
#include "input_files.h"
#include "interrupt.h"
#include "path_names.h"
#include "text.h"

namespace kxhost {

namespace {

// The private folder of input copies and links, and what each input became there.
class InputAliases {
 public:
  ~InputAliases() { Remove(); }

  // The UTF-8 path standing for `input`, if it has one already.
  std::string Find(const std::string& input) {
    const auto it = aliases_.find(input);
    return it == aliases_.end() ? std::string() : it->second;
  }
  // A new name in the folder ("N.ext", or `stem` + ".ext" when given), keeping
  // `extension`.
  std::string NewName(const std::string& extension, const std::string& stem = std::string()) {
    if (folder_.empty()) {
      folder_ = MakePrivateFolder();
      if (folder_.empty()) return std::string();
      AtInterruptExit(&RemoveInputCopies);
    }
    ++count_;
    return folder_ + (stem.empty() ? std::to_string(count_) : stem) + extension;
  }
  void Add(const std::string& input, const std::string& alias) { aliases_[input] = alias; }
  void Remove() {
    if (folder_.empty()) return;
    for (const auto& [input, alias] : aliases_) RemoveFile(alias);
    RemoveFolder(folder_);
    folder_.clear();
    aliases_.clear();
  }

 private:
  std::string folder_;
  unsigned count_ = 0;
  std::map<std::string, std::string> aliases_;
};

std::mutex g_mutex;
InputAliases g_aliases;
uint64_t g_pipeLimit = kDefaultPipeLimit;

std::string SizeText(uint64_t bytes) {
  if (bytes % (uint64_t{1} << 30) == 0) return std::to_string(bytes >> 30) + " GiB";
  if (bytes % (uint64_t{1} << 20) == 0) return std::to_string(bytes >> 20) + " MiB";
  return std::to_string(bytes) + " bytes";
}

// ".mp3" of "a/b.mp3" when it is plain text; `fallback` otherwise.
std::string ExtensionOf(const std::string& path, const std::string& fallback) {
  const size_t slash = LastSeparator(path);
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash + 2) || dot == 0) return fallback;
  const std::string ext = path.substr(dot);
  for (char c : ext) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '/' || c == '\\' || byte < 0x20 || byte >= 0x7F) return fallback;
  }
  return ext;
}

// Opens the UTF-8 `path` through the core library; errors name `shown`.
Class_ZStream* OpenCoreStream(const std::string& path, const std::string& shown) {
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
  if (rc != AF_S_OK) throw FileError(shown, ResultReason(rc), rc);
  return stream.Release();
}

// Copies everything `fd` gives into `copy`; throws FileError (naming `shown`) past
// the bound or on a read or write error.
void CopyPipe(int fd, const std::string& copy, const std::string& shown) {
  const int out = CreatePrivateFile(copy);
  if (out < 0) {
    throw FileError(shown, std::string("cannot make a temporary copy of the pipe: ") + std::strerror(errno),
                    ZS_E_FAIL);
  }
  std::vector<uint8_t> buffer(1 << 16);
  uint64_t total = 0;
  std::string failure;
  for (;;) {
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      failure = std::string("read error: ") + std::strerror(errno);
      break;
    }
    if (n == 0) break;
    total += static_cast<uint64_t>(n);
    if (total > g_pipeLimit) {
      failure = "more than " + SizeText(g_pipeLimit) +
                " from a pipe; save it to a file, or raise the bound with --pipe-limit";
      break;
    }
    for (ssize_t done = 0; done < n && failure.empty();) {
      const ssize_t w = ::write(out, buffer.data() + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) failure = std::string("cannot copy the pipe to a temporary file: ") + std::strerror(errno);
      else done += w;
    }
    if (!failure.empty()) break;
  }
  if (::close(out) != 0 && failure.empty()) {
    failure = std::string("cannot copy the pipe to a temporary file: ") + std::strerror(errno);
  }
  if (!failure.empty()) {
    RemoveFile(copy);
    throw FileError(shown, failure, ZS_E_FAIL);
  }
}

// The copy of the pipe `fd` (closed here unless it is standard input, "-"), made once
// per name. Called with g_mutex held.
std::string CopyOf(int fd, const std::string& path) {
  // Standard input is "stdin.mp3" for the module (the dialog shows that name).
  const std::string copy =
      path == "-" ? g_aliases.NewName(".mp3", "stdin") : g_aliases.NewName(ExtensionOf(path, ".mp3"));
  try {
    if (copy.empty()) throw FileError(path, std::string("cannot make a temporary folder: ") + std::strerror(errno), ZS_E_FAIL);
    CopyPipe(fd, copy, path);
  } catch (...) {
    if (path != "-") ::close(fd);
    throw;
  }
  if (path != "-") ::close(fd);
  g_aliases.Add(path, copy);
  return copy;
}

// A UTF-8 name for the regular file `path` whose own name the core library cannot
// take: a symbolic link to `target` (its absolute name). Called with g_mutex held.
std::string LinkTo(const std::string& path, const std::string& target) {
  const std::string link = g_aliases.NewName(ExtensionOf(path, ""));
  if (link.empty() || !MakeSymbolicLink(target, link)) {
    throw FileError(path, std::string("cannot open a file of this name: ") + std::strerror(errno), ZS_E_FAIL);
  }
  g_aliases.Add(path, link);
  return link;
}

// The UTF-8 path that opens `path`: the path itself, or its copy or link.
std::string OpenablePath(const std::string& path) {
  std::lock_guard<std::mutex> lock(g_mutex);
  // A pipe can be read once: a second open (probe, then info or decode) gets its copy.
  if (std::string alias = g_aliases.Find(path); !alias.empty()) return alias;
  const InputNode node = ExamineInput(path);
  switch (node.kind) {
    case InputNode::Kind::kStream: return CopyOf(node.fd, path);
    case InputNode::Kind::kUnnamedFile: return LinkTo(path, node.target);
    case InputNode::Kind::kFile: break;
  }
  return path;
}

}  // namespace

void SetPipeLimit(uint64_t bytes) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_pipeLimit = bytes;
}

Class_ZStream* OpenFileStream(const std::string& path) { return OpenCoreStream(OpenablePath(path), path); }

void RemoveInputCopies() { g_aliases.Remove(); }

}  // namespace kxhost
