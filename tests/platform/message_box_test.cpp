// MessageBoxW through the replaceable handler, and DisableThreadLibraryCalls.
#include <gtest/gtest.h>

#include <string>

#include "platform/kx_platform.h"

namespace {

struct Captured {
  HWND owner = nullptr;
  std::u16string text, caption;
  uint32_t type = 0;
  int calls = 0;
};

int Capture(HWND owner, const char16_t* text, const char16_t* caption, uint32_t type, void* context) {
  auto* c = static_cast<Captured*>(context);
  c->owner = owner;
  c->text = text;
  c->caption = caption;
  c->type = type;
  ++c->calls;
  return IDCANCEL;
}

TEST(MessageBox, HandlerSeesEverythingAndItsAnswerIsReturned) {
  Captured captured;
  KxSetMessageBoxHandler(&Capture, &captured);
  HWND owner = reinterpret_cast<HWND>(0x1230);
  EXPECT_EQ(KxMessageBoxW(owner, u"MPEG Audio Layer-III File", u"Kx MPEG Audio Layer-III File Library",
                          MB_OK | MB_TOPMOST),
            IDCANCEL);
  KxSetMessageBoxHandler(nullptr, nullptr);
  EXPECT_EQ(captured.calls, 1);
  EXPECT_EQ(captured.owner, owner);
  EXPECT_EQ(captured.text, u"MPEG Audio Layer-III File");
  EXPECT_EQ(captured.caption, u"Kx MPEG Audio Layer-III File Library");
  EXPECT_EQ(captured.type, MB_TOPMOST);
}

TEST(MessageBox, NullTextsReachTheHandlerAsEmpty) {
  Captured captured;
  KxSetMessageBoxHandler(&Capture, &captured);
  KxMessageBoxW(nullptr, nullptr, nullptr, MB_OK);
  KxSetMessageBoxHandler(nullptr, nullptr);
  EXPECT_EQ(captured.calls, 1);
  EXPECT_EQ(captured.text, u"");
  EXPECT_EQ(captured.caption, u"");
}

TEST(MessageBox, DefaultWritesCaptionAndTextToStandardError) {
  KxSetMessageBoxHandler(nullptr, nullptr);
  testing::internal::CaptureStderr();
  const int answer = KxMessageBoxW(nullptr, u"Caf\u00E9 \u30A2", u"Title", MB_OK);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(answer, IDOK);
  EXPECT_EQ(err, "Title: Caf\xC3\xA9 \xE3\x82\xA2\n");
}

TEST(ThreadLibraryCalls, RequestsAreRecordedPerModule) {
  HMODULE a = KxGetResourceModule("thread-calls-a");
  HMODULE b = KxGetResourceModule("thread-calls-b");
  EXPECT_EQ(KxThreadLibraryCallsRequested(a), 0);
  EXPECT_NE(KxDisableThreadLibraryCalls(a), 0);
  EXPECT_EQ(KxThreadLibraryCallsRequested(a), 1);
  EXPECT_EQ(KxThreadLibraryCallsRequested(b), 0);
  EXPECT_EQ(KxDisableThreadLibraryCalls(nullptr), 0);
}

}  // namespace
