// The decoder object before any open: factory codes, its identity and size, the
// zero-filled state, every call answering "not ready", the interface query and
// registration overrides, ResetData on a fresh object, copies, and many objects
// made and released on several threads without a leak.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "host/kxcore.h"
#include "plugin/kxmp3.h"

namespace {

// Creates a decoder and returns it as the class (one reference).
Class_KXMP3* NewDecoder() {
  Class_ZCOM* object = nullptr;
  EXPECT_EQ(CreateInstance_KXMP3(&object), AF_S_OK);
  return dynamic_cast<Class_KXMP3*>(object);
}

bool AllZero(const void* p, size_t n) {
  const auto* b = static_cast<const uint8_t*>(p);
  for (size_t i = 0; i < n; ++i) {
    if (b[i] != 0) return false;
  }
  return true;
}

TEST(DecoderObject, FactoryRefusesANullOut) { EXPECT_EQ(CreateInstance_KXMP3(nullptr), AF_E_FAIL); }

TEST(DecoderObject, IdentityAfterConstruction) {
  Class_ZCOM* object = nullptr;
  ASSERT_EQ(CreateInstance_KXMP3(&object), AF_S_OK);
  ASSERT_NE(object, nullptr);
  auto* decoder = dynamic_cast<Class_KXMP3*>(object);
  ASSERT_NE(decoder, nullptr);
  // The out pointer is the object's Class_ZCOM part.
  EXPECT_EQ(object, static_cast<Class_ZCOM*>(decoder));
  EXPECT_EQ(object->GetFourCC(), FOURCC_ZMP3);
  EXPECT_EQ(object->ObjectSize(), sizeof(Class_KXMP3));
  EXPECT_EQ(object->GetRefCount(), 1u);
  EXPECT_EQ(object->IsCreated(), 0u);
  EXPECT_TRUE(AllZero(&decoder->State(), sizeof(kxmp3::DecoderState)));
  EXPECT_EQ(object->Release(), 0u);
}

TEST(DecoderObject, OneReferenceCountThroughBothInterfaces) {
  Class_KXMP3* decoder = NewDecoder();
  Class_ZCOM* zcom = decoder;
  Class_KXAudioFile* audio = decoder;
  EXPECT_EQ(audio->AddRef(), 2u);
  EXPECT_EQ(zcom->GetRefCount(), 2u);
  EXPECT_EQ(zcom->AddRef(), 3u);
  EXPECT_EQ(audio->GetRefCount(), 3u);
  EXPECT_EQ(audio->Release(), 2u);
  EXPECT_EQ(zcom->Release(), 1u);
  EXPECT_EQ(audio->Release(), 0u);
}

TEST(DecoderObject, EveryCallBeforeCreateIsNotReady) {
  const int64_t liveBefore = ZCoreLiveBlocks();
  Class_KXMP3* decoder = NewDecoder();
  Class_KXAudioFile* audio = decoder;
  uint8_t record[2600];
  std::memset(record, 0xCC, sizeof(record));
  uint32_t size = sizeof(record);
  EXPECT_EQ(audio->GetInfo(FOURCC_ZMP3, record, &size), AF_E_NOT_READY);
  // Nothing written: neither the record nor the size.
  EXPECT_EQ(size, sizeof(record));
  for (uint8_t b : record) ASSERT_EQ(b, 0xCC);
  EXPECT_EQ(audio->GetInfo(FOURCC_ZMP3, nullptr, &size), AF_E_NOT_READY);
  EXPECT_EQ(audio->GetInfo(FOURCC_RPGI, record, &size), AF_E_NOT_READY);
  EXPECT_EQ(audio->GetComment(FOURCC_ZAFC, record, &size), AF_E_NOT_READY);
  EXPECT_EQ(audio->GetComment(FOURCC_ZMP3, nullptr, &size), AF_E_NOT_READY);
  PCMWAVEFORMAT format{};
  EXPECT_EQ(audio->GetPCMWaveFormat(&format), AF_E_NOT_READY);
  int32_t written = 77;
  EXPECT_EQ(audio->DecodeToPCMData(record, 100, &written), AF_E_NOT_READY);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(audio->Rewind(), AF_E_NOT_READY);
  EXPECT_EQ(audio->FileInfoDialog(nullptr), AF_E_NOT_READY);
  QWUNION q{};
  EXPECT_EQ(audio->GetCurrentPosition(&q, AF_ORIGIN_START), AF_E_NOT_READY);
  EXPECT_EQ(audio->SetCurrentPosition(q, AF_ORIGIN_START), AF_E_NOT_READY);
  // Time calls answer with their own code.
  EXPECT_EQ(audio->ReferenceTimeToSamples(q, &q), AF_E_TIME_NOT_READY);
  EXPECT_EQ(audio->SamplesToReferenceTime(q, &q), AF_E_TIME_NOT_READY);
  EXPECT_EQ(audio->GetReferenceTime(&q), AF_E_TIME_NOT_READY);
  EXPECT_EQ(audio->GetTotalTime(&q), AF_E_TIME_NOT_READY);
  EXPECT_EQ(decoder->IsCreated(), 0u);
  EXPECT_TRUE(AllZero(&decoder->State(), sizeof(kxmp3::DecoderState)));
  EXPECT_EQ(decoder->Release(), 0u);
  EXPECT_EQ(ZCoreLiveBlocks(), liveBefore);
}

TEST(DecoderObject, CreateChecksTheParameterRecordFirst) {
  Class_KXMP3* decoder = NewDecoder();
  OpenParams params{};
  params.tag = MakeFourCC('Z', 'W', 'A', 'V');
  params.size = sizeof(OpenParams);
  EXPECT_EQ(decoder->Create(&params), AF_E_BAD_PARAM_TAG);
  params.tag = FOURCC_ZAFC;
  params.size = 23;
  EXPECT_EQ(decoder->Create(&params), AF_E_BAD_PARAM_SIZE);
  params.tag = FOURCC_ZMP3;
  params.size = 25;
  EXPECT_EQ(decoder->Create(&params), AF_E_BAD_PARAM_SIZE);
  // The tag is checked before the size.
  params.tag = 0;
  EXPECT_EQ(decoder->Create(&params), AF_E_BAD_PARAM_TAG);
  EXPECT_EQ(decoder->Create(nullptr), AF_E_POINTER);
  EXPECT_EQ(decoder->IsCreated(), 0u);
  EXPECT_TRUE(AllZero(&decoder->State(), sizeof(kxmp3::DecoderState)));
  decoder->Release();
}

TEST(DecoderObject, QueryInterfaceZmp3AddsAReference) {
  Class_KXMP3* decoder = NewDecoder();
  void* out = nullptr;
  ASSERT_EQ(decoder->QueryInterface(FOURCC_ZMP3, &out), AF_S_OK);
  // The object comes back as its audio-file interface, with one more reference.
  EXPECT_EQ(out, static_cast<void*>(static_cast<Class_KXAudioFile*>(decoder)));
  EXPECT_EQ(decoder->GetRefCount(), 2u);
  static_cast<Class_KXAudioFile*>(out)->Release();
  EXPECT_EQ(decoder->GetRefCount(), 1u);
  decoder->Release();
}

TEST(DecoderObject, QueryInterfaceOtherCodesGoToTheBase) {
  Class_KXMP3* decoder = NewDecoder();
  // The base's own answer, from a plain audio-file object, is the reference.
  for (uint32_t code : {FOURCC_ZAFC, MakeFourCC('Z', 'W', 'A', 'V'), FOURCC_RPGI}) {
    void* out = nullptr;
    const KxResult rc = decoder->QueryInterface(code, &out);
    const KxResult expected = decoder->Class_KXAudioFile::QueryInterface(code, &out);
    EXPECT_EQ(rc, expected) << std::hex << code;
    if (rc == AF_S_OK) {
      // Each successful query added a reference; give both back.
      decoder->Release();
      decoder->Release();
    }
    EXPECT_EQ(decoder->GetRefCount(), 1u);
  }
  decoder->Release();
}

TEST(DecoderObject, AddInterfaceRegistersUnderZmp3AndTheBase) {
  Class_KXMP3* decoder = NewDecoder();
  const void* self = decoder;
  EXPECT_EQ(ZCoreInterfaceCount(self), 0u);
  EXPECT_EQ(decoder->AddInterface(reinterpret_cast<void*>(uintptr_t{0x55})), AF_S_OK);
  EXPECT_GE(ZCoreInterfaceCount(self), 1u);
  EXPECT_EQ(decoder->DeleteInterface(), AF_S_OK);
  EXPECT_EQ(ZCoreInterfaceCount(self), 0u);
  decoder->Release();
}

TEST(DecoderObject, ResetDataOnAFreshObjectOnlyClears) {
  const int64_t liveBefore = ZCoreLiveBlocks();
  Class_KXMP3* decoder = NewDecoder();
  EXPECT_EQ(decoder->ResetData(), AF_S_OK);
  EXPECT_TRUE(AllZero(&decoder->State(), sizeof(kxmp3::DecoderState)));
  EXPECT_EQ(decoder->IsCreated(), 0u);
  EXPECT_EQ(decoder->GetRefCount(), 1u);
  decoder->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), liveBefore);
}

TEST(DecoderObject, ResetDataFreesEveryBufferAndReleasesTheStream) {
  const int64_t liveBefore = ZCoreLiveBlocks();
  Class_KXMP3* decoder = NewDecoder();
  kxmp3::DecoderState& s = decoder->State();
  // Hand the object buffers and a stream as an open would.
  s.pcmBuffer = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, 4608));
  s.engine.workBlockRaw = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kxmp3::kWorkBlockRawBytes));
  s.engine.reservoir = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kxmp3::kReservoirBytes));
  s.engine.frameIndex = static_cast<kxmp3::FrameIndexEntry*>(ZCoreAlloc(ZMEM_ZEROED, 20 * 20));
  void* stream = nullptr;
  ASSERT_EQ(ZCoreCreateObject(FOURCC_ZSNF, FOURCC_ZSTM, &stream), AF_S_OK);
  s.stream = static_cast<Class_ZStream*>(stream);
  s.stream->AddRef();  // one for us, to watch the count fall
  s.pcmTotalBytes = 12345;
  EXPECT_EQ(decoder->ResetData(), AF_S_OK);
  EXPECT_TRUE(AllZero(&s, sizeof(s)));
  EXPECT_EQ(static_cast<Class_ZStream*>(stream)->GetRefCount(), 1u);
  static_cast<Class_ZStream*>(stream)->Release();
  decoder->Release();
  EXPECT_EQ(ZCoreLiveBlocks(), liveBefore);
}

TEST(DecoderObject, CopiesShareTheStateByteForByte) {
  Class_KXMP3* decoder = NewDecoder();
  decoder->State().pcmTotalBytes = 0x0102030405060708ull;
  decoder->State().containerType = 4;
  Class_KXMP3* copy = NewDecoder();
  *copy = *decoder;
  EXPECT_EQ(std::memcmp(&copy->State(), &decoder->State(), sizeof(kxmp3::DecoderState)), 0);
  // The copy shares buffers it does not own: clear before releasing it.
  std::memset(&copy->State(), 0, sizeof(kxmp3::DecoderState));
  copy->Release();
  std::memset(&decoder->State(), 0, sizeof(kxmp3::DecoderState));
  decoder->Release();
}

TEST(DecoderObject, ManyObjectsOnSeveralThreadsLeaveNoBlocks) {
  const int64_t liveBefore = ZCoreLiveBlocks();
  constexpr int kThreads = 4;
  constexpr int kObjectsPerThread = 300;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&failures] {
      for (int i = 0; i < kObjectsPerThread; ++i) {
        Class_ZCOM* object = nullptr;
        if (CreateInstance_KXMP3(&object) != AF_S_OK || object == nullptr) {
          ++failures;
          continue;
        }
        void* audio = nullptr;
        if (object->QueryInterface(FOURCC_ZMP3, &audio) != AF_S_OK) ++failures;
        uint32_t size = 0;
        if (static_cast<Class_KXAudioFile*>(audio)->GetInfo(FOURCC_ZMP3, nullptr, &size) != AF_E_NOT_READY) {
          ++failures;
        }
        if (object->GetRefCount() != 2) ++failures;
        static_cast<Class_KXAudioFile*>(audio)->Release();
        if (object->Release() != 0) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(ZCoreLiveBlocks(), liveBefore);
}

}  // namespace
