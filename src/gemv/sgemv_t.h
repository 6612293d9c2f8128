// y = beta * y + alpha * A' * x for a packed row-major m by n matrix, read
// along its rows: each row, scaled by its element of x, is added into a
// zeroed scratch vector t, blocks of four rows as one chain per load and
// store of t, then the rows left over. Every element of t thus takes its
// products in ascending row order. A last pass forms alpha * t + beta * y,
// unfused; beta is never tested, so the old y always counts.
#ifndef NUMBRA_GEMV_SGEMV_T_H
#define NUMBRA_GEMV_SGEMV_T_H

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "gemv/sgemv_extents.h"
#include "simd/multiply_add.h"

namespace numbra_internal {
namespace {

// Where the vector steps stop; the same bound serves both row stages.
struct SgemvTExtents {
  int block_rows;      // rows done in blocks of four
  int vector_columns;  // columns done in 8-lane steps
};

// t[j] += x_r * row_r[j] for r = 0..kRows-1 in order, a chain per column.
template <bool kFused, int kRows>
void add_scaled_rows(int n, const float* rows, std::ptrdiff_t stride, const float* x, float* t,
                     int vector_columns) {
  __m256 xr[kRows];
#pragma GCC unroll 8
  for (int r = 0; r < kRows; ++r) {
    xr[r] = _mm256_set1_ps(x[r]);
  }
  // Two steps a pass: one pointer update for both, which leaves room in
  // the out-of-order window for more of the matrix in flight.
#pragma GCC unroll 2
  for (int j = 0; j < vector_columns; j += 8) {
    __m256 tj = _mm256_loadu_ps(t + j);
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
      tj = MultiplyAdd<kFused>::step(tj, xr[r], _mm256_loadu_ps(rows + r * stride + j));
    }
    _mm256_storeu_ps(t + j, tj);
  }
  for (int j = vector_columns; j < n; ++j) {
    float tj = t[j];
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
      const float p = x[r] * rows[r * stride + j];
      tj = tj + p;
    }
    t[j] = tj;
  }
}

template <bool kFused>
void sgemv_t(int m, int n, float alpha, const float* a, const float* x, float beta, float* y,
             SgemvTExtents extents) {
  // The size is taken as unsigned: a negative n asks for an impossible block,
  // and like any failed request it leaves a null scratch that the clearing
  // then faults on.
  const std::size_t bytes = n * sizeof(float);
  void* scratch = nullptr;
  if (posix_memalign(&scratch, 32, bytes) != 0) scratch = nullptr;
  float* t = static_cast<float*>(scratch);
  std::memset(t, 0, bytes);

  const std::ptrdiff_t stride = n;
  // Two blocks of four rows make one chain of eight: the same additions in
  // the same order, with more of the matrix in flight per load and store of t.
  int i = 0;
  for (; i + 8 <= extents.block_rows; i += 8) {
    add_scaled_rows<kFused, 8>(n, a + i * stride, stride, x + i, t, extents.vector_columns);
  }
  for (; i < extents.block_rows; i += 4) {
    add_scaled_rows<kFused, 4>(n, a + i * stride, stride, x + i, t, extents.vector_columns);
  }
  for (; i < m; ++i) {
    add_scaled_rows<kFused, 1>(n, a + i * stride, stride, x + i, t, extents.vector_columns);
  }

  const __m256 alpha8 = _mm256_set1_ps(alpha), beta8 = _mm256_set1_ps(beta);
  int j = 0;
  for (; j + 8 <= n; j += 8) {
    const __m256 scaled_t = _mm256_mul_ps(alpha8, _mm256_loadu_ps(t + j));
    const __m256 scaled_y = _mm256_mul_ps(beta8, _mm256_loadu_ps(y + j));
    _mm256_storeu_ps(y + j, _mm256_add_ps(scaled_t, scaled_y));
  }
  for (; j < n; ++j) {
    const float scaled_t = alpha * t[j];
    const float scaled_y = beta * y[j];
    y[j] = scaled_t + scaled_y;
  }
  std::free(t);
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMV_SGEMV_T_H
