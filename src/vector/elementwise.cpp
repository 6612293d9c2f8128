// Element-wise arithmetic on vectors of float and double. Every product and
// sum is rounded on its own, in the order written; nothing is fused.
#include <cstring>

#include "common/call_frame.h"
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// A zero divisor of either sign gives +0 instead of an infinity or a NaN.
template <typename T>
struct DivOrZero {
  T operator()(T xi, T yi) const { return yi == T(0) ? T(0) : xi / yi; }
  typename Lanes256<T>::Vec operator()(typename Lanes256<T>::Vec xi,
                                       typename Lanes256<T>::Vec yi) const {
    return Lanes256<T>::div_or_zero(xi, yi);
  }
};

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::chunked_stores_are_exact;
using numbra_internal::Lanes256;
using numbra_internal::map_elements;

template <typename T>
void x86VectorAxpy(unsigned long n, T alpha, const T* x, T* y) {
  map_elements(
      n, y, [alpha](auto xi, auto yi) { return xi * alpha + yi; }, x, y);
}

template <typename T>
void x86VectorAxpb(unsigned long n, T alpha, const T* x, T beta, T* y) {
  map_elements(
      n, y, [alpha, beta](auto xi) { return xi * alpha + beta; }, x);
}

template <typename T>
void x86VectorAxpby(unsigned long n, T alpha, const T* x, T beta, T* y) {
  // A zero beta (either sign) leaves y unread, so what stood there cannot
  // reach the result; a NaN beta is not zero and poisons every element.
  if (numbra_internal::zero_beta(beta)) {
    map_elements(
        n, y, [alpha](auto xi) { return xi * alpha; }, x);
  } else {
    map_elements(
        n, y, [alpha, beta](auto xi, auto yi) { return xi * alpha + yi * beta; }, x, y);
  }
}

template <typename T>
void x86VectorAdd(unsigned long n, const T* x, const T* y, T* z) {
  map_elements(
      n, z, [](auto xi, auto yi) { return xi + yi; }, x, y);
}

template <typename T>
void x86VectorAddScalar(unsigned long n, const T* x, T alpha, T* y) {
  map_elements(
      n, y, [alpha](auto xi) { return xi + alpha; }, x);
}

template <typename T>
void x86VectorSubtract(unsigned long n, const T* x, const T* y, T* z) {
  map_elements(
      n, z, [](auto xi, auto yi) { return xi - yi; }, x, y);
}

template <typename T>
void x86VectorMul(unsigned long n, const T* x, const T* y, T* z) {
  map_elements(
      n, z, [](auto xi, auto yi) { return xi * yi; }, x, y);
}

template <typename T>
void x86VectorMulScalar(unsigned long n, const T* x, T alpha, T* y) {
  map_elements(
      n, y, [alpha](auto xi) { return xi * alpha; }, x);
}

template <typename T>
void x86VectorMla(unsigned long n, const T* x, const T* y, T* z) {
  map_elements(
      n, z, [](auto xi, auto yi, auto zi) { return xi * yi + zi; }, x, y, z);
}

template <typename T>
void x86VectorMls(unsigned long n, const T* x, const T* y, T* z) {
  map_elements(
      n, z, [](auto xi, auto yi, auto zi) { return zi - xi * yi; }, x, y, z);
}

template <typename T>
void x86VectorDiv(unsigned long n, const T* x, const T* y, T* z) {
  map_elements(n, z, numbra_internal::DivOrZero<T>{}, x, y);
}

template <typename T>
void x86VectorSqure(unsigned long n, const T* x, T* y) {
  map_elements(
      n, y, [](auto xi) { return xi * xi; }, x);
}

template <typename T>
void x86VectorCopy(unsigned long n, const T* x, T* y) {
  // One block copy, made also for n == 0; overlapping ranges are not supported.
  std::memcpy(y, x, n * sizeof(T));
}

template <typename T>
void x86VectorSwap(unsigned long n, T alpha, T* x, T beta, T* y) {
  // Both products are formed before either store, and x is stored before y,
  // so when x and y are the same vector the store to y wins. Each of x and y
  // is both an input and an output of the other.
  using L = Lanes256<T>;
  unsigned long i = 0;
  if (chunked_stores_are_exact<T>(x, y, L::kCount) &&
      chunked_stores_are_exact<T>(y, x, L::kCount)) {
    for (; i + L::kCount <= n; i += L::kCount) {
      const auto xi = L::load(x + i);
      const auto yi = L::load(y + i);
      L::store(x + i, yi * beta);
      L::store(y + i, xi * alpha);
    }
  }
  for (; i < n; ++i) {
    const T xi = x[i];
    const T yi = y[i];
    x[i] = yi * beta;
    y[i] = xi * alpha;
  }
}

#define NUMBRA_INSTANTIATE_ELEMENTWISE(T)                                    \
  template void x86VectorAxpy<T>(unsigned long, T, const T*, T*);            \
  template void x86VectorAxpb<T>(unsigned long, T, const T*, T, T*);         \
  template void x86VectorAxpby<T>(unsigned long, T, const T*, T, T*);        \
  template void x86VectorAdd<T>(unsigned long, const T*, const T*, T*);      \
  template void x86VectorAddScalar<T>(unsigned long, const T*, T, T*);       \
  template void x86VectorSubtract<T>(unsigned long, const T*, const T*, T*); \
  template void x86VectorMul<T>(unsigned long, const T*, const T*, T*);      \
  template void x86VectorMulScalar<T>(unsigned long, const T*, T, T*);       \
  template void x86VectorMla<T>(unsigned long, const T*, const T*, T*);      \
  template void x86VectorMls<T>(unsigned long, const T*, const T*, T*);      \
  template void x86VectorDiv<T>(unsigned long, const T*, const T*, T*);      \
  template void x86VectorSqure<T>(unsigned long, const T*, T*);              \
  template void x86VectorCopy<T>(unsigned long, const T*, T*);               \
  template void x86VectorSwap<T>(unsigned long, T, T*, T, T*);

NUMBRA_INSTANTIATE_ELEMENTWISE(float)
NUMBRA_INSTANTIATE_ELEMENTWISE(double)

}  // namespace numbra
}  // namespace ZETL
