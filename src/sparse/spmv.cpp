// Entry points of the sparse matrix-vector products. Each form always runs
// its 128-bit kernel: isa, imp and nthreads are accepted and not read.
#include "numbra.h"

namespace ZETL {
namespace numbra {

template <typename T>
void x86Spmv_csr(ISA_t, IMP_t, int, int m, const int* rowPtr, const int* colIdx, const T* val,
                 const T* x, T* y) {
  x86SCSRSpmv_unroll(m, rowPtr, colIdx, val, x, y);
}

template <typename T>
void x86Spmv_bcsr(ISA_t, IMP_t, int, int m, int n, int blk, const int* blockPtr,
                  const unsigned short* rowLen, const unsigned short* colIdx, const T* val,
                  const T* x, T* y) {
  x86SBCSRSpmv_unroll(m, n, blk, blockPtr, rowLen, colIdx, val, x, y);
}

template <typename T>
void x86Spmv_ccs(ISA_t, IMP_t, int, int m, int n, const int* colPtr, const int* rowIdx,
                 const T* val, const T* x, T* y) {
  x86SCCSSpmv_unroll(m, n, colPtr, rowIdx, val, x, y);
}

template <typename T>
void x86Spmv_bccs(ISA_t, IMP_t, int, int m, int n, int blk, const int* blockPtr,
                  const unsigned short* colLen, const unsigned short* rowIdx, const T* val,
                  const T* x, T* y) {
  x86SBCCSSpmv_unroll(m, n, blk, blockPtr, colLen, rowIdx, val, x, y);
}

template void x86Spmv_csr<float>(ISA_t, IMP_t, int, int, const int*, const int*, const float*,
                                 const float*, float*);
template void x86Spmv_bcsr<float>(ISA_t, IMP_t, int, int, int, int, const int*,
                                  const unsigned short*, const unsigned short*, const float*,
                                  const float*, float*);
template void x86Spmv_ccs<float>(ISA_t, IMP_t, int, int, int, const int*, const int*, const float*,
                                 const float*, float*);
template void x86Spmv_bccs<float>(ISA_t, IMP_t, int, int, int, int, const int*,
                                  const unsigned short*, const unsigned short*, const float*,
                                  const float*, float*);

}  // namespace numbra
}  // namespace ZETL
