// kxhost on Windows: its paths are UTF-8 (as the arguments wmain.cpp converted), the
// system's calls take UTF-16.
#pragma once

#include <string>

namespace kxhost {

std::wstring Utf16Path(const std::string& utf8);
std::string Utf8Path(const std::wstring& utf16);

}  // namespace kxhost
