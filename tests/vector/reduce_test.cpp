// Reductions: one accumulator, ascending order, and the stated start values
// of the extreme-value operators.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::boundary_lengths;
using numbra_test::from_bits;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;

namespace {

template <typename T>
class ReduceTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ReduceTest, Precisions);

// The start values are the float limits in both precisions.
template <typename T>
T max_start();
template <>
float max_start<float>() {
  return from_bits<float>(0x00800000u);
}
template <>
double max_start<double>() {
  return from_bits<double>(0x3810000000000000ull);
}
template <typename T>
T min_start();
template <>
float min_start<float>() {
  return from_bits<float>(0x7F7FFFFFu);
}
template <>
double min_start<double>() {
  return from_bits<double>(0x47EFFFFFE0000000ull);
}

// Values in a narrow range so that sums stay finite and rounding matters.
template <typename T>
std::vector<T> finite_values(std::size_t n, std::uint32_t seed) {
  std::vector<T> v = mixed_values<T>(n, seed);
  for (T& x : v) {
    if (!std::isfinite(x) || std::fabs(x) > T(1e6)) x = T(0.1) * T(&x - v.data());
  }
  return v;
}

TYPED_TEST(ReduceTest, SerialAscendingDefinitions) {
  using T = TypeParam;
  for (const unsigned long n : boundary_lengths()) {
    for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
      for (const bool with_specials : {false, true}) {
        const std::vector<T> v = with_specials ? mixed_values<T>(n, 21) : finite_values<T>(n, 21);
        GuardedBuffer<T> x(n, guard);
        x.assign(v.data());
        T sum = T(0), dot = T(0), hi = max_start<T>(), lo = min_start<T>();
        for (const T e : v) {
          sum = sum + e;
          const T square = e * e;
          dot = dot + square;
          if (lo > e) lo = e;
          if (e > hi) hi = e;
        }
        SCOPED_TRACE("n=" + std::to_string(n));
        EXPECT_SAME_RESULT(sum, nb::x86VectorSum<T>(n, x.data()));
        EXPECT_SAME_RESULT(dot, nb::x86VectorDot<T>(n, x.data()));
        EXPECT_SAME_BITS(hi, nb::x86VectorMax<T>(n, x.data()));
        T got_lo = T(7), got_hi = T(7);
        nb::x86VectorMaxMin<T>(n, x.data(), &got_lo, &got_hi);
        EXPECT_SAME_BITS(lo, got_lo);
        EXPECT_SAME_BITS(hi, got_hi);
      }
    }
  }
}

TYPED_TEST(ReduceTest, EmptyVectorGivesTheStartValues) {
  using T = TypeParam;
  EXPECT_SAME_BITS(T(0), nb::x86VectorSum<T>(0, nullptr));
  EXPECT_SAME_BITS(T(0), nb::x86VectorDot<T>(0, nullptr));
  EXPECT_SAME_BITS(max_start<T>(), nb::x86VectorMax<T>(0, nullptr));
  T lo = T(0), hi = T(0);
  nb::x86VectorMaxMin<T>(0, nullptr, &lo, &hi);
  EXPECT_SAME_BITS(min_start<T>(), lo);
  EXPECT_SAME_BITS(max_start<T>(), hi);
  EXPECT_GT(lo, hi);
}

TYPED_TEST(ReduceTest, ExtremesNeverPassTheStartValues) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const std::vector<T> negatives = {-3, -1};
  EXPECT_SAME_BITS(max_start<T>(), nb::x86VectorMax<T>(2, negatives.data()));
  T lo, hi;
  nb::x86VectorMaxMin<T>(2, negatives.data(), &lo, &hi);
  EXPECT_SAME_BITS(T(-3), lo);
  EXPECT_SAME_BITS(max_start<T>(), hi);

  const std::vector<T> nans = {nan, T(5), nan};
  EXPECT_SAME_BITS(T(5), nb::x86VectorMax<T>(3, nans.data()));
  const std::vector<T> all_nan = {nan, nan};
  EXPECT_SAME_BITS(max_start<T>(), nb::x86VectorMax<T>(2, all_nan.data()));

  // Of two equal values the earlier stays: -0 and +0 in either order.
  const std::vector<T> zeros = {-T(0), T(0)};
  nb::x86VectorMaxMin<T>(2, zeros.data(), &lo, &hi);
  EXPECT_SAME_BITS(-T(0), lo);
  const std::vector<T> zeros_swapped = {T(0), -T(0)};
  nb::x86VectorMaxMin<T>(2, zeros_swapped.data(), &lo, &hi);
  EXPECT_SAME_BITS(T(0), lo);

  const std::vector<T> negative_zeros(9, -T(0));
  EXPECT_SAME_BITS(T(0), nb::x86VectorSum<T>(9, negative_zeros.data()));
}

TYPED_TEST(ReduceTest, FirstZeroDecidesTheSignOfAZeroMinimum) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  for (const unsigned long n : {4ul, 5ul, 9ul, 17ul, 33ul}) {
    for (unsigned long first = 0; first < n; ++first) {
      for (unsigned long second = first + 1; second < n; ++second) {
        for (const T first_zero : {-T(0), T(0)}) {
          std::vector<T> x(n, T(2));
          x[n / 2] = nan;
          x[first] = first_zero;
          x[second] = -first_zero;
          T lo, hi;
          nb::x86VectorMaxMin<T>(n, x.data(), &lo, &hi);
          EXPECT_SAME_BITS(first_zero, lo) << "n=" << n << " zeros at " << first << ", " << second;
          EXPECT_SAME_BITS(T(2), hi);
        }
      }
    }
  }
}

TEST(ReduceDouble, UsesTheFloatLimits) {
  const double tiny = 1e-300;
  EXPECT_SAME_BITS(1.1754943508222875e-38, nb::x86VectorMax<double>(1, &tiny));
  const double huge = 1e300;
  double lo, hi;
  nb::x86VectorMaxMin<double>(1, &huge, &lo, &hi);
  EXPECT_SAME_BITS(3.4028234663852886e+38, lo);
  EXPECT_SAME_BITS(1e300, hi);
}

TEST(ReduceRounding, AccumulatesInTheElementType) {
  const float f[3] = {1e8f, 1.0f, -1e8f};
  EXPECT_SAME_BITS(0.0f, nb::x86VectorSum<float>(3, f));
  const double d[3] = {1e8, 1.0, -1e8};
  EXPECT_SAME_BITS(1.0, nb::x86VectorSum<double>(3, d));
  const float big = 1e20f;
  EXPECT_SAME_BITS(std::numeric_limits<float>::infinity(), nb::x86VectorDot<float>(1, &big));
}

}  // namespace
