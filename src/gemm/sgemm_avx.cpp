// The AVX twin of the single-precision GEMM family: each main step is a
// rounded product added to the accumulator with a second rounding.
#include <immintrin.h>

#include "gemm/sgemm_exports.h"

namespace {

struct MultiplyThenAdd {
  // 6 x 16 micro-tiles: 12 accumulators, and one register for the products.
  static constexpr bool kFused = false;
  static constexpr int kRows = 6;
  static constexpr int kGroups = 2;
  static __m256 step(__m256 acc, __m256 b, __m256 a) {
    return _mm256_add_ps(acc, _mm256_mul_ps(b, a));
  }
};

}  // namespace

NUMBRA_DEFINE_SGEMM_FAMILY(avx, MultiplyThenAdd)
