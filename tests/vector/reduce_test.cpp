// Reductions against their definition: one accumulator, ascending order,
// and for the extreme values strict comparisons from the float limits. The
// result goes to y[0] (and y[1]), so that the tester may place it anywhere.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numbra.h"
#include "support/operator_tester.h"

namespace nb = ZETL::numbra;
using numbra_test::finite_values;
using numbra_test::mixed_values;
using numbra_test::Operator;
using numbra_test::Shape;

namespace {

// The start values of the extreme values, in both precisions.
template <typename T>
const T kMaxStart = T(std::numeric_limits<float>::min());
template <typename T>
const T kMinStart = T(std::numeric_limits<float>::max());

// No negative values, so that a minimum is often a zero of either sign.
template <typename T>
std::vector<T> nonnegative_values(std::size_t n, std::uint32_t seed) {
  std::vector<T> v = mixed_values<T>(n, seed);
  for (T& x : v) x = x < 0 ? -x : x;
  return v;
}

// One row of n elements into `results` values at y.
template <typename T, class Run, class Define>
Operator<T> reduction(std::string name, int results, Run run, Define define) {
  return {std::move(name),
          [run](const Shape& s, T* a, T*, T* y) { run(s.n, a, y); },
          [define](const Shape& s, T* a, T*, T* y) { define(s.n, a, y); },
          [](const Shape& s) { return s.n; },
          numbra_test::no_operand,
          [results](const Shape&) { return static_cast<unsigned long>(results); }};
}

template <typename T>
std::vector<Operator<T>> operators() {
  const auto sum = reduction<T>(
      "Sum", 1, [](unsigned long n, const T* a, T* y) { *y = nb::x86VectorSum<T>(n, a); },
      [](unsigned long n, const T* a, T* y) {
        T s = 0;
        for (unsigned long i = 0; i < n; ++i) s = s + a[i];
        *y = s;
      });
  const auto dot = reduction<T>(
      "Dot", 1, [](unsigned long n, const T* a, T* y) { *y = nb::x86VectorDot<T>(n, a); },
      [](unsigned long n, const T* a, T* y) {
        T s = 0;
        for (unsigned long i = 0; i < n; ++i) s = s + a[i] * a[i];
        *y = s;
      });
  const auto extremes = [](unsigned long n, const T* a, T* y) {
    T lo = kMinStart<T>, hi = kMaxStart<T>;
    for (unsigned long i = 0; i < n; ++i) {
      if (lo > a[i]) lo = a[i];
      if (a[i] > hi) hi = a[i];
    }
    y[0] = lo;
    y[1] = hi;
  };
  const auto max = reduction<T>(
      "Max", 1, [](unsigned long n, const T* a, T* y) { *y = nb::x86VectorMax<T>(n, a); },
      [extremes](unsigned long n, const T* a, T* y) {
        T both[2];
        extremes(n, a, both);
        *y = both[1];
      });
  const auto max_min = reduction<T>(
      "MaxMin", 2,
      [](unsigned long n, const T* a, T* y) { nb::x86VectorMaxMin<T>(n, a, y, y + 1); }, extremes);
  return {sum,
          Operator<T>(sum).drawn_from(finite_values<T>),
          dot,
          Operator<T>(dot).drawn_from(finite_values<T>),
          Operator<T>(max).keeping_payloads(),
          Operator<T>(max_min).keeping_payloads(),
          Operator<T>(max_min).keeping_payloads().drawn_from(nonnegative_values<T>)};
}

template <typename T>
class ReduceTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ReduceTest, Precisions);

TYPED_TEST(ReduceTest, MatchesTheAscendingLoopInsideGuards) {
  numbra_test::OperatorTester<TypeParam>()
      .shapes({1}, numbra_test::boundary_lengths())
      .test_inside_guards(operators<TypeParam>());
}

TYPED_TEST(ReduceTest, MatchesTheAscendingLoopWhereverTheResultLies) {
  numbra_test::OperatorTester<TypeParam>().test_placements(operators<TypeParam>());
}

// Worked examples: the start values, the float limits in double too, and
// sums rounded in the element type.
TEST(Reduce, StartValuesAndRounding) {
  double lo = 0, hi = 0;
  nb::x86VectorMaxMin<double>(0, nullptr, &lo, &hi);
  EXPECT_SAME_BITS(3.4028234663852886e+38, lo);
  EXPECT_SAME_BITS(1.1754943508222875e-38, hi);
  const double tiny = 1e-300;
  EXPECT_SAME_BITS(1.1754943508222875e-38, nb::x86VectorMax<double>(1, &tiny));
  const float ones[3] = {1e8f, 1.0f, -1e8f};
  EXPECT_SAME_BITS(0.0f, nb::x86VectorSum<float>(3, ones));
  const float big = 1e20f;
  EXPECT_SAME_BITS(std::numeric_limits<float>::infinity(), nb::x86VectorDot<float>(1, &big));
}

}  // namespace
