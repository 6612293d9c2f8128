// Reductions: one accumulator of T, ascending index, no lanes. A split into
// partial sums would round differently, so these loops stay serial.
#include "numbra.h"

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

// The comparisons are strict and false for a NaN: NaNs are skipped and of
// equal values the earlier stays.
template <typename T>
T x86VectorMax(unsigned long n, const T* x) {
  T hi = kMaxStart<T>;
  for (unsigned long i = 0; i < n; ++i) {
    if (x[i] > hi) hi = x[i];
  }
  return hi;
}

template <typename T>
void x86VectorMaxMin(unsigned long n, const T* x, T* lo, T* hi) {
  T min = kMinStart<T>;
  T max = kMaxStart<T>;
  for (unsigned long i = 0; i < n; ++i) {
    if (min > x[i]) min = x[i];
    if (x[i] > max) max = x[i];
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
