// MultiByteToWideChar and WideCharToMultiByte over iconv (UTF-8 by the layer's own
// codec). Each thread keeps its own iconv converters, reset before every call, so no
// converter state is shared between threads or between calls.
//
// Bytes a code page cannot decode become U+FFFD: a lead byte with a valid trail byte
// whose pair is unmapped is one replacement for both bytes, any other bad byte one
// replacement for itself. Characters a code page cannot encode become '?'. The five
// bytes code page 1252 leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the C1
// control characters of the same value, as Windows maps them.
#include <errno.h>
#include <iconv.h>

#include <cstring>
#include <map>
#include <string>
#include <utility>

#include "code_page.h"
#include "platform/kx_platform.h"
#include "platform/utf8_codec.h"

namespace kxplat {
namespace {

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr const char* kUtf16 = "UTF-16LE";  // char16_t in host order
#else
constexpr const char* kUtf16 = "UTF-16BE";
#endif

constexpr char16_t kReplacement = 0xFFFD;
const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);

bool Is1252Hole(uint32_t value) {
  return value == 0x81 || value == 0x8D || value == 0x8F || value == 0x90 || value == 0x9D;
}

// Per-thread converters, keyed by code page and direction (true: to UTF-16).
class ConverterCache {
 public:
  ~ConverterCache() {
    for (auto& entry : converters_) {
      if (entry.second != kNoConverter) iconv_close(entry.second);
    }
  }
  iconv_t Get(uint32_t codePage, bool toWide) {
    const auto key = std::make_pair(codePage, toWide);
    auto it = converters_.find(key);
    if (it == converters_.end()) {
      const std::string name = IconvName(codePage);
      iconv_t cd = name.empty() ? kNoConverter
                                : (toWide ? iconv_open(kUtf16, name.c_str()) : iconv_open(name.c_str(), kUtf16));
      it = converters_.emplace(key, cd).first;
    }
    if (it->second != kNoConverter) iconv(it->second, nullptr, nullptr, nullptr, nullptr);  // fresh state
    return it->second;
  }

 private:
  std::map<std::pair<uint32_t, bool>, iconv_t> converters_;
};

ConverterCache& Converters() {
  thread_local ConverterCache cache;
  return cache;
}

// Decodes `bytes` bytes of `codePage` into `out`. Returns false for an unknown code
// page; *valid tells whether every byte decoded.
bool DecodeBytes(uint32_t codePage, const char* src, size_t bytes, std::u16string& out, bool* valid) {
  *valid = true;
  if (codePage == CP_UTF8) {
    *valid = Utf8Decode(reinterpret_cast<const uint8_t*>(src), bytes, out);
    return true;
  }
  iconv_t cd = Converters().Get(codePage, true);
  if (cd == kNoConverter) return false;
  char* in = const_cast<char*>(src);
  size_t inLeft = bytes;
  char16_t chunk[1024];
  while (inLeft > 0) {
    char* outPtr = reinterpret_cast<char*>(chunk);
    size_t outLeft = sizeof(chunk);
    const size_t result = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    const int error = errno;
    out.append(chunk, static_cast<size_t>(outPtr - reinterpret_cast<char*>(chunk)) / sizeof(char16_t));
    if (result != static_cast<size_t>(-1)) break;
    if (error == E2BIG) continue;
    // EILSEQ (an undecodable byte) or EINVAL (a sequence cut off by the end).
    const auto byte = static_cast<uint8_t>(*in);
    size_t skip = 1;
    if (codePage == 1252 && Is1252Hole(byte)) {
      out.push_back(byte);
    } else {
      if (error == EILSEQ && inLeft >= 2 && IsLeadByte(codePage, byte) &&
          IsTrailByte(codePage, static_cast<uint8_t>(in[1]))) {
        skip = 2;  // a well-formed but unmapped double-byte character
      }
      out.push_back(kReplacement);
      *valid = false;
    }
    in += skip;
    inLeft -= skip;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
  }
  char* flushPtr = reinterpret_cast<char*>(chunk);  // end any shift state
  size_t flushLeft = sizeof(chunk);
  iconv(cd, nullptr, nullptr, &flushPtr, &flushLeft);
  out.append(chunk, static_cast<size_t>(flushPtr - reinterpret_cast<char*>(chunk)) / sizeof(char16_t));
  return true;
}

// Encodes `units` UTF-16 units into `codePage`; false for an unknown code page.
bool EncodeUnits(uint32_t codePage, const char16_t* src, size_t units, std::string& out) {
  if (codePage == CP_UTF8) {
    Utf8Encode(src, units, out);
    return true;
  }
  iconv_t cd = Converters().Get(codePage, false);
  if (cd == kNoConverter) return false;
  char* in = reinterpret_cast<char*>(const_cast<char16_t*>(src));
  size_t inLeft = units * sizeof(char16_t);
  char chunk[2048];
  while (inLeft > 0) {
    char* outPtr = chunk;
    size_t outLeft = sizeof(chunk);
    const size_t result = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    const int error = errno;
    out.append(chunk, static_cast<size_t>(outPtr - chunk));
    if (result != static_cast<size_t>(-1)) break;
    if (error == E2BIG) continue;
    // An unmappable character or an unpaired surrogate: '?', and skip it (both units
    // of a well-formed pair).
    char16_t unit;
    std::memcpy(&unit, in, sizeof(unit));
    size_t skip = sizeof(char16_t);
    if (codePage == 1252 && Is1252Hole(unit)) {
      out.push_back(static_cast<char>(unit));
    } else {
      if (unit >= 0xD800 && unit <= 0xDBFF && inLeft >= 2 * sizeof(char16_t)) {
        char16_t next;
        std::memcpy(&next, in + sizeof(char16_t), sizeof(next));
        if (next >= 0xDC00 && next <= 0xDFFF) skip = 2 * sizeof(char16_t);
      }
      out.push_back('?');
    }
    in += skip;
    inLeft -= skip;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
  }
  char* flushPtr = chunk;
  size_t flushLeft = sizeof(chunk);
  iconv(cd, nullptr, nullptr, &flushPtr, &flushLeft);
  out.append(chunk, static_cast<size_t>(flushPtr - chunk));
  return true;
}

}  // namespace
}  // namespace kxplat

extern "C" {

int KxMultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* src, int srcBytes, char16_t* dst,
                          int dstChars) {
  if (src == nullptr || srcBytes == 0 || srcBytes < -1 || dstChars < 0 || (dst == nullptr && dstChars > 0)) return 0;
  const size_t bytes = srcBytes == -1 ? std::strlen(src) + 1 : static_cast<size_t>(srcBytes);
  std::u16string wide;
  bool valid = true;
  if (!kxplat::DecodeBytes(kxplat::ResolveCodePage(codePage), src, bytes, wide, &valid)) return 0;
  return kxplat::AnswerWide(wide, valid, flags, dst, dstChars);
}

int KxWideCharToMultiByte(uint32_t codePage, uint32_t /*flags*/, const char16_t* src, int srcChars, char* dst,
                          int dstBytes) {
  if (src == nullptr || srcChars == 0 || srcChars < -1 || dstBytes < 0 || (dst == nullptr && dstBytes > 0)) return 0;
  size_t units = 0;
  if (srcChars == -1) {
    while (src[units] != 0) ++units;
    ++units;  // the terminator converts too
  } else {
    units = static_cast<size_t>(srcChars);
  }
  std::string narrow;
  if (!kxplat::EncodeUnits(kxplat::ResolveCodePage(codePage), src, units, narrow)) return 0;
  return kxplat::AnswerNarrow(narrow, dst, dstBytes);
}

}  // extern "C"
