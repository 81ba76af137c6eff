// Class_KXAudioFile: the comment record it owns and GetComment, QueryInterface,
// interface registration, the base answers of the reader methods, copies, and the
// release path of a reader shaped like the plug-in's decoder (virtual bases).
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "host/kxaudiofile.h"
#include "host/kxcore.h"

namespace {

// A reader like a plug-in's: Class_ZCOM and Class_KXAudioFile as virtual bases.
class Reader : public virtual Class_ZCOM, public virtual Class_KXAudioFile {
 public:
  Reader() { SetCoreData(sizeof(Reader), FOURCC_ZMP3); }
  KxResult ResetData() override {
    ++resets;
    return Class_KXAudioFile::ResetData();
  }
  KxResult QueryInterface(uint32_t fourcc, void** out) override { return Class_KXAudioFile::QueryInterface(fourcc, out); }
  KxResult AddInterface(void* arg) override { return Class_KXAudioFile::AddInterface(arg); }
  KxResult DeleteInterface() override { return Class_KXAudioFile::DeleteInterface(); }
  int resets = 0;
};

// A comment record in core memory: FourCC ZAFC, its size at offset 4, then payload.
void* MakeRecord(uint32_t size, uint8_t fill) {
  auto* r = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_PLAIN, size));
  std::memset(r, fill, size);
  const uint32_t fourcc = FOURCC_ZAFC;
  std::memcpy(r, &fourcc, 4);
  std::memcpy(r + 4, &size, 4);
  return r;
}

class AudioFile : public ::testing::Test {
 protected:
  void SetUp() override { live_ = ZCoreLiveBlocks(); }
  void TearDown() override { EXPECT_EQ(ZCoreLiveBlocks(), live_) << "core blocks leaked"; }
  int64_t live_ = 0;
};

TEST_F(AudioFile, GetCommentWithoutARecord) {
  auto* r = new Reader;
  uint32_t size = 5;
  uint8_t buf[8];
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, buf, &size), AF_E_NO_COMMENT);
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, nullptr, &size), AF_E_NO_COMMENT);
  EXPECT_EQ(r->GetComment(FOURCC_ZMP3, nullptr, &size), AF_E_UNKNOWN_CODE);  // the base knows ZAFC only
  EXPECT_EQ(size, 5u);
  r->Release();
}

TEST_F(AudioFile, GetCommentSizesAndCopies) {
  auto* r = new Reader;
  r->SetCommentSource(MakeRecord(100, 0x42));
  uint32_t size = 0;
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, nullptr, &size), AF_S_OK);  // null record: the size
  EXPECT_EQ(size, 100u);
  std::vector<uint8_t> buf(128, 0);
  size = 99;
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, buf.data(), &size), AF_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 100u);
  EXPECT_EQ(buf[10], 0);  // nothing copied
  size = 128;
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, buf.data(), &size), AF_S_OK);
  EXPECT_EQ(size, 100u);
  EXPECT_EQ(std::memcmp(buf.data(), r->GetCommentSource(), 100), 0);
  EXPECT_EQ(buf[99], 0x42);
  EXPECT_EQ(buf[100], 0);  // not past the record
  EXPECT_EQ(r->GetComment(FOURCC_RPGI, buf.data(), &size), AF_E_UNKNOWN_CODE);
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, buf.data(), nullptr), AF_E_POINTER);
  r->Release();  // frees the record
}

TEST_F(AudioFile, SetCommentSourceReplacesAndResetFrees) {
  auto* r = new Reader;
  const int64_t withObject = ZCoreLiveBlocks();
  r->SetCommentSource(MakeRecord(64, 1));
  EXPECT_EQ(ZCoreLiveBlocks(), withObject + 1);
  void* second = MakeRecord(80, 2);
  r->SetCommentSource(second);  // the first record is freed
  EXPECT_EQ(ZCoreLiveBlocks(), withObject + 1);
  EXPECT_EQ(r->GetCommentSource(), second);
  r->SetCommentSource(second);  // the same record again: kept, not freed
  EXPECT_EQ(r->GetCommentSource(), second);
  EXPECT_EQ(r->ResetData(), AF_S_OK);
  EXPECT_EQ(r->GetCommentSource(), nullptr);
  EXPECT_EQ(ZCoreLiveBlocks(), withObject);
  uint32_t size = 0;
  EXPECT_EQ(r->GetComment(FOURCC_ZAFC, nullptr, &size), AF_E_NO_COMMENT);
  r->SetCommentSource(MakeRecord(64, 3));
  r->SetCommentSource(nullptr);
  EXPECT_EQ(ZCoreLiveBlocks(), withObject);
  r->Release();
}

TEST_F(AudioFile, LastReleaseResetsAndFreesTheRecord) {
  auto* r = new Reader;
  r->SetCommentSource(MakeRecord(64, 1));
  r->AddRef();
  EXPECT_EQ(r->Release(), 1u);
  EXPECT_EQ(r->resets, 0);
  EXPECT_EQ(r->Release(), 0u);
  // TearDown: the object and its record came back.
}

TEST_F(AudioFile, DestructorFreesARecordWithoutReset) {
  auto* r = new Reader;
  r->SetCommentSource(MakeRecord(64, 1));
  r->DecRef();
  r->DeleteInstance();  // no ResetData on this path
}

TEST_F(AudioFile, QueryInterface) {
  auto* r = new Reader;
  void* out = nullptr;
  EXPECT_EQ(r->QueryInterface(FOURCC_ZAFC, &out), AF_S_OK);
  EXPECT_EQ(out, static_cast<Class_KXAudioFile*>(r));
  EXPECT_EQ(r->GetRefCount(), 2u);
  EXPECT_EQ(r->QueryInterface(FOURCC_ZMP3, &out), AF_S_OK);  // its own FourCC, through the base
  EXPECT_EQ(out, static_cast<Class_ZCOM*>(r));
  EXPECT_EQ(r->GetRefCount(), 3u);
  EXPECT_EQ(r->QueryInterface(FOURCC_RPGI, &out), AF_E_UNSUPPORTED);
  EXPECT_EQ(r->GetRefCount(), 3u);
  EXPECT_EQ(r->QueryInterface(FOURCC_ZAFC, nullptr), AF_E_POINTER);
  // Through the audio-file interface the answer is the same.
  auto* af = static_cast<Class_KXAudioFile*>(r);
  EXPECT_EQ(af->QueryInterface(FOURCC_ZAFC, &out), AF_S_OK);
  EXPECT_EQ(out, af);
  r->Release();
  r->Release();
  r->Release();
  r->Release();
}

TEST_F(AudioFile, AddAndDeleteInterface) {
  auto* r = new Reader;
  auto* af = static_cast<Class_KXAudioFile*>(r);
  int arg = 0;
  EXPECT_EQ(r->AddInterface(&arg), AF_S_OK);
  Class_ZCOM* zcom = nullptr;
  void* gotArg = nullptr;
  EXPECT_EQ(ZCoreHasInterface(af, FOURCC_ZAFC, &zcom, &gotArg), 1);
  EXPECT_EQ(zcom, static_cast<Class_ZCOM*>(r));
  EXPECT_EQ(gotArg, &arg);
  EXPECT_EQ(ZCoreInterfaceCount(af), 1u);
  EXPECT_EQ(r->DeleteInterface(), AF_S_OK);
  EXPECT_EQ(ZCoreInterfaceCount(af), 0u);
  EXPECT_EQ(r->DeleteInterface(), AF_E_FAIL);  // nothing left to take back
  r->Release();
}

TEST_F(AudioFile, ReaderMethodsOfTheBaseAreNotReady) {
  auto* r = new Reader;
  Class_KXAudioFile* af = r;
  uint32_t size = 0;
  PCMWAVEFORMAT format{};
  QWUNION q{};
  int32_t written = 77;
  uint8_t buf[16];
  EXPECT_EQ(af->GetInfo(FOURCC_ZAFC, nullptr, &size), AF_E_NOT_READY);
  EXPECT_EQ(af->GetPCMWaveFormat(&format), AF_E_NOT_READY);
  EXPECT_EQ(af->DecodeToPCMData(buf, 16, &written), AF_E_NOT_READY);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(af->Rewind(), AF_E_NOT_READY);
  EXPECT_EQ(af->FileInfoDialog(nullptr), AF_E_NOT_READY);
  EXPECT_EQ(af->GetCurrentPosition(&q, AF_ORIGIN_START), AF_E_NOT_READY);
  EXPECT_EQ(af->SetCurrentPosition(q, AF_ORIGIN_START), AF_E_NOT_READY);
  EXPECT_EQ(af->ReferenceTimeToSamples(q, &q), AF_E_NOT_READY);
  EXPECT_EQ(af->SamplesToReferenceTime(q, &q), AF_E_NOT_READY);
  EXPECT_EQ(af->GetReferenceTime(&q), AF_E_NOT_READY);
  EXPECT_EQ(af->GetTotalTime(&q), AF_E_NOT_READY);
  r->Release();
}

TEST_F(AudioFile, CopiesOwnTheirOwnRecord) {
  auto* r = new Reader;
  r->SetCommentSource(MakeRecord(72, 9));
  auto* copy = new Reader(*r);
  ASSERT_NE(copy->GetCommentSource(), nullptr);
  EXPECT_NE(copy->GetCommentSource(), r->GetCommentSource());
  EXPECT_EQ(std::memcmp(copy->GetCommentSource(), r->GetCommentSource(), 72), 0);
  EXPECT_EQ(copy->GetRefCount(), 1u);
  EXPECT_EQ(copy->GetFourCC(), FOURCC_ZMP3);
  auto* assigned = new Reader;
  assigned->SetCommentSource(MakeRecord(16, 1));
  static_cast<Class_KXAudioFile&>(*assigned) = static_cast<const Class_KXAudioFile&>(*r);
  uint32_t size = 0;
  EXPECT_EQ(assigned->GetComment(FOURCC_ZAFC, nullptr, &size), AF_S_OK);
  EXPECT_EQ(size, 72u);
  r->Release();
  copy->Release();
  assigned->Release();
}

}  // namespace
