// The corrupted-file corpus: every fixture cut at 100 points, 1,000 variants of the
// fixtures with random bits flipped, and random garbage of 0 to 64 KiB (plain, as
// chained frames of random content, with frame headers strewn in it, and behind
// container and tag magics). Each input goes
// through a host session (fuzz/harness: open, queries, decoding to the end, a seek,
// a rewind and a few requests) under its fixture's name: it opens and decodes to
// the end, or fails with a named code; the stream comes back with one reference;
// core memory is all returned and its peak stays within the bound of the input's
// size. The sanitizer build runs the same inputs for out-of-bounds accesses,
// undefined behaviour and leaks.
//
// Deterministic: fixed seeds. The inputs are cut into shards that ctest runs in
// parallel.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "engine/frame_header.h"
#include "harness/harness.h"
#include "heap_tracker.h"
#include "reliability_util.h"

namespace {

using namespace kxrel;

kxfuzz::SessionSummary RunInput(const Bytes& data, const std::u16string& name) {
  kxfuzz::SessionSummary summary;
  const PeakUse peak = MeasurePeak([&] {
    summary = kxfuzz::RunHostSession(data.data(), data.size(), name.c_str(), 0, kxfuzz::SessionDepth::kDecode);
  });
  EXPECT_LE(peak.core, MemoryBound(data.size())) << "core memory beyond the bound for " << data.size() << " bytes";
  EXPECT_LE(peak.heap, MemoryBound(data.size())) << "heap beyond the bound for " << data.size() << " bytes";
  return summary;
}

std::vector<std::string> AllFixtures() {
  std::vector<std::string> paths = AudioFixtures();
  const std::vector<std::string> tags = TagFixtures();
  paths.insert(paths.end(), tags.begin(), tags.end());
  paths.push_back(std::string(KX_TEST_DATA_DIR) + "/sample.mp3");
  return paths;
}

// The fixture's folder and name ("mp3_ape_id3v1_mp3"): names repeat across folders.
std::string TestName(const std::string& path) {
  const std::string folder = BaseName(path.substr(0, path.find_last_of('/')));
  std::string n = folder + "_" + BaseName(path);
  for (char& c : n) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return n;
}

// --- Truncation at 100 points ---

class Truncated : public ::testing::TestWithParam<std::string> {};

TEST_P(Truncated, EveryCutOpensAndDecodesOrFailsWithACode) {
  const Bytes whole = kxtest::ReadFile(GetParam());
  ASSERT_FALSE(whole.empty());
  const std::u16string name = WideName(GetParam());
  for (size_t k = 0; k < 100; ++k) {
    const size_t length = whole.size() * k / 100;
    SCOPED_TRACE("cut at " + std::to_string(length) + " of " + std::to_string(whole.size()));
    RunInput(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)), name);
  }
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Truncated, ::testing::ValuesIn(AllFixtures()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return TestName(info.param); });

// --- 1,000 bit-flip variants ---

constexpr uint32_t kFlipVariants = 1000;
constexpr uint32_t kFlipShards = 10;

class BitFlipped : public ::testing::TestWithParam<uint32_t> {};

TEST_P(BitFlipped, EveryVariantOpensAndDecodesOrFailsWithACode) {
  const std::vector<std::string> fixtures = AllFixtures();
  std::vector<Bytes> contents;
  for (const std::string& path : fixtures) contents.push_back(kxtest::ReadFile(path));
  for (uint32_t v = GetParam(); v < kFlipVariants; v += kFlipShards) {
    std::mt19937 rng(1000 + v);
    const size_t which = v % fixtures.size();
    Bytes data = contents[which];
    ASSERT_FALSE(data.empty());
    // Mostly a few flips anywhere; every fourth variant flips bits in the first
    // kilobyte, where the headers and tags are.
    const uint32_t flips = 1 + rng() % 8;
    const size_t span = (v % 4 == 0) ? std::min<size_t>(data.size(), 1024) : data.size();
    std::string where;
    for (uint32_t f = 0; f < flips; ++f) {
      const size_t at = rng() % span;
      const int bit = static_cast<int>(rng() % 8);
      data[at] ^= static_cast<uint8_t>(1u << bit);
      where += " " + std::to_string(at) + "." + std::to_string(bit);
    }
    SCOPED_TRACE("variant " + std::to_string(v) + " of " + BaseName(fixtures[which]) + ", flipped" + where);
    RunInput(data, WideName(fixtures[which]));
  }
}

INSTANTIATE_TEST_SUITE_P(Shards, BitFlipped, ::testing::Range(0u, kFlipShards));

// --- Random garbage of 0 to 64 KiB ---

constexpr uint32_t kGarbageInputs = 240;
constexpr uint32_t kGarbageShards = 4;

void Plant(Bytes& data, size_t at, const char* text, size_t bytes) {
  if (at + bytes <= data.size()) std::memcpy(data.data() + at, text, bytes);
}

// Frames with valid headers one frame length apart (one MPEG version and sampling
// frequency, any bitrate, padding, mode, check word and emphasis) and random side
// information and main data: the decoder proper gets random bits to chew on.
void FillWithRandomFrames(Bytes& data, size_t from, std::mt19937& rng) {
  static const uint32_t kVersionBits[3] = {3, 2, 0};  // MPEG-1, MPEG-2, MPEG-2.5
  const uint32_t version = rng() % 3;
  const uint32_t rate = rng() % 3;
  const uint32_t protection = rng() % 2;
  size_t at = from;
  while (at + 4 <= data.size()) {
    const uint32_t bitrate = 1 + rng() % 14;
    const uint32_t padding = rng() % 2;
    const uint32_t mode = rng() % 4;
    data[at] = 0xFF;
    data[at + 1] = static_cast<uint8_t>(0xE0 | kVersionBits[version] << 3 | 1u << 1 | protection);
    data[at + 2] = static_cast<uint8_t>(bitrate << 4 | rate << 2 | padding << 1);
    data[at + 3] = static_cast<uint8_t>(mode << 6 | (rng() % 4) << 4 | (rng() % 4));
    if (rng() % 8 == 0) data[at + 4 < data.size() ? at + 4 : at] = 0;  // sometimes a main_data_begin of 0
    at += kxmp3::kFrameLengthTable[version * 3 + rate][bitrate] + padding;
  }
}

Bytes MakeGarbage(uint32_t n) {
  std::mt19937 rng(5000 + n);
  // The edges first (empty, shorter than a header, around the 128- and 132-byte
  // limits of the trailing-tag tests, 64 KiB), then random sizes.
  static const size_t kEdges[] = {0, 1, 2, 3, 4, 5, 127, 128, 129, 131, 132, 133, 160, 65536};
  const size_t size = n < std::size(kEdges) ? kEdges[n] : rng() % (65536 + 1);
  Bytes data(size);
  for (auto& b : data) b = static_cast<uint8_t>(rng());
  switch (n % 4) {
    case 0:  // plain random bytes
      break;
    case 1:  // random frames from the first byte
      FillWithRandomFrames(data, 0, rng);
      break;
    case 2: {  // frame headers of every version at random places
      static const uint8_t kHeaders[][4] = {{0xFF, 0xFB, 0x90, 0x44}, {0xFF, 0xF3, 0x80, 0xC4},
                                            {0xFF, 0xE3, 0x40, 0x44}, {0xFF, 0xFA, 0xB2, 0x04},
                                            {0xFF, 0xF3, 0x14, 0xC4}};
      for (size_t k = 0; k < size / 200; ++k) {
        Plant(data, rng() % size, reinterpret_cast<const char*>(kHeaders[rng() % 5]), 4);
      }
      break;
    }
    default: {  // a container or tag magic, with random frames behind it
      size_t audio = 0;
      switch (rng() % 5) {
        case 0:
          Plant(data, 0, "ID3\x03\x00\x00\x00\x00\x02\x00", 10);
          audio = 10 + 256;
          break;
        case 1:
          Plant(data, 0, "RIFF\x00\x10\x00\x00WAVEfmt \x10\x00\x00\x00\x55\x00\x02\x00", 24);
          Plant(data, 36, "data\x00\x00\x01\x00", 8);
          audio = 44;
          break;
        case 2:
          Plant(data, 0, "RIFF\x00\x10\x00\x00RMP3data\x00\x00\x01\x00", 20);
          audio = 20;
          break;
        default:
          break;
      }
      FillWithRandomFrames(data, audio, rng);
      if (rng() % 2 == 0 && size >= 160) {
        Plant(data, size - 160, "APETAGEX\xD0\x07\x00\x00\x40\x00\x00\x00\x01\x00\x00\x00", 20);
      }
      if (rng() % 2 == 0 && size >= 128) Plant(data, size - 128, "TAG", 3);
      break;
    }
  }
  return data;
}

class Garbage : public ::testing::TestWithParam<uint32_t> {};

TEST_P(Garbage, EveryInputOpensAndDecodesOrFailsWithACode) {
  static const char16_t* const kNames[] = {u"garbage.mp3", u"garbage.wav", u"garbage.bin", u"garbage.rmp"};
  uint32_t framed = 0;
  uint32_t decoded = 0;
  for (uint32_t n = GetParam(); n < kGarbageInputs; n += kGarbageShards) {
    const Bytes data = MakeGarbage(n);
    SCOPED_TRACE("garbage input " + std::to_string(n) + " of " + std::to_string(data.size()) + " bytes");
    const kxfuzz::SessionSummary summary = RunInput(data, kNames[(n / 4) % 4]);
    if (n % 4 == 1 && data.size() > 4096) {
      ++framed;
      if (summary.opened == AF_S_OK && summary.bytesDelivered > 0) ++decoded;
    }
  }
  // The random frames reach the decoder proper: most open and yield PCM.
  if (framed > 0) {
    EXPECT_GE(decoded * 2, framed) << decoded << " of " << framed << " random-frame inputs decoded";
  }
}

INSTANTIATE_TEST_SUITE_P(Shards, Garbage, ::testing::Range(0u, kGarbageShards));

}  // namespace
