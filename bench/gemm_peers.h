// Dense-multiply peers beyond the BLAS of openblas_peer.h, each in a
// translation unit of its own, so that no two peers' headers or exported BLAS
// names meet: C = op(A) op(B) for densely stored row-major float matrices,
// m by n, with a depth of k, either operand possibly stored transposed:
// C = alpha * op(A) * op(B) + beta * C.
#ifndef NUMBRA_BENCH_GEMM_PEERS_H
#define NUMBRA_BENCH_GEMM_PEERS_H

struct PeerProduct {
  long m, n, k;
  bool a_transposed, b_transposed;
  float alpha, beta;
};

// BLIS through its own typed interface, on one thread, on its haswell
// kernels: blis_use_haswell_kernels() must run before BLIS's first call.
void blis_use_haswell_kernels();
const char* blis_kernel_name();
void blis_sgemm(const PeerProduct& p, const float* a, const float* b, float* c);

// Eigen's matrix product, compiled for AVX2 and FMA like the library's
// FMA kernels.
void eigen_sgemm(const PeerProduct& p, const float* a, const float* b, float* c);

// oneDNN's sgemm, limited to AVX2, on one thread (the benchmark's
// environment sets OMP_NUM_THREADS).
const char* onednn_kernel_name();
void onednn_sgemm(const PeerProduct& p, const float* a, const float* b, float* c);

#endif  // NUMBRA_BENCH_GEMM_PEERS_H
