// AVX2 versions of the synthesis kernels, for processors that have it (chosen at run
// time, see dsp_kernels.cpp; this file is compiled for AVX2 without FMA).
//
// The window kernels form the same sums as the SSE2 and scalar ones, tap by tap
// from k = 0 with a separate multiply and add, four outputs per register instead of
// two. The matrixing runs the scalar reference's 32-point DCT on four time slots at
// once, one slot per lane: every lane performs exactly the reference's operations in
// the reference's order, so each slot's 64 ring values are bit-identical to dct32's.
// The results are then turned back into one row of 64 values per slot.
//
// Nothing here may be an inline function shared with other files: a copy compiled
// for AVX2 could be the one the linker keeps for everybody. Only intrinsics, the
// decoder tables' data and functions of internal linkage are used.
#include "dsp_kernels.h"

#if defined(__AVX2__)

#include <immintrin.h>

#include "dct32_lanes.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// ---- Matrixing, one slot per lane (dct32_lanes.h) ----

// The operations of one vector width: V is __m256d (four slots) or __m128d (two).
struct Ops256 {
  using V = __m256d;
  static V Add(V a, V b) { return _mm256_add_pd(a, b); }
  static V Sub(V a, V b) { return _mm256_sub_pd(a, b); }
  static V Mul(V a, V b) { return _mm256_mul_pd(a, b); }
  static V Set1(double a) { return _mm256_set1_pd(a); }
  static V Zero() { return _mm256_setzero_pd(); }
};
struct Ops128 {
  using V = __m128d;
  static V Add(V a, V b) { return _mm_add_pd(a, b); }
  static V Sub(V a, V b) { return _mm_sub_pd(a, b); }
  static V Mul(V a, V b) { return _mm_mul_pd(a, b); }
  static V Set1(double a) { return _mm_set1_pd(a); }
  static V Zero() { return _mm_setzero_pd(); }
};

// Four slots, one per lane: `gather(sb)` gives subband sb of the four (odd slots of
// odd subbands negated: lanes 1 and 3 are odd slots), then the DCT, and the 64 ring
// values of lane j as the row at rows[j].
template <class Gather>
inline void Dct32FourLanes(Gather gather, double* const rows[4]) {
  alignas(32) __m256d x[32];
  const __m256d oddSlots = _mm256_set_pd(-0.0, 0.0, -0.0, 0.0);
  // Unrolled, as is the read-out below: every index is then known, and the values
  // stay in registers.
#pragma GCC unroll 16
  for (int sb = 0; sb < 32; sb += 2) {
    x[sb] = gather(sb);
    x[sb + 1] = _mm256_xor_pd(gather(sb + 1), oddSlots);
  }
  Dct32Lanes<Ops256>(x);
  // Four ring values of four slots at a time: a 4 x 4 transpose.
#pragma GCC unroll 16
  for (int i = 0; i < 64; i += 4) {
    const __m256d v0 = RingValueLanes<Ops256>(x, i), v1 = RingValueLanes<Ops256>(x, i + 1);
    const __m256d v2 = RingValueLanes<Ops256>(x, i + 2), v3 = RingValueLanes<Ops256>(x, i + 3);
    const __m256d t0 = _mm256_unpacklo_pd(v0, v1);
    const __m256d t1 = _mm256_unpackhi_pd(v0, v1);
    const __m256d t2 = _mm256_unpacklo_pd(v2, v3);
    const __m256d t3 = _mm256_unpackhi_pd(v2, v3);
    _mm256_store_pd(rows[0] + i, _mm256_permute2f128_pd(t0, t2, 0x20));
    _mm256_store_pd(rows[1] + i, _mm256_permute2f128_pd(t1, t3, 0x20));
    _mm256_store_pd(rows[2] + i, _mm256_permute2f128_pd(t0, t2, 0x31));
    _mm256_store_pd(rows[3] + i, _mm256_permute2f128_pd(t1, t3, 0x31));
  }
}

// Four slots first..first+3 (first even): slot first + s at rows - 64 s.
void Dct32FourSlots(const double* hybrid, uint32_t first, double* rows) {
  double* const out[4] = {rows, rows - 64, rows - 128, rows - 192};
  Dct32FourLanes([hybrid, first](int sb) { return _mm256_loadu_pd(hybrid + 18 * sb + first); }, out);
}

// Two slots first, first + 1 (first even: lane 1 is the odd slot).
void Dct32TwoSlots(const double* hybrid, uint32_t first, double* rows) {
  alignas(16) __m128d x[32];
  const __m128d oddSlot = _mm_set_pd(-0.0, 0.0);
#pragma GCC unroll 16
  for (int sb = 0; sb < 32; sb += 2) {
    x[sb] = _mm_loadu_pd(hybrid + 18 * sb + first);
    x[sb + 1] = _mm_xor_pd(_mm_loadu_pd(hybrid + 18 * (sb + 1) + first), oddSlot);
  }
  Dct32Lanes<Ops128>(x);
#pragma GCC unroll 32
  for (int i = 0; i < 64; i += 2) {
    const __m128d v0 = RingValueLanes<Ops128>(x, i), v1 = RingValueLanes<Ops128>(x, i + 1);
    _mm_store_pd(rows + i, _mm_unpacklo_pd(v0, v1));
    _mm_store_pd(rows - 64 + i, _mm_unpackhi_pd(v0, v1));
  }
}

// ---- Windowing, four outputs per register ----

// Window sums of all 32 outputs in eight registers, tap by tap from k = 0, handed to
// `store` as (sums of outputs 0..3, ..., sums of outputs 28..31). Named registers
// rather than an array, so that the compiler keeps them out of memory.
template <class Store>
inline void WindowSums32(const double* window, const double* const* taps, Store store) {
  const double* r = taps[0];
  __m256d a0 = _mm256_mul_pd(_mm256_load_pd(window + 0), _mm256_loadu_pd(r + 0));
  __m256d a1 = _mm256_mul_pd(_mm256_load_pd(window + 4), _mm256_loadu_pd(r + 4));
  __m256d a2 = _mm256_mul_pd(_mm256_load_pd(window + 8), _mm256_loadu_pd(r + 8));
  __m256d a3 = _mm256_mul_pd(_mm256_load_pd(window + 12), _mm256_loadu_pd(r + 12));
  __m256d a4 = _mm256_mul_pd(_mm256_load_pd(window + 16), _mm256_loadu_pd(r + 16));
  __m256d a5 = _mm256_mul_pd(_mm256_load_pd(window + 20), _mm256_loadu_pd(r + 20));
  __m256d a6 = _mm256_mul_pd(_mm256_load_pd(window + 24), _mm256_loadu_pd(r + 24));
  __m256d a7 = _mm256_mul_pd(_mm256_load_pd(window + 28), _mm256_loadu_pd(r + 28));
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k;
    r = taps[k];
    a0 = _mm256_add_pd(a0, _mm256_mul_pd(_mm256_load_pd(w + 0), _mm256_loadu_pd(r + 0)));
    a1 = _mm256_add_pd(a1, _mm256_mul_pd(_mm256_load_pd(w + 4), _mm256_loadu_pd(r + 4)));
    a2 = _mm256_add_pd(a2, _mm256_mul_pd(_mm256_load_pd(w + 8), _mm256_loadu_pd(r + 8)));
    a3 = _mm256_add_pd(a3, _mm256_mul_pd(_mm256_load_pd(w + 12), _mm256_loadu_pd(r + 12)));
    a4 = _mm256_add_pd(a4, _mm256_mul_pd(_mm256_load_pd(w + 16), _mm256_loadu_pd(r + 16)));
    a5 = _mm256_add_pd(a5, _mm256_mul_pd(_mm256_load_pd(w + 20), _mm256_loadu_pd(r + 20)));
    a6 = _mm256_add_pd(a6, _mm256_mul_pd(_mm256_load_pd(w + 24), _mm256_loadu_pd(r + 24)));
    a7 = _mm256_add_pd(a7, _mm256_mul_pd(_mm256_load_pd(w + 28), _mm256_loadu_pd(r + 28)));
  }
  store(a0, a1, a2, a3, a4, a5, a6, a7);
}

// Window sums of outputs n..n+15 of two channels in four registers each, tap by tap
// from k = 0, each window register loaded once for both channels; handed to `store`
// as (channel 0's four registers, channel 1's four registers).
template <class Store>
inline void StereoWindowSums16(const double* window, const double* const* taps0, const double* const* taps1, int n,
                               Store store) {
  const double* w = window + n;
  const double* r0 = taps0[0] + n;
  const double* r1 = taps1[0] + n;
  __m256d w0 = _mm256_load_pd(w + 0), w1 = _mm256_load_pd(w + 4);
  __m256d w2 = _mm256_load_pd(w + 8), w3 = _mm256_load_pd(w + 12);
  __m256d a0 = _mm256_mul_pd(w0, _mm256_loadu_pd(r0 + 0)), b0 = _mm256_mul_pd(w0, _mm256_loadu_pd(r1 + 0));
  __m256d a1 = _mm256_mul_pd(w1, _mm256_loadu_pd(r0 + 4)), b1 = _mm256_mul_pd(w1, _mm256_loadu_pd(r1 + 4));
  __m256d a2 = _mm256_mul_pd(w2, _mm256_loadu_pd(r0 + 8)), b2 = _mm256_mul_pd(w2, _mm256_loadu_pd(r1 + 8));
  __m256d a3 = _mm256_mul_pd(w3, _mm256_loadu_pd(r0 + 12)), b3 = _mm256_mul_pd(w3, _mm256_loadu_pd(r1 + 12));
  for (int k = 1; k < 16; ++k) {
    w = window + 32 * k + n;
    r0 = taps0[k] + n;
    r1 = taps1[k] + n;
    w0 = _mm256_load_pd(w + 0);
    w1 = _mm256_load_pd(w + 4);
    w2 = _mm256_load_pd(w + 8);
    w3 = _mm256_load_pd(w + 12);
    a0 = _mm256_add_pd(a0, _mm256_mul_pd(w0, _mm256_loadu_pd(r0 + 0)));
    b0 = _mm256_add_pd(b0, _mm256_mul_pd(w0, _mm256_loadu_pd(r1 + 0)));
    a1 = _mm256_add_pd(a1, _mm256_mul_pd(w1, _mm256_loadu_pd(r0 + 4)));
    b1 = _mm256_add_pd(b1, _mm256_mul_pd(w1, _mm256_loadu_pd(r1 + 4)));
    a2 = _mm256_add_pd(a2, _mm256_mul_pd(w2, _mm256_loadu_pd(r0 + 8)));
    b2 = _mm256_add_pd(b2, _mm256_mul_pd(w2, _mm256_loadu_pd(r1 + 8)));
    a3 = _mm256_add_pd(a3, _mm256_mul_pd(w3, _mm256_loadu_pd(r0 + 12)));
    b3 = _mm256_add_pd(b3, _mm256_mul_pd(w3, _mm256_loadu_pd(r1 + 12)));
  }
  store(a0, a1, a2, a3, b0, b1, b2, b3);
}

}  // namespace

uint32_t Dct32SlotsAvx2(const double* hybrid, uint32_t first, double* rows) {
  if (first + 4 <= 18) {
    Dct32FourSlots(hybrid, first, rows);
    return 4;
  }
  Dct32TwoSlots(hybrid, first, rows);
  return 2;
}

void Dct32LastSlotsStereoAvx2(const double* hybrid0, const double* hybrid1, double* rows0, double* rows1) {
  double* const out[4] = {rows0, rows0 - 64, rows1, rows1 - 64};
  Dct32FourLanes(
      [hybrid0, hybrid1](int sb) {
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(hybrid0 + 18 * sb + 16)),
                                    _mm_loadu_pd(hybrid1 + 18 * sb + 16), 1);
      },
      out);
}

void WindowInt16Avx2(int16_t* out, const double* const* taps) {
  WindowSums32(gTables.synthWindowInt16, taps,
               [out](__m256d a0, __m256d a1, __m256d a2, __m256d a3, __m256d a4, __m256d a5, __m256d a6, __m256d a7) {
                 auto pack = [](__m256d lo, __m256d hi) {
                   return _mm_packs_epi32(_mm256_cvtpd_epi32(lo), _mm256_cvtpd_epi32(hi));
                 };
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 0), pack(a0, a1));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), pack(a2, a3));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), pack(a4, a5));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 24), pack(a6, a7));
               });
}

void WindowFloatAvx2(double* out, const double* const* taps) {
  WindowSums32(gTables.synthWindowFloat, taps,
               [out](__m256d a0, __m256d a1, __m256d a2, __m256d a3, __m256d a4, __m256d a5, __m256d a6, __m256d a7) {
                 _mm256_storeu_pd(out + 0, a0);
                 _mm256_storeu_pd(out + 4, a1);
                 _mm256_storeu_pd(out + 8, a2);
                 _mm256_storeu_pd(out + 12, a3);
                 _mm256_storeu_pd(out + 16, a4);
                 _mm256_storeu_pd(out + 20, a5);
                 _mm256_storeu_pd(out + 24, a6);
                 _mm256_storeu_pd(out + 28, a7);
               });
}

void WindowStereoInt16Avx2(void* out, const double* const* taps0, const double* const* taps1) {
  auto* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; n += 16) {
    StereoWindowSums16(gTables.synthWindowInt16, taps0, taps1, n,
                       [dst, n](__m256d a0, __m256d a1, __m256d a2, __m256d a3, __m256d b0, __m256d b1, __m256d b2,
                                __m256d b3) {
                         // Four outputs of each channel as 32-bit integers, interleaved
                         // and packed: four frames.
                         auto frames = [](__m256d a, __m256d b) {
                           const __m128i l = _mm256_cvtpd_epi32(a);
                           const __m128i r = _mm256_cvtpd_epi32(b);
                           return _mm_packs_epi32(_mm_unpacklo_epi32(l, r), _mm_unpackhi_epi32(l, r));
                         };
                         uint8_t* at = dst + 4 * n;
                         _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 0), frames(a0, b0));
                         _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 16), frames(a1, b1));
                         _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 32), frames(a2, b2));
                         _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 48), frames(a3, b3));
                       });
  }
}

void WindowStereoFloatAvx2(void* out, const double* const* taps0, const double* const* taps1) {
  auto* dst = static_cast<uint8_t*>(out);
  for (int n = 0; n < 32; n += 16) {
    StereoWindowSums16(gTables.synthWindowFloat, taps0, taps1, n,
                       [dst, n](__m256d a0, __m256d a1, __m256d a2, __m256d a3, __m256d b0, __m256d b1, __m256d b2,
                                __m256d b3) {
                         // Four outputs of each channel as four frames (stored as integer
                         // vectors: the destination may not be aligned for doubles).
                         auto store = [](uint8_t* at, __m256d a, __m256d b) {
                           const __m256d lo = _mm256_unpacklo_pd(a, b);  // a0 b0 | a2 b2
                           const __m256d hi = _mm256_unpackhi_pd(a, b);  // a1 b1 | a3 b3
                           _mm256_storeu_si256(reinterpret_cast<__m256i*>(at),
                                               _mm256_castpd_si256(_mm256_permute2f128_pd(lo, hi, 0x20)));
                           _mm256_storeu_si256(reinterpret_cast<__m256i*>(at + 32),
                                               _mm256_castpd_si256(_mm256_permute2f128_pd(lo, hi, 0x31)));
                         };
                         uint8_t* at = dst + 16 * n;
                         store(at + 0, a0, b0);
                         store(at + 64, a1, b1);
                         store(at + 128, a2, b2);
                         store(at + 192, a3, b3);
                       });
  }
}

}  // namespace kxmp3

#endif  // __AVX2__
