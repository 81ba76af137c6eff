// IMDCT, windowing and overlap-add of one granule-channel (the second stage of the
// hybrid filterbank), with the scalar reference versions of the 36-point and 12-point
// kernels and their constants.
//
// The 36-point transform x[i] = sum_k X[k] cos(pi/72 (2 i + 19)(2 k + 1)) is computed
// through an 18-point DCT-IV: with y[j] = sum_k X[k] cos(pi/72 (2 j + 1)(2 k + 1)),
//   x[0..8] = y[9..17], x[9..26] = -y[17..0], x[27..35] = -y[0..8],
// and 2 cos(pi/72 (2 j + 1)) y[j] = sum_k Z[k] cos(pi/36 (2 j + 1) k) with Z[k] = X[k] +
// X[k-1] (a DCT-III). Splitting that into even k and odd k (the odd half takes the same
// identity once more: Z'[2m+1] = Z[2m+1] + Z[2m-1], then 1 / (2 cos(pi/36 (2 j + 1))))
// leaves two nine-point DCT-IIIs that run side by side as the two halves of a pair.
// The nine-point transforms use doubled cosines (2 cos(k pi / 18)) and so produce twice
// their values, except the middle output (j = 4), which needs no multiplication and
// comes out at single scale; the stored windows (see the tables) are divided by
// cos(pi/72 (2 i + 19)), which turns the x[] mapping above into a plain permutation,
// and halved once more except at the four entries fed by the middle output.
//
// The 12-point transform is the same construction one size down: a 6-point DCT-IV
// through Z[k] = X[k] + X[k-1], Z'[2m+1] = Z[2m+1] + Z[2m-1], two three-point
// DCT-IIIs side by side, the combination factors 1 / (2 cos(pi/12 (2 j + 1))) and the
// post factors 1 / (2 cos(pi/24 (2 j + 1))), then the short window.
#include "imdct.h"

#include <cmath>
#include <cstring>

#include "dsp_kernels.h"
#include "tables.h"

namespace kxmp3 {

namespace {

constexpr double kPi = 3.14159265358979323846;

ImdctConstants MakeImdctConstants() {
  ImdctConstants c{};
  auto pair = [](double* p, double v) { p[0] = p[1] = v; };
  pair(c.c2, 2.0 * std::cos(kPi / 9.0));
  pair(c.c4, 2.0 * std::cos(2.0 * kPi / 9.0));
  pair(c.c8, 2.0 * std::cos(4.0 * kPi / 9.0));
  pair(c.c1, 2.0 * std::cos(kPi / 18.0));
  pair(c.c3, 2.0 * std::cos(3.0 * kPi / 18.0));
  pair(c.c5, 2.0 * std::cos(5.0 * kPi / 18.0));
  pair(c.c7, 2.0 * std::cos(7.0 * kPi / 18.0));
  for (int j = 0; j < 9; ++j) c.combine36[j] = 1.0 / (2.0 * std::cos((2 * j + 1) * kPi / 36.0));
  c.combine36[9] = 0.0;
  pair(c.c6, std::cos(kPi / 6.0));
  for (int j = 0; j < 3; ++j) c.combine12[j] = 1.0 / (2.0 * std::cos((2 * j + 1) * kPi / 12.0));
  c.combine12[3] = 0.0;
  for (int j = 0; j < 6; ++j) c.post12[j] = 1.0 / (2.0 * std::cos((2 * j + 1) * kPi / 24.0));
  for (int i = 0; i < 12; ++i) {
    const double s = std::sin(kPi / 24.0 * (2 * i + 1));
    c.shortWindow[i] = (i >= 3 && i <= 5) ? -s : s;
  }
  return c;
}

}  // namespace

// Start-up initialiser: ready before the module's load routine runs.
const ImdctConstants gImdctConstants = MakeImdctConstants();

void Imdct36Scalar(double* x, double* out, const double* window) {
  const ImdctConstants& c = gImdctConstants;
  // Running sums in place: Z[k] = X[k] + X[k-1], then Z'[k] = Z[k] + Z[k-2] for odd k.
  for (int k = 17; k >= 1; --k) x[k] = x[k] + x[k - 1];
  for (int k = 17; k >= 3; k -= 2) x[k] = x[k] + x[k - 2];

  // Nine-point DCT-III of the even half (x[0], x[2], ...) and of the odd half
  // (x[1], x[3], ...): lane 0 and lane 1 of each pair.
  double p[9][2];
  for (int lane = 0; lane < 2; ++lane) {
    const double v0 = x[0 + lane], v1 = x[2 + lane], v2 = x[4 + lane], v3 = x[6 + lane], v4 = x[8 + lane];
    const double v5 = x[10 + lane], v6 = x[12 + lane], v7 = x[14 + lane], v8 = x[16 + lane];
    const double v0d = v0 + v0;
    const double a = v0d + v6;
    const double b = v0d - (v6 + v6);
    const double ev0 = ((a + v2 * c.c2[0]) + v4 * c.c4[0]) + v8 * c.c8[0];
    const double ev1 = ((b + v2) - v4) - v8;
    const double ev2 = ((a - v2 * c.c8[0]) - v4 * c.c2[0]) + v8 * c.c4[0];
    const double ev3 = ((a - v2 * c.c4[0]) + v4 * c.c8[0]) - v8 * c.c2[0];
    const double od0 = ((v1 * c.c1[0] + v3 * c.c3[0]) + v5 * c.c5[0]) + v7 * c.c7[0];
    const double od1 = ((v1 - v5) - v7) * c.c3[0];
    const double od2 = ((v1 * c.c5[0] - v3 * c.c3[0]) - v5 * c.c7[0]) + v7 * c.c1[0];
    const double od3 = ((v1 * c.c7[0] - v3 * c.c3[0]) + v5 * c.c1[0]) - v7 * c.c5[0];
    p[0][lane] = ev0 + od0;
    p[8][lane] = ev0 - od0;
    p[1][lane] = ev1 + od1;
    p[7][lane] = ev1 - od1;
    p[2][lane] = ev2 + od2;
    p[6][lane] = ev2 - od2;
    p[3][lane] = ev3 + od3;
    p[5][lane] = ev3 - od3;
    p[4][lane] = (((v0 - v2) + v4) - v6) + v8;
  }

  // Combine the halves, then permute and window:
  // out[8 - r], out[9 + r] take minus[r]; out[26 - r], out[27 + r] take plus[r].
  for (int r = 0; r < 9; ++r) {
    const double e = p[r][0];
    const double t = p[r][1] * c.combine36[r];
    const double plus = e + t;
    const double minus = e - t;
    out[8 - r] = minus * window[8 - r];
    out[9 + r] = minus * window[9 + r];
    out[26 - r] = plus * window[26 - r];
    out[27 + r] = plus * window[27 + r];
  }
}

namespace {

// One 12-point IMDCT, windowed: lines x[0], x[3], ..., x[15] in, z[12] out.
void Imdct12OneWindow(const double* x, double* z) {
  const ImdctConstants& c = gImdctConstants;
  double v[6];
  for (int k = 0; k < 6; ++k) v[k] = x[3 * k];
  for (int k = 5; k >= 1; --k) v[k] = v[k] + v[k - 1];
  v[5] = v[5] + v[3];
  v[3] = v[3] + v[1];

  double e[3], o[3];
  for (int lane = 0; lane < 2; ++lane) {
    const double v0 = v[0 + lane], v1 = v[2 + lane], v2 = v[4 + lane];
    const double h = v0 + v2 * 0.5;
    const double f0 = h + v1 * c.c6[0];
    const double f1 = v0 - v2;
    const double f2 = h - v1 * c.c6[0];
    double* dst = lane == 0 ? e : o;
    dst[0] = f0;
    dst[1] = f1;
    dst[2] = f2;
  }
  double y[6];
  for (int j = 0; j < 3; ++j) {
    const double t = o[j] * c.combine12[j];
    y[j] = (e[j] + t) * c.post12[j];
    y[5 - j] = (e[j] - t) * c.post12[5 - j];
  }
  // y holds the 6-point DCT-IV; the 12 outputs are y[3..5], y[5..3], -y[2..0], -y[0..2]
  // (with the sign of entries 3..5 carried by the window).
  static const int kSource[12] = {3, 4, 5, 5, 4, 3, 2, 1, 0, 0, 1, 2};
  for (int i = 0; i < 12; ++i) {
    const double u = i < 6 ? y[kSource[i]] : -y[kSource[i]];
    z[i] = u * c.shortWindow[i];
  }
}

}  // namespace

void Imdct12Scalar(const double* lines, double* out) {
  double z[3][12];
  for (int w = 0; w < 3; ++w) Imdct12OneWindow(lines + w, z[w]);
  for (int i = 0; i < 6; ++i) {
    out[i] = 0.0;
    out[6 + i] = z[0][i];
    out[12 + i] = z[0][6 + i] + z[1][i];
    out[18 + i] = z[1][6 + i] + z[2][i];
    out[24 + i] = z[2][6 + i];
    out[30 + i] = 0.0;
  }
}

void ImdctLong(double* lines, double* scratch, uint32_t blockType) {
  Dsp().imdct36(lines, scratch, gTables.imdctWindow[blockType & 3]);
}

void ImdctShort(const double* lines, double* scratch) { Dsp().imdct12(lines, scratch); }

void OverlapAdd(const double* scratch, double* subband, double* overlap) {
  for (uint32_t t = 0; t < kLinesPerSubband; ++t) {
    subband[t] = scratch[t] + overlap[t];
    overlap[t] = scratch[18 + t];
  }
}

void HybridSubband(double* subband, double* overlap, uint32_t blockType) {
  alignas(16) double scratch[36];
  if (blockType == 2) {
    ImdctShort(subband, scratch);
  } else {
    ImdctLong(subband, scratch, blockType);
  }
  OverlapAdd(scratch, subband, overlap);
}

void ImdctGranule(double* spectrum, double* overlap, const GranuleInfo& gi) {
  const uint32_t active = gi.active_subbands < kSubbands ? gi.active_subbands : kSubbands;
  // Mixed blocks transform their two long subbands with the normal window.
  const uint32_t lowBlockType = gi.mixed_block_flag ? 0 : gi.block_type;
  uint32_t sb = 0;
  const DspKernels& k = Dsp();
  if (k.hybridLongEight != nullptr && gi.block_type != 2 && lowBlockType == gi.block_type) {
    // Every subband has the granule's long block type (a start or stop block flagged
    // mixed keeps the normal window in its first two): eight at a time while eight
    // remain, then pairs and single ones below.
    for (; sb + 8 <= active; sb += 8) {
      k.hybridLongEight(spectrum + sb * kLinesPerSubband, overlap + sb * kLinesPerSubband,
                        gTables.imdctWindow[gi.block_type & 3]);
    }
  }
  if (k.hybridLongPair != nullptr) {
    // Two subbands of the same long block type at a time: 0 and 1 share the low
    // block type, every later pair the granule's.
    for (; sb + 1 < active; sb += 2) {
      const uint32_t type = sb < 2 ? lowBlockType : gi.block_type;
      if (type == 2) {
        HybridSubband(spectrum + sb * kLinesPerSubband, overlap + sb * kLinesPerSubband, type);
        HybridSubband(spectrum + (sb + 1) * kLinesPerSubband, overlap + (sb + 1) * kLinesPerSubband, type);
      } else {
        k.hybridLongPair(spectrum + sb * kLinesPerSubband, overlap + sb * kLinesPerSubband,
                         gTables.imdctWindow[type & 3]);
      }
    }
  }
  for (; sb < active; ++sb) {
    HybridSubband(spectrum + sb * kLinesPerSubband, overlap + sb * kLinesPerSubband,
                  sb < 2 ? lowBlockType : gi.block_type);
  }
  // Silent subbands: transforming 18 zero lines would give zeros, so the output is the
  // stored overlap and the overlap becomes zero. They are the granule's last subbands,
  // contiguous in both arrays, so one copy and one clear cover them all (a clear per
  // subband costs the C library's start-up of a string store each time).
  const size_t silentBytes = (kSubbands - sb) * kLinesPerSubband * sizeof(double);
  std::memcpy(spectrum + sb * kLinesPerSubband, overlap + sb * kLinesPerSubband, silentBytes);
  std::memset(overlap + sb * kLinesPerSubband, 0, silentBytes);
}

}  // namespace kxmp3
