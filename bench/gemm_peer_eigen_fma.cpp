#include <Eigen/Dense>

#include "gemm_peers.h"

void eigen_sgemm(long m, long n, long k, bool a_transposed, bool b_transposed, const float* a,
                 const float* b, float* c) {
  using Matrix = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  const Eigen::Map<const Matrix> am(a, a_transposed ? k : m, a_transposed ? m : k);
  const Eigen::Map<const Matrix> bm(b, b_transposed ? n : k, b_transposed ? k : n);
  Eigen::Map<Matrix> cm(c, m, n);
  if (a_transposed && b_transposed) {
    cm.noalias() = am.transpose() * bm.transpose();
  } else if (a_transposed) {
    cm.noalias() = am.transpose() * bm;
  } else if (b_transposed) {
    cm.noalias() = am * bm.transpose();
  } else {
    cm.noalias() = am * bm;
  }
}
