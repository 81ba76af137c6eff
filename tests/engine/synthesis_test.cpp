// Polyphase synthesis: the fast matrixing against the standard's sum, whole granules
// against the standard's shift-register filterbank (V, U, W) in long double, the ring
// positions, and the 16-bit conversion at its edges (rounding to even, saturation,
// sums beyond 32 bits) through the window kernels.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "dsp_test_util.h"
#include "engine/dsp_kernels.h"
#include "engine/engine_types.h"
#include "engine/synthesis.h"
#include "engine/tables.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

class SynthesisTest : public ::testing::Test {
 protected:
  void SetUp() override { kxtest::EnsureDecoderTables(); }
};

TEST_F(SynthesisTest, FastMatrixingMatchesTheDefiningSum) {
  kxtest::Random rnd(32);
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    long double worst = 0;
    for (int trial = 0; trial < 1000; ++trial) {
      Doubles<32> s;
      Doubles<64> v;
      rnd.Fill(s.data(), 32, trial % 2 ? 1.0 : 1e5);
      long double want[64];
      kxtest::DirectMatrixing(s.data(), want);
      for (int i = 17; i < 64; ++i) want[i] = -want[i];  // stored without their signs
      k->dct32(s.data(), v.data());
      worst = std::fmax(worst, kxtest::RelativeError(v.data(), want, 64));
      EXPECT_EQ(0.0, v[16]);
    }
    EXPECT_LT(worst, 1e-12L) << k->name;
  }
}

TEST_F(SynthesisTest, FastMatrixingOfSingleSubbands) {
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    for (int sb = 0; sb < 32; ++sb) {
      Doubles<32> s{};
      Doubles<64> v;
      s[sb] = 1.0;
      long double want[64];
      kxtest::DirectMatrixing(s.data(), want);
      for (int i = 17; i < 64; ++i) want[i] = -want[i];
      k->dct32(s.data(), v.data());
      EXPECT_LT(kxtest::RelativeError(v.data(), want, 64), 1e-13L) << k->name << " subband " << sb;
    }
  }
}

// The standard's synthesis in long double: a 1024-value shift register V, 64 new values
// per slot, U gathered from V, windowed by D and summed.
struct ReferenceSynthesis {
  long double V[1024] = {};

  void Slot(const double* s, long double* out) {
    for (int i = 1023; i >= 64; --i) V[i] = V[i - 64];
    long double fresh[64];
    kxtest::DirectMatrixing(s, fresh);
    for (int i = 0; i < 64; ++i) V[i] = fresh[i];
    long double U[512];
    for (int i = 0; i < 8; ++i) {
      for (int j = 0; j < 32; ++j) {
        U[64 * i + j] = V[128 * i + j];
        U[64 * i + 32 + j] = V[128 * i + 96 + j];
      }
    }
    for (int j = 0; j < 32; ++j) {
      long double sum = 0;
      for (int i = 0; i < 16; ++i) sum += U[j + 32 * i] * (kSynthesisWindowD[j + 32 * i] / 65536.0L);
      out[j] = sum;
    }
  }

  // One granule: 18 slots, odd slots of odd subbands negated.
  void Granule(const double* hybrid, long double* out) {
    for (int t = 0; t < 18; ++t) {
      double s[32];
      for (int sb = 0; sb < 32; ++sb) s[sb] = (sb % 2 && t % 2 ? -1 : 1) * hybrid[18 * sb + t];
      Slot(s, out + 32 * t);
    }
  }
};

TEST_F(SynthesisTest, GranulesMatchTheStandardFilterbank) {
  kxtest::Random rnd(576);
  ReferenceSynthesis ref;
  Doubles<1024> ring{};
  uint32_t position = 0;
  // Four granules: the ring wraps (16 positions) more than four times.
  for (int g = 0; g < 4; ++g) {
    Doubles<576> hybrid;
    Doubles<576> out;
    rnd.Fill(hybrid.data(), 576, 0.5);
    long double want[576];
    ref.Granule(hybrid.data(), want);
    SynthesizeGranule(hybrid.data(), ring.data(), &position, 8, out.data());
    EXPECT_LT(kxtest::RelativeError(out.data(), want, 576), 1e-12L) << "granule " << g;
  }
}

TEST_F(SynthesisTest, RingPositions) {
  // A granule leaves its newest row first (position 0) from any position; a slot
  // makes its row the newest, one row back on the ring's 15.
  for (uint32_t start = 0; start < 1024; start += 64) {
    Doubles<1024> ring{};
    Doubles<576> hybrid{}, out;
    uint32_t position = start;
    SynthesizeGranule(hybrid.data(), ring.data(), &position, 8, out.data());
    EXPECT_EQ(0u, position) << start;
    uint32_t p = start;
    Doubles<32> s{};
    SynthesizeSlot(s.data(), ring.data(), &p, 8, out.data());
    EXPECT_EQ(64 * ((start / 64 + 14) % 15), p) << start;
  }
}

TEST_F(SynthesisTest, SlotMakesItsMatrixingTheNewestRow) {
  kxtest::Random rnd(3);
  Doubles<1024> ring;
  rnd.Fill(ring.data(), 1024);
  uint32_t position = 128;
  Doubles<64> before[15];
  for (uint32_t m = 1; m <= 15; ++m) std::memcpy(before[m - 1].data(), SynthesisRingRow(ring.data(), position, m), 512);
  Doubles<32> s;
  rnd.Fill(s.data(), 32);
  Doubles<64> v;
  Dsp().dct32(s.data(), v.data());
  Doubles<32> out;
  SynthesizeSlot(s.data(), ring.data(), &position, 8, out.data());
  for (int i = 0; i < 64; ++i) EXPECT_TRUE(kxtest::SameBits(v[i], SynthesisRingRow(ring.data(), position, 1)[i])) << i;
  for (uint32_t m = 2; m <= 15; ++m) {
    EXPECT_EQ(0, std::memcmp(before[m - 2].data(), SynthesisRingRow(ring.data(), position, m), 512)) << m;
  }
}

TEST_F(SynthesisTest, FrequencyInversionNegatesOddSlotsOfOddSubbands) {
  // A hybrid granule and its copy with odd subbands' odd slots negated, synthesised
  // with inversion: the copy equals synthesis without inversion of the original.
  kxtest::Random rnd(4);
  Doubles<576> hybrid;
  rnd.Fill(hybrid.data(), 576);
  Doubles<1024> ring{};
  uint32_t position = 0;
  Doubles<576> out;
  SynthesizeGranule(hybrid.data(), ring.data(), &position, 8, out.data());

  Doubles<1024> ring2{};
  uint32_t position2 = 0;
  Doubles<576> out2;
  for (int t = 0; t < 18; ++t) {
    Doubles<32> s;
    for (int sb = 0; sb < 32; ++sb) s[sb] = (sb % 2 && t % 2) ? -hybrid[18 * sb + t] : hybrid[18 * sb + t];
    SynthesizeSlot(s.data(), ring2.data(), &position2, 8, out2.data() + 32 * t);
  }
  for (int i = 0; i < 576; ++i) EXPECT_TRUE(kxtest::SameBits(out[i], out2[i])) << i;
}

TEST_F(SynthesisTest, GranuleEqualsItsSlotsOnTheRingAtEveryPosition) {
  // The samples a granule gives and the rows it leaves on the ring are those of its 18
  // slots done one by one on the ring.
  kxtest::Random rnd(18);
  for (uint32_t start = 0; start < 1024; start += 64) {
    Doubles<1024> ring, ring2;
    rnd.Fill(ring.data(), 1024, 0.3);
    ring2 = ring;
    uint32_t position = start, position2 = start;
    Doubles<576> hybrid, out, out2;
    rnd.Fill(hybrid.data(), 576, 0.5, true);
    SynthesizeGranule(hybrid.data(), ring.data(), &position, 8, out.data());
    for (int t = 0; t < 18; ++t) {
      Doubles<32> s;
      for (int sb = 0; sb < 32; ++sb) s[sb] = (sb % 2 && t % 2) ? -hybrid[18 * sb + t] : hybrid[18 * sb + t];
      SynthesizeSlot(s.data(), ring2.data(), &position2, 8, out2.data() + 32 * t);
    }
    for (int i = 0; i < 576; ++i) ASSERT_TRUE(kxtest::SameBits(out[i], out2[i])) << start << " " << i;
    for (uint32_t m = 1; m <= 15; ++m) {
      ASSERT_EQ(0, std::memcmp(SynthesisRingRow(ring.data(), position, m), SynthesisRingRow(ring2.data(), position2, m),
                               512))
          << start << " row " << m;
    }
  }
}

TEST_F(SynthesisTest, GranulesGiveTheSameSamplesWhereverTheRingLies) {
  // The ring keeps its rows on 64-byte boundaries whatever its own (16-byte)
  // alignment: rings 0, 16, 32 and 48 bytes past a boundary, cleared, give the same
  // samples granule after granule.
  kxtest::Random rnd(64);
  Doubles<1024 + 8> area[4];
  double* rings[4];
  uint32_t positions[4] = {0, 0, 0, 0};
  for (int r = 0; r < 4; ++r) {
    rings[r] = area[r].data() + 2 * r;
    ClearSynthesisRing(rings[r]);
  }
  for (int g = 0; g < 4; ++g) {
    Doubles<576> hybrid;
    rnd.Fill(hybrid.data(), 576, 0.5, true);
    Doubles<576> out[4];
    for (int r = 0; r < 4; ++r) SynthesizeGranule(hybrid.data(), rings[r], &positions[r], 8, out[r].data());
    for (int r = 1; r < 4; ++r) {
      EXPECT_EQ(0, std::memcmp(out[0].data(), out[r].data(), sizeof(out[0]))) << "granule " << g << " ring " << r;
    }
  }
}

TEST_F(SynthesisTest, StereoGranuleIsBothChannelGranulesInterleaved) {
  // Both channels at once, with ring positions of their own (a single-channel frame
  // earlier in the stream moves only channel 0's), written at an odd byte address.
  kxtest::Random rnd(19);
  for (uint32_t bps : {2u, 8u}) {
    for (int g = 0; g < 6; ++g) {
      Doubles<1024> rings[2], rings2[2];
      rnd.Fill(rings[0].data(), 1024, 0.3);
      rnd.Fill(rings[1].data(), 1024, 0.3);
      rings2[0] = rings[0];
      rings2[1] = rings[1];
      uint32_t positions[2] = {64u * g, 64u * ((g * 5) % 16)};
      uint32_t positions2[2] = {positions[0], positions[1]};
      Doubles<576> hybrid[2];
      rnd.Fill(hybrid[0].data(), 576, 0.5, true);
      rnd.Fill(hybrid[1].data(), 576, 2.0, true);
      Doubles<1152> planar[2];
      for (int ch = 0; ch < 2; ++ch) {
        SynthesizeGranule(hybrid[ch].data(), rings2[ch].data(), &positions2[ch], bps, planar[ch].data());
      }
      alignas(16) uint8_t stereo[576 * 2 * 8 + 1];
      SynthesizeStereoGranule(hybrid[0].data(), hybrid[1].data(), rings[0].data(), rings[1].data(), &positions[0],
                              &positions[1], bps, stereo + 1);
      for (int ch = 0; ch < 2; ++ch) {
        EXPECT_EQ(positions[ch], positions2[ch]);
        for (int i = 0; i < 1024; ++i) ASSERT_TRUE(kxtest::SameBits(rings[ch][i], rings2[ch][i])) << ch << " " << i;
        const uint8_t* samples = reinterpret_cast<const uint8_t*>(planar[ch].data());
        for (int n = 0; n < 576; ++n) {
          ASSERT_EQ(0, std::memcmp(stereo + 1 + (2 * n + ch) * bps, samples + n * bps, bps))
              << "bytes per sample " << bps << " channel " << ch << " sample " << n;
        }
      }
    }
  }
}

TEST_F(SynthesisTest, SixteenBitOutputIsTheFloatSumScaledAndConverted) {
  // The 16-bit window is the float window times 2^15, so every product and sum is the
  // float one times 2^15 exactly; the conversion then rounds and saturates.
  kxtest::Random rnd(16);
  Doubles<1024> ringF{}, ringI{};
  uint32_t posF = 0, posI = 0;
  for (int g = 0; g < 3; ++g) {
    Doubles<576> hybrid, outF, hybridCopy;
    rnd.Fill(hybrid.data(), 576, g == 2 ? 3.0 : 0.4);  // the last granule clips
    hybridCopy = hybrid;
    alignas(16) int16_t outI[576];
    SynthesizeGranule(hybrid.data(), ringF.data(), &posF, 8, outF.data());
    SynthesizeGranule(hybridCopy.data(), ringI.data(), &posI, 2, outI);
    int clipped = 0;
    for (int i = 0; i < 576; ++i) {
      EXPECT_EQ(ConvertSampleToInt16(outF[i] * 32768.0), outI[i]) << g << " " << i;
      clipped += std::fabs(outF[i]) >= 1.0;
    }
    if (g == 2) {
      EXPECT_GT(clipped, 0);
    }
  }
}

// Window kernels at chosen sums: only ring cell (row[0] + 1) is non-zero, and the window
// entry it meets is D[1] = -1, that is -0.5 in the 16-bit copy and -2^-16 in the float
// copy, so output 1 is exactly -0.5 x cell (16-bit) or -2^-16 x cell (float).
class WindowEdgeTest : public SynthesisTest {
 protected:
  int16_t Int16Sum(const DspKernels& k, double sum) {
    Doubles<1024> ring{};
    const uint32_t* row = kSynthesisRingIndex[5];
    ring[row[0] + 1] = -2.0 * sum;
    alignas(16) int16_t out[32];
    k.windowInt16(out, kxtest::Taps(ring.data(), row).data());
    for (int n = 0; n < 32; ++n) {
      if (n != 1) {
        EXPECT_EQ(0, out[n]) << n;
      }
    }
    return out[1];
  }
  double FloatOfCell(const DspKernels& k, double cell) {
    Doubles<1024> ring{};
    const uint32_t* row = kSynthesisRingIndex[5];
    ring[row[0] + 1] = cell;
    Doubles<32> out;
    k.windowFloat(out.data(), kxtest::Taps(ring.data(), row).data());
    return out[1];
  }
  int16_t Int16OfCell(const DspKernels& k, double cell) {
    Doubles<1024> ring{};
    const uint32_t* row = kSynthesisRingIndex[5];
    ring[row[0] + 1] = cell;
    alignas(16) int16_t out[32];
    k.windowInt16(out, kxtest::Taps(ring.data(), row).data());
    return out[1];
  }
};

TEST_F(WindowEdgeTest, RoundsToNearestEvenAndSaturates) {
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    SCOPED_TRACE(k->name);
    EXPECT_EQ(32767, Int16Sum(*k, 32767.5));    // rounds to 32768, saturates
    EXPECT_EQ(-32768, Int16Sum(*k, -32768.5));  // rounds to even -32768
    EXPECT_EQ(32766, Int16Sum(*k, 32766.5));    // ties go to the even neighbour
    EXPECT_EQ(0, Int16Sum(*k, 0.5));
    EXPECT_EQ(2, Int16Sum(*k, 1.5));
    EXPECT_EQ(2, Int16Sum(*k, 2.5));
    EXPECT_EQ(-2, Int16Sum(*k, -2.5));
    EXPECT_EQ(0, Int16Sum(*k, -0.5));
    EXPECT_EQ(1234, Int16Sum(*k, 1234.25));
    EXPECT_EQ(-1235, Int16Sum(*k, -1234.75));
    EXPECT_EQ(32767, Int16Sum(*k, 40000.0));
    EXPECT_EQ(-32768, Int16Sum(*k, -40000.0));
  }
}

TEST_F(WindowEdgeTest, SumsBeyondThirtyTwoBitsBecomeMostNegative) {
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    SCOPED_TRACE(k->name);
    EXPECT_EQ(32767, Int16Sum(*k, 2147483647.0));    // still a 32-bit value: saturates up
    EXPECT_EQ(-32768, Int16Sum(*k, 2147483648.0));   // beyond: the most negative value
    EXPECT_EQ(-32768, Int16Sum(*k, 2147483647.5));   // rounds (to even) beyond
    EXPECT_EQ(-32768, Int16Sum(*k, 1e12));
    EXPECT_EQ(-32768, Int16Sum(*k, -1e12));
    EXPECT_EQ(-32768, Int16Sum(*k, std::numeric_limits<double>::infinity()));
    EXPECT_EQ(-32768, Int16Sum(*k, std::numeric_limits<double>::quiet_NaN()));
  }
}

TEST_F(WindowEdgeTest, FullScaleFloatIsFullScaleInteger) {
  for (const DspKernels* k : kxtest::ScalarAndSse2Kernels()) {
    SCOPED_TRACE(k->name);
    EXPECT_EQ(1.0, FloatOfCell(*k, -65536.0));
    EXPECT_EQ(32767, Int16OfCell(*k, -65536.0));  // +32768 saturates
    EXPECT_EQ(-1.0, FloatOfCell(*k, 65536.0));
    EXPECT_EQ(-32768, Int16OfCell(*k, 65536.0));
    // Float output is never clipped.
    EXPECT_EQ(2.0, FloatOfCell(*k, -131072.0));
    EXPECT_EQ(-7.5, FloatOfCell(*k, 491520.0));
  }
}

TEST_F(SynthesisTest, ConvertSampleToInt16Directly) {
  EXPECT_EQ(32767, ConvertSampleToInt16(32767.5));
  EXPECT_EQ(-32768, ConvertSampleToInt16(-32768.5));
  EXPECT_EQ(32767, ConvertSampleToInt16(32767.0));
  EXPECT_EQ(-32768, ConvertSampleToInt16(-32768.0));
  EXPECT_EQ(-32767, ConvertSampleToInt16(-32767.4));
  EXPECT_EQ(4, ConvertSampleToInt16(3.5));
  EXPECT_EQ(-4, ConvertSampleToInt16(-3.5));
  EXPECT_EQ(-32768, ConvertSampleToInt16(3e9));
  EXPECT_EQ(-32768, ConvertSampleToInt16(std::numeric_limits<double>::quiet_NaN()));
}

}  // namespace
}  // namespace kxmp3
