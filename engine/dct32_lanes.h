// The synthesis matrixing of several time slots at once, one slot per lane of a
// vector: the 32-point DCT of the scalar reference (synthesis.cpp), with every lane
// performing exactly the reference's operations in the reference's order, and the
// read-out of the 64 ring values. Written once for any vector width: `O` supplies the
// vector type and its add, subtract, multiply and broadcast.
//
// Included by the wide-kernel files, each compiled for its own instruction set. All
// of it has internal linkage (an unnamed namespace), so that no copy compiled for a
// wider instruction set can be the one another file links to.
#pragma once

#include "tables.h"

namespace kxmp3 {
namespace {

// One halving stage over all blocks of size n, as the scalar reference does it.
template <class O>
inline void HalveLanes(const typename O::V* in, typename O::V* out, int n, const double* factors) {
  for (int g = 0; g < 32; g += n) {
    for (int k = 0; k < n / 2; ++k) {
      const typename O::V lo = in[g + k];
      const typename O::V hi = in[g + n - 1 - k];
      out[g + k] = O::Add(lo, hi);
      out[g + n / 2 + k] = O::Mul(O::Sub(lo, hi), O::Set1(factors[k]));
    }
  }
}

// One recombination stage over all blocks of size n, as the scalar reference does it.
template <class O>
inline void RecombineLanes(const typename O::V* in, typename O::V* out, int n) {
  for (int g = 0; g < 32; g += n) {
    const typename O::V* a = in + g;
    const typename O::V* b = in + g + n / 2;
    for (int m = 0; m < n / 2 - 1; ++m) {
      out[g + 2 * m] = a[m];
      out[g + 2 * m + 1] = O::Add(b[m], b[m + 1]);
    }
    out[g + n - 2] = a[n / 2 - 1];
    out[g + n - 1] = b[n / 2 - 1];
  }
}

// The 32-point DCT of the reference on p (32 vectors, overwritten); X ends in q.
template <class O>
inline void Dct32Lanes(typename O::V* p, typename O::V* q) {
  const DecoderTables& t = gTables;
  HalveLanes<O>(p, q, 32, t.dct32Factors);
  HalveLanes<O>(q, p, 16, t.dct16Factors);
  HalveLanes<O>(p, q, 8, t.dct8Factors);
  HalveLanes<O>(q, p, 4, t.dct4Factors);
  HalveLanes<O>(p, q, 2, t.dct2Factor);
  RecombineLanes<O>(q, p, 4);
  RecombineLanes<O>(p, q, 8);
  RecombineLanes<O>(q, p, 16);
  RecombineLanes<O>(p, q, 32);
}

// v[0..63] of the reference from X, still one slot per lane:
// v[0..15] = X[16..31], v[16] = 0, v[17..47] = -X[31..1], v[48..63] = -X[0..15].
template <class O>
inline void RingValuesLanes(const typename O::V* x, typename O::V* v) {
  for (int i = 0; i < 16; ++i) v[i] = x[16 + i];
  v[16] = O::Zero();
  for (int i = 17; i < 48; ++i) v[i] = O::Neg(x[48 - i]);
  for (int i = 48; i < 64; ++i) v[i] = O::Neg(x[i - 48]);
}

}  // namespace
}  // namespace kxmp3
