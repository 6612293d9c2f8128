// 256-bit AVX lanes for the plain operators: 8 float or 4 double lanes, no
// fused arithmetic. Vec is a GCC vector type, so +, -, * and / and mixing
// with a scalar of T (broadcast) read the same as in scalar code: one
// operator body serves the vector body of a loop and its scalar tail.
#ifndef NUMBRA_SIMD_LANES256_H
#define NUMBRA_SIMD_LANES256_H

#include <immintrin.h>

namespace numbra_internal {
namespace {

template <typename T>
struct Lanes256;

template <>
struct Lanes256<float> {
  using Vec = __m256;
  static constexpr unsigned long kCount = 8;
  static constexpr unsigned long kAlignment = 32;

  static Vec load(const float* p) { return _mm256_loadu_ps(p); }
  static void store(float* p, Vec v) { _mm256_storeu_ps(p, v); }
  // A store that bypasses the caches; p must be 32-byte aligned.
  static void stream(float* p, Vec v) { _mm256_stream_ps(p, v); }
  static Vec splat(float v) { return _mm256_set1_ps(v); }
  // (a > b) ? a : b and (a < b) ? a : b, lane by lane: b whenever either is
  // NaN or the two compare equal.
  static Vec max(Vec a, Vec b) { return _mm256_max_ps(a, b); }
  static Vec min(Vec a, Vec b) { return _mm256_min_ps(a, b); }
  // 1 in the lanes where a < b, 0 elsewhere (also where either is NaN).
  static Vec one_if_less(Vec a, Vec b) {
    return _mm256_and_ps(_mm256_cmp_ps(a, b, _CMP_LT_OQ), splat(1.0f));
  }

  // x / y, and +0 in the lanes where y == 0. Those lanes divide +0 by 1, so no
  // lane raises a flag that the element-by-element definition would not.
  static Vec div_or_zero(Vec x, Vec y) {
    const Vec zero_divisor = _mm256_cmp_ps(y, _mm256_setzero_ps(), _CMP_EQ_OQ);
    const Vec num = _mm256_andnot_ps(zero_divisor, x);
    // And/or rather than a blend: GCC turns a blend on a compare result into
    // a select that it splits lane by lane without AVX2.
    const Vec den =
        _mm256_or_ps(_mm256_andnot_ps(zero_divisor, y), _mm256_and_ps(zero_divisor, splat(1.0f)));
    return _mm256_div_ps(num, den);
  }
};

template <>
struct Lanes256<double> {
  using Vec = __m256d;
  static constexpr unsigned long kCount = 4;
  static constexpr unsigned long kAlignment = 32;

  static Vec load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, Vec v) { _mm256_storeu_pd(p, v); }
  static void stream(double* p, Vec v) { _mm256_stream_pd(p, v); }
  static Vec splat(double v) { return _mm256_set1_pd(v); }
  static Vec max(Vec a, Vec b) { return _mm256_max_pd(a, b); }
  static Vec min(Vec a, Vec b) { return _mm256_min_pd(a, b); }
  static Vec one_if_less(Vec a, Vec b) {
    return _mm256_and_pd(_mm256_cmp_pd(a, b, _CMP_LT_OQ), splat(1.0));
  }

  static Vec div_or_zero(Vec x, Vec y) {
    const Vec zero_divisor = _mm256_cmp_pd(y, _mm256_setzero_pd(), _CMP_EQ_OQ);
    const Vec num = _mm256_andnot_pd(zero_divisor, x);
    const Vec den =
        _mm256_or_pd(_mm256_andnot_pd(zero_divisor, y), _mm256_and_pd(zero_divisor, splat(1.0)));
    return _mm256_div_pd(num, den);
  }
};

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SIMD_LANES256_H
