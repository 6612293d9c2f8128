// Transpose by tiles. A source tile is read four (float) or two (double)
// rows at a time, transposed in registers into a tile buffer on the stack,
// and the buffer is then written out destination row by destination row.
// Reading the source straight down its columns would put every row of a
// tile into the same few cache sets whenever the row stride is a multiple
// of 4 KiB, and the tile would be fetched again for every column.
//
// The edges run untiled: a right strip of the columns beyond the whole
// tiles, over every row, and a bottom strip of the rows beyond them. a and b
// do not overlap, so each element of b is written once, wherever the
// one-at-a-time copy would put it.
#include "layout/transpose.h"

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "numbra.h"
#include "vector/elementwise_loop.h"

namespace ZETL {
namespace numbra {

namespace {

// The square of 16 bytes a side: 4 by 4 floats or 2 by 2 doubles, moved
// from rows a, a + lda, ... to rows b, b + ldb, ... transposed. b is 16-byte
// aligned, as is every row of it.
inline void transpose_square(const float* a, std::ptrdiff_t lda, float* b, std::ptrdiff_t ldb) {
  __m128 r0 = _mm_loadu_ps(a), r1 = _mm_loadu_ps(a + lda);
  __m128 r2 = _mm_loadu_ps(a + 2 * lda), r3 = _mm_loadu_ps(a + 3 * lda);
  _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
  _mm_store_ps(b, r0);
  _mm_store_ps(b + ldb, r1);
  _mm_store_ps(b + 2 * ldb, r2);
  _mm_store_ps(b + 3 * ldb, r3);
}

inline void transpose_square(const double* a, std::ptrdiff_t lda, double* b, std::ptrdiff_t ldb) {
  const __m128d r0 = _mm_loadu_pd(a), r1 = _mm_loadu_pd(a + lda);
  _mm_store_pd(b, _mm_unpacklo_pd(r0, r1));
  _mm_store_pd(b + ldb, _mm_unpackhi_pd(r0, r1));
}

// Tiles are 256 bytes a row: 64 floats or 32 doubles on a side.
template <typename T>
constexpr int kTileEdge = 256 / sizeof(T);

// b[j * ldb + i] = a[i * lda + j] for one whole tile, a and b at its first
// element. With `streaming`, b is 16-byte aligned, and so is every row.
template <typename T>
void transpose_tile(const T* a, std::ptrdiff_t lda, T* b, std::ptrdiff_t ldb, bool streaming) {
  using L = ::numbra::Lanes128<T>;
  constexpr int kEdge = kTileEdge<T>, kSquare = L::kCount;
  alignas(16) T buffer[kEdge * kEdge];
  for (int i = 0; i < kEdge; i += kSquare) {
    for (int j = 0; j < kEdge; j += kSquare) {
      transpose_square(a + i * lda + j, lda, buffer + j * kEdge + i, kEdge);
    }
  }
  for (int j = 0; j < kEdge; ++j) {
    for (int i = 0; i < kEdge; i += kSquare) {
      const auto piece = L::load(buffer + j * kEdge + i);
      streaming ? L::stream(b + j * ldb + i, piece) : L::store(b + j * ldb + i, piece);
    }
  }
}

// b[j * ldb + i] = a[i * lda + j] for i in [i0, i1) and j in [j0, j1),
// destination row by destination row.
template <typename T>
void copy_transposed(int i0, int i1, int j0, int j1, std::ptrdiff_t lda, const T* a,
                     std::ptrdiff_t ldb, T* b) {
  for (int j = j0; j < j1; ++j) {
    for (int i = i0; i < i1; ++i) b[j * ldb + i] = a[i * lda + j];
  }
}

}  // namespace

template <typename T>
void transposeMatrix(int m, int n, int lda, const T* a, int ldb, T* b) {
  using L = ::numbra::Lanes128<T>;
  constexpr int kEdge = kTileEdge<T>;
  const int m_full = m / kEdge * kEdge;
  const int n_full = n / kEdge * kEdge;
  // A destination as large as the element loops stream does not stay in the
  // caches either: its rows go out with streaming stores, which do not read
  // the lines first.
  const bool streaming =
      m_full > 0 && n_full > 0 &&
      static_cast<unsigned long>(n_full) * m_full * sizeof(T) >= ::numbra::kStreamingOutputBytes &&
      reinterpret_cast<std::uintptr_t>(b) % L::kAlignment == 0 &&
      static_cast<std::size_t>(ldb) * sizeof(T) % L::kAlignment == 0;
  for (int jt = 0; jt < n_full; jt += kEdge) {
    for (int it = 0; it < m_full; it += kEdge) {
      transpose_tile(a + std::ptrdiff_t(it) * lda + jt, lda, b + std::ptrdiff_t(jt) * ldb + it, ldb,
                     streaming);
    }
  }
  if (streaming) _mm_sfence();  // order the streamed stores before any later store
  // The right strip takes every row, the corner below the tiles included.
  if (n_full < n) copy_transposed(0, m, n_full, n, lda, a, ldb, b);
  if (n_full >= kEdge && m_full < m) copy_transposed(m_full, m, 0, n_full, lda, a, ldb, b);
}

template <typename T>
void x86MatrixTranspose(int /*nthreads*/, unsigned long m, unsigned long n, unsigned long lda,
                        const T* a, unsigned long ldb, T* b) {
  transposeMatrix<T>(static_cast<int>(m), static_cast<int>(n), static_cast<int>(lda), a,
                     static_cast<int>(ldb), b);
}

template void transposeMatrix<float>(int, int, int, const float*, int, float*);
template void transposeMatrix<double>(int, int, int, const double*, int, double*);
template void x86MatrixTranspose<float>(int, unsigned long, unsigned long, unsigned long,
                                        const float*, unsigned long, float*);
template void x86MatrixTranspose<double>(int, unsigned long, unsigned long, unsigned long,
                                         const double*, unsigned long, double*);

}  // namespace numbra
}  // namespace ZETL
