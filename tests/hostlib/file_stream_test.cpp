// The file stream of the object factory (kind ZSNF) on real temporary files: reads
// of every size, seeks, bounds, names, writing, and every kind of bad input.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/kxcore.h"
#include "host/zstream.h"
#include "support/memory_stream.h"
#include "temp_dir.h"

namespace {

using kxtest::OpenStream;
using kxtest::PatternBytes;
using kxtest::TempDir;
using kxtest::Utf16;
using kxtest::WriteBytes;

class FileStream : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.Path().empty()) << "no temporary folder";
    liveAtStart_ = ZCoreLiveBlocks();
  }
  void TearDown() override {
    if (stream_ != nullptr) stream_->Release();
    EXPECT_EQ(ZCoreLiveBlocks(), liveAtStart_) << "core blocks leaked";
  }
  // Writes `bytes` to `name` and opens it for reading.
  Class_ZStream* OpenData(const std::vector<uint8_t>& bytes, const std::string& name = "data.bin") {
    WriteBytes(dir_.File(name), bytes);
    KxResult result;
    stream_ = OpenStream(Utf16(dir_.File(name)), ZS_MODE_READ, &result);
    EXPECT_EQ(result, AF_S_OK);
    return stream_;
  }
  int64_t Position() {
    int64_t p = -1;
    EXPECT_EQ(stream_->GetPosition(&p), AF_S_OK);
    return p;
  }
  int64_t Size() {
    int64_t s = -1;
    EXPECT_EQ(stream_->GetSize(&s), AF_S_OK);
    return s;
  }

  TempDir dir_;
  Class_ZStream* stream_ = nullptr;
  int64_t liveAtStart_ = 0;
};

TEST_F(FileStream, IdentityAndInterfaces) {
  OpenData(PatternBytes(10));
  EXPECT_EQ(stream_->GetIdentCode(), FOURCC_ZSTM);
  EXPECT_EQ(stream_->GetFourCC(), FOURCC_ZSNF);
  EXPECT_EQ(stream_->IsCreated(), 1u);
  void* out = nullptr;
  EXPECT_EQ(stream_->QueryInterface(FOURCC_ZSTM, &out), AF_S_OK);
  EXPECT_EQ(out, stream_);
  EXPECT_EQ(stream_->GetRefCount(), 2u);
  stream_->Release();
  EXPECT_EQ(stream_->QueryInterface(FOURCC_ZSNF, &out), AF_S_OK);  // its own kind
  EXPECT_EQ(out, static_cast<Class_ZCOM*>(stream_));
  stream_->Release();
  EXPECT_EQ(stream_->QueryInterface(FOURCC_ZMP3, &out), AF_E_UNSUPPORTED);
}

TEST_F(FileStream, ReadsTheWholeFileInOneCall) {
  const auto data = PatternBytes(200000);
  OpenData(data);
  EXPECT_EQ(Size(), 200000);
  std::vector<uint8_t> got(200000);
  uint32_t n = 0;
  EXPECT_EQ(stream_->Read(got.data(), 200000, &n), AF_S_OK);
  EXPECT_EQ(n, 200000u);
  EXPECT_EQ(got, data);
  EXPECT_EQ(Position(), 200000);
}

TEST_F(FileStream, ManySmallReadsMatchTheFile) {
  const auto data = PatternBytes(300000, 7);  // several read buffers long
  OpenData(data);
  std::vector<uint8_t> got;
  uint8_t piece[7];
  size_t step = 0;
  const uint32_t sizes[] = {4, 1, 4, 7, 2, 4, 3};
  for (;;) {
    const uint32_t want = sizes[step++ % 7];
    uint32_t n = 0;
    const KxResult r = stream_->Read(piece, want, &n);
    got.insert(got.end(), piece, piece + n);
    if (r == ZS_E_END_OF_DATA) break;
    ASSERT_EQ(r, AF_S_OK);
    ASSERT_EQ(n, want);
  }
  EXPECT_EQ(got, data);
}

TEST_F(FileStream, ReadsMixedWithSeeksMatchTheFile) {
  const auto data = PatternBytes(250000, 3);
  OpenData(data);
  uint32_t seed = 99;
  for (int i = 0; i < 2000; ++i) {
    seed = seed * 1664525u + 1013904223u;
    const int64_t at = seed % 250000;
    seed = seed * 1664525u + 1013904223u;
    const uint32_t len = (i % 50 == 0) ? 70000 + seed % 10000 : 1 + seed % 600;  // now and then a large read
    ASSERT_EQ(stream_->Seek(at, ZS_SEEK_SET), AF_S_OK);
    std::vector<uint8_t> got(len);
    uint32_t n = 0;
    const KxResult r = stream_->Read(got.data(), len, &n);
    const uint32_t expected = static_cast<uint32_t>(std::min<int64_t>(len, 250000 - at));
    ASSERT_EQ(n, expected);
    ASSERT_EQ(r, expected == len ? AF_S_OK : ZS_E_END_OF_DATA);
    ASSERT_EQ(std::memcmp(got.data(), data.data() + at, n), 0) << "at " << at << " len " << len;
    ASSERT_EQ(Position(), at + n);
  }
}

TEST_F(FileStream, ShortReadAtTheEndReportsEndOfData) {
  OpenData(PatternBytes(100));
  uint8_t buf[64];
  uint32_t n = 0;
  EXPECT_EQ(stream_->Read(buf, 64, &n), AF_S_OK);
  EXPECT_EQ(n, 64u);
  EXPECT_EQ(stream_->Read(buf, 64, &n), ZS_E_END_OF_DATA);
  EXPECT_EQ(n, 36u);  // the bytes that were there
  EXPECT_EQ(stream_->Read(buf, 64, &n), ZS_E_END_OF_DATA);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(ZS_E_END_OF_DATA, 8458u);
  EXPECT_EQ(stream_->Read(buf, 0, &n), AF_S_OK);  // nothing asked, nothing wrong
  EXPECT_EQ(stream_->Seek(0, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(stream_->Read(buf, 10, nullptr), AF_S_OK);  // the count is optional
  EXPECT_EQ(Position(), 10);
}

TEST_F(FileStream, SmallReadsAreServedFromTheReadBuffer) {
  const auto data = PatternBytes(1000);
  OpenData(data);
  uint8_t b = 0;
  ASSERT_EQ(stream_->Read(&b, 1, nullptr), AF_S_OK);
  // Change the file behind the stream's back: the next bytes still come from the
  // buffer filled by the first read, which shows that no system call was made.
  const int fd = ::open(dir_.File("data.bin").c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  const uint8_t zeros[16] = {};
  ASSERT_EQ(pwrite(fd, zeros, 16, 1), 16);
  ::close(fd);
  uint8_t next[4];
  ASSERT_EQ(stream_->Read(next, 4, nullptr), AF_S_OK);
  EXPECT_EQ(std::memcmp(next, data.data() + 1, 4), 0);
}

TEST_F(FileStream, SeekOrigins) {
  OpenData(PatternBytes(1000));
  EXPECT_EQ(stream_->Seek(100, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(Position(), 100);
  EXPECT_EQ(stream_->Seek(50, ZS_SEEK_CUR), AF_S_OK);
  EXPECT_EQ(Position(), 150);
  EXPECT_EQ(stream_->Seek(-30, ZS_SEEK_CUR), AF_S_OK);
  EXPECT_EQ(Position(), 120);
  EXPECT_EQ(stream_->Seek(-128, ZS_SEEK_END), AF_S_OK);
  EXPECT_EQ(Position(), 872);
  EXPECT_EQ(stream_->Seek(0, ZS_SEEK_END), AF_S_OK);  // the end itself is a valid position
  EXPECT_EQ(Position(), 1000);
  EXPECT_EQ(stream_->Seek(0, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(Position(), 0);
}

TEST_F(FileStream, SeeksOutsideTheDataFailAndLeaveThePosition) {
  OpenData(PatternBytes(1000));
  ASSERT_EQ(stream_->Seek(500, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(stream_->Seek(-1, ZS_SEEK_SET), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(1001, ZS_SEEK_SET), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(-501, ZS_SEEK_CUR), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(501, ZS_SEEK_CUR), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(1, ZS_SEEK_END), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(-1001, ZS_SEEK_END), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(INT64_MAX, ZS_SEEK_END), ZS_E_SEEK);  // no overflow
  EXPECT_EQ(stream_->Seek(INT64_MIN, ZS_SEEK_CUR), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(0, 3), ZS_E_INVALID_ARG);  // unknown origin
  EXPECT_EQ(Position(), 500);
}

TEST_F(FileStream, BoundsMakeAWindow) {
  const auto data = PatternBytes(10000, 5);
  OpenData(data);
  ASSERT_EQ(stream_->SetBounds(1000, 3000), AF_S_OK);
  EXPECT_EQ(Position(), 0);  // position 0 is the start of the bounds
  EXPECT_EQ(Size(), 3000);
  uint8_t buf[16];
  ASSERT_EQ(stream_->Read(buf, 16, nullptr), AF_S_OK);
  EXPECT_EQ(std::memcmp(buf, data.data() + 1000, 16), 0);
  EXPECT_EQ(stream_->Seek(-10, ZS_SEEK_END), AF_S_OK);
  EXPECT_EQ(Position(), 2990);
  uint32_t n = 0;
  EXPECT_EQ(stream_->Read(buf, 16, &n), ZS_E_END_OF_DATA);  // reads stop at the end of the bounds
  EXPECT_EQ(n, 10u);
  EXPECT_EQ(std::memcmp(buf, data.data() + 3990, 10), 0);
  EXPECT_EQ(stream_->Seek(3001, ZS_SEEK_SET), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(-1, ZS_SEEK_SET), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(3000, ZS_SEEK_SET), AF_S_OK);
  // New bounds are file offsets again, not relative to the old ones.
  ASSERT_EQ(stream_->SetBounds(0, 10000), AF_S_OK);
  EXPECT_EQ(Size(), 10000);
  ASSERT_EQ(stream_->SetBounds(10000, 0), AF_S_OK);  // empty, at the very end
  EXPECT_EQ(Size(), 0);
  EXPECT_EQ(stream_->Read(buf, 1, &n), ZS_E_END_OF_DATA);
  EXPECT_EQ(n, 0u);
}

TEST_F(FileStream, BoundsOutsideTheFileAreRefused) {
  OpenData(PatternBytes(1000));
  ASSERT_EQ(stream_->SetBounds(100, 200), AF_S_OK);
  ASSERT_EQ(stream_->Seek(50, ZS_SEEK_SET), AF_S_OK);
  EXPECT_EQ(stream_->SetBounds(900, 101), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->SetBounds(1001, 0), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->SetBounds(-1, 10), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->SetBounds(0, -1), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->SetBounds(INT64_MAX, INT64_MAX), ZS_E_INVALID_ARG);
  EXPECT_EQ(Size(), 200);  // the old bounds and position stay
  EXPECT_EQ(Position(), 50);
}

TEST_F(FileStream, NameIsThePathAsGiven) {
  OpenData(PatternBytes(4), "sample.mp3");
  char16_t name[ZS_NAME_CHARS];
  ASSERT_EQ(stream_->GetName(name), AF_S_OK);
  EXPECT_EQ(std::u16string(name), Utf16(dir_.File("sample.mp3")));
}

TEST_F(FileStream, NonAsciiPathsAreOpenedAsUtf8) {
  const std::u16string file = u"/\u30A2\u30EB\u30D0\u30E0 Caf\u00E9 \U0001F3B5.mp3";
  const std::string utf8 = dir_.Path() + "/\xE3\x82\xA2\xE3\x83\xAB\xE3\x83\x90\xE3\x83\xA0 Caf\xC3\xA9 \xF0\x9F\x8E\xB5.mp3";
  WriteBytes(utf8, PatternBytes(8));
  KxResult result;
  stream_ = OpenStream(Utf16(dir_.Path()) + file, ZS_MODE_READ, &result);
  ASSERT_EQ(result, AF_S_OK);
  EXPECT_EQ(Size(), 8);
  char16_t name[ZS_NAME_CHARS];
  stream_->GetName(name);
  EXPECT_EQ(std::u16string(name), Utf16(dir_.Path()) + file);
}

TEST_F(FileStream, LongNamesAreCutToTheNameBuffer) {
  // A path of more than 1,024 characters, through nested folders.
  std::string path = dir_.Path();
  while (path.size() < 1100) {
    path += "/" + std::string(200, 'd');
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  }
  path += "/f.mp3";
  WriteBytes(path, PatternBytes(3));
  KxResult result;
  stream_ = OpenStream(Utf16(path), ZS_MODE_READ, &result);
  ASSERT_EQ(result, AF_S_OK);
  std::vector<char16_t> name(ZS_NAME_CHARS + 16, u'#');
  ASSERT_EQ(stream_->GetName(name.data()), AF_S_OK);
  EXPECT_EQ(std::u16string(name.data()), Utf16(path.substr(0, ZS_NAME_CHARS - 1)));
  EXPECT_EQ(name[ZS_NAME_CHARS], u'#');  // nothing written past the buffer
}

TEST_F(FileStream, MissingFile) {
  KxResult result;
  stream_ = OpenStream(Utf16(dir_.File("missing.mp3")), ZS_MODE_READ, &result);
  EXPECT_EQ(result, ZS_E_NOT_FOUND);
  EXPECT_EQ(stream_->IsCreated(), 0u);
  uint8_t b;
  uint32_t n = 7;
  EXPECT_EQ(stream_->Read(&b, 1, &n), ZS_E_NOT_OPEN);
  EXPECT_EQ(n, 0u);
  stream_->Release();
  stream_ = OpenStream(Utf16(dir_.File("no/such/folder/x.mp3")), ZS_MODE_READ, &result);
  EXPECT_EQ(result, ZS_E_NOT_FOUND);
  stream_->Release();
  stream_ = OpenStream(Utf16(dir_.File("no-folder/new.mp3")), ZS_MODE_WRITE, &result);
  EXPECT_EQ(result, ZS_E_NOT_FOUND);
}

TEST_F(FileStream, DirectoryGivenAsAFile) {
  KxResult result;
  stream_ = OpenStream(Utf16(dir_.Path()), ZS_MODE_READ, &result);
  EXPECT_EQ(result, ZS_E_NOT_FOUND);
  stream_->Release();
  stream_ = OpenStream(Utf16(dir_.Path()), ZS_MODE_WRITE, &result);
  EXPECT_EQ(result, ZS_E_NOT_FOUND);
}

TEST_F(FileStream, FifoIsRefusedWithoutBlocking) {
  const std::string fifo = dir_.File("pipe");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  KxResult result;
  stream_ = OpenStream(Utf16(fifo), ZS_MODE_READ, &result);
  EXPECT_EQ(result, ZS_E_NOT_FOUND);
}

TEST_F(FileStream, UnreadableFile) {
  if (geteuid() == 0) GTEST_SKIP() << "running as root: file permissions do not stop reads";
  const std::string path = dir_.File("locked.mp3");
  WriteBytes(path, PatternBytes(10));
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  KxResult result;
  stream_ = OpenStream(Utf16(path), ZS_MODE_READ, &result);
  EXPECT_EQ(result, ZS_E_ACCESS);
}

TEST_F(FileStream, ZeroLengthFile) {
  OpenData({}, "empty.mp3");
  EXPECT_EQ(Size(), 0);
  uint8_t buf[4];
  uint32_t n = 9;
  EXPECT_EQ(stream_->Read(buf, 4, &n), ZS_E_END_OF_DATA);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(stream_->Seek(0, ZS_SEEK_END), AF_S_OK);
  EXPECT_EQ(stream_->Seek(1, ZS_SEEK_SET), ZS_E_SEEK);
  EXPECT_EQ(stream_->Seek(-1, ZS_SEEK_END), ZS_E_SEEK);
  EXPECT_EQ(stream_->SetBounds(0, 0), AF_S_OK);
  EXPECT_EQ(stream_->SetBounds(0, 1), ZS_E_INVALID_ARG);
}

TEST_F(FileStream, BadOpenRecords) {
  void* object = nullptr;
  ASSERT_EQ(ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &object), AF_S_OK);
  stream_ = static_cast<Class_ZStream*>(object);
  const std::u16string path = Utf16(dir_.File("x.bin"));
  WriteBytes(dir_.File("x.bin"), PatternBytes(4));
  EXPECT_EQ(stream_->Create(nullptr), ZS_E_INVALID_ARG);
  ZStreamOpenRecord record{};
  record.tag = FOURCC_ZSTM;
  record.size = 44;
  record.mode = ZS_MODE_READ;
  record.source = nullptr;
  EXPECT_EQ(stream_->Create(&record), ZS_E_INVALID_ARG);  // no source
  record.source = path.c_str();
  record.tag = FOURCC_ZAFC;
  EXPECT_EQ(stream_->Create(&record), ZS_E_INVALID_ARG);  // wrong tag
  record.tag = FOURCC_ZSTM;
  record.size = 24;
  EXPECT_EQ(stream_->Create(&record), ZS_E_INVALID_ARG);  // wrong size
  record.size = 44;
  for (uint32_t mode : {0u, 3u, 4u}) {
    record.mode = mode;
    EXPECT_EQ(stream_->Create(&record), ZS_E_INVALID_ARG) << mode;
  }
  record.mode = ZS_MODE_READ;
  record.source = u"";
  EXPECT_EQ(stream_->Create(&record), ZS_E_NOT_FOUND);  // empty path
  EXPECT_EQ(stream_->IsCreated(), 0u);
  record.source = path.c_str();
  EXPECT_EQ(stream_->Create(&record), AF_S_OK);
  EXPECT_EQ(stream_->Create(&record), AF_E_ALREADY_CREATED);
  // After ResetData the same object can open again.
  EXPECT_EQ(stream_->ResetData(), AF_S_OK);
  EXPECT_EQ(stream_->IsCreated(), 0u);
  EXPECT_EQ(stream_->Create(&record), AF_S_OK);
}

TEST_F(FileStream, CallsBeforeCreateAndNullPointers) {
  void* object = nullptr;
  ASSERT_EQ(ZCoreCreateObject(FOURCC_ZSNF, 0, &object), AF_S_OK);
  stream_ = static_cast<Class_ZStream*>(object);
  int64_t v = 5;
  uint8_t b = 0;
  char16_t name[ZS_NAME_CHARS];
  EXPECT_EQ(stream_->GetPosition(&v), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->GetSize(&v), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->Seek(0, ZS_SEEK_SET), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->SetBounds(0, 0), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->Write(&b, 1, nullptr), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->SetEnd(), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->SetAccessMode(ZS_MODE_READ), ZS_E_NOT_OPEN);
  EXPECT_EQ(stream_->GetOpenMode(), 0u);
  EXPECT_EQ(stream_->GetName(name), ZS_E_NOT_OPEN);
  EXPECT_EQ(name[0], 0);
  stream_->Release();

  OpenData(PatternBytes(4));
  EXPECT_EQ(stream_->GetPosition(nullptr), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->GetSize(nullptr), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->GetName(nullptr), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->Read(nullptr, 4, nullptr), ZS_E_INVALID_ARG);
  EXPECT_EQ(Position(), 0);
}

TEST_F(FileStream, ReadOnlyStreamRefusesWrites) {
  const auto data = PatternBytes(100);
  OpenData(data);
  EXPECT_EQ(stream_->GetOpenMode(), ZS_OPEN_READ);
  uint32_t n = 7;
  EXPECT_EQ(stream_->Write("abc", 3, &n), ZS_E_ACCESS);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(stream_->SetEnd(), ZS_E_ACCESS);
  EXPECT_EQ(stream_->SetAccessMode(ZS_MODE_WRITE), ZS_E_ACCESS);
  EXPECT_EQ(stream_->SetAccessMode(ZS_MODE_READ), AF_S_OK);
  EXPECT_EQ(stream_->SetAccessMode(9), ZS_E_INVALID_ARG);
  EXPECT_EQ(stream_->GetOpenMode(), ZS_OPEN_READ);
  EXPECT_EQ(kxtest::ReadFile(dir_.File("data.bin")), data);  // untouched
}

TEST_F(FileStream, WriteModeCreatesWritesAndTruncates) {
  const std::string path = dir_.File("new.bin");
  WriteBytes(path, PatternBytes(500));  // mode 2 truncates what was there
  KxResult result;
  stream_ = OpenStream(Utf16(path), ZS_MODE_WRITE, &result);
  ASSERT_EQ(result, AF_S_OK);
  EXPECT_EQ(Size(), 0);
  EXPECT_EQ(stream_->GetOpenMode(), ZS_OPEN_READ | ZS_OPEN_WRITE);
  uint32_t n = 0;
  ASSERT_EQ(stream_->Write("hello, world", 12, &n), AF_S_OK);
  EXPECT_EQ(n, 12u);
  EXPECT_EQ(Position(), 12);
  EXPECT_EQ(Size(), 12);
  // Read back through the same stream (access mode 2 reads too).
  ASSERT_EQ(stream_->Seek(7, ZS_SEEK_SET), AF_S_OK);
  char buf[8] = {};
  ASSERT_EQ(stream_->Read(buf, 5, &n), AF_S_OK);
  EXPECT_STREQ(buf, "world");
  // Overwrite inside what was just read (and buffered): the read sees the new bytes.
  ASSERT_EQ(stream_->Seek(7, ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(stream_->Write("WORLD", 5, &n), AF_S_OK);
  ASSERT_EQ(stream_->Seek(0, ZS_SEEK_SET), AF_S_OK);
  char all[13] = {};
  ASSERT_EQ(stream_->Read(all, 12, &n), AF_S_OK);
  EXPECT_STREQ(all, "hello, WORLD");
  // SetEnd truncates at the position.
  ASSERT_EQ(stream_->Seek(5, ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(stream_->SetEnd(), AF_S_OK);
  EXPECT_EQ(Size(), 5);
  EXPECT_EQ(stream_->Seek(6, ZS_SEEK_SET), ZS_E_SEEK);
  const std::vector<uint8_t> expected = {'h', 'e', 'l', 'l', 'o'};
  EXPECT_EQ(kxtest::ReadFile(path), expected);
  // Access mode 1 stops writes until mode 2 comes back.
  ASSERT_EQ(stream_->SetAccessMode(ZS_MODE_READ), AF_S_OK);
  EXPECT_EQ(stream_->GetOpenMode(), ZS_OPEN_READ);
  EXPECT_EQ(stream_->Write("x", 1, &n), ZS_E_ACCESS);
  EXPECT_EQ(stream_->SetEnd(), ZS_E_ACCESS);
  ASSERT_EQ(stream_->SetAccessMode(ZS_MODE_WRITE), AF_S_OK);
  EXPECT_EQ(stream_->Write("!", 1, &n), AF_S_OK);
  EXPECT_EQ(Size(), 6);
}

TEST_F(FileStream, WritesInsideBoundsGrowThem) {
  const std::string path = dir_.File("bounded.bin");
  KxResult result;
  stream_ = OpenStream(Utf16(path), ZS_MODE_WRITE, &result);
  ASSERT_EQ(result, AF_S_OK);
  std::vector<uint8_t> head(100, 'a');
  ASSERT_EQ(stream_->Write(head.data(), 100, nullptr), AF_S_OK);
  ASSERT_EQ(stream_->SetBounds(40, 60), AF_S_OK);
  ASSERT_EQ(stream_->Seek(0, ZS_SEEK_END), AF_S_OK);
  ASSERT_EQ(stream_->Write("tail", 4, nullptr), AF_S_OK);
  EXPECT_EQ(Size(), 64);
  EXPECT_EQ(Position(), 64);
  ASSERT_EQ(stream_->Seek(10, ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(stream_->SetEnd(), AF_S_OK);  // truncation shortens the bounds too
  EXPECT_EQ(Size(), 10);
  EXPECT_EQ(kxtest::ReadFile(path).size(), 50u);
}

TEST_F(FileStream, SparseFileBeyondFourGiB) {
  const std::string path = dir_.File("sparse.bin");
  const int64_t fourGiB = int64_t{1} << 32;
  const int64_t size = fourGiB + (int64_t{1} << 30);  // 5 GiB
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fd, 0);
  if (ftruncate(fd, size) != 0) {
    ::close(fd);
    GTEST_SKIP() << "the temporary file system cannot hold a 5 GiB sparse file";
  }
  ASSERT_EQ(pwrite(fd, "MARK", 4, fourGiB + 10), 4);
  ASSERT_EQ(pwrite(fd, "LAST", 4, size - 4), 4);
  ::close(fd);
  KxResult result;
  stream_ = OpenStream(Utf16(path), ZS_MODE_READ, &result);
  ASSERT_EQ(result, AF_S_OK);
  EXPECT_EQ(Size(), size);
  char buf[5] = {};
  ASSERT_EQ(stream_->Seek(fourGiB + 10, ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(stream_->Read(buf, 4, nullptr), AF_S_OK);
  EXPECT_STREQ(buf, "MARK");
  EXPECT_EQ(Position(), fourGiB + 14);
  ASSERT_EQ(stream_->Seek(-4, ZS_SEEK_END), AF_S_OK);
  uint32_t n = 0;
  EXPECT_EQ(stream_->Read(buf, 8, &n), ZS_E_END_OF_DATA);
  EXPECT_EQ(n, 4u);
  EXPECT_STREQ(buf, "LAST");
  // Bounds beyond 4 GiB.
  ASSERT_EQ(stream_->SetBounds(fourGiB, size - fourGiB), AF_S_OK);
  EXPECT_EQ(Size(), int64_t{1} << 30);
  ASSERT_EQ(stream_->Seek(10, ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(stream_->Read(buf, 4, nullptr), AF_S_OK);
  EXPECT_STREQ(buf, "MARK");
  // The zero hole reads as zeros.
  ASSERT_EQ(stream_->Seek(fourGiB - 1000, ZS_SEEK_CUR), ZS_E_SEEK);
  ASSERT_EQ(stream_->SetBounds(0, size), AF_S_OK);
  ASSERT_EQ(stream_->Seek(fourGiB - 2, ZS_SEEK_SET), AF_S_OK);
  ASSERT_EQ(stream_->Read(buf, 4, nullptr), AF_S_OK);
  EXPECT_EQ(std::memcmp(buf, "\0\0\0\0", 4), 0);
}

TEST_F(FileStream, ReleaseClosesAndFreesEverything) {
  for (int i = 0; i < 20; ++i) {
    KxResult result;
    WriteBytes(dir_.File("r.bin"), PatternBytes(100));
    Class_ZStream* s = OpenStream(Utf16(dir_.File("r.bin")), ZS_MODE_READ, &result);
    ASSERT_EQ(result, AF_S_OK);
    uint8_t b;
    s->Read(&b, 1, nullptr);
    EXPECT_EQ(s->Release(), 0u);
  }
  // TearDown checks that the core blocks came back.
}

TEST(ObjectFactory, KindsAndInterfaces) {
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(ZCoreCreateObject(FOURCC_ZMP3, FOURCC_ZSTM, &out), ZS_E_UNKNOWN_KIND);
  EXPECT_EQ(out, nullptr);
  out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZAFC, &out), AF_E_UNSUPPORTED);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, nullptr), AF_E_POINTER);
  const int64_t live = ZCoreLiveBlocks();
  for (uint32_t iface : {0u, FOURCC_ZSTM}) {
    ASSERT_EQ(ZCoreCreateObject(FOURCC_ZSNF, iface, &out), AF_S_OK);
    auto* stream = static_cast<Class_ZStream*>(out);
    EXPECT_EQ(stream->GetRefCount(), 1u);
    EXPECT_EQ(stream->GetIdentCode(), FOURCC_ZSTM);
    EXPECT_EQ(stream->IsCreated(), 0u);
    EXPECT_EQ(stream->Release(), 0u);
  }
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

}  // namespace
