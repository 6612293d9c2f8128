// Mask-and-scale and split backward: element loops in T, each product and
// sum rounded on its own. A zero beta (either sign) leaves y unread and adds
// +0 in its place, so a -0 result comes out as +0.
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// 1 where threshold < mask, 0 otherwise (a NaN on either side included),
// as a value to multiply by: a dropped NaN or infinity still gives NaN.
template <typename T>
struct KeptAbove {
  T threshold;
  T operator()(T mask) const { return threshold < mask ? T(1) : T(0); }
  typename Lanes256<T>::Vec operator()(typename Lanes256<T>::Vec mask) const {
    return Lanes256<T>::one_if_less(Lanes256<T>::splat(threshold), mask);
  }
};

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::map_blended;

template <typename T>
void x86VectorMaskAndScale(unsigned long n, const T* mask, T alpha, const T* x, T threshold,
                           T scale, T beta, T* y) {
  const numbra_internal::KeptAbove<T> kept{threshold};
  map_blended(
      n, y, beta,
      [=](auto mi, auto xi) {
        const auto v = (xi * alpha) * scale;
        return kept(mi) * v;
      },
      mask, x);
}

template <typename T>
void x86VectorSplitBackward(unsigned long n, T alpha, const T* a, const T* b, T beta, T* y) {
  map_blended(
      n, y, beta, [alpha](auto ai, auto bi) { return (ai + bi) * alpha; }, a, b);
}

#define NUMBRA_INSTANTIATE_MASK_SPLIT(T)                                                     \
  template void x86VectorMaskAndScale<T>(unsigned long, const T*, T, const T*, T, T, T, T*); \
  template void x86VectorSplitBackward<T>(unsigned long, T, const T*, const T*, T, T*);

NUMBRA_INSTANTIATE_MASK_SPLIT(float)
NUMBRA_INSTANTIATE_MASK_SPLIT(double)

}  // namespace numbra
}  // namespace ZETL
