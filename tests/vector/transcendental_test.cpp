// Exponential, power, sigmoid and tanh against their scalar definitions:
// forward operators in double with one narrowing at the end, backward forms
// in T with every step rounded, on every operand placement.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/vector_operator.h"

namespace nb = ZETL::numbra;
using numbra_test::VectorOperator;

using numbra_test::kInf;
using numbra_test::kNaN;
using numbra_test::zero_beta_term;

namespace {

template <typename T>
std::vector<VectorOperator<T>> forward_operators() {
  std::vector<VectorOperator<T>> ops = {
      {"Exp", false, [](unsigned long n, const T* x, const T*, T* y) { nb::x86VectorExp(n, x, y); },
       [](T x, T, T) { return T(std::exp(double(x))); }},
  };
  for (const T p : {T(2.5), T(-0.75), T(-1) / T(3), kNaN<T>}) {
    ops.push_back(
        {"Power(p=" + std::to_string(p) + ")", false,
         [p](unsigned long n, const T* x, const T*, T* y) { nb::x86VectorPower(n, x, p, y); },
         [p](T x, T, T) -> T {
           if constexpr (std::is_same_v<T, float>) {
             if (p == -0.75f) {
               if (std::fabs(x) < 1e-30f) return 1.0f;
               const float r = 1.0f / x, rr = r * r, c = rr * r;
               return 1.0f / std::sqrt(1.0f / std::sqrt(c));
             }
             return powf(x, p);
           } else {
             return std::pow(x, p);
           }
         }});
  }
  for (const T alpha : {T(1), T(2), T(-0.5), T(0)}) {
    for (const T beta : {T(0), -T(0), T(1.25), kNaN<T>}) {
      const std::string tag =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      ops.push_back({"Sigmoid" + tag, false,
                     [alpha, beta](unsigned long n, const T* x, const T*, T* y) {
                       nb::x86VectorSigmoid(n, alpha, x, beta, y);
                     },
                     [alpha, beta](T x, T, T old) {
                       const T negated = -x;
                       const double r = double(alpha) / (std::exp(double(negated)) + 1.0);
                       return T(r + double(zero_beta_term(beta, old)));
                     }});
      ops.push_back({"Tanh" + tag, false,
                     [alpha, beta](unsigned long n, const T* x, const T*, T* y) {
                       nb::x86VectorTanh(n, alpha, x, beta, y);
                     },
                     [alpha, beta](T x, T, T old) {
                       const double r = std::tanh(double(x)) * double(alpha);
                       return T(r + double(zero_beta_term(beta, old)));
                     }});
    }
  }
  return ops;
}

template <typename T>
std::vector<VectorOperator<T>> backward_operators() {
  std::vector<VectorOperator<T>> ops;
  for (const T alpha : {T(1), T(-1.5), T(0)}) {
    for (const T beta : {T(0), -T(0), T(0.75), kNaN<T>}) {
      const std::string tag =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      ops.push_back({"SigmoidBackward" + tag, true,
                     [alpha, beta](unsigned long n, const T* s, const T* g, T* y) {
                       nb::x86VectorSigmoidBackward(n, alpha, s, g, beta, y);
                     },
                     [alpha, beta](T s, T g, T old) {
                       const T ga = g * alpha, gas = ga * s, one_less = T(1) - s;
                       const T product = one_less * gas;
                       return product + zero_beta_term(beta, old);
                     }});
      ops.push_back({"TanhBackward" + tag, true,
                     [alpha, beta](unsigned long n, const T* t, const T* g, T* y) {
                       nb::x86VectorTanhBackward(n, alpha, t, g, beta, y);
                     },
                     [alpha, beta](T t, T g, T old) {
                       const T ga = g * alpha, tt = t * t, one_less = T(1) - tt;
                       const T product = one_less * ga;
                       return product + zero_beta_term(beta, old);
                     }});
    }
  }
  return ops;
}

template <typename T>
class TranscendentalTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TranscendentalTest, Precisions);

TYPED_TEST(TranscendentalTest, ForwardOperatorsMatchTheirDefinition) {
  numbra_test::expect_definition_everywhere(forward_operators<TypeParam>());
}

TYPED_TEST(TranscendentalTest, BackwardOperatorsMatchTheirDefinition) {
  numbra_test::expect_definition_everywhere(backward_operators<TypeParam>());
}

TYPED_TEST(TranscendentalTest, ZeroBetaIgnoresTheOldOutputAndClearsNegativeZero) {
  using T = TypeParam;
  const std::vector<T> x = {T(0), T(1), -T(3), kInf<T>, -kInf<T>, T(50), -T(800), T(0.25), T(7)};
  const unsigned long n = x.size();
  std::vector<T> g(n, T(1)), y(n, kNaN<T>);
  nb::x86VectorSigmoid<T>(n, T(1), x.data(), T(0), y.data());
  for (T v : y) EXPECT_TRUE(std::isfinite(v)) << v;
  // alpha / (exp(-0) + 1) with alpha 2: exactly 1.
  y.assign(n, kNaN<T>);
  nb::x86VectorSigmoid<T>(1, T(2), x.data(), -T(0), y.data());
  EXPECT_SAME_BITS(T(1), y[0]);
  // A very negative x overflows exp: -1 / +Inf is -0, and +0 is added.
  y.assign(n, kInf<T>);
  nb::x86VectorSigmoid<T>(n, T(-1), x.data(), T(0), y.data());
  EXPECT_SAME_BITS(T(0), y[6]);
  // tanh(0) * -1 is -0; the added +0 makes it +0.
  y.assign(n, kNaN<T>);
  nb::x86VectorTanh<T>(n, T(-1), x.data(), T(0), y.data());
  EXPECT_SAME_BITS(T(0), y[0]);
  // (1 - 1) * (g * alpha * 1) is +0 * negative = -0, then +0.
  std::vector<T> ones(n, T(1));
  y.assign(n, kNaN<T>);
  nb::x86VectorSigmoidBackward<T>(n, T(-1), ones.data(), g.data(), T(0), y.data());
  nb::x86VectorTanhBackward<T>(n, T(-1), ones.data(), g.data(), T(0), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(0), v);
  // A NaN beta poisons every element, however finite y is.
  y.assign(n, T(1));
  nb::x86VectorTanh<T>(n, T(1), x.data(), kNaN<T>, y.data());
  for (T v : y) EXPECT_TRUE(std::isnan(v));
}

TYPED_TEST(TranscendentalTest, ScalarSigmoid) {
  using T = TypeParam;
  EXPECT_SAME_BITS(T(0.5), nb::x86ScalarSigmoid<T>(T(0)));
  EXPECT_TRUE(std::isnan(nb::x86ScalarSigmoid<T>(kNaN<T>)));
  EXPECT_SAME_BITS(T(1), nb::x86ScalarSigmoid<T>(kInf<T>));
  EXPECT_SAME_BITS(T(0), nb::x86ScalarSigmoid<T>(-kInf<T>));
  for (const T x : numbra_test::mixed_values<T>(200, 9)) {
    const T negated = -x;
    EXPECT_SAME_RESULT(T(1.0 / (std::exp(double(negated)) + 1.0)), nb::x86ScalarSigmoid<T>(x));
  }
}

TEST(PowerFloat, MinusThreeQuartersHasItsOwnPath) {
  EXPECT_EQ(0x0DA24260u, numbra_test::bits(1e-30f));
  const std::vector<float> x = {16, 1, 0, -0.0f, 1e-31f, 1e-20f, -1, 1e16f, kNaN<float>};
  const std::vector<float> want = {0.125f, 1, 1, 1, 1, kInf<float>, kNaN<float>, 0, kNaN<float>};
  std::vector<float> y(x.size());
  nb::x86VectorPower<float>(x.size(), x.data(), -0.75f, y.data());
  EXPECT_SAME_RESULTS(want.data(), y.data(), y.size());
  // The next float below -0.75 goes through powf: 0 gives +Inf.
  const float below = std::nextafter(-0.75f, -1.0f);
  nb::x86VectorPower<float>(x.size(), x.data(), below, y.data());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_SAME_RESULT(powf(x[i], below), y[i]);
  EXPECT_SAME_BITS(kInf<float>, y[2]);
}

TEST(PowerDouble, HasNoSpecialPath) {
  const std::vector<double> x = {0, 16};
  std::vector<double> y(2);
  nb::x86VectorPower<double>(2, x.data(), -0.75, y.data());
  EXPECT_SAME_BITS(kInf<double>, y[0]);
  EXPECT_SAME_BITS(0.125, y[1]);
}

}  // namespace
