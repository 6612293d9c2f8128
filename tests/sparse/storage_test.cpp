// The nonzero count, the sizing calls and every conversion between the sparse
// forms, against the forms built by their definitions. Every conversion runs
// with all its arrays against guard pages, its outputs of the exact size of
// the form.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <optional>
#include <tuple>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/guarded_call.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;
using numbra_test::call_guarded;

namespace {

using Sizes = std::vector<unsigned long>;

Sizes sizes_of(const Compressed& c) {
  return {c.ptr.size() * 4, c.idx.size() * 4, c.val.size() * 4};
}
Sizes sizes_of(const Blocked& b) {
  return {b.blockPtr.size() * 4, b.len.size() * 2, b.idx.size() * 2, b.val.size() * 4};
}

Compressed blank(const Compressed& want) {
  return {std::vector<int>(want.ptr.size(), -7), std::vector<int>(want.idx.size(), -7),
          std::vector<float>(want.val.size(), -7.0f)};
}
Blocked blank(const Blocked& want) {
  return {std::vector<int>(want.blockPtr.size(), -7),
          std::vector<unsigned short>(want.len.size(), 0xdead),
          std::vector<unsigned short>(want.idx.size(), 0xdead),
          std::vector<float>(want.val.size(), -7.0f)};
}
auto arrays(Compressed& c) { return std::tie(c.ptr, c.idx, c.val); }
auto arrays(Blocked& b) { return std::tie(b.blockPtr, b.len, b.idx, b.val); }

template <typename T>
bool unchanged(const std::vector<T>& now, const std::vector<T>& before) {
  return now.empty() || std::memcmp(now.data(), before.data(), now.size() * sizeof(T)) == 0;
}

// Runs `call(inputs..., outputs...)` guarded, on outputs of the size of
// `want` holding values that no conversion writes, and returns them. The
// inputs are only read.
template <typename Form, typename Call, typename... In>
Form convert(const Form& want, Call call, const std::vector<In>&... inputs) {
  Form got = blank(want);
  std::tuple<std::vector<In>...> in(inputs...);
  std::apply(
      [&](auto&... out) { std::apply([&](auto&... i) { call_guarded(call, i..., out...); }, in); },
      arrays(got));
  EXPECT_TRUE(std::apply([&](const auto&... i) { return (unchanged(i, inputs) && ...); }, in))
      << "an input was written";
  return got;
}

void expect_same_values(const std::vector<float>& want, const std::vector<float>& got) {
  ASSERT_EQ(want.size(), got.size());
  EXPECT_SAME_ARRAY_BITS(want.data(), got.data(), want.size());
}

void expect_same_form(const Compressed& want, const Compressed& got) {
  EXPECT_EQ(want.ptr, got.ptr);
  EXPECT_EQ(want.idx, got.idx);
  expect_same_values(want.val, got.val);
}

void expect_same_form(const Blocked& want, const Blocked& got) {
  EXPECT_EQ(want.blockPtr, got.blockPtr);
  EXPECT_EQ(want.len, got.len);
  EXPECT_EQ(want.idx, got.idx);
  expect_same_values(want.val, got.val);
}

// One matrix, given as dense and as COO (random ones by default), through
// every conversion into both compressed and both block forms, the compressed
// forms into blocks, and the count and sizing calls of each.
class ConversionTester {
 public:
  ConversionTester& shape(int m, int n) { return m_ = m, n_ = n, *this; }
  ConversionTester& density(double density) { return density_ = density, *this; }
  ConversionTester& block(int blk) { return blk_ = blk, *this; }
  ConversionTester& seed(std::uint32_t seed) { return seed_ = seed, *this; }
  ConversionTester& dense(std::vector<float> a) { return dense_ = std::move(a), *this; }
  ConversionTester& coo(Coo c) { return coo_ = std::move(c), *this; }

  void test() const {
    SCOPED_TRACE(testing::Message()
                 << m_ << " x " << n_ << " density " << density_ << " blk " << blk_);
    const unsigned long entries = m_ * n_ > 0 ? m_ * n_ * density_ / 2 + 1 : 0;
    test_dense(dense_ ? *dense_ : random_dense(m_, n_, density_, seed_));
    test_coo(coo_ ? *coo_ : random_coo(m_, n_, entries, seed_));
  }

 private:
  void test_dense(const std::vector<float>& a) const {
    const int m = m_, n = n_, blk = blk_;
    const unsigned long nnz = compressed_of_dense(m, n, a, false).val.size();
    EXPECT_EQ(sparse_denseGetNonZeros<float>(m, n, a.data()), nnz);
    for (const bool by_columns : {false, true}) {
      SCOPED_TRACE(by_columns ? "CCS and BCCS from dense" : "CSR and BCSR from dense");
      const Compressed want = compressed_of_dense(m, n, a, by_columns);
      const Blocked want_blocks = block_of(m, n, blk, want, by_columns);
      const auto to_compressed =
          by_columns ? nb::sparse_matrix_dense2ccs<float> : nb::sparse_matrix_dense2csr<float>;
      const auto to_blocks =
          by_columns ? nb::sparse_matrix_dense2bccs<float> : nb::sparse_matrix_dense2bcsr<float>;
      const auto compressed_to_blocks =
          by_columns ? sparse_ccs2bccs<float> : sparse_csr2bcsr<float>;
      expect_same_form(
          want,
          convert(
              want, [&](const float* source, auto*... out) { to_compressed(m, n, source, out...); },
              a));
      expect_same_form(
          want_blocks,
          convert(
              want_blocks,
              [&](const float* source, auto*... out) { to_blocks(m, n, source, blk, out...); }, a));
      expect_same_form(want_blocks, convert(
                                        want_blocks,
                                        [&](int* ptr, int* idx, float* val, auto*... out) {
                                          compressed_to_blocks(m, n, 0, ptr, idx, val, blk, out...);
                                        },
                                        want.ptr, want.idx, want.val));
      unsigned long count = 0;
      Sizes sizes(3), block_sizes(4);
      (by_columns ? nb::sparse_matrix_dense2ccs_getSize<float>
                  : nb::sparse_matrix_dense2csr_getSize<float>)(m, n, a.data(), count, sizes[0],
                                                                sizes[1], sizes[2]);
      EXPECT_EQ(count, nnz);
      EXPECT_EQ(sizes, sizes_of(want));
      (by_columns ? nb::sparse_matrix_dense2bccs_getSize<float>
                  : nb::sparse_matrix_dense2bcsr_getSize<float>)(m, n, a.data(), blk, count,
                                                                 block_sizes[0], block_sizes[1],
                                                                 block_sizes[2], block_sizes[3]);
      EXPECT_EQ(count, nnz);
      EXPECT_EQ(block_sizes, sizes_of(want_blocks));
    }
  }

  // Every entry stays, zeros and repeats included; the order among the
  // entries of one position is open.
  void test_coo(const Coo& coo) const {
    const int m = m_, n = n_, blk = blk_;
    const unsigned long nnz = coo.nnz();
    for (const bool by_columns : {false, true}) {
      SCOPED_TRACE(by_columns ? "CCS and BCCS from COO" : "CSR and BCSR from COO");
      const Compressed want = compressed_of_coo(coo, by_columns);
      Coo sorted = coo;
      call_guarded(
          [&](int* r, int* c, float* v) {
            coo_sort<float>(0, 0, nnz, r, c, v, r, c, v, by_columns ? 2 : 0);
          },
          sorted.row, sorted.col, sorted.val);
      expect_same_entries(
          want, compressed_of_sorted(by_columns ? n : m, by_columns ? sorted.col : sorted.row,
                                     by_columns ? sorted.row : sorted.col, sorted.val));

      const auto to_compressed =
          by_columns ? nb::sparse_matrix_coo2ccs<float> : nb::sparse_matrix_coo2csr<float>;
      const Compressed got = convert(
          want,
          [&](const int* r, const int* c, const float* v, auto*... out) {
            to_compressed(m, n, nnz, r, c, v, out...);
          },
          coo.row, coo.col, coo.val);
      expect_same_entries(want, got);
      // The block form of the library's own compressed form, whose order
      // among repeats was checked just above.
      const Blocked want_blocks = block_of(m, n, blk, got, by_columns);
      const auto to_blocks =
          by_columns ? nb::sparse_matrix_coo2bccs<float> : nb::sparse_matrix_coo2bcsr<float>;
      expect_same_form(want_blocks,
                       convert(
                           want_blocks,
                           [&](const int* r, const int* c, const float* v, auto*... out) {
                             to_blocks(m, n, nnz, r, c, v, blk, out...);
                           },
                           coo.row, coo.col, coo.val));

      // The COO-to-CCS sizing takes its pointer array from m, as its CSR
      // sibling does.
      Sizes sizes(3), block_sizes(4);
      (by_columns
           ? nb::sparse_matrix_coo2ccs_getSize<float>
           : nb::sparse_matrix_coo2csr_getSize<float>)(m, n, nnz, sizes[0], sizes[1], sizes[2]);
      EXPECT_EQ(sizes, (Sizes{4ul * m + 4, 4 * nnz, 4 * nnz}));
      (by_columns ? nb::sparse_matrix_coo2bccs_getSize<float>
                  : nb::sparse_matrix_coo2bcsr_getSize<float>)(m, n, nnz, blk, block_sizes[0],
                                                               block_sizes[1], block_sizes[2],
                                                               block_sizes[3]);
      EXPECT_EQ(block_sizes, sizes_of(want_blocks));
    }
  }

  int m_ = 1, n_ = 1, blk_ = 1;
  double density_ = 0.5;
  std::uint32_t seed_ = 1;
  std::optional<std::vector<float>> dense_;
  std::optional<Coo> coo_;
};

// Shapes on both sides of the 4-, 8- and 16-element steps, the 64-element
// masks (through the 128-bit walk to CSR and CCS, the 256-bit one to blocks)
// and 256 columns; every block size meets wide rows.
TEST(SparseConversion, DenseWalksAcrossTheirSteps) {
  const int blocks[] = {1, 2, 3, 4, 5, 8, 16, 40, 64};
  std::uint32_t seed = 1;
  for (int m : {1, 2, 3, 5, 8, 13}) {
    for (int n : {1, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33, 63, 64, 65, 130, 255, 256, 257, 530}) {
      for (double density : {0.03, 0.1, 0.6, 1.0}) {
        ++seed;
        ConversionTester().shape(m, n).density(density).block(blocks[seed % 9]).seed(seed).test();
      }
    }
  }
}

TEST(SparseConversion, EveryBlockSize) {
  std::uint32_t seed = 100;
  for (int m : {0, 1, 3, 7, 16, 19}) {
    for (int n : {0, 1, 4, 9, 16, 21}) {
      for (int blk : {1, 2, 3, 4, 8, 16, 40}) {
        ConversionTester().shape(m, n).density(0.4).block(blk).seed(++seed).test();
      }
    }
  }
}

// 3 x 5 in blocks of 2, with A..F at (0,0), (0,3), (1,1), (1,4), (2,0),
// (2,2), the COO entries scrambled.
TEST(SparseConversion, WorkedExample) {
  const float A = 1, B = 2, C = 3, D = 4, E = 5, F = 6;
  std::vector<float> dense(15, 0.0f);
  dense[0] = A, dense[3] = B, dense[6] = C, dense[9] = D, dense[10] = E, dense[12] = F;
  const Coo coo{3, 5, {2, 1, 0, 2, 1, 0}, {2, 4, 3, 0, 1, 0}, {F, D, B, E, C, A}};
  EXPECT_EQ(block_of(3, 5, 2, compressed_of_dense(3, 5, dense, false), false).len,
            (std::vector<unsigned short>{1, 1, 1, 0, 0, 1, 1, 1, 0}));
  EXPECT_EQ(block_of(3, 5, 2, compressed_of_dense(3, 5, dense, true), true).blockPtr,
            (std::vector<int>{0, 2, 4, 5, 7, 9, 10}));
  ConversionTester().shape(3, 5).block(2).dense(dense).coo(coo).test();
}

// Repeats stay separate entries and count twice: by rows, (0, 5) holds 0
// and 1e-9 in some order, then row 1 holds 3 and 1.
TEST(SparseConversion, RepeatedPositions) {
  const Coo coo{2, 6, {1, 0, 1, 0}, {2, 5, 0, 5}, {1.0f, 0.0f, 3.0f, 1e-9f}};
  std::vector<int> ptr(3), idx(4);
  std::vector<float> v(4);
  sparse_coo2csr<float>(2, 6, 4, coo.row.data(), coo.col.data(), coo.val.data(), ptr.data(),
                        idx.data(), v.data());
  EXPECT_EQ(ptr, (std::vector<int>{0, 2, 4}));
  EXPECT_EQ(idx, (std::vector<int>{5, 5, 0, 2}));
  EXPECT_EQ(v[2], 3.0f);
  ConversionTester().shape(2, 6).block(4).dense(std::vector<float>(12, 0.0f)).coo(coo).test();
}

TEST(SparseConversion, NonzeroCountAtTheThresholdAndBeyondInt) {
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
  EXPECT_EQ(sparse_denseGetNonZeros<float>(3, 3, a.data()), 3u);
  EXPECT_EQ(sparse_denseGetNonZeros<float>(-4, -10, a.data()), 0u);
  // Sizes of a grid of 70000 x 70000 blocks: mb * nb and m * nb pass the
  // range of int.
  const Sizes wide_grid{19600000004ul, 9800000000ul, 2, 4};
  Sizes s(4);
  sparse_bcsr_getSize<float>(70000, 70000, 1, 1, s[0], s[1], s[2], s[3]);
  EXPECT_EQ(s, wide_grid);
  sparse_bccs_getSize<float>(70000, 70000, 1, 1, s[0], s[1], s[2], s[3]);
  EXPECT_EQ(s, wide_grid);
  unsigned long parts5 = 0, parts1 = 0;
  sparse_split_idx_getSize(5, parts5);
  nb::sparse_matrix_split_idx_getSize(1, parts1);
  EXPECT_EQ(Sizes({parts5, parts1}), Sizes({24, 8}));
}

// Columns far apart on a wide matrix: every block number and local column
// comes out of a division by blk.
TEST(SparseConversion, WideMatrixDividesEveryColumn) {
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
    expect_same_form(want, convert(
                               want,
                               [&](int* ptr, int* idx, float* val, auto*... out) {
                                 sparse_csr2bcsr<float>(1, n, 0, ptr, idx, val, blk, out...);
                               },
                               csr.ptr, csr.idx, csr.val));
  }
}

}  // namespace
