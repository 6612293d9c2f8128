// Transpose by tiles of 64 by 64 elements (16 KiB of floats, 32 KiB of
// doubles; for doubles, smaller tiles measured up to 25% slower). Each source
// tile is read in squares of 32 bytes a side (8 x 8 floats, 4 x 4
// doubles), turned in registers and stored straight into the destination.
// Two kinds of destination get each tile through a buffer on the stack
// instead, so that it goes out row by row in whole cache lines: one large
// enough to be streamed, and one whose rows lie a multiple of 1 KiB apart.
// Written straight, the tile's rows of such a destination share so few
// cache sets that a line is evicted between the stores to its two halves
// (measured: 1024 x 1024 floats went 3.6 times faster through the buffer,
// other strides slower). Reading the source straight down its columns
// instead would put every row of a tile into the same few cache sets
// whenever the row stride is a multiple of 4 KiB.
//
// Tiles at the right and bottom edges are simply narrower; the elements
// beyond the last whole square go one at a time. a and b do not overlap, so
// each element of b is written once, with the value the one-at-a-time copy
// would put there, whatever the order. While a tile goes out, the source of
// the next one is asked for.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "layout/transpose.h"
#include "numbra.h"
#include "simd/element_loop.h"
#include "simd/lanes256.h"

namespace numbra_internal {
namespace {

// Rows q0..q3 of four floats in each 128-bit half, turned half by half into
// rows b, b + ldb, b + 2 ldb, b + 3 ldb (32-byte aligned).
inline void turn_halves(__m256 q0, __m256 q1, __m256 q2, __m256 q3, float* b, std::ptrdiff_t ldb) {
  const __m256 t0 = _mm256_unpacklo_ps(q0, q1), t1 = _mm256_unpackhi_ps(q0, q1);
  const __m256 t2 = _mm256_unpacklo_ps(q2, q3), t3 = _mm256_unpackhi_ps(q2, q3);
  _mm256_storeu_ps(b, _mm256_shuffle_ps(t0, t2, 0x44));
  _mm256_storeu_ps(b + ldb, _mm256_shuffle_ps(t0, t2, 0xEE));
  _mm256_storeu_ps(b + 2 * ldb, _mm256_shuffle_ps(t1, t3, 0x44));
  _mm256_storeu_ps(b + 3 * ldb, _mm256_shuffle_ps(t1, t3, 0xEE));
}

// Four floats from row r in the low half and from row r + 4 in the high one.
inline __m256 rows_r_and_r4(const float* a, std::ptrdiff_t lda) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(a)), _mm_loadu_ps(a + 4 * lda),
                              1);
}

// The square of 32 bytes a side from rows a, a + lda, ... to rows b, b + ldb,
// ..., turned. b is 32-byte aligned, as is every row of it. With rows r and
// r + 4 side by side, a 4 x 4 turn inside each half gives whole columns.
inline void transpose_square(const float* a, std::ptrdiff_t lda, float* b, std::ptrdiff_t ldb) {
  turn_halves(rows_r_and_r4(a, lda), rows_r_and_r4(a + lda, lda), rows_r_and_r4(a + 2 * lda, lda),
              rows_r_and_r4(a + 3 * lda, lda), b, ldb);
  turn_halves(rows_r_and_r4(a + 4, lda), rows_r_and_r4(a + lda + 4, lda),
              rows_r_and_r4(a + 2 * lda + 4, lda), rows_r_and_r4(a + 3 * lda + 4, lda), b + 4 * ldb,
              ldb);
}

// Two doubles from row r in the low half and from row r + 2 in the high one.
inline __m256d rows_r_and_r2(const double* a, std::ptrdiff_t lda) {
  return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(a)), _mm_loadu_pd(a + 2 * lda),
                              1);
}

// The same for doubles: with rows r and r + 2 side by side, one unpack
// inside each half gives whole columns.
inline void transpose_square(const double* a, std::ptrdiff_t lda, double* b, std::ptrdiff_t ldb) {
  const __m256d r02_left = rows_r_and_r2(a, lda), r13_left = rows_r_and_r2(a + lda, lda);
  const __m256d r02_right = rows_r_and_r2(a + 2, lda), r13_right = rows_r_and_r2(a + lda + 2, lda);
  _mm256_storeu_pd(b, _mm256_unpacklo_pd(r02_left, r13_left));
  _mm256_storeu_pd(b + ldb, _mm256_unpackhi_pd(r02_left, r13_left));
  _mm256_storeu_pd(b + 2 * ldb, _mm256_unpacklo_pd(r02_right, r13_right));
  _mm256_storeu_pd(b + 3 * ldb, _mm256_unpackhi_pd(r02_right, r13_right));
}

// How a tile reaches the destination.
enum class TileOutput { kDirect, kBuffered, kStreamed };

// The copy runs in tiles of 64 by 64 elements, each made of register
// squares of 32 bytes a row.
constexpr int kCopyTileEdge = 64;
template <typename T>
constexpr int kSquare = 32 / sizeof(T);

// Asks for the tile rows from p, p + ld, ...
template <typename T>
void prefetch_rows(const T* p, std::ptrdiff_t ld, int rows) {
  for (int r = 0; r < rows; ++r) {
    for (int line = 0; line < kCopyTileEdge * int(sizeof(T)) / 64; ++line) {
      _mm_prefetch(reinterpret_cast<const char*>(p + r * ld) + 64 * line, _MM_HINT_T0);
    }
  }
}

// out[j * ld_out + i] = a[i * lda + j] for i < rows and j < cols, both at
// most the tile edge: whole squares, then the columns and rows beyond them
// one element at a time.
template <typename T>
void turn_tile(const T* a, std::ptrdiff_t lda, int rows, int cols, T* out, std::ptrdiff_t ld_out) {
  constexpr int kSide = kSquare<T>;
  const int square_rows = rows / kSide * kSide, square_cols = cols / kSide * kSide;
  for (int i = 0; i < square_rows; i += kSide) {
    for (int j = 0; j < square_cols; j += kSide) {
      transpose_square(a + i * lda + j, lda, out + j * ld_out + i, ld_out);
    }
    for (int j = square_cols; j < cols; ++j) {
      for (int r = i; r < i + kSide; ++r) out[j * ld_out + r] = a[r * lda + j];
    }
  }
  for (int i = square_rows; i < rows; ++i) {
    for (int j = 0; j < cols; ++j) out[j * ld_out + i] = a[i * lda + j];
  }
}

// One tile, a and b at its first element, while the `next_rows` rows of the
// next source tile at next_a are asked for. Written straight into b, or
// turned into a buffer first and copied out in whole destination rows, so
// that each line of b is written at once; streamed out when b and its rows
// are 32-byte aligned.
template <typename T>
void transpose_tile(const T* a, std::ptrdiff_t lda, int rows, int cols, T* b, std::ptrdiff_t ldb,
                    TileOutput output, const T* next_a, int next_rows) {
  constexpr int kEdge = kCopyTileEdge, kSide = kSquare<T>;
  if (output == TileOutput::kDirect) {
    prefetch_rows(next_a, lda, next_rows);
    turn_tile(a, lda, rows, cols, b, ldb);
    return;
  }
  alignas(32) T buffer[kEdge * kEdge];
  turn_tile(a, lda, rows, cols, buffer, kEdge);
  const int whole = rows / kSide * kSide;
  for (int j = 0; j < cols; ++j) {
    if (j < next_rows) prefetch_rows(next_a + j * lda, lda, 1);
    T* row = b + j * ldb;
    const T* from = buffer + j * kEdge;
    for (int i = 0; i < whole; i += kSide) {
      const auto v = Lanes256<T>::load(from + i);
      if (output == TileOutput::kStreamed) {
        Lanes256<T>::stream(row + i, v);
      } else {
        Lanes256<T>::store(row + i, v);
      }
    }
    for (int i = whole; i < rows; ++i) row[i] = from[i];
  }
}

}  // namespace

template <typename T>
void transposeMatrix(int m, int n, int lda, const T* a, int ldb, T* b) {
  constexpr int kEdge = kCopyTileEdge;
  if (m <= 0 || n <= 0) return;
  // A destination as large as the element loops stream does not stay in the
  // caches either: its rows go out with streaming stores, which do not read
  // the lines first.
  const std::size_t row_bytes = static_cast<std::size_t>(ldb) * sizeof(T);
  const bool streaming = static_cast<unsigned long>(n) * m * sizeof(T) >= kStreamingOutputBytes &&
                         reinterpret_cast<std::uintptr_t>(b) % 32 == 0 && row_bytes % 32 == 0;
  const TileOutput output = streaming               ? TileOutput::kStreamed
                            : row_bytes % 1024 == 0 ? TileOutput::kBuffered
                                                    : TileOutput::kDirect;
  const std::ptrdiff_t lda_ = lda, ldb_ = ldb;
  for (int jt = 0; jt < n; jt += kEdge) {
    const int cols = std::min(kEdge, n - jt);
    for (int it = 0; it < m; it += kEdge) {
      const int rows = std::min(kEdge, m - it);
      // The next tile down, or the top of the next tile column.
      const int next_it = it + kEdge < m ? it + kEdge : 0;
      const int next_jt = it + kEdge < m ? jt : jt + kEdge;
      const int next_rows = next_jt < n ? std::min(kEdge, m - next_it) : 0;
      transpose_tile(a + it * lda_ + jt, lda_, rows, cols, b + jt * ldb_ + it, ldb_, output,
                     a + next_it * lda_ + next_jt, next_rows);
    }
  }
  if (streaming) _mm_sfence();  // order the streamed stores before any later store
}

template void transposeMatrix<float>(int, int, int, const float*, int, float*);
template void transposeMatrix<double>(int, int, int, const double*, int, double*);

}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

template <typename T>
void x86MatrixTranspose(int /*nthreads*/, unsigned long m, unsigned long n, unsigned long lda,
                        const T* a, unsigned long ldb, T* b) {
  numbra_internal::transposeMatrix<T>(static_cast<int>(m), static_cast<int>(n),
                                      static_cast<int>(lda), a, static_cast<int>(ldb), b);
}

template void x86MatrixTranspose<float>(int, unsigned long, unsigned long, unsigned long,
                                        const float*, unsigned long, float*);
template void x86MatrixTranspose<double>(int, unsigned long, unsigned long, unsigned long,
                                         const double*, unsigned long, double*);

}  // namespace numbra
}  // namespace ZETL
