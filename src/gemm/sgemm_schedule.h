// Which schedule a single-precision product runs. The panel schedule orders
// the work for the caches and gives every element its defined bits as long
// as no store to C can reach what is still to be read: C apart from A and B,
// and the blocks of 336 rows of C apart from each other. Otherwise the block
// schedule runs, in whose block order later blocks read what earlier blocks
// wrote. Included by the per-instruction-set sources only (AVX).
#ifndef NUMBRA_GEMM_SGEMM_SCHEDULE_H
#define NUMBRA_GEMM_SGEMM_SCHEDULE_H

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "gemm/sgemm_driver.h"
#include "gemm/sgemm_panels.h"

namespace numbra_internal {
namespace {

// The addresses from the first to one past the last float a matrix of
// `rows` rows of `cols` floats, `ld` apart, covers.
struct Span {
  std::uintptr_t begin, end;
  Span(const float* p, long rows, long ld, long cols) {
    const long last_row = (rows - 1) * ld;
    begin = reinterpret_cast<std::uintptr_t>(p + std::min(0L, last_row));
    end = reinterpret_cast<std::uintptr_t>(p + std::max(0L, last_row) + cols);
  }
  bool meets(const Span& o) const { return begin < o.end && o.begin < end; }
};

// Whether C, with its blocks of 336 rows ldc rows apart and rows n apart
// inside a block, may share a float with A or B or with itself across blocks.
inline bool c_may_overlap(int m, int n, int k, const float* a, int lda, const float* b, int ldb,
                          const float* c, int ldc) {
  const long blocks = (m + kBlockEdge - 1) / kBlockEdge;
  if (blocks > 1 && std::labs(long(ldc)) < n) return true;
  if (k <= 0) return false;  // A and B are not read
  // Blocks start at c + block * 336 * ldc; each spans at most 336 rows n apart.
  const Span first_block(c, std::min(m, kBlockEdge), n, n);
  const Span last_block(c + (blocks - 1) * kBlockEdge * long(ldc), m - (blocks - 1) * kBlockEdge, n,
                        n);
  Span c_span = first_block;
  c_span.begin = std::min(first_block.begin, last_block.begin);
  c_span.end = std::max(first_block.end, last_block.end);
  return c_span.meets(Span(a, m, lda, k)) || c_span.meets(Span(b, k, ldb, n));
}

template <class MulAdd>
void sgemm_nn(int m, int n, int k, float alpha, float* a, int lda, float* b, int ldb, float* ws,
              float beta, float* c, int ldc) {
  if (m <= 0 || n <= 0) return;
  if (c_may_overlap(m, n, k, a, lda, b, ldb, c, ldc)) {
    sgemm_nn_blocks<MulAdd>(m, n, k, alpha, a, lda, b, ldb, ws, beta, c, ldc);
    return;
  }
  const float scales[2] = {alpha, beta};
  const PanelProblem problem{a, lda, b, ldb, c, ldc, n, k, scales};
  with_blend(choose_blend(alpha, beta),
             [&](auto rule) { sgemm_nn_panels<MulAdd, decltype(rule)::value>(m, problem, ws); });
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_SCHEDULE_H
