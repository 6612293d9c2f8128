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

#include "gemv/lanes256.h"

namespace numbra {
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

template <bool kFused>
void block_of_four_rows(int n, float alpha, const float* a, const float* x, float beta, float* y,
                        int vector_columns) {
  const float* row0 = a;
  const float* row1 = row0 + n;
  const float* row2 = row1 + n;
  const float* row3 = row2 + n;
  const __m128 scaled_y = _mm_mul_ps(_mm_loadu_ps(y), _mm_set1_ps(beta));
  __m256 acc0 = _mm256_setzero_ps(), acc1 = acc0, acc2 = acc0, acc3 = acc0;
  for (int j = 0; j < vector_columns; j += 8) {
    const __m256 xj = _mm256_loadu_ps(x + j);
    acc0 = multiply_add<kFused>(_mm256_loadu_ps(row0 + j), xj, acc0);
    acc1 = multiply_add<kFused>(_mm256_loadu_ps(row1 + j), xj, acc1);
    acc2 = multiply_add<kFused>(_mm256_loadu_ps(row2 + j), xj, acc2);
    acc3 = multiply_add<kFused>(_mm256_loadu_ps(row3 + j), xj, acc3);
  }
  alignas(16) float sum[4];
  _mm_store_ps(sum, sum_lanes_left_to_right(acc0, acc1, acc2, acc3));
  for (int j = vector_columns; j < n; ++j) {
    const float p0 = row0[j] * x[j], p1 = row1[j] * x[j];
    const float p2 = row2[j] * x[j], p3 = row3[j] * x[j];
    sum[0] = sum[0] + p0;
    sum[1] = sum[1] + p1;
    sum[2] = sum[2] + p2;
    sum[3] = sum[3] + p3;
  }
  const __m128 scaled_sum = _mm_mul_ps(_mm_set1_ps(alpha), _mm_load_ps(sum));
  _mm_storeu_ps(y, _mm_add_ps(scaled_y, scaled_sum));
}

template <bool kFused>
void single_row(int n, float alpha, const float* row, const float* x, float beta, float* y,
                int vector_columns) {
  const float scaled_y = beta * *y;
  __m256 acc = _mm256_setzero_ps();
  for (int j = 0; j < vector_columns; j += 8) {
    acc = multiply_add<kFused>(_mm256_loadu_ps(row + j), _mm256_loadu_ps(x + j), acc);
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
  for (; i < extents.block_rows; i += 4) {
    block_of_four_rows<kFused>(n, alpha, a + i * stride, x, beta, y + i, extents.block_columns);
  }
  for (; i < m; ++i) {
    single_row<kFused>(n, alpha, a + i * stride, x, beta, y + i, extents.row_columns);
  }
}

}  // namespace
}  // namespace numbra

#endif  // NUMBRA_GEMV_SGEMV_N_H
