// The GEMV kernels with a separate multiply and add. Their four-row blocks and
// vector steps always leave something over: one to four rows for the
// single-row stage, and at least one column for the scalar tail.
#include "gemv/sgemv_n.h"
#include "gemv/sgemv_t.h"
#include "numbra.h"

extern "C" {

void x86_blas_sgemv_n_avx(int m, int n, float alpha, const float* a, const float* x, float beta,
                          float* y) {
  numbra_internal::sgemv_n<false>(
      m, n, alpha, a, x, beta, y,
      {numbra_internal::blocks_leaving_one(m), numbra_internal::steps_leaving_one(n),
       numbra_internal::steps_leaving_one(n)});
}

void x86_blas_sgemv_t_avx(int m, int n, float alpha, const float* a, const float* x, float beta,
                          float* y) {
  numbra_internal::sgemv_t<false>(
      m, n, alpha, a, x, beta, y,
      {numbra_internal::blocks_leaving_one(m), numbra_internal::steps_leaving_one(n)});
}

}  // extern "C"
