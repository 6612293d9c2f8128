// The element-wise operators against their definition: the ascending scalar
// loop, one rounding per operation, run on the same memory layout. Operands
// are placed disjoint, aliased exactly and shifted against each other by a
// few elements, so that every vector chunk boundary meets an overlap.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"
#include "support/vector_operator.h"

namespace nb = ZETL::numbra;
using numbra_test::boundary_lengths;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;
using numbra_test::VectorOperator;

namespace {

template <typename T>
std::vector<VectorOperator<T>> operators() {
  const T nan = std::numeric_limits<T>::quiet_NaN();
  std::vector<VectorOperator<T>> ops = {
      {"Add", true,
       [](unsigned long n, const T* a, const T* b, T* o) { nb::x86VectorAdd(n, a, b, o); },
       [](T a, T b, T) { return a + b; }},
      {"Subtract", true,
       [](unsigned long n, const T* a, const T* b, T* o) { nb::x86VectorSubtract(n, a, b, o); },
       [](T a, T b, T) { return a - b; }},
      {"Mul", true,
       [](unsigned long n, const T* a, const T* b, T* o) { nb::x86VectorMul(n, a, b, o); },
       [](T a, T b, T) { return a * b; }},
      {"Div", true,
       [](unsigned long n, const T* a, const T* b, T* o) { nb::x86VectorDiv(n, a, b, o); },
       [](T a, T b, T) { return b == T(0) ? T(0) : a / b; }},
      {"Mla", true,
       [](unsigned long n, const T* a, const T* b, T* o) { nb::x86VectorMla(n, a, b, o); },
       [](T a, T b, T o) {
         const T p = a * b;
         return p + o;
       }},
      {"Mls", true,
       [](unsigned long n, const T* a, const T* b, T* o) { nb::x86VectorMls(n, a, b, o); },
       [](T a, T b, T o) {
         const T p = a * b;
         return o - p;
       }},
      {"Squre", false,
       [](unsigned long n, const T* a, const T*, T* o) { nb::x86VectorSqure(n, a, o); },
       [](T a, T, T) { return a * a; }},
  };
  for (const T alpha : {T(0.75), T(0), T(-3.5)}) {
    const std::string tag = "(alpha=" + std::to_string(alpha) + ")";
    ops.push_back({"AddScalar" + tag, false,
                   [alpha](unsigned long n, const T* a, const T*, T* o) {
                     nb::x86VectorAddScalar(n, a, alpha, o);
                   },
                   [alpha](T a, T, T) { return a + alpha; }});
    ops.push_back({"MulScalar" + tag, false,
                   [alpha](unsigned long n, const T* a, const T*, T* o) {
                     nb::x86VectorMulScalar(n, a, alpha, o);
                   },
                   [alpha](T a, T, T) { return a * alpha; }});
    ops.push_back({"Axpy" + tag, false,
                   [alpha](unsigned long n, const T* a, const T*, T* o) {
                     nb::x86VectorAxpy(n, alpha, a, o);
                   },
                   [alpha](T a, T, T o) {
                     const T p = a * alpha;
                     return p + o;
                   }});
    for (const T beta : {T(1.25), T(0), -T(0), nan}) {
      const std::string tags =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      ops.push_back({"Axpb" + tags, false,
                     [alpha, beta](unsigned long n, const T* a, const T*, T* o) {
                       nb::x86VectorAxpb(n, alpha, a, beta, o);
                     },
                     [alpha, beta](T a, T, T) {
                       const T p = a * alpha;
                       return p + beta;
                     }});
      ops.push_back({"Axpby" + tags, false,
                     [alpha, beta](unsigned long n, const T* a, const T*, T* o) {
                       nb::x86VectorAxpby(n, alpha, a, beta, o);
                     },
                     [alpha, beta](T a, T, T o) {
                       if (beta == T(0)) return a * alpha;
                       const T p = a * alpha;
                       const T q = o * beta;
                       return p + q;
                     }});
    }
  }
  return ops;
}

template <typename T>
class ElementwiseTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ElementwiseTest, Precisions);

TYPED_TEST(ElementwiseTest, MatchesAscendingLoopOnEveryLayout) {
  numbra_test::expect_ascending_loop_on_every_placement(operators<TypeParam>());
}

TYPED_TEST(ElementwiseTest, LongOperandsStreamExactly) {
  std::vector<VectorOperator<TypeParam>> ops;
  for (const auto& op : operators<TypeParam>()) {
    if (op.name == "Add" || op.name.rfind("Axpby(alpha=0.750000", 0) == 0) ops.push_back(op);
  }
  numbra_test::expect_ascending_loop_on_long_operands(ops);
}

TYPED_TEST(ElementwiseTest, StaysInsideItsOperands) {
  numbra_test::expect_stays_inside_operands(operators<TypeParam>());
}

TYPED_TEST(ElementwiseTest, EmptyVectorsAreNotTouched) {
  using T = TypeParam;
  GuardedBuffer<T> nothing(0, Guard::kAfter);  // points at an inaccessible page
  for (const auto& op : operators<T>()) {
    op.run(0, nullptr, nullptr, nullptr);
    op.run(0, nothing.data(), nothing.data(), nothing.data());
  }
  T dummy = T(0);
  nb::x86VectorSwap<T>(0, T(1), nullptr, std::numeric_limits<T>::quiet_NaN(), nullptr);
  nb::x86VectorSwap<T>(0, T(1), nothing.data(), T(1), nothing.data());
  nb::x86VectorCopy<T>(0, nothing.data(), nothing.data());
  nb::x86VectorAxpby<T>(0, T(1), &dummy, std::numeric_limits<T>::quiet_NaN(), &dummy);
  EXPECT_SAME_BITS(T(0), dummy);
}

// With x = 1 + 2^-k and 2k above the mantissa width, x * x is not exact and a
// fused multiply-add would keep the low part that a rounded product drops.
template <typename T>
T just_above_one() {
  return T(1) + std::ldexp(T(1), -(std::numeric_limits<T>::digits / 2 + 1));
}

TYPED_TEST(ElementwiseTest, ProductsAreRoundedBeforeTheyAreAdded) {
  using T = TypeParam;
  const T x = just_above_one<T>();
  const T rounded = x * x;
  std::vector<T> xs(9, x), out(9);

  std::vector<T> minus(9, -rounded);
  out = minus;
  nb::x86VectorAxpy<T>(9, x, xs.data(), out.data());
  for (T v : out) EXPECT_SAME_BITS(T(0), v);

  out = minus;
  nb::x86VectorAxpby<T>(9, x, xs.data(), T(1), out.data());
  for (T v : out) EXPECT_SAME_BITS(T(0), v);

  nb::x86VectorAxpb<T>(9, x, xs.data(), -rounded, out.data());
  for (T v : out) EXPECT_SAME_BITS(T(0), v);

  out = minus;
  nb::x86VectorMla<T>(9, xs.data(), xs.data(), out.data());
  for (T v : out) EXPECT_SAME_BITS(T(0), v);

  std::vector<T> plus(9, rounded);
  nb::x86VectorMls<T>(9, xs.data(), xs.data(), plus.data());
  for (T v : plus) EXPECT_SAME_BITS(T(0), v);
}

TYPED_TEST(ElementwiseTest, AxpbyZeroBetaRule) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const T inf = std::numeric_limits<T>::infinity();
  for (const unsigned long n : {1ul, 7ul, 64ul}) {
    std::vector<T> x(n, T(2)), y(n, nan);
    // -0 is zero: y is not read, its NaNs do not survive.
    nb::x86VectorAxpby<T>(n, T(3), x.data(), -T(0), y.data());
    for (T v : y) EXPECT_SAME_BITS(T(6), v);
    // No addition in the zero branch: -1 * +0 stays -0.
    std::vector<T> zeros(n, T(0));
    y.assign(n, inf);
    nb::x86VectorAxpby<T>(n, T(-1), zeros.data(), T(0), y.data());
    for (T v : y) EXPECT_SAME_BITS(-T(0), v);
    // A NaN beta is not zero: finite y, all NaN.
    y.assign(n, T(1));
    nb::x86VectorAxpby<T>(n, T(3), x.data(), nan, y.data());
    for (T v : y) EXPECT_TRUE(std::isnan(v));
  }
}

TYPED_TEST(ElementwiseTest, DivisionByZeroGivesPositiveZero) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const T inf = std::numeric_limits<T>::infinity();
  // Repeated past a vector width so that both paths see every case.
  const std::vector<T> num = {1, 1, 0, nan, -1, 1, 0, -1};
  const std::vector<T> den = {T(0), -T(0), T(0), T(0), T(0), nan, 5, inf};
  const std::vector<T> want = {0, 0, 0, 0, 0, nan, 0, -T(0)};
  std::vector<T> x, y, expected;
  for (int r = 0; r < 5; ++r) {
    x.insert(x.end(), num.begin(), num.end());
    y.insert(y.end(), den.begin(), den.end());
    expected.insert(expected.end(), want.begin(), want.end());
  }
  std::vector<T> z(x.size(), T(7));
  nb::x86VectorDiv<T>(x.size(), x.data(), y.data(), z.data());
  EXPECT_SAME_RESULTS(expected.data(), z.data(), z.size());
}

TYPED_TEST(ElementwiseTest, AddWithOutputOneAboveInputIsARunningSum) {
  using T = TypeParam;
  std::vector<T> v(41, T(1));
  const std::vector<T> ones(40, T(1));
  nb::x86VectorAdd<T>(40, v.data(), ones.data(), v.data() + 1);
  for (std::size_t i = 0; i < v.size(); ++i) EXPECT_EQ(T(i + 1), v[i]);
}

TYPED_TEST(ElementwiseTest, SwapMatchesItsDefinitionOnEveryShift) {
  using T = TypeParam;
  const T alpha = T(1.5), beta = T(-0.5);
  for (const unsigned long n : boundary_lengths()) {
    if (n > 1000) continue;
    for (long d = -9; d <= 9; ++d) {
      const long base = 16, far = static_cast<long>(n) + 32;
      for (const long y_at : {base + d, base + far + d}) {
        const std::size_t arena_size = static_cast<std::size_t>(base + 2 * far + 32);
        const std::vector<T> initial =
            mixed_values<T>(arena_size, static_cast<std::uint32_t>(n + 100 * d + 1000));
        std::vector<T> expected = initial, actual = initial;
        T* ex = expected.data() + base;
        T* ey = expected.data() + y_at;
        for (unsigned long i = 0; i < n; ++i) {
          const T xi = ex[i], yi = ey[i];
          ex[i] = yi * beta;
          ey[i] = xi * alpha;
        }
        nb::x86VectorSwap<T>(n, alpha, actual.data() + base, beta, actual.data() + y_at);
        SCOPED_TRACE("n=" + std::to_string(n) + ", y at " + std::to_string(y_at - base));
        EXPECT_SAME_RESULTS(expected.data(), actual.data(), arena_size);
      }
    }
  }
}

TYPED_TEST(ElementwiseTest, SwapEdgeCases) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  std::vector<T> v = mixed_values<T>(37, 5);
  std::vector<T> expected(v.size());
  for (std::size_t i = 0; i < v.size(); ++i) expected[i] = v[i] * T(3);
  // The same vector: the store to y comes last, beta has no effect.
  nb::x86VectorSwap<T>(v.size(), T(3), v.data(), T(100), v.data());
  EXPECT_SAME_RESULTS(expected.data(), v.data(), v.size());
  // A zero beta is not special: NaN * 0 is NaN.
  std::vector<T> x(9, T(1)), y(9, nan);
  nb::x86VectorSwap<T>(9, T(1), x.data(), T(0), y.data());
  for (T xi : x) EXPECT_TRUE(std::isnan(xi));
  for (T yi : y) EXPECT_SAME_BITS(T(1), yi);
}

TYPED_TEST(ElementwiseTest, CopyIsBitExact) {
  using T = TypeParam;
  for (const unsigned long n : boundary_lengths()) {
    GuardedBuffer<T> x(n, Guard::kAfter), y(n, Guard::kBefore);
    const std::vector<T> values = mixed_values<T>(n, 11);
    x.assign(values.data());
    nb::x86VectorCopy<T>(n, x.data(), y.data());
    EXPECT_SAME_ARRAY_BITS(values.data(), y.data(), n);
  }
}

}  // namespace
