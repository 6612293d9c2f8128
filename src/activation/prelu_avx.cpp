// The 8-lane Prelu kernel: max(0, v) + slope * min(0, v) with the lane
// instructions' NaN rule (v is the second operand, so a NaN passes through
// both and -0 stays -0), plane by plane with no index arithmetic.
#include <immintrin.h>

#include "common/call_frame.h"
#include "numbra.h"
#include "simd/map_lanes256.h"

namespace numbra_internal {
namespace {

struct Prelu {
  float slope;
  float operator()(float v) const {
    const float positive = 0.0f > v ? 0.0f : v;
    const float negative = 0.0f < v ? 0.0f : v;
    const float scaled = slope * negative;
    return positive + scaled;
  }
  __m256 operator()(__m256 v) const {
    const __m256 zero = _mm256_setzero_ps();
    const __m256 scaled = _mm256_mul_ps(_mm256_set1_ps(slope), _mm256_min_ps(zero, v));
    return _mm256_add_ps(_mm256_max_ps(zero, v), scaled);
  }
};

}  // namespace
}  // namespace numbra_internal

extern "C" void x86_cnn_prelu_avx(bool channel_shared, unsigned long dim, int channels, int batch,
                                  const float* x, const float* slope, float* y) {
  if (batch <= 0 || channels <= 0) return;
  // Steps start afresh at every plane, so none straddles two slopes.
  const unsigned long planes = static_cast<unsigned long>(batch) * channels;
  const bool streaming = numbra_internal::streams_output(planes * dim, x, y);
  for (unsigned long plane = 0; plane < planes; ++plane) {
    const int channel = static_cast<int>(plane % channels);
    const float s = channel_shared ? slope[0] : slope[channel];
    const unsigned long offset = plane * dim;
    numbra_internal::map_lanes256(dim, x + offset, y + offset, streaming,
                                  numbra_internal::Prelu{s});
  }
}
