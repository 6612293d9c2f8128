// The dense walks that run on AVX2 whatever instruction set the caller
// chose: the nonzero count, and the block conversions from a dense matrix,
// which count and then fill a temporary compressed form.
#include "sparse/dense_scan_avx2.h"
#include "numbra.h"
#include "sparse/temporary_compressed.h"

template <typename T>
unsigned long sparse_denseGetNonZeros(int m, int n, const T* a) {
  if (m < 1 || n < 1) return 0;
  return numbra_internal::count_passing<numbra_internal::NonzeroLanes256>(
      a, static_cast<unsigned long>(m) * n);
}

namespace numbra_internal {
namespace {

// Dense to a block form by way of a temporary CSR (or CCS) form.
template <bool kByColumns>
void dense_to_blocks(int m, int n, const float* a, int blk, int* blockPtr, unsigned short* lineLen,
                     unsigned short* outIdx, float* outVal) {
  const unsigned long count = sparse_denseGetNonZeros(m, n, a);
  numbra_internal::TemporaryCompressed c(kByColumns ? n : m, count);
  if (kByColumns) {
    numbra_internal::fill_ccs_from_dense<numbra_internal::NonzeroLanes256>(m, n, a, c.ptr, c.idx,
                                                                           c.val);
    sparse_ccs2bccs(m, n, count, c.ptr, c.idx, c.val, blk, blockPtr, lineLen, outIdx, outVal);
  } else {
    numbra_internal::fill_csr_from_dense<numbra_internal::NonzeroLanes256>(m, n, a, c.ptr, c.idx,
                                                                           c.val);
    sparse_csr2bcsr(m, n, count, c.ptr, c.idx, c.val, blk, blockPtr, lineLen, outIdx, outVal);
  }
  c.release();
}

}  // namespace
}  // namespace numbra_internal

template <typename T>
void sparse_dense2bcsr(int m, int n, const T* a, int blk, int* blockPtr, unsigned short* rowLen,
                       unsigned short* outColIdx, T* outVal) {
  numbra_internal::dense_to_blocks<false>(m, n, a, blk, blockPtr, rowLen, outColIdx, outVal);
}

template <typename T>
void sparse_dense2bccs(int m, int n, const T* a, int blk, int* blockPtr, unsigned short* colLen,
                       unsigned short* outRowIdx, T* outVal) {
  numbra_internal::dense_to_blocks<true>(m, n, a, blk, blockPtr, colLen, outRowIdx, outVal);
}

template unsigned long sparse_denseGetNonZeros<float>(int, int, const float*);
template void sparse_dense2bcsr<float>(int, int, const float*, int, int*, unsigned short*,
                                       unsigned short*, float*);
template void sparse_dense2bccs<float>(int, int, const float*, int, int*, unsigned short*,
                                       unsigned short*, float*);
