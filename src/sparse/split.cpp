// Splits of the sparse forms into ranges of rows or columns with about equal
// numbers of stored entries. A form whose pointer array runs along the cut
// is walked on it directly; across it, the entries are counted first.
#include <cstdlib>

#include "numbra.h"
#include "sparse/split_walk.h"

namespace numbra_internal {
namespace {

// counts[k + 1] = the number of entries with index k in the lines 0 to
// lines - 1 of a compressed form; len + 1 counts from calloc, unchecked.
int* count_by_index(int len, int lines, const int* ptr, const int* index) {
  int* counts = static_cast<int*>(std::calloc(static_cast<unsigned long>(len) + 1, sizeof(int)));
  for (int line = 0; line < lines; ++line) {
    for (int e = ptr[line]; e < ptr[line + 1]; ++e) ++counts[index[e] + 1];
  }
  return counts;
}

void split_by_counts(int len, int lines, unsigned long nnz, const int* ptr, const int* index,
                     int parts, int* idx) {
  int* entryCount = count_by_index(len, lines, ptr, index);
  numbra_internal::split_ranges(len, nnz, parts, idx, [&](unsigned long quota) {
    numbra_internal::count_walk(entryCount, len, parts, quota, idx);
  });
  std::free(entryCount);
}

void split_by_pointers(int len, unsigned long nnz, const int* ptr, int parts, int* idx) {
  numbra_internal::split_ranges(len, nnz, parts, idx, [&](unsigned long quota) {
    numbra_internal::pointer_walk(ptr, parts, quota, idx);
  });
}

}  // namespace
}  // namespace numbra_internal

void sparse_split_idx_getSize(int parts, unsigned long& idxBytes) {
  idxBytes = static_cast<unsigned long>(parts) * 4 + 4;
}

// The sorted copy is an output: range p of idx is one stretch of it.
template <typename T>
void sparse_split_coo_lb_nz(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                            const T* cooVal, int parts, int dim, int* outRow, int* outCol,
                            T* outVal, int* idx) {
  if (dim != 0 && dim != 1) return;
  coo_sort(m, n, nnz, cooRow, cooCol, cooVal, outRow, outCol, outVal, dim);
  const int len = dim == 0 ? m : n;
  const int* sorted = dim == 0 ? outRow : outCol;
  int* runningSum =
      static_cast<int*>(std::calloc(static_cast<unsigned long>(len) + 1, sizeof(int)));
  for (unsigned long e = 0; e < nnz; ++e) ++runningSum[sorted[e] + 1];
  for (int i = 1; i <= len; ++i) runningSum[i] += runningSum[i - 1];
  numbra_internal::split_by_pointers(len, nnz, runningSum, parts, idx);
  std::free(runningSum);
}

template <typename T>
void sparse_split_csr_lb_nz(int m, int n, unsigned long nnz, const int* rowPtr, const int* colIdx,
                            const T*, int parts, int dim, int* idx) {
  idx[0] = 0;
  if (dim == 0) {
    numbra_internal::split_by_pointers(m, nnz, rowPtr, parts, idx);
  } else {
    numbra_internal::split_by_counts(n, m, nnz, rowPtr, colIdx, parts, idx);
  }
}

template <typename T>
void sparse_split_ccs_lb_nz(int m, int n, unsigned long nnz, const int* colPtr, const int* rowIdx,
                            const T*, int parts, int dim, int* idx) {
  if (dim == 0) {
    numbra_internal::split_by_counts(m, n, nnz, colPtr, rowIdx, parts, idx);
  } else if (dim == 1) {
    numbra_internal::split_by_pointers(n, nnz, colPtr, parts, idx);
  }
}

template void sparse_split_coo_lb_nz<float>(int, int, unsigned long, const int*, const int*,
                                            const float*, int, int, int*, int*, float*, int*);
template void sparse_split_csr_lb_nz<float>(int, int, unsigned long, const int*, const int*,
                                            const float*, int, int, int*);
template void sparse_split_ccs_lb_nz<float>(int, int, unsigned long, const int*, const int*,
                                            const float*, int, int, int*);

namespace ZETL {
namespace numbra {

void sparse_matrix_split_idx_getSize(int parts, unsigned long& idxBytes) {
  sparse_split_idx_getSize(parts, idxBytes);
}

template <typename T>
void sparse_matrix_split_dense_lb_nz(int m, int n, const T* a, int parts, int dim, int* idx) {
  sparse_split_dense_lb_nz(m, n, a, parts, dim, idx);
}

template <typename T>
void sparse_matrix_split_coo_lb_nz(int m, int n, unsigned long nnz, const int* cooRow,
                                   const int* cooCol, const T* cooVal, int parts, int dim,
                                   int* outRow, int* outCol, T* outVal, int* idx) {
  sparse_split_coo_lb_nz(m, n, nnz, cooRow, cooCol, cooVal, parts, dim, outRow, outCol, outVal,
                         idx);
}

template <typename T>
void sparse_matrix_split_csr_lb_nz(int m, int n, unsigned long nnz, const int* rowPtr,
                                   const int* colIdx, const T* val, int parts, int dim, int* idx) {
  sparse_split_csr_lb_nz(m, n, nnz, rowPtr, colIdx, val, parts, dim, idx);
}

template <typename T>
void sparse_matrix_split_ccs_lb_nz(int m, int n, unsigned long nnz, const int* colPtr,
                                   const int* rowIdx, const T* val, int parts, int dim, int* idx) {
  sparse_split_ccs_lb_nz(m, n, nnz, colPtr, rowIdx, val, parts, dim, idx);
}

template void sparse_matrix_split_dense_lb_nz<float>(int, int, const float*, int, int, int*);
template void sparse_matrix_split_coo_lb_nz<float>(int, int, unsigned long, const int*, const int*,
                                                   const float*, int, int, int*, int*, float*,
                                                   int*);
template void sparse_matrix_split_csr_lb_nz<float>(int, int, unsigned long, const int*, const int*,
                                                   const float*, int, int, int*);
template void sparse_matrix_split_ccs_lb_nz<float>(int, int, unsigned long, const int*, const int*,
                                                   const float*, int, int, int*);

}  // namespace numbra
}  // namespace ZETL
