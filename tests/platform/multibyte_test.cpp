// MultiByteToWideChar / WideCharToMultiByte for the code pages 1252, 932, 936, 949,
// 950 and 65001: known characters, round trips, undecodable and unmappable input,
// the sizing calls and thread safety.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/kx_platform.h"

namespace {

std::u16string ToWide(uint32_t cp, const std::string& bytes, uint32_t flags = 0) {
  const int n = KxMultiByteToWideChar(cp, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
  if (n <= 0) return u"<error>";
  std::u16string out(static_cast<size_t>(n), u'\0');
  EXPECT_EQ(KxMultiByteToWideChar(cp, flags, bytes.data(), static_cast<int>(bytes.size()), out.data(), n), n);
  return out;
}

std::string ToBytes(uint32_t cp, const std::u16string& text) {
  const int n = KxWideCharToMultiByte(cp, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  if (n <= 0) return "<error>";
  std::string out(static_cast<size_t>(n), '\0');
  EXPECT_EQ(KxWideCharToMultiByte(cp, 0, text.data(), static_cast<int>(text.size()), out.data(), n), n);
  return out;
}

TEST(MultiByte1252, KnownCharacters) {
  EXPECT_EQ(ToWide(1252, "Caf\xE9"), u"Caf\u00E9");
  EXPECT_EQ(ToWide(1252, "\x80\x85\x99\x9F"), u"\u20AC\u2026\u2122\u0178");
  EXPECT_EQ(ToBytes(1252, u"\u20AC\u00FF"), "\x80\xFF");
}

TEST(MultiByte1252, EveryByteRoundTrips) {
  std::string all;
  for (int b = 1; b < 256; ++b) all.push_back(static_cast<char>(b));
  const std::u16string wide = ToWide(1252, all);
  ASSERT_EQ(wide.size(), 255u);
  EXPECT_EQ(ToBytes(1252, wide), all);
}

TEST(MultiByte1252, UndefinedBytesMapToC1ControlsAsOnWindows) {
  EXPECT_EQ(ToWide(1252, "\x81\x8D\x8F\x90\x9D"), u"\u0081\u008D\u008F\u0090\u009D");
}

TEST(MultiByte1252, UnmappableCharactersBecomeQuestionMarks) {
  EXPECT_EQ(ToBytes(1252, u"a\u4E2Db"), "a?b");
  EXPECT_EQ(ToBytes(1252, u"x\U0001F600y"), "x?y");  // a surrogate pair is one character
  const char16_t lone[] = {u'a', 0xD800, u'b', 0xDC00, 0};
  EXPECT_EQ(ToBytes(1252, lone), "a?b?");
}

TEST(MultiByte932, ShiftJisAsWindowsHasIt) {
  EXPECT_EQ(ToWide(932, "\x83\x41"), u"\u30A2");      // katakana A
  EXPECT_EQ(ToWide(932, "\x95\x5C"), u"\u8868");      // trail byte 0x5C is not a backslash
  EXPECT_EQ(ToWide(932, "\x83\x5C"), u"\u30BD");      // katakana SO, trail 0x5C
  EXPECT_EQ(ToWide(932, "\x5C\x7E"), u"\\~");         // single bytes are ASCII, not yen / overline
  EXPECT_EQ(ToWide(932, "\x81\x60"), u"\uFF5E");      // Windows' wave dash: fullwidth tilde
  EXPECT_EQ(ToWide(932, "\x81\x5F"), u"\uFF3C");      // fullwidth reverse solidus
  EXPECT_EQ(ToWide(932, "\x87\x40"), u"\u2460");      // NEC row 13: circled digit one
  EXPECT_EQ(ToWide(932, "\xB1"), u"\uFF71");          // halfwidth katakana A
  EXPECT_EQ(ToWide(932, "A\x88\x9F" "B"), u"A\u4E9CB");
}

TEST(MultiByte932, RoundTrip) {
  const std::u16string text = u"\u30A2\u8868\u30BD abc \\ \uFF71 \u4E9C";
  EXPECT_EQ(ToBytes(932, text), "\x83\x41\x95\x5C\x83\x5C abc \\ \xB1 \x88\x9F");
  EXPECT_EQ(ToWide(932, ToBytes(932, text)), text);
}

TEST(MultiByte932, LeadByteFollowedByANonTrailByte) {
  // 0x20 cannot follow a lead byte: the lead byte alone is undecodable, the blank stays.
  EXPECT_EQ(ToWide(932, "\x83\x20" "A"), u"\uFFFD A");
  // A lead byte at the very end.
  EXPECT_EQ(ToWide(932, "AB\x83"), u"AB\uFFFD");
}

TEST(MultiByte932, UndecodableBytes) {
  EXPECT_EQ(ToWide(932, "\xFD" "a"), u"\uFFFDa");
  // A valid lead and trail pair with no character assigned is one replacement.
  EXPECT_EQ(ToWide(932, "\x85\x40" "a"), u"\uFFFDa");
}

TEST(MultiByte936, Gbk) {
  EXPECT_EQ(ToWide(936, "\xD6\xD0\xCE\xC4"), u"\u4E2D\u6587");  // "Chinese (language)"
  EXPECT_EQ(ToWide(936, "\x80"), u"\u20AC");
  EXPECT_EQ(ToBytes(936, u"\u4E2D\u6587"), "\xD6\xD0\xCE\xC4");
  EXPECT_EQ(ToWide(936, "\x81\x40"), u"\u4E02");  // GBK extension area
}

TEST(MultiByte949, UnifiedHangul) {
  EXPECT_EQ(ToWide(949, "\xB0\xA1"), u"\uAC00");  // GA, KS X 1001 area
  EXPECT_EQ(ToWide(949, "\x81\x41"), u"\uAC02");  // UHC extension area
  EXPECT_EQ(ToBytes(949, u"\uD55C\uAE00"), "\xC7\xD1\xB1\xDB");  // "Hangul"
  EXPECT_EQ(ToWide(949, "\xC7\xD1\xB1\xDB"), u"\uD55C\uAE00");
}

TEST(MultiByte950, Big5) {
  EXPECT_EQ(ToWide(950, "\xA4\xA4\xA4\xE5"), u"\u4E2D\u6587");
  EXPECT_EQ(ToWide(950, "\xA1\x40"), u"\u3000");
  EXPECT_EQ(ToBytes(950, u"\u4E2D\u6587"), "\xA4\xA4\xA4\xE5");
  EXPECT_EQ(ToWide(950, "\xA5\x5C"), u"\u529F");  // trail byte 0x5C
}

TEST(MultiByteUtf8, RoundTripAndSupplementaryPlanes) {
  const std::string bytes = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  const std::u16string wide = ToWide(CP_UTF8, bytes);
  EXPECT_EQ(wide, u"a\u00E9\u20AC\U0001F600");
  EXPECT_EQ(wide.size(), 5u);  // the emoji is a surrogate pair
  EXPECT_EQ(ToBytes(CP_UTF8, wide), bytes);
}

TEST(MultiByteUtf8, InvalidSequences) {
  EXPECT_EQ(ToWide(CP_UTF8, "a\x80" "b"), u"a\uFFFDb");            // stray continuation
  EXPECT_EQ(ToWide(CP_UTF8, "\xC0\xAF"), u"\uFFFD\uFFFD");          // overlong: C0 never valid
  EXPECT_EQ(ToWide(CP_UTF8, "\xE0\x80\xAF"), u"\uFFFD\uFFFD\uFFFD"); // overlong 3-byte
  EXPECT_EQ(ToWide(CP_UTF8, "\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD"); // encoded surrogate
  EXPECT_EQ(ToWide(CP_UTF8, "\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");  // above U+10FFFF
  EXPECT_EQ(ToWide(CP_UTF8, "\xE2\x82" "x"), u"\uFFFDx");           // truncated: one replacement
  EXPECT_EQ(ToWide(CP_UTF8, "\xF0\x9F\x98"), u"\uFFFD");            // truncated at the end
  EXPECT_EQ(ToWide(CP_UTF8, "\xFF\xFE"), u"\uFFFD\uFFFD");
}

TEST(MultiByteUtf8, LoneSurrogatesEncodeAsReplacement) {
  const char16_t lone[] = {u'a', 0xDC00, 0};
  EXPECT_EQ(ToBytes(CP_UTF8, lone), "a\xEF\xBF\xBD");
}

TEST(MultiByte, MinusOneIncludesTheTerminator) {
  char16_t out[8] = {u'x', u'x', u'x', u'x', u'x', u'x', u'x', u'x'};
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, "abc", -1, nullptr, 0), 4);
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, "abc", -1, out, 8), 4);
  EXPECT_EQ(std::u16string(out), u"abc");
  char narrow[8];
  EXPECT_EQ(KxWideCharToMultiByte(932, 0, u"\u30A2", -1, nullptr, 0), 3);
  EXPECT_EQ(KxWideCharToMultiByte(932, 0, u"\u30A2", -1, narrow, 8), 3);
  EXPECT_STREQ(narrow, "\x83\x41");
}

TEST(MultiByte, EmbeddedZerosAreConverted) {
  const char bytes[] = {'a', 0, 'b'};
  char16_t out[3];
  ASSERT_EQ(KxMultiByteToWideChar(1252, 0, bytes, 3, out, 3), 3);
  EXPECT_EQ(out[1], 0);
  EXPECT_EQ(out[2], u'b');
}

TEST(MultiByte, BadArgumentsAndSmallBuffers) {
  char16_t out[2];
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, nullptr, 3, out, 2), 0);
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, "abc", 0, out, 2), 0);
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, "abc", -2, out, 2), 0);
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, "abc", 3, nullptr, 2), 0);
  EXPECT_EQ(KxMultiByteToWideChar(1252, 0, "abc", 3, out, 2), 0);  // too small: nothing written
  EXPECT_EQ(KxMultiByteToWideChar(12345, 0, "abc", 3, nullptr, 0), 0);  // unknown code page
  char narrow[2];
  EXPECT_EQ(KxWideCharToMultiByte(1252, 0, u"abc", 3, narrow, 2), 0);
  EXPECT_EQ(KxWideCharToMultiByte(1252, 0, nullptr, 3, narrow, 2), 0);
  EXPECT_EQ(KxWideCharToMultiByte(12345, 0, u"abc", 3, nullptr, 0), 0);
}

TEST(MultiByte, ErrInvalidCharsRefusesBadInput) {
  EXPECT_EQ(KxMultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xFF", 2, nullptr, 0), 0);
  EXPECT_EQ(KxMultiByteToWideChar(932, MB_ERR_INVALID_CHARS, "\x83", 1, nullptr, 0), 0);
  EXPECT_EQ(KxMultiByteToWideChar(932, MB_ERR_INVALID_CHARS, "\x83\x41", 2, nullptr, 0), 1);
}

TEST(MultiByte, RandomBytesNeverFailForAKnownCodePage) {
  uint32_t seed = 12345;
  std::string bytes(4096, '\0');
  for (auto& b : bytes) {
    seed = seed * 1664525u + 1013904223u;
    b = static_cast<char>(seed >> 24);
  }
  for (uint32_t cp : {932u, 936u, 949u, 950u, 1252u, 65001u}) {
    const int n = KxMultiByteToWideChar(cp, 0, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    EXPECT_GT(n, 0) << cp;
    EXPECT_LE(n, 4096) << cp;  // never more units than bytes
  }
}

TEST(MultiByte, ConcurrentConversionsDoNotInterfere) {
  struct Case {
    uint32_t cp;
    std::string bytes;
    std::u16string wide;
  };
  const std::vector<Case> cases = {
      {932, "\x83\x41\x95\x5C", u"\u30A2\u8868"}, {936, "\xD6\xD0", u"\u4E2D"}, {949, "\xB0\xA1", u"\uAC00"},
      {950, "\xA4\xA4", u"\u4E2D"},             {1252, "\xE9", u"\u00E9"},     {65001, "\xE2\x82\xAC", u"\u20AC"}};
  std::vector<std::thread> threads;
  std::vector<int> failures(6, 0);
  for (size_t t = 0; t < cases.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        // A cut-off sequence first leaves no state behind for the next call.
        ToWide(cases[t].cp, cases[t].bytes.substr(0, 1));
        if (ToWide(cases[t].cp, cases[t].bytes) != cases[t].wide) ++failures[t];
        if (ToBytes(cases[t].cp, cases[t].wide) != cases[t].bytes) ++failures[t];
      }
    });
  }
  for (auto& th : threads) th.join();
  for (size_t t = 0; t < cases.size(); ++t) EXPECT_EQ(failures[t], 0) << "code page " << cases[t].cp;
}

}  // namespace
