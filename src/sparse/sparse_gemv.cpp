// The general product with a CSR matrix and the sparse axpy, in float and
// double alike. Every product is rounded before its sum, and nothing is
// fused.
#include "common/call_frame.h"
#include "numbra.h"

namespace ZETL {
namespace numbra {

// Without transpose alpha scales each row's sum once; with transpose it
// scales every entry before x does, so the two round differently.
template <typename T>
void x86SparseMatrixGemv(int m, int n, int trans, T alpha, const int* rowPtr, const int* colIdx,
                         const T* val, const T* x, T beta, T* y) {
  if (trans == 0) {
    for (int i = 0; i < m; ++i) {
      T s = T(0);
      for (int e = rowPtr[i]; e < rowPtr[i + 1]; ++e) {
        const T product = val[e] * x[colIdx[e]];
        s = product + s;
      }
      const T scaled = !numbra_internal::zero_beta(beta) ? y[i] * beta : T(0);
      const T result = s * alpha;
      y[i] = result + scaled;
    }
    return;
  }
  for (int j = 0; j < n; ++j) y[j] = !numbra_internal::zero_beta(beta) ? y[j] * beta : T(0);
  for (int i = 0; i < m; ++i) {
    for (int e = rowPtr[i]; e < rowPtr[i + 1]; ++e) {
      const T scaled = val[e] * alpha;
      const T product = scaled * x[i];
      y[colIdx[e]] = product + y[colIdx[e]];
    }
  }
}

template <typename T>
void x86SparseVectorAxpy(unsigned long n, T alpha, const int* sparseIdx, const T* sparseVal, T* y) {
  for (unsigned long k = 0; k < n; ++k) {
    const T product = sparseVal[k] * alpha;
    y[sparseIdx[k]] = product + y[sparseIdx[k]];
  }
}

template void x86SparseMatrixGemv<float>(int, int, int, float, const int*, const int*, const float*,
                                         const float*, float, float*);
template void x86SparseMatrixGemv<double>(int, int, int, double, const int*, const int*,
                                          const double*, const double*, double, double*);
template void x86SparseVectorAxpy<float>(unsigned long, float, const int*, const float*, float*);
template void x86SparseVectorAxpy<double>(unsigned long, double, const int*, const double*,
                                          double*);

}  // namespace numbra
}  // namespace ZETL
