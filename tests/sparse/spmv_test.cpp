// The sparse matrix-vector kernels against scalar definitions of their
// arithmetic order: four partial sums for the 128-bit row kernels, the
// gathered fused steps and folds of the row kernels with FMA, the scatter
// with its test on x for the column kernels. Run lengths sweep 0 to 40 across
// every step and group boundary; x holds NaN, infinities and values around
// 1e-8; all arrays sit against guard pages and y starts as NaN.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;

namespace {

constexpr int kLongestRun = 40;

// Products are rounded before they are added.
float add_product(float s, float a, float b) {
  const float p = a * b;
  return s + p;
}

float fold8(const float* c) {
  return ((c[4] + c[5]) + (c[6] + c[7])) + ((c[0] + c[1]) + (c[2] + c[3]));
}

template <typename Index>
float dot_unroll(const float* x, const Index* idx, const float* val, int count) {
  float s[4] = {0, 0, 0, 0};
  int e = 0;
  for (; e + 4 <= count; e += 4) {
    for (int t = 0; t < 4; ++t) s[t] = add_product(s[t], val[e + t], x[idx[e + t]]);
  }
  float r = (s[0] + s[1]) + (s[2] + s[3]);
  for (; e < count; ++e) r = add_product(r, val[e], x[idx[e]]);
  return r;
}

float dot_csr_fma(const float* x, const int* idx, const float* val, int count) {
  float a[8] = {}, b[8] = {}, c[8];
  int e = 0;
  for (; e + 16 <= count; e += 16) {
    for (int t = 0; t < 8; ++t) {
      a[t] = std::fma(x[idx[e + t]], val[e + t], a[t]);
      b[t] = std::fma(x[idx[e + 8 + t]], val[e + 8 + t], b[t]);
    }
  }
  for (int t = 0; t < 8; ++t) c[t] = b[t] + a[t];
  for (; e + 8 <= count; e += 8) {
    for (int t = 0; t < 8; ++t) c[t] = std::fma(x[idx[e + t]], val[e + t], c[t]);
  }
  float r = fold8(c);
  for (; e < count; ++e) r = add_product(r, val[e], x[idx[e]]);
  return r;
}

float dot_bcsr_fma(const float* x, const unsigned short* idx, const float* val, int count) {
  float c[8] = {};
  int e = 0;
  if (count > 8) {
    for (int g = 0; g < ((count - 9) >> 3) + 1; ++g, e += 8) {
      for (int t = 0; t < 8; ++t) {
        c[t] = std::fma(val[e + t], x[static_cast<short>(idx[e + t])], c[t]);
      }
    }
  }
  float r = fold8(c);
  for (; e < count; ++e) r = add_product(r, x[idx[e]], val[e]);
  return r;
}

// A compressed form whose line k holds a run of (k + shift) % 41 entries at
// random places in [0, width), repeats included, behind `offset` entries that
// no line owns: the kernels start at ptr[0], whatever it holds.
Compressed runs(int lines, int width, int shift, int offset, std::uint32_t seed) {
  Compressed c;
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> place(0, width - 1);
  c.idx.assign(offset, 0);
  c.val.assign(offset, std::nanf(""));
  c.ptr.push_back(offset);
  for (int k = 0; k < lines; ++k) {
    for (int e = 0; e < (k + shift) % (kLongestRun + 1); ++e) c.idx.push_back(place(gen));
    c.ptr.push_back(static_cast<int>(c.idx.size()));
  }
  const std::vector<float> values = edge_values(c.idx.size(), seed + 1, 40);
  for (std::size_t e = offset; e < c.idx.size(); ++e) c.val.push_back(values[e]);
  return c;
}

// A block form with the same sweep of run lengths over its lines.
Blocked block_runs(int m, int n, int blk, bool by_columns, std::uint32_t seed) {
  const int mb = (m + blk - 1) / blk, nb_ = (n + blk - 1) / blk;
  std::mt19937 gen(seed);
  Blocked b;
  b.blockPtr.push_back(0);
  int k = 0;
  for (int bi = 0; bi < mb; ++bi) {
    for (int bj = 0; bj < nb_; ++bj) {
      const int rows = std::min(m - bi * blk, blk), cols = std::min(n - bj * blk, blk);
      const int lines = by_columns ? cols : rows, width = by_columns ? rows : cols;
      for (int line = 0; line < lines; ++line, ++k) {
        const int count = (k * 7) % (kLongestRun + 1);
        b.len.push_back(static_cast<unsigned short>(count));
        for (int e = 0; e < count; ++e) b.idx.push_back(static_cast<unsigned short>(gen() % width));
      }
      b.blockPtr.push_back(b.blockPtr.back() + lines);
    }
  }
  b.val = edge_values(b.idx.size(), seed + 1, 40);
  return b;
}

// Calls visit(bi, bj, line, first, count) for every line of every block in
// grid order, where the line's count entries start at entry `first`.
template <typename Visit>
void for_each_block_line(int m, int n, int blk, const Blocked& b, Visit visit) {
  const int mb = (m + blk - 1) / blk, nb_ = (n + blk - 1) / blk;
  int first = 0;
  for (int bi = 0; bi < mb; ++bi) {
    for (int bj = 0; bj < nb_; ++bj) {
      const int block = bi * nb_ + bj;
      for (int k = b.blockPtr[block]; k < b.blockPtr[block + 1]; ++k) {
        visit(bi, bj, k - b.blockPtr[block], first, b.len[k]);
        first += b.len[k];
      }
    }
  }
}

// Each local row adds its run's dot product to its element of y.
std::vector<float> bcsr_product(int m, int n, int blk, const Blocked& b,
                                const std::vector<float>& x,
                                float (*dot)(const float*, const unsigned short*, const float*,
                                             int)) {
  std::vector<float> y(m, 0.0f);
  for_each_block_line(m, n, blk, b, [&](int bi, int bj, int line, int first, int count) {
    const float s = dot(x.data() + bj * blk, b.idx.data() + first, b.val.data() + first, count);
    y[bi * blk + line] = s + y[bi * blk + line];
  });
  return y;
}

// y[row] += x[col] * val over the stored entries of each column whose x
// passes the nonzero test, in column order.
std::vector<float> bccs_product(int m, int n, int blk, const Blocked& b,
                                const std::vector<float>& x) {
  std::vector<float> y(m, 0.0f);
  for_each_block_line(m, n, blk, b, [&](int bi, int bj, int line, int first, int count) {
    const float xv = x[bj * blk + line];
    if (!stored(xv)) return;
    for (int e = first; e < first + count; ++e) {
      const int row = bi * blk + b.idx[e];
      y[row] = add_product(y[row], xv, b.val[e]);
    }
  });
  return y;
}

void expect_same_y(const std::vector<float>& want, numbra_test::GuardedBuffer<float>& y) {
  EXPECT_SAME_RESULTS(want.data(), y.data(), want.size());
}

TEST(SparseSpmv, CsrRowKernels) {
  const int n = 45;
  for (int shift : {0, 19}) {
    for (int offset : {0, 3}) {
      const int m = kLongestRun + 3;
      const Compressed a = runs(m, n, shift, offset, 7 + shift + offset);
      const auto x = guarded(edge_values(n, 11 + shift, 10));
      const auto ptr = guarded(a.ptr);
      const auto idx = guarded(a.idx);
      const auto val = guarded(a.val);
      std::vector<float> want_unroll(m), want_fma(m);
      for (int i = 0; i < m; ++i) {
        const int e0 = a.ptr[i], count = a.ptr[i + 1] - e0;
        want_unroll[i] = dot_unroll(x->data(), a.idx.data() + e0, a.val.data() + e0, count);
        want_fma[i] = dot_csr_fma(x->data(), a.idx.data() + e0, a.val.data() + e0, count);
      }
      auto y = guarded_filled(m, std::nanf(""));
      x86SCSRSpmv_unroll(m, ptr->data(), idx->data(), val->data(), x->data(), y->data());
      expect_same_y(want_unroll, *y);
      y = guarded_filled(m, std::nanf(""));
      x86SCSRSpmv_fma(m, ptr->data(), idx->data(), val->data(), x->data(), y->data());
      expect_same_y(want_fma, *y);
      for (int isa : {0, 1, 2, -5}) {
        y = guarded_filled(m, std::nanf(""));
        nb::x86Spmv_csr<float>(static_cast<ISA_t>(isa), static_cast<IMP_t>(isa * 3), isa - 1, m,
                               ptr->data(), idx->data(), val->data(), x->data(), y->data());
        expect_same_y(want_unroll, *y);
      }
    }
  }
}

TEST(SparseSpmv, CcsColumnKernel) {
  const int m = 37;
  for (int n : {1, kLongestRun + 2}) {
    const Compressed a = runs(n, m, 5, 2, 31 + n);
    const std::vector<float> xs = edge_values(n, 3 + n, 6);
    std::vector<float> want(m, 0.0f);
    for (int j = 0; j < n; ++j) {
      if (!stored(xs[j])) continue;
      for (int e = a.ptr[j]; e < a.ptr[j + 1]; ++e)
        want[a.idx[e]] = add_product(want[a.idx[e]], xs[j], a.val[e]);
    }
    const auto x = guarded(xs);
    const auto ptr = guarded(a.ptr);
    const auto idx = guarded(a.idx);
    const auto val = guarded(a.val);
    auto y = guarded_filled(m, std::nanf(""));
    nb::x86Spmv_ccs<float>(ISA_FMA, IMP_DEFAULT, 4, m, n, ptr->data(), idx->data(), val->data(),
                           x->data(), y->data());
    expect_same_y(want, *y);
  }
}

TEST(SparseSpmv, BlockKernels) {
  for (int m : {1, 7, 19, 40}) {
    for (int n : {1, 9, 23}) {
      for (int blk : {1, 2, 3, 5, 8, 16, 64}) {
        SCOPED_TRACE(testing::Message() << m << " x " << n << " blk " << blk);
        const std::uint32_t seed = m * 1000 + n * 10 + blk;
        const std::vector<float> xs = edge_values(n, seed, 6);
        const auto x = guarded(xs);
        for (bool by_columns : {false, true}) {
          const Blocked b = block_runs(m, n, blk, by_columns, seed);
          const auto blockPtr = guarded(b.blockPtr);
          const auto len = guarded(b.len);
          const auto idx = guarded(b.idx);
          const auto val = guarded(b.val);
          auto y = guarded_filled(m, std::nanf(""));
          if (by_columns) {
            nb::x86Spmv_bccs<float>(ISA_AVX, IMP_DEFAULT, 1, m, n, blk, blockPtr->data(),
                                    len->data(), idx->data(), val->data(), x->data(), y->data());
            expect_same_y(bccs_product(m, n, blk, b, xs), *y);
            continue;
          }
          nb::x86Spmv_bcsr<float>(ISA_FMA, IMP_DEFAULT, 1, m, n, blk, blockPtr->data(), len->data(),
                                  idx->data(), val->data(), x->data(), y->data());
          expect_same_y(bcsr_product(m, n, blk, b, xs, dot_unroll<unsigned short>), *y);
          y = guarded_filled(m, std::nanf(""));
          x86SBCSRSpmv_fma(m, n, blk, blockPtr->data(), len->data(), idx->data(), val->data(),
                           x->data(), y->data());
          expect_same_y(bcsr_product(m, n, blk, b, xs, dot_bcsr_fma), *y);
        }
      }
    }
  }
}

// Values of x up to 1e-8 and NaN reach y through the row forms only.
TEST(SparseSpmv, ColumnFormsSkipSmallAndNaNElementsOfX) {
  const int ptr[] = {0, 1};
  const int idx[] = {0};
  const int blockPtr[] = {0, 1};
  const unsigned short count[] = {1}, localRow[] = {0};
  const float val[] = {3.0f};
  for (float xv : {5e-9f, std::nanf(""), -INFINITY, above_threshold()}) {
    float row = -1, column = -1, block = -1;
    x86SCSRSpmv_unroll(1, ptr, idx, val, &xv, &row);
    x86SCCSSpmv_unroll(1, 1, ptr, idx, val, &xv, &column);
    x86SBCCSSpmv_unroll(1, 1, 4, blockPtr, count, localRow, val, &xv, &block);
    const float product = 3.0f * xv;
    EXPECT_SAME_RESULT(product, row);
    EXPECT_SAME_RESULT(stored(xv) ? product : 0.0f, column);
    EXPECT_SAME_RESULT(column, block);
  }
}

TEST(SparseSpmv, EmptyMatrixClearsY) {
  const std::vector<int> ptr(6, 0);
  const std::vector<int> blockPtr = {0, 5};
  const std::vector<unsigned short> len(5, 0);
  auto none_i = guarded_filled<int>(0, 0);
  auto none_s = guarded_filled<unsigned short>(0, 0);
  auto none_f = guarded_filled<float>(0, 0.0f);
  const std::vector<float> zeros(5, 0.0f);
  auto y = guarded_filled(5, std::nanf(""));
  x86SCSRSpmv_fma(5, ptr.data(), none_i->data(), none_f->data(), none_f->data(), y->data());
  EXPECT_SAME_ARRAY_BITS(zeros.data(), y->data(), 5);
  y = guarded_filled(5, std::nanf(""));
  x86SBCSRSpmv_unroll(5, 5, 8, blockPtr.data(), len.data(), none_s->data(), none_f->data(),
                      none_f->data(), y->data());
  EXPECT_SAME_ARRAY_BITS(zeros.data(), y->data(), 5);
  y = guarded_filled(5, std::nanf(""));
  x86SCCSSpmv_unroll(5, 5, ptr.data(), none_i->data(), none_f->data(),
                     std::vector<float>(5, 1.0f).data(), y->data());
  EXPECT_SAME_ARRAY_BITS(zeros.data(), y->data(), 5);
}

}  // namespace
