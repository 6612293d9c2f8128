// Eigen's element-wise array expressions, the peer of the vector operators,
// built with -mavx2 -mfma in a translation unit of their own
// (vector_peer_eigen_fma.cpp) so that Eigen runs its 8-lane AVX2 packets.
#ifndef NUMBRA_BENCH_VECTOR_PEERS_H
#define NUMBRA_BENCH_VECTOR_PEERS_H

namespace numbra_bench {

enum class EigenOp {
  kAdd,        // z = x + y
  kSubtract,   // z = x - y
  kMul,        // z = x * y
  kDiv,        // z = x / y
  kMla,        // z += x * y
  kMls,        // z -= x * y
  kAxpy,       // z += a * x
  kAxpby,      // z = a * x + b * z
  kAxpb,       // z = a * x + b
  kAddScalar,  // z = x + a
  kMulScalar,  // z = x * a
  kSquare,     // z = x * x
  kCopy,       // z = x
  kFill,       // z = a
  kMax,        // max of x
};

template <typename T>
void eigen_vector_op(EigenOp op, long n, T a, T b, const T* x, const T* y, T* z);

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_VECTOR_PEERS_H
