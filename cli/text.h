// Text helpers of kxhost: UTF-16 <-> UTF-8 for printing module strings and passing
// paths to the host libraries, and FourCC codes as their four characters.
#pragma once

#include <cstdint>
#include <string>

namespace kxhost {

// UTF-16 (zero-terminated, or the first `units` units) to UTF-8; unpaired
// surrogates become U+FFFD.
std::string ToUtf8(const char16_t* text);
std::string ToUtf8(const std::u16string& text);
// UTF-8 to UTF-16 (invalid bytes become U+FFFD).
std::u16string ToUtf16(const std::string& text);
// The four characters of a FourCC, first character from the low byte; characters
// outside printable ASCII are shown as '?'.
std::string FourCCText(uint32_t fourcc);
// "1 file", "2 files": a count with its noun in the right number.
std::string CountOf(uint64_t n, const char* singular, const char* plural);

}  // namespace kxhost
