// The synthesis matrixing of several time slots at once, one slot per lane of a
// vector: the 32-point DCT of the scalar reference (synthesis.cpp), every value of
// every lane formed by the reference's operation on the reference's operands, and the
// read-out of the 64 ring values. Written once for any vector width: `O` supplies the
// vector type and its add, subtract, multiply, broadcast and zero.
//
// Included by the wide-kernel files, each compiled for its own instruction set. All
// of it has internal linkage (an unnamed namespace), so that no copy compiled for a
// wider instruction set can be the one another file links to.
#pragma once

#include "tables.h"

namespace kxmp3 {
namespace {

// The N-point DCT of the reference on v[0..N-1] (replaced by X), one block at a time:
// the halving of the block, the two half-size DCTs, then the block's recombination.
// Every value is formed by the reference's operation on the reference's operands (only
// the order in which independent values are formed differs from its stage by stage
// order), so each lane gives the reference's bits; working block by block keeps the
// values of one half in registers while the other half waits. Always inlined: a call
// would pass the blocks through memory.
template <class O, int N>
[[gnu::always_inline]] inline void DctLanes(typename O::V* v) {
  using V = typename O::V;
  const DecoderTables& t = gTables;
  const double* factors = N == 32 ? t.dct32Factors
                          : N == 16 ? t.dct16Factors
                          : N == 8  ? t.dct8Factors
                          : N == 4  ? t.dct4Factors
                                    : t.dct2Factor;
  V a[N / 2], b[N / 2];
  for (int k = 0; k < N / 2; ++k) {
    const V lo = v[k];
    const V hi = v[N - 1 - k];
    a[k] = O::Add(lo, hi);
    b[k] = O::Mul(O::Sub(lo, hi), O::Set1(factors[k]));
  }
  if constexpr (N > 2) {
    DctLanes<O, N / 2>(a);
    DctLanes<O, N / 2>(b);
  }
  // Even outputs from the first half, odd outputs from sums of neighbours in the second.
  for (int m = 0; m < N / 2 - 1; ++m) {
    v[2 * m] = a[m];
    v[2 * m + 1] = O::Add(b[m], b[m + 1]);
  }
  v[N - 2] = a[N / 2 - 1];
  v[N - 1] = b[N / 2 - 1];
}

// The 32-point DCT of the reference on v (32 vectors, replaced by X).
template <class O>
[[gnu::always_inline]] inline void Dct32Lanes(typename O::V* v) {
  DctLanes<O, 32>(v);
}

// Ring value i (0..63) of the reference from X, still one slot per lane (the ring
// stores v[17..63] without their minus signs, see synthesis.cpp):
// X[16..31], 0, X[31..1], X[0..15]. With i known when compiling, only a register.
template <class O>
[[gnu::always_inline]] inline typename O::V RingValueLanes(const typename O::V* x, int i) {
  if (i < 16) return x[16 + i];
  if (i == 16) return O::Zero();
  if (i < 48) return x[48 - i];
  return x[i - 48];
}

}  // namespace
}  // namespace kxmp3
