// The skinny transposed-B kernels against their definition: row blocks of 4,
// then 3, 2 or 1, each with its tile, main step, K tail, lane reduction and
// leftover columns, reading exactly the elements of the mixed-stride table.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "gemm/sgemm_reference.h"
#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;
using numbra_test::Rounding;

namespace {

using Skinny = void (*)(int, int, int, float, int, const float*, int, float*, int, const float*,
                        float, int, float*);

struct Twin {
  const char* name;
  Skinny kernel;
  Rounding rounding;
};
const Twin kTwins[] = {{"fma", sgemm_nt_fma, Rounding::kFused},
                       {"avx", sgemm_nt_avx, Rounding::kSeparate}};

// Floats of A and B that the table of sources reaches, with either stride:
// rows lda apart, and the rows of a block k apart from its first.
long a_extent(int m, int k, int lda) {
  if (m <= 0) return 0;
  const long full = m / 4 * 4, rest = m - full;
  long extent = static_cast<long>(m - 1) * lda + k;
  if (full > 0) extent = std::max(extent, (full - 4) * lda + 4L * k);
  if (rest > 1) extent = std::max(extent, full * lda + rest * k);
  return extent;
}
long b_extent(int n, int k, int ldb) {
  if (n <= 0) return 0;
  return std::max(static_cast<long>(n - 1) * ldb + k, static_cast<long>(n - 1) * k + k);
}

// Finite values of mixed sign and magnitude with a special value (NaN, a
// zero, an infinity, a subnormal, an overflowing one) about once in `spacing`
// elements, so that long dot products still mostly come out finite.
std::vector<float> sparse_specials(long n, unsigned seed, int spacing) {
  auto v = mixed_values<float>(n, seed);
  const auto finite = mixed_values<float>(n, seed + 7);
  for (long i = 0; i < n; ++i) {
    if (i % spacing != static_cast<long>(seed % spacing)) {
      v[i] = std::isfinite(finite[i]) && std::fabs(finite[i]) < 1e10f ? finite[i] : 0.5f;
    }
  }
  return v;
}

// One product through both kernels against the definition: C element by
// element, and the scratch panel's words afterwards, with every operand flush
// against a guard page (after its end, or before its start).
class SkinnyTester {
 public:
  SkinnyTester& shape(int m, int n, int k) {
    m_ = m, n_ = n, k_ = k, lda_ = k, ldb_ = k, ldc_ = n;
    return *this;
  }
  SkinnyTester& strides(int lda, int ldb, int ldc) {
    lda_ = lda, ldb_ = ldb, ldc_ = ldc;
    return *this;
  }
  SkinnyTester& pack_stride(int floats) {
    pack_stride_ = floats;
    return *this;
  }
  SkinnyTester& scalars(float alpha, float beta) {
    alpha_ = alpha, beta_ = beta;
    return *this;
  }
  SkinnyTester& special_spacing(int spacing) {
    spacing_ = spacing;
    return *this;
  }
  SkinnyTester& guard(Guard side) {
    guard_ = side;
    return *this;
  }

  void test(unsigned seed) const {
    auto values = [&](long n, unsigned s) {
      return spacing_ > 0 ? sparse_specials(n, s, spacing_) : mixed_values<float>(n, s);
    };
    const auto a0 = values(a_extent(m_, k_, lda_), seed);
    const auto b0 = values(b_extent(n_, k_, ldb_), seed + 1);
    const long c_size = m_ > 0 && n_ > 0 ? static_cast<long>(m_ - 1) * ldc_ + n_ : 0;
    const auto c0 = mixed_values<float>(c_size, seed + 2);
    // The room the GEMM entry point allocates, for its pack stride of 32.
    const long k_pos = k_ > 0 ? k_ : 0;
    const long panel_size = std::max<long>(k_pos / 8 * pack_stride_, k_pos / 8 * 32) + 32;
    const auto panel0 = mixed_values<float>(panel_size, seed + 3);
    for (const Twin& twin : kTwins) {
      std::vector<float> expected = c0, expected_panel = panel0;
      numbra_test::reference_sgemm_nt(twin.rounding, m_, n_, k_, alpha_, lda_, a0.data(), ldb_,
                                      b0.data(), beta_, ldc_, expected.data(), pack_stride_,
                                      expected_panel.data());
      GuardedBuffer<float> a(a0.size(), guard_), b(b0.size(), guard_), c(c0.size(), guard_),
          panel(panel0.size(), guard_);
      a.assign(a0.data());
      b.assign(b0.data());
      c.assign(c0.data());
      panel.assign(panel0.data());
      twin.kernel(m_, n_, k_, alpha_, lda_, a.data(), pack_stride_, panel.data(), ldb_, b.data(),
                  beta_, ldc_, c.data());
      SCOPED_TRACE(std::string(twin.name) + " m=" + std::to_string(m_) +
                   " n=" + std::to_string(n_) + " k=" + std::to_string(k_) +
                   " lda=" + std::to_string(lda_) + " ldb=" + std::to_string(ldb_) +
                   " pack_stride=" + std::to_string(pack_stride_));
      EXPECT_SAME_RESULTS(expected.data(), c.data(), c0.size());
      EXPECT_SAME_ARRAY_BITS(expected_panel.data(), panel.data(), panel0.size());
    }
  }

 private:
  int m_ = 1, n_ = 1, k_ = 1, lda_ = 1, ldb_ = 1, ldc_ = 1, pack_stride_ = 32, spacing_ = 0;
  float alpha_ = 1.5f, beta_ = -0.5f;
  Guard guard_ = Guard::kAfter;
};

TEST(SgemmSkinny, EveryRowBlockTileAndTail) {
  for (int m = 0; m <= 16; ++m)
    for (const int n : {0, 1, 2, 3, 4, 5, 7, 11, 12, 13, 25, 31, 32, 33, 36, 37})
      for (const int k : {0, 1, 7, 8, 9, 15, 16, 17, 23, 24, 25, 47, 48, 49, 127, 128, 129, 136}) {
        const unsigned seed = static_cast<unsigned>(m * 1000 + n * 10 + k);
        SkinnyTester().shape(m, n, k).guard(seed % 2 ? Guard::kBefore : Guard::kAfter).test(seed);
      }
}

// Long products: many column and depth chunks, rows in every group size.
TEST(SgemmSkinny, LargeShapes) {
  struct Shape {
    int m, n, k;
    Guard side;
  };
  for (const Shape& s : {Shape{16, 1031, 1029, Guard::kAfter},
                         {5, 1031, 1029, Guard::kBefore},
                         {1, 2050, 1000, Guard::kAfter},
                         {14, 150, 3000, Guard::kBefore},
                         {3, 300, 2000, Guard::kAfter},
                         {8, 64, 2048, Guard::kBefore},
                         {2, 1000, 500, Guard::kAfter}}) {
    SkinnyTester().shape(s.m, s.n, s.k).special_spacing(1500).guard(s.side).test(s.m + s.n);
  }
}

TEST(SgemmSkinny, StridesOtherThanKReadTheStatedElements) {
  for (const int m : {1, 3, 4, 5, 6, 9, 15, 16})
    for (const int k : {7, 24, 30, 260}) {
      SkinnyTester().shape(m, 9, k).strides(k + 3, k + 5, 11).scalars(1.0f, 1.0f).test(7);
      SkinnyTester().shape(m, 40, k).strides(k + 1, k + 2, 40).scalars(2.0f, 0.0f).test(8);
      SkinnyTester().shape(m, 29, k).strides(k + 9, k - 3, 31).guard(Guard::kBefore).test(9);
    }
}

// Pack strides other than 32: blocks further apart, and blocks that overlap,
// so that later copies overwrite earlier ones before the main steps read them.
TEST(SgemmSkinny, PanelsOfOtherPackStrides) {
  for (const int m : {2, 3, 4, 7, 16})
    for (const int pack_stride : {8, 16, 24, 40})
      for (const int k : {9, 48, 200}) {
        SkinnyTester().shape(m, 26, k).pack_stride(pack_stride).test(m + k);
        SkinnyTester().shape(m, 26, k).pack_stride(pack_stride).guard(Guard::kBefore).test(k);
      }
}

TEST(SgemmSkinny, OutputRule) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  for (const float beta : {0.0f, -0.0f, nan, 1.0f})
    for (const float alpha : {1.0f, inf, -0.0f}) {
      SkinnyTester().shape(5, 6, 0).strides(0, 0, 6).scalars(alpha, beta).test(3);
      SkinnyTester().shape(5, 6, 9).scalars(alpha, beta).test(4);
    }
  // A zero beta leaves the old C unread.
  std::vector<float> a(4 * 3, 1.0f), b(2 * 3, 2.0f), c(8, nan), scratch(64);
  sgemm_nt_fma(4, 2, 3, 1.0f, 3, a.data(), 32, scratch.data(), 3, b.data(), 0.0f, 2, c.data());
  for (float x : c) EXPECT_EQ(6.0f, x);
}

TEST(SgemmSkinny, NothingWrittenForEmptyProducts) {
  GuardedBuffer<float> nothing(0, Guard::kAfter);
  std::vector<float> a(8 * 16, 1.0f), scratch(64);
  for (const Twin& twin : kTwins) {
    twin.kernel(0, 5, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5,
                nothing.data());
    twin.kernel(8, 0, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5,
                nothing.data());
    twin.kernel(-1, 5, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5,
                nothing.data());
  }
}

}  // namespace
