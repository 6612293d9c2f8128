// The single-precision GEMM driver against its definition: every element of
// C is the ascending-depth chain of its products from +0, written back once
// with the alpha and beta rule, at the driver's addresses (rows inside a
// block of 336 lie n floats apart, blocks ldc rows apart). A, B, C and the
// workspace (exactly one worker's) each lie against an inaccessible page,
// after their last element and then before their first, so that a read or
// write outside the stated ranges faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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

// Values over twenty binary orders of magnitude, so that the order of the
// additions shows in the rounding, with NaN, infinities and signed zeros
// mixed in at `specials_percent` of the places.
std::vector<float> values(std::size_t n, unsigned seed, int specials_percent) {
  const float specials[] = {numbra_test::kNaN<float>, numbra_test::kInf<float>,
                            -numbra_test::kInf<float>, 0.0f, -0.0f};
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> mantissa(-1.0f, 1.0f);
  std::uniform_int_distribution<int> exponent(-10, 10), percent(0, 99), special(0, 4);
  std::vector<float> v(n);
  for (float& x : v) {
    x = percent(gen) < specials_percent ? specials[special(gen)]
                                        : std::ldexp(mantissa(gen), exponent(gen));
  }
  return v;
}

// A driver call, described fluently and checked against the definition with
// both twins, guard pages after and before every operand.
class DriverTester {
 public:
  DriverTester& shape(int m, int n, int k) {
    m_ = m, n_ = n, k_ = k;
    return *this;
  }
  DriverTester& extra_strides(int lda, int ldb) {
    lda_extra_ = lda, ldb_extra_ = ldb;
    return *this;
  }
  DriverTester& ldc(int ldc) {
    ldc_ = ldc;
    return *this;
  }
  DriverTester& scales(float alpha, float beta) {
    alpha_ = alpha, beta_ = beta;
    return *this;
  }
  DriverTester& specials(int percent) {
    specials_ = percent;
    return *this;
  }

  void test() const {
    for (const Guard guard : {Guard::kAfter, Guard::kBefore}) test(guard);
  }

 private:
  void test(Guard guard) const {
    const long m = std::max(m_, 0), n = std::max(n_, 0), k = std::max(k_, 0);
    const int lda = k + lda_extra_, ldb = n + ldb_extra_, ldc = ldc_ < 0 ? n : ldc_;
    // Each operand holds exactly its stated range.
    const long a_size = m > 0 && k > 0 ? (m - 1) * lda + k : 0;
    const long b_size = k > 0 && n > 0 ? (k - 1) * ldb + n : 0;
    const long c_size = m > 0 && n > 0 ? numbra_test::driver_c_index(m - 1, n - 1, n, ldc) + 1 : 0;
    const auto a = values(a_size, 11, specials_), b = values(b_size, 12, specials_);
    const auto c0 = values(c_size, 13, std::max(specials_, 5));
    for (const Twin& twin : kTwins) {
      std::vector<float> expected = c0;
      numbra_test::reference_sgemm_nn(twin.rounding, m_, n_, k_, alpha_, a.data(), lda, b.data(),
                                      ldb, beta_, expected.data(), ldc);
      GuardedBuffer<float> ga(a_size, guard), gb(b_size, guard), gc(c_size, guard);
      GuardedBuffer<float> ws(kWorkspaceFloats, guard);
      ga.assign(a.data());
      gb.assign(b.data());
      gc.assign(c0.data());
      twin.driver(m_, n_, k_, alpha_, ga.data(), lda, gb.data(), ldb, ws.data(), beta_, gc.data(),
                  ldc);
      SCOPED_TRACE(std::string(twin.name) + " m=" + std::to_string(m_) +
                   " n=" + std::to_string(n_) + " k=" + std::to_string(k_) +
                   " ldc=" + std::to_string(ldc) + " alpha=" + numbra_test::describe(alpha_) +
                   " beta=" + numbra_test::describe(beta_));
      EXPECT_SAME_RESULTS(expected.data(), gc.data(), c0.size());
      EXPECT_SAME_ARRAY_BITS(a.data(), ga.data(), a.size());
      EXPECT_SAME_ARRAY_BITS(b.data(), gb.data(), b.size());
    }
  }

  int m_ = 1, n_ = 1, k_ = 1, lda_extra_ = 0, ldb_extra_ = 0, ldc_ = -1, specials_ = 0;
  float alpha_ = 1.5f, beta_ = -0.75f;
};

TEST(SgemmDriver, RegisterTileEdges) {
  // Strips of 6 rows and slivers of 16 columns, on both sides of each edge.
  for (const int m : {1, 2, 5, 6, 7, 12, 13})
    for (const int n : {1, 7, 8, 9, 15, 16, 17, 33})
      for (const int k : {0, 1, 4, 15, 16, 17, 33})
        DriverTester().shape(m, n, k).specials(3).test();
}

TEST(SgemmDriver, PanelWidthsAndDepthRuns) {
  // Depths on both sides of the register-only limit (1024) and of uneven
  // runs beyond it; widths across the panels that each depth gets.
  for (const int k : {64, 257, 1024, 1025, 1537, 2049})
    for (const int n : {63, 65, 129, 241, 257, 300}) DriverTester().shape(13, n, k).test();
}

TEST(SgemmDriver, RowGroupsOfDeepProducts) {
  // Deep products keep their sums between runs for a group of rows at a
  // time; with rows of A copied (a stride of 3 x 512) the panel is wider
  // and a group holds fewer rows: this one needs two.
  DriverTester().shape(1000, 17, 1025).extra_strides(511, 0).test();
}

TEST(SgemmDriver, BlocksOf336Rows) {
  // ldc separates the blocks of 336 rows; inside a block rows lie n apart.
  DriverTester().shape(100, 40, 30).ldc(64).scales(1.0f, 0.0f).test();
  DriverTester().shape(340, 40, 30).ldc(64).scales(1.0f, 0.0f).test();
  DriverTester().shape(700, 37, 50).ldc(45).test();
  DriverTester().shape(337, 337, 337).test();
}

TEST(SgemmDriver, StridesOfAAndB) {
  DriverTester().shape(60, 50, 70).extra_strides(5, 3).test();
  DriverTester().shape(400, 30, 20).extra_strides(1, 7).test();
  // Rows of A 512 floats apart share cache sets and are copied before use.
  DriverTester().shape(29, 40, 100).extra_strides(412, 0).test();
}

TEST(SgemmDriver, ScalesNearTheirThresholds) {
  const float nan = numbra_test::kNaN<float>, inf = numbra_test::kInf<float>;
  const float scales[] = {1.0f,
                          0.0f,
                          -0.0f,
                          1e-31f,
                          1e-29f,
                          std::nextafter(1e-30f, 0.0f),
                          std::nextafter(1e-30f, 1.0f),
                          std::nextafter(1.0f, 0.0f),
                          std::nextafter(1.0f, 2.0f),
                          nan,
                          inf,
                          -inf,
                          0.5f};
  for (const float alpha : scales)
    for (const float beta : scales)
      DriverTester().shape(13, 33, 17).scales(alpha, beta).specials(5).test();
}

TEST(SgemmDriver, EmptyAndNegativeCountsLeaveCAlone) {
  for (const Twin& twin : kTwins) {
    GuardedBuffer<float> nothing(0, Guard::kAfter);
    for (const auto& [m, n] : {std::pair{0, 5}, {5, 0}, {-3, 5}, {5, -3}}) {
      twin.driver(m, n, 4, 1.0f, nothing.data(), 4, nothing.data(), 5, nothing.data(), 1.0f,
                  nothing.data(), 5);
    }
  }
  // Without depth, A and B are not read: C = alpha * 0 + beta * C.
  DriverTester().shape(5, 9, 0).scales(3.0f, 2.0f).test();
  DriverTester().shape(5, 9, -4).scales(numbra_test::kInf<float>, 0.0f).test();
}

// C overlapping A, B or itself: later blocks of 336 by 336 read what earlier
// ones wrote, as the block order gives.
void check_overlap(int m, int n, int k, long a_at, long b_at, long c_at, int ldc) {
  const int lda = k, ldb = n;
  const long size = std::max({a_at + long(m) * lda, b_at + long(k) * ldb,
                              c_at + numbra_test::driver_c_index(m - 1, n - 1, n, ldc) + 1});
  const auto memory = values(size, 21, 0);
  for (const Twin& twin : kTwins) {
    std::vector<float> expected = memory, actual = memory, ws(kWorkspaceFloats);
    numbra_test::reference_sgemm_nn(twin.rounding, m, n, k, 0.5f, expected.data() + a_at, lda,
                                    expected.data() + b_at, ldb, 0.25f, expected.data() + c_at,
                                    ldc);
    twin.driver(m, n, k, 0.5f, actual.data() + a_at, lda, actual.data() + b_at, ldb, ws.data(),
                0.25f, actual.data() + c_at, ldc);
    SCOPED_TRACE(std::string(twin.name) + " a at " + std::to_string(a_at) + ", b at " +
                 std::to_string(b_at) + ", c at " + std::to_string(c_at));
    EXPECT_SAME_RESULTS(expected.data(), actual.data(), memory.size());
  }
}

TEST(SgemmDriver, OverlapFollowsTheBlockOrder) {
  const int m = 400, n = 350, k = 40;
  const long a_floats = long(m) * k, b_floats = long(k) * n;
  check_overlap(m, n, k, 0, a_floats, 1000, n);                   // C over the end of A
  check_overlap(m, n, k, b_floats + 7, 0, 3, n);                  // C over B
  check_overlap(m, n, k, 0, a_floats, a_floats - 1, n);           // one float shared with A
  check_overlap(m, n, k, 0, a_floats, a_floats + b_floats, 300);  // blocks of C overlap
}

TEST(SgemmDriver, NearZeroBetaLeavesOldCUnread) {
  const float nan = numbra_test::kNaN<float>;
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
