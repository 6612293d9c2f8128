// The load-balance split: the worked cases of both walks, then every form
// over random matrices and every number of parts up to beyond the rows,
// against literal scalar walks. idx is exactly parts + 1 long, against a
// guard page.
#include <gtest/gtest.h>

#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;

namespace {

// Boundary p goes to the nearer row start around p * quota, a tie upwards;
// the row start before row 0 counts as 0.
std::vector<int> pointer_walk(const std::vector<int>& ptr, unsigned long total, int parts) {
  const int len = static_cast<int>(ptr.size()) - 1;
  const long quota = static_cast<long>(total / parts);
  std::vector<int> idx = {0};
  int r = 1;
  for (int p = 1; p < parts; ++p) {
    const long t = p * quota;
    int q = r - 1;
    do ++q;
    while (ptr[q] < t);
    const long before = q > 0 ? ptr[q - 1] : 0;
    r = ptr[q] - t > t - before ? q - 1 : q;
    idx.push_back(r);
  }
  idx.push_back(len);
  return idx;
}

// counts[i + 1] holds the entries of row i. Past the counts the walk reads
// zeros, and it stops searching once the counts are used up.
std::vector<int> count_walk(std::vector<int> counts, unsigned long total, int parts) {
  const int len = static_cast<int>(counts.size()) - 1;
  counts.resize(counts.size() + parts + 2, 0);
  const long quota = static_cast<long>(total / parts);
  std::vector<int> idx = {0};
  long s = 0, c = 1;
  for (int p = 1; p < parts; ++p) {
    const long t = p * quota;
    long old;
    do {
      old = c;
      c = old + 1;
      s += counts[old];
    } while (s < t && old < len);
    const long prev = s - counts[old + 1];
    if (s - t > t - prev) {
      c = old;
      s = prev;
    }
    idx.push_back(static_cast<int>(c));
  }
  idx.push_back(len);
  return idx;
}

std::vector<int> running_sums(const std::vector<int>& lengths) {
  std::vector<int> ptr = {0};
  for (int l : lengths) ptr.push_back(ptr.back() + l);
  return ptr;
}

// idx of `parts` ranges written by `split` into a guarded array.
template <typename Split>
std::vector<int> split_into(int parts, Split split) {
  auto idx = guarded_filled<int>(parts + 1, -9);
  split(idx->data());
  return contents(*idx);
}

// A CSR matrix with the given row lengths, every entry in column 0.
std::vector<int> csr_split(const std::vector<int>& lengths, int parts, int dim) {
  const std::vector<int> ptr = running_sums(lengths);
  const std::vector<int> col(ptr.back(), 0);
  return split_into(parts, [&](int* idx) {
    sparse_split_csr_lb_nz<float>(static_cast<int>(lengths.size()), 1, ptr.back(), ptr.data(),
                                  col.data(), nullptr, parts, dim, idx);
  });
}

// A CCS matrix of one column holding lengths[k] entries in row k, cut by
// rows.
std::vector<int> ccs_row_split(const std::vector<int>& lengths, int parts) {
  std::vector<int> row;
  for (std::size_t k = 0; k < lengths.size(); ++k)
    row.insert(row.end(), lengths[k], static_cast<int>(k));
  const std::vector<int> ptr = {0, static_cast<int>(row.size())};
  return split_into(parts, [&](int* idx) {
    sparse_split_ccs_lb_nz<float>(static_cast<int>(lengths.size()), 1, row.size(), ptr.data(),
                                  row.data(), nullptr, parts, 0, idx);
  });
}

TEST(SparseSplit, WorkedCases) {
  EXPECT_EQ(csr_split({2, 2, 2, 2}, 2, 0), (std::vector<int>{0, 2, 4}));
  EXPECT_EQ(ccs_row_split({2, 2, 2, 2}, 2), (std::vector<int>{0, 3, 4}));
  EXPECT_EQ(ccs_row_split({5, 1, 1, 1}, 2), (std::vector<int>{0, 1, 4}));
  EXPECT_EQ(csr_split({10, 10}, 4, 0), (std::vector<int>{0, 1, 1, 2, 2}));
  EXPECT_EQ(csr_split({10}, 4, 0), (std::vector<int>{0, 0, 0, 1, 1}));
  EXPECT_EQ(csr_split({0, 0, 0, 0, 0, 0}, 4, 0), (std::vector<int>{0, 1, 1, 1, 6}));
  // A zero quota with a first row that is not empty: the search for the
  // second boundary starts before row 0.
  EXPECT_EQ(csr_split({3, 0, 0}, 4, 0), (std::vector<int>{0, 0, 0, 0, 3}));
  // Ten entries in three parts aim at 3 and 6.
  EXPECT_EQ(csr_split({1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, 3, 0), (std::vector<int>{0, 3, 6, 10}));
  // A zero quota walks one place a boundary through all-empty rows.
  EXPECT_EQ(ccs_row_split({0, 0, 0, 0, 0, 0}, 4), (std::vector<int>{0, 2, 3, 4, 6}));
}

TEST(SparseSplit, DenseCountsOnlyPositiveValues) {
  // Row 0 all negative, row 1 two positive, row 2 one positive.
  const std::vector<float> a = {-5, -5, -5, 1, 0, 2, 0, 0, 3};
  const std::vector<int> dense = split_into(
      2, [&](int* idx) { nb::sparse_matrix_split_dense_lb_nz<float>(3, 3, a.data(), 2, 0, idx); });
  EXPECT_EQ(dense, count_walk({0, 0, 2, 1}, 3, 2));
  // The CSR form of the same matrix counts the negative entries too.
  EXPECT_EQ(csr_split({3, 2, 1}, 2, 0), pointer_walk({0, 3, 5, 6}, 6, 2));
  EXPECT_NE(csr_split({3, 2, 1}, 2, 0), dense);
  const std::vector<float> negative(12, -1.0f);
  EXPECT_EQ(
      split_into(
          4, [&](int* idx) { sparse_split_dense_lb_nz<float>(3, 4, negative.data(), 4, 1, idx); }),
      count_walk({0, 0, 0, 0, 0}, 0, 4));
}

TEST(SparseSplit, UnknownDimension) {
  const std::vector<float> a(6, 1.0f);
  const std::vector<int> ptr = {0, 1, 2}, rows = {0, 1};
  std::vector<int> out(2);
  std::vector<float> vout(2);
  const std::vector<int> untouched(4, -9);
  EXPECT_EQ(
      split_into(3, [&](int* idx) { sparse_split_dense_lb_nz<float>(2, 3, a.data(), 3, 2, idx); }),
      untouched);
  EXPECT_EQ(split_into(3,
                       [&](int* idx) {
                         sparse_split_coo_lb_nz<float>(2, 2, 2, rows.data(), rows.data(), a.data(),
                                                       3, 2, out.data(), out.data(), vout.data(),
                                                       idx);
                       }),
            untouched);
  EXPECT_EQ(split_into(3,
                       [&](int* idx) {
                         sparse_split_ccs_lb_nz<float>(2, 2, 2, ptr.data(), rows.data(), a.data(),
                                                       3, 7, idx);
                       }),
            untouched);
  // The CSR form cuts columns for any dim but 0.
  EXPECT_EQ(split_into(3,
                       [&](int* idx) {
                         sparse_split_csr_lb_nz<float>(2, 2, 2, ptr.data(), rows.data(), a.data(),
                                                       3, 2, idx);
                       }),
            count_walk({0, 1, 1}, 2, 3));
}

TEST(SparseSplit, EveryFormAgainstTheWalks) {
  std::uint32_t seed = 500;
  for (int m : {1, 2, 7, 20}) {
    for (int n : {1, 5, 19}) {
      const std::vector<float> dense = random_dense(m, n, 0.5, ++seed);
      const auto guarded_dense = guarded(dense);
      const Compressed csr = csr_of_dense(m, n, dense), ccs = ccs_of_dense(m, n, dense);
      const unsigned long nnz = csr.val.size();
      std::vector<int> row_counts(m + 1, 0), col_counts(n + 1, 0), pos_rows(m + 1, 0),
          pos_cols(n + 1, 0);
      unsigned long positive = 0;
      for (int i = 0; i < m; ++i) {
        for (int j = 0; j < n; ++j) {
          const float v = dense[i * n + j];
          if (stored(v)) ++row_counts[i + 1], ++col_counts[j + 1];
          if (static_cast<double>(v) > 1e-8) ++pos_rows[i + 1], ++pos_cols[j + 1], ++positive;
        }
      }
      const Coo coo = random_coo(m, n, 3 * (m + n), seed);
      for (int parts = 1; parts <= m + 3; ++parts) {
        for (int dim : {0, 1}) {
          SCOPED_TRACE(testing::Message()
                       << m << " x " << n << " parts " << parts << " dim " << dim);
          EXPECT_EQ(split_into(parts,
                               [&](int* idx) {
                                 sparse_split_dense_lb_nz<float>(m, n, dense.data(), parts, dim,
                                                                 idx);
                               }),
                    count_walk(dim ? pos_cols : pos_rows, positive, parts));
          EXPECT_EQ(split_into(parts,
                               [&](int* idx) {
                                 nb::sparse_matrix_split_csr_lb_nz<float>(
                                     m, n, nnz, csr.ptr.data(), csr.idx.data(), csr.val.data(),
                                     parts, dim, idx);
                               }),
                    dim ? count_walk(col_counts, nnz, parts) : pointer_walk(csr.ptr, nnz, parts));
          EXPECT_EQ(split_into(parts,
                               [&](int* idx) {
                                 nb::sparse_matrix_split_ccs_lb_nz<float>(
                                     m, n, nnz, ccs.ptr.data(), ccs.idx.data(), ccs.val.data(),
                                     parts, dim, idx);
                               }),
                    dim ? pointer_walk(ccs.ptr, nnz, parts) : count_walk(row_counts, nnz, parts));

          // COO: the sorted copy comes out, and the pointer walk runs on its
          // running sums.
          const auto [major, minor, val] = sorted_entries(coo, dim == 1);
          std::vector<int> ptr(dim ? n + 1 : m + 1, 0);
          for (int k : major) ++ptr[k + 1];
          for (std::size_t k = 1; k < ptr.size(); ++k) ptr[k] += ptr[k - 1];
          auto out_row = guarded_filled<int>(coo.nnz(), -1);
          auto out_col = guarded_filled<int>(coo.nnz(), -1);
          auto out_val = guarded_filled<float>(coo.nnz(), -1.0f);
          EXPECT_EQ(split_into(parts,
                               [&](int* idx) {
                                 nb::sparse_matrix_split_coo_lb_nz<float>(
                                     m, n, coo.nnz(), coo.row.data(), coo.col.data(),
                                     coo.val.data(), parts, dim, out_row->data(), out_col->data(),
                                     out_val->data(), idx);
                               }),
                    pointer_walk(ptr, coo.nnz(), parts));
          expect_same_entries(major, minor, val, contents(dim ? *out_col : *out_row),
                              contents(dim ? *out_row : *out_col), contents(*out_val));
        }
      }
    }
  }
}

}  // namespace
