// Byte sizes of the arrays of each sparse form, for the caller to allocate
// before a conversion. Sizes are unsigned long arithmetic and wrap silently.
#include "numbra.h"
#include "sparse/nonzero.h"

namespace numbra_internal {
namespace {

constexpr unsigned long kIndexBytes = sizeof(int);
constexpr unsigned long kLocalBytes = sizeof(unsigned short);
constexpr unsigned long kValueBytes = sizeof(float);

unsigned long pointerBytes(unsigned long len) { return len * kIndexBytes + 4; }

void compressed_sizes(int len, unsigned long nnz, unsigned long& ptrBytes, unsigned long& idxBytes,
                      unsigned long& valBytes) {
  ptrBytes = pointerBytes(static_cast<unsigned long>(len));
  idxBytes = nnz * kIndexBytes;
  valBytes = nnz * kValueBytes;
}

void block_sizes(const numbra_internal::BlockGrid& grid, unsigned long counts, unsigned long nnz,
                 unsigned long& blockPtrBytes, unsigned long& lenBytes, unsigned long& idxBytes,
                 unsigned long& valBytes) {
  // The block count is formed in unsigned long: mb * nb passes the range of
  // int long before the arrays it sizes pass that of the address space.
  blockPtrBytes = pointerBytes(static_cast<unsigned long>(grid.mb) * grid.nb);
  lenBytes = counts * kLocalBytes;
  idxBytes = nnz * kLocalBytes;
  valBytes = nnz * kValueBytes;
}

}  // namespace
}  // namespace numbra_internal

template <typename T>
void sparse_csr_getSize(int m, int, unsigned long nnz, unsigned long& rowPtrBytes,
                        unsigned long& colIdxBytes, unsigned long& valBytes) {
  numbra_internal::compressed_sizes(m, nnz, rowPtrBytes, colIdxBytes, valBytes);
}

template <typename T>
void sparse_ccs_getSize(int, int n, unsigned long nnz, unsigned long& colPtrBytes,
                        unsigned long& rowIdxBytes, unsigned long& valBytes) {
  numbra_internal::compressed_sizes(n, nnz, colPtrBytes, rowIdxBytes, valBytes);
}

// One count per row of each block row in BCSR (m * nb), per column of each
// block column in BCCS (n * mb).
template <typename T>
void sparse_bcsr_getSize(int m, int n, unsigned long nnz, int blk, unsigned long& blockPtrBytes,
                         unsigned long& rowLenBytes, unsigned long& colIdxBytes,
                         unsigned long& valBytes) {
  const numbra_internal::BlockGrid grid(m, n, blk);
  block_sizes(grid, static_cast<unsigned long>(m) * grid.nb, nnz, blockPtrBytes, rowLenBytes,
              colIdxBytes, valBytes);
}

template <typename T>
void sparse_bccs_getSize(int m, int n, unsigned long nnz, int blk, unsigned long& blockPtrBytes,
                         unsigned long& colLenBytes, unsigned long& rowIdxBytes,
                         unsigned long& valBytes) {
  const numbra_internal::BlockGrid grid(m, n, blk);
  block_sizes(grid, static_cast<unsigned long>(n) * grid.mb, nnz, blockPtrBytes, colLenBytes,
              rowIdxBytes, valBytes);
}

template void sparse_csr_getSize<float>(int, int, unsigned long, unsigned long&, unsigned long&,
                                        unsigned long&);
template void sparse_ccs_getSize<float>(int, int, unsigned long, unsigned long&, unsigned long&,
                                        unsigned long&);
template void sparse_bcsr_getSize<float>(int, int, unsigned long, int, unsigned long&,
                                         unsigned long&, unsigned long&, unsigned long&);
template void sparse_bccs_getSize<float>(int, int, unsigned long, int, unsigned long&,
                                         unsigned long&, unsigned long&, unsigned long&);

namespace ZETL {
namespace numbra {

template <typename T>
void sparse_matrix_dense2csr_getSize(int m, int n, const T* a, unsigned long& nnz,
                                     unsigned long& rowPtrBytes, unsigned long& colIdxBytes,
                                     unsigned long& valBytes) {
  nnz = sparse_denseGetNonZeros(m, n, a);
  sparse_csr_getSize<T>(m, n, nnz, rowPtrBytes, colIdxBytes, valBytes);
}

template <typename T>
void sparse_matrix_dense2ccs_getSize(int m, int n, const T* a, unsigned long& nnz,
                                     unsigned long& colPtrBytes, unsigned long& rowIdxBytes,
                                     unsigned long& valBytes) {
  nnz = sparse_denseGetNonZeros(m, n, a);
  sparse_ccs_getSize<T>(m, n, nnz, colPtrBytes, rowIdxBytes, valBytes);
}

template <typename T>
void sparse_matrix_dense2bcsr_getSize(int m, int n, const T* a, int blk, unsigned long& nnz,
                                      unsigned long& blockPtrBytes, unsigned long& rowLenBytes,
                                      unsigned long& colIdxBytes, unsigned long& valBytes) {
  nnz = sparse_denseGetNonZeros(m, n, a);
  sparse_bcsr_getSize<T>(m, n, nnz, blk, blockPtrBytes, rowLenBytes, colIdxBytes, valBytes);
}

template <typename T>
void sparse_matrix_dense2bccs_getSize(int m, int n, const float* a, int blk, unsigned long& nnz,
                                      unsigned long& blockPtrBytes, unsigned long& colLenBytes,
                                      unsigned long& rowIdxBytes, unsigned long& valBytes) {
  nnz = sparse_denseGetNonZeros(m, n, a);
  sparse_bccs_getSize<T>(m, n, nnz, blk, blockPtrBytes, colLenBytes, rowIdxBytes, valBytes);
}

template <typename T>
void sparse_matrix_coo2csr_getSize(int m, int n, unsigned long nnz, unsigned long& rowPtrBytes,
                                   unsigned long& colIdxBytes, unsigned long& valBytes) {
  sparse_csr_getSize<T>(m, n, nnz, rowPtrBytes, colIdxBytes, valBytes);
}

// Sizes the pointer array from m, as for CSR: a caller with n > m allocates
// the n + 1 column pointers by itself.
template <typename T>
void sparse_matrix_coo2ccs_getSize(int m, int n, unsigned long nnz, unsigned long& colPtrBytes,
                                   unsigned long& rowIdxBytes, unsigned long& valBytes) {
  sparse_csr_getSize<T>(m, n, nnz, colPtrBytes, rowIdxBytes, valBytes);
}

template <typename T>
void sparse_matrix_coo2bcsr_getSize(int m, int n, unsigned long nnz, int blk,
                                    unsigned long& blockPtrBytes, unsigned long& rowLenBytes,
                                    unsigned long& colIdxBytes, unsigned long& valBytes) {
  sparse_bcsr_getSize<T>(m, n, nnz, blk, blockPtrBytes, rowLenBytes, colIdxBytes, valBytes);
}

template <typename T>
void sparse_matrix_coo2bccs_getSize(int m, int n, unsigned long nnz, int blk,
                                    unsigned long& blockPtrBytes, unsigned long& colLenBytes,
                                    unsigned long& rowIdxBytes, unsigned long& valBytes) {
  sparse_bccs_getSize<T>(m, n, nnz, blk, blockPtrBytes, colLenBytes, rowIdxBytes, valBytes);
}

using Size = unsigned long;
template void sparse_matrix_dense2csr_getSize<float>(int, int, const float*, Size&, Size&, Size&,
                                                     Size&);
template void sparse_matrix_dense2ccs_getSize<float>(int, int, const float*, Size&, Size&, Size&,
                                                     Size&);
template void sparse_matrix_dense2bcsr_getSize<float>(int, int, const float*, int, Size&, Size&,
                                                      Size&, Size&, Size&);
template void sparse_matrix_dense2bccs_getSize<float>(int, int, const float*, int, Size&, Size&,
                                                      Size&, Size&, Size&);
template void sparse_matrix_coo2csr_getSize<float>(int, int, Size, Size&, Size&, Size&);
template void sparse_matrix_coo2ccs_getSize<float>(int, int, Size, Size&, Size&, Size&);
template void sparse_matrix_coo2bcsr_getSize<float>(int, int, Size, int, Size&, Size&, Size&,
                                                    Size&);
template void sparse_matrix_coo2bccs_getSize<float>(int, int, Size, int, Size&, Size&, Size&,
                                                    Size&);

}  // namespace numbra
}  // namespace ZETL
