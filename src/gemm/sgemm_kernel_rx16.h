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
// spilling sums. The sums are register operands, so they come in from and go
// on to the caller's registers (the write-back to C) without a trip through
// memory. One depth step, for either step form:
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
  "(%%rdx), %%ymm12\n\t"                                                            \
  "vmovups 64*" #j                                                                  \
  "+32(%%rdx), %%ymm13\n\t" NUMBRA_ROW_STEP(STEP, j, "(%%rsi)", "%[lo0]", "%[hi0]") \
      NUMBRA_ROW_STEP(STEP, j, "(%%rsi,%%rcx,1)", "%[lo1]", "%[hi1]")               \
          NUMBRA_ROW_STEP(STEP, j, "(%%rsi,%%rcx,2)", "%[lo2]", "%[hi2]")           \
              NUMBRA_ROW_STEP(STEP, j, "(%%rdi)", "%[lo3]", "%[hi3]")               \
                  NUMBRA_ROW_STEP(STEP, j, "(%%rdi,%%rcx,1)", "%[lo4]", "%[hi4]")   \
                      NUMBRA_ROW_STEP(STEP, j, "(%%rdi,%%rcx,2)", "%[lo5]", "%[hi5]")
// Runs of 16 steps, each asking for one line of both rows ahead, then
// single steps.
#define NUMBRA_6X16_LOOP(STEP) \
  "mov 0(%[args]), %%rsi\n\t"                                                        \
  "mov 8(%[args]), %%rdi\n\t"                                                        \
  "mov 16(%[args]), %%rdx\n\t"                                                       \
  "mov 24(%[args]), %%r8\n\t"                                                        \
  "mov 32(%[args]), %%r9\n\t"                                                        \
  "mov 40(%[args]), %%r10\n\t"                                                       \
  "mov 48(%[args]), %%r11\n\t"                                                       \
  "mov 56(%[args]), %%rcx\n\t"                                                       \
  "test %%r10, %%r10\n\t"                                                            \
  "jz 2f\n\t"                                                                        \
  "1:\n\t"                                                                           \
  "prefetcht0 (%%r8)\n\t"                                                            \
  "prefetcht0 (%%r9)\n\t"                                                            \
  NUMBRA_DEPTH_STEP(STEP, 0) NUMBRA_DEPTH_STEP(STEP, 1) NUMBRA_DEPTH_STEP(STEP, 2)   \
  NUMBRA_DEPTH_STEP(STEP, 3) NUMBRA_DEPTH_STEP(STEP, 4) NUMBRA_DEPTH_STEP(STEP, 5)   \
  NUMBRA_DEPTH_STEP(STEP, 6) NUMBRA_DEPTH_STEP(STEP, 7) NUMBRA_DEPTH_STEP(STEP, 8)   \
  NUMBRA_DEPTH_STEP(STEP, 9) NUMBRA_DEPTH_STEP(STEP, 10) NUMBRA_DEPTH_STEP(STEP, 11) \
  NUMBRA_DEPTH_STEP(STEP, 12) NUMBRA_DEPTH_STEP(STEP, 13) NUMBRA_DEPTH_STEP(STEP, 14) \
  NUMBRA_DEPTH_STEP(STEP, 15)                                                        \
  "add $64, %%rsi\n\t"                                                               \
  "add $64, %%rdi\n\t"                                                               \
  "add $64, %%r8\n\t"                                                                \
  "add $64, %%r9\n\t"                                                                \
  "add $1024, %%rdx\n\t"                                                             \
  "dec %%r10\n\t"                                                                    \
  "jnz 1b\n\t"                                                                       \
  "2:\n\t"                                                                           \
  "test %%r11, %%r11\n\t"                                                            \
  "jz 4f\n\t"                                                                        \
  "3:\n\t"                                                                           \
  NUMBRA_DEPTH_STEP(STEP, 0)                                                         \
  "add $4, %%rsi\n\t"                                                                \
  "add $4, %%rdi\n\t"                                                                \
  "add $64, %%rdx\n\t"                                                               \
  "dec %%r11\n\t"                                                                    \
  "jnz 3b\n\t"                                                                       \
  "4:\n\t"
// The loop's pointers and counts come in through memory, in registers of
// its own (rsi, rdi: A's rows 0 and 3; rdx: B; r8, r9: rows ahead; r10, r11:
// runs of 16 and single steps; rcx: lda in bytes): an asm statement takes at
// most 30 operands, and the 12 sums, read and written, are 24 of them.
// ymm12-15 are the step's own; the compiler places the sums in the rest.
#define NUMBRA_6X16_OPERANDS                                                                  \
  : [lo0] "+x"(t.lo[0]), [lo1] "+x"(t.lo[1]), [lo2] "+x"(t.lo[2]), [lo3] "+x"(t.lo[3]),        \
    [lo4] "+x"(t.lo[4]), [lo5] "+x"(t.lo[5]), [hi0] "+x"(t.hi[0]), [hi1] "+x"(t.hi[1]),        \
    [hi2] "+x"(t.hi[2]), [hi3] "+x"(t.hi[3]), [hi4] "+x"(t.hi[4]), [hi5] "+x"(t.hi[5])         \
  : [args] "r"(&args)                                                                          \
  : "rsi", "rdi", "rdx", "rcx", "r8", "r9", "r10", "r11", "ymm12", "ymm13", "ymm14", "ymm15", \
    "cc", "memory"

template <class MulAdd>
[[gnu::always_inline]] inline void multiply_6x16_packed(SumTile<kStripRows>& t, const float* a,
                                                        std::ptrdiff_t lda, int k, const float* b,
                                                        const float* const ahead[2]) {
  struct {  // in the loop's order: eight 8-byte fields at offsets 0 to 56
    const float *a0, *a3, *b, *ahead0, *ahead1;
    long runs, rest;
    std::ptrdiff_t lda_bytes;
  } const args = {a,
                  a + 3 * lda,
                  b,
                  ahead[0],
                  ahead[1],
                  k / kLineFloats,
                  k % kLineFloats,
                  lda * std::ptrdiff_t(sizeof(float))};
  static_assert(sizeof(args) == 64);
  if constexpr (MulAdd::kFused) {
    asm volatile(NUMBRA_6X16_LOOP(NUMBRA_FUSED_STEP) NUMBRA_6X16_OPERANDS);
  } else {
    asm volatile(NUMBRA_6X16_LOOP(NUMBRA_SEPARATE_STEP) NUMBRA_6X16_OPERANDS);
  }
}

#undef NUMBRA_6X16_OPERANDS
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
