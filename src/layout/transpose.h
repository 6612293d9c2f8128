// The blocked transpose, shared by the matrix-layout operator and the GEMM
// entry points that bring transposed operands into shape.
#ifndef NUMBRA_LAYOUT_TRANSPOSE_H
#define NUMBRA_LAYOUT_TRANSPOSE_H

namespace numbra_internal {

// b[j * ldb + i] = a[i * lda + j] for i < m and j < n, bit for bit; nothing
// else of b is written. a and b must not overlap.
template <typename T>
void transposeMatrix(int m, int n, int lda, const T* a, int ldb, T* b);

}  // namespace numbra_internal

#endif  // NUMBRA_LAYOUT_TRANSPOSE_H
