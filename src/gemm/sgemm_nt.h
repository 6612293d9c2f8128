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
//
// Schedule. Every element of C is its own sum: 8 lane partial sums over the
// main extent in ascending steps, then a K tail, a pairwise lane reduction
// and the output rule. Nothing ties one element's sum to another's, so the
// blocks need not run one after the other, nor the elements of a tile
// together. When the panel's blocks cannot overlap and the panel shares no
// memory with A, B or C, every block is packed first, in the usual order, so
// that the panel ends as it always does; up to four blocks then go through B
// together (run_blocks), reading the values they packed straight from A.
// Otherwise each block is packed and run in turn.
#ifndef NUMBRA_GEMM_SGEMM_NT_H
#define NUMBRA_GEMM_SGEMM_NT_H

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "common/call_frame.h"
#include "gemm/sgemm_rows.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

constexpr int kLanes = 8;

// c = s * alpha + beta * c, or s * alpha + 0 with c unread when beta is zero.
inline void write_nt_output(float* c, float s, float alpha, float beta) {
  const float product = s * alpha;
  if (!zero_beta(beta)) {
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

// Rows of A laid out in runs of 8 columns: column kk of row r at
// base[r * row_stride + (kk / 8) * run_stride + kk % 8]. The panel is
// {scratch, 8, pack_stride}; A itself is {a, lda or k, 8}.
struct RowRuns {
  const float* base;
  std::ptrdiff_t row_stride;
  std::ptrdiff_t run_stride;
  const float* run(int r, int kk) const { return base + r * row_stride + kk / kLanes * run_stride; }
  float at(int r, int kk) const { return run(r, kk)[kk % kLanes]; }
};

// The 1-, 2-, 3- and 4-row stages: the multiple of columns their tiles
// cover (the columns past the last multiple are leftover columns, summed by
// a scalar dot), and the multiple of K their main steps cover.
struct RowStage {
  int tile_columns_multiple;
  int main_step;
};
constexpr RowStage kRowStages[] = {{32, 16}, {4, 8}, {3, 8}, {2, 24}};

// One block of rows and where its operands come from.
struct NtBlock {
  int rows;
  RowRuns main;           // A in the main steps
  RowRuns tail;           // A in the K tail
  const float* a_direct;  // A read directly, rows k apart (leftover columns)
  const float* b;
  std::ptrdiff_t b_rows;  // distance between rows of B
  int tile_columns;       // columns covered by tiles; the rest are leftover
  int main_extent;        // K covered by main steps of 8
  float* c;               // row 0 of the block in C
  std::ptrdiff_t ldc;
  int k;
  float alpha, beta;
};

// Main steps from k0 to k1 for rows [0, R) of a block and its columns
// [j, j + C), continuing their partial sums: element (r, j + col) at
// acc[col * R + r]. Column kk of row r of A comes from
// a_runs.run(r, kk - a_origin).
template <int R, int C, class MulAdd>
void tile_steps(const NtBlock& blk, const RowRuns& a_runs, int a_origin, int j, int k0, int k1,
                __m256* acc) {
  const float* b_col[C];
  const float* a_row[R];
#pragma GCC unroll 12
  for (int col = 0; col < C; ++col) b_col[col] = blk.b + (j + col) * blk.b_rows + k0;
#pragma GCC unroll 4
  for (int r = 0; r < R; ++r) a_row[r] = a_runs.run(r, k0 - a_origin);
  const std::ptrdiff_t a_step = a_runs.run_stride;
  __m256 sum[R][C];
#pragma GCC unroll 4
  for (int r = 0; r < R; ++r) {
#pragma GCC unroll 12
    for (int col = 0; col < C; ++col) sum[r][col] = acc[col * R + r];
  }
  for (int steps = (k1 - k0) / kLanes; steps > 0; --steps) {
    __m256 y[C];
#pragma GCC unroll 12
    for (int col = 0; col < C; ++col) {
      y[col] = _mm256_loadu_ps(b_col[col]);
      b_col[col] += kLanes;
      // Two rows would each fold this load into their step, loading it twice.
      if constexpr (R == 2) __asm__("" : "+x"(y[col]));
    }
#pragma GCC unroll 4
    for (int r = 0; r < R; ++r) {
      __m256 x = _mm256_loadu_ps(a_row[r]);
      a_row[r] += a_step;
      // Held in a register: folded into each multiply-add, the load would
      // be repeated for every column.
      __asm__("" : "+x"(x));
#pragma GCC unroll 12
      for (int col = 0; col < C; ++col) sum[r][col] = MulAdd::step(sum[r][col], y[col], x);
    }
  }
#pragma GCC unroll 4
  for (int r = 0; r < R; ++r) {
#pragma GCC unroll 12
    for (int col = 0; col < C; ++col) acc[col * R + r] = sum[r][col];
  }
}

// Row e of the 8 x 8 block v becomes its column e.
inline void transpose_8x8(__m256 v[8]) {
  __m256 t[8], u[8];
#pragma GCC unroll 8
  for (int i = 0; i < 8; i += 2) {
    t[i] = _mm256_unpacklo_ps(v[i], v[i + 1]);
    t[i + 1] = _mm256_unpackhi_ps(v[i], v[i + 1]);
  }
#pragma GCC unroll 8
  for (int i = 0; i < 8; i += 4) {
    u[i] = _mm256_shuffle_ps(t[i], t[i + 2], 0x44);
    u[i + 1] = _mm256_shuffle_ps(t[i], t[i + 2], 0xEE);
    u[i + 2] = _mm256_shuffle_ps(t[i + 1], t[i + 3], 0x44);
    u[i + 3] = _mm256_shuffle_ps(t[i + 1], t[i + 3], 0xEE);
  }
#pragma GCC unroll 8
  for (int i = 0; i < 4; ++i) {
    v[i] = _mm256_permute2f128_ps(u[i], u[i + 4], 0x20);
    v[i + 4] = _mm256_permute2f128_ps(u[i], u[i + 4], 0x31);
  }
}

// Lanes [0, count) set: the masked loads touch nothing beyond them.
inline __m256i first_lanes(int count) {
  return _mm256_castps_si256(_mm256_cmp_ps(_mm256_setr_ps(0, 1, 2, 3, 4, 5, 6, 7),
                                           _mm256_set1_ps(static_cast<float>(count)), _CMP_LT_OQ));
}

// The K tail, the lane reduction and the output of the R x C tile at column j.
// A tile of eight elements does them in lanes, element e = r * C + col in
// lane e: the products of up to 8 tail columns, turned so that vector t holds
// column t's product of every element, are added in ascending order, and the
// turned partial sums are added in the same pairs as one element's lanes.
// Every element sees exactly the additions of its own serial definition.
template <int R, int C>
void finish_tile(const NtBlock& blk, int j, const __m256* acc) {
  const float* b_col[C];
#pragma GCC unroll 8
  for (int col = 0; col < C; ++col) b_col[col] = blk.b + (j + col) * blk.b_rows;
  alignas(32) float s[R * C];
  if constexpr (R * C == 8) {
    __m256 tail = _mm256_setzero_ps();
    for (int kk = blk.main_extent; kk < blk.k; kk += kLanes) {
      const int count = std::min(kLanes, blk.k - kk);
      const __m256i mask = first_lanes(count);
      __m256 x[R], y[C], p[8];
#pragma GCC unroll 8
      for (int r = 0; r < R; ++r) x[r] = _mm256_maskload_ps(blk.tail.run(r, kk), mask);
#pragma GCC unroll 8
      for (int col = 0; col < C; ++col) y[col] = _mm256_maskload_ps(b_col[col] + kk, mask);
#pragma GCC unroll 8
      for (int r = 0; r < R; ++r) {
#pragma GCC unroll 8
        for (int col = 0; col < C; ++col) p[r * C + col] = _mm256_mul_ps(x[r], y[col]);
      }
      transpose_8x8(p);
#pragma GCC unroll 8
      for (int t = 0; t < 8; ++t) {
        if (t < count) tail = _mm256_add_ps(tail, p[t]);
      }
    }
    __m256 l[8];
#pragma GCC unroll 8
    for (int e = 0; e < 8; ++e) l[e] = acc[e % C * R + e / C];
    transpose_8x8(l);
    const __m256 h = _mm256_add_ps(
        _mm256_add_ps(_mm256_add_ps(_mm256_add_ps(l[0], l[1]), _mm256_add_ps(l[2], l[3])),
                      _mm256_add_ps(l[4], l[5])),
        _mm256_add_ps(l[6], l[7]));
    _mm256_store_ps(s, _mm256_add_ps(tail, h));
  } else {
    float tail[R * C] = {};
    for (int kk = blk.main_extent; kk < blk.k; ++kk) {
#pragma GCC unroll 8
      for (int r = 0; r < R; ++r) {
#pragma GCC unroll 8
        for (int col = 0; col < C; ++col) {
          const float p = blk.tail.at(r, kk) * b_col[col][kk];
          tail[r * C + col] = tail[r * C + col] + p;
        }
      }
    }
#pragma GCC unroll 8
    for (int e = 0; e < R * C; ++e) s[e] = tail[e] + reduce_lanes(acc[e % C * R + e / C]);
  }
#pragma GCC unroll 8
  for (int r = 0; r < R; ++r) {
#pragma GCC unroll 8
    for (int col = 0; col < C; ++col) {
      write_nt_output(blk.c + r * blk.ldc + j + col, s[r * C + col], blk.alpha, blk.beta);
    }
  }
}

// A group of blocks goes through B by chunks of 48 columns and 256 columns
// of K: each piece of B is loaded from memory once and serves every row of
// the group. The group's rows of A for the K chunk are copied side by side
// into a local panel (16 KiB for 16 rows): rows of A a multiple of 4 KiB
// apart would otherwise all fall into the same few cache sets. Partial sums
// wait in a local buffer (24 KiB) from one K chunk to the next. The chunk
// sizes weigh that copy, made once per chunk of columns, against the stack
// the two buffers take; the chunk width is a multiple of every register
// tile width.
//
// The main steps run in register tiles that fit the sixteen vector
// registers: R x W sums, the W loads of B and the load of A of a step, and
// for the unfused step one more register for its product. So 1 x 6, 2 x 4,
// 3 x 3, and 4 x 3 fused but 4 x 2 unfused (measured: a 4 x 3 unfused tile
// leaves the compiler one register short, and it ran at half speed). Which
// elements share a register tile changes nothing in any element's sum; the
// K tails and outputs go by the block's own tiles.
template <class MulAdd>
constexpr int register_columns(int rows) {
  constexpr int kWidth[] = {6, 4, 3, MulAdd::kFused ? 3 : 2};
  return kWidth[rows - 1];
}

constexpr int kChunkColumns = 48;
constexpr int kChunkDepth = 256;
constexpr int kGroupBlocks = 4;
constexpr int kGroupRows = 4 * kGroupBlocks;

// Register tiles R x W over columns [j, end), the last one narrower.
template <int R, int W, class MulAdd>
void steps_over_columns(const NtBlock& blk, const RowRuns& a_runs, int a_origin, int j, int end,
                        int k0, int k1, __m256* acc) {
  for (; j + W <= end; j += W, acc += W * R) {
    tile_steps<R, W, MulAdd>(blk, a_runs, a_origin, j, k0, k1, acc);
  }
  if constexpr (W > 1) {
    if (j < end) steps_over_columns<R, W - 1, MulAdd>(blk, a_runs, a_origin, j, end, k0, k1, acc);
  }
}

// The main steps from k0 to k1 of one block's columns [j0, end), partial sums
// from acc on, R vectors a column.
template <class MulAdd>
void block_steps(const NtBlock& blk, const RowRuns& a_runs, int a_origin, int j0, int end, int k0,
                 int k1, __m256* acc) {
  k1 = std::min(k1, blk.main_extent);
  if (k1 <= k0) return;
  with_rows<4>(blk.rows, [&](auto rows) {
    constexpr int R = decltype(rows)::value;
    steps_over_columns<R, register_columns<MulAdd>(R), MulAdd>(blk, a_runs, a_origin, j0, end, k0,
                                                               k1, acc);
  });
}

// The K tails and outputs of one block's tiles in columns [j0, end).
template <int R, int C>
void finish_over_columns(const NtBlock& blk, int j0, int end, const __m256* acc) {
  for (int j = j0; j < end; j += C) finish_tile<R, C>(blk, j, acc + (j - j0) * R);
}

// The finishing tiles' widths by rows: 4, 8, 9 and 8 elements a tile.
constexpr int kFinishColumns[] = {4, 4, 3, 2};

inline void block_finish(const NtBlock& blk, int j0, int end, const __m256* acc) {
  with_rows<4>(blk.rows, [&](auto rows) {
    constexpr int R = decltype(rows)::value;
    finish_over_columns<R, kFinishColumns[R - 1]>(blk, j0, end, acc);
  });
}

// The blocks blk[0..count) through B together, then their leftover columns.
// A block on its own reads A from its main source; several read it from the
// local panel (their main sources must then be A itself).
template <class MulAdd>
void run_blocks(const NtBlock* blk, int count, int n) {
  // Columns a turn: a multiple of every register tile width.
  int covered = 0, deepest = 0, rows = 0, step = 1;
  for (int g = 0; g < count; ++g) {
    covered = std::max(covered, blk[g].tile_columns);
    deepest = std::max(deepest, blk[g].main_extent);
    rows += blk[g].rows;
    step = std::lcm(step, register_columns<MulAdd>(blk[g].rows));
  }
  alignas(32) float panel[kGroupRows * kChunkDepth];
  alignas(32) __m256 acc[kGroupRows * kChunkColumns];
  for (int j0 = 0; j0 < covered; j0 += kChunkColumns) {
    const int j1 = std::min(j0 + kChunkColumns, covered);
    for (__m256& v : acc) v = _mm256_setzero_ps();
    // A block on its own has nothing to share B with, and runs at full depth.
    const int depth = count > 1 ? kChunkDepth : deepest;
    for (int k0 = 0; k0 < deepest; k0 += depth) {
      const int k1 = std::min(k0 + depth, deepest);
      if (count > 1) {
        float* run = panel;
        for (int kk = k0; kk < k1; kk += kLanes) {
          for (int g = 0; g < count; ++g) {
            for (int r = 0; r < blk[g].rows; ++r, run += kLanes) {
              _mm256_store_ps(run, _mm256_loadu_ps(blk[g].main.run(r, kk)));
            }
          }
        }
      }
      // The blocks take turns on each few columns of B, which stay in L1
      // from the first block's loads to the last's.
      for (int j = j0; j < j1; j += step) {
        int row = 0;
        for (int g = 0; g < count; ++g) {
          const int end = std::min(j + step, blk[g].tile_columns);
          __m256* tile_acc = acc + row * kChunkColumns + (j - j0) * blk[g].rows;
          if (count > 1) {
            const RowRuns runs{panel + row * kLanes, kLanes, rows * kLanes};
            block_steps<MulAdd>(blk[g], runs, k0, j, end, k0, k1, tile_acc);
          } else {
            block_steps<MulAdd>(blk[g], blk[g].main, 0, j, end, k0, k1, tile_acc);
          }
          row += blk[g].rows;
        }
      }
    }
    const __m256* block_acc = acc;
    for (int g = 0; g < count; ++g) {
      block_finish(blk[g], j0, std::min(j1, blk[g].tile_columns), block_acc);
      block_acc += blk[g].rows * kChunkColumns;
    }
  }
  // Leftover columns: plain dot products, with no lanes.
  for (int g = 0; g < count; ++g) {
    const NtBlock& b = blk[g];
    for (int j = b.tile_columns; j < n; ++j) {
      for (int r = 0; r < b.rows; ++r) {
        const float s = serial_dot(b.a_direct + r * std::ptrdiff_t(b.k), b.b + j * b.b_rows, b.k);
        write_nt_output(b.c + r * b.ldc + j, s, b.alpha, b.beta);
      }
    }
  }
}

template <class MulAdd>
void sgemm_nt(int m, int n, int k, float alpha, int lda, const float* a, int pack_stride,
              float* scratch, int ldb, const float* b, float beta, int ldc, float* c) {
  // Counts are rounded down by truncating division: a negative count covers
  // nothing.
  const std::ptrdiff_t ld_a = lda, ld_b = ldb, ld_c = ldc;
  auto block = [&](int i, int rows) {
    NtBlock blk;
    blk.rows = rows;
    blk.a_direct = a + i * ld_a;
    const bool packed = rows > 1;
    blk.main = packed ? RowRuns{scratch, kLanes, pack_stride} : RowRuns{blk.a_direct, 0, kLanes};
    blk.tail = rows == 4 ? RowRuns{blk.a_direct, k, kLanes} : blk.main;
    blk.b = b;
    blk.b_rows = packed ? ld_b : k;
    const RowStage& stage = kRowStages[rows - 1];
    blk.tile_columns = n / stage.tile_columns_multiple * stage.tile_columns_multiple;
    blk.main_extent = k / stage.main_step * stage.main_step;
    blk.c = c + i * ld_c;
    blk.ldc = ld_c;
    blk.k = k;
    blk.alpha = alpha;
    blk.beta = beta;
    return blk;
  };
  // Whether packing every block first leaves each block's values where it
  // reads them: in A, and for the last block also in the panel.
  const std::ptrdiff_t panel_floats = std::ptrdiff_t(k / kLanes) * pack_stride + 4 * kLanes;
  const bool apart =
      m > 0 && n > 0 && k > 0 && lda >= 0 && ldb >= 0 && ldc >= 0 && pack_stride >= 4 * kLanes &&
      ranges_are_disjoint(scratch, panel_floats, a, m * ld_a + 4 * std::ptrdiff_t(k)) &&
      ranges_are_disjoint(scratch, panel_floats, b, n * (ld_b + k) + k) &&
      ranges_are_disjoint(scratch, panel_floats, c, m * ld_c + n);
  if (!apart) {
    for (int i = 0; i < m; i += 4) {
      const int rows = std::min(4, m - i);
      if (rows > 1) pack_panel(a + i * ld_a, ld_a, rows, k, scratch, pack_stride);
      const NtBlock blk = block(i, rows);
      run_blocks<MulAdd>(&blk, 1, n);
    }
    return;
  }
  for (int i = 0; i < m; i += 4) {
    const int rows = std::min(4, m - i);
    if (rows > 1) pack_panel(a + i * ld_a, ld_a, rows, k, scratch, pack_stride);
  }
  NtBlock group[kGroupBlocks];
  for (int i = 0; i < m; i += 4 * kGroupBlocks) {
    int count = 0;
    for (int row = i; row < std::min(m, i + 4 * kGroupBlocks); row += 4) {
      group[count++] = block(row, std::min(4, m - row));
    }
    // The panel holds the last block only; blocks run together read A.
    for (int g = 0; count > 1 && g < count; ++g) {
      if (group[g].rows > 1) group[g].main = RowRuns{group[g].a_direct, ld_a, kLanes};
    }
    run_blocks<MulAdd>(group, count, n);
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_NT_H
