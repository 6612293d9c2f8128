// Short scalar definitions of the single-precision GEMM family, element by
// element, in the order in which the library rounds.
#ifndef NUMBRA_TESTS_GEMM_SGEMM_REFERENCE_H
#define NUMBRA_TESTS_GEMM_SGEMM_REFERENCE_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace numbra_test {

enum class Rounding { kFused, kSeparate };

// One step of a dot-product chain: s + a * b, rounded once or twice.
inline float chain_step(Rounding rounding, float s, float a, float b) {
  if (rounding == Rounding::kFused) return std::fma(a, b, s);
  const float p = a * b;
  return s + p;
}

inline bool near_one(float x) { return std::fabs(static_cast<double>(x + -1.0f)) < 1e-30; }
inline bool near_zero(float x) { return std::fabs(static_cast<double>(x)) < 1e-30; }

// The write-back of an accumulated element `acc` over the old element `old`.
// A beta near zero means `old` is not read (the caller may pass anything).
inline float write_back(float acc, float old, float alpha, float beta) {
  if (near_one(alpha)) {
    if (near_one(beta)) return acc + old;
    if (near_zero(beta)) return acc;
    const float q = beta * old;
    return q + acc;
  }
  const float p = alpha * acc;
  if (near_one(beta)) return p + old;
  if (near_zero(beta)) return p;
  const float q = beta * old;
  return p + q;
}

// Where the block driver puts element (i, j) of C: blocks of 336 rows start
// ldc rows apart, rows inside a block lie n floats apart.
inline std::ptrdiff_t driver_c_index(long i, long j, long n, long ldc) {
  return (i / 336) * 336 * ldc + (i % 336) * n + j;
}

// C = alpha * A * B + beta * C as the packed driver computes it: each element
// a chain over ascending depth from +0, then the write-back. Blocks of 336 by
// 336 of C go in row-major order, each reading A and B before it writes C,
// so that C overlapping A, B or itself gives what the block order gives.
inline void reference_sgemm_nn(Rounding rounding, int m, int n, int k, float alpha, const float* a,
                               int lda, const float* b, int ldb, float beta, float* c, int ldc) {
  constexpr long kBlock = 336;
  std::vector<float> sums(kBlock * kBlock);
  for (long i0 = 0; i0 < m; i0 += kBlock) {
    for (long j0 = 0; j0 < n; j0 += kBlock) {
      const long rows = std::min(kBlock, m - i0), cols = std::min(kBlock, n - j0);
      for (long i = 0; i < rows; ++i) {
        for (long j = 0; j < cols; ++j) {
          float s = 0.0f;
          for (long l = 0; l < k; ++l)
            s = chain_step(rounding, s, a[(i0 + i) * lda + l], b[l * ldb + j0 + j]);
          sums[i * kBlock + j] = s;
        }
      }
      for (long i = 0; i < rows; ++i) {
        for (long j = 0; j < cols; ++j) {
          float& out = c[driver_c_index(i0 + i, j0 + j, n, ldc)];
          out = write_back(sums[i * kBlock + j], near_zero(beta) ? 0.0f : out, alpha, beta);
        }
      }
    }
  }
}

// The skinny product C = alpha * A * B' + beta * C with its row blocks, tile
// shapes, lane partial sums, K tails, leftover columns and mixed strides.
// Blocks of two to four rows are copied into `panel` first (blocks of 8
// columns pack_stride floats apart, rows 8 apart) and read from there; with
// no panel given, one of 32-float blocks is used.
inline void reference_sgemm_nt(Rounding rounding, int m, int n, int k, float alpha, int lda,
                               const float* a, int ldb, const float* b, float beta, int ldc,
                               float* c, int pack_stride = 32, float* panel = nullptr) {
  std::vector<float> own_panel;
  if (panel == nullptr) {
    own_panel.resize(k > 0 ? k / 8 * 32 + 32 : 32);
    panel = own_panel.data();
  }
  auto panel_at = [&](int r, int kk) -> float& {
    return panel[static_cast<long>(kk / 8) * pack_stride + r * 8 + kk % 8];
  };
  auto output = [&](float* out, float s) {
    const float product = s * alpha;
    if (beta != 0.0f) {
      const float old = beta * *out;
      *out = product + old;
    } else {
      *out = product + 0.0f;
    }
  };
  // A row block: `rows` rows from row i, tiles of `tile_cols` columns over the
  // first `covered` columns, main steps of 8 up to `main`.
  auto row_block = [&](int i, int rows, int tile_cols, int covered, int main, bool packed,
                       bool tail_packed) {
    const float* block_a = a + static_cast<long>(i) * lda;
    const long b_rows = packed ? ldb : k;
    if (packed) {
      for (int kk = 0; kk < k / 8 * 8; kk += 8)
        for (int r = 0; r < rows; ++r)
          for (int x = kk; x < kk + 8; ++x)
            panel_at(r, x) = block_a[static_cast<long>(r) * lda + x];
      for (int r = 0; r < rows; ++r)
        for (int x = k / 8 * 8; x < k; ++x)
          panel_at(r, x) = block_a[static_cast<long>(r) * lda + x];
    }
    auto a_panel = [&](int r, int kk) { return panel_at(r, kk); };
    auto a_direct = [&](int r, int kk) { return block_a[static_cast<long>(r) * k + kk]; };
    for (int j0 = 0; j0 < covered; j0 += tile_cols) {
      for (int r = 0; r < rows; ++r) {
        for (int j = j0; j < j0 + tile_cols; ++j) {
          const float* b_row = b + j * b_rows;
          float lanes[8] = {0, 0, 0, 0, 0, 0, 0, 0};
          for (int kk = 0; kk < main; ++kk) {
            const float x = packed ? a_panel(r, kk) : a_direct(r, kk);
            lanes[kk % 8] = chain_step(rounding, lanes[kk % 8], x, b_row[kk]);
          }
          float tail = 0.0f;
          for (int kk = main; kk < k; ++kk) {
            const float x = tail_packed ? a_panel(r, kk) : a_direct(r, kk);
            tail = chain_step(Rounding::kSeparate, tail, x, b_row[kk]);
          }
          const float h =
              (((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + (lanes[4] + lanes[5])) +
              (lanes[6] + lanes[7]);
          output(c + static_cast<long>(i + r) * ldc + j, tail + h);
        }
      }
    }
    for (int j = covered; j < n; ++j) {
      for (int r = 0; r < rows; ++r) {
        float s = 0.0f;
        for (int kk = 0; kk < k; ++kk) {
          s = chain_step(Rounding::kSeparate, s, a_direct(r, kk), b[j * b_rows + kk]);
        }
        output(c + static_cast<long>(i + r) * ldc + j, s);
      }
    }
  };
  int i = 0;
  for (; i + 4 <= m; i += 4) row_block(i, 4, 2, n / 2 * 2, k / 24 * 24, true, false);
  switch (m - i) {
    case 3:
      row_block(i, 3, 3, n / 3 * 3, k / 8 * 8, true, true);
      break;
    case 2:
      row_block(i, 2, 4, n / 4 * 4, k / 8 * 8, true, true);
      break;
    case 1:
      row_block(i, 1, 4, n / 32 * 32, k / 16 * 16, false, false);
      break;
    default:
      break;
  }
}

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_GEMM_SGEMM_REFERENCE_H
