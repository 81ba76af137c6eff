// PCM output: the de-emphasis coefficients, the four de-emphasis variants (priming,
// state across granules, switching coefficient sets, truncation and saturation of the
// 16-bit variants), and the final layout (mono copy, interleaving of both formats).
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "dsp_test_util.h"
#include "engine/output.h"
#include "engine/engine_state.h"
#include "engine/tables.h"

namespace kxmp3 {
namespace {

using kxtest::Doubles;

class OutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kxtest::EnsureDecoderTables();
    state_ = std::make_unique<EngineState>();
    SetupDeemphasis(*state_, 44100);
  }
  EngineState& state() { return *state_; }
  const DeemphasisCoefficients& j17() { return state_->deemphasis[0]; }
  const DeemphasisCoefficients& ms5015() { return state_->deemphasis[1]; }

 private:
  std::unique_ptr<EngineState> state_;
};

// The filter written out sample by sample over a whole signal, with the coefficient
// set of each sample, primed from the first sample.
std::vector<double> ReferenceFilter(const std::vector<double>& x, const std::vector<const DeemphasisCoefficients*>& c) {
  std::vector<double> y(x.size());
  double prevIn = x[0], prevOut = x[0];
  for (size_t n = 0; n < x.size(); ++n) {
    y[n] = c[n]->b0 * x[n] + c[n]->b1 * prevIn + c[n]->a * prevOut;
    prevIn = x[n];
    prevOut = y[n];
  }
  return y;
}

int16_t Truncated(double y) {
  if (!(y > -32768.0)) return -32768;
  if (y >= 32767.0) return 32767;
  return static_cast<int16_t>(std::trunc(y));
}

// --- Coefficients ---

TEST_F(OutputTest, CcittJ17CoefficientsAreTheGivenDoubles) {
  EXPECT_EQ(0x3FE0BA56F5910E71ull, std::bit_cast<uint64_t>(j17().b0));
  EXPECT_EQ(0x3FE0BA56F5910E71ull, std::bit_cast<uint64_t>(j17().b1));
  EXPECT_EQ(0x3F863B99BD606A31ull, std::bit_cast<uint64_t>(j17().a));
  EXPECT_EQ(0.5227465435240913, j17().b0);
  EXPECT_EQ(0.010855866519752318, j17().a);
  // The same for every sampling rate.
  auto other = std::make_unique<EngineState>();
  SetupDeemphasis(*other, 8000);
  EXPECT_EQ(0, std::memcmp(&other->deemphasis[0], &j17(), sizeof(DeemphasisCoefficients)));
}

TEST_F(OutputTest, FiftyFifteenCoefficientsAt44100) {
  EXPECT_NEAR(0.43123, ms5015().b0, 1e-5);
  EXPECT_NEAR(-0.05629, ms5015().b1, 1e-5);
  EXPECT_NEAR(0.62506, ms5015().a, 1e-5);
  const long double t = std::tan(10000.0L / 44100);
  EXPECT_NEAR(static_cast<double>((1 - t) / (1 + t)), ms5015().a, 1e-15);
  EXPECT_NEAR(static_cast<double>(0.3L + 0.7L * t / (1 + t)), ms5015().b0, 1e-15);
  // Unity gain at DC: b0 + b1 + a = 1.
  EXPECT_NEAR(1.0, ms5015().b0 + ms5015().b1 + ms5015().a, 1e-15);
}

TEST_F(OutputTest, FiftyFifteenFollowsTheSamplingRate) {
  for (uint32_t rate : {8000u, 22050u, 32000u, 48000u}) {
    auto st = std::make_unique<EngineState>();
    SetupDeemphasis(*st, rate);
    const double t = DeemphasisTangent(rate);  // tan(10000 / rate): see the tables' tests
    EXPECT_EQ((1.0 - t) / (1.0 + t), st->deemphasis[1].a) << rate;
    EXPECT_NEAR(1.0, st->deemphasis[1].b0 + st->deemphasis[1].b1 + st->deemphasis[1].a, 1e-15) << rate;
  }
}

TEST_F(OutputTest, SetupClearsTheFilterState) {
  state().deemphasisState.primed = 1;
  state().deemphasisState.prevIn[1] = 5.0;
  state().deemphasisState.prevOut[0] = -3.0;
  SetupDeemphasis(state(), 44100);
  EXPECT_EQ(0u, state().deemphasisState.primed);
  for (int c = 0; c < 2; ++c) {
    EXPECT_EQ(0.0, state().deemphasisState.prevIn[c]);
    EXPECT_EQ(0.0, state().deemphasisState.prevOut[c]);
  }
}

// --- Filter ---

TEST_F(OutputTest, MonoInt16FirstSampleFromAPrimedFilter) {
  for (int code : {1, 3}) {
    SetupDeemphasis(state(), 44100);
    const DeemphasisCoefficients& c = code == 3 ? j17() : ms5015();
    alignas(16) int16_t pcm[576];
    for (int i = 0; i < 576; ++i) pcm[i] = 1000;
    alignas(16) int16_t out[576];
    OutputGranule(pcm, 1, state(), out, 2, code);
    const double y0 = c.b0 * 1000.0 + c.b1 * 1000.0 + c.a * 1000.0;
    EXPECT_EQ(static_cast<int16_t>(std::trunc(y0)), out[0]) << code;
    EXPECT_EQ(1u, state().deemphasisState.primed);
  }
  // J.17 lifts a constant 1000 to 1056.35...: truncated.
  EXPECT_EQ(1056, static_cast<int>(std::trunc(j17().b0 * 1000.0 + j17().b1 * 1000.0 + j17().a * 1000.0)));
}

TEST_F(OutputTest, Int16VariantsTruncateTowardsZeroAndSaturate) {
  for (int16_t level : {int16_t{-1000}, int16_t{32767}, int16_t{-32768}, int16_t{31000}}) {
    SetupDeemphasis(state(), 44100);
    alignas(16) int16_t pcm[576];
    for (int i = 0; i < 576; ++i) pcm[i] = level;
    DeemphasisMonoInt16(pcm, state().deemphasisState, j17());
    std::vector<double> x(576, level);
    std::vector<const DeemphasisCoefficients*> c(576, &j17());
    const std::vector<double> y = ReferenceFilter(x, c);
    for (int i = 0; i < 576; ++i) ASSERT_EQ(Truncated(y[i]), pcm[i]) << level << " " << i;
  }
  alignas(16) int16_t pcm[576];
  for (int i = 0; i < 576; ++i) pcm[i] = -1000;
  SetupDeemphasis(state(), 44100);
  DeemphasisMonoInt16(pcm, state().deemphasisState, j17());
  EXPECT_EQ(-1056, pcm[0]);
  for (int i = 0; i < 576; ++i) pcm[i] = 32767;
  SetupDeemphasis(state(), 44100);
  DeemphasisMonoInt16(pcm, state().deemphasisState, j17());
  EXPECT_EQ(32767, pcm[0]);
  for (int i = 0; i < 576; ++i) pcm[i] = -32768;
  SetupDeemphasis(state(), 44100);
  DeemphasisMonoInt16(pcm, state().deemphasisState, j17());
  EXPECT_EQ(-32768, pcm[0]);
}

TEST_F(OutputTest, Int16VariantBoundaries) {
  // With b0 = 1 and nothing else the filter passes its input: the stores at the edges.
  const DeemphasisCoefficients pass{1.0, 0.0, 0.0};
  const DeemphasisCoefficients nan{std::numeric_limits<double>::quiet_NaN(), 0.0, 0.0};
  alignas(16) int16_t pcm[576] = {};
  pcm[0] = -32768;
  pcm[1] = 32767;
  pcm[2] = -5;
  DeemphasisState st{};
  DeemphasisMonoInt16(pcm, st, pass);
  EXPECT_EQ(-32768, pcm[0]);
  EXPECT_EQ(32767, pcm[1]);
  EXPECT_EQ(-5, pcm[2]);
  // Half steps truncate towards zero: 0.5 x 3 = 1.5 -> 1, 0.5 x -3 = -1.5 -> -1.
  const DeemphasisCoefficients half{0.5, 0.0, 0.0};
  pcm[0] = 3;
  pcm[1] = -3;
  DeemphasisMonoInt16(pcm, st, half);
  EXPECT_EQ(1, pcm[0]);
  EXPECT_EQ(-1, pcm[1]);
  // A NaN result stores -32768.
  pcm[0] = 100;
  DeemphasisMonoInt16(pcm, st, nan);
  EXPECT_EQ(-32768, pcm[0]);
}

TEST_F(OutputTest, FloatVariantNeverClipsAndPassesAConstant) {
  Doubles<576> pcm;
  for (int i = 0; i < 576; ++i) pcm[i] = 2.0;
  DeemphasisMonoFloat(pcm.data(), state().deemphasisState, ms5015());
  // Unity DC gain and priming from the first sample: no transient.
  for (int i = 0; i < 576; ++i) EXPECT_NEAR(2.0, pcm[i], 1e-14) << i;
}

TEST_F(OutputTest, StateCarriesOverGranulesAndSilenceStillRunsThroughIt) {
  kxtest::Random rnd(1);
  std::vector<double> x(3 * 576);
  for (size_t i = 0; i < 576 * 2; ++i) x[i] = rnd.Next(0.8);
  // The third granule is silence (a muted frame): it still passes through the filter.
  std::vector<const DeemphasisCoefficients*> c(x.size(), &ms5015());
  const std::vector<double> want = ReferenceFilter(x, c);
  for (int g = 0; g < 3; ++g) {
    Doubles<576> pcm;
    std::memcpy(pcm.data(), x.data() + 576 * g, sizeof pcm);
    Doubles<576> out;
    EXPECT_EQ(0, OutputGranule(pcm.data(), 1, state(), out.data(), 8, 1));
    for (int i = 0; i < 576; ++i) ASSERT_EQ(want[576 * g + i], out[i]) << g << " " << i;
  }
  EXPECT_NE(0.0, want[2 * 576]);  // the silent granule starts from the filter's memory
}

TEST_F(OutputTest, EmphasisCodeSwitchKeepsTheState) {
  kxtest::Random rnd(2);
  std::vector<double> x(2 * 576);
  for (double& v : x) v = rnd.Next(0.5);
  std::vector<const DeemphasisCoefficients*> c(x.size(), &ms5015());
  for (size_t i = 576; i < x.size(); ++i) c[i] = &j17();
  const std::vector<double> want = ReferenceFilter(x, c);
  for (int g = 0; g < 2; ++g) {
    Doubles<576> pcm;
    std::memcpy(pcm.data(), x.data() + 576 * g, sizeof pcm);
    Doubles<576> out;
    OutputGranule(pcm.data(), 1, state(), out.data(), 8, g == 0 ? 1 : 3);
    for (int i = 0; i < 576; ++i) ASSERT_EQ(want[576 * g + i], out[i]) << g << " " << i;
  }
}

TEST_F(OutputTest, NoEmphasisLeavesSamplesAndState) {
  Doubles<576> pcm, out;
  kxtest::Random rnd(3);
  rnd.Fill(pcm.data(), 576);
  const Doubles<576> before = pcm;
  for (uint32_t code : {0u, 2u}) {
    OutputGranule(pcm.data(), 1, state(), out.data(), 8, code);
    EXPECT_EQ(0, std::memcmp(before.data(), out.data(), sizeof out));
    EXPECT_EQ(0u, state().deemphasisState.primed);
  }
}

TEST_F(OutputTest, StereoVariantsKeepOneStatePerChannel) {
  kxtest::Random rnd(4);
  std::vector<double> left(2 * 576), right(2 * 576);
  for (size_t i = 0; i < left.size(); ++i) {
    left[i] = std::round(rnd.Next(20000.0));
    right[i] = std::round(rnd.Next(300.0)) + 5000;
  }
  std::vector<const DeemphasisCoefficients*> c(left.size(), &j17());
  const std::vector<double> wantL = ReferenceFilter(left, c);
  const std::vector<double> wantR = ReferenceFilter(right, c);
  // Float and 16-bit, each over two granules, interleaved by OutputGranule.
  for (uint32_t bps : {8u, 2u}) {
    SetupDeemphasis(state(), 44100);
    for (int g = 0; g < 2; ++g) {
      Doubles<1152> planarF;
      alignas(16) int16_t planarI[1152];
      for (int i = 0; i < 576; ++i) {
        planarF[i] = left[576 * g + i];
        planarF[576 + i] = right[576 * g + i];
        planarI[i] = static_cast<int16_t>(left[576 * g + i]);
        planarI[576 + i] = static_cast<int16_t>(right[576 * g + i]);
      }
      Doubles<1152> outF;
      alignas(16) int16_t outI[1152];
      OutputGranule(bps == 8 ? static_cast<void*>(planarF.data()) : planarI, 2, state(),
                    bps == 8 ? static_cast<void*>(outF.data()) : outI, bps, 3);
      for (int i = 0; i < 576; ++i) {
        if (bps == 8) {
          ASSERT_EQ(wantL[576 * g + i], outF[2 * i]) << g << " " << i;
          ASSERT_EQ(wantR[576 * g + i], outF[2 * i + 1]) << g << " " << i;
        } else if (g == 0) {
          // The 16-bit filter state follows the unquantised output, so the first
          // granule matches the float reference truncated.
          ASSERT_EQ(Truncated(wantL[i]), outI[2 * i]) << i;
          ASSERT_EQ(Truncated(wantR[i]), outI[2 * i + 1]) << i;
        }
      }
    }
  }
}

// --- Layout ---

TEST_F(OutputTest, MonoIsCopied) {
  alignas(16) int16_t pcm[1152], out[1152];
  for (int i = 0; i < 1152; ++i) pcm[i] = static_cast<int16_t>(i * 7 - 3000);
  std::memset(out, 0x55, sizeof out);
  EXPECT_EQ(0, OutputGranule(pcm, 1, state(), out, 2, 0));
  EXPECT_EQ(0, std::memcmp(pcm, out, 576 * 2));
  EXPECT_EQ(0x5555, static_cast<uint16_t>(out[576]));  // nothing past one channel's bytes
  Doubles<576> f, g;
  kxtest::Random rnd(5);
  rnd.Fill(f.data(), 576, 3.0);
  OutputGranule(f.data(), 1, state(), g.data(), 8, 0);
  EXPECT_EQ(0, std::memcmp(f.data(), g.data(), sizeof f));
}

TEST_F(OutputTest, StereoIsInterleaved) {
  alignas(16) int16_t pcm[1152], out[1152];
  for (int i = 0; i < 1152; ++i) pcm[i] = static_cast<int16_t>(i);
  OutputGranule(pcm, 2, state(), out, 2, 0);
  for (int i = 0; i < 576; ++i) {
    ASSERT_EQ(i, out[2 * i]);
    ASSERT_EQ(576 + i, out[2 * i + 1]);
  }
  Doubles<1152> f;
  for (int i = 0; i < 1152; ++i) f[i] = i * 0.25;
  for (int offset : {0, 1}) {
    Doubles<1154> g{};
    OutputGranule(f.data(), 2, state(), g.data() + offset, 8, 0);
    for (int i = 0; i < 576; ++i) {
      ASSERT_EQ(i * 0.25, g[offset + 2 * i]) << offset;
      ASSERT_EQ((576 + i) * 0.25, g[offset + 2 * i + 1]) << offset;
    }
  }
}

}  // namespace
}  // namespace kxmp3
