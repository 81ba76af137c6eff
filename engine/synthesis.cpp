// Polyphase synthesis of one granule-channel, or of both channels of a granule at once
// (written interleaved): per time slot the 32 subband samples are matrixed into 64 new
// values of the channel's 1,024-value ring, and the window turns 16 taps of the ring
// into 32 PCM samples. A granule works on an aligned linear copy of the ring rows it
// reads (see LinearRows below). Holds the scalar references of the fast 32-point DCT
// and of the window kernels.
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

void WindowStereoInt16Scalar(void* out, const double* ring0, const double* ring1, const uint32_t* indexRow) {
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; ++n) {
    const int16_t frame[2] = {ConvertSampleToInt16(WindowSum(gTables.synthWindowInt16, ring0, indexRow, n)),
                              ConvertSampleToInt16(WindowSum(gTables.synthWindowInt16, ring1, indexRow, n))};
    std::memcpy(dst + 4 * n, frame, sizeof(frame));
  }
}

void WindowStereoFloatScalar(void* out, const double* ring0, const double* ring1, const uint32_t* indexRow) {
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; ++n) {
    const double frame[2] = {WindowSum(gTables.synthWindowFloat, ring0, indexRow, n),
                             WindowSum(gTables.synthWindowFloat, ring1, indexRow, n)};
    std::memcpy(dst + 16 * n, frame, sizeof(frame));
  }
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

namespace {

// A granule's synthesis runs on a linear copy of its part of the ring: its own 18
// rows and the rows of the 15 slots before it, newest first (row 17 - s holds slot s,
// s = -15..17), which is the ring's own order. Slot t's window then reads, for tap k,
// row 17 - t + k at offset 32 (k odd) or 0: what the ring index table names on the
// ring. The copy is 64-byte aligned, whatever the ring's own alignment, so that the
// window kernels' loads never straddle cache lines; each slot's values are written
// once, straight from the matrixing, and no window waits for a row written just
// before it. The earlier rows come from the ring, and afterwards the 16 newest rows go
// back to it, as at most two contiguous blocks each way.
constexpr uint32_t kEarlierRows = 15;
constexpr uint32_t kLinearRows = kLinesPerSubband + kEarlierRows;
constexpr uint32_t kNewestRow = kLinesPerSubband - 1;  // the row of slot 0 is 17

struct alignas(64) LinearRows {
  double row[kLinearRows][64];
};

struct LinearIndexTable {
  uint32_t row[kLinesPerSubband][16];
};

constexpr LinearIndexTable MakeLinearIndex() {
  LinearIndexTable t{};
  for (uint32_t slot = 0; slot < kLinesPerSubband; ++slot) {
    for (uint32_t k = 0; k < 16; ++k) t.row[slot][k] = 64 * (kNewestRow - slot + k) + 32 * (k & 1);
  }
  return t;
}

// Index rows of the windows on the linear copy, by slot.
constexpr LinearIndexTable kLinearIndex = MakeLinearIndex();

// `count` doubles of the ring from `position` on (wrapping at its end) to `to`, or
// from `from` into the ring.
void CopyFromRing(const double* ring, uint32_t position, double* to, uint32_t count) {
  const uint32_t first = position + count <= kSynthesisRingSize ? count : kSynthesisRingSize - position;
  std::memcpy(to, ring + position, first * sizeof(double));
  std::memcpy(to + first, ring, (count - first) * sizeof(double));
}
void CopyToRing(const double* from, double* ring, uint32_t position, uint32_t count) {
  const uint32_t first = position + count <= kSynthesisRingSize ? count : kSynthesisRingSize - position;
  std::memcpy(ring + position, from, first * sizeof(double));
  std::memcpy(ring, from + first, (count - first) * sizeof(double));
}

// The ring's rows of the 15 slots before the granule: the newest at `position`, the
// older ones above it.
void LoadEarlierRows(const double* ring, uint32_t position, LinearRows& lin) {
  CopyFromRing(ring, position, lin.row[kLinesPerSubband], 64 * kEarlierRows);
}

// The granule's rows back into the ring at the positions its slots take (slots 0 and
// 1 would be overwritten by slots 16 and 17), and the ring position moved on by 18
// slots.
void StoreRows(const LinearRows& lin, double* ring, uint32_t* position) {
  const uint32_t newest = (*position - 64 * kLinesPerSubband) & (kSynthesisRingSize - 1);
  CopyToRing(lin.row[0], ring, newest, kSynthesisRingSize);
  *position = newest;
}

// The matrixing of the granule's 18 slots into their rows of the linear copy.
void MatrixGranule(const double* hybrid, LinearRows& lin) {
  const DspKernels& k = Dsp();
  if (k.dct32Slots != nullptr) {
    for (uint32_t t = 0; t < kLinesPerSubband;) t += k.dct32Slots(hybrid, t, lin.row[kNewestRow - t]);
    return;
  }
  alignas(16) double slot[kSubbands];
  for (uint32_t t = 0; t < kLinesPerSubband; t += 2) {
    for (uint32_t sb = 0; sb < kSubbands; ++sb) slot[sb] = hybrid[kLinesPerSubband * sb + t];
    k.dct32(slot, lin.row[kNewestRow - t]);
    // Odd time slots of odd subbands are negated: the frequency inversion of the
    // hybrid filterbank, done here in the gather.
    for (uint32_t sb = 0; sb < kSubbands; sb += 2) {
      slot[sb] = hybrid[kLinesPerSubband * sb + t + 1];
      slot[sb + 1] = -hybrid[kLinesPerSubband * (sb + 1) + t + 1];
    }
    k.dct32(slot, lin.row[kNewestRow - t - 1]);
  }
}

}  // namespace

void SynthesizeGranule(const double* hybrid, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out) {
  const DspKernels& k = Dsp();
  LinearRows lin;
  LoadEarlierRows(ring, *position, lin);
  MatrixGranule(hybrid, lin);
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (uint32_t t = 0; t < kLinesPerSubband; ++t) {
    if (bytesPerSample == 2) {
      k.windowInt16(reinterpret_cast<int16_t*>(dst + t * kSubbands * 2), lin.row[0], kLinearIndex.row[t]);
    } else {
      k.windowFloat(reinterpret_cast<double*>(dst + t * kSubbands * 8), lin.row[0], kLinearIndex.row[t]);
    }
  }
  StoreRows(lin, ring, position);
}

void SynthesizeStereoGranule(const double* hybrid0, const double* hybrid1, double* ring0, double* ring1,
                             uint32_t* position0, uint32_t* position1, uint32_t bytesPerSample, void* out) {
  const DspKernels& k = Dsp();
  LinearRows lin[2];
  LoadEarlierRows(ring0, *position0, lin[0]);
  LoadEarlierRows(ring1, *position1, lin[1]);
  MatrixGranule(hybrid0, lin[0]);
  MatrixGranule(hybrid1, lin[1]);
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (uint32_t t = 0; t < kLinesPerSubband; ++t) {
    if (bytesPerSample == 2) {
      k.windowStereoInt16(dst + t * kSubbands * 4, lin[0].row[0], lin[1].row[0], kLinearIndex.row[t]);
    } else {
      k.windowStereoFloat(dst + t * kSubbands * 16, lin[0].row[0], lin[1].row[0], kLinearIndex.row[t]);
    }
  }
  StoreRows(lin[0], ring0, position0);
  StoreRows(lin[1], ring1, position1);
}

}  // namespace kxmp3
