// The fault-injection matrix: the open sequence, decoding, seeking, container
// detection and every tag reader run on a host stream whose read, seek, position
// and size calls fail at a chosen call number (that call alone, or that call and
// every later one), or whose reads come back short. For every call number of a
// clean run, both ways, and for a set of short-read sizes: the result is a named
// code, nothing crashes or leaks (core blocks counted here; the sanitizer build
// checks the rest), and the caller's stream reference is released exactly once (the
// test keeps a reference of its own and checks that only it is left after the
// decoder's last release).
#include <gtest/gtest.h>

#include <string>

#include "harness/checks.h"
#include "host/kxcore.h"
#include "layout/container.h"
#include "reliability_util.h"
#include "tags/ape_tag.h"
#include "tags/id3v1.h"
#include "tags/id3v2.h"
#include "tags/riff_info.h"

namespace {

using namespace kxrel;

enum class Fault { kOneCall, kFromCall, kShortReads };

std::string Describe(Fault fault, uint64_t n) {
  switch (fault) {
    case Fault::kOneCall: return "call " + std::to_string(n) + " fails";
    case Fault::kFromCall: return "calls from " + std::to_string(n) + " on fail";
    case Fault::kShortReads: return "reads of at most " + std::to_string(n) + " bytes";
  }
  return {};
}

void Inject(kxtest::MemoryStream* stream, Fault fault, uint64_t n) {
  switch (fault) {
    case Fault::kOneCall: stream->FailCall(n); break;
    case Fault::kFromCall: stream->FailFromCall(n); break;
    case Fault::kShortReads: stream->LimitReads(static_cast<uint32_t>(n)); break;
  }
}

// Short-read sizes: single bytes, a header's worth, odd counts, a tag's size.
const uint64_t kShortReads[] = {1, 2, 3, 4, 5, 8, 9, 31, 100, 127, 128, 1000};

// Every fault of a matrix over the call numbers of a clean run: both failure kinds
// at every number up to one past the clean run's last call (then nothing fails),
// and the short-read sizes. A long matrix is cut into `shards` tests that run in
// parallel; `shard` takes every call number n with n % shards == shard.
template <typename F>
void ForEveryFault(uint64_t firstCall, uint64_t lastCall, F&& run, uint32_t shard = 0, uint32_t shards = 1) {
  for (Fault fault : {Fault::kOneCall, Fault::kFromCall}) {
    for (uint64_t n = firstCall; n <= lastCall + 1; ++n) {
      if (n % shards != shard) continue;
      SCOPED_TRACE(Describe(fault, n));
      run(fault, n);
      if (::testing::Test::HasFatalFailure()) return;
    }
  }
  for (uint64_t n : kShortReads) {
    if (n % shards != shard) continue;
    SCOPED_TRACE(Describe(Fault::kShortReads, n));
    run(Fault::kShortReads, n);
  }
}

Bytes FixtureBytes(const std::string& name) {
  Bytes data = kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/mp3/" + name);
  if (data.empty()) data = kxtest::ReadFile(std::string(KX_TEST_DATA_DIR) + "/tags/" + name);
  return data;
}

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

// --- The open sequence ---

// Every container type, every way of finding the frame count, every tag kind.
const char* const kOpenFixtures[] = {
    "m1_48000_stereo_vbr.mp3", "m1_44100_noheader_short.mp3", "id3v2_ape.mp3",    "ape_id3v1.mp3",
    "riff_wave_50.wav",        "riff_rmp3.rmp",               "junk_before.mp3",  "m25_8000_joint_abr.mp3",
    "m1_44100_crc.mp3",        "id3v23_utf16.mp3",            "id3v24_utf8.mp3",  "riff_info.wav",
    "ape_replaygain.mp3",
};

class OpenMatrix : public ::testing::TestWithParam<const char*> {};

TEST_P(OpenMatrix, FailsWithANamedCodeAndGivesTheStreamBackOnce) {
  const Bytes data = FixtureBytes(GetParam());
  ASSERT_FALSE(data.empty());
  const std::u16string name = Wide(GetParam());
  Opened clean = Open(data, name);
  ASSERT_EQ(clean.result, AF_S_OK);
  const uint64_t calls = clean.stream->CallCount();
  Close(clean);
  ASSERT_GT(calls, 3u);

  uint32_t refused = 0;
  ForEveryFault(1, calls, [&](Fault fault, uint64_t n) {
    const int64_t blocks = ZCoreLiveBlocks();
    Opened o = Open(data, name, 0, 16, [&](kxtest::MemoryStream* s) { Inject(s, fault, n); });
    EXPECT_TRUE(Named(o.result)) << std::hex << o.result;
    if (o.result == AF_S_OK) {
      // Whatever the open let through, a few requests must answer with codes too.
      const Drained d = Drain(o.decoder, 4608, 6, 1);
      EXPECT_TRUE(d.named) << std::hex << d.last;
    } else {
      ++refused;
      // A refused open leaves an object that is not open.
      int32_t written = -1;
      uint8_t byte = 0;
      EXPECT_EQ(o.decoder->DecodeToPCMData(&byte, 1, &written), AF_E_NOT_READY);
    }
    Close(o);
    EXPECT_EQ(ZCoreLiveBlocks(), blocks) << "core memory kept";
  });
  // The matrix reached the failure paths: failing every call from the first cannot
  // open.
  EXPECT_GT(refused, 0u);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, OpenMatrix, ::testing::ValuesIn(kOpenFixtures),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           std::string n = info.param;
                           for (char& c : n) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return n;
                         });

// The open on an information-only request, with every call failing in turn.
TEST(OpenMatrixInfoOnly, FailsWithANamedCode) {
  const Bytes data = FixtureBytes("id3v2_ape.mp3");
  Opened clean = Open(data, u"id3v2_ape.mp3", OPEN_FLAG_INFO_ONLY);
  ASSERT_EQ(clean.result, AF_S_OK);
  const uint64_t calls = clean.stream->CallCount();
  Close(clean);
  ForEveryFault(1, calls, [&](Fault fault, uint64_t n) {
    const int64_t blocks = ZCoreLiveBlocks();
    Opened o = Open(data, u"id3v2_ape.mp3", OPEN_FLAG_INFO_ONLY, 16, [&](kxtest::MemoryStream* s) {
      Inject(s, fault, n);
    });
    EXPECT_TRUE(Named(o.result)) << std::hex << o.result;
    Close(o);
    EXPECT_EQ(ZCoreLiveBlocks(), blocks);
  });
}

// --- Decoding ---

const char* const kDecodeFixtures[] = {"m2_16000_mono_cbr.mp3", "m1_44100_crc.mp3", "id3v2_ape.mp3",
                                       "m1_48000_stereo_vbr.mp3"};

class DecodeMatrix : public ::testing::TestWithParam<const char*> {};

TEST_P(DecodeMatrix, EveryCallNumberGivesNamedCodesAndAnEnd) {
  const Bytes data = FixtureBytes(GetParam());
  ASSERT_FALSE(data.empty());
  const std::u16string name = Wide(GetParam());
  Opened clean = Open(data, name, 0, 32);
  ASSERT_EQ(clean.result, AF_S_OK);
  const uint64_t opened = clean.stream->CallCount();
  const Drained reference = Drain(clean.decoder, 4608);
  ASSERT_EQ(reference.last, AF_S_END_OF_DATA);
  const uint64_t calls = clean.stream->CallCount();
  Close(clean);

  ForEveryFault(opened + 1, calls, [&](Fault fault, uint64_t n) {
    const int64_t blocks = ZCoreLiveBlocks();
    Opened o = Open(data, name, 0, 32);
    ASSERT_EQ(o.result, AF_S_OK);
    Inject(o.stream, fault, n);
    // A host that tries again twice after a failure, then rewinds and reads on.
    Drained d = Drain(o.decoder, 4608, 10000, 2);
    EXPECT_TRUE(d.named) << std::hex << d.last;
    // Never more output than the clean run (the stream only loses data).
    EXPECT_LE(d.pcm.size(), reference.pcm.size());
    if (fault == Fault::kOneCall || fault == Fault::kShortReads) {
      // A single failure or short reads still reach the end of the data.
      EXPECT_EQ(d.last, AF_S_END_OF_DATA);
    }
    EXPECT_TRUE(Named(o.decoder->Rewind()));
    d = Drain(o.decoder, 1000, 20, 1);
    EXPECT_TRUE(d.named) << std::hex << d.last;
    Close(o);
    EXPECT_EQ(ZCoreLiveBlocks(), blocks);
  });
}

INSTANTIATE_TEST_SUITE_P(Fixtures, DecodeMatrix, ::testing::ValuesIn(kDecodeFixtures),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           std::string n = info.param;
                           for (char& c : n) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return n;
                         });

// --- Seeking ---

// Positions of the seek sequence, as fractions of the total: far forward (frames
// not yet indexed: the scan), back near the start (restart from the first frame),
// relative forward, from the end, and a relative 0 (drops the buffer).
struct SeekStep {
  uint32_t origin;
  int32_t permille;
};
const SeekStep kSeekSequence[] = {
    {AF_ORIGIN_START, 900}, {AF_ORIGIN_START, 100}, {AF_ORIGIN_CURRENT, 300}, {AF_ORIGIN_END, 150},
    {AF_ORIGIN_CURRENT, 0},
};

void RunSeekSequence(Opened& o, bool* allNamed) {
  const uint64_t total = o.decoder->State().info.generic.totalPcmBytes;
  for (const SeekStep& step : kSeekSequence) {
    QWUNION position{};
    position.i = static_cast<int64_t>(total / 1000 * static_cast<uint64_t>(step.permille));
    const KxResult rc = o.decoder->SetCurrentPosition(position, step.origin);
    if (!Named(rc)) *allNamed = false;
    // The lock is given back on every path.
    EXPECT_EQ(ZCoreGetLockOwner(o.decoder, nullptr, nullptr, nullptr), 0) << "lock held after a seek";
    const Drained d = Drain(o.decoder, 4608, 1);
    if (!d.named) *allNamed = false;
  }
}

constexpr uint32_t kSeekShards = 4;

class SeekMatrix : public ::testing::TestWithParam<uint32_t> {};

TEST_P(SeekMatrix, EveryCallNumberGivesNamedCodesAndReleasesTheLock) {
  const Bytes data = FixtureBytes("m1_44100_joint_cbr.mp3");
  ASSERT_FALSE(data.empty());
  Opened clean = Open(data, u"seek.mp3");
  ASSERT_EQ(clean.result, AF_S_OK);
  const uint64_t opened = clean.stream->CallCount();
  bool named = true;
  RunSeekSequence(clean, &named);
  EXPECT_TRUE(named);
  const uint64_t calls = clean.stream->CallCount();
  Close(clean);
  ASSERT_GT(calls - opened, 50u) << "the sequence should scan and pre-roll";

  ForEveryFault(opened + 1, calls, [&](Fault fault, uint64_t n) {
    const int64_t blocks = ZCoreLiveBlocks();
    Opened o = Open(data, u"seek.mp3");
    ASSERT_EQ(o.result, AF_S_OK);
    Inject(o.stream, fault, n);
    bool allNamed = true;
    RunSeekSequence(o, &allNamed);
    EXPECT_TRUE(allNamed);
    Close(o);
    EXPECT_EQ(ZCoreLiveBlocks(), blocks);
  }, GetParam(), kSeekShards);
}

INSTANTIATE_TEST_SUITE_P(Shards, SeekMatrix, ::testing::Range(0u, kSeekShards));

// --- Container detection (the probe and the open's second step) ---

TEST(DetectionMatrix, FailsWithANamedCodeAndAZeroedLayout) {
  for (const char* fixture : kOpenFixtures) {
    SCOPED_TRACE(fixture);
    const Bytes data = FixtureBytes(fixture);
    kxtest::MemoryStream* clean = kxtest::MemoryStream::Make(data, Wide(fixture));
    kxmp3::StreamLayout layout{};
    ASSERT_EQ(kxmp3::DetectContainer(clean, 0, &layout, nullptr, nullptr), AF_S_OK);
    const uint64_t calls = clean->CallCount();
    clean->Release();
    ForEveryFault(1, calls, [&](Fault fault, uint64_t n) {
      kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, Wide(fixture));
      Inject(stream, fault, n);
      kxmp3::StreamLayout l{};
      kxmp3::MP3Info info{};
      uint32_t header = 0;
      const KxResult rc = kxmp3::DetectContainer(stream, 0, &l, &info, &header);
      EXPECT_TRUE(Named(rc)) << std::hex << rc;
      if (rc != AF_S_OK) {
        EXPECT_EQ(l.containerType, 0u);
        EXPECT_EQ(l.audioStart, 0u);
        EXPECT_EQ(l.audioLength, 0u);
      }
      EXPECT_EQ(stream->GetRefCount(), 1u);
      stream->Release();
    });
  }
}

// --- The tag readers ---

struct TagCase {
  const char* reader;
  const char* fixture;
};
const TagCase kTagCases[] = {
    {"id3v1", "id3v11.mp3"},           {"id3v1", "id3v11_sjis.mp3"},       {"id3v2", "id3v23_latin1.mp3"},
    {"id3v2", "id3v23_utf16.mp3"},     {"id3v2", "id3v24_utf16be.mp3"},    {"id3v2", "id3v24_utf8.mp3"},
    {"id3v2", "id3v2_ape.mp3"},        {"ape", "ape_replaygain.mp3"},      {"ape", "ape_id3v1.mp3"},
    {"ape", "id3v2_ape.mp3"},          {"riff", "riff_info.wav"},
};

// Runs one reader; returns its record (caller frees) and checks the ReplayGain header.
void* RunReader(const std::string& reader, kxtest::MemoryStream* stream) {
  kxmp3::ReplayGainRecord gain{};
  void* record = nullptr;
  if (reader == "id3v1") {
    record = kxmp3::ReadId3v1Tag(stream, &gain);
  } else if (reader == "id3v2") {
    record = kxmp3::ReadId3v2Tag(stream, &gain);
  } else if (reader == "ape") {
    record = kxmp3::ReadApeTag(stream, &gain);
  } else {
    record = kxmp3::ReadRiffInfoList(stream, u"05");
    gain.fourcc = FOURCC_RPGI;
    gain.size = sizeof(gain);
  }
  kxfuzz::CheckReplayGainRecord(gain, reader.c_str());
  return record;
}

class TagReaderMatrix : public ::testing::TestWithParam<TagCase> {};

TEST_P(TagReaderMatrix, GivesARecordOrNoneAndKeepsNothing) {
  const std::string reader = GetParam().reader;
  const Bytes data = FixtureBytes(GetParam().fixture);
  ASSERT_FALSE(data.empty());
  kxtest::MemoryStream* clean = kxtest::MemoryStream::Make(data, Wide(GetParam().fixture));
  void* record = RunReader(reader, clean);
  ASSERT_NE(record, nullptr) << "the fixture has no tag for this reader";
  ZCoreFree(record);
  const uint64_t calls = clean->CallCount();
  clean->Release();

  uint32_t withoutRecord = 0;
  ForEveryFault(1, calls, [&](Fault fault, uint64_t n) {
    const int64_t blocks = ZCoreLiveBlocks();
    kxtest::MemoryStream* stream = kxtest::MemoryStream::Make(data, Wide(GetParam().fixture));
    Inject(stream, fault, n);
    void* r = RunReader(reader, stream);
    if (r != nullptr) {
      kxfuzz::CheckCommentRecord(r, ZCoreBlockSize(r), reader.c_str());
    } else {
      ++withoutRecord;
    }
    ZCoreFree(r);
    EXPECT_EQ(stream->GetRefCount(), 1u) << "the reader kept a stream reference";
    stream->Release();
    EXPECT_EQ(ZCoreLiveBlocks(), blocks) << "core memory kept";
  });
  EXPECT_GT(withoutRecord, 0u) << "no fault reached the reader";
}

INSTANTIATE_TEST_SUITE_P(Readers, TagReaderMatrix, ::testing::ValuesIn(kTagCases),
                         [](const ::testing::TestParamInfo<TagCase>& info) {
                           std::string n = std::string(info.param.reader) + "_" + info.param.fixture;
                           for (char& c : n) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return n;
                         });

}  // namespace
