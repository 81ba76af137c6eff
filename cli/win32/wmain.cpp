// kxhost's entry on Windows: the system gives the arguments as UTF-16; they become
// UTF-8, which the rest of kxhost reads (as on Linux), and main.cpp's main (renamed
// KxHostMain for this build) runs with them. Standard output and error are binary, so
// kxhost writes the same bytes as on Linux (lines end in a line feed; samples pass
// untranslated).
#include "../../platform/win32/windows_api.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <string>
#include <vector>

int KxHostMain(int argc, char** argv);

int wmain(int argc, wchar_t** argv) {
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
  std::vector<std::string> arguments;
  arguments.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) {
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, argv[i], -1, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<size_t>(bytes > 0 ? bytes : 1), '\0');
    if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, argv[i], -1, text.data(), bytes, nullptr, nullptr);
    text.resize(text.size() - 1);  // the terminator
    arguments.push_back(std::move(text));
  }
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return KxHostMain(argc, pointers.data());
}
