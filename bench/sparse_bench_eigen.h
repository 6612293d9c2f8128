// The peer of the CSR product: Eigen's row-major sparse matrix times a dense
// vector, over the caller's CSR arrays without a copy. Built in its own
// translation unit, at the project's baseline flags.
#ifndef NUMBRA_BENCH_SPARSE_BENCH_EIGEN_H
#define NUMBRA_BENCH_SPARSE_BENCH_EIGEN_H

void eigen_csr_times_vector(int m, int n, int nnz, const int* rowPtr, const int* colIdx,
                            const float* val, const float* x, float* y);

#endif  // NUMBRA_BENCH_SPARSE_BENCH_EIGEN_H
