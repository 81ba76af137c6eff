// A quick fuzz pass: thousands of mutated and random tag buffers through every reader
// and the whole tag step. Nothing may crash, hang, leak core memory or read outside a
// buffer (the sanitizer build checks the last); every record returned must be a
// well-formed comment record. Deterministic: a fixed seed.
#include <gtest/gtest.h>

#include <random>

#include "tag_test_util.h"
#include "tags/ape_tag.h"
#include "tags/id3v1.h"
#include "tags/id3v2.h"
#include "tags/riff_info.h"
#include "tags/tag_merge.h"

namespace {

using namespace kxtest;

// Seeds: writer-made files and byte-built tags of every kind.
std::vector<Bytes> Seeds() {
  std::vector<Bytes> seeds;
  for (const char* name : {"id3v23_latin1.mp3", "id3v23_utf16.mp3", "id3v24_utf16be.mp3", "id3v24_utf8.mp3",
                           "ape_replaygain.mp3", "ape_id3v1.mp3", "id3v2_ape.mp3", "riff_info.wav", "id3v11.mp3"}) {
    Bytes data = TagFixture(name);
    if (!data.empty()) seeds.push_back(std::move(data));
  }
  Bytes frames;
  for (const char* id : {"TIT2", "TPE1", "COMM", "TXXX", "TCON"}) {
    frames = Cat({frames, Id3v2Frame(4, id, Bytes{1, 0xFF, 0xFE, 'a', 0, 0, 0, 0xFE, 0xFF, 0, 'b'}, 0x02)});
  }
  seeds.push_back(Cat({Id3v2Tag(4, 0, 0xC0, Cat({Bytes{0, 0, 0, 6, 1, 0}, frames})), AudioFiller()}));
  seeds.push_back(Cat({Id3v2Tag(2, 0, 0x80, Cat({Id3v2Frame(2, "TT2", Bytes{0, 0xFF, 0, 'x'}), Bytes(8, 0)})),
                       AudioFiller()}));
  seeds.push_back(Cat({AudioFiller(), ApeTag({ApeItem("Title", "t", 1), ApeItem("replaygain_track_gain", "-1 dB")},
                                             ApeOptions{2000, -1, -1, 0, true}),
                       Id3v1("a", "b", "c", "1999", "d", 3, 29)}));
  Bytes info;
  Put(info, "INFO");
  info = Cat({info, RiffChunk("INAM", Bytes{'n', 0}), RiffChunk("ISBJ", Bytes{'s'}), RiffChunk("ITRK", Bytes{'1', 0})});
  Bytes riff;
  Put(riff, "WAVE");
  riff = Cat({riff, RiffChunk("fmt ", Bytes(20, 0)), RiffChunk("LIST", info), RiffChunk("data", AudioFiller(40))});
  seeds.push_back(RiffChunk("RIFF", riff));
  return seeds;
}

Bytes Mutate(const Bytes& seed, std::mt19937& rng) {
  Bytes data = seed;
  std::uniform_int_distribution<int> kind(0, 9);
  const int steps = 1 + static_cast<int>(rng() % 8);
  for (int s = 0; s < steps && !data.empty(); ++s) {
    const size_t at = rng() % data.size();
    switch (kind(rng)) {
      case 0:
      case 1:
      case 2:
        data[at] = static_cast<uint8_t>(rng());
        break;
      case 3:  // an extreme size field
        for (size_t i = 0; i < 4 && at + i < data.size(); ++i) data[at + i] = (rng() & 1) ? 0xFF : 0x7F;
        break;
      case 4:
        for (size_t i = 0; i < 4 && at + i < data.size(); ++i) data[at + i] = 0;
        break;
      case 5:  // cut the end off
        data.resize(at);
        break;
      case 6:  // cut the start off
        data.erase(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(at));
        break;
      case 7:  // insert bytes
        data.insert(data.begin() + static_cast<std::ptrdiff_t>(at), 1 + rng() % 16, static_cast<uint8_t>(rng()));
        break;
      case 8:  // a marker byte that readers look for
        data[at] = static_cast<uint8_t>("\xFF\x00\x01\x02\x03(" [rng() % 6]);
        break;
      default:
        data[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
        break;
    }
  }
  return data;
}

void CheckRecord(void* record) {
  if (record == nullptr) return;
  const uint32_t size = kxmp3::CommentRecordSize(record);
  ASSERT_GE(size, 78u);
  for (int i = 0; i < 7; ++i) {
    const std::u16string text = kxmp3::CommentRecordField(record, i);
    EXPECT_EQ(text.find_first_of(u"\r\n\t"), std::u16string::npos);
  }
  ZCoreFree(record);
}

void RunEveryReader(const Bytes& data, uint32_t readLimit) {
  const int64_t live = ZCoreLiveBlocks();
  {
    auto stream = MakeStream(data);
    if (readLimit != 0) stream->LimitReads(readLimit);
    kxmp3::ReplayGainRecord rg;
    CheckRecord(kxmp3::ReadId3v1Tag(stream.get(), &rg));
    CheckRecord(kxmp3::ReadId3v2Tag(stream.get(), &rg));
    CheckRecord(kxmp3::ReadApeTag(stream.get(), &rg));
    CheckRecord(kxmp3::ReadRiffInfoList(stream.get(), u"12"));
    for (uint32_t type = 1; type <= 5; ++type) CheckRecord(kxmp3::ReadTagsForContainer(stream.get(), type, &rg));
    EXPECT_EQ(stream->GetRefCount(), 1u);
  }
  ASSERT_EQ(ZCoreLiveBlocks(), live) << "core memory leaked";
}

TEST(TagFuzz, MutatedTagsThroughEveryReader) {
  const std::vector<Bytes> seeds = Seeds();
  ASSERT_GE(seeds.size(), 4u);
  std::mt19937 rng(20240601);
  for (int i = 0; i < 3000; ++i) {
    const Bytes data = Mutate(seeds[static_cast<size_t>(i) % seeds.size()], rng);
    const uint32_t limit = (i % 11 == 0) ? 1 + rng() % 64 : 0;
    RunEveryReader(data, limit);
    if (HasFatalFailure()) FAIL() << "iteration " << i;
  }
}

TEST(TagFuzz, RandomBuffersWithTagMagic) {
  std::mt19937 rng(77);
  const char* magics[] = {"ID3", "ea3", "TAG", "APETAGEX", "RIFF"};
  for (int i = 0; i < 1500; ++i) {
    Bytes data(rng() % 700);
    for (uint8_t& b : data) b = static_cast<uint8_t>(rng());
    const std::string magic = magics[rng() % 5];
    if (data.size() >= magic.size() + 200) {
      const bool atEnd = magic == "TAG" || magic == "APETAGEX";
      const size_t at = atEnd ? data.size() - (magic == "TAG" ? 128 : 32 + (rng() % 2) * 128) : 0;
      std::copy(magic.begin(), magic.end(), data.begin() + static_cast<std::ptrdiff_t>(at));
      if (magic == "ID3") data[3] = static_cast<uint8_t>(2 + rng() % 3);
    }
    RunEveryReader(data, 0);
    if (HasFatalFailure()) FAIL() << "iteration " << i;
  }
}

}  // namespace
