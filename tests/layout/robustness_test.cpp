// Damaged input: fixtures with random bytes changed, cut short, or with random
// bytes spliced into their first frame go through detection (under every name
// rule) and the frame scan; every call ends with a known code, never a crash, and
// detection leaves the stream where it found it.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "host/kxcore.h"
#include "layout/container.h"
#include "engine/engine_state.h"
#include "engine/frame_index.h"
#include "support/layout_test_util.h"

namespace kxmp3 {
namespace {

using namespace layouttest;

const std::set<KxResult> kDetectCodes = {AF_S_OK,        AF_E_NO_SYNC,   AF_E_BAD_FORMAT,    AF_E_NOT_MPEG_LAYER3,
                                         AF_E_BAD_VERSION, AF_E_BAD_LAYER, AF_E_BAD_BITRATE, AF_E_BAD_SAMPLERATE};

Bytes Damage(Bytes data, std::mt19937& rng) {
  switch (rng() % 4) {
    case 0: {  // scattered byte changes, most in the first 400 bytes (headers, tags)
      int n = 1 + static_cast<int>(rng() % 12);
      for (int i = 0; i < n; ++i) {
        size_t limit = (rng() % 3) ? std::min<size_t>(400, data.size()) : data.size();
        data[rng() % limit] = static_cast<uint8_t>(rng());
      }
      break;
    }
    case 1:  // cut short
      data.resize(rng() % (data.size() + 1));
      break;
    case 2: {  // a run of 0xFF (false syncs) somewhere
      size_t at = rng() % data.size();
      size_t len = std::min<size_t>(data.size() - at, 1 + rng() % 64);
      std::fill(data.begin() + static_cast<std::ptrdiff_t>(at), data.begin() + static_cast<std::ptrdiff_t>(at + len), 0xFF);
      break;
    }
    default: {  // random bytes spliced in near the start
      size_t at = rng() % std::min<size_t>(data.size(), 300);
      Bytes junk(1 + rng() % 200);
      for (auto& b : junk) b = static_cast<uint8_t>(rng());
      data.insert(data.begin() + static_cast<std::ptrdiff_t>(at), junk.begin(), junk.end());
      break;
    }
  }
  return data;
}

TEST(Robustness, DamagedFixturesGiveKnownCodes) {
  std::mt19937 rng(2024);
  std::vector<FixtureInfo> all = LoadManifest();
  ASSERT_FALSE(all.empty());
  const std::u16string names[] = {u"x.mp3", u"x.wav", u"x.rmp", u"x.bin", u""};
  int ok = 0;
  for (int i = 0; i < 400; ++i) {
    const FixtureInfo& f = all[rng() % all.size()];
    if (f.name.find("noheader_long") != std::string::npos) continue;  // keep it quick
    Bytes data = Damage(LoadFixture(f.name), rng);
    const std::u16string& name = names[rng() % 5];
    StreamPtr s = MakeStream(data, name);
    int64_t p0 = data.empty() ? 0 : static_cast<int64_t>(rng() % std::min<size_t>(data.size(), 64));
    ASSERT_EQ(s->Seek(p0, ZS_SEEK_SET), AF_S_OK);
    StreamLayout layout{};
    alignas(8) MP3Info info{};
    uint32_t header = 0;
    KxResult r = DetectContainer(s.get(), (rng() & 1) ? OPEN_FLAG_FULL_SCAN : 0, &layout, &info, &header);
    EXPECT_TRUE(kDetectCodes.count(r)) << std::hex << r << " " << f.name;
    EXPECT_EQ(s->RawPosition(), p0);
    if (r == AF_S_OK) {
      ++ok;
      EXPECT_LE(layout.audioStart + layout.audioLength, data.size());
      EXPECT_GT(uint64_t(info.generic.totalPcmBytes), 0u);
    }
  }
  EXPECT_GT(ok, 60);
}

TEST(Robustness, FrameScanOverDamagedStreams) {
  std::mt19937 rng(77);
  for (int i = 0; i < 30; ++i) {
    Bytes data = Damage(LoadFixture("m1_44100_joint_vbr_long.mp3"), rng);
    StreamPtr stream = MakeStream(data);
    EngineState s{};
    s.frameIndexCapacity = 4;
    s.frameIndex = static_cast<FrameIndexEntry*>(ZCoreAlloc(ZMEM_ZEROED, 4 * sizeof(FrameIndexEntry)));
    KxResult r = AF_S_OK;
    int frames = 0;
    while ((r = ScanFrame(s, stream.get())) == AF_S_OK) ++frames;
    EXPECT_EQ(r, AF_S_END_OF_DATA);
    EXPECT_EQ(s.frameCounter, static_cast<uint32_t>(frames));
    for (int k = 1; k < frames; ++k) EXPECT_GT(uint64_t(s.frameIndex[k].offset), uint64_t(s.frameIndex[k - 1].offset));
    ZCoreFree(s.frameIndex);
  }
}

}  // namespace
}  // namespace kxmp3
