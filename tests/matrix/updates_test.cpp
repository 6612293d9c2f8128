// Row updates against their scalar definitions: the exponential-over-sum
// with its running sum in T and exponentials in double, the subtraction of
// the row maximum with its two row strides, and the vector added along rows
// or columns.
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
void prob_by_row(unsigned long m, unsigned long n, unsigned long lda, T alpha, const T* a, T beta,
                 T* y) {
  for (unsigned long r = 0; r < m; ++r) {
    T s = T(0);
    for (unsigned long j = 0; j < n; ++j) s = T(double(s) + std::exp(double(a[r * lda + j])));
    for (unsigned long j = 0; j < n; ++j) {
      const T u = zero_beta_term(beta, y[r * lda + j]);
      const double v = (std::exp(double(a[r * lda + j])) * double(alpha)) / double(s);
      y[r * lda + j] = T(double(u) + v);
    }
  }
}

template <typename T>
std::vector<MatrixOperator<T>> operators() {
  using Op = MatrixOperator<T>;
  const auto strided = [](unsigned long m, unsigned long n, unsigned long lda) {
    return span(m, n, lda);
  };
  std::vector<Op> ops = {
      Op{"SubMaxByRow",
         [](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
           nb::x86MatrixSubMaxByRow<T>(3, m, n, lda, a, y);
         },
         [](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
           for (unsigned long r = 0; r < m; ++r) {
             T mu = a[r * n];
             for (unsigned long j = 1; j < n; ++j)
               if (a[r * lda + j] > mu) mu = a[r * lda + j];
             for (unsigned long j = 0; j < n; ++j) y[r * lda + j] = a[r * n + j] - mu;
           }
         },
         // the first element of every row is read, also of empty rows
         [](unsigned long m, unsigned long n, unsigned long lda) {
           return std::max({span(m, n, lda), m * n, m == 0 ? 0 : (m - 1) * n + 1});
         },
         strided}};
  for (const T alpha : {T(1), T(-0.5), T(2)}) {
    for (const T beta : {T(0), -T(0), T(1.25), kNaN<T>}) {
      const std::string tag =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      ops.push_back(Op{"ProbByRow" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         nb::x86MatrixProbByRow<T>(0, m, n, lda, alpha, a, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y) {
                         prob_by_row(m, n, lda, alpha, a, beta, y);
                       },
                       strided, strided});
      ops.push_back(Op{"AddVectorByRow" + tag,
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* x, T* y) {
                         nb::x86MatrixAddVectorByRow<T>(0, m, n, lda, alpha, x, beta, y);
                       },
                       [=](unsigned long m, unsigned long n, unsigned long lda, const T* x, T* y) {
                         for (unsigned long r = 0; r < m; ++r) {
                           for (unsigned long j = 0; j < n; ++j) {
                             const T p = x[j] * alpha;
                             y[r * lda + j] = p + zero_beta_term(beta, y[r * lda + j]);
                           }
                         }
                       },
                       [](unsigned long, unsigned long n, unsigned long) { return n; }, strided});
      ops.push_back(Op{
          "AddVectorByCol" + tag,
          [=](unsigned long m, unsigned long n, unsigned long lda, const T* x, T* y) {
            nb::x86MatrixAddVectorByCol<T>(0, m, n, lda, alpha, x, beta, y);
          },
          [=](unsigned long m, unsigned long n, unsigned long lda, const T* x, T* y) {
            for (unsigned long r = 0; r < m && n > 0; ++r) {
              const T t = x[r] * alpha;
              for (unsigned long j = 0; j < n; ++j)
                y[r * lda + j] = t + zero_beta_term(beta, y[r * lda + j]);
            }
          },
          [](unsigned long m, unsigned long n, unsigned long) { return n == 0 ? 0 : m; }, strided});
    }
  }
  return ops;
}

template <typename T>
class UpdatesTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(UpdatesTest, Precisions);

TYPED_TEST(UpdatesTest, MatchesDefinitionInsideGuardedOperands) {
  numbra_test::expect_definition_inside_guards(operators<TypeParam>());
}

TYPED_TEST(UpdatesTest, MatchesDefinitionOnOverlappingOperands) {
  numbra_test::expect_definition_on_overlaps(operators<TypeParam>());
}

TYPED_TEST(UpdatesTest, ProbByRowExamples) {
  using T = TypeParam;
  const std::vector<T> zeros = {T(0), T(0)};
  std::vector<T> y(2, kNaN<T>);
  nb::x86MatrixProbByRow<T>(0, 1, 2, 2, T(1), zeros.data(), T(0), y.data());
  EXPECT_SAME_BITS(T(0.5), y[0]);
  EXPECT_SAME_BITS(T(0.5), y[1]);
  nb::x86MatrixProbByRow<T>(0, 1, 2, 2, T(2), zeros.data(), -T(0), y.data());
  EXPECT_SAME_BITS(T(1), y[0]);
  // beta 1 accumulates: 1 + 0.5.
  nb::x86MatrixProbByRow<T>(0, 1, 2, 2, T(1), zeros.data(), T(1), y.data());
  EXPECT_SAME_BITS(T(1.5), y[1]);
  // A row of negative infinities: 0 / 0.
  const std::vector<T> empty = {-kInf<T>, -kInf<T>};
  nb::x86MatrixProbByRow<T>(0, 1, 2, 2, T(1), empty.data(), T(0), y.data());
  EXPECT_TRUE(std::isnan(y[0]) && std::isnan(y[1]));
  // In place.
  std::vector<T> a = {T(0), T(0)};
  nb::x86MatrixProbByRow<T>(0, 1, 2, 2, T(1), a.data(), T(0), a.data());
  EXPECT_SAME_BITS(T(0.5), a[1]);
}

TEST(ProbByRow, FloatSumOverflowsWhereDoubleDoesNot) {
  const std::vector<float> af = {100, 0};
  std::vector<float> yf(2, 5.0f);
  nb::x86MatrixProbByRow<float>(0, 1, 2, 2, 1.0f, af.data(), 0.0f, yf.data());
  EXPECT_SAME_BITS(0.0f, yf[0]);
  EXPECT_SAME_BITS(0.0f, yf[1]);
  const std::vector<double> ad = {100, 0};
  std::vector<double> yd(2);
  nb::x86MatrixProbByRow<double>(0, 1, 2, 2, 1.0, ad.data(), 0.0, yd.data());
  EXPECT_EQ(1.0, yd[0]);
  EXPECT_NEAR(3.72e-44, yd[1], 0.01e-44);
}

TYPED_TEST(UpdatesTest, SubMaxByRowExamples) {
  using T = TypeParam;
  const std::vector<T> a = {T(1), kNaN<T>, T(3), kNaN<T>, T(1), T(3)};
  std::vector<T> y(6);
  nb::x86MatrixSubMaxByRow<T>(0, 2, 3, 3, a.data(), y.data());
  EXPECT_SAME_BITS(T(-2), y[0]);
  EXPECT_TRUE(std::isnan(y[1]));
  EXPECT_SAME_BITS(T(0), y[2]);
  for (int j = 3; j < 6; ++j) EXPECT_TRUE(std::isnan(y[j]));
  // m = 2, n = 2, lda = 3 over 0..5: row 1 starts from a[2], scans a[4],
  // subtracts from a[2] and a[3], stores at y[3] and y[4].
  const std::vector<T> b = {0, 1, 2, 3, 4, 5};
  std::vector<T> z(6, T(-9));
  nb::x86MatrixSubMaxByRow<T>(0, 2, 2, 3, b.data(), z.data());
  const std::vector<T> want = {-1, 0, -9, -2, -1, -9};
  EXPECT_SAME_RESULTS(want.data(), z.data(), 6);
  // One column: 0, or NaN for an infinity.
  const std::vector<T> c = {T(5), kInf<T>};
  nb::x86MatrixSubMaxByRow<T>(0, 2, 1, 1, c.data(), z.data());
  EXPECT_SAME_BITS(T(0), z[0]);
  EXPECT_TRUE(std::isnan(z[1]));
}

TYPED_TEST(UpdatesTest, AddVectorExamples) {
  using T = TypeParam;
  const std::vector<T> x = {T(0), T(0), T(0)};
  std::vector<T> y(6, kNaN<T>);
  nb::x86MatrixAddVectorByRow<T>(0, 2, 3, 3, T(-1), x.data(), T(0), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(0), v);
  const std::vector<T> ramp = {T(1), T(2), T(3)};
  nb::x86MatrixAddVectorByRow<T>(0, 2, 3, 3, T(1), ramp.data(), T(1), y.data());
  nb::x86MatrixAddVectorByCol<T>(0, 2, 3, 3, T(10), ramp.data(), T(1), y.data());
  const std::vector<T> want = {11, 12, 13, 21, 22, 23};
  EXPECT_SAME_RESULTS(want.data(), y.data(), 6);
  nb::x86MatrixAddVectorByRow<T>(0, 2, 3, 3, T(1), ramp.data(), kNaN<T>, y.data());
  for (T v : y) EXPECT_TRUE(std::isnan(v));
}

}  // namespace
