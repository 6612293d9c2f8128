// The row and column operators of a row-major matrix against their scalar
// definitions: row sums with one ascending accumulator, column sums taking
// their rows one by one, exponentials over sums with the running sum in T,
// the row maximum subtracted with its two row strides, a vector added along
// rows or columns. The blend term is +0 for a zero beta, old * beta otherwise.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/operator_tester.h"

namespace nb = ZETL::numbra;
using numbra_test::kDefaultNaN;
using numbra_test::kInf;
using numbra_test::Operator;
using numbra_test::Shape;
using numbra_test::span;
using numbra_test::zero_beta_term;

namespace {

template <typename T>
T sum_of(unsigned long n, const T* row) {
  T s = T(0);
  for (unsigned long j = 0; j < n; ++j) s = s + row[j];
  return s;
}

unsigned long rows(const Shape& s) { return s.m; }
unsigned long strided(const Shape& s) { return span(s.m, s.n, s.ld()); }

constexpr unsigned long kBatch = 3;

template <typename T>
void add_operators(T alpha, T beta, std::vector<Operator<T>>& ops) {
  const std::string with =
      "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
  const auto none = numbra_test::no_operand;
  ops.push_back({"SumByRow" + with,
                 [=](const Shape& s, T* a, T*, T* y) {
                   nb::x86MatrixSumByRow<T>(7, s.m, s.n, s.ld(), alpha, a, beta, y);
                 },
                 [=](const Shape& s, T* a, T*, T* y) {
                   for (unsigned long r = 0; r < s.m; ++r) {
                     y[r] = sum_of(s.n, a + r * s.ld()) * alpha + zero_beta_term(beta, y[r]);
                   }
                 },
                 strided, none, rows});
  // A row summing to less than 1 gives +0, alpha not applied.
  ops.push_back({"GetSum" + with,
                 [=](const Shape& s, T* a, T*, T* y) {
                   nb::x86MatrixGetSum<T>(-3, s.m, s.n, alpha, a, beta, y);
                 },
                 [=](const Shape& s, T* a, T*, T* y) {
                   for (unsigned long r = 0; r < s.m; ++r) {
                     const T sum = sum_of(s.n, a + r * s.n);
                     y[r] = (T(1) > sum ? T(0) : sum * alpha) + zero_beta_term(beta, y[r]);
                   }
                 },
                 [](const Shape& s) { return s.m * s.n; }, none, rows});
  // Slices lie m * n apart; the later ones add to what the first stored.
  ops.push_back(
      {"BatchSumByRow" + with,
       [=](const Shape& s, T* a, T*, T* y) {
         nb::x86MatrixBatchSumByRow<T>(0, s.m, s.n, s.ld(), kBatch, alpha, a, beta, y);
       },
       [=](const Shape& s, T* a, T*, T* y) {
         for (unsigned long b = 0; b < kBatch; ++b) {
           for (unsigned long r = 0; r < s.m; ++r) {
             const T p = sum_of(s.n, a + b * s.m * s.n + r * s.ld()) * alpha;
             y[r] = p + zero_beta_term(b == 0 ? beta : T(1), y[r]);
           }
         }
       },
       [](const Shape& s) { return strided(s) == 0 ? 0 : (kBatch - 1) * s.m * s.n + strided(s); },
       none, rows});
  ops.push_back({"SumByCol" + with,
                 [=](const Shape& s, T* a, T*, T* y) {
                   nb::x86MatrixSumByCol<T>(1, s.m, s.n, s.ld(), alpha, a, beta, y);
                 },
                 [=](const Shape& s, T* a, T*, T* y) {
                   for (unsigned long j = 0; j < s.n; ++j) y[j] = zero_beta_term(beta, y[j]);
                   for (unsigned long r = 0; r < s.m; ++r) {
                     for (unsigned long j = 0; j < s.n; ++j)
                       y[j] = a[r * s.ld() + j] * alpha + y[j];
                   }
                 },
                 strided, none, [](const Shape& s) { return s.n; }});
  ops.push_back({"AvgByRow" + with,
                 [=](const Shape& s, T* a, T*, T* y) {
                   nb::x86MatrixAvgByRow<T>(1, s.m, s.n, s.ld(), alpha, a, beta, y);
                 },
                 [=](const Shape& s, T* a, T*, T* y) {
                   for (unsigned long r = 0; r < s.m && s.n > 0; ++r) {
                     const T sum = sum_of(s.n, a + r * s.ld());
                     for (unsigned long j = r * s.ld(); j < r * s.ld() + s.n; ++j) {
                       y[j] = a[j] * alpha / sum + zero_beta_term(beta, y[j]);
                     }
                   }
                 },
                 strided, none, strided});
  // Long rows of mixed values nearly always hold a NaN or an infinity; rows
  // with finite sums show each quotient's rounding.
  ops.push_back(ops.back());
  ops.back().name += "(finite)";
  ops.back().drawn_from(numbra_test::finite_values<T>);
  // Exponentials in double, the running sum in T.
  ops.push_back({"ProbByRow" + with,
                 [=](const Shape& s, T* a, T*, T* y) {
                   nb::x86MatrixProbByRow<T>(0, s.m, s.n, s.ld(), alpha, a, beta, y);
                 },
                 [=](const Shape& s, T* a, T*, T* y) {
                   for (unsigned long r = 0; r < s.m; ++r) {
                     const unsigned long row = r * s.ld();
                     T sum = T(0);
                     for (unsigned long j = row; j < row + s.n; ++j)
                       sum = T(sum + std::exp(double(a[j])));
                     for (unsigned long j = row; j < row + s.n; ++j) {
                       const double v = std::exp(double(a[j])) * double(alpha) / double(sum);
                       y[j] = T(double(zero_beta_term(beta, y[j])) + v);
                     }
                   }
                 },
                 strided, none, strided});
  ops.push_back({"AddVectorByRow" + with,
                 [=](const Shape& s, T* x, T*, T* y) {
                   nb::x86MatrixAddVectorByRow<T>(0, s.m, s.n, s.ld(), alpha, x, beta, y);
                 },
                 [=](const Shape& s, T* x, T*, T* y) {
                   for (unsigned long r = 0; r < s.m; ++r) {
                     for (unsigned long j = 0; j < s.n; ++j) {
                       T& yj = y[r * s.ld() + j];
                       yj = x[j] * alpha + zero_beta_term(beta, yj);
                     }
                   }
                 },
                 [](const Shape& s) { return s.n; }, none, strided});
  // x[r] is read once per row, and not at all without columns.
  ops.push_back({"AddVectorByCol" + with,
                 [=](const Shape& s, T* x, T*, T* y) {
                   nb::x86MatrixAddVectorByCol<T>(0, s.m, s.n, s.ld(), alpha, x, beta, y);
                 },
                 [=](const Shape& s, T* x, T*, T* y) {
                   for (unsigned long r = 0; r < s.m && s.n > 0; ++r) {
                     const T t = x[r] * alpha;
                     for (unsigned long j = 0; j < s.n; ++j) {
                       T& yj = y[r * s.ld() + j];
                       yj = t + zero_beta_term(beta, yj);
                     }
                   }
                 },
                 [](const Shape& s) { return s.n == 0 ? 0 : s.m; }, none, strided});
}

template <typename T>
std::vector<Operator<T>> operators() {
  // The first element of a row and the subtrahends are read with row stride
  // n, the rest of the scan and the stores with stride lda; the first element
  // is read also in empty rows, and a NaN there stays the maximum.
  std::vector<Operator<T>> ops = {
      {"SubMaxByRow",
       [](const Shape& s, T* a, T*, T* y) {
         nb::x86MatrixSubMaxByRow<T>(3, s.m, s.n, s.ld(), a, y);
       },
       [](const Shape& s, T* a, T*, T* y) {
         for (unsigned long r = 0; r < s.m; ++r) {
           T mu = a[r * s.n];
           for (unsigned long j = 1; j < s.n; ++j) {
             if (a[r * s.ld() + j] > mu) mu = a[r * s.ld() + j];
           }
           for (unsigned long j = 0; j < s.n; ++j) y[r * s.ld() + j] = a[r * s.n + j] - mu;
         }
       },
       [](const Shape& s) {
         return std::max({strided(s), s.m * s.n, s.m == 0 ? 0 : (s.m - 1) * s.n + 1});
       },
       numbra_test::no_operand, strided}};
  for (const auto& scales : {std::pair{T(1), T(0)},
                             {T(-0.5), -T(0)},
                             {kInf<T>, T(1.25)},
                             {T(2), kDefaultNaN<T>},
                             {T(-0.5), T(1.25)}}) {
    add_operators(scales.first, scales.second, ops);
  }
  return ops;
}

template <typename T>
class MatrixTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixTest, Precisions);

TYPED_TEST(MatrixTest, MatchesTheDefinitionInsideGuards) {
  numbra_test::OperatorTester<TypeParam>()
      .shapes({0, 1, 3, 4, 5, 9}, {0, 1, 2, 3, 4, 5, 8, 9, 17, 33, 130}, {0, 3})
      .test_inside_guards(operators<TypeParam>());
}

TYPED_TEST(MatrixTest, MatchesTheDefinitionOnOverlappingOperands) {
  numbra_test::OperatorTester<TypeParam>()
      .shapes({1, 3, 5}, {1, 3, 4, 5, 9, 33, 100}, {0, 2})
      .test_placements(operators<TypeParam>());
}

// Worked examples: operands of an empty shape are not read, null included;
// the column sum still blends without rows; the maximum's two strides.
TYPED_TEST(MatrixTest, EmptyShapesAndTheTwoStridesOfSubMax) {
  using T = TypeParam;
  nb::x86MatrixAddVectorByCol<T>(0, 4, 0, 3, T(1), nullptr, T(2), nullptr);
  nb::x86MatrixAddVectorByCol<T>(0, 0, 5, 5, T(1), nullptr, T(2), nullptr);
  std::vector<T> y = {T(1.5), -T(0), kInf<T>};
  nb::x86MatrixSumByCol<T>(0, 0, 3, 3, T(1), nullptr, T(2), y.data());
  const std::vector<T> doubled = {T(3), -T(0), kInf<T>};
  EXPECT_SAME_ARRAY_BITS(doubled.data(), y.data(), 3);
  // m = 2, n = 2, lda = 3 over 0..5: row 1 starts from a[2], scans a[4],
  // subtracts from a[2] and a[3], stores at y[3] and y[4].
  const std::vector<T> a = {0, 1, 2, 3, 4, 5};
  std::vector<T> z(6, T(-9));
  nb::x86MatrixSubMaxByRow<T>(0, 2, 2, 3, a.data(), z.data());
  const std::vector<T> differences = {-1, 0, -9, -2, -1, -9};
  EXPECT_SAME_ARRAY_BITS(differences.data(), z.data(), 6);
}

}  // namespace
