// Internal to the platform layer: the UTF-8 codec behind code page 65001, the same
// on every system (so that UTF-8 text converts alike wherever the libraries run),
// and the answers of the two conversion calls built from a converted string.
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

// Answers a MultiByteToWideChar call from the converted `wide`: with dstChars 0 the
// units needed; 0 when the destination is too small, or when a sequence was
// invalid (`valid` false) and `flags` hold MB_ERR_INVALID_CHARS; else the units
// written to `dst`.
int AnswerWide(const std::u16string& wide, bool valid, uint32_t flags, char16_t* dst, int dstChars);

// Answers a WideCharToMultiByte call from the converted `narrow` (as AnswerWide,
// without the flag).
int AnswerNarrow(const std::string& narrow, char* dst, int dstBytes);

// Code page 65001 with the two calls' arguments and answers: `srcBytes` / `srcChars`
// -1 converts through the terminator. Bad arguments answer 0.
int Utf8ToWide(uint32_t flags, const char* src, int srcBytes, char16_t* dst, int dstChars);
int WideToUtf8(const char16_t* src, int srcChars, char* dst, int dstBytes);

}  // namespace kxplat
