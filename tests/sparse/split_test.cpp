// The load-balance splits: the worked cases of both walks, then every form
// over random matrices, every number of parts up to beyond the rows and
// every kind of dim, against literal scalar walks. Every input and output
// sits against guard pages, idx exactly parts + 1 long.
#include <gtest/gtest.h>

#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/guarded_call.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;
using numbra_test::call_guarded;

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

constexpr int kUntouched = -9;

// idx of `parts` ranges written by `call(idx, operands...)`, all guarded.
template <typename Call, typename... T>
std::vector<int> split(int parts, Call call, std::vector<T>&... operands) {
  std::vector<int> idx(parts + 1, kUntouched);
  call_guarded(call, idx, operands...);
  return idx;
}

// Rows holding lengths[k] entries, cut by rows: as a CSR matrix with every
// entry in column 0 (the pointer walk), or as a CCS matrix of one column
// (the count walk).
enum Walk { kPointers, kCounts };
std::vector<int> cut_rows(const std::vector<int>& lengths, int parts, Walk walk) {
  const bool by_columns = walk == kCounts;
  std::vector<int> ptr = {0}, index;
  for (std::size_t k = 0; k < lengths.size(); ++k) {
    ptr.push_back(ptr.back() + lengths[k]);
    index.insert(index.end(), lengths[k], by_columns ? static_cast<int>(k) : 0);
  }
  if (by_columns) ptr = {0, ptr.back()};
  return split(
      parts,
      [&](int* idx, const int* p, const int* i) {
        (by_columns ? sparse_split_ccs_lb_nz<float>
                    : sparse_split_csr_lb_nz<float>)(static_cast<int>(lengths.size()), 1,
                                                     index.size(), p, i, nullptr, parts, 0, idx);
      },
      ptr, index);
}

TEST(SparseSplit, WorkedCases) {
  EXPECT_EQ(cut_rows({2, 2, 2, 2}, 2, kPointers), (std::vector<int>{0, 2, 4}));
  EXPECT_EQ(cut_rows({2, 2, 2, 2}, 2, kCounts), (std::vector<int>{0, 3, 4}));
  EXPECT_EQ(cut_rows({5, 1, 1, 1}, 2, kCounts), (std::vector<int>{0, 1, 4}));
  EXPECT_EQ(cut_rows({10, 10}, 4, kPointers), (std::vector<int>{0, 1, 1, 2, 2}));
  EXPECT_EQ(cut_rows({10}, 4, kPointers), (std::vector<int>{0, 0, 0, 1, 1}));
  EXPECT_EQ(cut_rows({0, 0, 0, 0, 0, 0}, 4, kPointers), (std::vector<int>{0, 1, 1, 1, 6}));
  // A zero quota with a first row that is not empty: the search for the
  // second boundary starts before row 0.
  EXPECT_EQ(cut_rows({3, 0, 0}, 4, kPointers), (std::vector<int>{0, 0, 0, 0, 3}));
  // Ten entries in three parts aim at 3 and 6.
  EXPECT_EQ(cut_rows({1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, 3, kPointers),
            (std::vector<int>{0, 3, 6, 10}));
  // A zero quota walks one place a boundary through all-empty rows.
  EXPECT_EQ(cut_rows({0, 0, 0, 0, 0, 0}, 4, kCounts), (std::vector<int>{0, 2, 3, 4, 6}));
  // The dense split counts positive values only: row 0 is all negative.
  std::vector<float> a = {-5, -5, -5, 1, 0, 2, 0, 0, 3};
  EXPECT_EQ(split(
                2,
                [&](int* idx, const float* a) {
                  nb::sparse_matrix_split_dense_lb_nz<float>(3, 3, a, 2, 0, idx);
                },
                a),
            (std::vector<int>{0, 2, 3}));
}

// One random matrix as dense, CSR, CCS and COO, cut by every form.
class SplitTester {
 public:
  SplitTester& shape(int m, int n) { return m_ = m, n_ = n, *this; }
  SplitTester& parts(int parts) { return parts_ = parts, *this; }
  // 0 cuts rows, 1 columns; the CSR form cuts columns for any dim but 0,
  // the others do nothing for another dim.
  SplitTester& dim(int dim) { return dim_ = dim, *this; }
  SplitTester& seed(std::uint32_t seed) { return seed_ = seed, *this; }

  void test() const {
    SCOPED_TRACE(testing::Message() << m_ << " x " << n_ << " parts " << parts_ << " dim " << dim_);
    const int m = m_, n = n_, parts = parts_, dim = dim_;
    const bool rows = dim == 0, columns = dim == 1;
    std::vector<float> a = random_dense(m, n, 0.5, seed_);
    Compressed csr = compressed_of_dense(m, n, a, false), ccs = compressed_of_dense(m, n, a, true);
    const unsigned long nnz = csr.val.size();
    std::vector<int> row_counts(m + 1, 0), col_counts(n + 1, 0), positive_rows(m + 1, 0),
        positive_cols(n + 1, 0);
    unsigned long positive = 0;
    for (int i = 0; i < m; ++i) {
      for (int j = 0; j < n; ++j) {
        const float v = a[i * n + j];
        if (stored(v)) ++row_counts[i + 1], ++col_counts[j + 1];
        if (static_cast<double>(v) > 1e-8)
          ++positive_rows[i + 1], ++positive_cols[j + 1], ++positive;
      }
    }
    const std::vector<int> untouched(parts + 1, kUntouched);
    EXPECT_EQ(split(
                  parts,
                  [&](int* idx, const float* a) {
                    nb::sparse_matrix_split_dense_lb_nz<float>(m, n, a, parts, dim, idx);
                  },
                  a),
              rows || columns ? count_walk(columns ? positive_cols : positive_rows, positive, parts)
                              : untouched);
    EXPECT_EQ(split(
                  parts,
                  [&](int* idx, const int* ptr, const int* col) {
                    nb::sparse_matrix_split_csr_lb_nz<float>(m, n, nnz, ptr, col, nullptr, parts,
                                                             dim, idx);
                  },
                  csr.ptr, csr.idx),
              rows ? pointer_walk(csr.ptr, nnz, parts) : count_walk(col_counts, nnz, parts));
    EXPECT_EQ(split(
                  parts,
                  [&](int* idx, const int* ptr, const int* row) {
                    nb::sparse_matrix_split_ccs_lb_nz<float>(m, n, nnz, ptr, row, nullptr, parts,
                                                             dim, idx);
                  },
                  ccs.ptr, ccs.idx),
              columns ? pointer_walk(ccs.ptr, nnz, parts)
              : rows  ? count_walk(row_counts, nnz, parts)
                      : untouched);

    // COO: the sorted copy comes out, and the pointer walk runs on its
    // running sums.
    Coo coo = random_coo(m, n, 3 * (m + n), seed_);
    std::vector<int> out_row(coo.nnz(), kUntouched), out_col(coo.nnz(), kUntouched);
    std::vector<float> out_val(coo.nnz(), -1.0f);
    const std::vector<int> idx = split(
        parts,
        [&](int* idx, const int* r, const int* c, const float* v, int* out_r, int* out_c,
            float* out_v) {
          nb::sparse_matrix_split_coo_lb_nz<float>(m, n, coo.nnz(), r, c, v, parts, dim, out_r,
                                                   out_c, out_v, idx);
        },
        coo.row, coo.col, coo.val, out_row, out_col, out_val);
    if (!rows && !columns) {
      EXPECT_EQ(idx, untouched);
      EXPECT_EQ(out_row, std::vector<int>(coo.nnz(), kUntouched));
      return;
    }
    const Compressed sorted = compressed_of_coo(coo, columns);
    EXPECT_EQ(idx, pointer_walk(sorted.ptr, coo.nnz(), parts));
    expect_same_entries(sorted, compressed_of_sorted(columns ? n : m, columns ? out_col : out_row,
                                                     columns ? out_row : out_col, out_val));
  }

 private:
  int m_ = 1, n_ = 1, parts_ = 1, dim_ = 0;
  std::uint32_t seed_ = 1;
};

TEST(SparseSplit, EveryFormAgainstTheWalks) {
  std::uint32_t seed = 500;
  for (int m : {1, 2, 7, 20}) {
    for (int n : {1, 5, 19}) {
      ++seed;
      for (int parts = 1; parts <= m + 3; ++parts) {
        for (int dim : {0, 1, 2}) SplitTester().shape(m, n).parts(parts).dim(dim).seed(seed).test();
      }
    }
  }
}

}  // namespace
