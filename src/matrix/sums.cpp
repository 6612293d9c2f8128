// Sums along the rows and columns of a row-major matrix, blended into the
// output as s * alpha + u, where u is +0 for a zero beta (either sign, the
// old output unread) and old * beta otherwise. Row sums have one accumulator
// of T and run in ascending order; only element loops use vector steps.

#include <algorithm>

#include "common/call_frame.h"
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// y[r] = (sum of row r) * alpha + u, blending the old y[r] with `coefficient`.
template <typename T>
void blend_row_sums(unsigned long m, unsigned long n, unsigned long lda, T alpha, const T* a,
                    T coefficient, T* y) {
  for (unsigned long r = 0; r < m; ++r) {
    const T s = ascending_sum(n, a + r * lda);
    const T scaled = s * alpha;
    y[r] = scaled + blend_term(coefficient, y + r);
  }
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::ascending_sum;
using numbra_internal::blend_row_sums;
using numbra_internal::blend_term;
using numbra_internal::fill_elements;
using numbra_internal::map_elements;
using numbra_internal::ranges_are_disjoint;

template <typename T>
void x86MatrixSumByRow(int, unsigned long m, unsigned long n, unsigned long lda, T alpha,
                       const T* a, T beta, T* y) {
  blend_row_sums(m, n, lda, alpha, a, beta, y);
}

template <typename T>
void x86MatrixGetSum(int, unsigned long m, unsigned long n, T alpha, const T* a, T beta, T* y) {
  // A row summing to less than 1 contributes +0, with alpha not applied.
  for (unsigned long r = 0; r < m; ++r) {
    const T s = ascending_sum(n, a + r * n);
    const T t = T(1) > s ? T(0) : s * alpha;
    y[r] = t + blend_term(beta, y + r);
  }
}

template <typename T>
void x86MatrixBatchSumByRow(int, unsigned long m, unsigned long n, unsigned long lda,
                            unsigned long batch, T alpha, const T* a, T beta, T* y) {
  // Slices lie m * n elements apart whatever lda is; the first blends the
  // old y with beta, the later ones add to what it stored.
  for (unsigned long b = 0; b < batch; ++b) {
    blend_row_sums(m, n, lda, alpha, a + b * m * n, b == 0 ? beta : T(1), y);
  }
}

template <typename T>
void x86MatrixSumByCol(int, unsigned long m, unsigned long n, unsigned long lda, T alpha,
                       const T* a, T beta, T* y) {
  // Each column sum accumulates in y itself, alpha applied to every element.
  // The blend runs even when there are no rows.
  if (numbra_internal::zero_beta(beta)) {
    fill_elements(n, y, T(0));
  } else {
    map_elements(
        n, y, [beta](auto yj) { return yj * beta; }, y);
  }
  auto add_row = [alpha](auto aj, auto yj) {
    const auto product = aj * alpha;
    return product + yj;
  };
  unsigned long r = 0;
  if (m > 0 && ranges_are_disjoint(y, n, a, (m - 1) * lda + n)) {
    // With y outside the matrix, rows go four at a time: each y element
    // still takes its rows one by one in ascending order, and four rows
    // stream from memory side by side.
    for (; r + 4 <= m; r += 4) {
      const T* row = a + r * lda;
      map_elements(
          n, y,
          [add_row](auto a0, auto a1, auto a2, auto a3, auto yj) {
            return add_row(a3, add_row(a2, add_row(a1, add_row(a0, yj))));
          },
          row, row + lda, row + 2 * lda, row + 3 * lda, y);
    }
  }
  for (; r < m; ++r) map_elements(n, y, add_row, a + r * lda, y);
}

template <typename T>
void x86MatrixAvgByRow(int, unsigned long m, unsigned long n, unsigned long lda, T alpha,
                       const T* a, T beta, T* y) {
  // Each element over its row's sum, with no guard on the sum. The sum is
  // complete before the row is stored, so y may be a itself.
  if (n == 0 || m == 0) return;
  auto write_piece = [&](unsigned long r, T s, unsigned long j0, unsigned long count) {
    const T* ar = a + r * lda + j0;
    T* yr = y + r * lda + j0;
    if (numbra_internal::zero_beta(beta)) {
      map_elements(
          count, yr, [alpha, s](auto aj) { return (aj * alpha) / s + T(0); }, ar);
    } else {
      map_elements(
          count, yr,
          [alpha, s, beta](auto aj, auto yj) {
            const auto share = (aj * alpha) / s;
            return share + yj * beta;
          },
          ar, yr);
    }
  };
  // A row's sum is one chain of dependent adds, which leaves the divider
  // idle. So, where a row of y cannot reach the next row of a (the rows of
  // both lie lda apart, so one test answers for every pair), the next row's
  // sum goes in pieces between the pieces of this row's quotients, and the
  // two run side by side. Each sum still adds its row in ascending order,
  // from elements that this row's stores do not reach.
  constexpr unsigned long kPiece = 64;
  const bool side_by_side = m > 1 && ranges_are_disjoint(y, n, a + lda, n);
  T s = ascending_sum(n, a);
  for (unsigned long r = 0; r < m; ++r) {
    const T* next_row = a + (r + 1) * lda;
    if (!side_by_side || r + 1 == m) {
      write_piece(r, s, 0, n);
      if (r + 1 < m) s = ascending_sum(n, next_row);
      continue;
    }
    T next = T(0);
    for (unsigned long j0 = 0; j0 < n; j0 += kPiece) {
      const unsigned long count = std::min(kPiece, n - j0);
      write_piece(r, s, j0, count);
      for (unsigned long j = j0; j < j0 + count; ++j) next = next + next_row[j];
    }
    s = next;
  }
}

#define NUMBRA_INSTANTIATE_SUMS(T)                                                          \
  template void x86MatrixSumByRow<T>(int, unsigned long, unsigned long, unsigned long, T,   \
                                     const T*, T, T*);                                      \
  template void x86MatrixGetSum<T>(int, unsigned long, unsigned long, T, const T*, T, T*);  \
  template void x86MatrixBatchSumByRow<T>(int, unsigned long, unsigned long, unsigned long, \
                                          unsigned long, T, const T*, T, T*);               \
  template void x86MatrixSumByCol<T>(int, unsigned long, unsigned long, unsigned long, T,   \
                                     const T*, T, T*);                                      \
  template void x86MatrixAvgByRow<T>(int, unsigned long, unsigned long, unsigned long, T,   \
                                     const T*, T, T*);

NUMBRA_INSTANTIATE_SUMS(float)
NUMBRA_INSTANTIATE_SUMS(double)

}  // namespace numbra
}  // namespace ZETL
