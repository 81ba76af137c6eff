// Polyphase synthesis of one granule-channel, or of both channels of a granule at once
// (written interleaved): per time slot the 32 subband samples are matrixed into 64 new
// values of the channel's 1,024-value ring, and the window turns 16 taps of the ring
// into 32 PCM samples. A granule's new rows go to an aligned block of their own
// before they go to the ring (see GranuleRows below). Holds the scalar references of the fast 32-point DCT
// and of the window kernels.
//
// The matrixing v[i] = sum_k cos((16 + i)(2 k + 1) pi / 64) s[k] is a 32-point DCT-II
// X[m] = sum_k cos(m (2 k + 1) pi / 64) s[k] read out with its symmetries:
//   v[0..15] = X[16..31], v[16] = 0, v[17..31] = -X[31..17],
//   v[32..47] = -X[16..1], v[48] = -X[0], v[49..63] = -X[1..15].
// The ring stores v[17..63] without their minus signs, which the window copies carry
// (SynthesisWindowSign in tables.h): a row on the ring is
//   X[16..31], 0, X[31..17], X[16..1], X[0..15].
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
  for (int i = 17; i < 48; ++i) v[i] = x[48 - i];
  for (int i = 48; i < 64; ++i) v[i] = x[i - 48];
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

inline double WindowSum(const double* window, const double* const* taps, int n) {
  double acc = window[n] * taps[0][n];
  for (int k = 1; k < 16; ++k) acc = acc + window[32 * k + n] * taps[k][n];
  return acc;
}

}  // namespace

void WindowInt16Scalar(int16_t* out, const double* const* taps) {
  for (int n = 0; n < 32; ++n) out[n] = ConvertSampleToInt16(WindowSum(gTables.synthWindowInt16, taps, n));
}

void WindowFloatScalar(double* out, const double* const* taps) {
  for (int n = 0; n < 32; ++n) out[n] = WindowSum(gTables.synthWindowFloat, taps, n);
}

void WindowStereoInt16Scalar(void* out, const double* const* taps0, const double* const* taps1) {
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; ++n) {
    const int16_t frame[2] = {ConvertSampleToInt16(WindowSum(gTables.synthWindowInt16, taps0, n)),
                              ConvertSampleToInt16(WindowSum(gTables.synthWindowInt16, taps1, n))};
    std::memcpy(dst + 4 * n, frame, sizeof(frame));
  }
}

void WindowStereoFloatScalar(void* out, const double* const* taps0, const double* const* taps1) {
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; ++n) {
    const double frame[2] = {WindowSum(gTables.synthWindowFloat, taps0, n), WindowSum(gTables.synthWindowFloat, taps1, n)};
    std::memcpy(dst + 16 * n, frame, sizeof(frame));
  }
}

namespace {

// The ring's rows of 64 values start on 64-byte boundaries: the ring is only 16-byte
// aligned, so they start 0, 2, 4 or 6 values into it. Windows read only the 15 rows
// before a slot (and the slot's own row, which is elsewhere), so the ring holds 15 rows:
// 960 values and the offset fit in its 1024. With the rows aligned, no window load of
// a ring row straddles two cache lines. Row r is at AlignedRows(ring) + 64 r; the slot
// m slots before the newest is in row (position / 64 + m - 1) mod 15.
constexpr uint32_t kRingRows = 15;

template <class T>
T* AlignedRows(T* ring) {
  return ring + ((0 - reinterpret_cast<uintptr_t>(ring)) & 63) / sizeof(double);
}

// Row index of the slot m (1..15) slots before the newest.
uint32_t RingRowIndex(uint32_t position, uint32_t m) {
  const uint32_t r = (position / 64) % kRingRows + m - 1;
  return r >= kRingRows ? r - kRingRows : r;
}

}  // namespace

const double* SynthesisRingRow(const double* ring, uint32_t position, uint32_t m) {
  return AlignedRows(ring) + 64 * RingRowIndex(position, m);
}

void ClearSynthesisRing(double* ring) {
  for (uint32_t i = 0; i < kSynthesisRingSize; ++i) ring[i] = 0.0;
  double* rows = AlignedRows(ring);
  for (uint32_t i = 0; i < 64 * kRingRows; ++i) rows[i] = i % 64 >= 17 ? -0.0 : 0.0;
}

void SynthesizeSlot(const double* samples, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out) {
  const DspKernels& k = Dsp();
  alignas(64) double fresh[64];
  k.dct32(samples, fresh);
  const double* taps[16];
  taps[0] = fresh;
  for (uint32_t m = 1; m < 16; ++m) taps[m] = SynthesisRingRow(ring, *position, m) + 32 * (m & 1);
  if (bytesPerSample == 2) {
    k.windowInt16(static_cast<int16_t*>(out), taps);
  } else {
    k.windowFloat(static_cast<double*>(out), taps);
  }
  // The new row takes the place of the oldest, which no later window reads.
  const uint32_t newest = RingRowIndex(*position, kRingRows);
  std::memcpy(AlignedRows(ring) + 64 * newest, fresh, sizeof(fresh));
  *position = 64 * newest;
}

namespace {

// A granule's 18 new rows are written to a 64-byte aligned linear block, newest first
// (row 17 - t holds slot t), straight from the matrixing; slot t's window reads, for
// tap k, the row of slot t - k: in the block while t - k >= 0, else on the ring, where
// the 15 slots before the granule are. So no window waits for a row written just
// before it, and the ring is read in place. Afterwards the 15 newest rows (slots 17
// down to 3) go to the ring's rows 0..14 in one copy, and the position to 0.
constexpr uint32_t kNewestRow = kLinesPerSubband - 1;  // the row of slot 0 is 17

// One flat block, so that the copy into the ring runs across rows.
struct alignas(64) GranuleRows {
  double data[kLinesPerSubband * 64];
  double* Row(uint32_t i) { return data + 64 * i; }
  const double* Row(uint32_t i) const { return data + 64 * i; }
};

// The rows of the 15 slots before the granule on the ring: before[m - 1] is the row of
// the slot m slots before slot 0.
struct RingBefore {
  const double* before[kRingRows];
  RingBefore(const double* ring, uint32_t position) {
    const double* rows = AlignedRows(ring);
    uint32_t r = (position / 64) % kRingRows;
    for (uint32_t m = 0; m < kRingRows; ++m) {
      before[m] = rows + 64 * r;
      r = r + 1 == kRingRows ? 0 : r + 1;
    }
  }
};

// The taps of slot t's window.
void SlotTaps(const GranuleRows& rows, const RingBefore& ring, uint32_t t, const double* taps[16]) {
  for (uint32_t k = 0; k < 16; ++k) {
    const uint32_t half = 32 * (k & 1);
    taps[k] = (k <= t ? rows.Row(kNewestRow - t + k) : ring.before[k - t - 1]) + half;
  }
}

// The granule's 15 newest rows into the ring (slot 17 in row 0, the newest), position 0.
void StoreRows(const GranuleRows& rows, double* ring, uint32_t* position) {
  std::memcpy(AlignedRows(ring), rows.data, 64 * kRingRows * sizeof(double));
  *position = 0;
}

// The matrixing of the granule's 18 slots into their rows.
void MatrixGranule(const double* hybrid, GranuleRows& lin) {
  const DspKernels& k = Dsp();
  if (k.dct32Slots != nullptr) {
    for (uint32_t t = 0; t < kLinesPerSubband;) t += k.dct32Slots(hybrid, t, lin.Row(kNewestRow - t));
    return;
  }
  alignas(16) double slot[kSubbands];
  for (uint32_t t = 0; t < kLinesPerSubband; t += 2) {
    for (uint32_t sb = 0; sb < kSubbands; ++sb) slot[sb] = hybrid[kLinesPerSubband * sb + t];
    k.dct32(slot, lin.Row(kNewestRow - t));
    // Odd time slots of odd subbands are negated: the frequency inversion of the
    // hybrid filterbank, done here in the gather.
    for (uint32_t sb = 0; sb < kSubbands; sb += 2) {
      slot[sb] = hybrid[kLinesPerSubband * sb + t + 1];
      slot[sb + 1] = -hybrid[kLinesPerSubband * (sb + 1) + t + 1];
    }
    k.dct32(slot, lin.Row(kNewestRow - t - 1));
  }
}

}  // namespace

void SynthesizeGranule(const double* hybrid, double* ring, uint32_t* position, uint32_t bytesPerSample, void* out) {
  const DspKernels& k = Dsp();
  GranuleRows rows;
  MatrixGranule(hybrid, rows);
  const RingBefore before(ring, *position);
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (uint32_t t = 0; t < kLinesPerSubband; ++t) {
    const double* taps[16];
    SlotTaps(rows, before, t, taps);
    if (bytesPerSample == 2) {
      k.windowInt16(reinterpret_cast<int16_t*>(dst + t * kSubbands * 2), taps);
    } else {
      k.windowFloat(reinterpret_cast<double*>(dst + t * kSubbands * 8), taps);
    }
  }
  StoreRows(rows, ring, position);
}

void SynthesizeStereoGranule(const double* hybrid0, const double* hybrid1, double* ring0, double* ring1,
                             uint32_t* position0, uint32_t* position1, uint32_t bytesPerSample, void* out) {
  const DspKernels& k = Dsp();
  GranuleRows rows[2];
  if (k.dct32LastSlotsStereo != nullptr) {
    // Slots 0..15 of each channel, then the last two slots of both in one call.
    for (uint32_t t = 0; t < 16;) t += k.dct32Slots(hybrid0, t, rows[0].Row(kNewestRow - t));
    for (uint32_t t = 0; t < 16;) t += k.dct32Slots(hybrid1, t, rows[1].Row(kNewestRow - t));
    k.dct32LastSlotsStereo(hybrid0, hybrid1, rows[0].Row(kNewestRow - 16), rows[1].Row(kNewestRow - 16));
  } else {
    MatrixGranule(hybrid0, rows[0]);
    MatrixGranule(hybrid1, rows[1]);
  }
  const RingBefore before0(ring0, *position0), before1(ring1, *position1);
  uint8_t* dst = static_cast<uint8_t*>(out);
  for (uint32_t t = 0; t < kLinesPerSubband; ++t) {
    const double* taps0[16];
    const double* taps1[16];
    SlotTaps(rows[0], before0, t, taps0);
    SlotTaps(rows[1], before1, t, taps1);
    if (bytesPerSample == 2) {
      k.windowStereoInt16(dst + t * kSubbands * 4, taps0, taps1);
    } else {
      k.windowStereoFloat(dst + t * kSubbands * 16, taps0, taps1);
    }
  }
  StoreRows(rows[0], ring0, position0);
  StoreRows(rows[1], ring1, position1);
}

}  // namespace kxmp3
