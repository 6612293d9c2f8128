// The block schedule of the single-precision GEMM, C = alpha * A * B +
// beta * C for row-major A (m by k) and B (k by n), which products whose C
// overlaps A, B or itself follow (see sgemm_schedule.h): its block order
// decides what later blocks read. Included by the per-instruction-set
// sources only (AVX).
//
// The product is cut into blocks of 336 in rows, columns and depth. For each
// block of C the accumulator is cleared; for each depth block, A and B are
// packed anew and multiplied into it; then the block is written to C with
// alpha and beta, once per element. Block origins in C use ldc, but rows
// inside a block lie n floats apart: with ldc equal to n that is plain
// row-major C.
#ifndef NUMBRA_GEMM_SGEMM_DRIVER_H
#define NUMBRA_GEMM_SGEMM_DRIVER_H

#include <cstddef>

#include "gemm/sgemm_kernels.h"
#include "gemm/sgemm_pack.h"
#include "gemm/sgemm_tiles.h"

namespace numbra_internal {
namespace {

template <class MulAdd>
void sgemm_nn_blocks(int m, int n, int k, float alpha, float* a, int lda, float* b, int ldb,
                     float* ws, float beta, float* c, int ldc) {
  float* packed_a = ws + kPackedAOffset;
  float* packed_b = ws + kPackedBOffset;
  float* acc = ws + kAccumulatorOffset;
  const std::ptrdiff_t la = lda, lb = ldb, lc = ldc;

  auto multiply_block = [&](int i0, int j0, int mb, int nb) {
    clear_mem_large_blkc_nn(acc, mb, nb);
    auto multiply_depth = [&](int l0, int kb) {
      load_mem_large_blka_nn(a + i0 * la + l0, lda, packed_a, mb, kb);
      load_mem_large_blkb_nn(b + l0 * lb + j0, ldb, packed_b, kb, nb);
      sgemm_nn_large_blk<MulAdd>(mb, nb, kb, packed_a, packed_b, acc);
    };
    int l0 = 0;
    for (; l0 + kBlockEdge <= k; l0 += kBlockEdge) multiply_depth(l0, kBlockEdge);
    if (k - l0 > 0) multiply_depth(l0, k - l0);
    save_mem_large_blkc_nn(acc, mb, nb, alpha, beta, c + i0 * lc + j0, n);
  };
  auto multiply_row_block = [&](int i0, int mb) {
    int j0 = 0;
    for (; j0 + kBlockEdge <= n; j0 += kBlockEdge) multiply_block(i0, j0, mb, kBlockEdge);
    if (n - j0 > 0) multiply_block(i0, j0, mb, n - j0);
  };
  int i0 = 0;
  for (; i0 + kBlockEdge <= m; i0 += kBlockEdge) multiply_row_block(i0, kBlockEdge);
  if (m - i0 > 0) multiply_row_block(i0, m - i0);
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_DRIVER_H
