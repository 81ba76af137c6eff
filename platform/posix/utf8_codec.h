// Internal to the POSIX platform layer: the UTF-8 codec behind code page 65001.
// Decoding replaces each maximal invalid subsequence by U+FFFD (overlong forms,
// encoded surrogates and values above U+10FFFF are invalid); code points above U+FFFF
// become surrogate pairs. Encoding writes an unpaired surrogate as U+FFFD.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kxplat {

// Appends the UTF-16 form of `bytes` bytes to `out`; returns false when any sequence
// was invalid (it was still replaced).
bool Utf8Decode(const uint8_t* src, size_t bytes, std::u16string& out);

// Appends the UTF-8 form of `units` UTF-16 units to `out`; returns false when an
// unpaired surrogate was met (written as U+FFFD).
bool Utf8Encode(const char16_t* src, size_t units, std::string& out);

}  // namespace kxplat
