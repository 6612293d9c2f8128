// Exponential, power, sigmoid and tanh against their scalar definitions:
// forward operators in double with one narrowing at the end, backward forms
// in T with every step rounded.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "numbra.h"
#include "support/operator_tester.h"

namespace nb = ZETL::numbra;
using numbra_test::elementwise;
using numbra_test::kDefaultNaN;
using numbra_test::kInf;
using numbra_test::kNaN;
using numbra_test::Operator;
using numbra_test::zero_beta_term;

namespace {

// The float power of exactly -0.75 has a path of its own.
float power_minus_three_quarters(float x) {
  if (std::fabs(x) < 1e-30f) return 1.0f;
  const float r = 1.0f / x, cube = r * r * r;
  return 1.0f / std::sqrt(1.0f / std::sqrt(cube));
}

template <typename T>
std::vector<Operator<T>> operators() {
  std::vector<Operator<T>> ops = {
      elementwise<T>("Exp", nb::x86VectorExp<T>, [](T x, T, T) { return T(std::exp(double(x))); }),
      elementwise<T>(
          "ScalarSigmoid",
          [](unsigned long n, const T* x, T* y) {
            for (unsigned long i = 0; i < n; ++i) y[i] = nb::x86ScalarSigmoid(x[i]);
          },
          [](T x, T, T) { return T(1.0 / (std::exp(double(-x)) + 1.0)); }),
  };
  for (const T p : {T(2.5), T(-0.75), T(-1) / T(3), kDefaultNaN<T>}) {
    ops.push_back(elementwise<T>(
        "Power(p=" + std::to_string(p) + ")",
        [p](unsigned long n, const T* x, T* y) { nb::x86VectorPower(n, x, p, y); },
        [p](T x, T, T) -> T {
          if constexpr (std::is_same_v<T, float>) {
            return p == -0.75f ? power_minus_three_quarters(x) : powf(x, p);
          } else {
            return std::pow(x, p);
          }
        }));
  }
  for (const T alpha : {T(1), T(2), T(-0.5), T(0)}) {
    for (const T beta : {T(0), -T(0), T(1.25), kDefaultNaN<T>}) {
      const std::string with =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      ops.push_back(elementwise<T>(
          "Sigmoid" + with,
          [=](unsigned long n, const T* x, T* y) { nb::x86VectorSigmoid(n, alpha, x, beta, y); },
          [=](T x, T, T y) {
            const double r = double(alpha) / (std::exp(double(-x)) + 1.0);
            return T(r + double(zero_beta_term(beta, y)));
          }));
      ops.push_back(elementwise<T>(
          "Tanh" + with,
          [=](unsigned long n, const T* x, T* y) { nb::x86VectorTanh(n, alpha, x, beta, y); },
          [=](T x, T, T y) {
            const double r = std::tanh(double(x)) * double(alpha);
            return T(r + double(zero_beta_term(beta, y)));
          }));
      ops.push_back(elementwise<T>(
          "SigmoidBackward" + with,
          [=](unsigned long n, const T* s, const T* g, T* y) {
            nb::x86VectorSigmoidBackward(n, alpha, s, g, beta, y);
          },
          [=](T s, T g, T y) { return (T(1) - s) * (g * alpha * s) + zero_beta_term(beta, y); }));
      ops.push_back(elementwise<T>(
          "TanhBackward" + with,
          [=](unsigned long n, const T* t, const T* g, T* y) {
            nb::x86VectorTanhBackward(n, alpha, t, g, beta, y);
          },
          [=](T t, T g, T y) { return (T(1) - t * t) * (g * alpha) + zero_beta_term(beta, y); }));
    }
  }
  return ops;
}

template <typename T>
class TranscendentalTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TranscendentalTest, Precisions);

TYPED_TEST(TranscendentalTest, MatchesTheDefinitionInsideGuards) {
  numbra_test::OperatorTester<TypeParam>()
      .shapes({1}, numbra_test::boundary_lengths())
      .test_inside_guards(operators<TypeParam>());
}

TYPED_TEST(TranscendentalTest, MatchesTheAscendingLoopOnEveryPlacement) {
  numbra_test::OperatorTester<TypeParam>().test_placements(operators<TypeParam>());
}

// Worked examples: the float power of -0.75 and its neighbour below, and
// the +0 that a zero beta adds.
TEST(Transcendental, PowerPathsAndZeroBeta) {
  const std::vector<float> x = {16, 1, 0, -0.0f, 1e-31f, 1e-20f, -1, 1e16f, kNaN<float>};
  const std::vector<float> powers = {0.125f, 1, 1, 1, 1, kInf<float>, kNaN<float>, 0, kNaN<float>};
  std::vector<float> y(x.size());
  nb::x86VectorPower<float>(x.size(), x.data(), -0.75f, y.data());
  EXPECT_SAME_RESULTS(powers.data(), y.data(), y.size());
  nb::x86VectorPower<float>(x.size(), x.data(), std::nextafter(-0.75f, -1.0f), y.data());
  EXPECT_SAME_BITS(kInf<float>, y[2]);
  // tanh(0) * -1 is -0; the +0 of the zero beta makes it +0.
  nb::x86VectorTanh<float>(1, -1.0f, x.data() + 2, 0.0f, y.data());
  EXPECT_SAME_BITS(0.0f, y[0]);
  // alpha / (exp(-0) + 1) with alpha 2 is exactly 1, the old NaN unread.
  const double zero = 0;
  double one = kNaN<double>;
  nb::x86VectorSigmoid<double>(1, 2.0, &zero, -0.0, &one);
  EXPECT_SAME_BITS(1.0, one);
}

}  // namespace
