#include <Eigen/Dense>

#include "gemm_peers.h"

void eigen_sgemm(const PeerProduct& p, const float* a, const float* b, float* c) {
  using Matrix = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  const Eigen::Map<const Matrix> am(a, p.a_transposed ? p.k : p.m, p.a_transposed ? p.m : p.k);
  const Eigen::Map<const Matrix> bm(b, p.b_transposed ? p.n : p.k, p.b_transposed ? p.k : p.n);
  Eigen::Map<Matrix> cm(c, p.m, p.n);
  if (p.beta != 0.0f) {
    cm *= p.beta;
  } else {
    cm.setZero();
  }
  if (p.a_transposed && p.b_transposed) {
    cm.noalias() += p.alpha * am.transpose() * bm.transpose();
  } else if (p.a_transposed) {
    cm.noalias() += p.alpha * am.transpose() * bm;
  } else if (p.b_transposed) {
    cm.noalias() += p.alpha * am * bm.transpose();
  } else {
    cm.noalias() += p.alpha * am * bm;
  }
}
