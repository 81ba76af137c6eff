// Seeking without the engine: position and time arithmetic on a hand-set decoder
// state, the range checks and the quick relative case of SetPosition, the lock,
// the frame scan's index entries against a model of the decoder's reservoir
// bookkeeping, and the seek's choice of restart frame and pre-roll driven by a
// stand-in decode step that reads frames and tags its output with the frame number.
#include <gtest/gtest.h>

#include <thread>

#include "host/kxcore.h"
#include "layout/seeking.h"
#include "layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

// A decoder state with buffers from the core allocator, over a memory stream.
struct Harness {
  DecoderState s{};
  StreamPtr stream;

  explicit Harness(Bytes data, uint32_t channels = 2, uint32_t frameBytes = 4608, uint32_t capacity = 16) {
    stream = MakeStream(std::move(data));
    s.stream = stream.get();
    s.info.generic.channels = channels;
    s.info.generic.sampleRate = 44100;
    s.info.generic.bitsPerSample = 16;
    s.bytesPerSample = 2;
    s.pcmBufferSize = frameBytes;
    s.pcmReadPos = frameBytes;
    s.pcmBuffer = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, frameBytes));
    s.workBlockRaw = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kWorkBlockRawBytes));
    s.workBlock = s.workBlockRaw;
    s.workBlockHigh = s.workBlockRaw + kSynthesisAreaBytes;
    s.reservoir = static_cast<uint8_t*>(ZCoreAlloc(ZMEM_ZEROED, kReservoirBytes));
    s.frameIndexCapacity = capacity;
    s.frameIndex = static_cast<FrameIndexEntry*>(ZCoreAlloc(ZMEM_ZEROED, capacity * sizeof(FrameIndexEntry)));
  }
  ~Harness() {
    ZCoreFree(s.pcmBuffer);
    ZCoreFree(s.workBlockRaw);
    ZCoreFree(s.reservoir);
    ZCoreFree(s.frameIndex);
  }
};

TEST(Position, CurrentPositionFormula) {
  Harness h({});
  h.s.frameCounter = 10;
  h.s.pcmReadPos = 1000;      // 3608 bytes unread
  h.s.lameDelay = 1105 + 1152;  // samples
  h.s.info.generic.totalPcmBytes = 400000;
  QWUNION p{};
  const uint64_t expect = 10ull * 4608 - (1105 + 1152) * 4 - 3608;
  ASSERT_EQ(GetPosition(h.s, AF_ORIGIN_START, &p), AF_S_OK);
  EXPECT_EQ(p.u, expect);
  ASSERT_EQ(GetPosition(h.s, 7, &p), AF_S_OK);  // any other origin: from the start
  EXPECT_EQ(p.u, expect);
  ASSERT_EQ(GetPosition(h.s, AF_ORIGIN_END, &p), AF_S_OK);
  EXPECT_EQ(p.u, 400000 - expect);
  p.i = 55;
  ASSERT_EQ(GetPosition(h.s, AF_ORIGIN_CURRENT, &p), AF_S_OK);
  EXPECT_EQ(p.i, 0);
  // 64-bit float output: bytes per sample 8.
  h.s.bytesPerSample = 8;
  h.s.pcmBufferSize = 4 * 4608;
  h.s.pcmReadPos = h.s.pcmBufferSize;
  ASSERT_EQ(GetPosition(h.s, AF_ORIGIN_START, &p), AF_S_OK);
  EXPECT_EQ(p.u, 10ull * 4 * 4608 - (1105 + 1152) * 16);
}

TEST(Time, ReferenceAndTotalTime) {
  Harness h({});
  h.s.info.generic.totalPcmBytes = 44100 * 4 * 3;  // 3 s
  QWUNION t{};
  // Total: the announced length while less has been decoded...
  h.s.frameCounter = 5;
  ASSERT_EQ(GetTotalTimeOf(h.s, &t), AF_S_OK);
  EXPECT_EQ(t.i, 3000000);
  // ...and never less than what was decoded already.
  h.s.frameCounter = 200;  // 200 x 4608 bytes = 5.224 s
  ASSERT_EQ(GetTotalTimeOf(h.s, &t), AF_S_OK);
  EXPECT_EQ(t.i, 200ll * 4608 * 1000000 / (44100 * 4));
  EXPECT_GT(t.i, 3000000);
  // Reference time: (frames - 1) x fb + read position.
  h.s.frameCounter = 3;
  h.s.pcmReadPos = 1764;
  ASSERT_EQ(GetReferenceTimeOf(h.s, &t), AF_S_OK);
  EXPECT_EQ(t.i, (2ll * 4608 + 1764) * 1000000 / (44100 * 4));
  // Float output counts 8-byte samples.
  h.s.info.generic.bitsPerSample = 64;
  h.s.bytesPerSample = 8;
  ASSERT_EQ(GetReferenceTimeOf(h.s, &t), AF_S_OK);
  EXPECT_EQ(t.i, (2ll * 4608 + 1764) * 1000000 / (44100 * 16));
}

TEST(Time, SampleConversions) {
  Harness h({});
  h.s.info.generic.sampleRate = 44100;
  EXPECT_EQ(ReferenceTimeToSampleCount(h.s, 1000000), 44100);
  EXPECT_EQ(ReferenceTimeToSampleCount(h.s, 500), 22);  // 22.05 truncated
  EXPECT_EQ(SampleCountToReferenceTime(h.s, 44100), 1000000);
  EXPECT_EQ(SampleCountToReferenceTime(h.s, 1), 22);  // 22.67 truncated
  // Large values do not overflow: 10 hours of samples.
  EXPECT_EQ(SampleCountToReferenceTime(h.s, 44100ll * 36000), 36000ll * 1000000);
  h.s.info.generic.sampleRate = 8000;
  EXPECT_EQ(ReferenceTimeToSampleCount(h.s, 36000ll * 1000000), 8000ll * 36000);
}

// A lock object whose lock can be refused.
class Lockable : public Class_ZCOM {
 public:
  bool refuse = false;
  KxResult LockObject(const char* file, int line) override {
    if (refuse) return AF_E_FAIL;
    lastFile = file;
    lastLine = line;
    return Class_ZCOM::LockObject(file, line);
  }
  const char* lastFile = nullptr;
  int lastLine = 0;
};

struct LockHolder {
  Lockable* object = new Lockable();
  ~LockHolder() { object->Release(); }
};

bool LockFreeForOtherThreads(Lockable* object) {
  KxResult r = AF_E_FAIL;
  std::thread t([&] {
    r = object->TryLockObject("test", 1);
    if (r == AF_S_OK) object->UnLockObject();
  });
  t.join();
  return r == AF_S_OK;
}

KxResult NeverCalled(DecoderState&, int, void*, int32_t*) {
  ADD_FAILURE() << "no decoding expected";
  return AF_E_FAIL;
}

TEST(SetPosition, RangeChecksAndLock) {
  Harness h({});
  LockHolder lock;
  h.s.info.generic.totalPcmBytes = 100000;
  h.s.frameCounter = 4;
  h.s.pcmReadPos = 4608;
  QWUNION p{};
  p.u = 100004;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_START, NeverCalled), AF_E_OUT_OF_RANGE);
  EXPECT_STREQ(lock.object->lastFile, "KXMP3");
  EXPECT_EQ(lock.object->lastLine, 2560);
  EXPECT_TRUE(LockFreeForOtherThreads(lock.object));
  p.i = -4;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_START, NeverCalled), AF_E_OUT_OF_RANGE);
  // From the end: refused when -position exceeds the total, or when the target
  // would fall before the stream's first byte (no delay here).
  p.i = -100004;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_END, NeverCalled), AF_E_OUT_OF_RANGE);
  p.i = INT64_MIN;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_END, NeverCalled), AF_E_OUT_OF_RANGE);
  p.u = 100004;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_END, NeverCalled), AF_E_OUT_OF_RANGE);
  // Relative: current = 4 x 4608 (the buffer is empty); past the end, or before the start.
  p.u = 100000 - 4 * 4608 + 4;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_CURRENT, NeverCalled), AF_E_OUT_OF_RANGE);
  p.i = -(4 * 4608 + 4);
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_CURRENT, NeverCalled), AF_E_OUT_OF_RANGE);
  EXPECT_TRUE(LockFreeForOtherThreads(lock.object));
  // Lock refused.
  lock.object->refuse = true;
  p.u = 0;
  EXPECT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_START, NeverCalled), AF_E_FAIL);
}

TEST(SetPosition, QuickRelativeCaseKeepsExactlyPositionBytesUnread) {
  Harness h({});
  LockHolder lock;
  h.s.info.generic.totalPcmBytes = 1000000;
  h.s.frameCounter = 6;
  h.s.pcmReadPos = 1000;  // 3608 unread
  QWUNION p{};
  p.u = 2000;
  ASSERT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_CURRENT, NeverCalled), AF_S_OK);
  EXPECT_EQ(h.s.pcmReadPos, 4608u - 2000);
  // Equal to what is unread (2000 now): nothing changes.
  p.u = 2000;
  ASSERT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_CURRENT, NeverCalled), AF_S_OK);
  EXPECT_EQ(h.s.pcmReadPos, 2608u);
  // Rounded down to whole sample frames (4 bytes): 2003 -> 2000.
  p.u = 2003;
  ASSERT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_CURRENT, NeverCalled), AF_S_OK);
  EXPECT_EQ(h.s.pcmReadPos, 2608u);
  // 0 drops the buffered bytes.
  p.u = 3;
  ASSERT_EQ(SetPosition(h.s, lock.object, p, AF_ORIGIN_CURRENT, NeverCalled), AF_S_OK);
  EXPECT_EQ(h.s.pcmReadPos, 4608u);
  EXPECT_EQ(h.s.frameCounter, 6u);
  EXPECT_TRUE(LockFreeForOtherThreads(lock.object));
}

// --- Frame scan ---

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
  Harness hs(data, 2, 4608, 16);  // the index grows as the scan goes
  hs.s.info.vbrHeaderFrame = 1;   // frame 0 counts as a header frame
  Model m;
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(ScanFrame(hs.s), AF_S_OK) << i;
    FrameIndexEntry want = m.Step(lengths[i], mdbs[i], sums[i], i == 0);
    const FrameIndexEntry& got = hs.s.frameIndex[i];
    EXPECT_EQ(uint64_t(got.offset), offsets[i]) << i;
    EXPECT_EQ(got.reservoirBitPos, want.reservoirBitPos) << i;
    EXPECT_EQ(got.reservoirWrite, want.reservoirWrite) << i;
    EXPECT_EQ(got.reservoirFill, want.reservoirFill) << i;
  }
  EXPECT_EQ(hs.s.frameCounter, 300u);
  EXPECT_GE(hs.s.frameIndexCapacity, 300u);
  EXPECT_EQ(hs.s.frameIndexCapacity % 100, 16u);
  EXPECT_EQ(hs.s.reservoirWriteIndex, m.write);
  EXPECT_EQ(hs.s.reservoirBitPos, m.bitPos);
  EXPECT_EQ(hs.s.reservoirByteCount, m.fill);
  EXPECT_EQ(hs.s.referenceHeader, hc);
  EXPECT_EQ(ScanFrame(hs.s), AF_S_END_OF_DATA);
}

TEST(FrameScan, MpegTwoMonoSideInformation) {
  HeaderFields fields;
  fields.version = kMpeg2;
  fields.mode = kMono;
  fields.bitrateIndex = 14;  // 160 kbit/s: 522-byte frames
  const uint32_t h = MakeHeader(fields);
  const uint32_t p23[4] = {700, 0, 0, 0};
  Bytes data = Concat({SideInfoFrame(h, 0, p23), SideInfoFrame(h, 200, p23)});
  Harness hs(data, 1, 1152);
  ASSERT_EQ(ScanFrame(hs.s), AF_S_OK);
  ASSERT_EQ(ScanFrame(hs.s), AF_S_OK);
  const uint32_t L = FrameBytes(h) - 4 - 9;
  // Frame 0: skip 0, 700 bits read. Frame 1: skip = L - 200 - 88 (700 bits round up to 88 bytes).
  EXPECT_EQ(hs.s.frameIndex[0].reservoirBitPos, 700u);
  EXPECT_EQ(hs.s.frameIndex[1].reservoirBitPos, (L - 200) * 8 + 700);
  EXPECT_EQ(hs.s.frameIndex[1].reservoirFill, 2 * L);
  EXPECT_EQ(uint64_t(hs.s.frameIndex[1].offset), FrameBytes(h));
}

// --- Seek control flow with a stand-in decoder ---

// Reads the frame at the stream's position (frames of kH here), records its index
// offset as the engine does and fills the frame buffer with its frame number.
int g_decodeCalls = 0;
KxResult FakeDecode(DecoderState& s, int intoCaller, void*, int32_t*) {
  EXPECT_EQ(intoCaller, 0);
  ++g_decodeCalls;
  int64_t pos = 0;
  uint8_t head[4];
  uint32_t got = 0;
  if (s.stream->GetPosition(&pos) != AF_S_OK || s.stream->Read(head, 4, &got) != AF_S_OK || got != 4)
    return AF_S_END_OF_DATA;
  uint32_t h = (uint32_t(head[0]) << 24) | (head[1] << 16) | (head[2] << 8) | head[3];
  if ((h >> 21) != 0x7FF) return AF_E_BAD_FORMAT;
  if (s.stream->Seek(FrameBytes(h) - 4, ZS_SEEK_CUR) != AF_S_OK) return AF_S_END_OF_DATA;
  if (s.frameCounter >= s.frameIndexCapacity) return AF_E_FAIL;
  s.frameIndex[s.frameCounter].offset = static_cast<uint64_t>(pos);
  std::memset(s.pcmBuffer, static_cast<int>(s.frameCounter & 0xFF), s.pcmBufferSize);
  s.pcmReadPos = 0;
  ++s.frameCounter;
  return s.frameCounter % 5 == 0 ? AF_S_FRAME_ERROR : (s.frameCounter % 7 == 0 ? AF_E_UNDERFLOW : AF_S_OK);
}

struct SeekFixture {
  Harness h;
  uint32_t kH = MakeHeader({});
  explicit SeekFixture(uint32_t frames) : h(MakeFramesData(frames), 2, 4608, frames + 16) {}
  static Bytes MakeFramesData(uint32_t frames) {
    Bytes d;
    AppendFrames(d, MakeHeader({}), frames);
    return d;
  }
  int64_t StreamPos() {
    int64_t p = 0;
    h.stream->GetPosition(&p);
    return p;
  }
};

TEST(SeekToFrame, EarlyFramesRestartFromTheFirstFrame) {
  for (uint32_t f : {0u, 1u, 17u, 32u}) {
    SeekFixture fx(100);
    for (int i = 0; i < 50; ++i) ASSERT_NE(FakeDecode(fx.h.s, 0, nullptr, nullptr), AF_S_END_OF_DATA);
    fx.h.s.endOfData = 1;
    fx.h.s.muteCounter = 2;
    std::memset(fx.h.s.workBlockRaw, 0x7F, kWorkBlockRawBytes);
    fx.h.s.deemphasisState.primed = 1;
    g_decodeCalls = 0;
    ASSERT_EQ(SeekToFrame(fx.h.s, f, 0, FakeDecode), AF_S_OK);
    EXPECT_EQ(g_decodeCalls, static_cast<int>(f)) << f;  // decoded again from frame 0
    EXPECT_EQ(fx.h.s.frameCounter, f);
    EXPECT_EQ(fx.h.s.pcmReadPos, 4608u);
    EXPECT_EQ(fx.StreamPos(), static_cast<int64_t>(f) * 417);
    EXPECT_EQ(fx.h.s.endOfData, 0u);
    EXPECT_EQ(fx.h.s.muteCounter, 0u);
    EXPECT_EQ(fx.h.s.deemphasisState.primed, 0u);
    for (uint32_t i = 0; i < kSynthesisAreaBytes + kOverlapAreaBytes; ++i) ASSERT_EQ(fx.h.s.workBlock[i], 0) << i;
  }
}

TEST(SeekToFrame, OffsetDecodesTheTargetFrameAndSkipsIntoIt) {
  SeekFixture fx(100);
  g_decodeCalls = 0;
  ASSERT_EQ(SeekToFrame(fx.h.s, 20, 1000, FakeDecode), AF_S_OK);
  EXPECT_EQ(g_decodeCalls, 21);
  EXPECT_EQ(fx.h.s.frameCounter, 21u);
  EXPECT_EQ(fx.h.s.pcmReadPos, 1000u);
  EXPECT_EQ(fx.h.s.pcmBuffer[1000], 20);  // the buffer holds frame 20
}

TEST(SeekToFrame, IndexedFrameRestartsThirtyTwoFramesEarlier) {
  SeekFixture fx(200);
  for (int i = 0; i < 150; ++i) ASSERT_NE(FakeDecode(fx.h.s, 0, nullptr, nullptr), AF_S_END_OF_DATA);
  // Index entry 68 as the engine left it.
  fx.h.s.frameIndex[68].reservoirBitPos = 12345;
  fx.h.s.frameIndex[68].reservoirWrite = 321;
  fx.h.s.frameIndex[68].reservoirFill = 999;
  for (int i = 0; i < 512; ++i) fx.h.s.reservoir[(fx.h.s.reservoirBitPos / 8 + i) % 4096] = static_cast<uint8_t>(i);
  g_decodeCalls = 0;
  // A stand-in that only records the state the pre-roll starts from.
  static DecoderState seen;
  auto firstCall = [](DecoderState& s, int, void*, int32_t*) -> KxResult {
    if (g_decodeCalls == 0) seen = s;
    return FakeDecode(s, 0, nullptr, nullptr);
  };
  ASSERT_EQ(SeekToFrame(fx.h.s, 100, 0, firstCall), AF_S_OK);
  EXPECT_EQ(g_decodeCalls, 32);
  EXPECT_EQ(seen.frameCounter, 68u);
  EXPECT_EQ(seen.reservoirBitPos, 12345u);
  EXPECT_EQ(seen.reservoirWriteIndex, 321u);
  EXPECT_EQ(seen.reservoirByteCount, 999u);
  // The 512 reservoir bytes moved to the restored read position.
  for (int i = 0; i < 512; ++i) ASSERT_EQ(fx.h.s.reservoir[(12345 / 8 + i) % 4096], static_cast<uint8_t>(i)) << i;
  EXPECT_EQ(fx.h.s.frameCounter, 100u);
  EXPECT_EQ(fx.StreamPos(), 100 * 417);
}

TEST(SeekToFrame, UnindexedFramesAheadAreScannedFirst) {
  SeekFixture fx(300);
  for (int i = 0; i < 10; ++i) ASSERT_NE(FakeDecode(fx.h.s, 0, nullptr, nullptr), AF_S_END_OF_DATA);
  g_decodeCalls = 0;
  ASSERT_EQ(SeekToFrame(fx.h.s, 250, 4, FakeDecode), AF_S_OK);
  EXPECT_EQ(g_decodeCalls, 33);  // 32 frames of pre-roll and the target frame
  EXPECT_EQ(fx.h.s.frameCounter, 251u);
  EXPECT_EQ(fx.h.s.pcmReadPos, 4u);
  EXPECT_EQ(fx.h.s.pcmBuffer[4], 250);
  // The scan indexed every frame it passed.
  for (uint32_t i = 10; i < 250; ++i) ASSERT_EQ(uint64_t(fx.h.s.frameIndex[i].offset), i * 417ull) << i;
}

TEST(SeekToFrame, BackwardToAnUnindexedFrameFails) {
  SeekFixture fx(200);
  for (int i = 0; i < 120; ++i) ASSERT_NE(FakeDecode(fx.h.s, 0, nullptr, nullptr), AF_S_END_OF_DATA);
  fx.h.s.frameIndex[60].offset = 0;  // forgotten
  EXPECT_EQ(SeekToFrame(fx.h.s, 92, 0, FakeDecode), AF_E_FAIL);
  // Past the last frame: the decode step's end of data comes through.
  SeekFixture end(50);
  EXPECT_EQ(SeekToFrame(end.h.s, 40, 0, FakeDecode), AF_S_OK);
  EXPECT_EQ(SeekToFrame(end.h.s, 49, 8, FakeDecode), AF_S_OK);
  EXPECT_EQ(SeekToFrame(end.h.s, 50, 8, FakeDecode), AF_S_END_OF_DATA);
  EXPECT_EQ(SeekToFrame(end.h.s, 60, 0, FakeDecode), AF_S_END_OF_DATA);
}

TEST(SetPosition, TargetsFrameAndOffsetForEachOrigin) {
  SeekFixture fx(400);
  LockHolder lock;
  DecoderState& s = fx.h.s;
  s.lameDelay = 1105 + 1152;
  const uint64_t delay = (1105 + 1152) * 4;
  s.info.generic.totalPcmBytes = 380ull * 4608 - delay;
  QWUNION p{};
  // From the start.
  p.u = 50 * 4608 + 103;  // rounded down to 100 bytes past frame 50's start
  ASSERT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_START, FakeDecode), AF_S_OK);
  uint64_t target = 50 * 4608 + 100 + delay;
  EXPECT_EQ(s.frameCounter, target / 4608 + 1);
  EXPECT_EQ(s.pcmReadPos, target % 4608);
  QWUNION now{};
  GetPosition(s, AF_ORIGIN_START, &now);
  EXPECT_EQ(now.u, 50u * 4608 + 100);
  // From the end.
  p.u = 4608 * 10;
  ASSERT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_S_OK);
  GetPosition(s, AF_ORIGIN_END, &now);
  EXPECT_EQ(now.u, 4608u * 10);
  // Relative, past the buffered bytes: cur + position + delay.
  GetPosition(s, AF_ORIGIN_START, &now);
  uint64_t before = now.u;
  p.u = 20000;
  ASSERT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_CURRENT, FakeDecode), AF_S_OK);
  GetPosition(s, AF_ORIGIN_START, &now);
  EXPECT_EQ(now.u, before + 20000 + delay);
  EXPECT_TRUE(LockFreeForOtherThreads(lock.object));
}

// From the end, only -position > total is refused: a position larger than the
// total (up to the start skip) lands inside the start skip, and a negative one
// lies past the end; beyond the last frame the decoder stands at the end of data.
TEST(SetPosition, FromTheEndRefusesOnlyANegativePositionBeyondTheTotal) {
  SeekFixture fx(400);
  LockHolder lock;
  DecoderState& s = fx.h.s;
  s.lameDelay = 1105 + 1152;
  const uint64_t delay = (1105 + 1152) * 4;
  const uint64_t total = 380ull * 4608 - delay;
  s.info.generic.totalPcmBytes = total;
  QWUNION p{};
  // Thirty frames past the end of the announced length: beyond the stream's 400
  // frames. The scan for the target meets the end: the seek reports the end of
  // the data, and the decoder stands there with nothing buffered.
  p.i = -30 * 4608;
  EXPECT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_S_END_OF_DATA);
  EXPECT_EQ(s.endOfData, 1u);
  EXPECT_EQ(s.pcmReadPos, s.pcmBufferSize);
  EXPECT_EQ(s.frameCounter, 400u);
  // 100 bytes before the first real sample: inside the start skip.
  p.u = total + 100;
  ASSERT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_S_OK);
  EXPECT_EQ(s.frameCounter, (delay - 100) / 4608 + 1);
  EXPECT_EQ(s.pcmReadPos, (delay - 100) % 4608);
  // Five frames past the end of the announced length: the stream has them.
  p.i = -5 * 4608;
  ASSERT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_S_OK);
  EXPECT_EQ(s.frameCounter, (total + 5 * 4608 + delay) / 4608);
  EXPECT_EQ(s.pcmReadPos, 4608u);
  // The largest negative position taken: the whole total past the end.
  p.i = -static_cast<int64_t>(total);
  EXPECT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_S_END_OF_DATA);
  p.i = -static_cast<int64_t>(total) - 4;
  EXPECT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_E_OUT_OF_RANGE);
  // Past the start skip: before the stream's first byte.
  p.u = total + delay + 4;
  EXPECT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_E_OUT_OF_RANGE);
  p.u = total;
  ASSERT_EQ(SetPosition(s, lock.object, p, AF_ORIGIN_END, FakeDecode), AF_S_OK);
  QWUNION now{};
  GetPosition(s, AF_ORIGIN_START, &now);
  EXPECT_EQ(now.u, 0u);
  EXPECT_TRUE(LockFreeForOtherThreads(lock.object));
}

}  // namespace
}  // namespace kxmp3
