// c = alpha * op(a) + beta * op(b), element by element in row-major order.
// Each element is two rounded products and one rounded sum; a zero beta
// (either sign) leaves b unread and adds +0 in its place, so a -0 product
// comes out as +0.
#include "common/call_frame.h"
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

template <typename T>
void scaled_sum(unsigned long m, unsigned long n, T alpha, Operand<T> a, T beta, Operand<T> b,
                unsigned long ldc, T* c) {
  const bool beta_is_zero = zero_beta(beta);
  const bool rows_contiguous = a.col_step == 1 && (beta_is_zero || b.col_step == 1);
  if (rows_contiguous && a.row_step == n && (beta_is_zero || b.row_step == n) && ldc == n) {
    // Packed rows follow each other, so the ascending walk over all m * n
    // elements is the row-by-row walk.
    n *= m;
    m = 1;
  }
  for (unsigned long i = 0; i < m; ++i) {
    T* ci = c + i * ldc;
    if (rows_contiguous && beta_is_zero) {
      map_elements(
          n, ci, [alpha](auto x) { return x * alpha + T(0); }, a.row(i));
    } else if (rows_contiguous) {
      map_elements(
          n, ci,
          [alpha, beta](auto x, auto y) {
            const auto t = x * alpha;
            return t + y * beta;
          },
          a.row(i), b.row(i));
    } else {
      for (unsigned long j = 0; j < n; ++j) {
        const T t = a.at(i, j) * alpha;
        const T u = beta_is_zero ? T(0) : b.at(i, j) * beta;
        ci[j] = t + u;
      }
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
