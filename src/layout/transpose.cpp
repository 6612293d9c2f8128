// Transpose by tiles of 64 by 64: the source and destination tiles are
// prefetched into the outer caches, then the destination rows are written
// contiguously while the source is read down its columns.
#include "layout/transpose.h"

#include <xmmintrin.h>

#include <cstddef>

#include "numbra.h"

namespace ZETL {
namespace numbra {

namespace {

constexpr int kTile = 64;
constexpr int kCacheLine = 64;

template <typename T>
void prefetch_tile(const T* a, std::ptrdiff_t lda, const T* b, std::ptrdiff_t ldb) {
  constexpr int kStep = kCacheLine / sizeof(T);  // elements per prefetch
  for (int r = 0; r < kTile; ++r) {
    const char* from = reinterpret_cast<const char*>(a + r * lda);
    const char* to = reinterpret_cast<const char*>(b + r * ldb);
    for (int e = 0; e < kTile; e += kStep) {
      _mm_prefetch(from + e * sizeof(T), _MM_HINT_T2);
      _mm_prefetch(to + e * sizeof(T), _MM_HINT_T2);
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
  const int m_full = m / kTile * kTile;
  const int n_full = n / kTile * kTile;
  for (int jt = 0; jt < n_full; jt += kTile) {
    for (int it = 0; it < m_full; it += kTile) {
      prefetch_tile(a + std::ptrdiff_t(it) * lda + jt, lda, b + std::ptrdiff_t(jt) * ldb + it, ldb);
      copy_transposed(it, it + kTile, jt, jt + kTile, lda, a, ldb, b);
    }
  }
  // The right strip takes every row, the corner below the tiles included.
  if (n_full < n) copy_transposed(0, m, n_full, n, lda, a, ldb, b);
  if (n_full >= kTile && m_full < m) copy_transposed(m_full, m, 0, n_full, lda, a, ldb, b);
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
