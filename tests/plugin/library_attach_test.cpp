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
#if !defined(_WIN32)
  // (Windows refuses the call for a library with static thread-local storage, as
  // these two stand-ins have; the module's own DllMain makes it for itself.)
  EXPECT_NE(KxThreadLibraryCallsDisabled(first), 0);
#endif

  EXPECT_FALSE(kxmp3::ProcessAttach(second));
  EXPECT_EQ(kxmp3::AttachCount(), 2u);
  EXPECT_EQ(kxmp3::TableBuildCount(), buildsBefore + 1);
  EXPECT_EQ(kxmp3::ModuleHandle(), first);
  EXPECT_EQ(KxThreadLibraryCallsDisabled(second), 0);

  kxmp3::ProcessDetach();
  EXPECT_EQ(kxmp3::AttachCount(), 1u);
  kxmp3::ProcessDetach();
  EXPECT_EQ(kxmp3::AttachCount(), 0u);
  EXPECT_EQ(kxmp3::TableBuildCount(), buildsBefore + 1);
}

}  // namespace
