// The long-block hybrid filterbank step of several subbands at once, one subband per
// lane of a vector: the 36-point IMDCT of the scalar reference (Imdct36Scalar in
// imdct.cpp), its window and the overlap-add, with every lane performing exactly the
// reference's operations in the reference's order, so that each lane's results are
// bit-identical to the reference's for its subband. Written once for any vector width:
// `O` supplies the vector type and its add, subtract, multiply and broadcast; the
// kernel files move the subbands' lines into lanes and back.
//
// Included by the wide-kernel files, each compiled for its own instruction set. All
// of it has internal linkage (an unnamed namespace), so that no copy compiled for a
// wider instruction set can be the one another file links to.
#pragma once

#include "dsp_kernels.h"

namespace kxmp3 {
namespace {

// x[0..17]: line k of every lane's subband in x[k] (overwritten). Gives the combined
// halves, minus[r] and plus[r] (r = 0..8), from which WindowedLanes forms the outputs.
template <class O>
inline void Imdct36Lanes(typename O::V* x, typename O::V* minus, typename O::V* plus) {
  using V = typename O::V;
  const ImdctConstants& c = gImdctConstants;
  // Running sums in place: Z[k] = X[k] + X[k-1], then Z'[k] = Z[k] + Z[k-2] for odd k.
  for (int k = 17; k >= 1; --k) x[k] = O::Add(x[k], x[k - 1]);
  for (int k = 17; k >= 3; k -= 2) x[k] = O::Add(x[k], x[k - 2]);

  // Nine-point DCT-III of the even half (x[0], x[2], ...) and of the odd half
  // (x[1], x[3], ...).
  const V c1 = O::Set1(c.c1[0]), c2 = O::Set1(c.c2[0]), c3 = O::Set1(c.c3[0]), c4 = O::Set1(c.c4[0]);
  const V c5 = O::Set1(c.c5[0]), c7 = O::Set1(c.c7[0]), c8 = O::Set1(c.c8[0]);
  V p[9][2];
  for (int half = 0; half < 2; ++half) {
    const V v0 = x[0 + half], v1 = x[2 + half], v2 = x[4 + half], v3 = x[6 + half], v4 = x[8 + half];
    const V v5 = x[10 + half], v6 = x[12 + half], v7 = x[14 + half], v8 = x[16 + half];
    const V v0d = O::Add(v0, v0);
    const V a = O::Add(v0d, v6);
    const V b = O::Sub(v0d, O::Add(v6, v6));
    const V ev0 = O::Add(O::Add(O::Add(a, O::Mul(v2, c2)), O::Mul(v4, c4)), O::Mul(v8, c8));
    const V ev1 = O::Sub(O::Sub(O::Add(b, v2), v4), v8);
    const V ev2 = O::Add(O::Sub(O::Sub(a, O::Mul(v2, c8)), O::Mul(v4, c2)), O::Mul(v8, c4));
    const V ev3 = O::Sub(O::Add(O::Sub(a, O::Mul(v2, c4)), O::Mul(v4, c8)), O::Mul(v8, c2));
    const V od0 = O::Add(O::Add(O::Add(O::Mul(v1, c1), O::Mul(v3, c3)), O::Mul(v5, c5)), O::Mul(v7, c7));
    const V od1 = O::Mul(O::Sub(O::Sub(v1, v5), v7), c3);
    const V od2 = O::Add(O::Sub(O::Sub(O::Mul(v1, c5), O::Mul(v3, c3)), O::Mul(v5, c7)), O::Mul(v7, c1));
    const V od3 = O::Sub(O::Add(O::Sub(O::Mul(v1, c7), O::Mul(v3, c3)), O::Mul(v5, c1)), O::Mul(v7, c5));
    p[0][half] = O::Add(ev0, od0);
    p[8][half] = O::Sub(ev0, od0);
    p[1][half] = O::Add(ev1, od1);
    p[7][half] = O::Sub(ev1, od1);
    p[2][half] = O::Add(ev2, od2);
    p[6][half] = O::Sub(ev2, od2);
    p[3][half] = O::Add(ev3, od3);
    p[5][half] = O::Sub(ev3, od3);
    p[4][half] = O::Add(O::Sub(O::Add(O::Sub(v0, v2), v4), v6), v8);
  }

  // Combine the halves.
  for (int r = 0; r < 9; ++r) {
    const V e = p[r][0];
    const V t = O::Mul(p[r][1], O::Set1(c.combine36[r]));
    plus[r] = O::Add(e, t);
    minus[r] = O::Sub(e, t);
  }
}

// Output t (0..17) of every lane, windowed and added to the stored overlap `stored`,
// and its new overlap (output 18 + t): outputs 8 - r and 9 + r take minus[r], outputs
// 26 - r and 27 + r take plus[r], so time sample t and the overlap value after it come
// from the same r.
template <class O>
inline void WindowedLanes(const typename O::V* minus, const typename O::V* plus, const double* window, int t,
                          typename O::V stored, typename O::V& sample, typename O::V& overlap) {
  const int r = t <= 8 ? 8 - t : t - 9;
  sample = O::Add(O::Mul(minus[r], O::Set1(window[t])), stored);
  overlap = O::Mul(plus[r], O::Set1(window[18 + t]));
}

}  // namespace
}  // namespace kxmp3
