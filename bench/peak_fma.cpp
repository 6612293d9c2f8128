// The machine's single-core peaks for 8-lane float arithmetic, measured in
// registers only: fused multiply-adds, and separate multiplies and adds.
// Compiled with AVX2 and FMA.
#include <immintrin.h>

#include "peak.h"

namespace numbra_bench {

namespace {

constexpr int kChains = 12;  // enough independent chains to cover the latency

// Runs `steps` rounds of acc = step(acc, x, y) on every chain and returns a
// value that depends on all of them.
template <class Step>
float run_chains(long steps, Step step) {
  __m256 acc[kChains];
  for (int j = 0; j < kChains; ++j) acc[j] = _mm256_set1_ps(0.5f + j);
  const __m256 x = _mm256_set1_ps(0.999999f), y = _mm256_set1_ps(1e-6f);
  for (long i = 0; i < steps; ++i) {
#pragma GCC unroll 12
    for (int j = 0; j < kChains; ++j) acc[j] = step(acc[j], x, y);
  }
  __m256 s = acc[0];
  for (int j = 1; j < kChains; ++j) s = _mm256_add_ps(s, acc[j]);
  alignas(32) float l[8];
  _mm256_store_ps(l, s);
  return l[0] + l[7];
}

}  // namespace

float fma_chains(long steps) {
  return run_chains(steps,
                    [](__m256 acc, __m256 x, __m256 y) { return _mm256_fmadd_ps(acc, x, y); });
}

// Each round forms 12 independent products and adds each into its chain, the
// instruction mix of the unfused kernels; the barrier keeps the compiler from
// forming the loop-invariant product once outside the loop.
float mul_add_chains(long steps) {
  return run_chains(steps, [](__m256 acc, __m256 x, __m256 y) {
    asm volatile("" : "+x"(x));
    return _mm256_add_ps(acc, _mm256_mul_ps(y, x));
  });
}

}  // namespace numbra_bench
