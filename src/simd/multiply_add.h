// The multiply-add step that tells the two twins of a kernel family apart:
// acc + a * b in 8 float lanes, rounded once by the fused twin, and as a
// rounded product added with a second rounding by the separate twin. Each
// family is one template over its step; only the *_fma.cpp sources use
// FusedStep.
#ifndef NUMBRA_SIMD_MULTIPLY_ADD_H
#define NUMBRA_SIMD_MULTIPLY_ADD_H

#include <immintrin.h>

#include <type_traits>

namespace numbra_internal {
namespace {

struct FusedStep {
  static constexpr bool kFused = true;
  static __m256 step(__m256 acc, __m256 a, __m256 b) { return _mm256_fmadd_ps(a, b, acc); }
};

struct SeparateStep {
  static constexpr bool kFused = false;
  static __m256 step(__m256 acc, __m256 a, __m256 b) {
    return _mm256_add_ps(acc, _mm256_mul_ps(a, b));
  }
};

template <bool kFused>
using MultiplyAdd = std::conditional_t<kFused, FusedStep, SeparateStep>;

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SIMD_MULTIPLY_ADD_H
