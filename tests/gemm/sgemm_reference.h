// Short scalar definitions of the single-precision GEMM family, element by
// element, in the order in which the library rounds, and what the GEMM tests
// share: the instruction sets, the workspace size and their operand values.
#ifndef NUMBRA_TESTS_GEMM_SGEMM_REFERENCE_H
#define NUMBRA_TESTS_GEMM_SGEMM_REFERENCE_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#include "numbra.h"

namespace numbra_test {

// One worker's workspace, as the size queries report it.
constexpr unsigned long kGemmWorkspaceBytes = 1354752;
constexpr std::size_t kGemmWorkspaceFloats = kGemmWorkspaceBytes / sizeof(float);

enum class Rounding { kFused, kSeparate };

// The instruction sets with a kernel family, and how their main steps round.
struct Isa {
  ISA_t isa;
  Rounding rounding;
  const char* name;
};
constexpr Isa kIsas[] = {{ISA_FMA, Rounding::kFused, "fma"}, {ISA_AVX, Rounding::kSeparate, "avx"}};

// Values over twenty binary orders of magnitude, so that the order of the
// additions shows in the rounding, with about one in `specials_one_in` (none
// for 0) a NaN, an infinity, a signed zero, a subnormal or an overflowing one.
template <typename T>
std::vector<T> gemm_values(std::size_t n, unsigned seed, int specials_one_in) {
  using L = std::numeric_limits<T>;
  const T specials[] = {L::quiet_NaN(), L::infinity(), -L::infinity(),  T(0),
                        -T(0),          L::max(),      L::denorm_min(), -L::min() / 4};
  std::mt19937 gen(seed);
  std::uniform_real_distribution<T> mantissa(T(-1), T(1));
  std::uniform_int_distribution<int> exponent(-10, 10), special(0, 7);
  std::uniform_int_distribution<int> pick(0, std::max(specials_one_in - 1, 0));
  std::vector<T> v(n);
  for (T& x : v) {
    x = specials_one_in > 0 && pick(gen) == 0 ? specials[special(gen)]
                                              : std::ldexp(mantissa(gen), exponent(gen));
  }
  return v;
}

// The rate of special values for the operands of dot products `length`
// long at which about two products in five meet one.
inline int specials_for_length(long length) { return 4 * static_cast<int>(std::max(length, 2L)); }

// One step of a dot-product chain: s + a * b, rounded once or twice.
inline float chain_step(Rounding rounding, float s, float a, float b) {
  if (rounding == Rounding::kFused) return std::fma(a, b, s);
  const float p = a * b;
  return s + p;
}

inline bool near_one(float x) { return std::fabs(static_cast<double>(x + -1.0f)) < 1e-30; }
inline bool near_zero(float x) { return std::fabs(static_cast<double>(x)) < 1e-30; }

// The write-back of an accumulated element `acc` over the old element `old`:
// a scale near one is not multiplied, a beta near zero leaves `old` unread.
inline float write_back(float acc, float old, float alpha, float beta) {
  const float scaled = near_one(alpha) ? acc : alpha * acc;
  if (near_zero(beta)) return scaled;
  const float scaled_old = near_one(beta) ? old : beta * old;
  return scaled + scaled_old;
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

// The skinny product C = alpha * A * B' + beta * C: row blocks of 4, then one
// of the 3, 2 or 1 rows left, each with its tile width, main steps of 8 lane
// partial sums, K tail, pairwise lane reduction and leftover columns, and
// with mixed strides: rows of A are lda apart when copied into `panel`
// (blocks of 8 columns pack_stride floats apart, rows 8 apart) but k apart
// when read directly, and the one-row block steps through B by k. With no
// panel given, one of 32-float blocks is used.
inline void reference_sgemm_nt(Rounding rounding, int m, int n, int k, float alpha, int lda,
                               const float* a, int ldb, const float* b, float beta, int ldc,
                               float* c, int pack_stride = 32, float* panel = nullptr) {
  std::vector<float> own_panel(panel == nullptr ? std::max(k, 0) / 8 * 32 + 32 : 0);
  if (panel == nullptr) panel = own_panel.data();
  auto panel_at = [&](int r, int kk) -> float& {
    return panel[static_cast<long>(kk / 8) * pack_stride + r * 8 + kk % 8];
  };
  for (int i = 0; i < m; i += 4) {
    const int rows = std::min(4, m - i), tile = rows == 4 ? 2 : rows == 3 ? 3 : 4;
    const int covered = rows == 1 ? n / 32 * 32 : n / tile * tile;
    const int main = rows == 4 ? k / 24 * 24 : rows == 1 ? k / 16 * 16 : k / 8 * 8;
    const bool packed = rows > 1, tail_packed = rows == 2 || rows == 3;
    const float* block_a = a + static_cast<long>(i) * lda;
    const long b_rows = packed ? ldb : k;
    // Copied in the kernel's order: blocks that overlap keep the later copy.
    for (int kk = 0; packed && kk < k; kk += 8)
      for (int r = 0; r < rows; ++r)
        for (int x = kk; x < std::min(kk + 8, k); ++x)
          panel_at(r, x) = block_a[static_cast<long>(r) * lda + x];
    auto direct = [&](int r, int kk) { return block_a[static_cast<long>(r) * k + kk]; };
    for (int r = 0; r < rows; ++r) {
      for (int j = 0; j < n; ++j) {
        const float* b_row = b + j * b_rows;
        float lanes[8] = {0, 0, 0, 0, 0, 0, 0, 0}, s = 0.0f;
        const int lane_steps = j < covered ? main : 0;
        for (int kk = 0; kk < lane_steps; ++kk) {
          const float x = packed ? panel_at(r, kk) : direct(r, kk);
          lanes[kk % 8] = chain_step(rounding, lanes[kk % 8], x, b_row[kk]);
        }
        for (int kk = lane_steps; kk < k; ++kk) {
          const float x = tail_packed && j < covered ? panel_at(r, kk) : direct(r, kk);
          s = chain_step(Rounding::kSeparate, s, x, b_row[kk]);
        }
        if (j < covered) {
          s = s + ((((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + (lanes[4] + lanes[5])) +
                   (lanes[6] + lanes[7]));
        }
        float& out = c[static_cast<long>(i + r) * ldc + j];
        const float product = s * alpha;
        if (beta != 0.0f) {
          const float old = beta * out;
          out = product + old;
        } else {
          out = product + 0.0f;
        }
      }
    }
  }
}

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_GEMM_SGEMM_REFERENCE_H
