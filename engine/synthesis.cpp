// Polyphase synthesis of one granule-channel: per time slot the 32 subband samples are
// matrixed into 64 new values of the channel's 1,024-value ring, and the window turns
// 16 taps of the ring into 32 PCM samples. Holds the scalar references of the fast
// 32-point DCT and of the two window kernels.
//
// The matrixing v[i] = sum_k cos((16 + i)(2 k + 1) pi / 64) s[k] is a 32-point DCT-II
// X[m] = sum_k cos(m (2 k + 1) pi / 64) s[k] read out with its symmetries:
//   v[0..15] = X[16..31], v[16] = 0, v[17..31] = -X[31..17],
//   v[32..47] = -X[16..1], v[48] = -X[0], v[49..63] = -X[1..15].
// The DCT-II is computed by recursive halving: for a block of N values,
//   a[k] = x[k] + x[N-1-k], b[k] = (x[k] - x[N-1-k]) / (2 cos((2 k + 1) pi / 2N)),
// the even outputs are the N/2-point DCT of a and the odd outputs X[2m+1] = B[m] +
// B[m+1] with B the N/2-point DCT of b (B[N/2] = 0). All halving stages run first over
// the whole vector, then the recombination stages from N = 4 up to N = 32.
#include "synthesis.h"

#include <cmath>
#include <cstring>

#include "dsp_kernels.h"
#include "engine_types.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// One halving stage over all blocks of size n.
void HalveScalar(const double* in, double* out, int n, const double* factors) {
  for (int g = 0; g < 32; g += n) {
    for (int k = 0; k < n / 2; ++k) {
      const double lo = in[g + k];
      const double hi = in[g + n - 1 - k];
      out[g + k] = lo + hi;
      out[g + n / 2 + k] = (lo - hi) * factors[k];
    }
  }
}

// One recombination stage over all blocks of size n: even outputs from the first
// half, odd outputs from sums of neighbours in the second half.
void RecombineScalar(const double* in, double* out, int n) {
  for (int g = 0; g < 32; g += n) {
    const double* a = in + g;
    const double* b = in + g + n / 2;
    for (int m = 0; m < n / 2 - 1; ++m) {
      out[g + 2 * m] = a[m];
      out[g + 2 * m + 1] = b[m] + b[m + 1];
    }
    out[g + n - 2] = a[n / 2 - 1];
    out[g + n - 1] = b[n / 2 - 1];
  }
}

}  // namespace

void Dct32Scalar(const double* samples, double* v) {
  const DecoderTables& t = gTables;
  double p[32], q[32];
  HalveScalar(samples, p, 32, t.dct32Factors);
  HalveScalar(p, q, 16, t.dct16Factors);
  HalveScalar(q, p, 8, t.dct8Factors);
  HalveScalar(p, q, 4, t.dct4Factors);
  HalveScalar(q, p, 2, t.dct2Factor);
  RecombineScalar(p, q, 4);
  RecombineScalar(q, p, 8);
  RecombineScalar(p, q, 16);
  RecombineScalar(q, p, 32);
  const double* x = p;
  for (int i = 0; i < 16; ++i) v[i] = x[16 + i];
  v[16] = 0.0;
  for (int i = 17; i < 32; ++i) v[i] = -x[48 - i];
  for (int i = 32; i < 48; ++i) v[i] = -x[48 - i];
  v[48] = -x[0];
  for (int i = 49; i < 64; ++i) v[i] = -x[i - 48];
}

int16_t ConvertSampleToInt16(double sum) {
  const double r = std::nearbyint(sum);  // the current rounding mode: nearest, ties to even
  int32_t i = INT32_MIN;
  if (r >= -2147483648.0 && r <= 2147483647.0) i = static_cast<int32_t>(r);
  if (i > 32767) return 32767;
  if (i < -32768) return -32768;
  return static_cast<int16_t>(i);
}

namespace {

inline double WindowSum(const double* window, const double* ring, const uint32_t* indexRow, int n) {
  double acc = window[n] * ring[indexRow[0] + n];
  for (int k = 1; k < 16; ++k) acc = acc + window[32 * k + n] * ring[indexRow[k] + n];
  return acc;
}

}  // namespace

void WindowInt16Scalar(int16_t* out, const double* ring, const uint32_t* indexRow) {
  for (int n = 0; n < 32; ++n) out[n] = ConvertSampleToInt16(WindowSum(gTables.synthWindowInt16, ring, indexRow, n));
}

void WindowFloatScalar(double* out, const double* ring, const uint32_t* indexRow) {
  for (int n = 0; n < 32; ++n) out[n] = WindowSum(gTables.synthWindowFloat, ring, indexRow, n);
}

void SynthesizeSlot(const double* samples, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out) {
  const DspKernels& k = Dsp();
  const uint32_t pos = (*position - 64) & (kSynthesisRingSize - 1);
  *position = pos;
  k.dct32(samples, ring + pos);
  const uint32_t* row = kSynthesisRingIndex[pos / 64];
  if (bytesPerSample == 2) {
    k.windowInt16(static_cast<int16_t*>(out), ring, row);
  } else {
    k.windowFloat(static_cast<double*>(out), ring, row);
  }
}

void SynthesizeGranule(const double* hybrid, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out) {
  const uint32_t sampleBytes = bytesPerSample == 2 ? 2 : 8;
  uint8_t* dst = static_cast<uint8_t*>(out);
  const DspKernels& k = Dsp();
  if (k.dct32Slots != nullptr) {
    // Several slots matrixed at once; each slot's values enter the ring just before
    // its window, since the window of a slot still reads the ring row that the next
    // slot's values replace.
    alignas(32) double rows[kMaxDctSlotsPerCall * 64];
    for (uint32_t t = 0; t < kLinesPerSubband;) {
      const uint32_t n = k.dct32Slots(hybrid, t, rows);
      for (uint32_t j = 0; j < n; ++j, ++t) {
        const uint32_t pos = (*position - 64) & (kSynthesisRingSize - 1);
        *position = pos;
        std::memcpy(ring + pos, rows + 64 * j, 64 * sizeof(double));
        const uint32_t* row = kSynthesisRingIndex[pos / 64];
        if (bytesPerSample == 2) {
          k.windowInt16(reinterpret_cast<int16_t*>(dst + t * kSubbands * 2), ring, row);
        } else {
          k.windowFloat(reinterpret_cast<double*>(dst + t * kSubbands * 8), ring, row);
        }
      }
    }
    return;
  }
  alignas(16) double slot[kSubbands];
  for (uint32_t t = 0; t < kLinesPerSubband; t += 2) {
    for (uint32_t sb = 0; sb < kSubbands; ++sb) slot[sb] = hybrid[kLinesPerSubband * sb + t];
    SynthesizeSlot(slot, ring, position, bytesPerSample, dst + t * kSubbands * sampleBytes);
    // Odd time slots of odd subbands are negated: the frequency inversion of the
    // hybrid filterbank, done here in the gather.
    for (uint32_t sb = 0; sb < kSubbands; sb += 2) {
      slot[sb] = hybrid[kLinesPerSubband * sb + t + 1];
      slot[sb + 1] = -hybrid[kLinesPerSubband * (sb + 1) + t + 1];
    }
    SynthesizeSlot(slot, ring, position, bytesPerSample, dst + (t + 1) * kSubbands * sampleBytes);
  }
}

}  // namespace kxmp3
