// The ANSI code page setting (KX_ANSI_CODEPAGE / KxSetAnsiCodePage) and the lead-byte
// ranges of the double-byte code pages.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/kx_platform.h"

namespace {

// Restores the environment and the override after each test.
class AnsiCodePage : public ::testing::Test {
 protected:
  void TearDown() override {
    setenv("KX_ANSI_CODEPAGE", "1252", 1);
    KxSetAnsiCodePage(0);
  }
};

TEST_F(AnsiCodePage, ComesFromTheEnvironment) {
  setenv("KX_ANSI_CODEPAGE", "932", 1);
  ASSERT_EQ(KxSetAnsiCodePage(0), 0);  // 0: back to the environment, read again
  EXPECT_EQ(KxGetAnsiCodePage(), 932u);
  setenv("KX_ANSI_CODEPAGE", "936", 1);
  KxSetAnsiCodePage(0);
  EXPECT_EQ(KxGetAnsiCodePage(), 936u);
}

TEST_F(AnsiCodePage, DefaultsTo1252WhenMissingOrUnusable) {
  unsetenv("KX_ANSI_CODEPAGE");
  KxSetAnsiCodePage(0);
  EXPECT_EQ(KxGetAnsiCodePage(), 1252u);
  for (const char* bad : {"", "abc", "932x", "0", "99999", "12345"}) {
    setenv("KX_ANSI_CODEPAGE", bad, 1);
    KxSetAnsiCodePage(0);
    EXPECT_EQ(KxGetAnsiCodePage(), 1252u) << "KX_ANSI_CODEPAGE=\"" << bad << "\"";
  }
}

TEST_F(AnsiCodePage, SetOverridesTheEnvironment) {
  setenv("KX_ANSI_CODEPAGE", "1252", 1);
  KxSetAnsiCodePage(0);
  ASSERT_EQ(KxSetAnsiCodePage(949), 0);
  EXPECT_EQ(KxGetAnsiCodePage(), 949u);
  EXPECT_EQ(KxSetAnsiCodePage(65001), 0);
  EXPECT_EQ(KxGetAnsiCodePage(), 65001u);
  // A code page iconv cannot convert is refused and changes nothing.
  EXPECT_EQ(KxSetAnsiCodePage(12345), -1);
  EXPECT_EQ(KxGetAnsiCodePage(), 65001u);
}

TEST_F(AnsiCodePage, EveryRequiredCodePageIsAccepted) {
  for (uint32_t cp : {932u, 936u, 949u, 950u, 1252u, 65001u}) EXPECT_EQ(KxSetAnsiCodePage(cp), 0) << cp;
}

TEST_F(AnsiCodePage, CpAcpConvertsWithTheAnsiCodePage) {
  const char sjis[] = "\x83\x41";  // katakana A in Shift-JIS
  char16_t out[4] = {};
  ASSERT_EQ(KxSetAnsiCodePage(932), 0);
  ASSERT_EQ(KxMultiByteToWideChar(CP_ACP, 0, sjis, 2, out, 4), 1);
  EXPECT_EQ(out[0], 0x30A2);
  ASSERT_EQ(KxSetAnsiCodePage(1252), 0);
  ASSERT_EQ(KxMultiByteToWideChar(CP_ACP, 0, sjis, 2, out, 4), 2);
  EXPECT_EQ(out[0], 0x0192);  // 0x83 is f-hook in 1252
  EXPECT_EQ(out[1], u'A');
}

TEST(LeadBytes, ShiftJis932) {
  for (int b = 0; b < 256; ++b) {
    const bool lead = (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC);
    EXPECT_EQ(KxIsDBCSLeadByteEx(932, static_cast<uint8_t>(b)), lead ? 1 : 0) << "byte " << b;
  }
}

TEST(LeadBytes, Gbk936UnifiedHangul949Big5950) {
  for (uint32_t cp : {936u, 949u, 950u}) {
    for (int b = 0; b < 256; ++b) {
      const bool lead = b >= 0x81 && b <= 0xFE;
      EXPECT_EQ(KxIsDBCSLeadByteEx(cp, static_cast<uint8_t>(b)), lead ? 1 : 0) << "cp " << cp << " byte " << b;
    }
  }
}

TEST(LeadBytes, SingleByteAndUtf8CodePagesHaveNone) {
  for (uint32_t cp : {1252u, 65001u, 28591u}) {
    for (int b = 0; b < 256; ++b) EXPECT_EQ(KxIsDBCSLeadByteEx(cp, static_cast<uint8_t>(b)), 0) << cp << " " << b;
  }
}

TEST_F(AnsiCodePage, LeadBytesOfCpAcpFollowTheSetting) {
  ASSERT_EQ(KxSetAnsiCodePage(932), 0);
  EXPECT_EQ(KxIsDBCSLeadByteEx(CP_ACP, 0x81), 1);
  EXPECT_EQ(KxIsDBCSLeadByteEx(CP_ACP, 0xA0), 0);
  ASSERT_EQ(KxSetAnsiCodePage(1252), 0);
  EXPECT_EQ(KxIsDBCSLeadByteEx(CP_ACP, 0x81), 0);
}

}  // namespace
