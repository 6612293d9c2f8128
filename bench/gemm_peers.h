// Dense-multiply peers beyond the BLAS of openblas_peer.h, each in a
// translation unit of its own, so that no two peers' headers or exported BLAS
// names meet: C = A B for square row-major float matrices of `size`.
#ifndef NUMBRA_BENCH_GEMM_PEERS_H
#define NUMBRA_BENCH_GEMM_PEERS_H

// BLIS through its own typed interface, on one thread.
void blis_sgemm(long size, const float* a, const float* b, float* c);

// Eigen's matrix product, compiled for AVX2 and FMA like the library's
// FMA kernels.
void eigen_sgemm(long size, const float* a, const float* b, float* c);

#endif  // NUMBRA_BENCH_GEMM_PEERS_H
