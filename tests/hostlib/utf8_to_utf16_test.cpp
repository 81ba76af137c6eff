// UTF-8 to UTF-16 (ordinal 63): the sizing call, whole and cut conversions, and
// invalid input.
#include <gtest/gtest.h>

#include <string>

#include "host/kxcore.h"

namespace {

std::u16string Convert(const std::string& bytes) {
  const int32_t n = ZCoreUtf8ToUtf16(nullptr, 0, bytes.data(), static_cast<int32_t>(bytes.size()));
  std::u16string out(static_cast<size_t>(n), u'\0');
  EXPECT_EQ(ZCoreUtf8ToUtf16(out.data(), n, bytes.data(), static_cast<int32_t>(bytes.size())), n);
  return out;
}

TEST(Utf8ToUtf16, SizingCallCountsUnits) {
  EXPECT_EQ(ZCoreUtf8ToUtf16(nullptr, 0, "abc", 3), 3);
  EXPECT_EQ(ZCoreUtf8ToUtf16(nullptr, 0, "abc", -1), 4);  // with the terminator
  EXPECT_EQ(ZCoreUtf8ToUtf16(nullptr, 0, "\xC3\xA9\xE2\x82\xAC", 5), 2);
  EXPECT_EQ(ZCoreUtf8ToUtf16(nullptr, 0, "\xF0\x9F\x8E\xB5", 4), 2);  // one pair
  EXPECT_EQ(ZCoreUtf8ToUtf16(nullptr, 123, "", -1), 1);
}

TEST(Utf8ToUtf16, Conversions) {
  EXPECT_EQ(Convert("Title"), u"Title");
  EXPECT_EQ(Convert("Caf\xC3\xA9 \xE3\x82\xA2"), u"Caf\u00E9 \u30A2");
  EXPECT_EQ(Convert("\xF0\x9F\x8E\xB5!"), u"\U0001F3B5!");
  EXPECT_EQ(Convert("\xF4\x8F\xBF\xBF"), u"\U0010FFFF");
  char16_t out[8];
  ASSERT_EQ(ZCoreUtf8ToUtf16(out, 8, "ab", -1), 3);
  EXPECT_EQ(std::u16string(out), u"ab");
}

TEST(Utf8ToUtf16, InvalidSequencesBecomeReplacementCharacters) {
  EXPECT_EQ(Convert("a\xFF" "b"), u"a\uFFFDb");
  EXPECT_EQ(Convert("\xC3"), u"\uFFFD");
  EXPECT_EQ(Convert("\xE3\x82"), u"\uFFFD");
  EXPECT_EQ(Convert("\xC1\xBF"), u"\uFFFD\uFFFD");
  EXPECT_EQ(Convert("\xED\xB0\x80"), u"\uFFFD\uFFFD\uFFFD");  // an encoded low surrogate
  EXPECT_EQ(Convert("\x80\xBF"), u"\uFFFD\uFFFD");
}

TEST(Utf8ToUtf16, SmallDestinationTakesTheFirstUnits) {
  char16_t out[8] = {u'#', u'#', u'#', u'#', u'#', u'#', u'#', u'#'};
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, 3, "abcdef", 6), 3);
  EXPECT_EQ(std::u16string(out, 4), u"abc#");
  // A pair that does not fit whole is left out.
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, 2, "a\xF0\x9F\x8E\xB5", 5), 1);
  EXPECT_EQ(out[0], u'a');
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, 3, "a\xF0\x9F\x8E\xB5", 5), 3);
  EXPECT_EQ(out[1], 0xD83C);
  EXPECT_EQ(out[2], 0xDFB5);
}

TEST(Utf8ToUtf16, BadArguments) {
  char16_t out[4];
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, 4, nullptr, 3), 0);
  EXPECT_EQ(ZCoreUtf8ToUtf16(nullptr, 0, nullptr, -1), 0);
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, 4, "abc", 0), 0);
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, 0, "abc", 3), 0);
  EXPECT_EQ(ZCoreUtf8ToUtf16(out, -5, "abc", 3), 0);
}

}  // namespace
