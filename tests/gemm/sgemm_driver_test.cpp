// The packed block driver against its definition: every element of C is the
// ascending-depth chain of its products, written back once with the alpha
// and beta rule, at the driver's addresses (rows inside a block of 336 lie n
// floats apart). The workspace is exactly one worker's and lies against an
// inaccessible page.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "gemm/sgemm_reference.h"
#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::Rounding;

namespace {

using Driver = void (*)(int, int, int, float, float*, int, float*, int, float*, float, float*, int);

struct Twin {
  const char* name;
  Driver driver;
  Rounding rounding;
};
const Twin kTwins[] = {{"fma", x86_blas_sgemm_nn_fma, Rounding::kFused},
                       {"avx", x86_blas_sgemm_nn_avx, Rounding::kSeparate}};

constexpr std::size_t kWorkspaceFloats = 1354752 / sizeof(float);

std::vector<float> uniform_values(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (float& x : v) x = dist(gen);
  return v;
}

struct Shape {
  int m, n, k;
  int lda_extra = 0, ldb_extra = 0, ldc_extra = 0;
};

// Runs both twins on one shape with a guarded workspace and C, and compares
// the whole of C with the definition.
void check_shape(const Shape& s, float alpha, float beta, bool specials, Guard guard) {
  const int lda = std::max(s.k, 0) + s.lda_extra, ldb = s.n + s.ldb_extra, ldc = s.n + s.ldc_extra;
  const long m = s.m > 0 ? s.m : 0, n = s.n > 0 ? s.n : 0, k = s.k > 0 ? s.k : 0;
  const auto a =
      specials ? numbra_test::mixed_values<float>(m * lda, 11) : uniform_values(m * lda, 11);
  const auto b =
      specials ? numbra_test::mixed_values<float>(k * ldb, 12) : uniform_values(k * ldb, 12);
  // C covers every address the driver may write: full row blocks ldc * 336
  // apart, rows inside a block n apart.
  const long c_size = m > 0 ? numbra_test::driver_c_index(m - 1, n - 1, n, ldc) + 1 : 0;
  const auto c0 = numbra_test::mixed_values<float>(c_size > 0 ? c_size : 0, 13);
  for (const Twin& twin : kTwins) {
    std::vector<float> expected = c0;
    numbra_test::reference_sgemm_nn(twin.rounding, s.m, s.n, s.k, alpha, a.data(), lda, b.data(),
                                    ldb, beta, expected.data(), ldc);
    GuardedBuffer<float> ws(kWorkspaceFloats, guard);
    GuardedBuffer<float> c(c0.size(), guard);
    c.assign(c0.data());
    std::vector<float> a_copy = a, b_copy = b;
    twin.driver(s.m, s.n, s.k, alpha, a_copy.data(), lda, b_copy.data(), ldb, ws.data(), beta,
                c.data(), ldc);
    SCOPED_TRACE(std::string(twin.name) + " m=" + std::to_string(s.m) + " n=" +
                 std::to_string(s.n) + " k=" + std::to_string(s.k) + " ldc=" + std::to_string(ldc) +
                 " alpha=" + std::to_string(alpha) + " beta=" + std::to_string(beta));
    EXPECT_SAME_RESULTS(expected.data(), c.data(), c0.size());
    if (::testing::Test::HasFailure()) return;
  }
}

TEST(SgemmDriver, SmallShapesAcrossTileBoundaries) {
  for (const int m : {1, 2, 3, 47, 48, 49, 50})
    for (const int n : {1, 7, 8, 9, 40, 41, 47, 48, 49, 100})
      for (const int k : {0, 1, 5, 13, 16, 47, 48, 49, 100})
        check_shape({m, n, k}, 0.75f, -1.25f, false, Guard::kAfter);
}

TEST(SgemmDriver, ShapesAcrossBlockBoundaries) {
  const Shape shapes[] = {{336, 336, 336}, {337, 9, 17},    {9, 337, 17},    {9, 17, 337},
                          {400, 100, 50},  {383, 336, 336}, {337, 337, 337}, {700, 41, 23},
                          {23, 700, 41},   {41, 23, 700}};
  for (const Shape& s : shapes) {
    for (const Guard guard : {Guard::kAfter, Guard::kBefore})
      check_shape(s, 1.5f, 0.5f, false, guard);
  }
}

TEST(SgemmDriver, SpecialValuesAndScales) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const float scales[] = {1.0f, 0.0f, -0.0f, 1e-31f, 1e-29f, nan, inf, -2.0f};
  for (const float alpha : scales)
    for (const float beta : scales) check_shape({50, 41, 13}, alpha, beta, true, Guard::kAfter);
}

TEST(SgemmDriver, StridesOfAAndB) {
  check_shape({60, 50, 70, 5, 3, 0}, 0.5f, 2.0f, false, Guard::kAfter);
  check_shape({400, 30, 20, 1, 7, 0}, 0.5f, 2.0f, false, Guard::kAfter);
}

TEST(SgemmDriver, RowsInsideABlockLieNApartWhateverLdc) {
  // Up to 336 rows ldc is never used; beyond, it separates row blocks.
  check_shape({100, 40, 30, 0, 0, 24}, 1.0f, 0.0f, false, Guard::kAfter);
  check_shape({340, 40, 30, 0, 0, 24}, 1.0f, 0.0f, false, Guard::kAfter);
}

TEST(SgemmDriver, EmptyAndNegativeCountsLeaveCAlone) {
  for (const Twin& twin : kTwins) {
    GuardedBuffer<float> nothing(0, Guard::kAfter);
    for (const auto& [m, n] : {std::pair{0, 5}, {5, 0}, {-3, 5}, {5, -3}}) {
      twin.driver(m, n, 4, 1.0f, nothing.data(), 4, nothing.data(), 5, nothing.data(), 1.0f,
                  nothing.data(), 5);
    }
  }
  // k of zero: no packing, C = alpha * 0 + beta * C through the tile rule.
  check_shape({5, 9, 0}, 3.0f, 2.0f, false, Guard::kAfter);
  check_shape({5, 9, -4}, std::numeric_limits<float>::infinity(), 0.0f, false, Guard::kAfter);
}

TEST(SgemmDriver, NearZeroBetaLeavesOldCUnread) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> a(4 * 4, 1.0f), b(4 * 4, 1.0f), ws(kWorkspaceFloats);
  for (const Twin& twin : kTwins) {
    for (const float beta : {0.0f, 1e-31f}) {
      std::vector<float> c(16, nan);
      twin.driver(4, 4, 4, 1.0f, a.data(), 4, b.data(), 4, ws.data(), beta, c.data(), 4);
      for (float x : c) EXPECT_EQ(4.0f, x);
    }
    std::vector<float> c(16, nan);
    twin.driver(4, 4, 4, 1.0f, a.data(), 4, b.data(), 4, ws.data(), 1e-29f, c.data(), 4);
    for (float x : c) EXPECT_TRUE(std::isnan(x));
  }
}

}  // namespace
