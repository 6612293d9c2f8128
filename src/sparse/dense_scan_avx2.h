// The nonzero tests on eight elements at a time, and counting with them.
// AVX2 only: include from *_avx2.cpp files alone.
#ifndef NUMBRA_SPARSE_DENSE_SCAN_AVX2_H
#define NUMBRA_SPARSE_DENSE_SCAN_AVX2_H

#include <immintrin.h>

#include <algorithm>

#include "sparse/dense_fill.h"
#include "sparse/nonzero.h"

namespace numbra_internal {
namespace {

// counts[t] += 1 for each of the eight lanes that passed.
inline void add_lanes(__m256 pass, int* counts) {
  __m256i* slot = reinterpret_cast<__m256i*>(counts);
  _mm256_storeu_si256(slot, _mm256_sub_epi32(_mm256_loadu_si256(slot), _mm256_castps_si256(pass)));
}

// The magnitude test: |v| > the largest float that double(|v|) > 1e-8
// rejects. Lanes that pass are all ones.
struct NonzeroLanes256 {
  static constexpr int kCount = 8;
  static bool test(float v) { return is_nonzero(v); }
  static __m256 passes(const float* p) {
    const __m256 magnitude = _mm256_andnot_ps(_mm256_set1_ps(-0.0f), _mm256_loadu_ps(p));
    return _mm256_cmp_ps(magnitude, _mm256_set1_ps(kNonzeroBelow), _CMP_GT_OQ);
  }
  static unsigned mask(const float* p) {
    return static_cast<unsigned>(_mm256_movemask_ps(passes(p)));
  }
  static unsigned mask16(const float* p) { return mask(p) | mask(p + 8) << 8; }
  static void count_into(const float* p, int* counts) { add_lanes(passes(p), counts); }
};

// The signed test of the split: negative values never pass.
struct PositiveLanes256 {
  static constexpr int kCount = 8;
  static bool test(float v) { return is_positive_nonzero(v); }
  static __m256 passes(const float* p) {
    return _mm256_cmp_ps(_mm256_loadu_ps(p), _mm256_set1_ps(kNonzeroBelow), _CMP_GT_OQ);
  }
  static void count_into(const float* p, int* counts) { add_lanes(passes(p), counts); }
};

inline unsigned long sum_lanes(__m256i counts) {
  alignas(32) unsigned lanes[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), counts);
  unsigned long sum = 0;
  for (unsigned lane : lanes) sum += lane;
  return sum;
}

// Number of elements of p[0..len) that pass the test of Lanes. Each lane
// counts in 32 bits, emptied into the total every 2^30 elements.
template <typename Lanes>
unsigned long count_passing(const float* p, unsigned long len) {
  constexpr unsigned long kChunk = 1ul << 30;
  const unsigned long vectorEnd = len - len % 8;
  unsigned long total = 0;
  for (unsigned long start = 0; start < vectorEnd; start += kChunk) {
    const unsigned long end = std::min(vectorEnd, start + kChunk);
    __m256i counts = _mm256_setzero_si256();
    for (unsigned long i = start; i < end; i += 8) {
      counts = _mm256_sub_epi32(counts, _mm256_castps_si256(Lanes::passes(p + i)));
    }
    total += sum_lanes(counts);
  }
  for (unsigned long i = vectorEnd; i < len; ++i) total += Lanes::test(p[i]);
  return total;
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SPARSE_DENSE_SCAN_AVX2_H
