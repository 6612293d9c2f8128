// The element-wise operators, fills, mask-and-scale and split backward
// against their definition, the ascending scalar loop with one rounding per
// operation, run on the same memory layout.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/operator_tester.h"

namespace nb = ZETL::numbra;
using numbra_test::elementwise;
using numbra_test::kDefaultNaN;
using numbra_test::kNaN;
using numbra_test::Operator;
using numbra_test::OperatorTester;
using numbra_test::Overlap;
using numbra_test::Shape;
using numbra_test::zero_beta_term;

namespace {

template <typename T>
std::string scalars(T alpha, T beta) {
  return "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
}

template <typename T>
std::vector<Operator<T>> arithmetic() {
  std::vector<Operator<T>> ops = {
      elementwise<T>("Add", nb::x86VectorAdd<T>, [](T a, T b, T) { return a + b; }),
      elementwise<T>("Subtract", nb::x86VectorSubtract<T>, [](T a, T b, T) { return a - b; }),
      elementwise<T>("Mul", nb::x86VectorMul<T>, [](T a, T b, T) { return a * b; }),
      elementwise<T>("Div", nb::x86VectorDiv<T>, [](T a, T b, T) { return b == 0 ? 0 : a / b; }),
      elementwise<T>("Mla", nb::x86VectorMla<T>, [](T a, T b, T y) { return a * b + y; }),
      elementwise<T>("Mls", nb::x86VectorMls<T>, [](T a, T b, T y) { return y - a * b; }),
      elementwise<T>("Squre", nb::x86VectorSqure<T>, [](T a, T, T) { return a * a; }),
      elementwise<T>("Copy", nb::x86VectorCopy<T>, [](T a, T, T) { return a; })
          .keeping_payloads()
          .overlapping(Overlap::kNone),
  };
  for (const T alpha : {T(0.75), T(0), T(-3.5)}) {
    const std::string with = "(alpha=" + std::to_string(alpha) + ")";
    ops.push_back(elementwise<T>(
        "AddScalar" + with,
        [alpha](unsigned long n, const T* a, T* y) { nb::x86VectorAddScalar(n, a, alpha, y); },
        [alpha](T a, T, T) { return a + alpha; }));
    ops.push_back(elementwise<T>(
        "MulScalar" + with,
        [alpha](unsigned long n, const T* a, T* y) { nb::x86VectorMulScalar(n, a, alpha, y); },
        [alpha](T a, T, T) { return a * alpha; }));
    ops.push_back(elementwise<T>(
        "Axpy" + with,
        [alpha](unsigned long n, const T* a, T* y) { nb::x86VectorAxpy(n, alpha, a, y); },
        [alpha](T a, T, T y) { return a * alpha + y; }));
    for (const T beta : {T(1.25), T(0), -T(0), kDefaultNaN<T>}) {
      ops.push_back(elementwise<T>(
          "Axpb" + scalars(alpha, beta),
          [=](unsigned long n, const T* a, T* y) { nb::x86VectorAxpb(n, alpha, a, beta, y); },
          [=](T a, T, T) { return a * alpha + beta; }));
      // A zero beta of either sign leaves y unread and adds nothing.
      ops.push_back(elementwise<T>(
          "Axpby" + scalars(alpha, beta),
          [=](unsigned long n, const T* a, T* y) { nb::x86VectorAxpby(n, alpha, a, beta, y); },
          [=](T a, T, T y) { return beta == 0 ? a * alpha : a * alpha + y * beta; }));
    }
  }
  // Both products are taken before either store, x stored first.
  for (const auto& scales : {std::pair{T(1.5), T(-0.5)}, {T(1), T(0)}}) {
    const T alpha = scales.first, beta = scales.second;
    const auto length = [](const Shape& s) { return s.n; };
    ops.push_back(
        {"Swap" + scalars(alpha, beta),
         [=](const Shape& s, T* x, T*, T* y) { nb::x86VectorSwap(s.n, alpha, x, beta, y); },
         [=](const Shape& s, T* x, T*, T* y) {
           for (unsigned long i = 0; i < s.n; ++i) {
             const T xi = x[i], yi = y[i];
             x[i] = yi * beta;
             y[i] = xi * alpha;
           }
         },
         length, numbra_test::no_operand, length});
  }
  return ops;
}

// y[i] = v[i mod N], v read at every store: only its first min(n, N)
// elements are read, and a pattern inside y sees what is already stored.
template <typename T, int N>
Operator<T> pattern_fill() {
  return Operator<T>{
      "FillVector<" + std::to_string(N) + ">",
      [](const Shape& s, T* v, T*, T* y) { nb::x86VectorFillVector<T, N>(s.n, v, y); },
      [](const Shape& s, T* v, T*, T* y) {
        for (unsigned long i = 0; i < s.n; ++i) y[i] = v[i % N];
      },
      [](const Shape& s) { return std::min(s.n, static_cast<unsigned long>(N)); },
      numbra_test::no_operand,
      [](const Shape& s) { return s.n; }}
      .keeping_payloads();
}

template <typename T>
std::vector<Operator<T>> fills() {
  std::vector<Operator<T>> ops = {pattern_fill<T, 2>(), pattern_fill<T, 3>(), pattern_fill<T, 4>()};
  for (const T v : {-T(0), std::numeric_limits<T>::signaling_NaN(), -kNaN<T>, T(2.5)}) {
    ops.push_back(elementwise<T>(
                      "FillScalar(" + std::to_string(v) + ")",
                      [v](unsigned long n, T* y) { nb::x86VectorFillScalar(n, v, y); },
                      [v](T, T, T) { return v; })
                      .keeping_payloads());
  }
  return ops;
}

// Mask-and-scale takes the mask as a and x as b.
template <typename T>
std::vector<Operator<T>> mask_and_split() {
  std::vector<Operator<T>> ops;
  for (const T alpha : {T(1), T(-2.5), T(0)}) {
    const T betas[] = {T(0), -T(0), T(0.75), kDefaultNaN<T>},
            thresholds[] = {T(0.5), T(0), kDefaultNaN<T>, 1};
    for (int k = 0; k < 4; ++k) {
      const T beta = betas[k], threshold = thresholds[k], scale = T(1.75);
      ops.push_back(elementwise<T>(
          "MaskAndScale" + scalars(alpha, beta) + "(threshold=" + std::to_string(threshold) + ")",
          [=](unsigned long n, const T* mask, const T* x, T* y) {
            nb::x86VectorMaskAndScale(n, mask, alpha, x, threshold, scale, beta, y);
          },
          [=](T mask, T x, T y) {
            return zero_beta_term(beta, y) + (threshold < mask ? T(1) : T(0)) * (x * alpha * scale);
          }));
      ops.push_back(elementwise<T>(
          "SplitBackward" + scalars(alpha, beta),
          [=](unsigned long n, const T* a, const T* b, T* y) {
            nb::x86VectorSplitBackward(n, alpha, a, b, beta, y);
          },
          [=](T a, T b, T y) { return (a + b) * alpha + zero_beta_term(beta, y); }));
    }
  }
  return ops;
}

template <typename T>
std::vector<Operator<T>> operators() {
  std::vector<Operator<T>> ops = arithmetic<T>();
  for (const auto& more : {fills<T>(), mask_and_split<T>()})
    ops.insert(ops.end(), more.begin(), more.end());
  return ops;
}

template <typename T>
class ElementwiseTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ElementwiseTest, Precisions);

TYPED_TEST(ElementwiseTest, MatchesTheAscendingLoopInsideGuards) {
  OperatorTester<TypeParam>()
      .shapes({1}, numbra_test::boundary_lengths())
      .test_inside_guards(operators<TypeParam>());
}

TYPED_TEST(ElementwiseTest, MatchesTheAscendingLoopOnEveryPlacement) {
  OperatorTester<TypeParam>().test_placements(operators<TypeParam>());
}

TYPED_TEST(ElementwiseTest, LongOperandsStreamExactly) {
  std::vector<Operator<TypeParam>> ops;
  for (const auto& op : operators<TypeParam>()) {
    if (op.name == "Add" || op.name == "Axpby" + scalars<TypeParam>(0.75, 1.25) ||
        op.name.rfind("FillScalar(2.5", 0) == 0)
      ops.push_back(op);
  }
  OperatorTester<TypeParam>().test_long_operands(ops);
}

// Worked examples of the zero rules: a zero beta of either sign leaves y
// unread, a NaN beta is not zero, and a zero divisor gives +0.
TYPED_TEST(ElementwiseTest, ZeroBetaAndZeroDivisor) {
  using T = TypeParam;
  std::vector<T> x(9, T(2)), y(9, kNaN<T>);
  nb::x86VectorAxpby<T>(9, T(3), x.data(), -T(0), y.data());
  for (const T v : y) EXPECT_SAME_BITS(T(6), v);
  nb::x86VectorAxpby<T>(9, T(3), x.data(), kNaN<T>, y.data());
  for (const T v : y) EXPECT_TRUE(std::isnan(v));
  const std::vector<T> num = {1, 1, 0, kNaN<T>, -1, 1, 0, -1, 1};
  const std::vector<T> den = {0, -T(0), 0, 0, 0, kNaN<T>, 5, numbra_test::kInf<T>, 4};
  const std::vector<T> quotients = {0, 0, 0, 0, 0, kNaN<T>, 0, -T(0), T(0.25)};
  nb::x86VectorDiv<T>(9, num.data(), den.data(), y.data());
  EXPECT_SAME_RESULTS(quotients.data(), y.data(), 9);
}

TEST(Fill, WorkedExamplesAndBytes) {
  // The pattern is the output's own start: it repeats over the rest.
  double y[10] = {5, -6, 7, 8, 0, 0, 0, 0, 0, 0};
  nb::x86VectorFillVector<double, 4>(10, y, y);
  const double repeated[10] = {5, -6, 7, 8, 5, -6, 7, 8, 5, -6};
  EXPECT_SAME_ARRAY_BITS(repeated, y, 10);
  for (const unsigned long n : numbra_test::boundary_lengths()) {
    std::vector<unsigned char> bytes(n);
    numbra_test::call_guarded(
        [n](unsigned char* p) { nb::x86VectorFillScalar<unsigned char>(n, 0xA5, p); }, bytes);
    EXPECT_EQ(std::vector<unsigned char>(n, 0xA5), bytes);
  }
}

}  // namespace
