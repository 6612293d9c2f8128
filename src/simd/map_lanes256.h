// The 8-lane element loop of the float activation kernels, which keep their
// own step layout (steps from x[0], or from y's first 32-byte boundary when
// streaming).
#ifndef NUMBRA_SIMD_MAP_LANES256_H
#define NUMBRA_SIMD_MAP_LANES256_H

#include <immintrin.h>

#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// True when a call over n elements should write y with streaming stores: y
// is too large to stay in the caches, and disjoint from x, so that the order
// of the steps cannot show. An ordinary store first reads the line it
// writes, which costs a one-in, one-out loop a third of its memory traffic.
inline bool streams_output(unsigned long n, const float* x, const float* y) {
  return n * sizeof(float) >= kStreamingOutputBytes && ranges_are_disjoint(x, y, n);
}

// y[i] = op(x[i]) for i in 0..n-1: the first n & ~7 elements in 8-lane steps
// from x[0], the rest one at a time. `op` takes a float and an __m256 and
// gives the same bits lane by lane. With `streaming` the steps instead start
// at the first 32-byte boundary of y, which only a disjoint y may ask for.
template <class Op>
inline void map_lanes256(unsigned long n, const float* x, float* y, bool streaming, Op op) {
  unsigned long i = 0;
  if (streaming) {
    for (; i < n && reinterpret_cast<std::uintptr_t>(y + i) % 32 != 0; ++i) y[i] = op(x[i]);
    for (; i + 8 <= n; i += 8) _mm256_stream_ps(y + i, op(_mm256_loadu_ps(x + i)));
    _mm_sfence();  // order the streamed stores before any later store
  } else {
    for (; i + 8 <= n; i += 8) _mm256_storeu_ps(y + i, op(_mm256_loadu_ps(x + i)));
  }
  for (; i < n; ++i) y[i] = op(x[i]);
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SIMD_MAP_LANES256_H
