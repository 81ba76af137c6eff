// The APE field container and the APE tag code's own UTF-8 conversion.
#include <gtest/gtest.h>

#include <string>

#include "tag_test_util.h"
#include "tags/ape_fields.h"

namespace {

using kxmp3::ApeTagFields;
using kxmp3::ApeUtf8ToWide;
using kxmp3::WideToApeUtf8;

std::u16string Decode(std::initializer_list<int> bytes) {
  kxtest::Bytes b;
  kxtest::Put(b, bytes);
  return ApeUtf8ToWide(b.data(), b.size());
}

TEST(ApeUtf8, DecodesOneTwoAndThreeByteSequences) {
  EXPECT_EQ(Decode({'A', 0xC3, 0xA9, 0xE2, 0x9C, 0x93}), u"Aé✓");
  EXPECT_EQ(Decode({0xE6, 0x97, 0xA5, 0xE6, 0x9C, 0xAC}), u"日本");
}

TEST(ApeUtf8, NoValidation) {
  // A continuation byte as lead reads as a 2-byte lead; bad continuations give their
  // low 6 bits; a 4-byte lead is taken as a 3-byte lead (no characters above U+FFFF).
  EXPECT_EQ(Decode({0xC3, 0x41}), std::u16string(1, char16_t{0xC1}));
  EXPECT_EQ(Decode({0x80, 0x80}), std::u16string(1, char16_t{0x0000}));
  const std::u16string emoji = Decode({0xF0, 0x9F, 0x98, 0x80, 'x'});
  ASSERT_EQ(emoji.size(), 2u);
  EXPECT_EQ(emoji[0], char16_t{0x07D8});  // F0 9F 98: (0 << 12) | (0x1F << 6) | 0x18
  EXPECT_EQ(emoji[1], char16_t{0x0038});  // 80 'x': a 2-byte lead, (0 << 6) | ('x' & 0x3F)
}

TEST(ApeUtf8, StopsAtZeroAndAtTheEnd) {
  EXPECT_EQ(Decode({'a', 0, 'b'}), u"a");
  // A sequence cut off by the end reads the missing bytes as zero.
  EXPECT_EQ(Decode({0xE2, 0x9C}), std::u16string(1, char16_t{0x2700}));
  EXPECT_EQ(Decode({0xC3}), std::u16string(1, char16_t{0xC0}));
  EXPECT_EQ(ApeUtf8ToWide(nullptr, 5), u"");
}

TEST(ApeUtf8, EncoderWritesOneTwoOrThreeBytes) {
  EXPECT_EQ(WideToApeUtf8(u"A"), "A");
  EXPECT_EQ(WideToApeUtf8(u"é"), "\xC3\xA9");
  EXPECT_EQ(WideToApeUtf8(u"\u07FF"), "\xDF\xBF");
  EXPECT_EQ(WideToApeUtf8(u"\u0800"), "\xE0\xA0\x80");
  EXPECT_EQ(WideToApeUtf8(u"✓"), "\xE2\x9C\x93");
  EXPECT_EQ(WideToApeUtf8(u"\xFFFF"), "\xEF\xBF\xBF");
  // Every character of the basic plane comes back unchanged.
  for (uint32_t c = 1; c <= 0xFFFF; c += 7) {
    const std::u16string one(1, static_cast<char16_t>(c));
    const std::string bytes = WideToApeUtf8(one.c_str());
    EXPECT_EQ(ApeUtf8ToWide(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), one) << c;
  }
}

TEST(ApeFields, NamesMatchWithoutRegardToCase) {
  ApeTagFields fields;
  EXPECT_EQ(fields.SetFieldText(u"Artist", u"One"), 0);
  EXPECT_EQ(fields.FindField(u"ARTIST"), 0);
  EXPECT_EQ(fields.FindField(u"artist"), 0);
  EXPECT_EQ(fields.FindField(u"Artists"), -1);
  EXPECT_EQ(fields.FindField(u"Artis"), -1);
  EXPECT_EQ(fields.SetFieldText(u"ARTIST", u"Two"), 0);  // replaces in place
  EXPECT_EQ(fields.FieldCount(), 1u);
  EXPECT_EQ(fields.FieldAt(0).name, u"Artist");
  EXPECT_EQ(fields.FieldText(u"artist"), u"Two");
}

TEST(ApeFields, RemoveMovesLaterFieldsUp) {
  ApeTagFields fields;
  fields.SetFieldText(u"A", u"1");
  fields.SetFieldText(u"B", u"2");
  fields.SetFieldText(u"C", u"3");
  EXPECT_EQ(fields.RemoveField(0), 0);
  EXPECT_EQ(fields.FieldCount(), 2u);
  EXPECT_EQ(fields.FindField(u"B"), 0);
  EXPECT_EQ(fields.FindField(u"C"), 1);
  EXPECT_EQ(fields.RemoveField(5), -1);
  EXPECT_EQ(fields.RemoveField(-1), -1);
  // An empty value removes the field.
  fields.SetFieldText(u"b", u"");
  EXPECT_EQ(fields.FindField(u"B"), -1);
  EXPECT_EQ(fields.FieldCount(), 1u);
}

TEST(ApeFields, ReadOnlyFieldIsNeverReplacedOrRemoved) {
  ApeTagFields fields;
  const uint8_t value[] = {'k', 'e', 'e', 'p'};
  ASSERT_EQ(fields.SetFieldBytes(u"Title", value, 4, kxmp3::kApeItemReadOnly), 0);
  EXPECT_EQ(fields.SetFieldText(u"TITLE", u"other"), -1);
  EXPECT_EQ(fields.SetFieldText(u"Title", u""), -1);
  EXPECT_EQ(fields.FieldText(u"Title"), u"keep");
}

TEST(ApeFields, AtMost256Fields) {
  ApeTagFields fields;
  for (int i = 0; i < 300; ++i) {
    std::u16string name(u"F");
    name.push_back(static_cast<char16_t>(u'A' + i / 26));
    name.push_back(static_cast<char16_t>(u'a' + i % 26));
    const int result = fields.SetFieldText(name.c_str(), u"v");
    EXPECT_EQ(result, i < 256 ? 0 : -1) << i;
  }
  EXPECT_EQ(fields.FieldCount(), 256u);
  // An existing field can still be replaced when the container is full.
  EXPECT_EQ(fields.SetFieldText(u"FAa", u"new"), 0);
  EXPECT_EQ(fields.FieldText(u"FAA"), u"new");
}

TEST(ApeFields, GetFieldTextBufferProtocol) {
  ApeTagFields fields;
  fields.apeVersion = 2000;
  fields.SetFieldText(u"Album", u"Ωmega");
  char16_t one[1];
  int length = 1;
  EXPECT_EQ(fields.GetFieldText(u"album", one, &length), -1);
  EXPECT_EQ(length, 6);  // 5 characters and the terminator
  char16_t buffer[6];
  length = 6;
  EXPECT_EQ(fields.GetFieldText(u"ALBUM", buffer, &length), 0);
  EXPECT_EQ(length, 6);
  EXPECT_EQ(std::u16string(buffer), u"Ωmega");
  length = 10;
  EXPECT_EQ(fields.GetFieldText(u"Missing", buffer, &length), -1);
  EXPECT_EQ(length, 0);
}

TEST(ApeFields, DecodingFollowsTheTagVersion) {
  kxtest::CodePageGuard cp(1252);
  ASSERT_TRUE(cp.ok());
  const uint8_t bytes[] = {'c', 'a', 'f', 0xC3, 0xA9};  // "café" in UTF-8, "cafÃ©" in 1252
  ApeTagFields fields;
  fields.SetFieldBytes(u"Text", bytes, sizeof(bytes), 0);
  fields.SetFieldBytes(u"Binary", bytes, sizeof(bytes), 2);  // data type 1
  fields.apeVersion = 2000;
  EXPECT_EQ(fields.FieldText(u"Text"), u"café");
  EXPECT_EQ(fields.FieldText(u"Binary"), u"cafÃ©");
  fields.apeVersion = 1000;
  EXPECT_EQ(fields.FieldText(u"Text"), u"cafÃ©");
  EXPECT_EQ(fields.FieldText(u"Binary"), u"cafÃ©");
  fields.apeVersion = -1;  // fields from an ID3v1 tag alone: stored as UTF-8
  EXPECT_EQ(fields.FieldText(u"Text"), u"café");
  EXPECT_EQ(fields.FieldText(u"Binary"), u"café");
}

}  // namespace
