// c = alpha * op(a) + beta * op(b), element by element in row-major order.
// Each element is two rounded products and one rounded sum; a zero beta
// (either sign) leaves b unread and adds +0 in its place, so a -0 product
// comes out as +0.
#include <algorithm>
#include <climits>
#include <utility>

#include "common/call_frame.h"
#include "layout/transpose.h"
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// A matrix operand as the loops see it: element (i, j) of op(p) lies at
// p[i * row_step + j * col_step]. A transposed operand has col_step == ld.
template <typename T>
struct Operand {
  const T* p;
  unsigned long row_step, col_step;

  const T* row(unsigned long i) const { return p + i * row_step; }
  T at(unsigned long i, unsigned long j) const { return p[i * row_step + j * col_step]; }
};

// Elements from the first to one past the last element of op(p), m by n.
template <typename T>
unsigned long extent(Operand<T> p, unsigned long m, unsigned long n) {
  return (m - 1) * p.row_step + (n - 1) * p.col_step + 1;
}

// The rows of c combined from rows of op(a) and op(b), each row by the
// contiguous element loop: the same product, product and sum per element.
template <typename T>
void scaled_rows(unsigned long rows, unsigned long n, T alpha, const T* a, unsigned long lda,
                 T beta, const T* b, unsigned long ldb, unsigned long ldc, T* c) {
  for (unsigned long i = 0; i < rows; ++i) {
    if (zero_beta(beta)) {
      map_elements(
          n, c + i * ldc, [alpha](auto x) { return x * alpha + T(0); }, a + i * lda);
    } else {
      map_elements(
          n, c + i * ldc,
          [alpha, beta](auto x, auto y) {
            const auto t = x * alpha;
            return t + y * beta;
          },
          a + i * lda, b + i * ldb);
    }
  }
}

// A transposed operand read by tiles of 256 bytes a row: each tile of op(a)
// or op(b) is first copied, exactly, into a buffer on the stack, and the
// rows of the tile of c then run the contiguous loop. Only the order in
// which c's elements are stored differs from the row-major walk, and no
// read can see it: c shares no memory with a or b here.
template <typename T>
void scaled_sum_by_tiles(unsigned long m, unsigned long n, T alpha, Operand<T> a, T beta,
                         Operand<T> b, unsigned long ldc, T* c) {
  constexpr unsigned long kEdge = 256 / sizeof(T);
  alignas(32) T a_tile[kEdge * kEdge];
  alignas(32) T b_tile[kEdge * kEdge];
  for (unsigned long i0 = 0; i0 < m; i0 += kEdge) {
    const unsigned long rows = std::min(kEdge, m - i0);
    for (unsigned long j0 = 0; j0 < n; j0 += kEdge) {
      const unsigned long cols = std::min(kEdge, n - j0);
      // Row 0 of the tile of op(p) and the distance between its rows.
      auto tile_of = [&](Operand<T> p, T* buffer) -> std::pair<const T*, unsigned long> {
        if (p.col_step == 1) return {p.row(i0) + j0, p.row_step};
        transposeMatrix<T>(int(cols), int(rows), int(p.col_step), p.p + j0 * p.col_step + i0,
                           int(cols), buffer);
        return {buffer, cols};
      };
      const auto [a_rows, lda] = tile_of(a, a_tile);
      const auto [b_rows, ldb] =
          zero_beta(beta) ? std::pair<const T*, unsigned long>{nullptr, 0} : tile_of(b, b_tile);
      scaled_rows(rows, cols, alpha, a_rows, lda, beta, b_rows, ldb, ldc, c + i0 * ldc + j0);
    }
  }
}

template <typename T>
void scaled_sum(unsigned long m, unsigned long n, T alpha, Operand<T> a, T beta, Operand<T> b,
                unsigned long ldc, T* c) {
  const bool beta_is_zero = zero_beta(beta);
  const bool rows_contiguous = a.col_step == 1 && (beta_is_zero || b.col_step == 1);
  if (!rows_contiguous && m > 0 && n > 0 &&
      std::max(a.col_step, beta_is_zero ? 0 : b.col_step) <= INT_MAX) {
    const unsigned long c_extent = (m - 1) * ldc + n;
    if (ranges_are_disjoint(c, c_extent, a.p, extent(a, m, n)) &&
        (beta_is_zero || ranges_are_disjoint(c, c_extent, b.p, extent(b, m, n)))) {
      scaled_sum_by_tiles(m, n, alpha, a, beta, b, ldc, c);
      return;
    }
  }
  if (rows_contiguous && a.row_step == n && (beta_is_zero || b.row_step == n) && ldc == n) {
    // Packed rows follow each other, so the ascending walk over all m * n
    // elements is the row-by-row walk.
    n *= m;
    m = 1;
  }
  if (rows_contiguous) {
    scaled_rows(m, n, alpha, a.p, a.row_step, beta, b.p, b.row_step, ldc, c);
    return;
  }
  for (unsigned long i = 0; i < m; ++i) {
    T* ci = c + i * ldc;
    for (unsigned long j = 0; j < n; ++j) {
      const T t = a.at(i, j) * alpha;
      const T u = beta_is_zero ? T(0) : b.at(i, j) * beta;
      ci[j] = t + u;
    }
  }
}

template <typename T>
Operand<T> as_stored(const T* p, unsigned long ld) {
  return {p, ld, 1};
}

template <typename T>
Operand<T> transposed(const T* p, unsigned long ld) {
  return {p, 1, ld};
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::as_stored;
using numbra_internal::scaled_sum;
using numbra_internal::transposed;

template <typename T>
void x86Geam_nn(int, unsigned long m, unsigned long n, T alpha, unsigned long lda, const T* a,
                T beta, unsigned long ldb, const T* b, unsigned long ldc, T* c) {
  scaled_sum(m, n, alpha, as_stored(a, lda), beta, as_stored(b, ldb), ldc, c);
}

template <typename T>
void x86Geam_tn(int, unsigned long m, unsigned long n, T alpha, unsigned long lda, const T* a,
                T beta, unsigned long ldb, const T* b, unsigned long ldc, T* c) {
  scaled_sum(m, n, alpha, transposed(a, lda), beta, as_stored(b, ldb), ldc, c);
}

template <typename T>
void x86Geam_nt(int, unsigned long m, unsigned long n, T alpha, unsigned long lda, const T* a,
                T beta, unsigned long ldb, const T* b, unsigned long ldc, T* c) {
  scaled_sum(m, n, alpha, as_stored(a, lda), beta, transposed(b, ldb), ldc, c);
}

template <typename T>
void x86Geam_tt(int, unsigned long m, unsigned long n, T alpha, unsigned long lda, const T* a,
                T beta, unsigned long ldb, const T* b, unsigned long ldc, T* c) {
  scaled_sum(m, n, alpha, transposed(a, lda), beta, transposed(b, ldb), ldc, c);
}

#define NUMBRA_INSTANTIATE_GEAM(T, form)                                                  \
  template void form<T>(int, unsigned long, unsigned long, T, unsigned long, const T*, T, \
                        unsigned long, const T*, unsigned long, T*);
#define NUMBRA_INSTANTIATE_GEAM_FORMS(T) \
  NUMBRA_INSTANTIATE_GEAM(T, x86Geam_nn) \
  NUMBRA_INSTANTIATE_GEAM(T, x86Geam_tn) \
  NUMBRA_INSTANTIATE_GEAM(T, x86Geam_nt) \
  NUMBRA_INSTANTIATE_GEAM(T, x86Geam_tt)

NUMBRA_INSTANTIATE_GEAM_FORMS(float)
NUMBRA_INSTANTIATE_GEAM_FORMS(double)

}  // namespace numbra
}  // namespace ZETL
