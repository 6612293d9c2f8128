// The sparse matrix-vector kernels reached by the entry points: 128-bit AVX,
// no gathers. A row run is summed in four partial sums, four entries a step,
// folded as (s0 + s1) + (s2 + s3), then finished one entry at a time. The
// column forms scatter each column into y, skipping columns whose x element
// fails the nonzero test.
#include "numbra.h"
#include "sparse/spmv_runs.h"

namespace numbra_internal {
namespace {

template <typename Index>
float dot_run_unroll(const float* x, const Index* idx, const float* val, long count) {
  __m128 partial = _mm_setzero_ps();
  long e = 0;
  for (; e <= count - 4; e += 4) {
    const __m128 xs = _mm_set_ps(x[idx[e + 3]], x[idx[e + 2]], x[idx[e + 1]], x[idx[e]]);
    partial = _mm_add_ps(partial, _mm_mul_ps(_mm_loadu_ps(val + e), xs));
  }
  return numbra_internal::add_run_tail(numbra_internal::fold4(partial), x, idx, val, e, count);
}

}  // namespace
}  // namespace numbra_internal

extern "C" {

void x86SCSRSpmv_unroll(int m, const int* rowPtr, const int* colIdx, const float* val,
                        const float* x, float* y) {
  for (int i = 0; i < m; ++i) {
    const int e0 = rowPtr[i];
    y[i] = numbra_internal::dot_run_unroll(x, colIdx + e0, val + e0,
                                           static_cast<long>(rowPtr[i + 1]) - e0);
  }
}

void x86SBCSRSpmv_unroll(int m, int n, int blk, const int* blockPtr, const unsigned short* rowLen,
                         const unsigned short* colIdx, const float* val, const float* x, float* y) {
  numbra_internal::bcsr_product(m, n, blk, blockPtr, rowLen, colIdx, val, x, y,
                                numbra_internal::dot_run_unroll<unsigned short>);
}

void x86SCCSSpmv_unroll(int m, int n, const int* colPtr, const int* rowIdx, const float* val,
                        const float* x, float* y) {
  numbra_internal::clear_bytes(y, static_cast<std::size_t>(m) * sizeof(float));
  for (int j = 0; j < n; ++j) {
    const int e0 = colPtr[j];
    numbra_internal::scatter_column(x[j], static_cast<long>(colPtr[j + 1]) - e0, rowIdx + e0,
                                    val + e0, y);
  }
}

// x is read in full once per block row: the column number restarts with
// each block row and runs on across its blocks.
void x86SBCCSSpmv_unroll(int m, int n, int blk, const int* blockPtr, const unsigned short* colLen,
                         const unsigned short* rowIdx, const float* val, const float* x, float* y) {
  const numbra_internal::BlockGrid grid(m, n, blk);
  numbra_internal::clear_bytes(y, static_cast<std::size_t>(m) * sizeof(float));
  if (grid.mb < 1) return;
  const unsigned short* count = colLen;
  for (int bi = 0; bi < grid.mb; ++bi) {
    float* yb = y + static_cast<std::size_t>(bi) * blk;
    int xi = 0;
    for (int bj = 0; bj < grid.nb; ++bj) {
      const unsigned short* blockEnd = colLen + blockPtr[bi * grid.nb + bj + 1];
      for (; count < blockEnd; ++count, ++xi) {
        const int length = *count;
        numbra_internal::scatter_column(x[xi], length, rowIdx, val, yb);
        rowIdx += length;
        val += length;
      }
    }
  }
}

}  // extern "C"
