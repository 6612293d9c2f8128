// The dense walks that run on AVX2 whatever instruction set the caller
// chose: the nonzero count, and the block conversions from a dense matrix,
// which count and then fill a temporary compressed form.
#include "sparse/dense_scan_avx2.h"
#include "numbra.h"
#include "sparse/temporary_compressed.h"

template <typename T>
unsigned long sparse_denseGetNonZeros(int m, int n, const T* a) {
  if (m < 1 || n < 1) return 0;
  return numbra::count_passing<numbra::NonzeroLanes256>(a, static_cast<unsigned long>(m) * n);
}

template <typename T>
void sparse_dense2bcsr(int m, int n, const T* a, int blk, int* blockPtr, unsigned short* rowLen,
                       unsigned short* outColIdx, T* outVal) {
  const unsigned long count = sparse_denseGetNonZeros(m, n, a);
  numbra::TemporaryCompressed csr(m, count);
  numbra::fill_csr_from_dense<numbra::NonzeroLanes256>(m, n, a, csr.ptr, csr.idx, csr.val);
  sparse_csr2bcsr(m, n, count, csr.ptr, csr.idx, csr.val, blk, blockPtr, rowLen, outColIdx, outVal);
  csr.release();
}

template <typename T>
void sparse_dense2bccs(int m, int n, const T* a, int blk, int* blockPtr, unsigned short* colLen,
                       unsigned short* outRowIdx, T* outVal) {
  const unsigned long count = sparse_denseGetNonZeros(m, n, a);
  numbra::TemporaryCompressed ccs(n, count);
  numbra::fill_ccs_from_dense<numbra::NonzeroLanes256>(m, n, a, ccs.ptr, ccs.idx, ccs.val);
  sparse_ccs2bccs(m, n, count, ccs.ptr, ccs.idx, ccs.val, blk, blockPtr, colLen, outRowIdx, outVal);
  ccs.release();
}

template unsigned long sparse_denseGetNonZeros<float>(int, int, const float*);
template void sparse_dense2bcsr<float>(int, int, const float*, int, int*, unsigned short*,
                                       unsigned short*, float*);
template void sparse_dense2bccs<float>(int, int, const float*, int, int*, unsigned short*,
                                       unsigned short*, float*);
