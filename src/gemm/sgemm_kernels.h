// Micro-kernels and the block loop of the packed single-precision GEMM.
// Included by the per-instruction-set sources only (AVX). The one difference
// between the instruction sets in results is the MulAdd step, acc + b * a:
// one fused rounding, or a rounded product and a rounded sum. MulAdd also
// gives the width of its micro-tiles in lane groups (kGroups), the widest
// that keeps accumulators, a row of b and a broadcast in registers; the
// blocking cannot change a result, since each element stays one chain of
// steps in ascending depth.
#ifndef NUMBRA_GEMM_SGEMM_KERNELS_H
#define NUMBRA_GEMM_SGEMM_KERNELS_H

#include <immintrin.h>

#include <algorithm>

#include "gemm/sgemm_tiles.h"

namespace numbra_internal {
namespace {

// c[r][j] += sum over l of a[r][l] * b[l][j] for an R by 8G micro-tile, over
// `chunks` consecutive depth chunks of k each, whose A and B tiles lie one
// slot apart. The micro-tile is held in R * G accumulators for the whole
// depth: each element is one chain of steps in ascending l. Rows of a, b
// and c lie a_stride, b_stride and c_stride floats apart.
template <int R, int G, class MulAdd>
[[gnu::always_inline]] inline void micro_tile(const float* a, int a_stride, const float* b,
                                              int b_stride, float* c, int c_stride, int k,
                                              int chunks) {
  __m256 acc[R][G];
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) {
#pragma GCC unroll 3
    for (int g = 0; g < G; ++g) acc[r][g] = _mm256_loadu_ps(c + r * c_stride + 8 * g);
  }
  for (int q = 0; q < chunks; ++q) {
    const float* a_chunk = a + q * kSlotFloats;
    const float* b_row = b + q * kSlotFloats;
#pragma GCC unroll 2
    for (int l = 0; l < k; ++l, b_row += b_stride) {
      __m256 y[G];
#pragma GCC unroll 3
      for (int g = 0; g < G; ++g) {
        y[g] = _mm256_loadu_ps(b_row + 8 * g);
        // Keep the row of b in registers: folding the load into every
        // multiply-add would load it R times.
        asm("" : "+x"(y[g]));
      }
#pragma GCC unroll 6
      for (int r = 0; r < R; ++r) {
        const __m256 x = _mm256_broadcast_ss(a_chunk + r * a_stride + l);
#pragma GCC unroll 3
        for (int g = 0; g < G; ++g) acc[r][g] = MulAdd::step(acc[r][g], y[g], x);
      }
    }
  }
#pragma GCC unroll 6
  for (int r = 0; r < R; ++r) {
#pragma GCC unroll 3
    for (int g = 0; g < G; ++g) _mm256_storeu_ps(c + r * c_stride + 8 * g, acc[r][g]);
  }
}

// R rows of a W-wide tile, in micro-tiles of G lane groups and one narrower
// one for what is left.
template <int R, int W, class MulAdd>
inline void tile_rows(const float* a, int a_stride, const float* b, float* c, int k, int chunks) {
  constexpr int G = MulAdd::kGroups;
  int j = 0;
  for (; j + 8 * G <= W; j += 8 * G)
    micro_tile<R, G, MulAdd>(a, a_stride, b + j, W, c + j, W, k, chunks);
  switch ((W - j) / 8) {
    case 2:
      micro_tile<R, 2, MulAdd>(a, a_stride, b + j, W, c + j, W, k, chunks);
      break;
    case 1:
      micro_tile<R, 1, MulAdd>(a, a_stride, b + j, W, c + j, W, k, chunks);
      break;
    default:
      break;
  }
}

// The micro-kernel contract: c[row * W + j] += sum over l < k of
// a[row * a_stride + l] * b[l * W + j], for rows in pairs r, r + 1 while
// r < m (an odd m also touches row m), each element a chain of steps in
// ascending l. The tile is covered by micro-tiles of MulAdd::kRows rows,
// then of 4 and of 2 for what is left. With `chunks` above 1 the depth runs
// on through that many chunks of the packed strip, one slot apart.
template <int W, class MulAdd>
inline void packed_tile_kernel(const float* a, int a_stride, const float* b, float* c, int m, int k,
                               int chunks = 1) {
  constexpr int R = MulAdd::kRows;
  const int rows = m + (m & 1);
  int r = 0;
  for (; r + R <= rows; r += R) {
    tile_rows<R, W, MulAdd>(a + r * a_stride, a_stride, b, c + r * W, k, chunks);
  }
  if constexpr (R > 4) {
    if (r + 4 <= rows) {
      tile_rows<4, W, MulAdd>(a + r * a_stride, a_stride, b, c + r * W, k, chunks);
      r += 4;
    }
  }
  if (r < rows) tile_rows<2, W, MulAdd>(a + r * a_stride, a_stride, b, c + r * W, k, chunks);
}

// Picks the kernel for a tile `n` columns wide (a multiple of 8 up to 48) and
// `k` deep; the A tile's rows are k floats apart. Any other width does
// nothing.
template <class MulAdd>
void do_sgemm_kernel(float* a, float* b, float* c, int m, int n, int k) {
  switch (n) {
    case 48:
      packed_tile_kernel<48, MulAdd>(a, k, b, c, m, k);
      break;
    case 40:
      packed_tile_kernel<40, MulAdd>(a, k, b, c, m, k);
      break;
    case 32:
      packed_tile_kernel<32, MulAdd>(a, k, b, c, m, k);
      break;
    case 24:
      packed_tile_kernel<24, MulAdd>(a, k, b, c, m, k);
      break;
    case 16:
      packed_tile_kernel<16, MulAdd>(a, k, b, c, m, k);
      break;
    case 8:
      packed_tile_kernel<8, MulAdd>(a, k, b, c, m, k);
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
  constexpr int kChunksPerPass = 2;
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
      // Full chunks go two at a time: the accumulators stay in registers
      // across both, and the two B tiles still fit the first-level cache.
      for (int q = 0; q < depth.full; q += kChunksPerPass) {
        packed_tile_kernel<48, MulAdd>(a_tile(s, q), kPackedTileEdge, b_tile(t, q), c_tile(s, t),
                                       rows, kPackedTileEdge,
                                       std::min(kChunksPerPass, depth.full - q));
      }
      if (depth.tail > 0) {
        packed_tile_kernel<48, MulAdd>(a_tile(s, depth.full), depth.tail, b_tile(t, depth.full),
                                       c_tile(s, t), rows, depth.tail);
      }
    }
    if (columns.tail > 0) {
      const int t = columns.full;
      const int width = widened(columns.tail);
      for (int q = 0; q < depth.full; ++q) {
        do_sgemm_kernel<MulAdd>(a_tile(s, q), b_tile(t, q), c_tile(s, t), rows, width,
                                kPackedTileEdge);
      }
      if (depth.tail > 0) {
        do_sgemm_kernel<MulAdd>(a_tile(s, depth.full), b_tile(t, depth.full), c_tile(s, t), rows,
                                width, depth.tail);
      }
    }
  };
  for (int s = 0; s < strips.full; ++s) multiply_strip(s, kPackedTileEdge);
  if (strips.tail > 0) multiply_strip(strips.full, strips.tail + (strips.tail & 1));
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_KERNELS_H
