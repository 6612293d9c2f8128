// Micro-kernels and the block loop of the packed single-precision GEMM.
// Included by the per-instruction-set sources only (AVX). The one difference
// between the instruction sets is the MulAdd step, acc + b * a: one fused
// rounding, or a rounded product and a rounded sum.
#ifndef NUMBRA_GEMM_SGEMM_KERNELS_H
#define NUMBRA_GEMM_SGEMM_KERNELS_H

#include <immintrin.h>

#include "gemm/sgemm_tiles.h"

namespace numbra {
namespace gemm {
namespace {

// c[row * W + j] += sum over l < k of a[row * a_stride + l] * b[l * W + j],
// for rows in pairs r, r + 1 while r < m (an odd m also touches row m). The
// 2 x W micro-tile lives in 2 * W / 8 accumulators for the whole depth, and
// each element takes its products in ascending l.
template <int W, class MulAdd>
inline void sgemm_kernel_2xw(const float* a, int a_stride, const float* b, float* c, int m, int k) {
  constexpr int kGroups = W / 8;
  for (int r = 0; r < m; r += 2) {
    const float* a0 = a + r * a_stride;
    const float* a1 = a0 + a_stride;
    float* c0 = c + r * W;
    float* c1 = c0 + W;
    __m256 acc0[kGroups], acc1[kGroups];
#pragma GCC unroll 6
    for (int g = 0; g < kGroups; ++g) {
      acc0[g] = _mm256_loadu_ps(c0 + 8 * g);
      acc1[g] = _mm256_loadu_ps(c1 + 8 * g);
    }
    const float* b_row = b;
    for (int l = 0; l < k; ++l, b_row += W) {
      const __m256 x0 = _mm256_broadcast_ss(a0 + l);
      const __m256 x1 = _mm256_broadcast_ss(a1 + l);
#pragma GCC unroll 6
      for (int g = 0; g < kGroups; ++g) {
        const __m256 y = _mm256_loadu_ps(b_row + 8 * g);
        acc0[g] = MulAdd::step(acc0[g], y, x0);
        acc1[g] = MulAdd::step(acc1[g], y, x1);
      }
    }
#pragma GCC unroll 6
    for (int g = 0; g < kGroups; ++g) {
      _mm256_storeu_ps(c0 + 8 * g, acc0[g]);
      _mm256_storeu_ps(c1 + 8 * g, acc1[g]);
    }
  }
}

// Picks the kernel for a tile `n` columns wide (a multiple of 8 up to 48) and
// `k` deep; the A tile's rows are k floats apart. Any other width does
// nothing.
template <class MulAdd>
void do_sgemm_kernel(float* a, float* b, float* c, int m, int n, int k) {
  switch (n) {
    case 48:
      sgemm_kernel_2xw<48, MulAdd>(a, k, b, c, m, k);
      break;
    case 40:
      sgemm_kernel_2xw<40, MulAdd>(a, k, b, c, m, k);
      break;
    case 32:
      sgemm_kernel_2xw<32, MulAdd>(a, k, b, c, m, k);
      break;
    case 24:
      sgemm_kernel_2xw<24, MulAdd>(a, k, b, c, m, k);
      break;
    case 16:
      sgemm_kernel_2xw<16, MulAdd>(a, k, b, c, m, k);
      break;
    case 8:
      sgemm_kernel_2xw<8, MulAdd>(a, k, b, c, m, k);
      break;
    default:
      break;
  }
}

// Multiplies a packed block, m by k times k by n, into the accumulator. Each
// accumulator tile takes all its depth chunks in ascending order before the
// next tile begins; rows of a short last strip go in pairs, and a short last
// column tile is widened to a multiple of 8.
template <class MulAdd>
void sgemm_nn_large_blk(int m, int n, int k, float* a, float* b, float* c) {
  const TileSplit strips(m);
  const TileSplit columns(n);
  const TileSplit depth(k);
  const int nkc = depth.tiles();
  const int nct = columns.tiles();
  auto a_tile = [&](int s, int q) { return a + (s * nkc + q) * kSlotFloats; };
  auto b_tile = [&](int t, int q) { return b + (t * nkc + q) * kSlotFloats; };
  auto c_tile = [&](int s, int t) { return c + (s * nct + t) * kSlotFloats; };
  auto multiply_strip = [&](int s, int rows) {
    for (int t = 0; t < columns.full; ++t) {
      for (int q = 0; q < depth.full; ++q) {
        sgemm_kernel_2xw<48, MulAdd>(a_tile(s, q), kTileEdge, b_tile(t, q), c_tile(s, t), rows,
                                     kTileEdge);
      }
      if (depth.tail > 0) {
        sgemm_kernel_2xw<48, MulAdd>(a_tile(s, depth.full), depth.tail, b_tile(t, depth.full),
                                     c_tile(s, t), rows, depth.tail);
      }
    }
    if (columns.tail > 0) {
      const int t = columns.full;
      const int width = widened(columns.tail);
      for (int q = 0; q < depth.full; ++q) {
        do_sgemm_kernel<MulAdd>(a_tile(s, q), b_tile(t, q), c_tile(s, t), rows, width, kTileEdge);
      }
      if (depth.tail > 0) {
        do_sgemm_kernel<MulAdd>(a_tile(s, depth.full), b_tile(t, depth.full), c_tile(s, t), rows,
                                width, depth.tail);
      }
    }
  };
  for (int s = 0; s < strips.full; ++s) multiply_strip(s, kTileEdge);
  if (strips.tail > 0) multiply_strip(strips.full, strips.tail + (strips.tail & 1));
}

}  // namespace
}  // namespace gemm
}  // namespace numbra

#endif  // NUMBRA_GEMM_SGEMM_KERNELS_H
