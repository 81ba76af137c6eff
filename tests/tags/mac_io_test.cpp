// KXMACIO, the APE tag code's I/O over a host stream: forwarding, access-mode
// switching, overlooked failures of core streams, and Open/Create through the core
// library's object factory on real files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/kx_types.h"
#include "host/kxcore.h"
#include "tag_test_util.h"
#include "tags/mac_io.h"

namespace {

using kxmp3::KXMACIO;

// A stream that records the calls the adapter makes and can be told to fail.
class FakeStream : public Class_ZStream {
 public:
  explicit FakeStream(uint32_t openMode, uint32_t ident) : openMode_(openMode), ident_(ident) {}
  KxResult Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) override {
    log.push_back("read");
    if (failAll) return ZS_E_FAIL;
    const uint32_t n = bytes < 3 ? bytes : 3;
    for (uint32_t i = 0; i < n; ++i) static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>('a' + i);
    if (bytesRead) *bytesRead = n;
    return n == bytes ? AF_S_OK : ZS_E_END_OF_DATA;
  }
  KxResult GetPosition(int64_t* position) override {
    log.push_back("position");
    *position = 42;
    return failAll ? ZS_E_FAIL : AF_S_OK;
  }
  KxResult Seek(int64_t offset, uint32_t origin) override {
    log.push_back("seek " + std::to_string(offset) + " " + std::to_string(origin));
    return failAll ? ZS_E_SEEK : AF_S_OK;
  }
  KxResult GetSize(int64_t* size) override {
    log.push_back("size");
    *size = 1000;
    return failAll ? ZS_E_FAIL : AF_S_OK;
  }
  KxResult GetName(char16_t* buffer) override {
    log.push_back("name");
    std::u16string name(600, u'n');
    name.copy(buffer, name.size());
    buffer[name.size()] = 0;
    return failAll ? ZS_E_FAIL : AF_S_OK;
  }
  KxResult SetBounds(int64_t, int64_t) override { return AF_S_OK; }
  KxResult Write(const void*, uint32_t bytes, uint32_t* bytesWritten) override {
    log.push_back("write");
    if (bytesWritten) *bytesWritten = failAll ? 0 : bytes;
    return failAll ? ZS_E_ACCESS : AF_S_OK;
  }
  KxResult SetEnd() override {
    log.push_back("setend");
    return failAll ? ZS_E_FAIL : AF_S_OK;
  }
  KxResult SetAccessMode(uint32_t mode) override {
    log.push_back("mode " + std::to_string(mode));
    return AF_S_OK;
  }
  uint32_t GetOpenMode() override { return openMode_; }
  uint32_t GetIdentCode() override { return ident_; }

  std::vector<std::string> log;
  bool failAll = false;

 private:
  uint32_t openMode_;
  uint32_t ident_;
};

struct FakeDeleter {
  void operator()(FakeStream* s) const { s->Release(); }
};

TEST(MacIo, EveryOperationFailsWithoutAStream) {
  KXMACIO io;
  uint8_t buffer[4];
  uint32_t count = 7;
  char16_t name[kxmp3::CIO::kNameChars];
  EXPECT_EQ(io.Read(buffer, 4, &count), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(io.Write(buffer, 4, &count), -1);
  EXPECT_EQ(io.Seek(0, 0), -1);
  EXPECT_EQ(io.SetEOF(), -1);
  EXPECT_EQ(io.GetPosition(), -1);
  EXPECT_EQ(io.GetSize(), -1);
  EXPECT_EQ(io.GetName(name), -1);
  EXPECT_EQ(io.Delete(), -1);
  EXPECT_EQ(io.Close(), 0);
}

TEST(MacIo, AttachHoldsOneReferenceAndReleasesIt) {
  auto* stream = new FakeStream(ZS_OPEN_READ, FOURCC_ZSTM);
  {
    KXMACIO io;
    EXPECT_EQ(io.Attach(stream), 0);
    EXPECT_EQ(stream->GetRefCount(), 2u);
    EXPECT_EQ(io.Attach(stream), 0);  // the same stream again
    EXPECT_EQ(stream->GetRefCount(), 2u);
    EXPECT_EQ(io.Attach(nullptr), 0);
    EXPECT_EQ(stream->GetRefCount(), 1u);
    io.Attach(stream);
  }
  EXPECT_EQ(stream->GetRefCount(), 1u);  // the destructor released it
  stream->Release();
}

TEST(MacIo, ReadOnAReadableStreamDoesNotSwitchModes) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(new FakeStream(ZS_OPEN_READ, FOURCC_ZSTM));
  KXMACIO io;
  io.Attach(stream.get());
  uint8_t buffer[8] = {};
  uint32_t got = 0;
  EXPECT_EQ(io.Read(buffer, 3, &got), 0);
  EXPECT_EQ(got, 3u);
  EXPECT_EQ(buffer[2], 'c');
  EXPECT_EQ(io.Read(buffer, 8, &got), 0);  // a short read passes its count back
  EXPECT_EQ(got, 3u);
  EXPECT_EQ(stream->log, (std::vector<std::string>{"read", "read"}));
}

TEST(MacIo, ReadOnAWriteOnlyStreamSwitchesToReadAndBack) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(new FakeStream(ZS_OPEN_WRITE, FOURCC_ZSTM));
  KXMACIO io;
  io.Attach(stream.get());
  uint8_t buffer[3];
  uint32_t got = 0;
  EXPECT_EQ(io.Read(buffer, 3, &got), 0);
  EXPECT_EQ(stream->log, (std::vector<std::string>{"mode 1", "read", "mode 2"}));
  stream->failAll = true;
  EXPECT_EQ(io.Read(buffer, 3, &got), -1);  // read failures are never overlooked
}

TEST(MacIo, WriteOnAReadOnlyStreamSwitchesToWriteAndBack) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(new FakeStream(ZS_OPEN_READ, MakeFourCC('O', 'T', 'H', 'R')));
  KXMACIO io;
  io.Attach(stream.get());
  uint32_t written = 0;
  EXPECT_EQ(io.Write("xyz", 3, &written), 0);
  EXPECT_EQ(written, 3u);
  EXPECT_EQ(stream->log, (std::vector<std::string>{"mode 2", "write", "mode 1"}));
}

TEST(MacIo, SeekMethodsMapToOrigins) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(new FakeStream(ZS_OPEN_READ, FOURCC_ZSTM));
  KXMACIO io;
  io.Attach(stream.get());
  io.Seek(5, 0);
  io.Seek(-6, 1);
  io.Seek(-7, 2);
  io.Seek(8, 9);
  EXPECT_EQ(stream->log, (std::vector<std::string>{"seek 5 0", "seek -6 1", "seek -7 2", "seek 8 0"}));
  EXPECT_EQ(io.GetPosition(), 42);
  EXPECT_EQ(io.GetSize(), 1000);
  stream->log.clear();
  EXPECT_EQ(io.SetEOF(), 0);
  EXPECT_EQ(stream->log, (std::vector<std::string>{"position", "setend"}));
}

TEST(MacIo, FailuresOfACoreStreamAreOverlooked) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(new FakeStream(ZS_OPEN_READ | ZS_OPEN_WRITE, FOURCC_ZSTM));
  stream->failAll = true;
  KXMACIO io;
  io.Attach(stream.get());
  uint32_t written = 0;
  char16_t name[kxmp3::CIO::kNameChars];
  EXPECT_EQ(io.Write("a", 1, &written), 0);
  EXPECT_EQ(io.Seek(1, 0), 0);
  EXPECT_EQ(io.SetEOF(), 0);
  EXPECT_EQ(io.GetPosition(), 42);
  EXPECT_EQ(io.GetSize(), 1000);
  EXPECT_EQ(io.GetName(name), 0);
}

TEST(MacIo, FailuresOfOtherStreamsAreReported) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(
      new FakeStream(ZS_OPEN_READ | ZS_OPEN_WRITE, MakeFourCC('M', 'E', 'M', 'S')));
  stream->failAll = true;
  KXMACIO io;
  io.Attach(stream.get());
  uint32_t written = 0;
  char16_t name[kxmp3::CIO::kNameChars];
  EXPECT_EQ(io.Write("a", 1, &written), -1);
  EXPECT_EQ(io.Seek(1, 0), -1);
  EXPECT_EQ(io.SetEOF(), -1);
  EXPECT_EQ(io.GetPosition(), -1);
  EXPECT_EQ(io.GetSize(), -1);
  EXPECT_EQ(io.GetName(name), -1);
}

TEST(MacIo, NameIsCutTo260Characters) {
  std::unique_ptr<FakeStream, FakeDeleter> stream(new FakeStream(ZS_OPEN_READ, FOURCC_ZSTM));
  KXMACIO io;
  io.Attach(stream.get());
  std::vector<char16_t> name(kxmp3::CIO::kNameChars + 10, u'#');
  EXPECT_EQ(io.GetName(name.data()), 0);
  EXPECT_EQ(std::u16string(name.data()), std::u16string(259, u'n'));
  EXPECT_EQ(name[260], u'#');  // nothing written past the capacity
}

std::u16string Wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

TEST(MacIo, CreateWriteAndOpenRealFiles) {
  char path[] = "/tmp/kx_macio_XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  const std::u16string name = Wide(path);
  {
    KXMACIO io;
    ASSERT_EQ(io.Create(name.c_str()), 0);
    uint32_t written = 0;
    EXPECT_EQ(io.Write("APETAGEX tail", 13, &written), 0);
    EXPECT_EQ(written, 13u);
    EXPECT_EQ(io.Seek(8, 0), 0);
    EXPECT_EQ(io.SetEOF(), 0);  // the file ends after "APETAGEX"
    EXPECT_EQ(io.GetSize(), 8);
    char16_t got[kxmp3::CIO::kNameChars];
    EXPECT_EQ(io.GetName(got), 0);
    EXPECT_EQ(std::u16string(got), name);
    EXPECT_EQ(io.Close(), 0);
    EXPECT_EQ(io.GetSize(), -1);
  }
  {
    KXMACIO io;
    ASSERT_EQ(io.Open(name.c_str()), 0);
    char buffer[16] = {};
    uint32_t got = 0;
    EXPECT_EQ(io.Read(buffer, 16, &got), 0);
    EXPECT_EQ(got, 8u);
    EXPECT_EQ(std::string(buffer, got), "APETAGEX");
    EXPECT_EQ(io.Delete(), -1);
  }
  std::remove(path);
  KXMACIO io;
  const int64_t live = ZCoreLiveBlocks();
  EXPECT_EQ(io.Open(u"/nonexistent/kx/file.mp3"), -1);
  EXPECT_EQ(ZCoreLiveBlocks(), live);  // the failed stream was released
  EXPECT_EQ(io.GetSize(), -1);
}

}  // namespace
