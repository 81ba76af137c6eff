// The UTF-8 codec of code page 65001 (see utf8_codec.h). Well-formed sequences are
// those of Unicode's table of well-formed byte sequences: lead C2-DF with one
// continuation; E0 A0-BF; E1-EC and EE-EF 80-BF; ED 80-9F; F0 90-BF; F1-F3 80-BF;
// F4 80-8F; each followed by the remaining 80-BF continuations.
#include "utf8_codec.h"

#include <cstring>

#include "kx_platform.h"

namespace kxplat {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

void AppendCodePoint(uint32_t cp, std::u16string& out) {
  if (cp < 0x10000) {
    out.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

}  // namespace

bool Utf8Decode(const uint8_t* src, size_t bytes, std::u16string& out) {
  bool valid = true;
  size_t i = 0;
  while (i < bytes) {
    const uint8_t lead = src[i];
    if (lead < 0x80) {
      out.push_back(lead);
      ++i;
      continue;
    }
    int need;
    uint32_t cp;
    uint8_t low = 0x80, high = 0xBF;  // allowed range of the next continuation byte
    if (lead >= 0xC2 && lead <= 0xDF) {
      need = 1;
      cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      need = 2;
      cp = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;   // no overlong 3-byte forms
      if (lead == 0xED) high = 0x9F;  // no encoded surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      need = 3;
      cp = lead & 0x07;
      if (lead == 0xF0) low = 0x90;   // no overlong 4-byte forms
      if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
    } else {
      out.push_back(kReplacement);  // stray continuation byte, C0, C1 or F5-FF
      valid = false;
      ++i;
      continue;
    }
    size_t j = i + 1;
    int got = 0;
    while (got < need && j < bytes && src[j] >= low && src[j] <= high) {
      cp = (cp << 6) | (src[j] & 0x3F);
      low = 0x80;
      high = 0xBF;
      ++j;
      ++got;
    }
    if (got < need) {
      out.push_back(kReplacement);  // one replacement for the maximal invalid prefix
      valid = false;
    } else {
      AppendCodePoint(cp, out);
    }
    i = j;
  }
  return valid;
}

bool Utf8Encode(const char16_t* src, size_t units, std::string& out) {
  bool valid = true;
  for (size_t i = 0; i < units; ++i) {
    uint32_t cp = src[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < units && src[i + 1] >= 0xDC00 && src[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (src[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = kReplacement;
      valid = false;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return valid;
}

int AnswerWide(const std::u16string& wide, bool valid, uint32_t flags, char16_t* dst, int dstChars) {
  if (!valid && (flags & MB_ERR_INVALID_CHARS) != 0) return 0;
  if (wide.size() > 0x7FFFFFFF) return 0;
  const int needed = static_cast<int>(wide.size());
  if (dstChars == 0) return needed;
  if (needed > dstChars) return 0;  // buffer too small
  std::memcpy(dst, wide.data(), wide.size() * sizeof(char16_t));
  return needed;
}

int AnswerNarrow(const std::string& narrow, char* dst, int dstBytes) {
  if (narrow.size() > 0x7FFFFFFF) return 0;
  const int needed = static_cast<int>(narrow.size());
  if (dstBytes == 0) return needed;
  if (needed > dstBytes) return 0;  // buffer too small
  std::memcpy(dst, narrow.data(), narrow.size());
  return needed;
}

int Utf8ToWide(uint32_t flags, const char* src, int srcBytes, char16_t* dst, int dstChars) {
  if (src == nullptr || srcBytes == 0 || srcBytes < -1 || dstChars < 0 || (dst == nullptr && dstChars > 0)) return 0;
  const size_t bytes = srcBytes == -1 ? std::strlen(src) + 1 : static_cast<size_t>(srcBytes);
  std::u16string wide;
  const bool valid = Utf8Decode(reinterpret_cast<const uint8_t*>(src), bytes, wide);
  return AnswerWide(wide, valid, flags, dst, dstChars);
}

int WideToUtf8(const char16_t* src, int srcChars, char* dst, int dstBytes) {
  if (src == nullptr || srcChars == 0 || srcChars < -1 || dstBytes < 0 || (dst == nullptr && dstBytes > 0)) return 0;
  size_t units = static_cast<size_t>(srcChars);
  if (srcChars == -1) {
    units = 0;
    while (src[units] != 0) ++units;
    ++units;  // the terminator converts too
  }
  std::string narrow;
  Utf8Encode(src, units, narrow);
  return AnswerNarrow(narrow, dst, dstBytes);
}

}  // namespace kxplat
