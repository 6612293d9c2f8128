// Row kernels with 256-bit gathers and fused multiply-adds, exported for
// callers that name them; no entry point selects them. Tails stay unfused.
// Every gather has all eight lanes enabled.
#include "numbra.h"
#include "sparse/spmv_runs.h"

namespace numbra_internal {
namespace {

// ((C4 + C5) + (C6 + C7)) + ((C0 + C1) + (C2 + C3)).
float fold8(__m256 c) {
  const float high = numbra_internal::fold4(_mm256_extractf128_ps(c, 1));
  const float low = numbra_internal::fold4(_mm256_castps256_ps128(c));
  return high + low;
}

__m256 gather8(const float* x, const int* idx) {
  return _mm256_i32gather_ps(x, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(idx)), 4);
}

// Local columns are sign-extended to 32 bits: the vector path covers local
// columns below 32768.
__m256 gather8(const float* x, const unsigned short* idx) {
  const __m128i local = _mm_loadu_si128(reinterpret_cast<const __m128i*>(idx));
  return _mm256_i32gather_ps(x, _mm256_cvtepi16_epi32(local), 4);
}

// Two accumulators over sixteen entries a step, merged as B + A, then eight
// a step; a run of exactly 8 or 16 goes wholly through vectors.
float dot_row_fma(const float* x, const int* idx, const float* val, long count) {
  __m256 a = _mm256_setzero_ps(), b = _mm256_setzero_ps();
  long e = 0;
  for (; e <= count - 16; e += 16) {
    a = _mm256_fmadd_ps(gather8(x, idx + e), _mm256_loadu_ps(val + e), a);
    b = _mm256_fmadd_ps(gather8(x, idx + e + 8), _mm256_loadu_ps(val + e + 8), b);
  }
  __m256 c = _mm256_add_ps(b, a);
  for (; e <= count - 8; e += 8)
    c = _mm256_fmadd_ps(gather8(x, idx + e), _mm256_loadu_ps(val + e), c);
  return numbra_internal::add_run_tail(fold8(c), x, idx, val, e, count);
}

// ((L - 9) >> 3) + 1 groups of eight when L > 8, always leaving a tail of 1
// to 8 entries: a run of exactly 8 is all tail, one of 16 a group and a tail.
float dot_block_run_fma(const float* xb, const unsigned short* idx, const float* val, long count) {
  __m256 c = _mm256_setzero_ps();
  long e = 0;
  if (count > 8) {
    const long groups = ((count - 9) >> 3) + 1;
    for (long g = 0; g < groups; ++g, e += 8) {
      c = _mm256_fmadd_ps(_mm256_loadu_ps(val + e), gather8(xb, idx + e), c);
    }
  }
  return numbra_internal::add_run_tail(fold8(c), xb, idx, val, e, count);
}

}  // namespace
}  // namespace numbra_internal

extern "C" {

void x86SCSRSpmv_fma(int m, const int* rowPtr, const int* colIdx, const float* val, const float* x,
                     float* y) {
  for (int i = 0; i < m; ++i) {
    const int e0 = rowPtr[i];
    y[i] = numbra_internal::dot_row_fma(x, colIdx + e0, val + e0,
                                        static_cast<long>(rowPtr[i + 1]) - e0);
  }
}

void x86SBCSRSpmv_fma(int m, int n, int blk, const int* blockPtr, const unsigned short* rowLen,
                      const unsigned short* colIdx, const float* val, const float* x, float* y) {
  numbra_internal::bcsr_product(m, n, blk, blockPtr, rowLen, colIdx, val, x, y,
                                numbra_internal::dot_block_run_fma);
}

}  // extern "C"
