// The FMA twin of the single-precision GEMM family: each main step is one
// fused multiply-add, rounded once.
#include <immintrin.h>

#include "gemm/sgemm_exports.h"

namespace {

struct FusedMulAdd {
  // 4 x 24 micro-tiles: 12 accumulators, 7 loads for 12 multiply-adds.
  static constexpr bool kFused = true;
  static constexpr int kRows = 4;
  static constexpr int kGroups = 3;
  static __m256 step(__m256 acc, __m256 b, __m256 a) { return _mm256_fmadd_ps(b, a, acc); }
};

}  // namespace

NUMBRA_DEFINE_SGEMM_FAMILY(fma, FusedMulAdd)
