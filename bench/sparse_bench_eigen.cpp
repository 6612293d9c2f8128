#include "sparse_bench_eigen.h"

#include <Eigen/Dense>
#include <Eigen/SparseCore>

void eigen_csr_times_vector(int m, int n, int nnz, const int* rowPtr, const int* colIdx,
                            const float* val, const float* x, float* y) {
  const Eigen::Map<const Eigen::SparseMatrix<float, Eigen::RowMajor, int>> a(m, n, nnz, rowPtr,
                                                                             colIdx, val);
  const Eigen::Map<const Eigen::VectorXf> xv(x, n);
  Eigen::Map<Eigen::VectorXf> yv(y, m);
  yv.noalias() = a * xv;
}
