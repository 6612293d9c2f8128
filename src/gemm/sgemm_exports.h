// The exported names of one instruction set's GEMM family. Each source
// sgemm_<isa>.cpp defines its MulAdd step and expands this macro once, so the
// fma and avx twins are the same code but for that step.
#ifndef NUMBRA_GEMM_SGEMM_EXPORTS_H
#define NUMBRA_GEMM_SGEMM_EXPORTS_H

#include "gemm/sgemm_nt.h"
#include "gemm/sgemm_schedule.h"
#include "numbra.h"

#define NUMBRA_SGEMM_KERNEL_N(isa, width, MulAdd)                                  \
  void sgemm_kernel_##isa##_n##width(float* a, float* b, float* c, int m, int k) { \
    numbra_internal::packed_tile_kernel<width, MulAdd>(a, k, b, c, m, k);          \
  }

#define NUMBRA_DEFINE_SGEMM_FAMILY(isa, MulAdd)                                                   \
  extern "C" {                                                                                    \
  void sgemm_kernel_##isa##_k48_n48(float* a, float* b, float* c, int m) {                        \
    numbra_internal::packed_tile_kernel<48, MulAdd>(a, 48, b, c, m, 48);                          \
  }                                                                                               \
  NUMBRA_SGEMM_KERNEL_N(isa, 48, MulAdd)                                                          \
  NUMBRA_SGEMM_KERNEL_N(isa, 40, MulAdd)                                                          \
  NUMBRA_SGEMM_KERNEL_N(isa, 32, MulAdd)                                                          \
  NUMBRA_SGEMM_KERNEL_N(isa, 24, MulAdd)                                                          \
  NUMBRA_SGEMM_KERNEL_N(isa, 16, MulAdd)                                                          \
  NUMBRA_SGEMM_KERNEL_N(isa, 8, MulAdd)                                                           \
  void x86_blas_sgemm_nn_##isa(int m, int n, int k, float alpha, float* a, int lda, float* b,     \
                               int ldb, float* ws, float beta, float* c, int ldc) {               \
    numbra_internal::sgemm_nn<MulAdd>(m, n, k, alpha, a, lda, b, ldb, ws, beta, c, ldc);          \
  }                                                                                               \
  void sgemm_nt_##isa(int m, int n, int k, float alpha, int lda, const float* a, int pack_stride, \
                      float* scratch, int ldb, const float* b, float beta, int ldc, float* c) {   \
    numbra_internal::sgemm_nt<MulAdd>(m, n, k, alpha, lda, a, pack_stride, scratch, ldb, b, beta, \
                                      ldc, c);                                                    \
  }                                                                                               \
  }

#endif  // NUMBRA_GEMM_SGEMM_EXPORTS_H
