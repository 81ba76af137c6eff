// AVX-512 versions of the synthesis window kernels, for processors that have it
// (chosen at run time, see dsp_kernels.cpp; this file is compiled for AVX-512F
// without FMA). They form the same sums as the SSE2 and scalar kernels, tap by tap
// from k = 0 with a separate multiply and add, eight outputs per register; the 16-bit
// conversion is the same processor conversion (round to nearest even, out-of-range
// to the most negative 32-bit value) and saturating pack. The matrixing runs the
// scalar reference's 32-point DCT on eight time slots at once, one slot per lane
// (dct32_lanes.h), and turns the results into one row of 64 values per slot by 8 x 8
// transposes of the 32 DCT outputs and permutations; the last two slots of a granule
// go through the AVX2 kernel.
//
// As in the AVX2 file, nothing here is an inline function shared with other files.
#include "dsp_kernels.h"

#if defined(__AVX512F__)

#include <immintrin.h>

#include "dct32_lanes.h"
#include "lane_ops512.h"
#include "tables.h"

namespace kxmp3 {

namespace {

// ---- Matrixing, one slot per lane ----

// The unpacks and block shuffles in their zero-masking form with every lane selected:
// the same instructions, without the undefined source register of the plain forms,
// which GCC 12 reports as uninitialised.
inline __m512d UnpackLo(__m512d a, __m512d b) { return _mm512_maskz_unpacklo_pd(0xFF, a, b); }
inline __m512d UnpackHi(__m512d a, __m512d b) { return _mm512_maskz_unpackhi_pd(0xFF, a, b); }
template <int kImm>
inline __m512d Blocks(__m512d a, __m512d b) {
  return _mm512_maskz_shuffle_f64x2(0xFF, a, b, kImm);
}

// Eight values of eight slots (v[0..7]: value i + j of every slot in v[j]) as the
// eight slots' registers: out[s] holds slot s's values i..i+7.
inline void Transpose8(const __m512d* v, __m512d* out) {
  const __m512d t0 = UnpackLo(v[0], v[1]), t1 = UnpackHi(v[0], v[1]);
  const __m512d t2 = UnpackLo(v[2], v[3]), t3 = UnpackHi(v[2], v[3]);
  const __m512d t4 = UnpackLo(v[4], v[5]), t5 = UnpackHi(v[4], v[5]);
  const __m512d t6 = UnpackLo(v[6], v[7]), t7 = UnpackHi(v[6], v[7]);
  // 128-bit blocks: a0 = (t0 block 0, t0 block 1, t2 block 0, t2 block 1), a1 the blocks 2, 3.
  const __m512d a0 = Blocks<0x44>(t0, t2), a1 = Blocks<0xEE>(t0, t2);
  const __m512d b0 = Blocks<0x44>(t4, t6), b1 = Blocks<0xEE>(t4, t6);
  const __m512d c0 = Blocks<0x44>(t1, t3), c1 = Blocks<0xEE>(t1, t3);
  const __m512d d0 = Blocks<0x44>(t5, t7), d1 = Blocks<0xEE>(t5, t7);
  out[0] = Blocks<0x88>(a0, b0);
  out[1] = Blocks<0x88>(c0, d0);
  out[2] = Blocks<0xDD>(a0, b0);
  out[3] = Blocks<0xDD>(c0, d0);
  out[4] = Blocks<0x88>(a1, b1);
  out[5] = Blocks<0x88>(c1, d1);
  out[6] = Blocks<0xDD>(a1, b1);
  out[7] = Blocks<0xDD>(c1, d1);
}

// Eight slots first..first+7 (first even): gather (odd slots of odd subbands
// negated), DCT, and the 64 ring values of each slot as a row: slot first + s at
// rows - 64 s. Only X is transposed (X[8 j..8 j + 7] of slot s in register j of the
// slot); the row's reversed runs are built from two neighbouring registers by one
// permutation each:
//   ring values 0..15   X[16..31]           (registers 2, 3)
//   ring values 16..23  0, X[31..25]        (register 3 reversed, lane 0 cleared)
//   ring values 24..47  X[24..1]            (registers 3|2, 2|1, 1|0 reversed)
//   ring values 48..63  X[0..15]            (registers 0, 1)
void Dct32EightSlots(const double* hybrid, uint32_t first, double* rows) {
  alignas(64) __m512d x[32];
  // Lanes 1, 3, 5 and 7 are the odd slots.
  const __m512i oddSlots = _mm512_set_epi64(INT64_MIN, 0, INT64_MIN, 0, INT64_MIN, 0, INT64_MIN, 0);
  // Unrolled, so that the loads go straight into the first halving.
#pragma GCC unroll 16
  for (int sb = 0; sb < 32; sb += 2) {
    x[sb] = _mm512_loadu_pd(hybrid + 18 * sb + first);
    const __m512i odd = _mm512_castpd_si512(_mm512_loadu_pd(hybrid + 18 * (sb + 1) + first));
    x[sb + 1] = _mm512_castsi512_pd(_mm512_xor_si512(odd, oddSlots));
  }
  Dct32Lanes<Ops512>(x);
  // Lane 0 from the second register's lane 0, lane i from the first's lane 8 - i.
  const __m512i reverse = _mm512_set_epi64(1, 2, 3, 4, 5, 6, 7, 8);
  __m512d hi[8], lo[8];
  Transpose8(x + 24, hi);
  Transpose8(x + 16, lo);
  for (int s = 0; s < 8; ++s) {
    double* row = rows - 64 * s;
    _mm512_storeu_pd(row + 0, lo[s]);
    _mm512_storeu_pd(row + 8, hi[s]);
    _mm512_storeu_pd(row + 16, _mm512_maskz_permutexvar_pd(0xFE, reverse, hi[s]));
    _mm512_storeu_pd(row + 24, _mm512_permutex2var_pd(lo[s], reverse, hi[s]));
  }
  Transpose8(x + 8, hi);
  for (int s = 0; s < 8; ++s) {
    double* row = rows - 64 * s;
    _mm512_storeu_pd(row + 32, _mm512_permutex2var_pd(hi[s], reverse, lo[s]));
    _mm512_storeu_pd(row + 56, hi[s]);
  }
  Transpose8(x + 0, lo);
  for (int s = 0; s < 8; ++s) {
    double* row = rows - 64 * s;
    _mm512_storeu_pd(row + 40, _mm512_permutex2var_pd(lo[s], reverse, hi[s]));
    _mm512_storeu_pd(row + 48, lo[s]);
  }
}

// ---- Windowing, eight outputs per register ----

// Window sums of all 32 outputs in four registers, tap by tap from k = 0, handed to
// `store` (outputs 0..7, 8..15, 16..23, 24..31).
template <class Store>
inline void WindowSums32(const double* window, const double* const* taps, Store store) {
  const double* r = taps[0];
  __m512d a0 = _mm512_mul_pd(_mm512_load_pd(window + 0), _mm512_loadu_pd(r + 0));
  __m512d a1 = _mm512_mul_pd(_mm512_load_pd(window + 8), _mm512_loadu_pd(r + 8));
  __m512d a2 = _mm512_mul_pd(_mm512_load_pd(window + 16), _mm512_loadu_pd(r + 16));
  __m512d a3 = _mm512_mul_pd(_mm512_load_pd(window + 24), _mm512_loadu_pd(r + 24));
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k;
    r = taps[k];
    a0 = _mm512_add_pd(a0, _mm512_mul_pd(_mm512_load_pd(w + 0), _mm512_loadu_pd(r + 0)));
    a1 = _mm512_add_pd(a1, _mm512_mul_pd(_mm512_load_pd(w + 8), _mm512_loadu_pd(r + 8)));
    a2 = _mm512_add_pd(a2, _mm512_mul_pd(_mm512_load_pd(w + 16), _mm512_loadu_pd(r + 16)));
    a3 = _mm512_add_pd(a3, _mm512_mul_pd(_mm512_load_pd(w + 24), _mm512_loadu_pd(r + 24)));
  }
  store(a0, a1, a2, a3);
}

// Eight sums to eight 16-bit samples. (The conversion is written in its masked
// form with every lane selected: the same instruction, without the undefined source
// register of the plain form, which GCC 12 reports as uninitialised.)
inline __m128i Pack8(__m512d sums) {
  const __m256i words = _mm512_mask_cvtpd_epi32(_mm256_setzero_si256(), 0xFF, sums);
  return _mm_packs_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
}

// `v` as a register value: the compiler would otherwise fold a window load into
// each of the two channels' multiplications, loading it twice, and the loads are
// what limits the two-channel window.
inline __m512d InRegister(__m512d v) {
  __asm__("" : "+v"(v));
  return v;
}

// Window sums of all 32 outputs of two channels in four registers each, tap by tap
// from k = 0, each window register loaded once for both channels; handed to `store`
// as (channel 0's four registers, channel 1's four registers).
template <class Store>
inline void StereoWindowSums32(const double* window, const double* const* taps0, const double* const* taps1,
                               Store store) {
  const double* r0 = taps0[0];
  const double* r1 = taps1[0];
  __m512d w0 = _mm512_load_pd(window + 0), w1 = _mm512_load_pd(window + 8);
  __m512d w2 = _mm512_load_pd(window + 16), w3 = _mm512_load_pd(window + 24);
  __m512d a0 = _mm512_mul_pd(w0, _mm512_loadu_pd(r0 + 0)), b0 = _mm512_mul_pd(w0, _mm512_loadu_pd(r1 + 0));
  __m512d a1 = _mm512_mul_pd(w1, _mm512_loadu_pd(r0 + 8)), b1 = _mm512_mul_pd(w1, _mm512_loadu_pd(r1 + 8));
  __m512d a2 = _mm512_mul_pd(w2, _mm512_loadu_pd(r0 + 16)), b2 = _mm512_mul_pd(w2, _mm512_loadu_pd(r1 + 16));
  __m512d a3 = _mm512_mul_pd(w3, _mm512_loadu_pd(r0 + 24)), b3 = _mm512_mul_pd(w3, _mm512_loadu_pd(r1 + 24));
  for (int k = 1; k < 16; ++k) {
    const double* w = window + 32 * k;
    r0 = taps0[k];
    r1 = taps1[k];
    w0 = InRegister(_mm512_load_pd(w + 0));
    w1 = InRegister(_mm512_load_pd(w + 8));
    w2 = InRegister(_mm512_load_pd(w + 16));
    w3 = InRegister(_mm512_load_pd(w + 24));
    a0 = _mm512_add_pd(a0, _mm512_mul_pd(w0, _mm512_loadu_pd(r0 + 0)));
    b0 = _mm512_add_pd(b0, _mm512_mul_pd(w0, _mm512_loadu_pd(r1 + 0)));
    a1 = _mm512_add_pd(a1, _mm512_mul_pd(w1, _mm512_loadu_pd(r0 + 8)));
    b1 = _mm512_add_pd(b1, _mm512_mul_pd(w1, _mm512_loadu_pd(r1 + 8)));
    a2 = _mm512_add_pd(a2, _mm512_mul_pd(w2, _mm512_loadu_pd(r0 + 16)));
    b2 = _mm512_add_pd(b2, _mm512_mul_pd(w2, _mm512_loadu_pd(r1 + 16)));
    a3 = _mm512_add_pd(a3, _mm512_mul_pd(w3, _mm512_loadu_pd(r0 + 24)));
    b3 = _mm512_add_pd(b3, _mm512_mul_pd(w3, _mm512_loadu_pd(r1 + 24)));
  }
  store(a0, a1, a2, a3, b0, b1, b2, b3);
}

// Eight sums of each channel to eight interleaved 16-bit frames.
inline __m256i Frames8(__m512d a, __m512d b) {
  const __m256i l = _mm512_mask_cvtpd_epi32(_mm256_setzero_si256(), 0xFF, a);
  const __m256i r = _mm512_mask_cvtpd_epi32(_mm256_setzero_si256(), 0xFF, b);
  // Per 128-bit half: l0 r0 l1 r1 | l2 r2 l3 r3 packed, so the halves are frames 0..3
  // and 4..7.
  return _mm256_packs_epi32(_mm256_unpacklo_epi32(l, r), _mm256_unpackhi_epi32(l, r));
}

// Eight sums of each channel as eight frames of doubles at `at` (stored as integer
// vectors: the destination may not be aligned for doubles).
inline void StoreFrames8(uint8_t* at, __m512d a, __m512d b) {
  const __m512i first = _mm512_set_epi64(11, 3, 10, 2, 9, 1, 8, 0);
  const __m512i second = _mm512_set_epi64(15, 7, 14, 6, 13, 5, 12, 4);
  _mm512_storeu_si512(at, _mm512_castpd_si512(_mm512_permutex2var_pd(a, first, b)));
  _mm512_storeu_si512(at + 64, _mm512_castpd_si512(_mm512_permutex2var_pd(a, second, b)));
}

}  // namespace

uint32_t Dct32SlotsAvx512(const double* hybrid, uint32_t first, double* rows) {
  if (first + 8 <= 18) {
    Dct32EightSlots(hybrid, first, rows);
    return 8;
  }
  return Dct32SlotsAvx2(hybrid, first, rows);
}

void WindowInt16Avx512(int16_t* out, const double* const* taps) {
  WindowSums32(gTables.synthWindowInt16, taps, [out](__m512d a0, __m512d a1, __m512d a2, __m512d a3) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 0), Pack8(a0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), Pack8(a1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), Pack8(a2));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 24), Pack8(a3));
  });
}

void WindowFloatAvx512(double* out, const double* const* taps) {
  WindowSums32(gTables.synthWindowFloat, taps, [out](__m512d a0, __m512d a1, __m512d a2, __m512d a3) {
    _mm512_storeu_pd(out + 0, a0);
    _mm512_storeu_pd(out + 8, a1);
    _mm512_storeu_pd(out + 16, a2);
    _mm512_storeu_pd(out + 24, a3);
  });
}

void WindowStereoInt16Avx512(void* out, const double* const* taps0, const double* const* taps1) {
  auto* dst = static_cast<uint8_t*>(out);
  StereoWindowSums32(gTables.synthWindowInt16, taps0, taps1,
                     [dst](__m512d a0, __m512d a1, __m512d a2, __m512d a3, __m512d b0, __m512d b1, __m512d b2,
                           __m512d b3) {
                       _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 0), Frames8(a0, b0));
                       _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 32), Frames8(a1, b1));
                       _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 64), Frames8(a2, b2));
                       _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 96), Frames8(a3, b3));
                     });
}

void WindowStereoFloatAvx512(void* out, const double* const* taps0, const double* const* taps1) {
  auto* dst = static_cast<uint8_t*>(out);
  StereoWindowSums32(gTables.synthWindowFloat, taps0, taps1,
                     [dst](__m512d a0, __m512d a1, __m512d a2, __m512d a3, __m512d b0, __m512d b1, __m512d b2,
                           __m512d b3) {
                       StoreFrames8(dst + 0, a0, b0);
                       StoreFrames8(dst + 128, a1, b1);
                       StoreFrames8(dst + 256, a2, b2);
                       StoreFrames8(dst + 384, a3, b3);
                     });
}

}  // namespace kxmp3

#endif  // __AVX512F__
