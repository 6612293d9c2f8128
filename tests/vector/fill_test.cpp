// Fill operators: exact bits, the pattern read at every store, and nothing
// read or written outside the stated ranges.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::bits;
using numbra_test::boundary_lengths;
using numbra_test::from_bits;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;

namespace {

template <typename T>
class FillTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FillTest, Precisions);

template <typename T>
T signalling_nan() {
  return std::numeric_limits<T>::signaling_NaN();
}

TYPED_TEST(FillTest, ScalarStoresExactBitsAndStaysInRange) {
  using T = TypeParam;
  for (const T v : {-T(0), signalling_nan<T>(), -std::numeric_limits<T>::quiet_NaN(), T(2.5)}) {
    for (const unsigned long n : boundary_lengths()) {
      for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
        GuardedBuffer<T> y(n, guard);
        nb::x86VectorFillScalar<T>(n, v, y.data());
        for (unsigned long i = 0; i < n; ++i)
          ASSERT_EQ(bits(v), bits(y[i])) << "n=" << n << " i=" << i;
      }
    }
  }
  nb::x86VectorFillScalar<T>(0, T(1), nullptr);
}

TEST(FillBytes, StoresTheByteAndLeavesEmptyRangesAlone) {
  for (const unsigned long n : boundary_lengths()) {
    GuardedBuffer<unsigned char> y(n, Guard::kAfter);
    nb::x86VectorFillScalar<unsigned char>(n, 0xA5, y.data());
    for (unsigned long i = 0; i < n; ++i) ASSERT_EQ(0xA5, y[i]);
  }
  GuardedBuffer<unsigned char> nothing(0, Guard::kAfter);
  nb::x86VectorFillScalar<unsigned char>(0, 1, nothing.data());
  nb::x86VectorFillScalar<unsigned char>(0, 1, nullptr);
}

// y[i] = v[i mod N] with v read at every store.
template <typename T, int N>
void fill_definition(unsigned long n, const T* v, T* y) {
  for (unsigned long i = 0; i < n; ++i) y[i] = v[i % N];
}

template <typename T, int N>
void check_pattern_fill() {
  for (const unsigned long n : boundary_lengths()) {
    // Only the pattern values that the fill may read are accessible.
    const unsigned long readable = n < N ? n : N;
    GuardedBuffer<T> v(readable, Guard::kAfter);
    GuardedBuffer<T> y(n, Guard::kAfter);
    const std::vector<T> pattern = numbra_test::mixed_values<T>(N, 3);
    v.assign(pattern.data());
    nb::x86VectorFillVector<T, N>(n, v.data(), y.data());
    std::vector<T> expected(n);
    fill_definition<T, N>(n, pattern.data(), expected.data());
    SCOPED_TRACE("N=" + std::to_string(N) + " n=" + std::to_string(n));
    EXPECT_SAME_ARRAY_BITS(expected.data(), y.data(), n);
  }
  // A pattern inside the output sees the elements already stored.
  for (long offset = 0; offset < 12; ++offset) {
    for (const unsigned long n : {0ul, 1ul, 5ul, 13ul, 40ul}) {
      std::vector<T> expected = numbra_test::mixed_values<T>(64, 9), actual = expected;
      fill_definition<T, N>(n, expected.data() + offset, expected.data() + 8);
      nb::x86VectorFillVector<T, N>(n, actual.data() + offset, actual.data() + 8);
      SCOPED_TRACE("N=" + std::to_string(N) + " offset=" + std::to_string(offset) +
                   " n=" + std::to_string(n));
      EXPECT_SAME_ARRAY_BITS(expected.data(), actual.data(), 64);
    }
  }
}

TYPED_TEST(FillTest, PatternMatchesItsDefinition) {
  check_pattern_fill<TypeParam, 2>();
  check_pattern_fill<TypeParam, 3>();
  check_pattern_fill<TypeParam, 4>();
}

TEST(FillPattern, StatedExamples) {
  const float v3[3] = {1, 2, 3};
  float y7[7];
  nb::x86VectorFillVector<float, 3>(7, v3, y7);
  const float want7[7] = {1, 2, 3, 1, 2, 3, 1};
  EXPECT_SAME_ARRAY_BITS(want7, y7, 7);

  // The pattern is the output's own start: it repeats over the rest.
  double y[10] = {5, -6, 7, 8, 0, 0, 0, 0, 0, 0};
  nb::x86VectorFillVector<double, 4>(10, y, y);
  const double want[10] = {5, -6, 7, 8, 5, -6, 7, 8, 5, -6};
  EXPECT_SAME_ARRAY_BITS(want, y, 10);

  nb::x86VectorFillVector<float, 2>(0, nullptr, nullptr);
}

}  // namespace
