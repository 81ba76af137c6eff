// The core library's file stream on Windows: names reach CreateFileW as UTF-16, so a
// file named in Japanese or with an emoji (a surrogate pair) opens; folders and
// missing files are refused as on Linux; writes, truncation and reads at 64-bit
// positions go through the system's calls. (file_stream_test.cpp covers the stream's
// contract on Linux, where it also checks FIFOs, permissions and sparse files.)
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "temp_dir.h"

namespace {

using kxtest::OpenStream;
using kxtest::PatternBytes;
using kxtest::TempDir;

// The folder's path as UTF-16, with `name` (UTF-16) appended.
std::u16string Join(const TempDir& dir, const std::u16string& name) {
  return kxtest::Utf16(dir.Path()) + u"/" + name;
}

// Writes a file under a UTF-16 name through the standard library (wide on Windows).
void WriteWide(const std::u16string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void ExpectReadsBack(const std::u16string& path, const std::vector<uint8_t>& bytes) {
  KxResult rc = AF_E_FAIL;
  Class_ZStream* stream = OpenStream(path, ZS_MODE_READ, &rc);
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(rc, AF_S_OK);
  int64_t size = -1;
  EXPECT_EQ(stream->GetSize(&size), AF_S_OK);
  EXPECT_EQ(size, static_cast<int64_t>(bytes.size()));
  std::vector<uint8_t> got(bytes.size());
  uint32_t read = 0;
  EXPECT_EQ(stream->Read(got.data(), static_cast<uint32_t>(got.size()), &read), AF_S_OK);
  EXPECT_EQ(got, bytes);
  std::vector<char16_t> name(ZS_NAME_CHARS, 0);
  EXPECT_EQ(stream->GetName(name.data()), AF_S_OK);
  EXPECT_EQ(std::u16string(name.data()), path);
  stream->Release();
}

TEST(FileStreamWindows, JapaneseNameOpens) {
  TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  const std::u16string path = Join(dir, u"\u97f3\u697d\u30d5\u30a1\u30a4\u30eb.mp3");  // 音楽ファイル
  const auto bytes = PatternBytes(100000);
  WriteWide(path, bytes);
  ExpectReadsBack(path, bytes);
}

TEST(FileStreamWindows, EmojiNameOpens) {
  TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  const std::u16string path = Join(dir, u"song \U0001F3B5.mp3");  // U+1F3B5, a surrogate pair
  const auto bytes = PatternBytes(3000, 7);
  WriteWide(path, bytes);
  ExpectReadsBack(path, bytes);
}

TEST(FileStreamWindows, BackslashesAndForwardSlashesBothSeparate) {
  TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  const auto bytes = PatternBytes(10);
  WriteWide(Join(dir, u"a.bin"), bytes);
  ExpectReadsBack(kxtest::Utf16(dir.Path()) + u"\\a.bin", bytes);
}

TEST(FileStreamWindows, MissingFileAndFolderAreNotFound) {
  TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  KxResult rc = AF_S_OK;
  Class_ZStream* stream = OpenStream(Join(dir, u"missing.mp3"), ZS_MODE_READ, &rc);
  EXPECT_EQ(rc, ZS_E_NOT_FOUND);
  if (stream != nullptr) stream->Release();
  stream = OpenStream(kxtest::Utf16(dir.Path()), ZS_MODE_READ, &rc);
  EXPECT_EQ(rc, ZS_E_NOT_FOUND);
  if (stream != nullptr) stream->Release();
}

TEST(FileStreamWindows, WriteModeCreatesWritesTruncatesAndReadsAtPositions) {
  TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  const std::u16string path = Join(dir, u"\u66f8\u304d\u8fbc\u307f.bin");  // 書き込み
  KxResult rc = AF_E_FAIL;
  Class_ZStream* stream = OpenStream(path, ZS_MODE_WRITE, &rc);
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(rc, AF_S_OK);
  const auto bytes = PatternBytes(200000, 3);
  uint32_t written = 0;
  EXPECT_EQ(stream->Write(bytes.data(), static_cast<uint32_t>(bytes.size()), &written), AF_S_OK);
  EXPECT_EQ(written, bytes.size());
  EXPECT_EQ(stream->Seek(150000, ZS_SEEK_SET), AF_S_OK);
  uint8_t four[4] = {};
  uint32_t read = 0;
  EXPECT_EQ(stream->Read(four, 4, &read), AF_S_OK);
  EXPECT_EQ(four[0], bytes[150000]);
  EXPECT_EQ(four[3], bytes[150003]);
  EXPECT_EQ(stream->Seek(1000, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(stream->SetEnd(), AF_S_OK);
  int64_t size = 0;
  EXPECT_EQ(stream->GetSize(&size), AF_S_OK);
  EXPECT_EQ(size, 1000);
  stream->Release();
  EXPECT_EQ(std::filesystem::file_size(std::filesystem::path(path)), 1000u);
}

}  // namespace
