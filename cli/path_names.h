// The names in kxhost's paths: where the last name begins, and a name joined to a
// folder. POSIX separates names with '/' only; Windows with '/' and '\' alike, so
// that "C:\music\a.mp3" is the file a.mp3 in C:\music there, as the system reads it.
#pragma once

#include <string>

namespace kxhost {

// '/' on every system, and '\' on Windows (path_separator.cpp, win32/path_separator.cpp).
bool IsPathSeparator(char c);

// The position of the last separator of `path`, or std::string::npos.
size_t LastSeparator(const std::string& path);
// The last name of `path` ("a.mp3" of "music/a.mp3").
std::string BaseName(const std::string& path);
// The separator `folder`'s text uses last, or '/' when it has none.
char SeparatorIn(const std::string& folder);
// `name` in `folder`, joined with the separator the folder's text already uses:
// "C:\music" + "a.mp3" is "C:\music\a.mp3", and "music" + "a.mp3" is "music/a.mp3".
// An empty folder gives `name` itself.
std::string JoinPath(const std::string& folder, const std::string& name);

}  // namespace kxhost
