// Sizing, counting and every conversion between the sparse forms, against
// the forms built by their definitions. Outputs are allocated to the exact
// size of the form and sit against a guard page.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;

namespace {

struct Sizes {
  unsigned long nnz = 0, a = 0, b = 0, c = 0, d = 0;
  std::vector<unsigned long> list() const { return {a, b, c, d}; }
};

TEST(SparseSizing, BytesOfEachForm) {
  Sizes s;
  sparse_csr_getSize<float>(7, 99, 0, s.a, s.b, s.c);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{32, 0, 0, 0}));
  sparse_ccs_getSize<float>(99, 7, 5, s.a, s.b, s.c);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{32, 20, 20, 0}));
  sparse_bcsr_getSize<float>(3, 5, 6, 2, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{28, 18, 12, 24}));
  sparse_bccs_getSize<float>(3, 5, 6, 2, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{28, 20, 12, 24}));
  sparse_bcsr_getSize<float>(3, 5, 6, 9, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{8, 6, 12, 24}));
  // A grid of 70000 x 70000 blocks: mb * nb and m * nb pass the range of int.
  const std::vector<unsigned long> wide_grid{19600000004ul, 9800000000ul, 2, 4};
  sparse_bcsr_getSize<float>(70000, 70000, 1, 1, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), wide_grid);
  sparse_bccs_getSize<float>(70000, 70000, 1, 1, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), wide_grid);

  // The COO-to-CCS call sizes its pointers from m, unlike the dense one.
  s = Sizes();
  nb::sparse_matrix_coo2ccs_getSize<float>(2, 9, 1, s.a, s.b, s.c);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{12, 4, 4, 0}));
  nb::sparse_matrix_coo2csr_getSize<float>(2, 9, 1, s.a, s.b, s.c);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{12, 4, 4, 0}));
  nb::sparse_matrix_coo2bcsr_getSize<float>(3, 5, 6, 2, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{28, 18, 12, 24}));
  nb::sparse_matrix_coo2bccs_getSize<float>(3, 5, 6, 2, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{28, 20, 12, 24}));

  unsigned long idxBytes = 0;
  sparse_split_idx_getSize(5, idxBytes);
  EXPECT_EQ(idxBytes, 24u);
  nb::sparse_matrix_split_idx_getSize(1, idxBytes);
  EXPECT_EQ(idxBytes, 8u);
}

TEST(SparseSizing, DenseSourcesCountFirst) {
  // Two rows of five: one stored element in the first, two in the second.
  std::vector<float> a(10, 0.0f);
  a[3] = 1.0f;
  a[5] = -2.0f;
  a[9] = above_threshold();
  Sizes s;
  nb::sparse_matrix_dense2csr_getSize<float>(2, 5, a.data(), s.nnz, s.a, s.b, s.c);
  EXPECT_EQ(s.nnz, 3u);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{12, 12, 12, 0}));
  nb::sparse_matrix_dense2ccs_getSize<float>(2, 5, a.data(), s.nnz, s.a, s.b, s.c);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{24, 12, 12, 0}));
  nb::sparse_matrix_dense2bcsr_getSize<float>(2, 5, a.data(), 2, s.nnz, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{16, 12, 6, 12}));
  nb::sparse_matrix_dense2bccs_getSize<float>(2, 5, a.data(), 2, s.nnz, s.a, s.b, s.c, s.d);
  EXPECT_EQ(s.list(), (std::vector<unsigned long>{16, 10, 6, 12}));
}

TEST(SparseNonZeros, ThresholdAndSpecialValues) {
  const float inf = std::numeric_limits<float>::infinity();
  const std::vector<float> a = {below_threshold(),
                                -below_threshold(),
                                above_threshold(),
                                -above_threshold(),
                                std::nanf(""),
                                -inf,
                                0.0f,
                                -0.0f,
                                1e-30f};
  EXPECT_EQ(sparse_denseGetNonZeros<float>(1, 9, a.data()), 3u);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(3, 3, a.data()), 3u);
  const std::vector<float> nans(40, std::nanf("")), infs(40, inf);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(4, 10, nans.data()), 0u);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(4, 10, infs.data()), 40u);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(0, 10, infs.data()), 0u);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(4, 0, infs.data()), 0u);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(-4, -10, infs.data()), 0u);
}

// Matrix shapes on both sides of the 4- and 8-element steps, the 64-element
// chunks and the 256-column strips of the walks.
const int kRows[] = {1, 2, 3, 5, 8, 13};
const int kCols[] = {1, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33, 63, 64, 65, 255, 256, 257, 530};

TEST(SparseDenseConversion, MatchesTheDefinition) {
  std::uint32_t seed = 1;
  for (int m : kRows) {
    for (int n : kCols) {
      for (double density : {0.03, 0.1, 0.6, 1.0}) {
        SCOPED_TRACE(testing::Message() << m << " x " << n << " density " << density);
        const std::vector<float> dense = random_dense(m, n, density, ++seed);
        const auto a = guarded(dense);
        EXPECT_EQ(sparse_denseGetNonZeros<float>(m, n, a->data()),
                  csr_of_dense(m, n, dense).val.size());
        for (bool by_columns : {false, true}) {
          const Compressed want =
              by_columns ? ccs_of_dense(m, n, dense) : csr_of_dense(m, n, dense);
          auto ptr = guarded_filled<int>(want.ptr.size(), -7);
          auto idx = guarded_filled<int>(want.idx.size(), -7);
          auto val = guarded_filled<float>(want.val.size(), -7.0f);
          if (by_columns) {
            nb::sparse_matrix_dense2ccs<float>(m, n, a->data(), ptr->data(), idx->data(),
                                               val->data());
          } else {
            nb::sparse_matrix_dense2csr<float>(m, n, a->data(), ptr->data(), idx->data(),
                                               val->data());
          }
          EXPECT_EQ(contents(*ptr), want.ptr);
          EXPECT_EQ(contents(*idx), want.idx);
          expect_same_values(want.val, contents(*val));
        }
      }
    }
  }
}

TEST(SparseDenseConversion, EmptyDimensions) {
  const std::vector<float> one = {1.0f};
  auto none = guarded_filled<int>(0, 0);
  auto noval = guarded_filled<float>(0, 0.0f);
  auto ptr = guarded_filled<int>(4, -7);
  sparse_dense2csr<float>(3, 0, one.data(), ptr->data(), none->data(), noval->data());
  EXPECT_EQ(contents(*ptr), (std::vector<int>{0, 0, 0, 0}));
  std::vector<int> single = {-7, -7};
  sparse_dense2csr<float>(0, 3, one.data(), single.data(), none->data(), noval->data());
  EXPECT_EQ(single, (std::vector<int>{0, -7}));
  sparse_dense2ccs<float>(0, 3, one.data(), ptr->data(), none->data(), noval->data());
  EXPECT_EQ(contents(*ptr), (std::vector<int>{0, 0, 0, 0}));
  single = {-7, -7};
  sparse_dense2ccs<float>(3, 0, one.data(), single.data(), none->data(), noval->data());
  EXPECT_EQ(single, (std::vector<int>{0, -7}));
}

TEST(SparseCooSort, OrdersWithoutMergingAndInPlace) {
  for (unsigned long nnz : {0ul, 1ul, 2ul, 17ul, 300ul}) {
    const Coo c = random_coo(9, 11, nnz, static_cast<std::uint32_t>(nnz) + 3);
    for (int order : {0, 1, 2}) {
      SCOPED_TRACE(testing::Message() << "nnz " << nnz << " order " << order);
      const auto [major, minor, val] = sorted_entries(c, order != 0);
      std::vector<int> row = c.row, col = c.col;
      std::vector<float> v = c.val;
      coo_sort<float>(0, 0, nnz, row.data(), col.data(), v.data(), row.data(), col.data(), v.data(),
                      order);
      expect_same_entries(major, minor, val, order ? col : row, order ? row : col, v);
    }
  }
}

TEST(SparseCooConversion, KeepsDuplicatesAndZeros) {
  std::uint32_t seed = 40;
  for (int m : {1, 4, 9}) {
    for (int n : {1, 5, 12}) {
      for (unsigned long nnz : {0ul, 1ul, 7ul, 90ul}) {
        SCOPED_TRACE(testing::Message() << m << " x " << n << " nnz " << nnz);
        const Coo c = random_coo(m, n, nnz, ++seed);
        const Coo untouched = c;
        for (bool by_columns : {false, true}) {
          const auto [major, minor, val] = sorted_entries(c, by_columns);
          const int len = by_columns ? n : m;
          std::vector<int> want_ptr(len + 1, 0);
          for (int k : major) ++want_ptr[k + 1];
          for (int i = 1; i <= len; ++i) want_ptr[i] += want_ptr[i - 1];
          auto ptr = guarded_filled<int>(len + 1, -7);
          auto idx = guarded_filled<int>(nnz, -7);
          auto v = guarded_filled<float>(nnz, -7.0f);
          if (by_columns) {
            nb::sparse_matrix_coo2ccs<float>(m, n, nnz, c.row.data(), c.col.data(), c.val.data(),
                                             ptr->data(), idx->data(), v->data());
          } else {
            nb::sparse_matrix_coo2csr<float>(m, n, nnz, c.row.data(), c.col.data(), c.val.data(),
                                             ptr->data(), idx->data(), v->data());
          }
          EXPECT_EQ(contents(*ptr), want_ptr);
          std::vector<int> got_major;
          for (int k = 0; k < len; ++k)
            got_major.insert(got_major.end(), want_ptr[k + 1] - want_ptr[k], k);
          expect_same_entries(major, minor, val, got_major, contents(*idx), contents(*v));
        }
        EXPECT_EQ(c.row, untouched.row);
        EXPECT_EQ(c.col, untouched.col);
      }
    }
  }
}

TEST(SparseCooConversion, ExampleWithRepeatedPosition) {
  const std::vector<int> row = {1, 0, 1, 0}, col = {2, 5, 0, 5};
  const std::vector<float> val = {1.0f, 0.0f, 3.0f, 1e-9f};
  std::vector<int> ptr(3), idx(4);
  std::vector<float> v(4);
  sparse_coo2csr<float>(2, 6, 4, row.data(), col.data(), val.data(), ptr.data(), idx.data(),
                        v.data());
  EXPECT_EQ(ptr, (std::vector<int>{0, 2, 4}));
  EXPECT_EQ(idx, (std::vector<int>{5, 5, 0, 2}));
  EXPECT_EQ(v[2], 3.0f);
  EXPECT_EQ(v[3], 1.0f);
}

// Output arrays of the exact size of a block form, against guard pages.
struct BlockOutput {
  BlockOutput(const Blocked& want)
      : blockPtr(guarded_filled<int>(want.blockPtr.size(), -7)),
        len(guarded_filled<unsigned short>(want.len.size(), 0xdead)),
        idx(guarded_filled<unsigned short>(want.idx.size(), 0xdead)),
        val(guarded_filled<float>(want.val.size(), -7.0f)) {}
  void expect(const Blocked& want) {
    EXPECT_EQ(contents(*blockPtr), want.blockPtr);
    EXPECT_EQ(contents(*len), want.len);
    EXPECT_EQ(contents(*idx), want.idx);
    expect_same_values(want.val, contents(*val));
  }
  std::unique_ptr<numbra_test::GuardedBuffer<int>> blockPtr;
  std::unique_ptr<numbra_test::GuardedBuffer<unsigned short>> len, idx;
  std::unique_ptr<numbra_test::GuardedBuffer<float>> val;
};

// Each block conversion of one matrix, given as dense and as COO with the
// same entries (plus, in COO, what the dense test would drop).
void check_block_conversions(int m, int n, int blk, const std::vector<float>& dense,
                             const Coo& coo) {
  for (bool by_columns : {false, true}) {
    SCOPED_TRACE(testing::Message()
                 << m << " x " << n << " blk " << blk << (by_columns ? " BCCS" : " BCSR"));
    // From the compressed form.
    Compressed src = by_columns ? ccs_of_dense(m, n, dense) : csr_of_dense(m, n, dense);
    const Blocked want = block_of(m, n, blk, src, by_columns);
    BlockOutput out(want);
    auto run = by_columns ? sparse_ccs2bccs<float> : sparse_csr2bcsr<float>;
    run(m, n, 0, src.ptr.data(), src.idx.data(), src.val.data(), blk, out.blockPtr->data(),
        out.len->data(), out.idx->data(), out.val->data());
    out.expect(want);

    // From dense.
    BlockOutput from_dense(want);
    auto run_dense =
        by_columns ? nb::sparse_matrix_dense2bccs<float> : nb::sparse_matrix_dense2bcsr<float>;
    const auto a = guarded(dense);
    run_dense(m, n, a->data(), blk, from_dense.blockPtr->data(), from_dense.len->data(),
              from_dense.idx->data(), from_dense.val->data());
    from_dense.expect(want);

    // From COO: the block form of the library's own compressed form of it
    // (whose order among duplicates is open, and checked above).
    const unsigned long nnz = coo.nnz();
    Compressed via;
    via.ptr.resize((by_columns ? n : m) + 1);
    via.idx.resize(nnz);
    via.val.resize(nnz);
    (by_columns ? sparse_coo2ccs<float>
                : sparse_coo2csr<float>)(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(),
                                         via.ptr.data(), via.idx.data(), via.val.data());
    const Blocked want_coo = block_of(m, n, blk, via, by_columns);
    BlockOutput from_coo(want_coo);
    (by_columns ? nb::sparse_matrix_coo2bccs<float>
                : nb::sparse_matrix_coo2bcsr<float>)(m, n, nnz, coo.row.data(), coo.col.data(),
                                                     coo.val.data(), blk, from_coo.blockPtr->data(),
                                                     from_coo.len->data(), from_coo.idx->data(),
                                                     from_coo.val->data());
    from_coo.expect(want_coo);
  }
}

TEST(SparseBlockConversion, MatchesTheDefinition) {
  std::uint32_t seed = 100;
  for (int m : {1, 3, 7, 16, 19}) {
    for (int n : {1, 4, 9, 16, 21}) {
      for (int blk : {1, 2, 3, 4, 8, 16, 40}) {
        const std::vector<float> dense = random_dense(m, n, 0.4, ++seed);
        check_block_conversions(m, n, blk, dense, random_coo(m, n, m * n / 2 + 1, seed));
      }
    }
  }
}

// Columns far apart on a wide matrix: every block number and local column
// comes out of a division by blk.
TEST(SparseBlockConversion, WideMatrix) {
  const int n = 1 << 21;
  Compressed csr{{0, 0}, {}, {}};
  for (int j = 1; j < n; j = j * 3 + 1) {
    for (int near : {j - 1, j}) {
      csr.idx.push_back(near);
      csr.val.push_back(static_cast<float>(near));
    }
  }
  csr.ptr[1] = static_cast<int>(csr.idx.size());
  for (int blk : {3, 7, 1000, 4096, 65535}) {
    SCOPED_TRACE(testing::Message() << "blk " << blk);
    const Blocked want = block_of(1, n, blk, csr, false);
    BlockOutput out(want);
    sparse_csr2bcsr<float>(1, n, 0, csr.ptr.data(), csr.idx.data(), csr.val.data(), blk,
                           out.blockPtr->data(), out.len->data(), out.idx->data(), out.val->data());
    out.expect(want);
  }
}

TEST(SparseBlockConversion, EmptyMatrices) {
  // No stored entry: full pointers, counts of zero, nothing else written.
  check_block_conversions(5, 7, 3, std::vector<float>(35, 0.0f), Coo{5, 7, {}, {}, {}});
  check_block_conversions(0, 7, 3, {}, Coo{0, 7, {}, {}, {}});
  check_block_conversions(5, 0, 3, {}, Coo{5, 0, {}, {}, {}});
}

// The worked example: 3 x 5, blk 2, with A..F at (0,0), (0,3), (1,1), (1,4),
// (2,0), (2,2).
TEST(SparseBlockConversion, WorkedExampleFromEverySource) {
  const float A = 1, B = 2, C = 3, D = 4, E = 5, F = 6;
  std::vector<float> dense(15, 0.0f);
  dense[0] = A;
  dense[3] = B;
  dense[6] = C;
  dense[9] = D;
  dense[10] = E;
  dense[12] = F;
  const Blocked bcsr{
      {0, 2, 4, 6, 7, 8, 9}, {1, 1, 1, 0, 0, 1, 1, 1, 0}, {0, 1, 1, 0, 0, 0}, {A, C, B, D, E, F}};
  const Blocked bccs{{0, 2, 4, 5, 7, 9, 10},
                     {1, 1, 0, 1, 1, 1, 0, 1, 0, 0},
                     {0, 1, 0, 1, 0, 0},
                     {A, C, B, D, E, F}};
  EXPECT_EQ(block_of(3, 5, 2, csr_of_dense(3, 5, dense), false).blockPtr, bcsr.blockPtr);
  // COO in scrambled order.
  const Coo coo{3, 5, {2, 1, 0, 2, 1, 0}, {2, 4, 3, 0, 1, 0}, {F, D, B, E, C, A}};
  for (bool by_columns : {false, true}) {
    const Blocked& want = by_columns ? bccs : bcsr;
    BlockOutput d(want), c(want), k(want);
    const Compressed src = by_columns ? ccs_of_dense(3, 5, dense) : csr_of_dense(3, 5, dense);
    Compressed s = src;
    if (by_columns) {
      sparse_dense2bccs<float>(3, 5, dense.data(), 2, d.blockPtr->data(), d.len->data(),
                               d.idx->data(), d.val->data());
      sparse_coo2bccs<float>(3, 5, 6, coo.row.data(), coo.col.data(), coo.val.data(), 2,
                             c.blockPtr->data(), c.len->data(), c.idx->data(), c.val->data());
      sparse_ccs2bccs<float>(3, 5, 6, s.ptr.data(), s.idx.data(), s.val.data(), 2,
                             k.blockPtr->data(), k.len->data(), k.idx->data(), k.val->data());
    } else {
      sparse_dense2bcsr<float>(3, 5, dense.data(), 2, d.blockPtr->data(), d.len->data(),
                               d.idx->data(), d.val->data());
      sparse_coo2bcsr<float>(3, 5, 6, coo.row.data(), coo.col.data(), coo.val.data(), 2,
                             c.blockPtr->data(), c.len->data(), c.idx->data(), c.val->data());
      sparse_csr2bcsr<float>(3, 5, 6, s.ptr.data(), s.idx.data(), s.val.data(), 2,
                             k.blockPtr->data(), k.len->data(), k.idx->data(), k.val->data());
    }
    d.expect(want);
    c.expect(want);
    k.expect(want);
  }
}

TEST(SparseBlockConversion, RepeatedPositionCountsTwice) {
  const Coo coo{4, 4, {1, 3, 1}, {2, 0, 2}, {1.0f, 2.0f, 0.0f}};
  std::vector<int> blockPtr(5);
  std::vector<unsigned short> len(8), idx(3);
  std::vector<float> val(3);
  sparse_coo2bcsr<float>(4, 4, 3, coo.row.data(), coo.col.data(), coo.val.data(), 2,
                         blockPtr.data(), len.data(), idx.data(), val.data());
  EXPECT_EQ(blockPtr, (std::vector<int>{0, 2, 4, 6, 8}));
  EXPECT_EQ(len, (std::vector<unsigned short>{0, 0, 0, 2, 0, 1, 0, 0}));
  EXPECT_EQ(idx, (std::vector<unsigned short>{0, 0, 0}));
  EXPECT_EQ(val[2], 2.0f);
}

}  // namespace
