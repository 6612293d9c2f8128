// GEMM entry points: C = alpha * op(A) * op(B) + beta * C. The float forms
// bring transposed operands into row-major form on the heap and run the
// packed block driver of the chosen instruction set, or, for a product of at
// most 16 rows with a transposed B, the skinny kernels. The double forms are
// one plain loop nest.
#include <cstdlib>
#include <type_traits>

#include "common/call_frame.h"
#include "gemm/sgemm_tiles.h"
#include "layout/transpose.h"
#include "numbra.h"

namespace numbra_internal {
namespace {

void sgemm_nn(ISA_t isa, unsigned long m, unsigned long n, unsigned long k, float alpha,
              const float* a, unsigned long lda, const float* b, unsigned long ldb, float* ws,
              float beta, float* c, unsigned long ldc) {
  const auto driver = for_isa(isa, x86_blas_sgemm_nn_fma, x86_blas_sgemm_nn_avx);
  if (driver == nullptr) return;
  driver(int(m), int(n), int(k), alpha, const_cast<float*>(a), int(lda), const_cast<float*>(b),
         int(ldb), ws, beta, c, int(ldc));
}

float* allocate_floats(unsigned long count) {
  return static_cast<float*>(std::malloc(count * sizeof(float)));
}

// The rows by cols transpose of src (cols rows of stride ld), copied to the
// heap row-major; null when the allocation fails.
float* transposed_copy(unsigned long rows, unsigned long cols, unsigned long ld, const float* src) {
  float* copy = allocate_floats(rows * cols);
  if (copy != nullptr) transposeMatrix<float>(int(cols), int(rows), int(ld), src, int(cols), copy);
  return copy;
}

// The double product keeps its running sum in a float: each step is formed
// and added in double and the sum rounded to float again. Only the operand
// access differs between the four forms.
template <bool kTransposedA, bool kTransposedB>
void dgemm_float_sum(unsigned long m, unsigned long n, unsigned long k, double alpha,
                     unsigned long lda, const double* a, unsigned long ldb, const double* b,
                     double beta, unsigned long ldc, double* c) {
  if (m == 0) return;
  for (unsigned long i = 0; i < m; ++i) {
    for (unsigned long j = 0; j < n; ++j) {
      float s = 0.0f;
      for (unsigned long l = 0; l < k; ++l) {
        const double a_il = kTransposedA ? a[l * lda + i] : a[i * lda + l];
        const double b_lj = kTransposedB ? b[j * ldb + l] : b[l * ldb + j];
        const double p = a_il * b_lj;
        s = static_cast<float>(static_cast<double>(s) + p);
      }
      double& out = c[i * ldc + j];
      const double t = !numbra_internal::zero_beta(beta) ? out * beta : 0.0;
      const double scaled = static_cast<double>(s) * alpha;
      out = scaled + t;
    }
  }
}

template <typename T>
constexpr bool kSingle = std::is_same_v<T, float>;

// Workspace of one worker: three regions of a 336 by 336 block. The double
// figure is reported for callers that size by it; no double form uses it.
template <typename T>
unsigned long workspace_bytes(int nthreads) {
  const unsigned long per_worker = numbra_internal::kWorkspaceBytes / sizeof(float) * sizeof(T);
  return nthreads > 0 ? static_cast<unsigned long>(nthreads) * per_worker : per_worker;
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

using numbra_internal::allocate_floats;
using numbra_internal::dgemm_float_sum;
using numbra_internal::for_isa;
using numbra_internal::kSingle;
using numbra_internal::sgemm_nn;
using numbra_internal::transposed_copy;
using numbra_internal::transposeMatrix;
using numbra_internal::workspace_bytes;

template <typename T>
void x86Gemm_nn(ISA_t isa, IMP_t, int, unsigned long m, unsigned long n, unsigned long k, T alpha,
                unsigned long lda, const T* a, unsigned long ldb, const T* b, T* ws, T beta,
                unsigned long ldc, T* c) {
  if constexpr (kSingle<T>) {
    sgemm_nn(isa, m, n, k, alpha, a, lda, b, ldb, ws, beta, c, ldc);
  } else {
    dgemm_float_sum<false, false>(m, n, k, alpha, lda, a, ldb, b, beta, ldc, c);
  }
}

template <typename T>
void x86Gemm_tn(ISA_t isa, IMP_t, int, unsigned long m, unsigned long n, unsigned long k, T alpha,
                unsigned long lda, const T* a, unsigned long ldb, const T* b, T* ws, T beta,
                unsigned long ldc, T* c) {
  if constexpr (kSingle<T>) {
    // Without the copy the driver still runs, with a null A.
    float* a_rows = transposed_copy(m, k, lda, a);
    sgemm_nn(isa, m, n, k, alpha, a_rows, k, b, ldb, ws, beta, c, ldc);
    std::free(a_rows);
  } else {
    dgemm_float_sum<true, false>(m, n, k, alpha, lda, a, ldb, b, beta, ldc, c);
  }
}

template <typename T>
void x86Gemm_nt(ISA_t isa, IMP_t, int, unsigned long m, unsigned long n, unsigned long k, T alpha,
                unsigned long lda, const T* a, unsigned long ldb, const T* b, T* ws, T beta,
                unsigned long ldc, T* c) {
  if constexpr (kSingle<T>) {
    if (m > 16) {
      // Without the copy the driver still runs, with a null B.
      float* b_rows = transposed_copy(k, n, ldb, b);
      sgemm_nn(isa, m, n, k, alpha, a, lda, b_rows, n, ws, beta, c, ldc);
      std::free(b_rows);
    } else {
      // One panel of 32 floats per 8 columns of depth, and one more; the
      // kernels run whatever the allocation gave.
      constexpr int kPanelStride = 32;
      float* scratch = static_cast<float*>(std::malloc((k >> 3 << 7) + 128));
      const auto skinny = for_isa(isa, sgemm_nt_fma, sgemm_nt_avx);
      if (skinny != nullptr) {
        skinny(int(m), int(n), int(k), alpha, int(lda), a, kPanelStride, scratch, int(ldb), b, beta,
               int(ldc), c);
      }
      std::free(scratch);
    }
  } else {
    dgemm_float_sum<false, true>(m, n, k, alpha, lda, a, ldb, b, beta, ldc, c);
  }
}

template <typename T>
void x86Gemm_tt(ISA_t isa, IMP_t, int, unsigned long m, unsigned long n, unsigned long k, T alpha,
                unsigned long lda, const T* a, unsigned long ldb, const T* b, T* ws, T beta,
                unsigned long ldc, T* c) {
  if constexpr (kSingle<T>) {
    float* a_rows = allocate_floats(m * k);
    float* b_rows = allocate_floats(n * k);
    // If either copy failed, C stays as it was and the other copy is not
    // given back.
    if (a_rows == nullptr || b_rows == nullptr) return;
    transposeMatrix<float>(int(k), int(m), int(lda), a, int(k), a_rows);
    transposeMatrix<float>(int(n), int(k), int(ldb), b, int(n), b_rows);
    sgemm_nn(isa, m, n, k, alpha, a_rows, k, b_rows, n, ws, beta, c, ldc);
    std::free(a_rows);
    std::free(b_rows);
  } else {
    dgemm_float_sum<true, true>(m, n, k, alpha, lda, a, ldb, b, beta, ldc, c);
  }
}

template <typename T>
unsigned long x86GemmNNGetSize(int nthreads, unsigned long, unsigned long, unsigned long,
                               unsigned long, unsigned long, unsigned long) {
  return workspace_bytes<T>(nthreads);
}
template <typename T>
unsigned long x86GemmNTGetSize(int nthreads, unsigned long, unsigned long, unsigned long,
                               unsigned long, unsigned long, unsigned long) {
  return workspace_bytes<T>(nthreads);
}
template <typename T>
unsigned long x86GemmTNGetSize(int nthreads, unsigned long, unsigned long, unsigned long,
                               unsigned long, unsigned long, unsigned long) {
  return workspace_bytes<T>(nthreads);
}
template <typename T>
unsigned long x86GemmTTGetSize(int nthreads, unsigned long, unsigned long, unsigned long,
                               unsigned long, unsigned long, unsigned long) {
  return workspace_bytes<T>(nthreads);
}

#define NUMBRA_INSTANTIATE_GEMM(T)                                                               \
  template void x86Gemm_nn<T>(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, T, \
                              unsigned long, const T*, unsigned long, const T*, T*, T,           \
                              unsigned long, T*);                                                \
  template void x86Gemm_tn<T>(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, T, \
                              unsigned long, const T*, unsigned long, const T*, T*, T,           \
                              unsigned long, T*);                                                \
  template void x86Gemm_nt<T>(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, T, \
                              unsigned long, const T*, unsigned long, const T*, T*, T,           \
                              unsigned long, T*);                                                \
  template void x86Gemm_tt<T>(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, T, \
                              unsigned long, const T*, unsigned long, const T*, T*, T,           \
                              unsigned long, T*);                                                \
  template unsigned long x86GemmNNGetSize<T>(int, unsigned long, unsigned long, unsigned long,   \
                                             unsigned long, unsigned long, unsigned long);       \
  template unsigned long x86GemmNTGetSize<T>(int, unsigned long, unsigned long, unsigned long,   \
                                             unsigned long, unsigned long, unsigned long);       \
  template unsigned long x86GemmTNGetSize<T>(int, unsigned long, unsigned long, unsigned long,   \
                                             unsigned long, unsigned long, unsigned long);       \
  template unsigned long x86GemmTTGetSize<T>(int, unsigned long, unsigned long, unsigned long,   \
                                             unsigned long, unsigned long, unsigned long);

NUMBRA_INSTANTIATE_GEMM(float)
NUMBRA_INSTANTIATE_GEMM(double)

}  // namespace numbra
}  // namespace ZETL
