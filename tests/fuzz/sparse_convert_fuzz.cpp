// Fuzzes the conversions into the compressed and the block forms, from a
// dense source and from coordinates. Every form must hold exactly the
// entries of its source (the dense source filtered by the storage threshold),
// with pointers that start at 0, never fall and end at the entry count,
// indices inside the matrix, and block pointers that step by each block's
// rows (or columns).
#include <algorithm>
#include <cstdint>
#include <tuple>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "numbra.h"

namespace nb = ZETL::numbra;
using numbra_fuzz::require;

namespace {

using Entry = std::tuple<int, int, std::uint32_t>;  // row, column, value bits

Entry entry(int row, int col, float v) {
  std::uint32_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  return {row, col, bits};
}

// CSR (or, by columns, CCS) back to its entries; the minor index ascends
// within a line when `strict`, and never falls otherwise.
std::vector<Entry> compressed_entries(int lines, int width, unsigned long nnz,
                                      const std::vector<int>& ptr, const std::vector<int>& idx,
                                      const std::vector<float>& val, bool by_columns, bool strict) {
  require(ptr[0] == 0 && ptr[lines] == static_cast<long>(nnz));
  std::vector<Entry> out;
  for (int line = 0; line < lines; ++line) {
    require(ptr[line] <= ptr[line + 1]);
    for (int e = ptr[line]; e < ptr[line + 1]; ++e) {
      require(idx[e] >= 0 && idx[e] < width);
      if (e > ptr[line]) require(strict ? idx[e - 1] < idx[e] : idx[e - 1] <= idx[e]);
      out.push_back(by_columns ? entry(idx[e], line, val[e]) : entry(line, idx[e], val[e]));
    }
  }
  return out;
}

// BCSR (or, by columns, BCCS) back to its entries, walking the blocks in
// grid order and summing the counts.
std::vector<Entry> block_entries(int m, int n, int blk, unsigned long nnz,
                                 const std::vector<int>& block_ptr,
                                 const std::vector<unsigned short>& len,
                                 const std::vector<unsigned short>& local,
                                 const std::vector<float>& val, bool by_columns) {
  const int mb = (m + blk - 1) / blk, nbc = (n + blk - 1) / blk;
  require(block_ptr[0] == 0);
  std::vector<Entry> out;
  unsigned long e = 0;
  for (int b = 0; b < mb * nbc; ++b) {
    const int bi = b / nbc, bj = b % nbc;
    const int rows = std::min(m - bi * blk, blk), cols = std::min(n - bj * blk, blk);
    const int lines = by_columns ? cols : rows, width = by_columns ? rows : cols;
    require(block_ptr[b + 1] == block_ptr[b] + lines);
    for (int r = 0; r < lines; ++r) {
      for (int k = 0; k < len[block_ptr[b] + r]; ++k, ++e) {
        require(e < nnz && local[e] < width);
        const int row = bi * blk + (by_columns ? local[e] : r);
        const int col = bj * blk + (by_columns ? r : local[e]);
        out.push_back(entry(row, col, val[e]));
      }
    }
  }
  require(e == nnz);
  return out;
}

void require_same_entries(std::vector<Entry> expected, std::vector<Entry> actual) {
  std::sort(expected.begin(), expected.end());
  std::sort(actual.begin(), actual.end());
  require(expected == actual);
}

struct Blocked {
  std::vector<int> ptr;
  std::vector<unsigned short> len, local;
  std::vector<float> val;
  Blocked(unsigned long ptr_bytes, unsigned long len_bytes, unsigned long local_bytes,
          unsigned long val_bytes)
      : ptr(ptr_bytes / sizeof(int)),
        len(len_bytes / sizeof(unsigned short)),
        local(local_bytes / sizeof(unsigned short)),
        val(val_bytes / sizeof(float)) {}
};

void dense_source(int m, int n, int blk, const std::vector<float>& a) {
  std::vector<Entry> kept;
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j)
      if (numbra_fuzz::stored(a[i * n + j])) kept.push_back(entry(i, j, a[i * n + j]));

  unsigned long nnz, ptr_bytes, idx_bytes, val_bytes, len_bytes;
  nb::sparse_matrix_dense2csr_getSize<float>(m, n, a.data(), nnz, ptr_bytes, idx_bytes, val_bytes);
  require(nnz == kept.size());
  std::vector<int> row_ptr(m + 1), col(nnz), col_ptr(n + 1), row(nnz);
  std::vector<float> csr_val(nnz), ccs_val(nnz);
  nb::sparse_matrix_dense2csr<float>(m, n, a.data(), row_ptr.data(), col.data(), csr_val.data());
  require(compressed_entries(m, n, nnz, row_ptr, col, csr_val, false, true) == kept);
  nb::sparse_matrix_dense2ccs<float>(m, n, a.data(), col_ptr.data(), row.data(), ccs_val.data());
  require_same_entries(kept, compressed_entries(n, m, nnz, col_ptr, row, ccs_val, true, true));

  for (const bool by_columns : {false, true}) {
    (by_columns ? nb::sparse_matrix_dense2bccs_getSize<float>
                : nb::sparse_matrix_dense2bcsr_getSize<float>)(m, n, a.data(), blk, nnz, ptr_bytes,
                                                               len_bytes, idx_bytes, val_bytes);
    Blocked blocked(ptr_bytes, len_bytes, idx_bytes, val_bytes);
    (by_columns ? nb::sparse_matrix_dense2bccs<float>
                : nb::sparse_matrix_dense2bcsr<float>)(m, n, a.data(), blk, blocked.ptr.data(),
                                                       blocked.len.data(), blocked.local.data(),
                                                       blocked.val.data());
    require_same_entries(kept, block_entries(m, n, blk, nnz, blocked.ptr, blocked.len,
                                             blocked.local, blocked.val, by_columns));
  }
}

// Coordinates are stored as they are: zeros, NaN and repeated positions too.
void coordinate_source(int m, int n, int blk, numbra_fuzz::FuzzInput& in) {
  const unsigned long nnz = m > 0 && n > 0 ? in.below(80) : 0;
  std::vector<int> coo_row(nnz), coo_col(nnz);
  std::vector<float> coo_val(nnz);
  std::vector<Entry> all;
  for (unsigned long e = 0; e < nnz; ++e) {
    coo_row[e] = in.below(m);
    coo_col[e] = in.below(n);
    coo_val[e] = in.value();
    all.push_back(entry(coo_row[e], coo_col[e], coo_val[e]));
  }
  std::vector<int> row_ptr(m + 1), col(nnz), col_ptr(n + 1), row(nnz);
  std::vector<float> csr_val(nnz), ccs_val(nnz);
  nb::sparse_matrix_coo2csr<float>(m, n, nnz, coo_row.data(), coo_col.data(), coo_val.data(),
                                   row_ptr.data(), col.data(), csr_val.data());
  require_same_entries(all, compressed_entries(m, n, nnz, row_ptr, col, csr_val, false, false));
  nb::sparse_matrix_coo2ccs<float>(m, n, nnz, coo_row.data(), coo_col.data(), coo_val.data(),
                                   col_ptr.data(), row.data(), ccs_val.data());
  require_same_entries(all, compressed_entries(n, m, nnz, col_ptr, row, ccs_val, true, false));

  for (const bool by_columns : {false, true}) {
    unsigned long ptr_bytes, len_bytes, idx_bytes, val_bytes;
    (by_columns ? nb::sparse_matrix_coo2bccs_getSize<float>
                : nb::sparse_matrix_coo2bcsr_getSize<float>)(m, n, nnz, blk, ptr_bytes, len_bytes,
                                                             idx_bytes, val_bytes);
    Blocked blocked(ptr_bytes, len_bytes, idx_bytes, val_bytes);
    (by_columns ? nb::sparse_matrix_coo2bccs<float>
                : nb::sparse_matrix_coo2bcsr<float>)(m, n, nnz, coo_row.data(), coo_col.data(),
                                                     coo_val.data(), blk, blocked.ptr.data(),
                                                     blocked.len.data(), blocked.local.data(),
                                                     blocked.val.data());
    require_same_entries(all, block_entries(m, n, blk, nnz, blocked.ptr, blocked.len, blocked.local,
                                            blocked.val, by_columns));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  numbra_fuzz::FuzzInput in(data, size);
  // Rows of 64 columns and more take the 64-element masks of the dense walks.
  const int m = in.below(24), n = in.below(140), blk = 1 + in.below(9);
  std::vector<float> a(static_cast<std::size_t>(m) * n);
  for (float& v : a) v = in.value();
  dense_source(m, n, blk, a);
  coordinate_source(m, n, blk, in);
  return 0;
}
