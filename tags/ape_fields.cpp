// APE field container and the APE tag code's UTF-8 conversion (see ape_fields.h).
#include "ape_fields.h"

#include <climits>
#include <cstring>

#include "text_convert.h"

namespace kxmp3 {
namespace {

// Case-insensitive comparison as the C locale does it: only A-Z fold.
char16_t Fold(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; }

bool SameName(const std::u16string& a, const char16_t* b) {
  size_t i = 0;
  for (; i < a.size(); ++i) {
    if (b[i] == 0 || Fold(a[i]) != Fold(b[i])) return false;
  }
  return b[i] == 0;
}

}  // namespace

std::u16string ApeUtf8ToWide(const uint8_t* text, size_t bytes) {
  std::u16string wide;
  if (text == nullptr) return wide;
  auto at = [&](size_t i) -> uint32_t { return i < bytes ? text[i] : 0u; };
  size_t i = 0;
  while (i < bytes && text[i] != 0) {
    const uint32_t lead = text[i];
    uint32_t c;
    if (lead < 0x80) {
      c = lead;
      i += 1;
    } else if ((lead & 0xE0) != 0xE0) {
      c = ((lead & 0x1F) << 6) | (at(i + 1) & 0x3F);
      i += 2;
    } else {
      c = ((lead & 0x0F) << 12) | ((at(i + 1) & 0x3F) << 6) | (at(i + 2) & 0x3F);
      i += 3;
    }
    wide.push_back(static_cast<char16_t>(c));
  }
  return wide;
}

std::string WideToApeUtf8(const char16_t* text) {
  std::string out;
  if (text == nullptr) return out;
  for (size_t i = 0; text[i] != 0; ++i) {
    const uint32_t c = text[i];
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

int ApeTagFields::FindField(const char16_t* name) const {
  if (name == nullptr) return -1;
  for (size_t i = 0; i < fields_.size(); ++i) {
    if (SameName(fields_[i].name, name)) return static_cast<int>(i);
  }
  return -1;
}

int ApeTagFields::SetFieldBytes(const char16_t* name, const uint8_t* value, size_t bytes, uint32_t flags) {
  if (name == nullptr) return -1;
  const int index = FindField(name);
  if (index >= 0 && (fields_[static_cast<size_t>(index)].flags & kApeItemReadOnly) != 0 && !overwriteReadOnly) {
    return -1;
  }
  if (bytes == 0 || value == nullptr) {
    if (index >= 0) RemoveField(index);
    return 0;
  }
  if (index >= 0) {
    Field& field = fields_[static_cast<size_t>(index)];
    field.value.assign(value, value + bytes);
    field.flags = flags;
    return 0;
  }
  if (fields_.size() >= kMaxFields) return -1;
  Field field;
  field.name = name;
  field.value.assign(value, value + bytes);
  field.flags = flags;
  fields_.push_back(std::move(field));
  return 0;
}

int ApeTagFields::SetFieldText(const char16_t* name, const char16_t* value) {
  const std::string utf8 = WideToApeUtf8(value);
  return SetFieldBytes(name, reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size(), 0);
}

int ApeTagFields::RemoveField(int index) {
  if (index < 0 || static_cast<size_t>(index) >= fields_.size()) return -1;
  fields_.erase(fields_.begin() + index);
  return 0;
}

std::u16string ApeTagFields::Decode(const Field& field) const {
  const uint8_t* bytes = field.value.data();
  const size_t size = field.value.size();
  // Version 2 text items are UTF-8, binary or external items and all version 1 items
  // are ANSI text; fields loaded from an ID3v1 tag alone were stored as UTF-8.
  bool utf8;
  if (apeVersion >= 2000) {
    utf8 = (field.flags & kApeItemTypeMask) == 0;
  } else {
    utf8 = apeVersion < 0;
  }
  if (utf8) return ApeUtf8ToWide(bytes, size);
  size_t length = 0;
  while (length < size && bytes[length] != 0) ++length;
  return UpToZero(AnsiToWide(reinterpret_cast<const char*>(bytes), length));
}

std::u16string ApeTagFields::FieldText(const char16_t* name) const {
  const int index = FindField(name);
  return index < 0 ? std::u16string() : Decode(fields_[static_cast<size_t>(index)]);
}

int ApeTagFields::GetFieldText(const char16_t* name, char16_t* buffer, int* length) const {
  if (length == nullptr) return -1;
  const int capacity = *length;
  const int index = FindField(name);
  if (index < 0) {
    *length = 0;
    return -1;
  }
  const std::u16string text = Decode(fields_[static_cast<size_t>(index)]);
  if (text.size() >= static_cast<size_t>(INT_MAX)) return -1;
  const int needed = static_cast<int>(text.size()) + 1;
  *length = needed;
  if (buffer == nullptr || capacity < needed) return -1;
  std::memcpy(buffer, text.data(), text.size() * sizeof(char16_t));
  buffer[text.size()] = 0;
  return 0;
}

}  // namespace kxmp3
