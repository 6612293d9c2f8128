// Reductions. Sums have one accumulator of T and run in ascending order: a
// split into partial sums would round differently, so they stay serial.
#include "numbra.h"
#include "vector/lanes128.h"

namespace ZETL {
namespace numbra {

namespace {

// The extreme values start from the float limits in both precisions, not
// from the first element: the maximum never reports less than 2^-126 and the
// minimum never more than FLT_MAX.
template <typename T>
constexpr T kMaxStart = T(1.17549435082228750797e-38f);
template <typename T>
constexpr T kMinStart = T(3.40282346638528859812e+38f);

}  // namespace

template <typename T>
T x86VectorSum(unsigned long n, const T* x) {
  T sum = T(0);
  for (unsigned long i = 0; i < n; ++i) sum = sum + x[i];
  return sum;
}

template <typename T>
T x86VectorDot(unsigned long n, const T* x) {
  T sum = T(0);
  for (unsigned long i = 0; i < n; ++i) {
    const T square = x[i] * x[i];
    sum = sum + square;
  }
  return sum;
}

// The extreme values are defined by an ascending pass with strict
// comparisons: a NaN never replaces the running value, and of equal values
// the earlier stays. The maximum starts above zero, so it never holds a zero,
// and equal values other than +0 and -0 have equal bits: the largest element
// is the same number whichever order the elements are visited in, and lanes
// may take it over separate strides of x. The minimum may end on a zero,
// where order decides the sign: then it is the first zero of x, since a zero
// minimum means that no element is negative.
template <typename T>
T x86VectorMax(unsigned long n, const T* x) {
  using L = ::numbra::Lanes128<T>;
  auto hi_lanes = L::splat(kMaxStart<T>);
  unsigned long i = 0;
  for (; i + L::kCount <= n; i += L::kCount) hi_lanes = L::max(L::load(x + i), hi_lanes);
  T lanes[L::kCount];
  L::store(lanes, hi_lanes);
  T hi = kMaxStart<T>;
  for (const T lane : lanes) {
    if (lane > hi) hi = lane;
  }
  for (; i < n; ++i) {
    if (x[i] > hi) hi = x[i];
  }
  return hi;
}

template <typename T>
void x86VectorMaxMin(unsigned long n, const T* x, T* lo, T* hi) {
  using L = ::numbra::Lanes128<T>;
  auto lo_lanes = L::splat(kMinStart<T>);
  auto hi_lanes = L::splat(kMaxStart<T>);
  unsigned long i = 0;
  for (; i + L::kCount <= n; i += L::kCount) {
    const auto xi = L::load(x + i);
    lo_lanes = L::min(xi, lo_lanes);
    hi_lanes = L::max(xi, hi_lanes);
  }
  T lo_of_lanes[L::kCount], hi_of_lanes[L::kCount];
  L::store(lo_of_lanes, lo_lanes);
  L::store(hi_of_lanes, hi_lanes);
  T min = kMinStart<T>;
  T max = kMaxStart<T>;
  for (unsigned long lane = 0; lane < L::kCount; ++lane) {
    if (min > lo_of_lanes[lane]) min = lo_of_lanes[lane];
    if (hi_of_lanes[lane] > max) max = hi_of_lanes[lane];
  }
  for (; i < n; ++i) {
    if (min > x[i]) min = x[i];
    if (x[i] > max) max = x[i];
  }
  if (min == T(0)) {
    for (unsigned long j = 0;; ++j) {
      if (x[j] == T(0)) {
        min = x[j];
        break;
      }
    }
  }
  *lo = min;
  *hi = max;
}

#define NUMBRA_INSTANTIATE_REDUCTIONS(T)               \
  template T x86VectorSum<T>(unsigned long, const T*); \
  template T x86VectorDot<T>(unsigned long, const T*); \
  template T x86VectorMax<T>(unsigned long, const T*); \
  template void x86VectorMaxMin<T>(unsigned long, const T*, T*, T*);

NUMBRA_INSTANTIATE_REDUCTIONS(float)
NUMBRA_INSTANTIATE_REDUCTIONS(double)

}  // namespace numbra
}  // namespace ZETL
