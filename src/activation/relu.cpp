// Relu entry points. The float forward form runs the 8-lane kernel; the
// double forward form and the backward forms are plain loops that leave the
// old y unread when beta is zero.
#include <type_traits>

#include "activation/gates.h"
#include "common/call_frame.h"
#include "numbra.h"
#include "simd/element_loop.h"

namespace ZETL {
namespace numbra {

using numbra_internal::map_blended;
using numbra_internal::where_positive;

template <typename T>
void x86VectorRelu(ISA_t isa, IMP_t, unsigned long n, T alpha, const T* x, T beta, T* y) {
  if constexpr (std::is_same_v<T, float>) {
    // The kernel has no fused arithmetic, so both instruction sets share it.
    const auto kernel = &vectorRelu_avx<float>;
    if (const auto relu = numbra_internal::for_isa(isa, kernel, kernel)) relu(n, alpha, x, beta, y);
  } else {
    map_blended(
        n, y, beta, [alpha](auto xi) { return where_positive(xi, xi * alpha); }, x);
  }
}

template <typename T>
void x86VectorReluBackward(unsigned long n, T alpha, const T* x, const T* g, T beta, T* y) {
  // The gate is strict: a zero or NaN input passes no gradient.
  map_blended(
      n, y, beta, [alpha](auto xi, auto gi) { return where_positive(xi, gi * alpha); }, x, g);
}

#define NUMBRA_INSTANTIATE_RELU(T)                                                 \
  template void x86VectorRelu<T>(ISA_t, IMP_t, unsigned long, T, const T*, T, T*); \
  template void x86VectorReluBackward<T>(unsigned long, T, const T*, const T*, T, T*);

NUMBRA_INSTANTIATE_RELU(float)
NUMBRA_INSTANTIATE_RELU(double)

}  // namespace numbra
}  // namespace ZETL
