// Row and column sums against their scalar definitions: one ascending
// accumulator per row, alpha applied as each operator defines, and the
// blend term u = +0 for a zero beta, old * beta otherwise.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/matrix_operator.h"

namespace nb = ZETL::numbra;
using numbra_test::MatrixOperator;
using numbra_test::span;

using numbra_test::kInf;
using numbra_test::kNaN;
using numbra_test::zero_beta_term;

namespace {

template <typename T>
T sum_of(unsigned long n, const T* row) {
  T s = T(0);
  for (unsigned long j = 0; j < n; ++j) s = s + row[j];
  return s;
}

constexpr unsigned long kBatch = 3;

template <typename T>
std::vector<MatrixOperator<T>> operators() {
  using Op = MatrixOperator<T>;
  const auto rows = [](unsigned long m, unsigned long, unsigned long) { return m; };
  const auto columns = [](unsigned long, unsigned long n, unsigned long) { return n; };
  const auto strided = [](unsigned long m, unsigned long n, unsigned long lda) {
    return span(m, n, lda);
  };
  std::vector<Op> ops;
  for (const T alpha : {T(1), T(-0.5), kInf<T>}) {
    for (const T beta : {T(0), -T(0), T(1.25), kNaN<T>}) {
      const std::string tag =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      ops.push_back(Op{"SumByRow" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         nb::x86MatrixSumByRow<T>(7, m, n, lda, alpha, a, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         for (unsigned long r = 0; r < m; ++r) {
                           const T p = sum_of(n, a + r * lda) * alpha;
                           y[r] = p + zero_beta_term(beta, y[r]);
                         }
                       },
                       strided, rows});
      ops.push_back(Op{"GetSum" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long, const T* a, T* y) {
                         nb::x86MatrixGetSum<T>(-3, m, n, alpha, a, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long, const T* a, T* y) {
                         for (unsigned long r = 0; r < m; ++r) {
                           const T s = sum_of(n, a + r * n);
                           const T t = T(1) > s ? T(0) : s * alpha;
                           y[r] = t + zero_beta_term(beta, y[r]);
                         }
                       },
                       [](unsigned long m, unsigned long n, unsigned long) { return m * n; },
                       rows});
      ops.push_back(Op{"BatchSumByRow" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         nb::x86MatrixBatchSumByRow<T>(0, m, n, lda, kBatch, alpha, a, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         for (unsigned long b = 0; b < kBatch; ++b) {
                           const T c = b == 0 ? beta : T(1);
                           for (unsigned long r = 0; r < m; ++r) {
                             const T p = sum_of(n, a + b * m * n + r * lda) * alpha;
                             y[r] = p + zero_beta_term(c, y[r]);
                           }
                         }
                       },
                       [](unsigned long m, unsigned long n, unsigned long lda) {
                         return span(m, n, lda) == 0 ? 0 : (kBatch - 1) * m * n + span(m, n, lda);
                       },
                       rows});
      ops.push_back(Op{"SumByCol" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         nb::x86MatrixSumByCol<T>(1, m, n, lda, alpha, a, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         for (unsigned long j = 0; j < n; ++j) y[j] = zero_beta_term(beta, y[j]);
                         for (unsigned long r = 0; r < m; ++r) {
                           for (unsigned long j = 0; j < n; ++j) {
                             const T p = a[r * lda + j] * alpha;
                             y[j] = p + y[j];
                           }
                         }
                       },
                       strided, columns});
      ops.push_back(Op{"AvgByRow" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         nb::x86MatrixAvgByRow<T>(1, m, n, lda, alpha, a, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         for (unsigned long r = 0; r < m && n > 0; ++r) {
                           const T s = sum_of(n, a + r * lda);
                           for (unsigned long j = 0; j < n; ++j) {
                             const T u = zero_beta_term(beta, y[r * lda + j]);
                             const T p = a[r * lda + j] * alpha;
                             const T q = p / s;
                             y[r * lda + j] = q + u;
                           }
                         }
                       },
                       strided, strided});
    }
  }
  return ops;
}

template <typename T>
class SumsTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SumsTest, Precisions);

TYPED_TEST(SumsTest, MatchesDefinitionInsideGuardedOperands) {
  numbra_test::expect_definition_inside_guards(operators<TypeParam>());
}

TYPED_TEST(SumsTest, MatchesDefinitionOnOverlappingOperands) {
  numbra_test::expect_definition_on_overlaps(operators<TypeParam>());
}

TYPED_TEST(SumsTest, EmptyShapes) {
  using T = TypeParam;
  std::vector<T> y(3, kNaN<T>);
  const T a[1] = {T(5)};
  // No rows: the row operators leave y alone, the column sum still blends.
  nb::x86MatrixSumByRow<T>(0, 0, 3, 3, T(1), a, T(0), y.data());
  nb::x86MatrixBatchSumByRow<T>(0, 2, 3, 3, 0, T(1), a, T(0), y.data());
  for (T v : y) EXPECT_TRUE(std::isnan(v));
  nb::x86MatrixSumByCol<T>(0, 0, 3, 3, T(1), a, T(0), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(0), v);
  y.assign(3, T(1.5));
  nb::x86MatrixSumByCol<T>(0, 0, 3, 3, T(1), a, T(2), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(3), v);
  // No columns: the row sum is +0, and +0 * alpha + 0 is stored.
  y.assign(3, kNaN<T>);
  nb::x86MatrixSumByRow<T>(0, 3, 0, 0, T(1), a, -T(0), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(0), v);
  // An infinite alpha meets no sum in GetSum: +0 + u.
  y.assign(3, kNaN<T>);
  nb::x86MatrixGetSum<T>(0, 3, 0, kInf<T>, a, T(0), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(0), v);
}

TYPED_TEST(SumsTest, GetSumCountsOnlyRowsReachingOne) {
  using T = TypeParam;
  const std::vector<T> a = {T(0.25), T(0.25), T(0.5), T(0.5), T(-2), T(-2), kNaN<T>, T(1)};
  std::vector<T> y(4, kNaN<T>);
  nb::x86MatrixGetSum<T>(0, 4, 2, T(3), a.data(), T(0), y.data());
  EXPECT_SAME_BITS(T(0), y[0]);
  EXPECT_SAME_BITS(T(3), y[1]);
  EXPECT_SAME_BITS(T(0), y[2]);
  EXPECT_TRUE(std::isnan(y[3]));
  y = {T(7), T(7), T(-7), T(7)};
  nb::x86MatrixGetSum<T>(0, 3, 2, T(3), a.data(), T(1), y.data());
  EXPECT_SAME_BITS(T(7), y[0]);
  EXPECT_SAME_BITS(T(10), y[1]);
  EXPECT_SAME_BITS(T(-7), y[2]);
}

TYPED_TEST(SumsTest, BatchSlicesStepByRowsTimesColumns) {
  using T = TypeParam;
  // m = 2, n = 2, lda = 3: slice 1 starts at element 4, its rows at 4 and 7.
  std::vector<T> a(9);
  for (int i = 0; i < 9; ++i) a[i] = T(1 << i);
  std::vector<T> y(2, kNaN<T>);
  nb::x86MatrixBatchSumByRow<T>(0, 2, 2, 3, 2, T(1), a.data(), T(0), y.data());
  EXPECT_SAME_BITS(T(1 + 2 + 16 + 32), y[0]);
  EXPECT_SAME_BITS(T(8 + 16 + 128 + 256), y[1]);
}

TYPED_TEST(SumsTest, AvgByRowDividesByTheRowSum) {
  using T = TypeParam;
  std::vector<T> a = {T(1), T(3), T(2), T(-2)};
  std::vector<T> y(4, kNaN<T>);
  nb::x86MatrixAvgByRow<T>(0, 2, 2, 2, T(1), a.data(), T(0), y.data());
  EXPECT_SAME_BITS(T(0.25), y[0]);
  EXPECT_SAME_BITS(T(0.75), y[1]);
  EXPECT_SAME_BITS(kInf<T>, y[2]);
  EXPECT_SAME_BITS(-kInf<T>, y[3]);
  // In place, the row's sum is taken before its first store.
  nb::x86MatrixAvgByRow<T>(0, 1, 2, 2, T(1), a.data(), T(0), a.data());
  EXPECT_SAME_BITS(T(0.25), a[0]);
  EXPECT_SAME_BITS(T(0.75), a[1]);
}

}  // namespace
