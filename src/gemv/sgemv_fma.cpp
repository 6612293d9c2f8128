// The GEMV kernels with fused vector steps. Their four-row blocks and vector
// steps run while a full block or step fits, except that a row on its own in
// the dot-product form always leaves at least one column to the scalar tail.
#include "gemv/sgemv_n.h"
#include "gemv/sgemv_t.h"
#include "numbra.h"

extern "C" {

void x86_blas_sgemv_n_fma(int m, int n, float alpha, const float* a, const float* x, float beta,
                          float* y) {
  numbra_internal::sgemv_n<true>(
      m, n, alpha, a, x, beta, y,
      {numbra_internal::blocks_while_full(m), numbra_internal::steps_while_full(n),
       numbra_internal::steps_leaving_one(n)});
}

void x86_blas_sgemv_t_fma(int m, int n, float alpha, const float* a, const float* x, float beta,
                          float* y) {
  numbra_internal::sgemv_t<true>(
      m, n, alpha, a, x, beta, y,
      {numbra_internal::blocks_while_full(m), numbra_internal::steps_while_full(n)});
}

}  // extern "C"
