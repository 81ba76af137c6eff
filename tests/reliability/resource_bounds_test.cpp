// Resource bounds: no input makes the module take more memory than a bound
// proportional to the file's size, or work without progress. Every size field a
// file can lie with is tried at its extreme in a small file: the frame count of a
// VBR header (it sizes the frame index), the ID3v2 tag size, the APE item area and
// item count, the RIFF "fmt " and "LIST" chunk sizes; and the loops that walk a
// file are run over inputs built to make them long: thousands of empty RIFF chunks,
// a megabyte without a frame, thousands of the smallest frames.
//
// Memory is measured as the peak of the core allocator's live bytes and of the C++
// heap's (heap_tracker.h) while the call runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "heap_tracker.h"
#include "host/kxcore.h"
#include "engine/frame_header.h"
#include "layout/container.h"
#include "reliability_util.h"
#include "tags/ape_fields.h"
#include "tags/ape_tag.h"
#include "tags/id3v2.h"
#include "tags/mac_io.h"
#include "tags/riff_info.h"

namespace {

using namespace kxrel;

// Bytes of the smallest Layer III frame (MPEG-2, 24 kHz, 8 kbit/s): no stream can
// hold more frames than its length divided by this.
constexpr uint64_t kSmallestFrame = 24;
int64_t Bound(size_t fileBytes) { return MemoryBound(fileBytes); }

void Append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }
void Append(Bytes& to, const char* text) { to.insert(to.end(), text, text + std::strlen(text)); }
void AppendLe32(Bytes& to, uint32_t value) {
  for (int i = 0; i < 4; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

Bytes Fixture(const std::string& name) { return kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + name); }

// Opens, checks the frame index against the audio length, decodes to the end and
// closes; returns the peak use of the open (and its result in *result).
PeakUse OpenWithinBounds(const Bytes& data, const std::u16string& name, KxResult* result = nullptr) {
  Opened o;
  const PeakUse peak = MeasurePeak([&] { o = Open(data, name); });
  EXPECT_TRUE(Named(o.result)) << std::hex << o.result;
  if (o.result == AF_S_OK) {
    const kxmp3::DecoderState& s = o.decoder->State();
    const uint64_t most = (s.audioLength / kSmallestFrame + 1 + kxmp3::kFrameIndexSlack) * sizeof(kxmp3::FrameIndexEntry);
    EXPECT_LE(ZCoreBlockSize(s.engine.frameIndex), most) << "frame index of " << s.engine.frameIndexCapacity << " entries for "
                                                  << s.audioLength << " bytes of audio";
    EXPECT_EQ(ZCoreBlockSize(s.engine.frameIndex), size_t{s.engine.frameIndexCapacity} * sizeof(kxmp3::FrameIndexEntry));
    const Drained d = Drain(o.decoder, 4608, 100000);
    EXPECT_TRUE(d.named);
    EXPECT_LE(ZCoreBlockSize(o.decoder->State().engine.frameIndex), most + 100 * sizeof(kxmp3::FrameIndexEntry));
  }
  if (result != nullptr) *result = o.result;
  Close(o);
  EXPECT_LE(peak.core, Bound(data.size()));
  EXPECT_LE(peak.heap, Bound(data.size()));
  return peak;
}

// The bound on frames per byte: the least entry of the frame-length table, which is
// floor(72000 x 8 / 24000) for MPEG-2 at 24 kHz and 8 kbit/s.
TEST(ResourceBounds, SmallestFrameIsTwentyFourBytes) {
  uint32_t least = ~0u;
  for (const auto& row : kxmp3::kFrameLengthTable) {
    for (int b = 1; b < 15; ++b) least = std::min(least, row[b]);
  }
  EXPECT_EQ(least, kSmallestFrame);
  EXPECT_EQ(72000u * 8 / 24000, kSmallestFrame);
}

TEST(CoreMemoryCounters, FollowAllocationReallocationAndFree) {
  const int64_t live = ZCoreLiveBytes();
  ZCoreResetPeakLiveBytes();
  EXPECT_EQ(ZCorePeakLiveBytes(), live);
  void* a = ZCoreAlloc(ZMEM_PLAIN, 1000);
  EXPECT_EQ(ZCoreLiveBytes(), live + 1000);
  a = ZCoreRealloc(a, 5000);
  EXPECT_EQ(ZCoreLiveBytes(), live + 5000);
  a = ZCoreRealloc(a, 10);
  EXPECT_EQ(ZCoreLiveBytes(), live + 10);
  EXPECT_EQ(ZCorePeakLiveBytes(), live + 5000);
  ZCoreFree(a);
  EXPECT_EQ(ZCoreLiveBytes(), live);
  EXPECT_EQ(ZCorePeakLiveBytes(), live + 5000);
  ZCoreResetPeakLiveBytes();
  EXPECT_EQ(ZCorePeakLiveBytes(), live);
}

TEST(HeapCounters, FollowNewAndDelete) {
  const int64_t live = HeapLiveBytes();
  ResetHeapPeak();
  auto* block = new std::vector<uint8_t>(100000);
  EXPECT_GE(HeapLiveBytes(), live + 100000);
  delete block;
  EXPECT_EQ(HeapLiveBytes(), live);
  EXPECT_GE(HeapPeakBytes(), live + 100000);
}

// A VBR header's frame count sizes the frame index at open. A small file that
// claims billions of frames must not get a frame index to match (before the bound,
// 0xFFFFFFF0 frames wrapped the entry count to 0 and the open wrote past an empty
// block; 0x10000000 frames asked for 5 GB).
TEST(ResourceBounds, FrameIndexFollowsTheAudioNotTheXingFrameCount) {
  const Bytes original = Fixture("m1_48000_stereo_vbr.mp3");
  ASSERT_FALSE(original.empty());
  const int64_t xing = XingOffset(original);
  ASSERT_GT(xing, 0);
  ASSERT_NE(original[xing + 7] & 1, 0) << "the fixture's Xing header has no frame count";
  for (uint32_t frames : {0x10000000u, 0x7FFFFFFFu, 0xFFFFFFEFu, 0xFFFFFFF0u, 0xFFFFFFFFu, 1000000u}) {
    Bytes data = original;
    PutBigEndian32(data, static_cast<size_t>(xing + 8), frames);
    SCOPED_TRACE(frames);
    KxResult rc = AF_E_FAIL;
    OpenWithinBounds(data, u"lying_xing.mp3", &rc);
    EXPECT_EQ(rc, AF_S_OK);
  }
}

TEST(ResourceBounds, FrameIndexFollowsTheAudioNotTheVbriFrameCount) {
  Bytes data = Fixture("m1_44100_noheader_short.mp3");
  ASSERT_FALSE(data.empty());
  const int64_t frame = FirstFrameOffset(data);
  ASSERT_EQ(frame, 0);
  // A "VBRI" block 36 bytes into the first frame; its frame count at offset 14.
  std::memcpy(data.data() + 36, "VBRI", 4);
  for (uint32_t frames : {0xFFFFFFFFu, 0xFFFFFFF0u, 0x20000000u}) {
    PutBigEndian32(data, 36 + 14, frames);
    SCOPED_TRACE(frames);
    kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"lying_vbri.mp3");
    kxmp3::StreamLayout layout{};
    ASSERT_EQ(kxmp3::DetectContainer(stream, 0, &layout, nullptr, nullptr), AF_S_OK);
    EXPECT_EQ(layout.frameCount, frames);
    stream->Release();
    KxResult rc = AF_E_FAIL;
    OpenWithinBounds(data, u"lying_vbri.mp3", &rc);
    EXPECT_EQ(rc, AF_S_OK);
  }
}

TEST(ResourceBounds, Id3v2TagSizeBeyondTheStreamTakesNoLargeBuffer) {
  Bytes data;
  Append(data, "ID3");
  Append(data, Bytes{4, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F});  // 256 MiB - 1
  Append(data, "TIT2");
  Append(data, Bytes{0, 0, 0, 5, 0, 0, 0, 'a', 'b', 'c', 'd'});
  Append(data, Fixture("m2_16000_mono_cbr.mp3"));
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"huge_id3v2.mp3");
  kxmp3::ReplayGainRecord gain{};
  void* record = nullptr;
  const PeakUse peak = MeasurePeak([&] { record = kxmp3::ReadId3v2Tag(stream, &gain); });
  EXPECT_EQ(record, nullptr);
  ZCoreFree(record);
  EXPECT_LE(peak.core, 4096);
  EXPECT_LE(peak.heap, 4096);
  stream->Release();
  OpenWithinBounds(data, u"huge_id3v2.mp3");
}

Bytes ApeFooter(uint32_t version, uint32_t tagBytes, uint32_t items, uint32_t flags) {
  Bytes footer;
  Append(footer, "APETAGEX");
  AppendLe32(footer, version);
  AppendLe32(footer, tagBytes);
  AppendLe32(footer, items);
  AppendLe32(footer, flags);
  footer.resize(footer.size() + 8, 0);
  return footer;
}

TEST(ResourceBounds, ApeItemAreaBeyondTheStreamTakesNoLargeBuffer) {
  Bytes data = Fixture("m2_16000_mono_cbr.mp3");
  Append(data, ApeFooter(2000, 16u * 1024 * 1024 + 32, 10, 0));  // the largest area a footer may claim
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"huge_ape.mp3");
  kxmp3::ReplayGainRecord gain{};
  void* record = nullptr;
  const PeakUse peak = MeasurePeak([&] { record = kxmp3::ReadApeTag(stream, &gain); });
  ZCoreFree(record);
  EXPECT_LE(peak.core, 4096);
  EXPECT_LE(peak.heap, 64 * 1024);
  stream->Release();
  OpenWithinBounds(data, u"huge_ape.mp3");
}

TEST(ResourceBounds, ApeTagKeepsAtMost256FieldsOfAnyItemCount) {
  constexpr uint32_t kItems = 20000;
  Bytes items;
  char key[16];
  for (uint32_t i = 0; i < kItems; ++i) {
    AppendLe32(items, 1);  // value size
    AppendLe32(items, 0);  // flags
    std::snprintf(key, sizeof(key), "K%05u", i);
    items.insert(items.end(), key, key + std::strlen(key) + 1);
    items.push_back('v');
  }
  Bytes data = Fixture("m2_16000_mono_cbr.mp3");
  Append(data, items);
  Append(data, ApeFooter(2000, static_cast<uint32_t>(items.size() + 32), kItems, 0));

  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"many_items.mp3");
  size_t fields = 0;
  const PeakUse peak = MeasurePeak([&] {
    kxmp3::KXMACIO io;
    io.Attach(stream);
    kxmp3::ApeTagFields container;
    kxmp3::AnalyzeApeTag(&io, &container);
    fields = container.FieldCount();
  });
  EXPECT_EQ(fields, kxmp3::ApeTagFields::kMaxFields);
  EXPECT_LE(peak.heap, Bound(data.size()));
  EXPECT_EQ(stream->GetRefCount(), 1u);
  stream->Release();
  OpenWithinBounds(data, u"many_items.mp3");
}

Bytes RiffHeader(const char* form) {
  Bytes data;
  Append(data, "RIFF");
  AppendLe32(data, 0);
  Append(data, form);
  return data;
}

TEST(ResourceBounds, RiffInfoListSizeBeyondTheStreamTakesNoLargeBuffer) {
  Bytes data = RiffHeader("WAVE");
  Append(data, "LIST");
  AppendLe32(data, 0xFFFFFFFFu);
  Append(data, "INFO");
  Append(data, "INAM");
  AppendLe32(data, 4);
  Append(data, "abc");
  data.push_back(0);
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"huge_list.wav");
  void* record = nullptr;
  const PeakUse peak = MeasurePeak([&] { record = kxmp3::ReadRiffInfoList(stream, nullptr); });
  ZCoreFree(record);
  EXPECT_LE(peak.core, static_cast<int64_t>(data.size()) + 4096);
  EXPECT_LE(peak.heap, 4096);
  stream->Release();
}

TEST(ResourceBounds, RiffFormatChunkSizeBeyondTheStreamTakesNoLargeBuffer) {
  Bytes data = RiffHeader("WAVE");
  Append(data, "fmt ");
  AppendLe32(data, 0xFFFFFFF0u);
  AppendLe32(data, 0x00020055);
  data.resize(data.size() + 40, 0);
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"huge_fmt.wav");
  kxmp3::StreamLayout layout{};
  KxResult rc = AF_S_OK;
  const PeakUse peak = MeasurePeak([&] { rc = kxmp3::DetectContainer(stream, 0, &layout, nullptr, nullptr); });
  EXPECT_EQ(rc, AF_E_BAD_FORMAT);
  EXPECT_LE(peak.core, 4096);
  stream->Release();
}

// The chunk walks move 8 bytes per empty chunk: their work grows with the file and
// they end at its end.
TEST(ResourceBounds, RiffChunkWalkOverThousandsOfEmptyChunksEnds) {
  constexpr uint32_t kChunks = 20000;
  const Bytes audio = Fixture("m2_22050_dual_cbr.mp3");
  for (const char* form : {"RMP3", "WAVE"}) {
    Bytes data = RiffHeader(form);
    if (std::strcmp(form, "WAVE") == 0) {
      Append(data, "fmt ");
      AppendLe32(data, 16);
      AppendLe32(data, 0x00020055);
      data.resize(data.size() + 12, 0);
    }
    for (uint32_t i = 0; i < kChunks; ++i) {
      Append(data, "junk");
      AppendLe32(data, 0);
    }
    Append(data, "data");
    AppendLe32(data, static_cast<uint32_t>(audio.size()));
    Append(data, audio);
    SCOPED_TRACE(form);
    kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"many_chunks.bin");
    kxmp3::StreamLayout layout{};
    EXPECT_EQ(kxmp3::DetectContainer(stream, 0, &layout, nullptr, nullptr), AF_S_OK);
    EXPECT_LE(stream->CallCount(), 3u * kChunks + 2000);
    // The RIFF INFO reader walks the same chunks looking for "LIST", and finds none.
    const uint64_t before = stream->CallCount();
    EXPECT_EQ(kxmp3::ReadRiffInfoList(stream, nullptr), nullptr);
    EXPECT_LE(stream->CallCount() - before, 3u * kChunks + 2000);
    stream->Release();
    OpenWithinBounds(data, u"many_chunks.bin");
  }
}

// The frame search looks at 8,192 positions, not at the whole file.
TEST(ResourceBounds, FrameSearchOverAMegabyteWithoutFramesStopsAfter8192Positions) {
  std::mt19937 rng(7);
  Bytes data(1u << 20);
  for (auto& b : data) b = static_cast<uint8_t>(rng());
  // No byte pair anywhere starts a Layer III header.
  for (size_t i = 0; i + 1 < data.size(); ++i) {
    if (data[i] == 0xFF) data[i] = 0xFE;
  }
  kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, u"garbage.mp3");
  kxmp3::StreamLayout layout{};
  EXPECT_EQ(kxmp3::DetectContainer(stream, 0, &layout, nullptr, nullptr), AF_E_NO_SYNC);
  EXPECT_LE(stream->CallCount(), 8192u + 64);
  stream->Release();
  OpenWithinBounds(data, u"garbage.mp3");
  OpenWithinBounds(data, u"garbage.bin");
}

// Thousands of the smallest frames: the open counts 512 of them and estimates the
// rest; decoding reads each once; stream calls and output grow with their number.
TEST(ResourceBounds, SmallestFramesDecodeWithWorkProportionalToTheirNumber) {
  constexpr uint32_t kFrames = 6000;
  Bytes frame(kSmallestFrame, 0);
  frame[0] = 0xFF;
  frame[1] = 0xF3;  // MPEG-2, Layer III, no check word
  frame[2] = 0x14;  // 8 kbit/s, 24 kHz, no padding
  frame[3] = 0xC4;  // single channel, original
  Bytes data;
  for (uint32_t i = 0; i < kFrames; ++i) Append(data, frame);

  Opened o = Open(data, u"smallest_frames.mp3");
  ASSERT_EQ(o.result, AF_S_OK);
  const uint64_t opened = o.stream->CallCount();
  const Drained d = Drain(o.decoder, 65536, 100000);
  EXPECT_EQ(d.last, AF_S_END_OF_DATA);
  EXPECT_TRUE(d.named);
  EXPECT_LE(d.pcm.size(), size_t{kFrames} * 576 * 2);
  EXPECT_GE(d.pcm.size(), size_t{kFrames - 2} * 576 * 2);
  EXPECT_LE(o.stream->CallCount() - opened, 8u * kFrames);
  EXPECT_LE(o.decoder->State().engine.frameIndexCapacity, kFrames + 200);
  Close(o);
  OpenWithinBounds(data, u"smallest_frames.mp3");
}

// Every fixture, opened and decoded: memory within the bound of its size.
TEST(ResourceBounds, EveryFixtureOpensWithinTheBoundOfItsSize) {
  std::vector<std::string> paths = AudioFixtures();
  const std::vector<std::string> tags = TagFixtures();
  paths.insert(paths.end(), tags.begin(), tags.end());
  ASSERT_GT(paths.size(), 20u);
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    const Bytes data = kxtest::ReadFile(path);
    KxResult rc = AF_E_FAIL;
    const PeakUse peak = OpenWithinBounds(data, WideName(path), &rc);
    // The measure is real: a successful open always takes the decoder's fixed blocks.
    if (rc == AF_S_OK) {
      EXPECT_GT(peak.core, 25616 + 4096);
    }
  }
}

}  // namespace
