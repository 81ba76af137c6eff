// AVX-512 version of the long-block hybrid filterbank step, eight subbands at a time
// (for processors that have it; chosen at run time, see dsp_kernels.cpp; this file is
// compiled for AVX-512F without FMA).
//
// One subband per lane: the eight subbands' lines are turned into 18 vectors (line k
// of every subband in one register), and every lane runs the scalar reference's
// operations (imdct36_lanes.h). The outputs are then formed two columns at a time,
// each pair with its stored overlap read and its samples and new overlap written
// straight back to the rows, so that few values are live at once (the whole 36
// outputs at once had spilled to the stack). The two-subband kernel keeps each
// subband's even and odd halves side by side and so spends about as many shuffles as
// arithmetic; here the arithmetic needs none.
//
// As in the other wide-kernel files, nothing here is an inline function shared with
// other files.
#include "dsp_kernels.h"

#if defined(__AVX512F__)

#include <immintrin.h>

#include "imdct36_lanes.h"
#include "lane_ops512.h"

namespace kxmp3 {

namespace {

// The 128-bit piece at `at` (16-byte aligned, so that no load straddles a cache line,
// as the 64-byte loads of rows 18 doubles apart would).
inline __m128 Piece(const double* at) { return _mm_load_ps(reinterpret_cast<const float*>(at)); }

// 128-bit piece kPiece of v stored at `at` (an extract straight to memory).
template <int kPiece>
inline void StorePiece(double* at, __m512d v) {
  _mm_store_ps(reinterpret_cast<float*>(at), _mm512_maskz_extractf32x4_ps(0xF, _mm512_castpd_ps(v), kPiece));
}

// Columns k and k + 1 of eight rows (row r at rows + 18 r) as two vectors: lane r of
// v0 is rows[18 r + k], of v1 rows[18 r + k + 1]. The even rows' pieces and the odd
// rows' pieces are each gathered into one register by broadcast loads (the merges run
// on either vector port, where the shuffles of a transpose in registers would all
// queue on one), and one unpack each gives the two columns.
inline void ColumnsToLanes(const double* rows, int k, __m512d& v0, __m512d& v1) {
  __m512 even = _mm512_maskz_broadcast_f32x4(0xFFFF, Piece(rows + k));
  even = _mm512_mask_broadcast_f32x4(even, 0x00F0, Piece(rows + 36 + k));
  even = _mm512_mask_broadcast_f32x4(even, 0x0F00, Piece(rows + 72 + k));
  even = _mm512_mask_broadcast_f32x4(even, 0xF000, Piece(rows + 108 + k));
  __m512 odd = _mm512_maskz_broadcast_f32x4(0xFFFF, Piece(rows + 18 + k));
  odd = _mm512_mask_broadcast_f32x4(odd, 0x00F0, Piece(rows + 54 + k));
  odd = _mm512_mask_broadcast_f32x4(odd, 0x0F00, Piece(rows + 90 + k));
  odd = _mm512_mask_broadcast_f32x4(odd, 0xF000, Piece(rows + 126 + k));
  v0 = _mm512_maskz_unpacklo_pd(0xFF, _mm512_castps_pd(even), _mm512_castps_pd(odd));
  v1 = _mm512_maskz_unpackhi_pd(0xFF, _mm512_castps_pd(even), _mm512_castps_pd(odd));
}

// The inverse of ColumnsToLanes: rows[18 r + k] = v0 lane r, rows[18 r + k + 1] = v1
// lane r, each row's piece stored by an extract.
inline void LanesToColumns(__m512d v0, __m512d v1, double* rows, int k) {
  const __m512d even = _mm512_maskz_unpacklo_pd(0xFF, v0, v1);
  const __m512d odd = _mm512_maskz_unpackhi_pd(0xFF, v0, v1);
  StorePiece<0>(rows + k, even);
  StorePiece<1>(rows + 36 + k, even);
  StorePiece<2>(rows + 72 + k, even);
  StorePiece<3>(rows + 108 + k, even);
  StorePiece<0>(rows + 18 + k, odd);
  StorePiece<1>(rows + 54 + k, odd);
  StorePiece<2>(rows + 90 + k, odd);
  StorePiece<3>(rows + 126 + k, odd);
}

}  // namespace

void HybridLongEightAvx512(double* subbands, double* overlap, const double* window) {
  __m512d x[18];
  for (int k = 0; k < 18; k += 2) ColumnsToLanes(subbands, k, x[k], x[k + 1]);
  __m512d minus[9], plus[9];
  Imdct36Lanes<Ops512>(x, minus, plus);
  // Two columns at a time: the stored overlap read, the samples and the new overlap
  // written (each column's stored values are read before its new ones are written).
  for (int k = 0; k < 18; k += 2) {
    __m512d stored0, stored1, sample0, sample1, overlap0, overlap1;
    ColumnsToLanes(overlap, k, stored0, stored1);
    WindowedLanes<Ops512>(minus, plus, window, k, stored0, sample0, overlap0);
    WindowedLanes<Ops512>(minus, plus, window, k + 1, stored1, sample1, overlap1);
    LanesToColumns(sample0, sample1, subbands, k);
    LanesToColumns(overlap0, overlap1, overlap, k);
  }
}

}  // namespace kxmp3

#endif  // __AVX512F__
