// Library attach and detach: only the first attach stores the handle, builds the
// tables and switches off thread notifications; later attaches only count.
#include <gtest/gtest.h>

#include "platform/kx_platform.h"
#include "plugin/plugin_info.h"

namespace {

TEST(LibraryAttach, SecondAttachDoesNotRebuildTheTables) {
  // The test executable has no module entry of its own, so the counter starts at 0.
  ASSERT_EQ(kxmp3::AttachCount(), 0u);
  const uint32_t buildsBefore = kxmp3::TableBuildCount();
#if defined(_WIN32)
  // Windows hands out handles of loaded libraries only: two this program has loaded.
  HMODULE first = KxGetResourceModule("KXLibCore");
  HMODULE second = KxGetResourceModule("KXAFLib");
#else
  HMODULE first = KxGetResourceModule("attach-test-first");
  HMODULE second = KxGetResourceModule("attach-test-second");
#endif
  ASSERT_NE(first, nullptr);
  ASSERT_NE(first, second);

  EXPECT_TRUE(kxmp3::ProcessAttach(first));
  EXPECT_EQ(kxmp3::AttachCount(), 1u);
  EXPECT_EQ(kxmp3::TableBuildCount(), buildsBefore + 1);
  EXPECT_EQ(kxmp3::ModuleHandle(), first);
  // The first attach asks for thread notifications to be switched off. (Windows
  // declines it for these two libraries, as for every library whose C runtime has
  // TLS callbacks; the attach goes on regardless.)
  EXPECT_NE(KxThreadLibraryCallsRequested(first), 0);

  EXPECT_FALSE(kxmp3::ProcessAttach(second));
  EXPECT_EQ(kxmp3::AttachCount(), 2u);
  EXPECT_EQ(kxmp3::TableBuildCount(), buildsBefore + 1);
  EXPECT_EQ(kxmp3::ModuleHandle(), first);
  EXPECT_EQ(KxThreadLibraryCallsRequested(second), 0);

  kxmp3::ProcessDetach();
  EXPECT_EQ(kxmp3::AttachCount(), 1u);
  kxmp3::ProcessDetach();
  EXPECT_EQ(kxmp3::AttachCount(), 0u);
  EXPECT_EQ(kxmp3::TableBuildCount(), buildsBefore + 1);
}

#if defined(_WIN32)
TEST(LibraryAttach, WindowsDeclinesForALibraryWithATlsDirectoryAndTheAttachGoesOn) {
  // Every library mingw-w64 links carries its C runtime's TLS directory, and the
  // system refuses to stop thread notifications for such a library.
  HMODULE afLib = KxGetResourceModule("KXAFLib");
  ASSERT_NE(afLib, nullptr);
  EXPECT_EQ(KxDisableThreadLibraryCalls(afLib), 0);
  EXPECT_NE(KxThreadLibraryCallsRequested(afLib), 0);
}
#endif

}  // namespace
