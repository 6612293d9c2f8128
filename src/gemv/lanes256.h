// 8-lane float steps shared by the GEMV kernels. Included only by the _avx and
// _fma sources; everything here has internal linkage, so each instruction-set
// file keeps its own copy, compiled with its own flags.
#ifndef NUMBRA_GEMV_LANES256_H
#define NUMBRA_GEMV_LANES256_H

#include <immintrin.h>

namespace numbra {
namespace {

// acc + a * b, lane by lane: one rounding when fused, two when not.
template <bool kFused>
inline __m256 multiply_add(__m256 a, __m256 b, __m256 acc) {
  if constexpr (kFused) {
    return _mm256_fmadd_ps(a, b, acc);
  } else {
    return _mm256_add_ps(_mm256_mul_ps(a, b), acc);
  }
}

// Columns a loop of 8-lane steps from column 0 covers when it runs while
// j <= count - 8: every full step.
inline int steps_while_full(int count) { return count >= 8 ? count & ~7 : 0; }

// Columns a loop of 8-lane steps from column 0 covers when it runs while
// j < count - 8: it always leaves at least one column over.
inline int steps_leaving_one(int count) { return count > 8 ? (count - 1) & ~7 : 0; }

// The same two forms for blocks of four rows.
inline int blocks_while_full(int count) { return count >= 4 ? count & ~3 : 0; }
inline int blocks_leaving_one(int count) { return count > 4 ? (count - 1) & ~3 : 0; }

}  // namespace
}  // namespace numbra

#endif  // NUMBRA_GEMV_LANES256_H
