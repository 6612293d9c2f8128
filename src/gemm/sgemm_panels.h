// The panel schedule of the single-precision GEMM, C = alpha * A * B +
// beta * C for row-major A (m by k) and B (k by n). Included by the
// per-instruction-set sources only (AVX).
//
// Every element of C is the plain chain of its products over ascending depth
// from +0, then the write-back rule: that is all a caller can see of a
// schedule, since a partial sum stored to float memory and loaded back is
// exact, and C is written once per element, after its whole depth. So the
// work is ordered for the caches here:
//  - B is packed once per column panel (sized below) and depth run, into
//    slivers of 16 columns, before the strips of rows that use it. A is read
//    in place, one broadcast per row and step.
//  - Up to kRegisterDepth the whole depth stays in registers and the sums go
//    straight to C. Deeper products run in equal depth runs of at most
//    kRunDepth: sums between runs wait in the workspace, one 6 by 16 tile
//    per strip and sliver of a group of rows, and the last run writes C.
//  - Rows go in strips of 6 (a last strip of 1 to 5 reads only real rows),
//    columns in slivers of 16 (a short last sliver packs zeros behind its
//    real columns, which are never written).
// Row i of C starts at c + (i / 336) * 336 * ldc + (i % 336) * n; strips of 6
// start at multiples of 6 and so never straddle two blocks of 336 rows.
#ifndef NUMBRA_GEMM_SGEMM_PANELS_H
#define NUMBRA_GEMM_SGEMM_PANELS_H

#include <immintrin.h>

#include <algorithm>
#include <cstddef>

#include "gemm/sgemm_blend.h"
#include "gemm/sgemm_kernel_rx16.h"
#include "gemm/sgemm_rows.h"
#include "gemm/sgemm_tiles.h"

namespace numbra_internal {
namespace {

constexpr int kRegisterDepth = 1024;
constexpr int kRunDepth = 512;
constexpr int kPanelWidth = 256;
// A panel is read once per strip: for many strips it is sized to stay in the
// second-level cache; for a few, it may be wider, so that packing reads long
// pieces of B's rows.
constexpr int kPanelFloats = 65536;
constexpr int kFewStripsPanelFloats = 131072;
constexpr int kFewStrips = 16;
constexpr int kWorkspaceFloats = 3 * kRegionFloats;
constexpr int kTileFloats = kStripRows * kSliverWidth;

// The depth cut into `count` equal runs (the last may be shorter).
struct DepthRuns {
  int count, length;
  explicit DepthRuns(int k) {
    count = k <= kRegisterDepth ? 1 : (k + kRunDepth - 1) / kRunDepth;
    length = count == 1 ? std::max(k, 0) : (k + count - 1) / count;
  }
};

// Writes an R by `width` tile of sums to C rows ldc apart by the rule B;
// columns at and beyond `width` are neither read nor written. alpha and beta
// (scales[0] and [1]) are loaded here, after the depth loop: kept in
// registers across it they would push accumulators out of theirs.
template <Blend B, int R>
[[gnu::always_inline]] inline void write_back(const SumTile<R>& t, float* c, std::ptrdiff_t ldc,
                                              int width, const float* scales) {
  asm volatile("" : : "r"(scales) : "memory");
  const __m256 alpha = _mm256_broadcast_ss(scales), beta = _mm256_broadcast_ss(scales + 1);
  if (width == kSliverWidth) {
#pragma GCC unroll 6
    for (int r = 0; r < R; ++r) {
      float* row = c + r * ldc;
      const __m256 old_lo = reads_c(B) ? _mm256_loadu_ps(row) : __m256{};
      const __m256 old_hi = reads_c(B) ? _mm256_loadu_ps(row + 8) : __m256{};
      _mm256_storeu_ps(row, blend<B>(t.lo[r], old_lo, alpha, beta));
      _mm256_storeu_ps(row + 8, blend<B>(t.hi[r], old_hi, alpha, beta));
    }
  } else {
    const __m256i mask_lo = lanes_below(width), mask_hi = lanes_below(width - 8);
#pragma GCC unroll 6
    for (int r = 0; r < R; ++r) {
      float* row = c + r * ldc;
      const __m256 old_lo = reads_c(B) ? _mm256_maskload_ps(row, mask_lo) : __m256{};
      const __m256 old_hi = reads_c(B) ? _mm256_maskload_ps(row + 8, mask_hi) : __m256{};
      _mm256_maskstore_ps(row, mask_lo, blend<B>(t.lo[r], old_lo, alpha, beta));
      _mm256_maskstore_ps(row + 8, mask_hi, blend<B>(t.hi[r], old_hi, alpha, beta));
    }
  }
}

struct PanelProblem {
  const float* a;
  std::ptrdiff_t lda;
  const float* b;
  std::ptrdiff_t ldb;
  float* c;
  std::ptrdiff_t ldc;  // the stride between blocks of 336 rows
  int n, k;
  const float* scales;  // alpha, beta
};

// Packs `depth` rows of `width` columns of B, ldb apart, into slivers of 16
// columns, each `depth` rows of 16 floats; a short last sliver gets zeros
// behind its real columns, which are the only ones read. B goes in blocks of
// a few rows: the block's rows are read from cache once per sliver, while
// each sliver's piece goes out as a run of whole lines (sliver by sliver, row
// by row, every store would fall into the same few cache sets). The next
// block is asked for ahead: B's rows may lie far apart.
inline void pack_panel(const float* b, std::ptrdiff_t ldb, int depth, int width, float* panel) {
  constexpr int kBlockRows = 8;
  const int full = width / kSliverWidth, tail = width % kSliverWidth;
  const __m256i tail_lo = lanes_below(tail), tail_hi = lanes_below(tail - 8);
  const std::ptrdiff_t sliver_floats = std::ptrdiff_t(depth) * kSliverWidth;
  for (int l0 = 0; l0 < depth; l0 += kBlockRows, b += kBlockRows * ldb) {
    const int rows = std::min(kBlockRows, depth - l0);
    const int next_rows = std::min(kBlockRows, depth - l0 - kBlockRows);  // none past the end
    for (int r = 0; r < next_rows; ++r)
      for (int j = 0; j < width; j += kLineFloats)
        _mm_prefetch(reinterpret_cast<const char*>(b + (kBlockRows + r) * ldb + j), _MM_HINT_T0);
    float* block = panel + l0 * kSliverWidth;
    for (int s = 0; s < full; ++s) {
      const float* from = b + s * kSliverWidth;
      float* to = block + s * sliver_floats;
      for (int r = 0; r < rows; ++r, from += ldb, to += kSliverWidth) {
        _mm256_storeu_ps(to, _mm256_loadu_ps(from));
        _mm256_storeu_ps(to + 8, _mm256_loadu_ps(from + 8));
      }
    }
    if (tail > 0) {
      const float* from = b + full * kSliverWidth;
      float* to = block + full * sliver_floats;
      for (int r = 0; r < rows; ++r, from += ldb, to += kSliverWidth) {
        _mm256_storeu_ps(to, _mm256_maskload_ps(from, tail_lo));
        _mm256_storeu_ps(to + 8, _mm256_maskload_ps(from + 8, tail_hi));
      }
    }
  }
}

// One strip of R rows from row i against one panel (columns j0 to j0 + width)
// and one depth run [l0, l0 + depth) of run index `run` among `runs`.
template <class MulAdd, Blend B, int R>
void strip_times_panel(const PanelProblem& p, int i, int j0, int width, int l0, int depth, int run,
                       int runs, const float* panel, float* partial) {
  // Without depth, A and B are not read at all (and may be null).
  const float* a = depth > 0 ? p.a + i * p.lda + l0 : nullptr;
  float* c = p.c + std::ptrdiff_t(i / kBlockEdge) * kBlockEdge * p.ldc +
             std::ptrdiff_t(i % kBlockEdge) * p.n + j0;
  const int slivers = (width + kSliverWidth - 1) / kSliverWidth;
  for (int s = 0; s < slivers; ++s) {
    const int j = s * kSliverWidth;
    const int columns = std::min(kSliverWidth, width - j);
    const float* sliver = panel + std::ptrdiff_t(s) * depth * kSliverWidth;
    float* sums = partial + s * kTileFloats;
    // Sliver s asks for rows s and s + slivers of the next strip, at this
    // run's depth; with fewer than 3 slivers part of it comes unasked.
    const float* const ahead[2] = {
        depth > 0 ? a + (kStripRows + s % kStripRows) * p.lda : nullptr,
        depth > 0 ? a + (kStripRows + (s + slivers) % kStripRows) * p.lda : nullptr};
    SumTile<R> t;
    if (run == 0) {
      clear(t);
    } else {
      load(t, sums);
    }
    multiply<R, MulAdd>(t, a, p.lda, depth, sliver, ahead);
    if (run + 1 < runs) {
      store(t, sums);
    } else {
      write_back<B>(t, c + j, p.n, columns, p.scales);
    }
  }
}

template <class MulAdd, Blend B>
void sgemm_nn_panels(int m, const PanelProblem& p, float* ws) {
  const DepthRuns runs(p.k);
  const int panel_floats = m <= kFewStrips * kStripRows ? kFewStripsPanelFloats : kPanelFloats;
  const int panel_width = std::max(
      kSliverWidth,
      std::min(kPanelWidth, panel_floats / std::max(runs.length, 1) / kSliverWidth * kSliverWidth));
  // The workspace: the packed panel of B, then partial sums.
  float* panel = ws;
  float* partial = panel + runs.length * panel_width;
  const int group_rows = runs.count == 1
                             ? m
                             : (kWorkspaceFloats - runs.length * panel_width) /
                                   (panel_width / kSliverWidth * kTileFloats) * kStripRows;
  for (int g0 = 0; g0 < m; g0 += group_rows) {
    const int g1 = std::min(m, g0 + group_rows);
    for (int j0 = 0; j0 < p.n; j0 += panel_width) {
      const int width = std::min(panel_width, p.n - j0);
      const int slivers = (width + kSliverWidth - 1) / kSliverWidth;
      for (int run = 0; run < runs.count; ++run) {
        const int l0 = run * runs.length;
        const int depth = std::min(runs.length, p.k - l0);
        if (depth > 0) pack_panel(p.b + l0 * p.ldb + j0, p.ldb, depth, width, panel);
        for (int i = g0; i < g1; i += kStripRows) {
          float* sums = partial + std::ptrdiff_t((i - g0) / kStripRows) * slivers * kTileFloats;
          auto strip = [&](auto rows) {
            strip_times_panel<MulAdd, B, decltype(rows)::value>(p, i, j0, width, l0, depth, run,
                                                                runs.count, panel, sums);
          };
          with_rows<kStripRows>(std::min(kStripRows, g1 - i), strip);
        }
      }
    }
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_PANELS_H
