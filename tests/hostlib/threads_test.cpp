// Objects of the core library on several threads at once: many created, queried
// and released with no leak, and one object's reference count shared by threads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "host/kxaudiofile.h"
#include "host/kxcore.h"
#include "host/zstream.h"
#include "temp_dir.h"

namespace {

class Reader : public virtual Class_ZCOM, public virtual Class_KXAudioFile {
 public:
  Reader() { SetCoreData(sizeof(Reader), FOURCC_ZMP3); }
  ~Reader() override { ++destroyed; }
  static std::atomic<int> destroyed;
};
std::atomic<int> Reader::destroyed{0};

TEST(Threads, ManyObjectsOnManyThreadsLeakNothing) {
  kxtest::TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  kxtest::WriteBytes(dir.File("shared.bin"), kxtest::PatternBytes(5000));
  const std::u16string path = kxtest::Utf16(dir.File("shared.bin"));
  const int64_t live = ZCoreLiveBlocks();
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        KxResult result;
        Class_ZStream* s = kxtest::OpenStream(path, ZS_MODE_READ, &result);
        if (s == nullptr || result != AF_S_OK) {
          ++failures;
          if (s != nullptr) s->Release();
          continue;
        }
        void* again = nullptr;
        if (s->QueryInterface(FOURCC_ZSTM, &again) != AF_S_OK || again != s) ++failures;
        uint8_t buf[64];
        uint32_t n = 0;
        if (s->Seek(i % 4000, ZS_SEEK_SET) != AF_S_OK || s->Read(buf, 64, &n) != AF_S_OK || n != 64) ++failures;
        static_cast<Class_ZStream*>(again)->Release();
        if (s->Release() != 0) ++failures;

        auto* r = new Reader;
        void* record = ZCoreAlloc(ZMEM_ZEROED, 64);
        static_cast<uint32_t*>(record)[1] = 64;
        r->SetCommentSource(record);
        void* af = nullptr;
        if (r->QueryInterface(FOURCC_ZAFC, &af) != AF_S_OK) ++failures;
        r->AddInterface(nullptr);
        uint32_t size = 0;
        if (r->GetComment(FOURCC_ZAFC, nullptr, &size) != AF_S_OK || size != 64) ++failures;
        r->DeleteInterface();
        static_cast<Class_KXAudioFile*>(af)->Release();
        r->Release();
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(ZCoreLiveBlocks(), live);
}

TEST(Threads, SharedReferenceCountIsExactAndDeletesOnce) {
  Reader::destroyed = 0;
  auto* r = new Reader;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([r] {
      for (int i = 0; i < 20000; ++i) {
        r->AddRef();
        r->SafeAddRef();
        r->Release();
        r->Release();
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(r->GetRefCount(), 1u);
  EXPECT_EQ(Reader::destroyed.load(), 0);
  // Now the last references go away on several threads at once: one deletion.
  for (int i = 0; i < 3; ++i) r->AddRef();
  threads.clear();
  for (int t = 0; t < 4; ++t) threads.emplace_back([r] { r->Release(); });
  for (auto& th : threads) th.join();
  EXPECT_EQ(Reader::destroyed.load(), 1);
}

}  // namespace
