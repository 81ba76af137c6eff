// Text conversions the tag readers share: ANSI-code-page bytes and UTF-8 bytes to
// UTF-16 and back, all through the platform layer (KxMultiByteToWideChar with CP_ACP)
// or the core library (ZCoreUtf8ToUtf16). Every function takes an explicit byte
// count and never reads past it; zeros inside the input survive the conversion.
#pragma once

#include <cstddef>
#include <string>

namespace kxmp3 {

// `bytes` bytes of the ANSI code page to UTF-16 (zeros inside kept).
std::u16string AnsiToWide(const char* text, size_t bytes);
// A zero-terminated ANSI string to UTF-16.
std::u16string AnsiToWide(const char* text);
// A zero-terminated UTF-16 string to the ANSI code page.
std::string WideToAnsi(const char16_t* text);
// `bytes` bytes of UTF-8 to UTF-16 through the core library's conversion.
std::u16string Utf8ToWideCore(const char* text, size_t bytes);
// The part of `text` before its first zero character.
std::u16string UpToZero(const std::u16string& text);

}  // namespace kxmp3
