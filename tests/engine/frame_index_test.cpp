// The frame scan (index building without decoding): its index entries against a
// model of the frame driver's reservoir bookkeeping written out from its rules,
// for MPEG-1 stereo with check words, junk and a header frame, and MPEG-2 mono.
#include <gtest/gtest.h>

#include "engine/engine_state.h"
#include "engine/frame_index.h"
#include "host/kxcore.h"
#include "support/layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

// An engine state with a frame index from the core allocator, over a memory stream.
struct ScanHarness {
  EngineState e{};
  StreamPtr stream;
  explicit ScanHarness(Bytes data, uint32_t capacity = 16) {
    stream = MakeStream(std::move(data));
    e.frameIndexCapacity = capacity;
    e.frameIndex = static_cast<FrameIndexEntry*>(ZCoreAlloc(ZMEM_ZEROED, capacity * sizeof(FrameIndexEntry)));
  }
  ~ScanHarness() { ZCoreFree(e.frameIndex); }
};


// MPEG-1 stereo frame with main_data_begin and the four part2_3_length values set.
Bytes SideInfoFrame(uint32_t header, uint32_t mainDataBegin, const uint32_t part23[4]) {
  Bytes f = Frame(header);
  size_t side = 4 + (((header >> 16) & 1) ? 0 : 2);
  auto put = [&](uint32_t bit, uint32_t n, uint32_t v) {
    for (uint32_t i = 0; i < n; ++i) {
      uint32_t b = bit + i;
      if ((v >> (n - 1 - i)) & 1) f[side + b / 8] |= static_cast<uint8_t>(0x80 >> (b % 8));
    }
  };
  bool mpeg1 = ((header >> 19) & 3) == kMpeg1;
  bool mono = ((header >> 6) & 3) == kMono;
  put(0, mpeg1 ? 9 : 8, mainDataBegin);
  uint32_t first = mpeg1 ? 9 + (mono ? 5 : 3) + (mono ? 4 : 8) : 8 + (mono ? 1 : 2);
  uint32_t blocks = (mpeg1 ? 2 : 1) * (mono ? 1 : 2);
  for (uint32_t g = 0; g < blocks; ++g) put(first + (mpeg1 ? 59 : 63) * g, 12, part23[g]);
  return f;
}

// The decoder's reservoir bookkeeping for one frame, written out from its rules.
struct Model {
  uint32_t bitPos = 0, write = 0, fill = 0, frames = 0;
  FrameIndexEntry Step(uint32_t mainDataLength, uint32_t mdb, uint32_t part23Sum, bool headerFrame) {
    write = (write + mainDataLength) % 4096;
    bitPos = (bitPos + 7) / 8 * 8;
    int64_t b = bitPos / 8;
    int64_t skip = int64_t(fill) - mdb - b;
    if (b > 4096) {
      fill -= 4096;
      bitPos -= 32768;
    }
    fill += mainDataLength;
    if (headerFrame) bitPos = uint32_t(int64_t(bitPos) + skip * 8);
    else if (skip >= 0) bitPos = uint32_t(int64_t(bitPos) + skip * 8 + part23Sum);
    ++frames;
    return FrameIndexEntry{0, bitPos, write, fill};
  }
};

TEST(FrameScan, EntriesFollowTheDecodersBookkeeping) {
  const uint32_t h = MakeHeader({});
  HeaderFields crcFields;
  crcFields.crc = true;
  crcFields.padding = true;
  const uint32_t hc = MakeHeader(crcFields);
  Bytes data;
  std::vector<uint64_t> offsets;
  std::vector<uint32_t> mdbs, sums, lengths;
  uint32_t seed = 12345;
  auto rnd = [&](uint32_t n) {
    seed = seed * 1103515245 + 12345;
    return (seed >> 8) % n;
  };
  for (int i = 0; i < 300; ++i) {
    uint32_t header = (i % 3 == 2) ? hc : h;
    uint32_t mdb = i == 0 ? 0 : rnd(512);
    uint32_t p23[4] = {rnd(1200), rnd(1200), rnd(1200), rnd(1200)};
    if (i == 7) data.insert(data.end(), 13, 0);  // junk the scan slides over
    offsets.push_back(data.size());
    Bytes f = SideInfoFrame(header, mdb, p23);
    data.insert(data.end(), f.begin(), f.end());
    mdbs.push_back(mdb);
    sums.push_back(p23[0] + p23[1] + p23[2] + p23[3]);
    lengths.push_back(FrameBytes(header) - 4 - 32 - (header == hc ? 2 : 0));
  }
  ScanHarness hs(data, 16);  // the index grows as the scan goes
  hs.e.skipFirstFrame = 1;   // frame 0 counts as a header frame
  Model m;
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(ScanFrame(hs.e, hs.stream.get()), AF_S_OK) << i;
    FrameIndexEntry want = m.Step(lengths[i], mdbs[i], sums[i], i == 0);
    const FrameIndexEntry& got = hs.e.frameIndex[i];
    EXPECT_EQ(uint64_t(got.offset), offsets[i]) << i;
    EXPECT_EQ(got.reservoirBitPos, want.reservoirBitPos) << i;
    EXPECT_EQ(got.reservoirWrite, want.reservoirWrite) << i;
    EXPECT_EQ(got.reservoirFill, want.reservoirFill) << i;
  }
  EXPECT_EQ(hs.e.frameCounter, 300u);
  EXPECT_GE(hs.e.frameIndexCapacity, 300u);
  EXPECT_EQ(hs.e.frameIndexCapacity % 100, 16u);
  EXPECT_EQ(hs.e.reservoirWriteIndex, m.write);
  EXPECT_EQ(hs.e.reservoirBitPos, m.bitPos);
  EXPECT_EQ(hs.e.reservoirByteCount, m.fill);
  EXPECT_EQ(hs.e.referenceHeader, hc);
  EXPECT_EQ(ScanFrame(hs.e, hs.stream.get()), AF_S_END_OF_DATA);
}

TEST(FrameScan, MpegTwoMonoSideInformation) {
  HeaderFields fields;
  fields.version = kMpeg2;
  fields.mode = kMono;
  fields.bitrateIndex = 14;  // 160 kbit/s: 522-byte frames
  const uint32_t h = MakeHeader(fields);
  const uint32_t p23[4] = {700, 0, 0, 0};
  Bytes data = Concat({SideInfoFrame(h, 0, p23), SideInfoFrame(h, 200, p23)});
  ScanHarness hs(data);
  ASSERT_EQ(ScanFrame(hs.e, hs.stream.get()), AF_S_OK);
  ASSERT_EQ(ScanFrame(hs.e, hs.stream.get()), AF_S_OK);
  const uint32_t L = FrameBytes(h) - 4 - 9;
  // Frame 0: skip 0, 700 bits read. Frame 1: skip = L - 200 - 88 (700 bits round up to 88 bytes).
  EXPECT_EQ(hs.e.frameIndex[0].reservoirBitPos, 700u);
  EXPECT_EQ(hs.e.frameIndex[1].reservoirBitPos, (L - 200) * 8 + 700);
  EXPECT_EQ(hs.e.frameIndex[1].reservoirFill, 2 * L);
  EXPECT_EQ(uint64_t(hs.e.frameIndex[1].offset), FrameBytes(h));
}

}  // namespace
}  // namespace kxmp3
