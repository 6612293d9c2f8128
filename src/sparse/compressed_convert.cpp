// Conversions to CSR and CCS. A dense source is filtered by the nonzero
// test; a COO source is stored as it stands, duplicates and zeros included,
// after a sort by rows (CSR) or by columns (CCS).
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "numbra.h"
#include "sparse/dense_fill.h"

namespace numbra_internal {
namespace {

struct coo_f {
  int row;
  int col;
  float val;
};

bool compare_rowMajor(coo_f a, coo_f b) { return a.row == b.row ? a.col < b.col : a.row < b.row; }

bool compare_colMajor(coo_f a, coo_f b) { return a.col == b.col ? a.row < b.row : a.col < b.col; }

// Sorts COO entries into the out arrays, then compresses the sorted keys
// `major` (rows for CSR) into ptr[0..len]; the other key and the values are
// copied out as they stand.
void compress_coo(int len, unsigned long nnz, const int* cooRow, const int* cooCol,
                  const float* cooVal, int order, int* ptr, int* minorIdx, float* val) {
  const std::size_t bytes = nnz * sizeof(int);
  int* sortedRow = static_cast<int*>(std::malloc(bytes));
  int* sortedCol = static_cast<int*>(std::malloc(bytes));
  float* sortedVal = static_cast<float*>(std::malloc(bytes));
  coo_sort<float>(0, 0, nnz, cooRow, cooCol, cooVal, sortedRow, sortedCol, sortedVal, order);
  const int* major = order == 0 ? sortedRow : sortedCol;
  numbra_internal::copy_bytes(minorIdx, order == 0 ? sortedCol : sortedRow, bytes);
  numbra_internal::copy_bytes(val, sortedVal, bytes);
  numbra_internal::clear_bytes(ptr, static_cast<std::size_t>(len) * sizeof(int) + sizeof(int));
  for (unsigned long e = 0; e < nnz; ++e) ++ptr[major[e] + 1];
  for (int i = 1; i <= len; ++i) ptr[i] += ptr[i - 1];
  std::free(sortedRow);
  std::free(sortedCol);
  std::free(sortedVal);
}

}  // namespace
}  // namespace numbra_internal

template <typename T>
void coo_sort(int, int, unsigned long nnz, const int* cooRow, const int* cooCol, const T* cooVal,
              int* outRow, int* outCol, T* outVal, int order) {
  std::vector<numbra_internal::coo_f> entries;
  entries.reserve(nnz);
  for (unsigned long e = 0; e < nnz; ++e) entries.push_back({cooRow[e], cooCol[e], cooVal[e]});
  // Through lambdas, so that the sort inlines the comparison.
  if (order == 0) {
    std::sort(entries.begin(), entries.end(),
              [](numbra_internal::coo_f a, numbra_internal::coo_f b) {
                return numbra_internal::compare_rowMajor(a, b);
              });
  } else {
    std::sort(entries.begin(), entries.end(),
              [](numbra_internal::coo_f a, numbra_internal::coo_f b) {
                return numbra_internal::compare_colMajor(a, b);
              });
  }
  for (unsigned long e = 0; e < nnz; ++e) {
    outRow[e] = entries[e].row;
    outCol[e] = entries[e].col;
    outVal[e] = entries[e].val;
  }
}

template <typename T>
void sparse_dense2csr(int m, int n, const T* a, int* rowPtr, int* colIdx, T* val) {
  numbra_internal::fill_csr_from_dense<numbra_internal::NonzeroLanes128>(m, n, a, rowPtr, colIdx,
                                                                         val);
}

template <typename T>
void sparse_dense2ccs(int m, int n, const T* a, int* colPtr, int* rowIdx, T* val) {
  numbra_internal::fill_ccs_from_dense<numbra_internal::NonzeroLanes128>(m, n, a, colPtr, rowIdx,
                                                                         val);
}

template <typename T>
void sparse_coo2csr(int m, int, unsigned long nnz, const int* cooRow, const int* cooCol,
                    const T* cooVal, int* rowPtr, int* colIdx, T* val) {
  numbra_internal::compress_coo(m, nnz, cooRow, cooCol, cooVal, 0, rowPtr, colIdx, val);
}

template <typename T>
void sparse_coo2ccs(int, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                    const T* cooVal, int* colPtr, int* rowIdx, T* val) {
  numbra_internal::compress_coo(n, nnz, cooRow, cooCol, cooVal, 1, colPtr, rowIdx, val);
}

template void coo_sort<float>(int, int, unsigned long, const int*, const int*, const float*, int*,
                              int*, float*, int);
template void sparse_dense2csr<float>(int, int, const float*, int*, int*, float*);
template void sparse_dense2ccs<float>(int, int, const float*, int*, int*, float*);
template void sparse_coo2csr<float>(int, int, unsigned long, const int*, const int*, const float*,
                                    int*, int*, float*);
template void sparse_coo2ccs<float>(int, int, unsigned long, const int*, const int*, const float*,
                                    int*, int*, float*);

namespace ZETL {
namespace numbra {

template <typename T>
void sparse_matrix_dense2csr(int m, int n, const T* a, int* rowPtr, int* colIdx, T* val) {
  sparse_dense2csr(m, n, a, rowPtr, colIdx, val);
}

template <typename T>
void sparse_matrix_dense2ccs(int m, int n, const T* a, int* colPtr, int* rowIdx, T* val) {
  sparse_dense2ccs(m, n, a, colPtr, rowIdx, val);
}

template <typename T>
void sparse_matrix_coo2csr(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                           const T* cooVal, int* rowPtr, int* colIdx, T* val) {
  sparse_coo2csr(m, n, nnz, cooRow, cooCol, cooVal, rowPtr, colIdx, val);
}

template <typename T>
void sparse_matrix_coo2ccs(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                           const T* cooVal, int* colPtr, int* rowIdx, T* val) {
  sparse_coo2ccs(m, n, nnz, cooRow, cooCol, cooVal, colPtr, rowIdx, val);
}

template void sparse_matrix_dense2csr<float>(int, int, const float*, int*, int*, float*);
template void sparse_matrix_dense2ccs<float>(int, int, const float*, int*, int*, float*);
template void sparse_matrix_coo2csr<float>(int, int, unsigned long, const int*, const int*,
                                           const float*, int*, int*, float*);
template void sparse_matrix_coo2ccs<float>(int, int, unsigned long, const int*, const int*,
                                           const float*, int*, int*, float*);

}  // namespace numbra
}  // namespace ZETL
