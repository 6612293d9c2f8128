// Reductions. Sums have one accumulator of T and run in ascending order: a
// split into partial sums would round differently, so they stay serial.
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// The extreme values start from the float limits in both precisions, not
// from the first element: the maximum never reports less than 2^-126 and the
// minimum never more than FLT_MAX.
template <typename T>
constexpr T kMaxStart = T(1.17549435082228750797e-38f);
template <typename T>
constexpr T kMinStart = T(3.40282346638528859812e+38f);

template <typename T>
struct Extremes {
  T lo, hi;
};

// The extremes of x[0..n), lanes first: two vectors of lanes per extreme,
// so that the compare chains overlap, each lane over its own stride of x.
template <typename T, bool kWithMinimum>
Extremes<T> extremes(unsigned long n, const T* x) {
  using L = numbra_internal::Lanes256<T>;
  constexpr unsigned long kStep = 2 * L::kCount;
  auto hi0 = L::splat(kMaxStart<T>), hi1 = hi0;
  auto lo0 = L::splat(kMinStart<T>), lo1 = lo0;
  unsigned long i = 0;
  for (; i + kStep <= n; i += kStep) {
    const auto x0 = L::load(x + i);
    const auto x1 = L::load(x + i + L::kCount);
    hi0 = L::max(x0, hi0);
    hi1 = L::max(x1, hi1);
    if constexpr (kWithMinimum) {
      lo0 = L::min(x0, lo0);
      lo1 = L::min(x1, lo1);
    }
  }
  T his[kStep], los[kStep];
  L::store(his, hi0);
  L::store(his + L::kCount, hi1);
  L::store(los, lo0);
  L::store(los + L::kCount, lo1);
  Extremes<T> e = {kMinStart<T>, kMaxStart<T>};
  for (unsigned long lane = 0; lane < kStep; ++lane) {
    if (kWithMinimum && e.lo > los[lane]) e.lo = los[lane];
    if (his[lane] > e.hi) e.hi = his[lane];
  }
  for (; i < n; ++i) {
    if (kWithMinimum && e.lo > x[i]) e.lo = x[i];
    if (x[i] > e.hi) e.hi = x[i];
  }
  if (kWithMinimum && e.lo == T(0)) {
    for (unsigned long j = 0;; ++j) {
      if (x[j] == T(0)) {
        e.lo = x[j];
        break;
      }
    }
  }
  return e;
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

template <typename T>
T x86VectorSum(unsigned long n, const T* x) {
  return numbra_internal::ascending_sum(n, x);
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
  return numbra_internal::extremes<T, false>(n, x).hi;
}

template <typename T>
void x86VectorMaxMin(unsigned long n, const T* x, T* lo, T* hi) {
  const numbra_internal::Extremes<T> e = numbra_internal::extremes<T, true>(n, x);
  *lo = e.lo;
  *hi = e.hi;
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
