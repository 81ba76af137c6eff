// Text helpers of kxhost (see text.h).
#include "text.h"

namespace kxhost {

namespace {

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendUtf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    c -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (c >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
}

}  // namespace

std::string ToUtf8(const char16_t* text) {
  std::string out;
  if (text == nullptr) return out;
  for (size_t i = 0; text[i] != 0; ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00) {
      const char32_t low = text[i + 1];
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      } else {
        c = 0xFFFD;
      }
    } else if (c >= 0xDC00 && c < 0xE000) {
      c = 0xFFFD;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::string ToUtf8(const std::u16string& text) { return ToUtf8(text.c_str()); }

std::u16string ToUtf16(const std::string& text) {
  std::u16string out;
  size_t i = 0;
  const size_t n = text.size();
  while (i < n) {
    const auto b0 = static_cast<uint8_t>(text[i]);
    char32_t c = 0xFFFD;
    size_t len = 1;
    if (b0 < 0x80) {
      c = b0;
    } else if ((b0 & 0xE0) == 0xC0) {
      len = 2;
    } else if ((b0 & 0xF0) == 0xE0) {
      len = 3;
    } else if ((b0 & 0xF8) == 0xF0) {
      len = 4;
    }
    if (len > 1) {
      bool ok = i + len <= n;
      char32_t v = b0 & (0x7F >> len);
      for (size_t k = 1; ok && k < len; ++k) {
        const auto b = static_cast<uint8_t>(text[i + k]);
        if ((b & 0xC0) != 0x80) ok = false;
        v = (v << 6) | (b & 0x3F);
      }
      static const char32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
      if (ok && v >= kMin[len] && v <= 0x10FFFF && !(v >= 0xD800 && v < 0xE000)) {
        c = v;
      } else {
        len = 1;
      }
    }
    AppendUtf16(out, c);
    i += len;
  }
  return out;
}

std::string FourCCText(uint32_t fourcc) {
  std::string out;
  for (int i = 0; i < 4; ++i) {
    const auto c = static_cast<char>((fourcc >> (8 * i)) & 0xFF);
    out += (c >= 0x20 && c < 0x7F) ? c : '?';
  }
  return out;
}

std::string CountOf(uint64_t n, const char* singular, const char* plural) {
  return std::to_string(n) + " " + (n == 1 ? singular : plural);
}

}  // namespace kxhost
