// y = beta * y + alpha * A * x for a packed row-major m by n matrix, as dot
// products: blocks of four rows share each load of x, the rows left over go
// one at a time. Each row sums into one 8-lane accumulator (lane l takes the
// columns j with j % 8 == l), adds its lanes left to right, then adds the
// columns past the vector steps one rounded product at a time. beta * y is
// formed before the sum and combined with alpha * sum at the end, each step
// rounded on its own; beta is never tested, so the old y always counts.
#ifndef NUMBRA_GEMV_SGEMV_N_H
#define NUMBRA_GEMV_SGEMV_N_H

#include <cstddef>

#include "gemv/sgemv_extents.h"
#include "simd/multiply_add.h"

namespace numbra_internal {
namespace {

// Where the vector steps stop. The two twins differ here, and the bounds
// decide which columns are summed in lanes and which one by one.
struct SgemvNExtents {
  int block_rows;     // rows done in blocks of four
  int block_columns;  // columns done in 8-lane steps for rows of a block
  int row_columns;    // columns done in 8-lane steps for a row on its own
};

// Lane k of each accumulator, added for k = 0..7 in order, four rows at once.
inline __m128 sum_lanes_left_to_right(__m256 r0, __m256 r1, __m256 r2, __m256 r3) {
  const __m256 r01_lo = _mm256_unpacklo_ps(r0, r1);  // lanes 0, 1 | 4, 5
  const __m256 r01_hi = _mm256_unpackhi_ps(r0, r1);  // lanes 2, 3 | 6, 7
  const __m256 r23_lo = _mm256_unpacklo_ps(r2, r3);
  const __m256 r23_hi = _mm256_unpackhi_ps(r2, r3);
  const __m256 lane0_4 = _mm256_shuffle_ps(r01_lo, r23_lo, 0x44);
  const __m256 lane1_5 = _mm256_shuffle_ps(r01_lo, r23_lo, 0xEE);
  const __m256 lane2_6 = _mm256_shuffle_ps(r01_hi, r23_hi, 0x44);
  const __m256 lane3_7 = _mm256_shuffle_ps(r01_hi, r23_hi, 0xEE);
  __m128 sum = _mm256_castps256_ps128(lane0_4);
  sum = _mm_add_ps(sum, _mm256_castps256_ps128(lane1_5));
  sum = _mm_add_ps(sum, _mm256_castps256_ps128(lane2_6));
  sum = _mm_add_ps(sum, _mm256_castps256_ps128(lane3_7));
  sum = _mm_add_ps(sum, _mm256_extractf128_ps(lane0_4, 1));
  sum = _mm_add_ps(sum, _mm256_extractf128_ps(lane1_5, 1));
  sum = _mm_add_ps(sum, _mm256_extractf128_ps(lane2_6, 1));
  return _mm_add_ps(sum, _mm256_extractf128_ps(lane3_7, 1));
}

inline float sum_lanes_left_to_right(__m256 acc) {
  alignas(32) float lane[8];
  _mm256_store_ps(lane, acc);
  float sum = lane[0];
  for (int k = 1; k < 8; ++k) sum = sum + lane[k];
  return sum;
}

// kGroups blocks of four rows, side by side: they share each load of x and
// keep more of the matrix in flight, and each row still sums exactly as in a
// block of its own.
template <bool kFused, int kGroups>
void blocks_of_four_rows(int n, float alpha, const float* a, const float* x, float beta, float* y,
                         int vector_columns) {
  constexpr int kRows = 4 * kGroups;
  const float* row[kRows];
  __m256 acc[kRows];
#pragma GCC unroll 8
  for (int r = 0; r < kRows; ++r) {
    row[r] = a + static_cast<std::ptrdiff_t>(r) * n;
    acc[r] = _mm256_setzero_ps();
  }
  __m128 scaled_y[kGroups];
#pragma GCC unroll 2
  for (int g = 0; g < kGroups; ++g) {
    scaled_y[g] = _mm_mul_ps(_mm_loadu_ps(y + 4 * g), _mm_set1_ps(beta));
  }
  // Two steps a pass: one pointer update for both, which leaves room in
  // the out-of-order window for more of the matrix in flight.
#pragma GCC unroll 2
  for (int j = 0; j < vector_columns; j += 8) {
    const __m256 xj = _mm256_loadu_ps(x + j);
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
      acc[r] = MultiplyAdd<kFused>::step(acc[r], _mm256_loadu_ps(row[r] + j), xj);
    }
  }
  alignas(16) float sum[kRows];
#pragma GCC unroll 2
  for (int g = 0; g < kGroups; ++g) {
    const __m256* four = acc + 4 * g;
    _mm_store_ps(sum + 4 * g, sum_lanes_left_to_right(four[0], four[1], four[2], four[3]));
  }
  for (int j = vector_columns; j < n; ++j) {
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
      const float p = row[r][j] * x[j];
      sum[r] = sum[r] + p;
    }
  }
#pragma GCC unroll 2
  for (int g = 0; g < kGroups; ++g) {
    const __m128 scaled_sum = _mm_mul_ps(_mm_set1_ps(alpha), _mm_load_ps(sum + 4 * g));
    _mm_storeu_ps(y + 4 * g, _mm_add_ps(scaled_y[g], scaled_sum));
  }
}

template <bool kFused>
void single_row(int n, float alpha, const float* row, const float* x, float beta, float* y,
                int vector_columns) {
  const float scaled_y = beta * *y;
  __m256 acc = _mm256_setzero_ps();
  for (int j = 0; j < vector_columns; j += 8) {
    acc = MultiplyAdd<kFused>::step(acc, _mm256_loadu_ps(row + j), _mm256_loadu_ps(x + j));
  }
  float sum = sum_lanes_left_to_right(acc);
  for (int j = vector_columns; j < n; ++j) {
    const float p = row[j] * x[j];
    sum = sum + p;
  }
  const float scaled_sum = sum * alpha;
  *y = scaled_y + scaled_sum;
}

template <bool kFused>
void sgemv_n(int m, int n, float alpha, const float* a, const float* x, float beta, float* y,
             SgemvNExtents extents) {
  const std::ptrdiff_t stride = n;
  int i = 0;
  for (; i + 8 <= extents.block_rows; i += 8) {
    blocks_of_four_rows<kFused, 2>(n, alpha, a + i * stride, x, beta, y + i, extents.block_columns);
  }
  for (; i < extents.block_rows; i += 4) {
    blocks_of_four_rows<kFused, 1>(n, alpha, a + i * stride, x, beta, y + i, extents.block_columns);
  }
  for (; i < m; ++i) {
    single_row<kFused>(n, alpha, a + i * stride, x, beta, y + i, extents.row_columns);
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMV_SGEMV_N_H
