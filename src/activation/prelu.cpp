// Prelu entry points. The float forward form hands alpha near 1 with beta
// near 0 to the 8-lane kernel, which covers batch * channels * dim elements
// and lets a NaN through; everything else runs the plain loops here, which
// cover n elements, count a NaN or -0 input as +0 and leave the old y unread
// when beta is zero.
#include <cmath>
#include <type_traits>

#include "activation/gates.h"
#include "common/call_frame.h"
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// Calls run(begin, end, s) for each plane [begin, end) of the first n
// elements, with s the slope of its channel: element i belongs to channel
// ((i / dim) % channels) / d, d being channels when the slope is shared and
// 1 otherwise, all divisions unsigned.
template <typename T, class Run>
void for_each_plane(bool channel_shared, unsigned long n, unsigned long dim, int channels,
                    const T* slope, Run run) {
  if (n == 0) return;
  const unsigned long planes_per_batch = static_cast<unsigned long>(channels);
  // An element has no channel then: the call ends in the processor's
  // division fault, as dividing by the zero count does. The divisor is read
  // through a volatile so that the division is made, not reasoned away.
  if (dim == 0 || planes_per_batch == 0) {
    const volatile unsigned long divisor = dim * planes_per_batch;
    asm volatile("" : : "r"(n / divisor));
  }
  const unsigned long d = channel_shared ? planes_per_batch : 1;
  unsigned long begin = 0;
  for (unsigned long plane = 0; begin < n; ++plane) {
    const unsigned long end = dim < n - begin ? begin + dim : n;
    run(begin, end, slope[(plane % planes_per_batch) / d]);
    begin = end;
  }
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::for_each_plane;
using numbra_internal::map_blended;

template <typename T>
void x86VectorPrelu(bool channel_shared, unsigned long n, unsigned long dim, int channels,
                    int batch, T alpha, const T* x, const T* slope, T beta, T* y) {
  if constexpr (std::is_same_v<T, float>) {
    if (numbra_internal::near_one(alpha) && numbra_internal::near_zero(beta)) {
      x86_cnn_prelu_avx(channel_shared, dim, channels, batch, x, slope, y);
      return;
    }
  }
  for_each_plane(channel_shared, n, dim, channels, slope,
                 [=](unsigned long begin, unsigned long end, T s) {
                   const auto activation = [alpha, s](auto xi) {
                     const auto neg = numbra_internal::where_negative(xi, xi);
                     const auto pos = numbra_internal::where_positive(xi, xi);
                     return (neg * s + pos) * alpha;
                   };
                   map_blended(end - begin, y + begin, beta, activation, x + begin);
                 });
}

template <typename T>
void x86VectorPreluBackward(bool channel_shared, unsigned long n, unsigned long dim, int channels,
                            T alpha, const T* x, const T* slope, const T* g, T beta, T* y) {
  // A zero input takes the slope side; a NaN input takes neither.
  for_each_plane(channel_shared, n, dim, channels, slope,
                 [=](unsigned long begin, unsigned long end, T s) {
                   const auto gradient = [alpha, s](auto xi, auto gi) {
                     const auto side = numbra_internal::one_where_not_positive(xi) * s +
                                       numbra_internal::one_where_positive(xi);
                     return side * gi * alpha;
                   };
                   map_blended(end - begin, y + begin, beta, gradient, x + begin, g + begin);
                 });
}

#define NUMBRA_INSTANTIATE_PRELU(T)                                                             \
  template void x86VectorPrelu<T>(bool, unsigned long, unsigned long, int, int, T, const T*,    \
                                  const T*, T, T*);                                             \
  template void x86VectorPreluBackward<T>(bool, unsigned long, unsigned long, int, T, const T*, \
                                          const T*, const T*, T, T*);

NUMBRA_INSTANTIATE_PRELU(float)
NUMBRA_INSTANTIATE_PRELU(double)

}  // namespace numbra
}  // namespace ZETL
