// Every wider kernel (AVX2, AVX-512) held to its SSE2 counterpart bit for bit, on random input
// and on whole streams, so that the decoder's output never depends on the processor
// it runs on. Skipped where the processor runs no wider table.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "dsp_test_util.h"
#include "engine/dsp_kernels.h"
#include "engine/engine_types.h"
#include "engine/imdct.h"
#include "engine/synthesis.h"
#include "engine/tables.h"
#include "support/engine/engine_harness.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

std::vector<const DspKernels*> WiderTables() {
  std::vector<const DspKernels*> all;
  if (Avx2Kernels() != nullptr) all.push_back(Avx2Kernels());
  if (Avx512Kernels() != nullptr) all.push_back(Avx512Kernels());
  return all;
}

class WideKernelsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kxtest::EnsureDecoderTables();
    sse2_ = Sse2Kernels();
    if (sse2_ == nullptr) GTEST_SKIP() << "this build has no SSE2 kernels to compare with";
    wide_ = WiderTables();
    if (wide_.empty()) GTEST_SKIP() << "this processor runs no kernels wider than SSE2";
  }
  const DspKernels* sse2_ = nullptr;
  std::vector<const DspKernels*> wide_;
};

template <size_t N>
void ExpectSameBits(const Doubles<N>& a, const Doubles<N>& b, const std::string& what) {
  for (size_t i = 0; i < N; ++i) {
    ASSERT_TRUE(kxtest::SameBits(a[i], b[i])) << what << " entry " << i << ": " << a[i] << " vs " << b[i];
  }
}

TEST(WideKernelChoice, TablesNamedAndComplete) {
  for (const DspKernels* k : WiderTables()) {
    EXPECT_TRUE(std::string(k->name) == "avx2" || std::string(k->name) == "avx512") << k->name;
    EXPECT_NE(k->dct32, nullptr);
    EXPECT_NE(k->dct32Slots, nullptr);
    EXPECT_NE(k->windowInt16, nullptr);
    EXPECT_NE(k->windowFloat, nullptr);
    EXPECT_NE(k->imdct36, nullptr);
    EXPECT_NE(k->imdct12, nullptr);
    EXPECT_NE(k->hybridLongPair, nullptr);
    // Eight subbands at a time where the registers hold eight doubles.
    EXPECT_EQ(k->hybridLongEight != nullptr, std::string(k->name) == "avx512") << k->name;
    EXPECT_NE(k->aliasReduce, nullptr);
    EXPECT_NE(k->midSide, nullptr);
    EXPECT_NE(k->interleaveFloat, nullptr);
  }
  // The narrower tables matrix one slot and transform one subband at a time.
  EXPECT_EQ(ScalarKernels().dct32Slots, nullptr);
  EXPECT_EQ(ScalarKernels().hybridLongPair, nullptr);
  EXPECT_EQ(ScalarKernels().hybridLongEight, nullptr);
  if (Sse2Kernels() != nullptr) {
    EXPECT_EQ(Sse2Kernels()->dct32Slots, nullptr);
    EXPECT_EQ(Sse2Kernels()->hybridLongPair, nullptr);
    EXPECT_EQ(Sse2Kernels()->hybridLongEight, nullptr);
  }
}

TEST_F(WideKernelsTest, WindowFloatAndInt16) {
  kxtest::Random rnd(21);
  for (const DspKernels* k : wide_) {
    for (int trial = 0; trial < 800; ++trial) {
      Doubles<1024> ring;
      // Quiet to far beyond full scale: saturation and sums beyond 32 bits too.
      const double scale = trial % 4 == 0 ? 1e6 : trial % 4 == 1 ? 2.0 : trial % 4 == 2 ? 0.3 : 1e11;
      rnd.Fill(ring.data(), 1024, scale, true);
      const uint32_t* row = kSynthesisRingIndex[trial % 16];
      Doubles<32> fa, fb;
      sse2_->windowFloat(fa.data(), kxtest::Taps(ring.data(), row).data());
      k->windowFloat(fb.data(), kxtest::Taps(ring.data(), row).data());
      ExpectSameBits(fa, fb, std::string(k->name) + " window float trial " + std::to_string(trial));
      alignas(16) int16_t ia[33], ib[33];
      // Odd trials write the 16-bit samples 2 bytes off alignment.
      const int off = trial % 2;
      sse2_->windowInt16(ia + off, kxtest::Taps(ring.data(), row).data());
      k->windowInt16(ib + off, kxtest::Taps(ring.data(), row).data());
      for (int n = 0; n < 32; ++n) ASSERT_EQ(ia[off + n], ib[off + n]) << k->name << " trial " << trial << " n " << n;
    }
  }
}

TEST_F(WideKernelsTest, WindowStereoFloatAndInt16) {
  kxtest::Random rnd(23);
  for (const DspKernels* k : wide_) {
    for (int trial = 0; trial < 800; ++trial) {
      Doubles<1024> ring0, ring1;
      const double scale = trial % 4 == 0 ? 1e6 : trial % 4 == 1 ? 2.0 : trial % 4 == 2 ? 0.3 : 1e11;
      rnd.Fill(ring0.data(), 1024, scale, true);
      rnd.Fill(ring1.data(), 1024, scale, true);
      const uint32_t* row = kSynthesisRingIndex[trial % 16];
      // The destination at every byte offset from alignment.
      const size_t off = trial % 9;
      alignas(64) uint8_t fa[64 * 8 + 16], fb[64 * 8 + 16];
      sse2_->windowStereoFloat(fa + off, kxtest::Taps(ring0.data(), row).data(), kxtest::Taps(ring1.data(), row).data());
      k->windowStereoFloat(fb + off, kxtest::Taps(ring0.data(), row).data(), kxtest::Taps(ring1.data(), row).data());
      ASSERT_EQ(0, std::memcmp(fa + off, fb + off, 64 * 8)) << k->name << " stereo float trial " << trial;
      alignas(64) uint8_t ia[64 * 2 + 16], ib[64 * 2 + 16];
      sse2_->windowStereoInt16(ia + off, kxtest::Taps(ring0.data(), row).data(), kxtest::Taps(ring1.data(), row).data());
      k->windowStereoInt16(ib + off, kxtest::Taps(ring0.data(), row).data(), kxtest::Taps(ring1.data(), row).data());
      ASSERT_EQ(0, std::memcmp(ia + off, ib + off, 64 * 2)) << k->name << " stereo 16-bit trial " << trial;
    }
  }
}

TEST_F(WideKernelsTest, WindowFloatSpecialValues) {
  // Infinities and NaN pass through the sums as in the SSE2 kernel (the 16-bit
  // conversion turns them into -32768).
  for (const DspKernels* k : wide_) {
    Doubles<1024> ring;
    for (int i = 0; i < 1024; ++i) ring[i] = (i % 7 == 0) ? 1e308 : (i % 11 == 0 ? -1e308 : 0.25);
    ring[5] = std::numeric_limits<double>::quiet_NaN();
    for (int r = 0; r < 16; ++r) {
      alignas(16) int16_t ia[32], ib[32];
      sse2_->windowInt16(ia, kxtest::Taps(ring.data(), kSynthesisRingIndex[r]).data());
      k->windowInt16(ib, kxtest::Taps(ring.data(), kSynthesisRingIndex[r]).data());
      for (int n = 0; n < 32; ++n) ASSERT_EQ(ia[n], ib[n]) << k->name << " row " << r << " n " << n;
    }
  }
}

// The slots of a granule-channel as the synthesis gathers them.
void GatherSlot(const double* hybrid, uint32_t t, double* slot) {
  for (uint32_t sb = 0; sb < 32; ++sb) {
    const double v = hybrid[18 * sb + t];
    slot[sb] = (t % 2 == 1 && sb % 2 == 1) ? -v : v;
  }
}

TEST_F(WideKernelsTest, Dct32SlotsEqualsDct32OfEachSlot) {
  kxtest::Random rnd(22);
  for (const DspKernels* k : wide_) {
    for (int trial = 0; trial < 300; ++trial) {
      // A granule-channel followed by a second one, so that a kernel reading past
      // the first one's end would be seen to matter.
      Doubles<1152> hybrid;
      rnd.Fill(hybrid.data(), 1152, trial % 3 == 0 ? 1e6 : 1.0, true);
      uint32_t t = 0;
      while (t < 18) {
        // Rows descend from the first slot's: slot t + j at first - 64 j.
        alignas(32) double rows[kMaxDctSlotsPerCall * 64];
        const double* first = rows + 64 * (kMaxDctSlotsPerCall - 1);
        const uint32_t n = k->dct32Slots(hybrid.data(), t, rows + 64 * (kMaxDctSlotsPerCall - 1));
        ASSERT_GE(n, 1u);
        ASSERT_LE(t + n, 18u);
        for (uint32_t j = 0; j < n; ++j) {
          Doubles<32> slot;
          GatherSlot(hybrid.data(), t + j, slot.data());
          Doubles<64> expect;
          sse2_->dct32(slot.data(), expect.data());
          for (int i = 0; i < 64; ++i) {
            ASSERT_TRUE(kxtest::SameBits(expect[i], first[i - 64 * int(j)]))
                << k->name << " trial " << trial << " slot " << t + j << " value " << i << ": " << expect[i]
                << " vs " << first[i - 64 * int(j)];
          }
        }
        t += n;
      }
    }
  }
}

TEST_F(WideKernelsTest, AliasReduceAndMidSide) {
  kxtest::Random rnd(26);
  for (const DspKernels* k : wide_) {
    for (int trial = 0; trial < 400; ++trial) {
      Doubles<576> a;
      rnd.Fill(a.data(), 576, trial % 2 ? 1.0 : 1e7, true);
      Doubles<576> b = a;
      const uint32_t boundaries = 1 + rnd.Below(31);
      sse2_->aliasReduce(a.data(), a.data() + 18, boundaries);
      k->aliasReduce(b.data(), b.data() + 18, boundaries);
      ExpectSameBits(a, b, std::string(k->name) + " alias trial " + std::to_string(trial));
      Doubles<1152> lr;
      rnd.Fill(lr.data(), 1152, 1.0, true);
      Doubles<1152> lr2 = lr;
      const uint32_t subbands = 1 + rnd.Below(32);
      sse2_->midSide(lr.data(), lr.data() + 576, subbands);
      k->midSide(lr2.data(), lr2.data() + 576, subbands);
      ExpectSameBits(lr, lr2, std::string(k->name) + " mid/side trial " + std::to_string(trial));
    }
  }
}

TEST_F(WideKernelsTest, LastSlotsOfTwoChannelsEqualDct32OfEachSlot) {
  kxtest::Random rnd(28);
  for (const DspKernels* k : wide_) {
    ASSERT_NE(k->dct32LastSlotsStereo, nullptr) << k->name;
    for (int trial = 0; trial < 300; ++trial) {
      Doubles<576> hybrid[2];
      rnd.Fill(hybrid[0].data(), 576, trial % 3 == 0 ? 1e6 : 1.0, true);
      rnd.Fill(hybrid[1].data(), 576, 1.0, true);
      alignas(32) double rows[2][128];
      k->dct32LastSlotsStereo(hybrid[0].data(), hybrid[1].data(), rows[0] + 64, rows[1] + 64);
      for (int ch = 0; ch < 2; ++ch) {
        for (uint32_t t = 16; t < 18; ++t) {
          Doubles<32> slot;
          GatherSlot(hybrid[ch].data(), t, slot.data());
          Doubles<64> expect;
          sse2_->dct32(slot.data(), expect.data());
          const double* row = rows[ch] + 64 - 64 * (t - 16);
          for (int i = 0; i < 64; ++i) {
            ASSERT_TRUE(kxtest::SameBits(expect[i], row[i]))
                << k->name << " trial " << trial << " channel " << ch << " slot " << t << " value " << i;
          }
        }
      }
    }
  }
}

// A kernel of `subbands` consecutive long-block subbands (`group`) against the SSE2
// 36-point kernel and the overlap-add, one subband at a time, on random lines and
// overlaps of every long block type.
void ExpectLongGroupMatchesTheSse2Kernel(const DspKernels& sse2, const std::string& name,
                                         void (*group)(double*, double*, const double*), int subbands,
                                         uint32_t seed) {
  kxtest::Random rnd(seed);
  const int n = 18 * subbands;
  for (int trial = 0; trial < 1500; ++trial) {
    Doubles<144> lines{}, overlap{};
    rnd.Fill(lines.data(), n, trial % 3 == 0 ? 1e5 : 1.0, true);
    rnd.Fill(overlap.data(), n, 1.0, true);
    if (trial % 7 == 0) {
      // Values no decoded stream reaches, which must still come out as the
      // reference's: infinities in the lines and in the overlap (and so the NaN that
      // the processor makes of their differences; an injected NaN is left out, since
      // which of two NaN operands an addition returns depends on the compiler's
      // operand order, not on the arithmetic).
      lines[rnd.Below(n)] = std::numeric_limits<double>::infinity();
      lines[rnd.Below(n)] = -std::numeric_limits<double>::infinity();
      overlap[rnd.Below(n)] = -std::numeric_limits<double>::infinity();
    }
    const int type = std::array<int, 3>{0, 1, 3}[trial % 3];
    const double* window = gTables.imdctWindow[type];
    // The reference: one subband at a time through the SSE2 kernel.
    Doubles<144> expectLines = lines, expectOverlap = overlap;
    for (int sb = 0; sb < subbands; ++sb) {
      Doubles<18> in;
      for (int i = 0; i < 18; ++i) in[i] = expectLines[18 * sb + i];
      Doubles<36> scratch;
      sse2.imdct36(in.data(), scratch.data(), window);
      OverlapAdd(scratch.data(), expectLines.data() + 18 * sb, expectOverlap.data() + 18 * sb);
    }
    group(lines.data(), overlap.data(), window);
    ExpectSameBits(expectLines, lines, name + " samples trial " + std::to_string(trial));
    ExpectSameBits(expectOverlap, overlap, name + " overlap trial " + std::to_string(trial));
  }
}

TEST_F(WideKernelsTest, HybridLongPairEqualsImdct36AndOverlapAddOfEachSubband) {
  for (const DspKernels* k : wide_) ExpectLongGroupMatchesTheSse2Kernel(*sse2_, k->name, k->hybridLongPair, 2, 24);
}

TEST_F(WideKernelsTest, HybridLongEightEqualsImdct36AndOverlapAddOfEachSubband) {
  int tested = 0;
  for (const DspKernels* k : wide_) {
    if (k->hybridLongEight == nullptr) continue;
    ++tested;
    ExpectLongGroupMatchesTheSse2Kernel(*sse2_, k->name, k->hybridLongEight, 8, 26);
  }
  if (tested == 0) GTEST_SKIP() << "no table of this processor transforms eight subbands at a time";
}

TEST_F(WideKernelsTest, ImdctGranulesEqualTheSse2Table) {
  // Every block type, mixed blocks, odd and even numbers of active subbands.
  kxtest::Random rnd(25);
  for (const DspKernels* k : wide_) {
    Doubles<576> overlapA{}, overlapB{};
    for (int granule = 0; granule < 200; ++granule) {
      GranuleInfo gi{};
      gi.block_type = rnd.Below(4);
      // Streams flag start and stop blocks as mixed too (their first two subbands keep
      // the normal window).
      gi.mixed_block_flag = gi.block_type != 0 ? rnd.Below(2) : 0;
      gi.active_subbands = rnd.Below(33);
      Doubles<576> a;
      rnd.Fill(a.data(), 576, 0.5, true);
      Doubles<576> b = a;
      const DspKernels& previous = ReplaceDspKernelsForTesting(*sse2_);
      ImdctGranule(a.data(), overlapA.data(), gi);
      ReplaceDspKernelsForTesting(*k);
      ImdctGranule(b.data(), overlapB.data(), gi);
      ReplaceDspKernelsForTesting(previous);
      ExpectSameBits(a, b, std::string(k->name) + " samples, granule " + std::to_string(granule));
      ExpectSameBits(overlapA, overlapB, std::string(k->name) + " overlap, granule " + std::to_string(granule));
    }
  }
}

TEST_F(WideKernelsTest, GranuleSequencesSynthesiseIdentically) {
  // Several granules in a row through SynthesizeGranule with each table: the ring,
  // its position and the samples must stay the same throughout.
  kxtest::Random rnd(23);
  for (const DspKernels* k : wide_) {
    for (uint32_t bps : {2u, 8u}) {
      Doubles<1024> ringA{}, ringB{};
      uint32_t posA = 0, posB = 0;
      for (int granule = 0; granule < 40; ++granule) {
        Doubles<576> hybrid;
        rnd.Fill(hybrid.data(), 576, granule % 5 == 0 ? 3.0 : 0.4, true);
        alignas(16) uint8_t outA[576 * 8], outB[576 * 8];
        const DspKernels& previous = ReplaceDspKernelsForTesting(*sse2_);
        SynthesizeGranule(hybrid.data(), ringA.data(), &posA, bps, outA);
        ReplaceDspKernelsForTesting(*k);
        SynthesizeGranule(hybrid.data(), ringB.data(), &posB, bps, outB);
        ReplaceDspKernelsForTesting(previous);
        ASSERT_EQ(posA, posB);
        ASSERT_EQ(0, std::memcmp(outA, outB, 576 * bps)) << k->name << " granule " << granule << " bps " << bps;
        ExpectSameBits(ringA, ringB, std::string(k->name) + " ring after granule " + std::to_string(granule));
      }
    }
  }
}

TEST_F(WideKernelsTest, WholeStreamsDecodeIdenticallyWithEachTable) {
  const std::string dir = std::string(KX_TEST_DATA_DIR) + "/mp3/";
  for (const DspKernels* k : wide_) {
    for (const char* name : {"m1_44100_joint_cbr.mp3", "m1_48000_stereo_vbr.mp3", "m2_24000_joint_vbr.mp3",
                             "m25_8000_joint_abr.mp3", "m1_44100_emph5015.mp3", "m2_16000_mono_cbr.mp3"}) {
      const auto bits = kxtest::ReadFile(dir + name);
      ASSERT_FALSE(bits.empty()) << name;
      for (uint32_t bps : {2u, 8u}) {
        const std::vector<uint8_t> pcm[2] = {kxtest::DecodeWithKernels(*sse2_, bits, bps),
                                             kxtest::DecodeWithKernels(*k, bits, bps)};
        ASSERT_GT(pcm[0].size(), 10000u) << name;
        ASSERT_EQ(pcm[0].size(), pcm[1].size()) << name;
        EXPECT_EQ(0, std::memcmp(pcm[0].data(), pcm[1].data(), pcm[0].size()))
            << k->name << " " << name << " bytes per sample " << bps;
      }
    }
  }
}

}  // namespace
}  // namespace kxmp3
