// Decoder tables: the constant synthesis window and ring index table, and the tables
// computed once at load (InitDecoderTables). Each computed table is built from its
// defining formula in double precision; the values of sin, cos, tan and pow it needs
// come from table_constants.h, so that the tables hold the same bits on every system
// whatever its C library. The tests recompute every table.
#include "tables.h"

#include <cmath>

#include "table_constants.h"

namespace kxmp3 {

DecoderTables gTables;

// ISO/IEC 11172-3 Table B.3, D[i] x 65536. The window is the prototype low-pass of
// the polyphase filterbank with the sign of every other block of 64 taps reversed;
// it obeys D[512 - i] = -D[i] except at multiples of 64, where D[512 - i] = D[i].
const int32_t kSynthesisWindowD[kSynthesisWindowTaps] = {
    0, -1, -1, -1, -1, -1, -1, -2, -2, -2, -2, -3, -3, -4, -4, -5,  // 0
    -5, -6, -7, -7, -8, -9, -10, -11, -13, -14, -16, -17, -19, -21, -24, -26,  // 16
    -29, -31, -35, -38, -41, -45, -49, -53, -58, -63, -68, -73, -79, -85, -91, -97,  // 32
    -104, -111, -117, -125, -132, -139, -147, -154, -161, -169, -176, -183, -190, -196, -202, -208,  // 48
    213, 218, 222, 225, 227, 228, 228, 227, 224, 221, 215, 208, 200, 189, 177, 163,  // 64
    146, 127, 106, 83, 57, 29, -2, -36, -72, -111, -153, -197, -244, -294, -347, -401,  // 80
    -459, -519, -581, -645, -711, -779, -848, -919, -991, -1064, -1137, -1210, -1283, -1356, -1428, -1498,  // 96
    -1567, -1634, -1698, -1759, -1817, -1870, -1919, -1962, -2001, -2032, -2057, -2075, -2085, -2087, -2080, -2063,  // 112
    2037, 2000, 1952, 1893, 1822, 1739, 1644, 1535, 1414, 1280, 1131, 970, 794, 605, 402, 185,  // 128
    -45, -288, -545, -814, -1095, -1388, -1692, -2006, -2330, -2663, -3004, -3351, -3705, -4063, -4425, -4788,  // 144
    -5153, -5517, -5879, -6237, -6589, -6935, -7271, -7597, -7910, -8209, -8491, -8755, -8998, -9219, -9416, -9585,  // 160
    -9727, -9838, -9916, -9959, -9966, -9935, -9863, -9750, -9592, -9389, -9139, -8840, -8492, -8092, -7640, -7134,  // 176
    6574, 5959, 5288, 4561, 3776, 2935, 2037, 1082, 70, -998, -2122, -3300, -4533, -5818, -7154, -8540,  // 192
    -9975, -11455, -12980, -14548, -16155, -17799, -19478, -21189, -22929, -24694, -26482, -28289, -30112, -31947, -33791, -35640,  // 208
    -37489, -39336, -41176, -43006, -44821, -46617, -48390, -50137, -51853, -53534, -55178, -56778, -58333, -59838, -61289, -62684,  // 224
    -64019, -65290, -66494, -67629, -68692, -69679, -70590, -71420, -72169, -72835, -73415, -73908, -74313, -74630, -74856, -74992,  // 240
    75038, 74992, 74856, 74630, 74313, 73908, 73415, 72835, 72169, 71420, 70590, 69679, 68692, 67629, 66494, 65290,  // 256
    64019, 62684, 61289, 59838, 58333, 56778, 55178, 53534, 51853, 50137, 48390, 46617, 44821, 43006, 41176, 39336,  // 272
    37489, 35640, 33791, 31947, 30112, 28289, 26482, 24694, 22929, 21189, 19478, 17799, 16155, 14548, 12980, 11455,  // 288
    9975, 8540, 7154, 5818, 4533, 3300, 2122, 998, -70, -1082, -2037, -2935, -3776, -4561, -5288, -5959,  // 304
    6574, 7134, 7640, 8092, 8492, 8840, 9139, 9389, 9592, 9750, 9863, 9935, 9966, 9959, 9916, 9838,  // 320
    9727, 9585, 9416, 9219, 8998, 8755, 8491, 8209, 7910, 7597, 7271, 6935, 6589, 6237, 5879, 5517,  // 336
    5153, 4788, 4425, 4063, 3705, 3351, 3004, 2663, 2330, 2006, 1692, 1388, 1095, 814, 545, 288,  // 352
    45, -185, -402, -605, -794, -970, -1131, -1280, -1414, -1535, -1644, -1739, -1822, -1893, -1952, -2000,  // 368
    2037, 2063, 2080, 2087, 2085, 2075, 2057, 2032, 2001, 1962, 1919, 1870, 1817, 1759, 1698, 1634,  // 384
    1567, 1498, 1428, 1356, 1283, 1210, 1137, 1064, 991, 919, 848, 779, 711, 645, 581, 519,  // 400
    459, 401, 347, 294, 244, 197, 153, 111, 72, 36, 2, -29, -57, -83, -106, -127,  // 416
    -146, -163, -177, -189, -200, -208, -215, -221, -224, -227, -228, -228, -227, -225, -222, -218,  // 432
    213, 208, 202, 196, 190, 183, 176, 169, 161, 154, 147, 139, 132, 125, 117, 111,  // 448
    104, 97, 91, 85, 79, 73, 68, 63, 58, 53, 49, 45, 41, 38, 35, 31,  // 464
    29, 26, 24, 21, 19, 17, 16, 14, 13, 11, 10, 9, 8, 7, 7, 6,  // 480
    5, 5, 4, 4, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1,  // 496
};

// Row p, tap k: (64 p + base[k]) mod 1024, base = 0, 96, 128, 224, ..., 896, 992.
const uint32_t kSynthesisRingIndex[16][16] = {
    {0, 96, 128, 224, 256, 352, 384, 480, 512, 608, 640, 736, 768, 864, 896, 992},
    {64, 160, 192, 288, 320, 416, 448, 544, 576, 672, 704, 800, 832, 928, 960, 32},
    {128, 224, 256, 352, 384, 480, 512, 608, 640, 736, 768, 864, 896, 992, 0, 96},
    {192, 288, 320, 416, 448, 544, 576, 672, 704, 800, 832, 928, 960, 32, 64, 160},
    {256, 352, 384, 480, 512, 608, 640, 736, 768, 864, 896, 992, 0, 96, 128, 224},
    {320, 416, 448, 544, 576, 672, 704, 800, 832, 928, 960, 32, 64, 160, 192, 288},
    {384, 480, 512, 608, 640, 736, 768, 864, 896, 992, 0, 96, 128, 224, 256, 352},
    {448, 544, 576, 672, 704, 800, 832, 928, 960, 32, 64, 160, 192, 288, 320, 416},
    {512, 608, 640, 736, 768, 864, 896, 992, 0, 96, 128, 224, 256, 352, 384, 480},
    {576, 672, 704, 800, 832, 928, 960, 32, 64, 160, 192, 288, 320, 416, 448, 544},
    {640, 736, 768, 864, 896, 992, 0, 96, 128, 224, 256, 352, 384, 480, 512, 608},
    {704, 800, 832, 928, 960, 32, 64, 160, 192, 288, 320, 416, 448, 544, 576, 672},
    {768, 864, 896, 992, 0, 96, 128, 224, 256, 352, 384, 480, 512, 608, 640, 736},
    {832, 928, 960, 32, 64, 160, 192, 288, 320, 416, 448, 544, 576, 672, 704, 800},
    {896, 992, 0, 96, 128, 224, 256, 352, 384, 480, 512, 608, 640, 736, 768, 864},
    {960, 32, 64, 160, 192, 288, 320, 416, 448, 544, 576, 672, 704, 800, 832, 928},
};

void InitDecoderTables() {
  DecoderTables& t = gTables;

  // 1. Alias-reduction coefficients. s[i] is 1 + c[i]^2 written out, so that the
  // square root sees the exact decimal value.
  static const double kAliasC[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
  static const double kAliasS[8] = {1.36,     1.286225, 1.1089,     1.034225,
                                    1.009025, 1.001681, 1.00020164, 1.00001369};
  for (int i = 0; i < 8; ++i) {
    t.aliasCs[i] = 1.0 / std::sqrt(kAliasS[i]);
    t.aliasCa[i] = kAliasC[i] * t.aliasCs[i];
  }

  // 2. Long IMDCT windows for block types 0, 1 and 3, divided by
  // q(i) = cos(pi/72 (2 i + 19)) and halved; the fast transform produces the outputs
  // that come from its middle term (entries 4, 13, 22, 31) at single scale and all
  // others at double scale, so those four entries are not halved a second time.
  for (int type = 0; type < 4; ++type) {
    for (int i = 0; i < 36; ++i) t.imdctWindow[type][i] = 0.0;
  }
  for (int i = 0; i < 36; ++i) {
    const double q = kLongWindowCosine[i];                    // cos(pi/72 (2 i + 19))
    const double normal = 0.5 * kLongWindowSine[i] / q;       // sin(pi/72 (2 i + 1)) / q
    // Type 0: the normal window throughout.
    t.imdctWindow[0][i] = normal;
    // Type 1 (start): rising normal half, flat top, short falling slope, zeros.
    if (i < 18) {
      t.imdctWindow[1][i] = normal;
    } else if (i < 24) {
      t.imdctWindow[1][i] = 0.5 / q;
    } else if (i < 30) {
      t.imdctWindow[1][i] = 0.5 * kShortSlopeSine[i - 18] / q;  // sin(pi/24 (2 (i - 24) + 13))
    } else {
      t.imdctWindow[1][i] = 0.0;
    }
    // Type 3 (stop): zeros, short rising slope, flat top, falling normal half.
    if (i < 6) {
      t.imdctWindow[3][i] = 0.0;
    } else if (i < 12) {
      t.imdctWindow[3][i] = 0.5 * kShortSlopeSine[i - 6] / q;  // sin(pi/24 (2 (i - 6) + 1))
    } else if (i < 18) {
      t.imdctWindow[3][i] = 0.5 / q;
    } else {
      t.imdctWindow[3][i] = normal;
    }
  }
  static const int kLongTypes[3] = {0, 1, 3};
  for (int type : kLongTypes) {
    for (int i = 0; i < 36; ++i) {
      if (i >= 4 && (i - 4) % 9 == 0) continue;
      t.imdctWindow[type][i] *= 0.5;
    }
  }

  // 3. Synthesis window copies: full scale +-1.0, and x 32768 for 16-bit output, with
  // the signs of the ring values the matrixing stores unnegated (SynthesisWindowSign).
  for (uint32_t i = 0; i < kSynthesisWindowTaps; ++i) {
    const double d = kSynthesisWindowD[i] / 65536.0;
    t.synthWindowFloat[i] = SynthesisWindowSign(i) < 0 ? -d : d;
    t.synthWindowInt16[i] = t.synthWindowFloat[i] * 32768.0;
  }

  // 4. Factor lists of the fast 32-point DCT: 1 / (2 cos((2 j + 1) pi / 2N)).
  for (int j = 0; j < 16; ++j) t.dct32Factors[j] = 1.0 / (2.0 * kDctCosine32[j]);
  for (int j = 0; j < 8; ++j) t.dct16Factors[j] = 1.0 / (2.0 * kDctCosine16[j]);
  for (int j = 0; j < 4; ++j) t.dct8Factors[j] = 1.0 / (2.0 * kDctCosine8[j]);
  for (int j = 0; j < 2; ++j) t.dct4Factors[j] = 1.0 / (2.0 * kDctCosine4[j]);
  t.dct2Factor[0] = t.dct2Factor[1] = 1.0 / (2.0 * kDctCosine2);

  // 5. Gain table: entry k = 2^(-(k - 46) / 4) = 2^(r / 4) x 2^e with 46 - k = 4 e + r,
  // 0 <= r < 4 (the scaling by 2^e is exact); entry 46 is exactly 1.
  for (uint32_t k = 0; k < kGainEntries; ++k) {
    const int steps = 46 - static_cast<int>(k);
    const int r = ((steps % 4) + 4) % 4;
    t.gain[k] = std::ldexp(kQuarterPowersOfTwo[r], (steps - r) / 4);
  }

  // 6. Power table: i^(4/3) and its negation side by side.
  for (uint32_t i = 0; i < kPowerEntries; ++i) {
    const double v = kPowerFourThirds[i];
    t.power[2 * i] = v;
    t.power[2 * i + 1] = -v;
  }

  // 7. Intensity-stereo ratios.
  const double sqrt2 = std::sqrt(2.0);
  for (int i = 0; i < 16; ++i) {
    const double tn = kIntensityTangent[i];  // tan(i pi / 12)
    const double left = tn / (1.0 + tn);
    const double right = 1.0 / (1.0 + tn);
    t.isRatioMpeg1[0][0][i] = left;
    t.isRatioMpeg1[0][1][i] = right;
    t.isRatioMpeg1[1][0][i] = left * sqrt2;
    t.isRatioMpeg1[1][1][i] = right * sqrt2;
  }
  // kIntensityLsfPowers[s][n] = io^n with io = 2^(-(s + 1) / 4); n = 0 gives 1.
  for (int s = 0; s < 2; ++s) {
    for (int i = 0; i < 16; ++i) {
      const double left = i % 2 == 1 ? kIntensityLsfPowers[s][(i + 1) / 2] : 1.0;
      const double right = i % 2 == 0 ? kIntensityLsfPowers[s][i / 2] : 1.0;
      t.isRatioLsf[s][0][i] = left;
      t.isRatioLsf[s][1][i] = right;
      t.isRatioLsf[s + 2][0][i] = left * sqrt2;
      t.isRatioLsf[s + 2][1][i] = right * sqrt2;
    }
  }
}

double DeemphasisTangent(uint32_t sampleRate) {
  for (int i = 0; i < 9; ++i) {
    if (kDeemphasisRates[i] == sampleRate) return kDeemphasisTangent[i];
  }
  return std::tan(10000.0 / static_cast<double>(sampleRate));  // not a rate of the format
}

}  // namespace kxmp3
