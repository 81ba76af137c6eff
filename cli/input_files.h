// The system's side of opening kxhost's inputs (file_stream.cpp holds the rest):
// what an input's name opens, and the private temporary folder where pipes are
// copied. POSIX calls in input_files.cpp; Windows calls in win32/input_files.cpp.
#pragma once

#include <string>

namespace kxhost {

// What an input's name opens.
struct InputNode {
  enum class Kind {
    kFile,         // a regular file the core library opens by its name
    kUnnamedFile,  // a regular file whose name the core library cannot take
                   // (bytes that are not UTF-8): opened through a link to `target`
    kStream,       // standard input, a pipe, a FIFO or a device: read from `fd` and copied
  };
  Kind kind = Kind::kFile;
  std::string target;  // kUnnamedFile: the file's absolute name
  int fd = -1;         // kStream: open for reading (the caller closes it, unless standard input)
};

// Examines `path` ("-": standard input); throws FileError ("file not found",
// "permission denied", "a directory, not a file", "not a regular file", ...).
InputNode ExamineInput(const std::string& path);

// Makes a folder only this user can read, in the system's temporary folder; its
// name ends with the path separator. Empty (errno set) on failure.
std::string MakePrivateFolder();
// Creates the new file `path` for writing; its descriptor, or -1 (errno set).
int CreatePrivateFile(const std::string& path);
// Makes `link` a symbolic link to `target`; false (errno set) on failure.
bool MakeSymbolicLink(const std::string& target, const std::string& link);
// Removes a file, or an empty folder (the folder's name as MakePrivateFolder gave it).
void RemoveFile(const std::string& path);
void RemoveFolder(const std::string& folder);

}  // namespace kxhost
