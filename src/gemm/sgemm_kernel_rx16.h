// The register micro-kernel of the panel schedule: R rows (1 to 6) by 16
// columns of C held in 2R accumulators of 8 lanes for a whole run of depth.
// A is read in place, one broadcast per row and depth step; B comes 16
// floats a step from a packed sliver, or from its own rows, in which case
// the kernel also writes the sliver for the strips that follow. Included by
// the per-instruction-set sources only (AVX); MulAdd is the step acc + b * a,
// fused or rounded twice.
#ifndef NUMBRA_GEMM_SGEMM_KERNEL_RX16_H
#define NUMBRA_GEMM_SGEMM_KERNEL_RX16_H

#include <immintrin.h>

#include <cstddef>

namespace numbra {
namespace gemm {
namespace {

constexpr int kSliverWidth = 16;
constexpr int kStripRows = 6;
constexpr int kPackAhead = 8;    // rows of B asked for ahead while packing
constexpr int kLineFloats = 16;  // one cache line

// The sums of an R by 16 tile of C: row r, columns 0-7 in lo[r], 8-15 in
// hi[r].
template <int R>
struct SumTile {
  __m256 lo[R], hi[R];
};

template <int R>
[[gnu::always_inline]] inline void clear(SumTile<R>& t) {
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) t.lo[r] = t.hi[r] = _mm256_setzero_ps();
}

// Partial sums between runs of depth: 16 floats a row, kStripRows rows.
template <int R>
[[gnu::always_inline]] inline void load(SumTile<R>& t, const float* p) {
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) {
    t.lo[r] = _mm256_loadu_ps(p + r * kSliverWidth);
    t.hi[r] = _mm256_loadu_ps(p + r * kSliverWidth + 8);
  }
}

template <int R>
[[gnu::always_inline]] inline void store(const SumTile<R>& t, float* p) {
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) {
    _mm256_storeu_ps(p + r * kSliverWidth, t.lo[r]);
    _mm256_storeu_ps(p + r * kSliverWidth + 8, t.hi[r]);
  }
}

// Lanes below `count` of a group of 8 set, for masked loads and stores of a
// short sliver.
inline __m256i lanes_below(int count) {
  const __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  // An AVX compare of floats: the lane indices are small integers.
  return _mm256_castps_si256(
      _mm256_cmp_ps(_mm256_cvtepi32_ps(index), _mm256_set1_ps(float(count)), _CMP_LT_OQ));
}

// Where the 16 floats of B for one depth step come from.
struct PackedSliver {
  // A packed sliver: depth steps 16 floats apart.
  const float* b;
  [[gnu::always_inline]] void next(__m256& lo, __m256& hi) {
    lo = _mm256_loadu_ps(b);
    hi = _mm256_loadu_ps(b + 8);
    b += kSliverWidth;
  }
};

// B's own rows, ldb apart, copied into the sliver on the way. A short sliver
// reads only its `width` real columns and packs zeros behind them.
template <bool kFull>
struct PackingSliver {
  const float* b;
  std::ptrdiff_t ldb;
  float* sliver;
  __m256i mask_lo, mask_hi;
  [[gnu::always_inline]] void next(__m256& lo, __m256& hi) {
    if constexpr (kFull) {
      lo = _mm256_loadu_ps(b);
      hi = _mm256_loadu_ps(b + 8);
    } else {
      lo = _mm256_maskload_ps(b, mask_lo);
      hi = _mm256_maskload_ps(b + 8, mask_hi);
    }
    _mm256_storeu_ps(sliver, lo);
    _mm256_storeu_ps(sliver + 8, hi);
    // B's rows are far apart: ask for the row a few steps ahead, both
    // cache lines that its 16 floats may touch.
    _mm_prefetch(reinterpret_cast<const char*>(b + kPackAhead * ldb), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char*>(b + kPackAhead * ldb + 15), _MM_HINT_T0);
    b += ldb;
    sliver += kSliverWidth;
  }
};

// t += A(rows, depth) * B(depth, 16) over k steps in ascending depth: each
// element of t stays one chain of MulAdd steps. A's rows lie lda apart.
// Every 16 steps one cache line of each of the rows `ahead[0]` and
// `ahead[1]` is asked for, at the same depth: the rows of the next strip,
// which the caller spreads over its slivers. A prefetch never faults and
// changes nothing but timing.
template <int R, class MulAdd, class Sliver>
[[gnu::always_inline]] inline void multiply(SumTile<R>& t, const float* a, std::ptrdiff_t lda,
                                            int k, Sliver sliver, const float* const ahead[2]) {
  const float* row[R];
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) row[r] = a + r * lda;
  auto step = [&](int l) {
    __m256 b_lo, b_hi;
    sliver.next(b_lo, b_hi);
#pragma GCC unroll 6
    for (int r = 0; r < R; ++r) {
      const __m256 x = _mm256_broadcast_ss(row[r] + l);
      t.lo[r] = MulAdd::step(t.lo[r], b_lo, x);
      t.hi[r] = MulAdd::step(t.hi[r], b_hi, x);
    }
  };
  int l = 0;
  for (; l + kLineFloats <= k; l += kLineFloats) {
    _mm_prefetch(reinterpret_cast<const char*>(ahead[0] + l), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char*>(ahead[1] + l), _MM_HINT_T0);
#pragma GCC unroll 4
    for (int j = 0; j < kLineFloats; ++j) step(l + j);
  }
  for (; l < k; ++l) step(l);
}

}  // namespace
}  // namespace gemm
}  // namespace numbra

#endif  // NUMBRA_GEMM_SGEMM_KERNEL_RX16_H
