// Conversions to the block forms BCSR and BCCS. Both walk a compressed
// source twice: once to count the entries of each block, once to place each
// entry directly behind those of its block placed before it. Blocks are
// numbered row-major in both forms.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "numbra.h"
#include "sparse/nonzero.h"
#include "sparse/temporary_compressed.h"

namespace numbra_internal {
namespace {

// Division by blk of the coordinates of a form, which are never negative:
// the high half of a product with the 64-bit reciprocal, exact for every
// 32-bit dividend, in place of a hardware division per entry.
class BlockDivider {
 public:
  explicit BlockDivider(int blk)
      : reciprocal_(blk > 1 ? ~0ull / static_cast<unsigned>(blk) + 1 : 0) {}
  int operator()(int v) const {
    if (reciprocal_ == 0) return v;
    const unsigned __int128 product =
        static_cast<unsigned __int128>(reciprocal_) * static_cast<unsigned>(v);
    return static_cast<int>(product >> 64);
  }

 private:
  unsigned long long reciprocal_;
};

// The compressed source runs along `outer` lines (rows for BCSR, columns for
// BCCS); its entries carry the `inner` coordinate. Each block keeps one count
// per outer line it covers, so blockPtr advances by the block's extent along
// the outer direction.
template <bool kByColumns>
void compress_blocks(int m, int n, const int* ptr, const int* idx, const float* val, int blk,
                     int* blockPtr, unsigned short* lineLen, unsigned short* outIdx,
                     float* outVal) {
  const numbra_internal::BlockGrid grid(m, n, blk);
  const unsigned long nblocks = grid.blocks();
  const int outerCount = kByColumns ? n : m;
  const BlockDivider blockIndex(blk);
  blockPtr[0] = 0;

  auto blockOf = [&](long outerBlock, long innerBlock) {
    return kByColumns ? innerBlock * grid.nb + outerBlock : outerBlock * grid.nb + innerBlock;
  };

  int* blockCount = static_cast<int*>(std::calloc(nblocks, sizeof(int)));
  int* blockFill = static_cast<int*>(std::calloc(nblocks, sizeof(int)));
  std::int64_t* blockStart =
      static_cast<std::int64_t*>(std::malloc((nblocks + 1) * sizeof(std::int64_t)));

  for (int o = 0; o < outerCount; ++o) {
    for (int e = ptr[o]; e < ptr[o + 1]; ++e) ++blockCount[blockOf(o / blk, blockIndex(idx[e]))];
  }

  if (grid.mb > 0 && grid.nb > 0) {
    for (int bi = 0; bi < grid.mb; ++bi) {
      for (int bj = 0; bj < grid.nb; ++bj) {
        const long b = static_cast<long>(bi) * grid.nb + bj;
        const int extent = kByColumns ? std::min(n - bj * blk, blk) : std::min(m - bi * blk, blk);
        blockPtr[b + 1] = blockPtr[b] + extent;
      }
    }
  }
  numbra_internal::clear_bytes(lineLen, static_cast<std::size_t>(blockPtr[nblocks]) * 2);

  blockStart[0] = 0;
  for (unsigned long b = 1; b < nblocks; ++b) blockStart[b] = blockStart[b - 1] + blockCount[b - 1];

  for (int o = 0; o < outerCount; ++o) {
    const int outerBlock = o / blk;
    const int local = o - outerBlock * blk;
    for (int e = ptr[o]; e < ptr[o + 1]; ++e) {
      const int inner = idx[e];
      const int innerBlock = blockIndex(inner);
      const long b = blockOf(outerBlock, innerBlock);
      const std::int64_t p = blockStart[b] + blockFill[b];
      ++lineLen[blockPtr[b] + local];
      outIdx[p] = static_cast<unsigned short>(inner - innerBlock * blk);
      outVal[p] = val[e];
      ++blockFill[b];
    }
  }

  std::free(blockCount);
  std::free(blockFill);
  std::free(blockStart);
}

// COO to a block form by way of a temporary CSR (or CCS) form.
template <bool kByColumns>
void coo_to_blocks(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                   const float* cooVal, int blk, int* blockPtr, unsigned short* lineLen,
                   unsigned short* outIdx, float* outVal) {
  numbra_internal::TemporaryCompressed c(kByColumns ? n : m, nnz);
  if (kByColumns) {
    sparse_coo2ccs(m, n, nnz, cooRow, cooCol, cooVal, c.ptr, c.idx, c.val);
  } else {
    sparse_coo2csr(m, n, nnz, cooRow, cooCol, cooVal, c.ptr, c.idx, c.val);
  }
  compress_blocks<kByColumns>(m, n, c.ptr, c.idx, c.val, blk, blockPtr, lineLen, outIdx, outVal);
  c.release();
}

}  // namespace
}  // namespace numbra_internal

template <typename T>
void sparse_csr2bcsr(int m, int n, unsigned long, int* rowPtr, int* colIdx, T* val, int blk,
                     int* blockPtr, unsigned short* rowLen, unsigned short* outColIdx, T* outVal) {
  numbra_internal::compress_blocks<false>(m, n, rowPtr, colIdx, val, blk, blockPtr, rowLen,
                                          outColIdx, outVal);
}

template <typename T>
void sparse_ccs2bccs(int m, int n, unsigned long, int* colPtr, int* rowIdx, T* val, int blk,
                     int* blockPtr, unsigned short* colLen, unsigned short* outRowIdx, T* outVal) {
  numbra_internal::compress_blocks<true>(m, n, colPtr, rowIdx, val, blk, blockPtr, colLen,
                                         outRowIdx, outVal);
}

template <typename T>
void sparse_coo2bcsr(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                     const T* cooVal, int blk, int* blockPtr, unsigned short* rowLen,
                     unsigned short* outColIdx, T* outVal) {
  numbra_internal::coo_to_blocks<false>(m, n, nnz, cooRow, cooCol, cooVal, blk, blockPtr, rowLen,
                                        outColIdx, outVal);
}

template <typename T>
void sparse_coo2bccs(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                     const T* cooVal, int blk, int* blockPtr, unsigned short* colLen,
                     unsigned short* outRowIdx, T* outVal) {
  numbra_internal::coo_to_blocks<true>(m, n, nnz, cooRow, cooCol, cooVal, blk, blockPtr, colLen,
                                       outRowIdx, outVal);
}

template void sparse_csr2bcsr<float>(int, int, unsigned long, int*, int*, float*, int, int*,
                                     unsigned short*, unsigned short*, float*);
template void sparse_ccs2bccs<float>(int, int, unsigned long, int*, int*, float*, int, int*,
                                     unsigned short*, unsigned short*, float*);
template void sparse_coo2bcsr<float>(int, int, unsigned long, const int*, const int*, const float*,
                                     int, int*, unsigned short*, unsigned short*, float*);
template void sparse_coo2bccs<float>(int, int, unsigned long, const int*, const int*, const float*,
                                     int, int*, unsigned short*, unsigned short*, float*);

namespace ZETL {
namespace numbra {

template <typename T>
void sparse_matrix_dense2bcsr(int m, int n, const T* a, int blk, int* blockPtr,
                              unsigned short* rowLen, unsigned short* outColIdx, T* outVal) {
  sparse_dense2bcsr(m, n, a, blk, blockPtr, rowLen, outColIdx, outVal);
}

template <typename T>
void sparse_matrix_dense2bccs(int m, int n, const T* a, int blk, int* blockPtr,
                              unsigned short* colLen, unsigned short* outRowIdx, T* outVal) {
  sparse_dense2bccs(m, n, a, blk, blockPtr, colLen, outRowIdx, outVal);
}

template <typename T>
void sparse_matrix_coo2bcsr(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                            const T* cooVal, int blk, int* blockPtr, unsigned short* rowLen,
                            unsigned short* outColIdx, T* outVal) {
  sparse_coo2bcsr(m, n, nnz, cooRow, cooCol, cooVal, blk, blockPtr, rowLen, outColIdx, outVal);
}

template <typename T>
void sparse_matrix_coo2bccs(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                            const T* cooVal, int blk, int* blockPtr, unsigned short* colLen,
                            unsigned short* outRowIdx, T* outVal) {
  sparse_coo2bccs(m, n, nnz, cooRow, cooCol, cooVal, blk, blockPtr, colLen, outRowIdx, outVal);
}

template void sparse_matrix_dense2bcsr<float>(int, int, const float*, int, int*, unsigned short*,
                                              unsigned short*, float*);
template void sparse_matrix_dense2bccs<float>(int, int, const float*, int, int*, unsigned short*,
                                              unsigned short*, float*);
template void sparse_matrix_coo2bcsr<float>(int, int, unsigned long, const int*, const int*,
                                            const float*, int, int*, unsigned short*,
                                            unsigned short*, float*);
template void sparse_matrix_coo2bccs<float>(int, int, unsigned long, const int*, const int*,
                                            const float*, int, int*, unsigned short*,
                                            unsigned short*, float*);

}  // namespace numbra
}  // namespace ZETL
