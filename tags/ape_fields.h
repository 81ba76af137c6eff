// The APE tag code's field container: the items of one tag (and the ID3v1 values
// loaded beside them) keyed by name, compared without regard to case ("ARTIST" and
// "Artist" are one field), plus the tag's own UTF-8 conversion, which is deliberately
// simpler than the system's: no validation and no characters above U+FFFF.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kxmp3 {

// APE item flags: bit 0 read-only, bits 1-2 data type (0 text).
constexpr uint32_t kApeItemReadOnly = 1;
constexpr uint32_t kApeItemTypeMask = 6;

// UTF-8 as the APE tag code reads it: a byte below 0x80 is one character, a byte whose
// top three bits are not all set leads a 2-byte sequence, any other leads a 3-byte
// sequence; continuation bytes give their low 6 bits. Stops at the first zero byte
// or after `bytes` bytes; a sequence cut off by the end reads missing bytes as zero.
std::u16string ApeUtf8ToWide(const uint8_t* text, size_t bytes);
// The matching encoder: 1 byte below 0x80, 2 below 0x800, 3 otherwise.
std::string WideToApeUtf8(const char16_t* text);

class ApeTagFields {
 public:
  static constexpr size_t kMaxFields = 256;

  struct Field {
    std::u16string name;
    std::vector<uint8_t> value;
    uint32_t flags = 0;
  };

  // Index of the field of that name (case-insensitive), or -1.
  int FindField(const char16_t* name) const;
  // Stores a field. An existing field is replaced in place unless it is read-only
  // (then nothing changes and -1 is returned); an empty value removes the field; a
  // new field beyond kMaxFields is dropped (-1). 0 on success.
  int SetFieldBytes(const char16_t* name, const uint8_t* value, size_t bytes, uint32_t flags);
  // Stores a wide text as UTF-8 (flags 0); an empty text removes the field.
  int SetFieldText(const char16_t* name, const char16_t* value);
  // Removes the field at `index`; later fields move up one place. -1 for a bad index.
  int RemoveField(int index);
  void RemoveAllFields() { fields_.clear(); }
  // Copies the field as wide text into buffer[0..*length). Returns 0 and sets *length
  // to the length with terminator; -1 and the needed length when the buffer is too
  // small; -1 and 0 when there is no such field.
  int GetFieldText(const char16_t* name, char16_t* buffer, int* length) const;
  // The field's value as wide text (empty when absent), decoded by the tag version.
  std::u16string FieldText(const char16_t* name) const;

  size_t FieldCount() const { return fields_.size(); }
  const Field& FieldAt(size_t index) const { return fields_[index]; }

  // What the analysis found.
  bool analysed = false;
  bool hasId3v1 = false;
  bool hasApeTag = false;
  int32_t apeVersion = -1;         // 1000, 2000 or -1 when there is no APE tag
  uint64_t totalTagBytes = 0;      // ID3v1 + APE tag + its optional header
  bool overwriteReadOnly = false;  // stays off: read-only items are never replaced

 private:
  std::u16string Decode(const Field& field) const;
  std::vector<Field> fields_;
};

}  // namespace kxmp3
