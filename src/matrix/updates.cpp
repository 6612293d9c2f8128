// Row-wise updates of a row-major matrix: the exponential-over-sum of each
// row, the subtraction of each row's maximum, and a vector added along the
// rows or the columns. Blends follow s * alpha + u with u = +0 for a zero
// beta (either sign, the old element unread) and old * beta otherwise.
#include <cmath>

#include "common/call_frame.h"
#include "numbra.h"
#include "simd/element_loop.h"

namespace numbra_internal {
namespace {

// The maximum that the scan `m = first; for j in 1..n-1: if (rest[j] > m)
// m = rest[j]` ends with. A NaN first element stays, since nothing compares
// above it; a NaN further on is passed over. Otherwise the result is the
// largest value, and equal values other than +0 and -0 have equal bits, so
// lanes may each take a stride of the row and be merged in any order. Only a
// zero maximum depends on the order: the scan keeps the first zero it meets,
// so that zero is looked up again.
template <typename T>
T row_maximum(T first, unsigned long n, const T* rest) {
  using L = Lanes256<T>;
  if (first != first || n <= 1) return first;
  auto m0 = L::splat(first), m1 = m0;
  unsigned long j = 1;
  for (; j + 2 * L::kCount <= n; j += 2 * L::kCount) {
    // max(v, m) is m when v is NaN or not above m.
    m0 = L::max(L::load(rest + j), m0);
    m1 = L::max(L::load(rest + j + L::kCount), m1);
  }
  T lanes[2 * L::kCount];
  L::store(lanes, m0);
  L::store(lanes + L::kCount, m1);
  T m = first;
  for (const T v : lanes) {
    if (v > m) m = v;
  }
  for (; j < n; ++j) {
    if (rest[j] > m) m = rest[j];
  }
  if (m == T(0) && first != T(0)) {
    for (j = 1; rest[j] != T(0); ++j) {
    }
    m = rest[j];
  } else if (m == T(0)) {
    m = first;
  }
  return m;
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::blend_term;
using numbra_internal::fill_elements;
using numbra_internal::map_blended;
using numbra_internal::map_elements;

template <typename T>
void x86MatrixProbByRow(int, unsigned long m, unsigned long n, unsigned long lda, T alpha,
                        const T* a, T beta, T* y) {
  // The exponentials are taken in double. The running sum is kept in T, so
  // a float sum is rounded back to float after every element (and overflows
  // once an element passes about 88.7). Each exponential is computed again
  // for its quotient rather than stored, and the sum is complete before the
  // row is stored, so y may be a itself.
  const double wide_alpha = double(alpha);
  for (unsigned long r = 0; r < m; ++r) {
    const T* ar = a + r * lda;
    T* yr = y + r * lda;
    T s = T(0);
    for (unsigned long j = 0; j < n; ++j) s = T(double(s) + std::exp(double(ar[j])));
    const double wide_sum = double(s);
    for (unsigned long j = 0; j < n; ++j) {
      const T u = blend_term(beta, yr + j);
      const double e = std::exp(double(ar[j]));
      const double v = (e * wide_alpha) / wide_sum;
      yr[j] = T(double(u) + v);
    }
  }
}

template <typename T>
void x86MatrixSubMaxByRow(int, unsigned long m, unsigned long n, unsigned long lda, const T* a,
                          T* y) {
  // The row's first element and the subtrahends are read with row stride n,
  // the rest of the maximum's scan and the stores with row stride lda. The
  // first element is read even for empty rows. A NaN first element stays
  // the maximum; a NaN further on is passed over. The scan ends before the
  // row's first store.
  for (unsigned long r = 0; r < m; ++r) {
    const T* packed = a + r * n;
    const T* strided = a + r * lda;
    const T maximum = numbra_internal::row_maximum(packed[0], n, strided);
    map_elements(
        n, y + r * lda, [maximum](auto aj) { return aj - maximum; }, packed);
  }
}

template <typename T>
void x86MatrixAddVectorByRow(int, unsigned long m, unsigned long n, unsigned long lda, T alpha,
                             const T* x, T beta, T* y) {
  // y[r][j] = x[j] * alpha + u: x runs along every row.
  for (unsigned long r = 0; r < m; ++r) {
    map_blended(
        n, y + r * lda, beta, [alpha](auto xj) { return xj * alpha; }, x);
  }
}

template <typename T>
void x86MatrixAddVectorByCol(int, unsigned long m, unsigned long n, unsigned long lda, T alpha,
                             const T* x, T beta, T* y) {
  // y[r][j] = x[r] * alpha + u: x[r] is read once per non-empty row, before
  // the row is stored.
  if (n == 0) return;
  for (unsigned long r = 0; r < m; ++r) {
    T* yr = y + r * lda;
    const T t = x[r] * alpha;
    if (numbra_internal::zero_beta(beta)) {
      fill_elements(n, yr, t + T(0));
    } else {
      map_elements(
          n, yr, [t, beta](auto yj) { return t + yj * beta; }, yr);
    }
  }
}

#define NUMBRA_INSTANTIATE_UPDATES(T)                                                           \
  template void x86MatrixProbByRow<T>(int, unsigned long, unsigned long, unsigned long, T,      \
                                      const T*, T, T*);                                         \
  template void x86MatrixSubMaxByRow<T>(int, unsigned long, unsigned long, unsigned long,       \
                                        const T*, T*);                                          \
  template void x86MatrixAddVectorByRow<T>(int, unsigned long, unsigned long, unsigned long, T, \
                                           const T*, T, T*);                                    \
  template void x86MatrixAddVectorByCol<T>(int, unsigned long, unsigned long, unsigned long, T, \
                                           const T*, T, T*);

NUMBRA_INSTANTIATE_UPDATES(float)
NUMBRA_INSTANTIATE_UPDATES(double)

}  // namespace numbra
}  // namespace ZETL
