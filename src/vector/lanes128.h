// 128-bit SSE lanes, for code whose steps are four floats or two doubles
// wide (the transposes' tile rows). Vec is a GCC vector type, so +, -, *
// and / and mixing with a scalar of T (broadcast) read the same as in scalar
// code: one operator body serves the vector body of a loop and its tail.
#ifndef NUMBRA_VECTOR_LANES128_H
#define NUMBRA_VECTOR_LANES128_H

#include <emmintrin.h>

namespace numbra {

template <typename T>
struct Lanes128;

template <>
struct Lanes128<float> {
  using Vec = __m128;
  static constexpr unsigned long kCount = 4;
  static constexpr unsigned long kAlignment = 16;

  static Vec load(const float* p) { return _mm_loadu_ps(p); }
  static void store(float* p, Vec v) { _mm_storeu_ps(p, v); }
  // A store that bypasses the caches; p must be 16-byte aligned.
  static void stream(float* p, Vec v) { _mm_stream_ps(p, v); }
  static Vec splat(float v) { return _mm_set1_ps(v); }
  // (a > b) ? a : b and (a < b) ? a : b, lane by lane: b whenever either is
  // NaN or the two compare equal.
  static Vec max(Vec a, Vec b) { return _mm_max_ps(a, b); }
  static Vec min(Vec a, Vec b) { return _mm_min_ps(a, b); }
  // 1 in the lanes where a < b, 0 elsewhere (also where either is NaN).
  static Vec one_if_less(Vec a, Vec b) { return _mm_and_ps(_mm_cmplt_ps(a, b), splat(1.0f)); }

  // x / y, and +0 in the lanes where y == 0. Those lanes divide +0 by 1, so no
  // lane raises a flag that the element-by-element definition would not.
  static Vec div_or_zero(Vec x, Vec y) {
    const Vec zero_divisor = _mm_cmpeq_ps(y, _mm_setzero_ps());
    const Vec num = _mm_andnot_ps(zero_divisor, x);
    const Vec den =
        _mm_or_ps(_mm_andnot_ps(zero_divisor, y), _mm_and_ps(zero_divisor, _mm_set1_ps(1.0f)));
    return _mm_div_ps(num, den);
  }
};

template <>
struct Lanes128<double> {
  using Vec = __m128d;
  static constexpr unsigned long kCount = 2;
  static constexpr unsigned long kAlignment = 16;

  static Vec load(const double* p) { return _mm_loadu_pd(p); }
  static void store(double* p, Vec v) { _mm_storeu_pd(p, v); }
  static void stream(double* p, Vec v) { _mm_stream_pd(p, v); }
  static Vec splat(double v) { return _mm_set1_pd(v); }
  static Vec max(Vec a, Vec b) { return _mm_max_pd(a, b); }
  static Vec min(Vec a, Vec b) { return _mm_min_pd(a, b); }
  static Vec one_if_less(Vec a, Vec b) { return _mm_and_pd(_mm_cmplt_pd(a, b), splat(1.0)); }

  static Vec div_or_zero(Vec x, Vec y) {
    const Vec zero_divisor = _mm_cmpeq_pd(y, _mm_setzero_pd());
    const Vec num = _mm_andnot_pd(zero_divisor, x);
    const Vec den =
        _mm_or_pd(_mm_andnot_pd(zero_divisor, y), _mm_and_pd(zero_divisor, _mm_set1_pd(1.0)));
    return _mm_div_pd(num, den);
  }
};

}  // namespace numbra

#endif  // NUMBRA_VECTOR_LANES128_H
