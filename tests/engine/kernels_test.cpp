// Every SSE2 kernel held to its scalar reference on random input: the two perform the
// same operations in the same order, so the results must be bit-identical (including
// the signs of zeros), and the 16-bit window output identical sample for sample.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "dsp_test_util.h"
#include "engine/dsp_kernels.h"
#include "engine/tables.h"
#include "support/engine/engine_harness.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

class KernelsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kxtest::EnsureDecoderTables();
    sse2_ = Sse2Kernels();
    if (sse2_ == nullptr) GTEST_SKIP() << "this build has no SSE2 kernels to compare";
  }
  const DspKernels& scalar_ = ScalarKernels();
  const DspKernels* sse2_ = nullptr;
};

template <size_t N>
void ExpectSameBits(const Doubles<N>& a, const Doubles<N>& b, const std::string& what) {
  for (size_t i = 0; i < N; ++i) {
    ASSERT_TRUE(kxtest::SameBits(a[i], b[i])) << what << " entry " << i << ": " << a[i] << " vs " << b[i];
  }
}

TEST(KernelChoice, ChosenOnceTheWidestThisProcessorRuns) {
  const DspKernels& first = Dsp();
  EXPECT_EQ(&first, &Dsp());
  if (Avx512Kernels() != nullptr) {
    EXPECT_EQ(std::string("avx512"), first.name);
  } else if (Avx2Kernels() != nullptr) {
    EXPECT_EQ(std::string("avx2"), first.name);
  } else if (Sse2Kernels() != nullptr) {
    EXPECT_EQ(std::string("sse2"), first.name);
  } else {
    EXPECT_EQ(std::string("scalar"), first.name);
  }
  EXPECT_EQ(std::string("scalar"), ScalarKernels().name);
}

TEST(KernelChoice, ReplacementForTestsIsUndone) {
  const DspKernels& chosen = Dsp();
  const DspKernels& previous = ReplaceDspKernelsForTesting(ScalarKernels());
  EXPECT_EQ(&chosen, &previous);
  EXPECT_EQ(&ScalarKernels(), &Dsp());
  ReplaceDspKernelsForTesting(previous);
  EXPECT_EQ(&chosen, &Dsp());
}

TEST_F(KernelsTest, Dct32) {
  kxtest::Random rnd(1);
  for (int trial = 0; trial < 2000; ++trial) {
    Doubles<32> s;
    rnd.Fill(s.data(), 32, trial % 3 ? 1.0 : 1e6, true);
    Doubles<64> a, b;
    scalar_.dct32(s.data(), a.data());
    sse2_->dct32(s.data(), b.data());
    ExpectSameBits(a, b, "dct32 trial " + std::to_string(trial));
  }
  // All zeros, and all negative zeros.
  for (double z : {0.0, -0.0}) {
    Doubles<32> s;
    for (int i = 0; i < 32; ++i) s[i] = z;
    Doubles<64> a, b;
    scalar_.dct32(s.data(), a.data());
    sse2_->dct32(s.data(), b.data());
    ExpectSameBits(a, b, "dct32 zeros");
  }
}

TEST_F(KernelsTest, WindowFloatAndInt16) {
  kxtest::Random rnd(2);
  for (int trial = 0; trial < 500; ++trial) {
    Doubles<1024> ring;
    // Scales from quiet to far beyond full scale, so that saturation and sums beyond
    // 32 bits are met too.
    const double scale = trial % 4 == 0 ? 1e6 : trial % 4 == 1 ? 2.0 : trial % 4 == 2 ? 0.3 : 1e11;
    rnd.Fill(ring.data(), 1024, scale, true);
    const uint32_t* row = kSynthesisRingIndex[trial % 16];
    Doubles<32> fa, fb;
    scalar_.windowFloat(fa.data(), kxtest::Taps(ring.data(), row).data());
    sse2_->windowFloat(fb.data(), kxtest::Taps(ring.data(), row).data());
    ExpectSameBits(fa, fb, "window float trial " + std::to_string(trial));
    alignas(16) int16_t ia[32], ib[32];
    scalar_.windowInt16(ia, kxtest::Taps(ring.data(), row).data());
    sse2_->windowInt16(ib, kxtest::Taps(ring.data(), row).data());
    for (int n = 0; n < 32; ++n) ASSERT_EQ(ia[n], ib[n]) << "trial " << trial << " n " << n;
  }
}

TEST_F(KernelsTest, WindowInt16UnalignedOutput) {
  kxtest::Random rnd(3);
  Doubles<1024> ring;
  rnd.Fill(ring.data(), 1024, 0.5);
  alignas(16) int16_t a[34], b[34];
  scalar_.windowInt16(a + 1, kxtest::Taps(ring.data(), kSynthesisRingIndex[3]).data());
  sse2_->windowInt16(b + 1, kxtest::Taps(ring.data(), kSynthesisRingIndex[3]).data());
  for (int n = 1; n < 33; ++n) EXPECT_EQ(a[n], b[n]) << n;
}

// The two-channel windows give each channel's one-channel window output, frame by
// frame, at any byte address (scalar and SSE2 alike; SSE2 also equals scalar).
TEST_F(KernelsTest, WindowStereoInterleavesTheOneChannelWindows) {
  kxtest::Random rnd(31);
  for (const DspKernels* k : {&scalar_, sse2_}) {
    for (int trial = 0; trial < 300; ++trial) {
      Doubles<1024> ring0, ring1;
      const double scale = trial % 3 == 0 ? 1e6 : trial % 3 == 1 ? 2.0 : 0.3;
      rnd.Fill(ring0.data(), 1024, scale, true);
      rnd.Fill(ring1.data(), 1024, scale, true);
      const uint32_t* row = kSynthesisRingIndex[trial % 16];
      const size_t off = trial % 7;  // bytes off alignment
      Doubles<32> f0, f1;
      scalar_.windowFloat(f0.data(), kxtest::Taps(ring0.data(), row).data());
      scalar_.windowFloat(f1.data(), kxtest::Taps(ring1.data(), row).data());
      alignas(16) uint8_t fbytes[64 * 8 + 16];
      k->windowStereoFloat(fbytes + off, kxtest::Taps(ring0.data(), row).data(), kxtest::Taps(ring1.data(), row).data());
      for (int n = 0; n < 32; ++n) {
        double l, r;
        std::memcpy(&l, fbytes + off + 16 * n, 8);
        std::memcpy(&r, fbytes + off + 16 * n + 8, 8);
        ASSERT_TRUE(kxtest::SameBits(l, f0[n]) && kxtest::SameBits(r, f1[n])) << k->name << " trial " << trial;
      }
      alignas(16) int16_t i0[32], i1[32];
      scalar_.windowInt16(i0, kxtest::Taps(ring0.data(), row).data());
      scalar_.windowInt16(i1, kxtest::Taps(ring1.data(), row).data());
      alignas(16) uint8_t ibytes[64 * 2 + 16];
      k->windowStereoInt16(ibytes + off, kxtest::Taps(ring0.data(), row).data(), kxtest::Taps(ring1.data(), row).data());
      for (int n = 0; n < 32; ++n) {
        int16_t frame[2];
        std::memcpy(frame, ibytes + off + 4 * n, 4);
        ASSERT_EQ(frame[0], i0[n]) << k->name << " trial " << trial << " n " << n;
        ASSERT_EQ(frame[1], i1[n]) << k->name << " trial " << trial << " n " << n;
      }
    }
  }
}

TEST_F(KernelsTest, Imdct36) {
  kxtest::Random rnd(4);
  for (int trial = 0; trial < 2000; ++trial) {
    Doubles<18> la, lb;
    rnd.Fill(la.data(), 18, trial % 2 ? 1.0 : 1e5, true);
    lb = la;
    const int type = (trial % 3 == 2) ? 3 : trial % 3;
    Doubles<36> a, b;
    scalar_.imdct36(la.data(), a.data(), gTables.imdctWindow[type]);
    sse2_->imdct36(lb.data(), b.data(), gTables.imdctWindow[type]);
    ExpectSameBits(a, b, "imdct36 trial " + std::to_string(trial));
    ExpectSameBits(la, lb, "imdct36 lines trial " + std::to_string(trial));
  }
}

TEST_F(KernelsTest, Imdct12) {
  kxtest::Random rnd(5);
  for (int trial = 0; trial < 2000; ++trial) {
    Doubles<18> lines;
    rnd.Fill(lines.data(), 18, trial % 2 ? 1.0 : 1e5, true);
    Doubles<36> a, b;
    scalar_.imdct12(lines.data(), a.data());
    sse2_->imdct12(lines.data(), b.data());
    ExpectSameBits(a, b, "imdct12 trial " + std::to_string(trial));
  }
}

TEST_F(KernelsTest, AliasReduce) {
  kxtest::Random rnd(6);
  for (uint32_t boundaries = 1; boundaries <= 31; ++boundaries) {
    Doubles<576> a;
    rnd.Fill(a.data(), 576, 100.0, true);
    Doubles<576> b = a;
    scalar_.aliasReduce(a.data(), a.data() + 18, boundaries);
    sse2_->aliasReduce(b.data(), b.data() + 18, boundaries);
    ExpectSameBits(a, b, "alias boundaries " + std::to_string(boundaries));
  }
}

TEST_F(KernelsTest, MidSide) {
  kxtest::Random rnd(7);
  for (uint32_t subbands = 1; subbands <= 32; ++subbands) {
    Doubles<1152> a;
    rnd.Fill(a.data(), 1152, 100.0, true);
    Doubles<1152> b = a;
    scalar_.midSide(a.data(), a.data() + 576, subbands);
    sse2_->midSide(b.data(), b.data() + 576, subbands);
    ExpectSameBits(a, b, "mid/side subbands " + std::to_string(subbands));
  }
}

TEST_F(KernelsTest, InterleaveFloatAlignedAndUnaligned) {
  kxtest::Random rnd(8);
  Doubles<1152> planar;
  rnd.Fill(planar.data(), 1152, 1.0, true);
  Doubles<1154> a{}, b{};
  for (int offset : {0, 1}) {
    // offset 1 puts the destination 8 bytes off 16-byte alignment.
    scalar_.interleaveFloat(a.data() + offset, planar.data());
    sse2_->interleaveFloat(b.data() + offset, planar.data());
    ExpectSameBits(a, b, "interleave offset " + std::to_string(offset));
    for (int i = 0; i < 576; ++i) {
      ASSERT_TRUE(kxtest::SameBits(planar[i], b[offset + 2 * i]));
      ASSERT_TRUE(kxtest::SameBits(planar[576 + i], b[offset + 2 * i + 1]));
    }
  }
}

TEST_F(KernelsTest, WholeStreamsDecodeIdenticallyWithEitherTable) {
  // Every kernel at once, in the order and with the data of real decoding: joint
  // stereo (mid/side and intensity), all three versions, de-emphasis, both formats.
  const std::string dir = std::string(KX_TEST_DATA_DIR) + "/mp3/";
  for (const char* name : {"m1_44100_joint_cbr.mp3", "m1_48000_stereo_vbr.mp3", "m2_24000_joint_vbr.mp3",
                           "m25_8000_joint_abr.mp3", "m1_44100_emph5015.mp3", "m2_16000_mono_cbr.mp3"}) {
    const auto bits = kxtest::ReadFile(dir + name);
    ASSERT_FALSE(bits.empty()) << name;
    for (uint32_t bps : {2u, 8u}) {
      const std::vector<uint8_t> pcm[2] = {kxtest::DecodeWithKernels(scalar_, bits, bps),
                                           kxtest::DecodeWithKernels(*sse2_, bits, bps)};
      ASSERT_GT(pcm[0].size(), 10000u) << name;
      ASSERT_EQ(pcm[0].size(), pcm[1].size()) << name;
      EXPECT_EQ(0, std::memcmp(pcm[0].data(), pcm[1].data(), pcm[0].size())) << name << " bytes per sample " << bps;
    }
  }
}

}  // namespace
}  // namespace kxmp3
