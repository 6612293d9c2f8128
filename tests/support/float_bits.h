// Bit-level comparison of floating-point results and inputs that exercise
// the special values.
#ifndef NUMBRA_TESTS_FLOAT_BITS_H
#define NUMBRA_TESTS_FLOAT_BITS_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace numbra_test {

template <typename T>
using BitsOf = std::conditional_t<sizeof(T) == 4, std::uint32_t,
                                  std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint8_t>>;

template <typename T>
BitsOf<T> bits(T v) {
  BitsOf<T> b;
  std::memcpy(&b, &v, sizeof(T));
  return b;
}

template <typename T>
T from_bits(BitsOf<T> b) {
  T v;
  std::memcpy(&v, &b, sizeof(T));
  return v;
}

template <typename T>
const T kNaN = std::numeric_limits<T>::quiet_NaN();
template <typename T>
const T kInf = std::numeric_limits<T>::infinity();

// The blend term of an output element under the zero-beta rule: +0 for a
// zero beta of either sign, with the old value unread; old * beta otherwise.
template <typename T>
T zero_beta_term(T beta, T old) {
  return beta == T(0) ? T(0) : old * beta;
}

template <typename T>
std::string describe(T v) {
  std::ostringstream out;
  out << std::setprecision(std::numeric_limits<T>::max_digits10) << +v << " (0x" << std::hex
      << +bits(v) << ")";
  return out.str();
}

// Arithmetic results are compared bit for bit, except that any NaN matches
// any NaN: which operand's payload an operation passes on is left open by
// the language, and a compiler may commute the operands of + and *. Moves
// (copies, fills) keep payloads and are compared exactly.
enum class NaNs { kAnyPayload, kExactPayload };

template <typename T>
bool same_result(T expected, T actual, NaNs nans) {
  if (nans == NaNs::kAnyPayload && std::isnan(expected) && std::isnan(actual)) return true;
  return bits(expected) == bits(actual);
}

// Index of the first element that differs, or -1.
template <typename T>
long first_difference(const T* expected, const T* actual, std::size_t n, NaNs nans) {
  for (std::size_t i = 0; i < n; ++i) {
    if (!same_result(expected[i], actual[i], nans)) return static_cast<long>(i);
  }
  return -1;
}

#define NUMBRA_EXPECT_ARRAY(expected, actual, n, nans)                                           \
  do {                                                                                           \
    const long numbra_diff = ::numbra_test::first_difference((expected), (actual), (n), (nans)); \
    const long numbra_at = numbra_diff < 0 ? 0 : numbra_diff;                                    \
    EXPECT_EQ(numbra_diff, -1) << "first difference at " << numbra_diff << ": expected "         \
                               << ::numbra_test::describe((expected)[numbra_at]) << ", got "     \
                               << ::numbra_test::describe((actual)[numbra_at]);                  \
  } while (0)

// Same bits, NaN payloads included.
#define EXPECT_SAME_BITS(expected, actual)                              \
  EXPECT_EQ(::numbra_test::bits(expected), ::numbra_test::bits(actual)) \
      << ::numbra_test::describe(expected) << " vs " << ::numbra_test::describe(actual)
#define EXPECT_SAME_ARRAY_BITS(expected, actual, n) \
  NUMBRA_EXPECT_ARRAY(expected, actual, n, ::numbra_test::NaNs::kExactPayload)

// Same bits, any NaN for a NaN.
#define EXPECT_SAME_RESULT(expected, actual)                                                      \
  EXPECT_TRUE(::numbra_test::same_result((expected), (actual), ::numbra_test::NaNs::kAnyPayload)) \
      << ::numbra_test::describe(expected) << " vs " << ::numbra_test::describe(actual)
#define EXPECT_SAME_RESULTS(expected, actual, n) \
  NUMBRA_EXPECT_ARRAY(expected, actual, n, ::numbra_test::NaNs::kAnyPayload)

// Values of mixed magnitude and sign with, at random places, the values that
// arithmetic treats specially: NaN, both zeros, both infinities, subnormals,
// values whose products overflow.
template <typename T>
std::vector<T> mixed_values(std::size_t n, std::uint32_t seed) {
  using L = std::numeric_limits<T>;
  const T specials[] = {
      L::quiet_NaN(),  -L::quiet_NaN(), T(0),     -T(0),         L::infinity(), -L::infinity(),
      L::denorm_min(), -L::min() / 4,   L::max(), -L::max() / 2, T(1),          T(-1)};
  std::mt19937 gen(seed);
  std::uniform_real_distribution<T> mantissa(T(-2), T(2));
  std::uniform_int_distribution<int> exponent(-30, 30);
  std::uniform_int_distribution<int> pick(0, 99);
  std::vector<T> v(n);
  for (std::size_t i = 0; i < n; ++i) {
    const int p = pick(gen);
    if (p < 12) {
      v[i] = specials[p];
    } else {
      v[i] = std::ldexp(mantissa(gen), exponent(gen));
    }
  }
  return v;
}

// Values whose sums stay finite, so that their rounding shows.
template <typename T>
std::vector<T> finite_values(std::size_t n, std::uint32_t seed) {
  std::vector<T> v = mixed_values<T>(n, seed);
  for (T& x : v) {
    if (!std::isfinite(x) || std::fabs(x) > T(1e6)) x = T(0.1) * T(&x - v.data());
  }
  return v;
}

// Lengths on both sides of the 128-bit lane counts and well beyond them.
inline const std::vector<unsigned long>& boundary_lengths() {
  static const std::vector<unsigned long> lengths = {0,  1,  2,  3,  4,  5,   6,    7,   8,  9,
                                                     15, 16, 17, 23, 24, 25,  31,   32,  33, 39,
                                                     40, 41, 63, 64, 65, 127, 1000, 4099};
  return lengths;
}

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_FLOAT_BITS_H
