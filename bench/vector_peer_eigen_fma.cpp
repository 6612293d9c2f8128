#include <benchmark/benchmark.h>

#include <Eigen/Core>

#include "vector_peers.h"

namespace numbra_bench {

template <typename T>
void eigen_vector_op(EigenOp op, long n, T a, T b, const T* x, const T* y, T* z) {
  using Array = Eigen::Array<T, Eigen::Dynamic, 1>;
  const Eigen::Map<const Array> xa(x, n), ya(y, n);
  Eigen::Map<Array> za(z, n);
  switch (op) {
    case EigenOp::kAdd:
      za = xa + ya;
      break;
    case EigenOp::kSubtract:
      za = xa - ya;
      break;
    case EigenOp::kMul:
      za = xa * ya;
      break;
    case EigenOp::kDiv:
      za = xa / ya;
      break;
    case EigenOp::kMla:
      za += xa * ya;
      break;
    case EigenOp::kMls:
      za -= xa * ya;
      break;
    case EigenOp::kAxpy:
      za += a * xa;
      break;
    case EigenOp::kAxpby:
      za = a * xa + b * za;
      break;
    case EigenOp::kAxpb:
      za = a * xa + b;
      break;
    case EigenOp::kAddScalar:
      za = xa + a;
      break;
    case EigenOp::kMulScalar:
      za = xa * a;
      break;
    case EigenOp::kSquare:
      za = xa.square();
      break;
    case EigenOp::kCopy:
      za = xa;
      break;
    case EigenOp::kFill:
      za.setConstant(a);
      break;
    case EigenOp::kMax:
      benchmark::DoNotOptimize(xa.maxCoeff());
      break;
  }
}

template void eigen_vector_op<float>(EigenOp, long, float, float, const float*, const float*,
                                     float*);
template void eigen_vector_op<double>(EigenOp, long, double, double, const double*, const double*,
                                      double*);

}  // namespace numbra_bench
