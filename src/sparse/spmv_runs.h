// Pieces shared by the sparse matrix-vector kernels of every instruction
// set: the walk over the blocks of a BCSR matrix, the lane fold, the scalar
// tail of a run and the scatter of one column.
//
// Include from *_avx.cpp and *_fma.cpp files only. Internal linkage: each
// kernel file gets its own copy, built for its own instruction set.
#ifndef NUMBRA_SPARSE_SPMV_RUNS_H
#define NUMBRA_SPARSE_SPMV_RUNS_H

#include <immintrin.h>

#include <cstddef>
#include <cstring>

#include "sparse/nonzero.h"

namespace numbra_internal {
namespace {

// (v0 + v1) + (v2 + v3).
inline float fold4(__m128 v) {
  const __m128 pairs = _mm_add_ps(v, _mm_movehdup_ps(v));
  return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehl_ps(pairs, pairs)));
}

// s + val[e] * x[idx[e]] for e from `from` up to `count`, each product
// rounded before it is added.
template <typename Index>
float add_run_tail(float s, const float* x, const Index* idx, const float* val, long from,
                   long count) {
  for (long e = from; e < count; ++e) {
    const float product = val[e] * x[idx[e]];
    s = s + product;
  }
  return s;
}

// y = A * x for a BCSR matrix. y is cleared, then every local row of every
// block, in block order, adds dot(xb, colIdx, val, L) over its run of L
// entries to its element of y. Only the end of each block is read from
// blockPtr: the count and entry cursors run on from one block to the next.
template <typename RunDot>
void bcsr_product(int m, int n, int blk, const int* blockPtr, const unsigned short* rowLen,
                  const unsigned short* colIdx, const float* val, const float* x, float* y,
                  RunDot dot) {
  const BlockGrid grid(m, n, blk);
  clear_bytes(y, static_cast<std::size_t>(m) * sizeof(float));
  if (grid.mb < 1 || grid.nb < 1) return;
  const unsigned short* count = rowLen;
  for (int bi = 0; bi < grid.mb; ++bi) {
    float* yb = y + static_cast<std::size_t>(bi) * blk;
    for (int bj = 0; bj < grid.nb; ++bj) {
      const float* xb = x + static_cast<std::size_t>(bj) * blk;
      const unsigned short* blockEnd = rowLen + blockPtr[bi * grid.nb + bj + 1];
      for (int r = 0; count < blockEnd; ++r, ++count) {
        const int length = *count;
        // An empty run adds +0, which leaves yb[r] as it is: an element of y
        // is never -0, since it starts at +0 and a run's sum never is -0.
        if (length == 0) continue;
        const float s = dot(xb, colIdx, val, length);
        yb[r] = s + yb[r];
        colIdx += length;
        val += length;
      }
    }
  }
}

// y[idx[e]] = xv * val[e] + y[idx[e]] for e ascending, when xv passes the
// nonzero test; an x element that fails it (NaN included) adds nothing.
template <typename Index>
void scatter_column(float xv, long count, const Index* idx, const float* val, float* y) {
  if (!is_nonzero(xv)) return;
  for (long e = 0; e < count; ++e) {
    const float product = xv * val[e];
    y[idx[e]] = product + y[idx[e]];
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SPARSE_SPMV_RUNS_H
