// Packing of A and B into tiles, and the C accumulator: clearing it and
// writing a finished block to C. Included by the per-instruction-set GEMM
// sources only (AVX); everything here is file-local, one copy per
// instruction set, and none of it fuses a multiply-add.
//
// Layouts, for a block of mb rows, depth kb and nb columns (see sgemm_tiles.h):
//  - packed A: strips of 48 rows one after another, each strip its depth
//    chunks in order; a tile holds one row of A per row, 48 floats wide, or
//    kt floats in the short last chunk. An odd row count in the last strip
//    gets a zero pad row behind each of its tiles.
//  - packed B: column tiles one after another, each its depth chunks in
//    order; rows 48 floats wide, or nw (nt widened to a multiple of 8) in the
//    last column tile, whose extra columns are zero.
//  - accumulator: strips, then column tiles; rows 48 floats wide, or nw in
//    the last column tile; the last strip runs to an even row count.
#ifndef NUMBRA_GEMM_SGEMM_PACK_H
#define NUMBRA_GEMM_SGEMM_PACK_H

#include <immintrin.h>

#include <cstddef>
#include <cstring>

#include "gemm/sgemm_blend.h"
#include "gemm/sgemm_tiles.h"

namespace numbra_internal {
namespace {

// Copies `count` floats, 8 lanes at a time, then one by one.
inline void copy_row(const float* from, float* to, int count) {
  int j = 0;
  for (; j + 8 <= count; j += 8) _mm256_storeu_ps(to + j, _mm256_loadu_ps(from + j));
  for (; j < count; ++j) to[j] = from[j];
}

inline void zero_floats(float* to, int count) {
  if (count > 0) std::memset(to, 0, count * sizeof(float));
}

// Copies `rows` rows of `width` floats of a row-major source into a tile with
// rows `width` floats apart.
inline void pack_tile(const float* src, std::ptrdiff_t ld, float* tile, int rows, int width) {
  for (int r = 0; r < rows; ++r) copy_row(src + r * ld, tile + r * width, width);
}

// The pad row behind the `rows` rows of a tile, written when the row count
// is odd, so that the kernels' row pairs meet zeros. Behind a full-width tile
// it is 49 zeros; the last lands on the first float of the next slot, which
// is written later. Behind a short tile the zeros come in whole groups of 8,
// then one more: floats of the row beyond that keep what they held and meet
// only the pad row of the accumulator.
inline void zero_pad_row(float* tile, int rows, int width) {
  float* pad = tile + rows * width;
  if (width == kPackedTileEdge) {
    zero_floats(pad, kPackedTileEdge + 1);
  } else {
    const int groups = width & ~7;
    zero_floats(pad, groups);
    pad[groups] = 0.0f;
  }
}

// Packs `rows` by `cols` of A, `src` at the block's first element.
void load_mem_large_blka_nn(float* src, int ld, float* dst, int rows, int cols) {
  const TileSplit depth(cols);
  const TileSplit strips(rows);
  float* tile = dst;
  auto pack_strip = [&](const float* strip, int strip_rows) {
    const bool odd = (strip_rows & 1) != 0;
    for (int q = 0; q < depth.full; ++q, tile += kSlotFloats) {
      pack_tile(strip + q * kPackedTileEdge, ld, tile, strip_rows, kPackedTileEdge);
      if (odd) zero_pad_row(tile, strip_rows, kPackedTileEdge);
    }
    if (depth.tail > 0) {
      pack_tile(strip + depth.full * kPackedTileEdge, ld, tile, strip_rows, depth.tail);
      if (odd) zero_pad_row(tile, strip_rows, depth.tail);
      tile += kSlotFloats;
    }
  };
  for (int s = 0; s < strips.full; ++s)
    pack_strip(src + std::ptrdiff_t(s) * kPackedTileEdge * ld, kPackedTileEdge);
  if (strips.tail > 0)
    pack_strip(src + std::ptrdiff_t(strips.full) * kPackedTileEdge * ld, strips.tail);
}

// Packs `rows` (depth) by `cols` of B, `src` at the block's first element.
void load_mem_large_blkb_nn(float* src, int ld, float* dst, int rows, int cols) {
  const TileSplit depth(rows);
  const TileSplit columns(cols);
  const int nkc = depth.tiles();
  const int tail_width = widened(columns.tail);
  auto pack_chunk = [&](int q, int chunk_rows) {
    const float* chunk = src + std::ptrdiff_t(q) * kPackedTileEdge * ld;
    for (int t = 0; t < columns.full; ++t) {
      pack_tile(chunk + t * kPackedTileEdge, ld, dst + (t * nkc + q) * kSlotFloats, chunk_rows,
                kPackedTileEdge);
    }
    if (columns.tail > 0) {
      float* tile = dst + (columns.full * nkc + q) * kSlotFloats;
      for (int p = 0; p < chunk_rows; ++p) {
        copy_row(chunk + p * ld + columns.full * kPackedTileEdge, tile + p * tail_width,
                 columns.tail);
        zero_floats(tile + p * tail_width + columns.tail, tail_width - columns.tail);
      }
    }
  };
  for (int q = 0; q < depth.full; ++q) pack_chunk(q, kPackedTileEdge);
  if (depth.tail > 0) pack_chunk(depth.full, depth.tail);
}

// Zeroes the accumulator of an m by n block wherever a kernel will read it.
void clear_mem_large_blkc_nn(float* acc, int m, int n) {
  const TileSplit strips(m);
  const TileSplit columns(n);
  const int nct = columns.tiles();
  const int tail_width = widened(columns.tail);
  for (int s = 0; s < strips.full; ++s) {
    float* strip = acc + s * nct * kSlotFloats;
    zero_floats(strip, columns.full * kSlotFloats);
    if (columns.tail > 0)
      zero_floats(strip + columns.full * kSlotFloats, kPackedTileEdge * tail_width);
  }
  if (strips.tail > 0) {
    const int even_rows = strips.tail + (strips.tail & 1);
    float* strip = acc + strips.full * nct * kSlotFloats;
    for (int t = 0; t < columns.full; ++t)
      zero_floats(strip + t * kSlotFloats, even_rows * kPackedTileEdge);
    if (columns.tail > 0) zero_floats(strip + columns.full * kSlotFloats, even_rows * tail_width);
  }
}

// Writes one tile of the accumulator (rows of 8 * ceil(n / 8) floats) to m
// rows and n columns of c by the write-back rule of alpha and beta, chosen
// once for the tile: 8 lanes at a time, then one by one. Every element is
// computed alone, so the grouping cannot show.
void save_mem_tiny_blkc_nn(float* acc, int m, int n, float alpha, float beta, float* c, int ldc) {
  const int width = widened(n);
  with_blend(choose_blend(alpha, beta), [&](auto rule) {
    constexpr Blend R = decltype(rule)::value;
    const __m256 alpha8 = _mm256_set1_ps(alpha), beta8 = _mm256_set1_ps(beta);
    const float* a = acc;
    float* row = c;
    for (int r = 0; r < m; ++r, a += width, row += ldc) {
      int j = 0;
      for (; j + 8 <= n; j += 8) {
        const __m256 old = reads_c(R) ? _mm256_loadu_ps(row + j) : __m256{};
        _mm256_storeu_ps(row + j, blend<R>(_mm256_loadu_ps(a + j), old, alpha8, beta8));
      }
      for (; j < n; ++j) row[j] = blend<R>(a[j], reads_c(R) ? row[j] : 0.0f, alpha, beta);
    }
  });
}

// Writes a finished m by n block to c, tile by tile.
void save_mem_large_blkc_nn(float* acc, int m, int n, float alpha, float beta, float* c, int ldc) {
  const TileSplit strips(m);
  const TileSplit columns(n);
  const int nct = columns.tiles();
  auto save_strip = [&](int s, int rows) {
    float* c_strip = c + std::ptrdiff_t(s) * kPackedTileEdge * ldc;
    float* tile = acc + s * nct * kSlotFloats;
    for (int t = 0; t < columns.full; ++t, tile += kSlotFloats) {
      save_mem_tiny_blkc_nn(tile, rows, kPackedTileEdge, alpha, beta, c_strip + t * kPackedTileEdge,
                            ldc);
    }
    if (columns.tail > 0) {
      save_mem_tiny_blkc_nn(tile, rows, columns.tail, alpha, beta,
                            c_strip + columns.full * kPackedTileEdge, ldc);
    }
  };
  for (int s = 0; s < strips.full; ++s) save_strip(s, kPackedTileEdge);
  if (strips.tail > 0) save_strip(strips.full, strips.tail);
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_PACK_H
