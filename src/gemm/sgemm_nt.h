// The skinny product C = alpha * A * B' + beta * C for an A of few rows, with
// B stored as n rows of k: every element of C is a dot product of two runs of
// k floats. Included by the per-instruction-set sources only (AVX); the
// MulAdd step of the main steps is the only difference between them.
//
// Rows go in blocks: full blocks of 4, then one block of the 3, 2 or 1 rows
// left. Each block shape has its tile of C, its main step along K and its
// sources:
//
//   rows  tile   tiles cover    main extent   A in main steps   A in K tail    B row j
//   4     4 x 2  n & ~1 cols    (k/24)*24     packed panel      A + r*k        b + j*ldb
//   3     3 x 3  (n/3)*3 cols   k & ~7        packed panel      packed panel   b + j*ldb
//   2     2 x 4  n & ~3 cols    k & ~7        packed panel      packed panel   b + j*ldb
//   1     1 x 4  n & ~31 cols   k & ~15       A                 A              b + j*k
//
// where A is a + i*lda for a block starting at row i. The strides are mixed
// on purpose: rows of A are lda apart in the panel but k apart when read
// directly, and the one-row block steps through B by k. With lda and ldb
// equal to k, as the GEMM entry point passes them, this is the true product.
#ifndef NUMBRA_GEMM_SGEMM_NT_H
#define NUMBRA_GEMM_SGEMM_NT_H

#include <immintrin.h>

#include <cstddef>

namespace numbra {
namespace gemm {
namespace {

constexpr int kLanes = 8;

// c = s * alpha + beta * c, or s * alpha + 0 with c unread when beta is zero.
inline void write_nt_output(float* c, float s, float alpha, float beta) {
  const float product = s * alpha;
  if (beta != 0.0f) {
    const float old = beta * *c;
    *c = product + old;
  } else {
    *c = product + 0.0f;
  }
}

// Plain ascending dot product, one rounded product and one rounded sum a step.
inline float serial_dot(const float* x, const float* y, int k) {
  float s = 0.0f;
  for (int kk = 0; kk < k; ++kk) {
    const float p = x[kk] * y[kk];
    s = s + p;
  }
  return s;
}

// The lanes of a partial-sum vector, added in pairs.
inline float reduce_lanes(__m256 v) {
  alignas(32) float l[kLanes];
  _mm256_store_ps(l, v);
  return (((l[0] + l[1]) + (l[2] + l[3])) + (l[4] + l[5])) + (l[6] + l[7]);
}

// Copies `rows` rows of A (lda apart) into the panel: column kk of row r at
// panel[(kk / 8) * pack_stride + r * 8 + kk % 8].
inline void pack_panel(const float* a, std::ptrdiff_t lda, int rows, int k, float* panel,
                       int pack_stride) {
  const int blocks = k / kLanes;
  const int rest = k - blocks * kLanes;
  for (int kb = 0; kb < blocks; ++kb) {
    for (int r = 0; r < rows; ++r) {
      _mm256_storeu_ps(panel + kb * pack_stride + r * kLanes,
                       _mm256_loadu_ps(a + r * lda + kb * kLanes));
    }
  }
  if (rest > 0) {
    for (int r = 0; r < rows; ++r) {
      for (int x = 0; x < rest; ++x) {
        panel[blocks * pack_stride + r * kLanes + x] = a[r * lda + blocks * kLanes + x];
      }
    }
  }
}

// One block of rows and where its operands come from.
struct NtBlock {
  int k;
  const float* panel;  // packed rows, or null when the block reads A directly
  int pack_stride;
  bool tail_from_panel;   // the K tail reads the panel rather than A
  const float* a;         // row 0 of the block in A
  std::ptrdiff_t a_rows;  // distance between rows of A read directly
  const float* b;         // B
  std::ptrdiff_t b_rows;  // distance between rows of B
  int tile_columns;       // columns covered by tiles; the rest are leftover
  int main_extent;        // K covered by main steps of 8
  float alpha, beta;
  float* c;  // row 0 of the block in C
  std::ptrdiff_t ldc;
};

template <int R, int C, class MulAdd>
void nt_row_block(const NtBlock& blk, int n) {
  auto a_lanes = [&](int r, int kk) {
    return blk.panel ? _mm256_loadu_ps(blk.panel + kk / kLanes * blk.pack_stride + r * kLanes)
                     : _mm256_loadu_ps(blk.a + r * blk.a_rows + kk);
  };
  auto a_tail = [&](int r, int kk) {
    return blk.tail_from_panel ? blk.panel[kk / kLanes * blk.pack_stride + r * kLanes + kk % kLanes]
                               : blk.a[r * blk.a_rows + kk];
  };
  for (int j = 0; j < blk.tile_columns; j += C) {
    const float* b_col[C];
    for (int col = 0; col < C; ++col) b_col[col] = blk.b + (j + col) * blk.b_rows;
    __m256 acc[R][C];
    float tail[R][C];
    for (int r = 0; r < R; ++r) {
      for (int col = 0; col < C; ++col) {
        acc[r][col] = _mm256_setzero_ps();
        tail[r][col] = 0.0f;
      }
    }
    for (int kk = 0; kk < blk.main_extent; kk += kLanes) {
      __m256 x[R], y[C];
#pragma GCC unroll 4
      for (int r = 0; r < R; ++r) x[r] = a_lanes(r, kk);
#pragma GCC unroll 4
      for (int col = 0; col < C; ++col) y[col] = _mm256_loadu_ps(b_col[col] + kk);
#pragma GCC unroll 4
      for (int r = 0; r < R; ++r) {
#pragma GCC unroll 4
        for (int col = 0; col < C; ++col) acc[r][col] = MulAdd::step(acc[r][col], y[col], x[r]);
      }
    }
    for (int kk = blk.main_extent; kk < blk.k; ++kk) {
      for (int r = 0; r < R; ++r) {
        for (int col = 0; col < C; ++col) {
          const float p = a_tail(r, kk) * b_col[col][kk];
          tail[r][col] = tail[r][col] + p;
        }
      }
    }
    for (int r = 0; r < R; ++r) {
      for (int col = 0; col < C; ++col) {
        const float s = tail[r][col] + reduce_lanes(acc[r][col]);
        write_nt_output(blk.c + r * blk.ldc + j + col, s, blk.alpha, blk.beta);
      }
    }
  }
  // Leftover columns: plain dot products, with no lanes.
  for (int j = blk.tile_columns; j < n; ++j) {
    for (int r = 0; r < R; ++r) {
      const float s = serial_dot(blk.a + r * blk.a_rows, blk.b + j * blk.b_rows, blk.k);
      write_nt_output(blk.c + r * blk.ldc + j, s, blk.alpha, blk.beta);
    }
  }
}

template <class MulAdd>
void sgemm_nt(int m, int n, int k, float alpha, int lda, const float* a, int pack_stride,
              float* scratch, int ldb, const float* b, float beta, int ldc, float* c) {
  // Counts are rounded down by truncating division: a negative count covers
  // nothing.
  auto block = [&](int i, bool packed, bool tail_from_panel, int tile_columns, int main_extent) {
    NtBlock blk;
    blk.k = k;
    blk.panel = packed ? scratch : nullptr;
    blk.pack_stride = pack_stride;
    blk.tail_from_panel = tail_from_panel;
    blk.a = a + std::ptrdiff_t(i) * lda;
    blk.a_rows = k;
    blk.b = b;
    blk.b_rows = packed ? ldb : k;
    blk.tile_columns = tile_columns;
    blk.main_extent = main_extent;
    blk.alpha = alpha;
    blk.beta = beta;
    blk.c = c + std::ptrdiff_t(i) * ldc;
    blk.ldc = ldc;
    return blk;
  };
  int i = 0;
  for (; i + 4 <= m; i += 4) {
    pack_panel(a + std::ptrdiff_t(i) * lda, lda, 4, k, scratch, pack_stride);
    nt_row_block<4, 2, MulAdd>(block(i, true, false, n / 2 * 2, k / 24 * 24), n);
  }
  switch (m - i) {
    case 3:
      pack_panel(a + std::ptrdiff_t(i) * lda, lda, 3, k, scratch, pack_stride);
      nt_row_block<3, 3, MulAdd>(block(i, true, true, n / 3 * 3, k / 8 * 8), n);
      break;
    case 2:
      pack_panel(a + std::ptrdiff_t(i) * lda, lda, 2, k, scratch, pack_stride);
      nt_row_block<2, 4, MulAdd>(block(i, true, true, n / 4 * 4, k / 8 * 8), n);
      break;
    case 1:
      nt_row_block<1, 4, MulAdd>(block(i, false, false, n / 32 * 32, k / 16 * 16), n);
      break;
    default:
      break;
  }
}

}  // namespace
}  // namespace gemm
}  // namespace numbra

#endif  // NUMBRA_GEMM_SGEMM_NT_H
