// Position, seeking and time through the decoder's interface: the object's own
// answers (not opened, information-only open, null pointers) and, on a real file,
// that a seek lands on exactly the bytes a straight decode gives there.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "decoder_fixture.h"

namespace {

using namespace kxtest;

// Can another thread take the object's lock now?
bool LockFreeForOtherThreads(Class_KXMP3* decoder) {
  KxResult other = AF_E_FAIL;
  std::thread([&] {
    other = decoder->TryLockObject("test", 1);
    if (other == AF_S_OK) decoder->UnLockObject();
  }).join();
  return other == AF_S_OK;
}

TEST(PositionTime, InformationOnlyOpen) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_NE(decoder, nullptr);
  QWUNION q{};
  EXPECT_EQ(decoder->GetCurrentPosition(&q, AF_ORIGIN_START), AF_E_NOT_READY);
  EXPECT_EQ(decoder->SetCurrentPosition(q, AF_ORIGIN_START), AF_E_NOT_READY);
  EXPECT_EQ(decoder->GetReferenceTime(&q), AF_E_TIME_NOT_READY);
  // What needs no decoding still answers.
  ASSERT_EQ(decoder->GetTotalTime(&q), AF_S_OK);
  EXPECT_EQ(q.i, 1000000);
  QWUNION time{};
  time.i = 2000000;
  ASSERT_EQ(decoder->ReferenceTimeToSamples(time, &q), AF_S_OK);
  EXPECT_EQ(q.i, 88200);
  QWUNION samples{};
  samples.i = 44100;
  ASSERT_EQ(decoder->SamplesToReferenceTime(samples, &q), AF_S_OK);
  EXPECT_EQ(q.i, 1000000);
  decoder->Release();
}

TEST(PositionTime, NullPointers) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  QWUNION q{};
  EXPECT_EQ(decoder->GetCurrentPosition(nullptr, AF_ORIGIN_START), AF_E_POINTER);
  EXPECT_EQ(decoder->GetReferenceTime(nullptr), AF_E_POINTER);
  EXPECT_EQ(decoder->GetTotalTime(nullptr), AF_E_POINTER);
  EXPECT_EQ(decoder->ReferenceTimeToSamples(q, nullptr), AF_E_POINTER);
  EXPECT_EQ(decoder->SamplesToReferenceTime(q, nullptr), AF_E_POINTER);
  decoder->Release();
}

TEST(PositionTime, PositionFollowsTheBytesDelivered) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  QWUNION q{};
  ASSERT_EQ(decoder->GetCurrentPosition(&q, AF_ORIGIN_START), AF_S_OK);
  EXPECT_EQ(q.i, 0);
  std::vector<uint8_t> buffer(10000);
  int32_t written = 0;
  ASSERT_EQ(decoder->DecodeToPCMData(buffer.data(), 10000, &written), AF_S_OK);
  ASSERT_EQ(decoder->GetCurrentPosition(&q, AF_ORIGIN_START), AF_S_OK);
  EXPECT_EQ(q.i, 10000);
  ASSERT_EQ(decoder->GetCurrentPosition(&q, AF_ORIGIN_END), AF_S_OK);
  EXPECT_EQ(q.i, 176400 - 10000);
  ASSERT_EQ(decoder->GetCurrentPosition(&q, AF_ORIGIN_CURRENT), AF_S_OK);
  EXPECT_EQ(q.i, 0);
  decoder->Release();
}

// From the end (origin 4): a positive position counts back from the end; a
// negative one lies past the end, where nothing is left to deliver; only a
// negative position larger than the total is refused.
TEST(PositionTime, SeekFromTheEnd) {
  Class_KXMP3* reference = OpenFixture("m1_32000_joint_cbr_long.mp3");
  ASSERT_NE(reference, nullptr);
  const std::vector<uint8_t> full = ReadAll(reference, {65536});
  reference->Release();
  const uint64_t total = 192000u * 4;
  ASSERT_EQ(full.size(), total);

  Class_KXMP3* decoder = OpenFixture("m1_32000_joint_cbr_long.mp3");
  ASSERT_NE(decoder, nullptr);
  QWUNION position{};
  position.i = 40000;
  ASSERT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_END), AF_S_OK);
  std::vector<uint8_t> tail = ReadAll(decoder, {7000});
  ASSERT_EQ(tail.size(), 40000u);
  EXPECT_TRUE(std::equal(tail.begin(), tail.end(), full.end() - 40000));

  position.i = -4608 * 3;
  const KxResult past = decoder->SetCurrentPosition(position, AF_ORIGIN_END);
  EXPECT_TRUE(past == AF_S_OK || past == AF_S_END_OF_DATA) << std::hex << past;
  std::vector<uint8_t> buffer(4608);
  int32_t written = -1;
  EXPECT_EQ(decoder->DecodeToPCMData(buffer.data(), 4608, &written), AF_S_END_OF_DATA);
  EXPECT_EQ(written, 0);

  position.i = -static_cast<int64_t>(total) - 4;
  EXPECT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_END), AF_E_OUT_OF_RANGE);
  // The whole total back: the first real sample.
  position.i = static_cast<int64_t>(total);
  ASSERT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_END), AF_S_OK);
  const std::vector<uint8_t> again = ReadAll(decoder, {65536});
  EXPECT_TRUE(again == full);
  decoder->Release();
}

TEST(PositionTime, SeekLandsOnTheStraightDecodesBytes) {
  Class_KXMP3* reference = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(reference, nullptr);
  const std::vector<uint8_t> full = ReadAll(reference, {65536});
  reference->Release();
  ASSERT_EQ(full.size(), 176400u);

  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  // Early (restart from the first frame), late (restart from the index after a
  // scan), and backwards.
  for (int64_t target : {int64_t{4}, int64_t{4608 * 3 + 100}, int64_t{150000}, int64_t{40000}, int64_t{0}}) {
    QWUNION position{};
    position.i = target;
    ASSERT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_START), AF_S_OK) << target;
    QWUNION now{};
    ASSERT_EQ(decoder->GetCurrentPosition(&now, AF_ORIGIN_START), AF_S_OK);
    EXPECT_EQ(now.i, target);
    std::vector<uint8_t> buffer(5000);
    int32_t written = 0;
    const KxResult rc = decoder->DecodeToPCMData(buffer.data(), 5000, &written);
    ASSERT_TRUE(rc == AF_S_OK || rc == AF_S_END_OF_DATA) << std::hex << rc;
    const size_t expected = std::min<size_t>(5000, full.size() - static_cast<size_t>(target));
    ASSERT_EQ(static_cast<size_t>(written), expected) << target;
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + written, full.begin() + target)) << target;
  }
  // Past the end.
  QWUNION beyond{};
  beyond.i = 176404;
  EXPECT_EQ(decoder->SetCurrentPosition(beyond, AF_ORIGIN_START), AF_E_OUT_OF_RANGE);
  decoder->Release();
}

TEST(PositionTime, TheSeekLeavesTheObjectUnlocked) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  QWUNION position{};
  position.i = 80000;
  ASSERT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_START), AF_S_OK);
  position.i = 400000;
  ASSERT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_START), AF_E_OUT_OF_RANGE);
  EXPECT_TRUE(LockFreeForOtherThreads(decoder));
  decoder->Release();
}

// A decoder whose object lock records where it was taken from, and can be refused.
class LockRecordingDecoder : public Class_KXMP3 {
 public:
  bool refuse = false;
  const char* lastFile = nullptr;
  int lastLine = 0;
  KxResult LockObject(const char* file, int line) override {
    if (refuse) return AF_E_FAIL;
    lastFile = file;
    lastLine = line;
    return Class_KXMP3::LockObject(file, line);
  }
};

// The seek holds the object lock, named with the source location "KXMP3", line
// 2560, releases it on every path (a refused range too), and fails when the lock is
// not obtained.
TEST(PositionTime, TheSeekTakesTheObjectLockAndFailsWithoutIt) {
  auto* decoder = new LockRecordingDecoder();
  ASSERT_EQ(OpenOnMemory(decoder, "m1_44100_joint_cbr.mp3"), AF_S_OK);
  QWUNION position{};
  position.i = 400000;
  EXPECT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_START), AF_E_OUT_OF_RANGE);
  EXPECT_STREQ(decoder->lastFile, "KXMP3");
  EXPECT_EQ(decoder->lastLine, 2560);
  EXPECT_TRUE(LockFreeForOtherThreads(decoder));
  decoder->refuse = true;
  position.i = 0;
  EXPECT_EQ(decoder->SetCurrentPosition(position, AF_ORIGIN_START), AF_E_FAIL);
  decoder->Release();
}

TEST(PositionTime, ReferenceAndTotalTime) {
  Class_KXMP3* decoder = OpenFixture("m1_44100_joint_cbr.mp3");
  ASSERT_NE(decoder, nullptr);
  QWUNION total{};
  ASSERT_EQ(decoder->GetTotalTime(&total), AF_S_OK);
  EXPECT_GE(total.i, 1000000);
  const std::vector<uint8_t> all = ReadAll(decoder, {65536});
  ASSERT_EQ(all.size(), 176400u);
  QWUNION now{};
  ASSERT_EQ(decoder->GetReferenceTime(&now), AF_S_OK);
  EXPECT_GT(now.i, 0);
  QWUNION after{};
  ASSERT_EQ(decoder->GetTotalTime(&after), AF_S_OK);
  EXPECT_GE(after.i, total.i);
  decoder->Release();
}

}  // namespace
