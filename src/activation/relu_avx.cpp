// The 8-lane Relu kernel. With alpha exactly 1 and beta within 1e-30 of zero
// it only rectifies, leaving y unread. Otherwise it blends: the vector part
// scales the old y by w = beta * (old y[0]), the tail by beta itself, and
// only the tail skips the old y for a zero beta. Every product and sum is
// rounded on its own.
#include <immintrin.h>

#include <cmath>

#include "common/call_frame.h"
#include "numbra.h"
#include "simd/map_lanes256.h"

namespace numbra_internal {
namespace {

// v if v > 0, otherwise +0: NaN and -0 give +0.
struct Rectify {
  float operator()(float v) const { return v > 0.0f ? v : 0.0f; }
  __m256 operator()(__m256 v) const { return _mm256_max_ps(v, _mm256_setzero_ps()); }
};

}  // namespace
}  // namespace numbra_internal

template <typename T>
void vectorRelu_avx(unsigned long n, T alpha, const T* x, T beta, T* y) {
  if (numbra_internal::near_one(alpha) && numbra_internal::near_zero(beta)) {
    numbra_internal::map_lanes256(n, x, y, numbra_internal::streams_output(n, x, y),
                                  numbra_internal::Rectify{});
    return;
  }

  // Taken before anything is written, even when there is nothing to write.
  const float w = !numbra_internal::zero_beta(beta) ? beta * y[0] : 0.0f;
  const unsigned long vector_end = n & ~7ul;
  const __m256 w8 = _mm256_set1_ps(w), alpha8 = _mm256_set1_ps(alpha);
  for (unsigned long i = 0; i < vector_end; i += 8) {
    const __m256 scaled_y = _mm256_mul_ps(w8, _mm256_loadu_ps(y + i));
    const __m256 activation =
        _mm256_mul_ps(alpha8, numbra_internal::Rectify{}(_mm256_loadu_ps(x + i)));
    _mm256_storeu_ps(y + i, _mm256_add_ps(scaled_y, activation));
  }
  for (unsigned long i = vector_end; i < n; ++i) {
    const float p = x[i] > 0.0f ? x[i] * alpha : 0.0f;
    if (!numbra_internal::zero_beta(beta)) {
      const float scaled_y = beta * y[i];
      y[i] = p + scaled_y;
    } else {
      y[i] = p + 0.0f;
    }
  }
}

template void vectorRelu_avx<float>(unsigned long, float, const float*, float, float*);
