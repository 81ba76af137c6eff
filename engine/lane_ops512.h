// The vector operations the lane templates (dct32_lanes.h, imdct36_lanes.h) need, for
// 512-bit registers of eight doubles: add, subtract, multiply, broadcast and zero,
// each one instruction without fused multiply-add.
//
// Included only by the files compiled for AVX-512F. It has internal linkage (an
// unnamed namespace), so that no copy compiled for another instruction set can be the
// one a file links to.
#pragma once

#include <immintrin.h>

namespace kxmp3 {
namespace {

struct Ops512 {
  using V = __m512d;
  static V Add(V a, V b) { return _mm512_add_pd(a, b); }
  static V Sub(V a, V b) { return _mm512_sub_pd(a, b); }
  static V Mul(V a, V b) { return _mm512_mul_pd(a, b); }
  static V Set1(double a) { return _mm512_set1_pd(a); }
  static V Zero() { return _mm512_setzero_pd(); }
};

}  // namespace
}  // namespace kxmp3
