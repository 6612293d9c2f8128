// Relu entry points. The float forward form runs the 8-lane kernel; the
// double forward form and the backward forms are plain loops that leave the
// old y unread when beta is zero.
#include <type_traits>

#include "activation/gates.h"
#include "numbra.h"
#include "vector/elementwise_loop.h"

namespace ZETL {
namespace numbra {

using ::numbra::map_elements;
using ::numbra::where_positive;

template <typename T>
void x86VectorRelu(ISA_t isa, IMP_t, unsigned long n, T alpha, const T* x, T beta, T* y) {
  if constexpr (std::is_same_v<T, float>) {
    // The kernel has no fused arithmetic, so both instruction sets share it.
    if (isa == ISA_FMA || isa == ISA_AVX) vectorRelu_avx<float>(n, alpha, x, beta, y);
  } else {
    const auto activation = [alpha](auto xi) { return where_positive(xi, xi * alpha); };
    if (beta != T(0)) {
      map_elements(
          n, y, [=](auto xi, auto yi) { return activation(xi) + yi * beta; }, x, y);
    } else {
      map_elements(
          n, y, [=](auto xi) { return activation(xi) + T(0); }, x);
    }
  }
}

template <typename T>
void x86VectorReluBackward(unsigned long n, T alpha, const T* x, const T* g, T beta, T* y) {
  // The gate is strict: a zero or NaN input passes no gradient.
  const auto gradient = [alpha](auto xi, auto gi) { return where_positive(xi, gi * alpha); };
  if (beta != T(0)) {
    map_elements(
        n, y, [=](auto xi, auto gi, auto yi) { return yi * beta + gradient(xi, gi); }, x, g, y);
  } else {
    map_elements(
        n, y, [=](auto xi, auto gi) { return gradient(xi, gi) + T(0); }, x, g);
  }
}

#define NUMBRA_INSTANTIATE_RELU(T)                                                 \
  template void x86VectorRelu<T>(ISA_t, IMP_t, unsigned long, T, const T*, T, T*); \
  template void x86VectorReluBackward<T>(unsigned long, T, const T*, const T*, T, T*);

NUMBRA_INSTANTIATE_RELU(float)
NUMBRA_INSTANTIATE_RELU(double)

}  // namespace numbra
}  // namespace ZETL
