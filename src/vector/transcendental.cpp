// Exponential, power, sigmoid and tanh, with the backward forms of the last
// two. The forward operators work in double whatever T is: a float element
// is widened, goes through the double library function and the arithmetic
// around it, and is narrowed once at the end. Only the beta term is formed
// in T before it joins the double sum. The backward forms have no library
// call and stay in T, each step rounded on its own.
#include <cmath>
#include <type_traits>

#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// alpha / (exp(-x) + 1) in double, the sign flipped in T before widening.
template <typename T>
double wide_sigmoid(T alpha, T x) {
  const T negated = -x;
  const double denominator = std::exp(double(negated)) + 1.0;
  return double(alpha) / denominator;
}

// 1e-30 as a float: below it, a value counts as zero in the float power.
constexpr float kTiny = 1e-30f;

// x to the power -0.75 from square roots and reciprocals, each step rounded
// to float. Values within kTiny of zero give 1; the cube overflows to +Inf
// below about 1.43e-13 and underflows to +0 above about 1.13e15.
float power_minus_three_quarters(float x) {
  if (kTiny > std::fabs(x)) return 1.0f;
  const float r = 1.0f / x;
  const float square = r * r;
  const float cube = square * r;
  const float a = std::sqrt(cube);
  const float b = 1.0f / a;
  const float e = std::sqrt(b);
  return 1.0f / e;
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::blend_term;
using numbra_internal::map_blended;
using numbra_internal::wide_sigmoid;

template <typename T>
void x86VectorExp(unsigned long n, const T* x, T* y) {
  for (unsigned long i = 0; i < n; ++i) y[i] = T(std::exp(double(x[i])));
}

// The float power calls powf, not a widened pow, except for an exponent of
// exactly -0.75, which has its own path; the double power is pow throughout.
template <typename T>
void x86VectorPower(unsigned long n, const T* x, T p, T* y) {
  if constexpr (std::is_same_v<T, float>) {
    const float offset = 0.75f + p;
    if (numbra_internal::kTiny > std::fabs(offset)) {
      for (unsigned long i = 0; i < n; ++i)
        y[i] = numbra_internal::power_minus_three_quarters(x[i]);
    } else {
      for (unsigned long i = 0; i < n; ++i) y[i] = powf(x[i], p);
    }
  } else {
    for (unsigned long i = 0; i < n; ++i) y[i] = std::pow(x[i], p);
  }
}

template <typename T>
void x86VectorSigmoid(unsigned long n, T alpha, const T* x, T beta, T* y) {
  for (unsigned long i = 0; i < n; ++i) {
    const double r = wide_sigmoid(alpha, x[i]);
    const T u = blend_term(beta, y + i);
    y[i] = T(r + double(u));
  }
}

template <typename T>
void x86VectorTanh(unsigned long n, T alpha, const T* x, T beta, T* y) {
  for (unsigned long i = 0; i < n; ++i) {
    const double r = std::tanh(double(x[i])) * double(alpha);
    const T u = blend_term(beta, y + i);
    y[i] = T(r + double(u));
  }
}

template <typename T>
T x86ScalarSigmoid(T x) {
  return T(wide_sigmoid(T(1), x));
}

template <typename T>
void x86VectorSigmoidBackward(unsigned long n, T alpha, const T* s, const T* g, T beta, T* y) {
  // (1 - s) * ((g * alpha) * s) + u
  map_blended(
      n, y, beta,
      [alpha](auto si, auto gi) {
        const auto grad = (gi * alpha) * si;
        return (T(1) - si) * grad;
      },
      s, g);
}

template <typename T>
void x86VectorTanhBackward(unsigned long n, T alpha, const T* t, const T* g, T beta, T* y) {
  // (1 - t * t) * (g * alpha) + u
  map_blended(
      n, y, beta,
      [alpha](auto ti, auto gi) {
        const auto grad = gi * alpha;
        return (T(1) - ti * ti) * grad;
      },
      t, g);
}

#define NUMBRA_INSTANTIATE_TRANSCENDENTAL(T)                                              \
  template void x86VectorExp<T>(unsigned long, const T*, T*);                             \
  template void x86VectorPower<T>(unsigned long, const T*, T, T*);                        \
  template void x86VectorSigmoid<T>(unsigned long, T, const T*, T, T*);                   \
  template void x86VectorTanh<T>(unsigned long, T, const T*, T, T*);                      \
  template T x86ScalarSigmoid<T>(T);                                                      \
  template void x86VectorSigmoidBackward<T>(unsigned long, T, const T*, const T*, T, T*); \
  template void x86VectorTanhBackward<T>(unsigned long, T, const T*, const T*, T, T*);

NUMBRA_INSTANTIATE_TRANSCENDENTAL(float)
NUMBRA_INSTANTIATE_TRANSCENDENTAL(double)

}  // namespace numbra
}  // namespace ZETL
