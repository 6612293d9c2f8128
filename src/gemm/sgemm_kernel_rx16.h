// The register micro-kernel of the panel schedule: R rows (1 to 6) by 16
// columns of C held in 2R accumulators of 8 lanes for a whole run of depth.
// A is read one broadcast per row and depth step; B comes 16 floats a step
// from a packed sliver. Included by
// the per-instruction-set sources only (AVX); MulAdd is the step acc + b * a,
// fused or rounded twice.
#ifndef NUMBRA_GEMM_SGEMM_KERNEL_RX16_H
#define NUMBRA_GEMM_SGEMM_KERNEL_RX16_H

#include <immintrin.h>

#include <cstddef>

namespace numbra_internal {
namespace {

constexpr int kSliverWidth = 16;
constexpr int kStripRows = 6;
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

// The full 6-row tile on a packed sliver is the hot loop of every product.
// It is written in assembly: with both the product and the sum in flight,
// the unfused step needs all 16 vector registers (12 sums, 2 of B, the
// broadcast and the product), which the compiler does not manage without
// spilling sums. The sums come in from the tile in memory and go back there
// (12 loads and stores a call, against 12 steps for every depth step). One depth step, for either
// step form:
//   b_lo, b_hi = B[l][0..7], B[l][8..15];  for each row r:
//   x = A[r][l] broadcast; sum_lo[r] = STEP(sum_lo[r], b_lo, x); same for hi.
// A's rows are addressed from row 0 and row 3 with lda in bytes.
#define NUMBRA_FUSED_STEP(b, x, sum) "vfmadd231ps " b ", " x ", " sum "\n\t"
#define NUMBRA_SEPARATE_STEP(b, x, sum) \
  "vmulps " b ", " x                    \
  ", %%ymm15\n\t"                       \
  "vaddps %%ymm15, " sum ", " sum "\n\t"
#define NUMBRA_ROW_STEP(STEP, j, row, lo, hi)                             \
  "vbroadcastss 4*" #j row ", %%ymm14\n\t" STEP("%%ymm12", "%%ymm14", lo) \
      STEP("%%ymm13", "%%ymm14", hi)
#define NUMBRA_DEPTH_STEP(STEP, j)                                                  \
  "vmovups 64*" #j                                                                  \
  "(%[b]), %%ymm12\n\t"                                                             \
  "vmovups 64*" #j                                                                  \
  "+32(%[b]), %%ymm13\n\t" NUMBRA_ROW_STEP(STEP, j, "(%[a0])", "%%ymm0", "%%ymm6")  \
      NUMBRA_ROW_STEP(STEP, j, "(%[a0],%[lda],1)", "%%ymm1", "%%ymm7")              \
          NUMBRA_ROW_STEP(STEP, j, "(%[a0],%[lda],2)", "%%ymm2", "%%ymm8")          \
              NUMBRA_ROW_STEP(STEP, j, "(%[a3])", "%%ymm3", "%%ymm9")               \
                  NUMBRA_ROW_STEP(STEP, j, "(%[a3],%[lda],1)", "%%ymm4", "%%ymm10") \
                      NUMBRA_ROW_STEP(STEP, j, "(%[a3],%[lda],2)", "%%ymm5", "%%ymm11")
// The tile's sums: lo[0..5] at bytes 0-191 in ymm0-5, hi[0..5] at 192-383
// in ymm6-11.
#define NUMBRA_6X16_LOAD_SUMS                                   \
  "vmovups 0(%[t]), %%ymm0\n\t vmovups 32(%[t]), %%ymm1\n\t"    \
  "vmovups 64(%[t]), %%ymm2\n\t vmovups 96(%[t]), %%ymm3\n\t"   \
  "vmovups 128(%[t]), %%ymm4\n\t vmovups 160(%[t]), %%ymm5\n\t" \
  "vmovups 192(%[t]), %%ymm6\n\t vmovups 224(%[t]), %%ymm7\n\t" \
  "vmovups 256(%[t]), %%ymm8\n\t vmovups 288(%[t]), %%ymm9\n\t" \
  "vmovups 320(%[t]), %%ymm10\n\t vmovups 352(%[t]), %%ymm11\n\t"
#define NUMBRA_6X16_STORE_SUMS                                  \
  "vmovups %%ymm0, 0(%[t])\n\t vmovups %%ymm1, 32(%[t])\n\t"    \
  "vmovups %%ymm2, 64(%[t])\n\t vmovups %%ymm3, 96(%[t])\n\t"   \
  "vmovups %%ymm4, 128(%[t])\n\t vmovups %%ymm5, 160(%[t])\n\t" \
  "vmovups %%ymm6, 192(%[t])\n\t vmovups %%ymm7, 224(%[t])\n\t" \
  "vmovups %%ymm8, 256(%[t])\n\t vmovups %%ymm9, 288(%[t])\n\t" \
  "vmovups %%ymm10, 320(%[t])\n\t vmovups %%ymm11, 352(%[t])\n\t"
// Runs of 16 steps, each asking for one line of both rows ahead, then
// single steps.
#define NUMBRA_6X16_LOOP(STEP) \
  NUMBRA_6X16_LOAD_SUMS        \
  "test %[runs], %[runs]\n\t"                                                        \
  "jz 2f\n\t"                                                                        \
  "1:\n\t"                                                                           \
  "prefetcht0 (%[ahead0])\n\t"                                                       \
  "prefetcht0 (%[ahead1])\n\t"                                                       \
  NUMBRA_DEPTH_STEP(STEP, 0) NUMBRA_DEPTH_STEP(STEP, 1) NUMBRA_DEPTH_STEP(STEP, 2)   \
  NUMBRA_DEPTH_STEP(STEP, 3) NUMBRA_DEPTH_STEP(STEP, 4) NUMBRA_DEPTH_STEP(STEP, 5)   \
  NUMBRA_DEPTH_STEP(STEP, 6) NUMBRA_DEPTH_STEP(STEP, 7) NUMBRA_DEPTH_STEP(STEP, 8)   \
  NUMBRA_DEPTH_STEP(STEP, 9) NUMBRA_DEPTH_STEP(STEP, 10) NUMBRA_DEPTH_STEP(STEP, 11) \
  NUMBRA_DEPTH_STEP(STEP, 12) NUMBRA_DEPTH_STEP(STEP, 13) NUMBRA_DEPTH_STEP(STEP, 14) \
  NUMBRA_DEPTH_STEP(STEP, 15)                                                        \
  "add $64, %[a0]\n\t"                                                               \
  "add $64, %[a3]\n\t"                                                               \
  "add $64, %[ahead0]\n\t"                                                           \
  "add $64, %[ahead1]\n\t"                                                           \
  "add $1024, %[b]\n\t"                                                              \
  "dec %[runs]\n\t"                                                                  \
  "jnz 1b\n\t"                                                                       \
  "2:\n\t"                                                                           \
  "test %[rest], %[rest]\n\t"                                                        \
  "jz 4f\n\t"                                                                        \
  "3:\n\t"                                                                           \
  NUMBRA_DEPTH_STEP(STEP, 0)                                                         \
  "add $4, %[a0]\n\t"                                                                \
  "add $4, %[a3]\n\t"                                                                \
  "add $64, %[b]\n\t"                                                                \
  "dec %[rest]\n\t"                                                                  \
  "jnz 3b\n\t"                                                                       \
  "4:\n\t"                                                                           \
  NUMBRA_6X16_STORE_SUMS
#define NUMBRA_6X16_OPERANDS                                                                 \
  : [a0] "+r"(a0), [a3] "+r"(a3), [b] "+r"(b), [ahead0] "+r"(ahead0), [ahead1] "+r"(ahead1), \
    [runs] "+r"(runs), [rest] "+r"(rest)                                                   \
  : [lda] "r"(lda_bytes), [t] "r"(&t)                                                      \
  : "ymm0", "ymm1", "ymm2", "ymm3", "ymm4", "ymm5", "ymm6", "ymm7", "ymm8", "ymm9", "ymm10", \
    "ymm11", "ymm12", "ymm13", "ymm14", "ymm15", "cc", "memory"

template <class MulAdd>
[[gnu::always_inline]] inline void multiply_6x16_packed(SumTile<kStripRows>& t, const float* a,
                                                        std::ptrdiff_t lda, int k, const float* b,
                                                        const float* const ahead[2]) {
  const std::ptrdiff_t lda_bytes = lda * std::ptrdiff_t(sizeof(float));
  const float* a0 = a;
  const float* a3 = a + 3 * lda;
  const float* ahead0 = ahead[0];
  const float* ahead1 = ahead[1];
  long runs = k / kLineFloats, rest = k % kLineFloats;
  if constexpr (MulAdd::kFused) {
    asm volatile(NUMBRA_6X16_LOOP(NUMBRA_FUSED_STEP) NUMBRA_6X16_OPERANDS);
  } else {
    asm volatile(NUMBRA_6X16_LOOP(NUMBRA_SEPARATE_STEP) NUMBRA_6X16_OPERANDS);
  }
}

#undef NUMBRA_6X16_OPERANDS
#undef NUMBRA_6X16_STORE_SUMS
#undef NUMBRA_6X16_LOAD_SUMS
#undef NUMBRA_6X16_LOOP
#undef NUMBRA_DEPTH_STEP
#undef NUMBRA_ROW_STEP
#undef NUMBRA_SEPARATE_STEP
#undef NUMBRA_FUSED_STEP

// t += A(rows, depth) * B(depth, 16) over k steps in ascending depth: each
// element of t stays one chain of MulAdd steps. A's rows lie lda apart; b is
// a packed sliver, depth steps 16 floats apart.
// Every 16 steps one cache line of each of the rows `ahead[0]` and
// `ahead[1]` is asked for, at the same depth: the rows of the next strip,
// which the caller spreads over its slivers. A prefetch never faults and
// changes nothing but timing.
template <int R, class MulAdd>
[[gnu::always_inline]] inline void multiply(SumTile<R>& t, const float* a, std::ptrdiff_t lda,
                                            int k, const float* b, const float* const ahead[2]) {
  if constexpr (R == kStripRows) {
    if (k > 0) multiply_6x16_packed<MulAdd>(t, a, lda, k, b, ahead);
    return;
  }
  const float* row[R];
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) row[r] = a + r * lda;
  auto step = [&](int l) {
    const __m256 b_lo = _mm256_loadu_ps(b + l * kSliverWidth);
    const __m256 b_hi = _mm256_loadu_ps(b + l * kSliverWidth + 8);
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
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_KERNEL_RX16_H
