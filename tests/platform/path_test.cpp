// PathFindExtensionW: the last dot of the last path component, or the terminator.
#include <gtest/gtest.h>

#include <string>

#include "platform/kx_platform.h"

namespace {

std::u16string Ext(const char16_t* path) { return KxPathFindExtensionW(path); }

TEST(PathFindExtension, LastDotOfTheFileName) {
  EXPECT_EQ(Ext(u"song.mp3"), u".mp3");
  EXPECT_EQ(Ext(u"/music/a.b.MP3"), u".MP3");
  EXPECT_EQ(Ext(u"C:\\Music\\track.wav"), u".wav");
  EXPECT_EQ(Ext(u"name."), u".");
  EXPECT_EQ(Ext(u".hidden"), u".hidden");
}

TEST(PathFindExtension, NoneGivesTheTerminator) {
  const char16_t* path = u"/dir.x/file";
  const char16_t* ext = KxPathFindExtensionW(path);
  EXPECT_EQ(ext, path + 11);  // points at the terminator
  EXPECT_EQ(*ext, 0);
  EXPECT_EQ(Ext(u"C:\\dir.x\\file"), u"");
  EXPECT_EQ(Ext(u"plain"), u"");
  EXPECT_EQ(Ext(u""), u"");
  EXPECT_EQ(Ext(u"dir.d/"), u"");
}

TEST(PathFindExtension, NullGivesNull) { EXPECT_EQ(KxPathFindExtensionW(nullptr), nullptr); }

}  // namespace
