// The sparse matrix-vector kernels of every form against scalar definitions
// of their arithmetic order: four partial sums for the 128-bit row kernels,
// the gathered fused steps and folds of the row kernels with FMA, the
// scatter with its test on x for the column kernels. Run lengths sweep 0 to
// 40 across every step and group boundary; x holds NaN, infinities and
// values around 1e-8; every array sits against guard pages and y starts as
// NaN.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/guarded_call.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;
using numbra_test::call_guarded;

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

float dot_unroll(const float* x, const int* idx, const float* val, int count) {
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

float dot_bcsr_fma(const float* x, const int* idx, const float* val, int count) {
  float c[8] = {};
  int e = 0;
  for (; count > 8 && e < ((count - 9) >> 3) * 8 + 8; e += 8) {
    for (int t = 0; t < 8; ++t) c[t] = std::fma(val[e + t], x[idx[e + t]], c[t]);
  }
  float r = fold8(c);
  for (; e < count; ++e) r = add_product(r, x[idx[e]], val[e]);
  return r;
}

using Dot = float (*)(const float*, const int*, const float*, int);

// One line of a form: its entries [first, first + count), the element of y
// (row forms) or of x (column forms) it belongs to, and the offset of its
// indices into the other vector.
struct Line {
  int own, base, first, count;
};

template <typename Run>
struct Kernel {
  const char* name;
  Dot dot;  // null for the column forms, which scatter
  Run run;
};
using CompressedRun =
    std::function<void(int, int, const int*, const int*, const float*, const float*, float*)>;
using BlockRun = std::function<void(int, int, int, const int*, const unsigned short*,
                                    const unsigned short*, const float*, const float*, float*)>;

// Every kernel of one form over one matrix whose line k holds a run of
// (7 k + shift) % 41 entries at random places, repeats included.
class SpmvTester {
 public:
  SpmvTester& shape(int m, int n) { return m_ = m, n_ = n, *this; }
  // 0: the compressed form.
  SpmvTester& block(int blk) { return blk_ = blk, *this; }
  SpmvTester& by_columns(bool by_columns) { return by_columns_ = by_columns, *this; }
  SpmvTester& shift(int shift) { return shift_ = shift, *this; }
  // Entries that no line owns before the first: the compressed kernels
  // start at ptr[0], whatever it holds.
  SpmvTester& offset(int offset) { return offset_ = offset, *this; }

  void test() const {
    SCOPED_TRACE(testing::Message() << m_ << " x " << n_ << " blk " << blk_ << " shift " << shift_
                                    << " offset " << offset_ << (by_columns_ ? " by columns" : ""));
    const std::uint32_t seed = m_ * 1000 + n_ * 10 + blk_ + shift_;
    std::vector<float> x = edge_values(n_, seed, 6);
    std::vector<Line> lines;
    std::vector<int> idx(offset_, 0);
    std::mt19937 gen(seed);
    const int block = blk_ > 0 ? blk_ : std::max(m_, n_);
    for (int bi = 0; bi * block < m_; ++bi) {
      for (int bj = 0; bj * block < n_; ++bj) {
        const int rows = std::min(m_ - bi * block, block), cols = std::min(n_ - bj * block, block);
        for (int k = 0; k < (by_columns_ ? cols : rows); ++k) {
          const int count = (static_cast<int>(lines.size()) * 7 + shift_) % (kLongestRun + 1);
          lines.push_back(by_columns_ ? Line{bj * block + k, bi * block, int(idx.size()), count}
                                      : Line{bi * block + k, bj * block, int(idx.size()), count});
          for (int e = 0; e < count; ++e) idx.push_back(gen() % (by_columns_ ? rows : cols));
        }
      }
    }
    std::vector<float> val = edge_values(idx.size(), seed + 1, 40);
    for (int e = 0; e < offset_; ++e) val[e] = std::nanf("");

    auto expect_kernel = [&](Dot dot, auto call, auto&... arrays) {
      std::vector<float> y(m_, std::nanf(""));
      call_guarded(call, arrays..., x, y);
      const std::vector<float> want = reference(lines, idx, val, x, dot);
      EXPECT_SAME_RESULTS(want.data(), y.data(), want.size());
    };
    if (blk_ == 0) {
      std::vector<int> ptr = {offset_};
      for (const Line& line : lines) ptr.push_back(line.first + line.count);
      for (const Kernel<CompressedRun>& kernel : compressed_kernels()) {
        SCOPED_TRACE(kernel.name);
        expect_kernel(
            kernel.dot, [&](auto*... a) { kernel.run(m_, n_, a...); }, ptr, idx, val);
      }
      return;
    }
    std::vector<int> block_ptr = {0};
    std::vector<unsigned short> len, local(idx.begin(), idx.end());
    for (int b = 0, k = 0; b * block < m_; ++b) {
      for (int bj = 0; bj * block < n_; ++bj) {
        const int extent = std::min((by_columns_ ? n_ - bj * block : m_ - b * block), block);
        for (int end = k + extent; k < end; ++k) len.push_back(lines[k].count);
        block_ptr.push_back(k);
      }
    }
    for (const Kernel<BlockRun>& kernel : block_kernels()) {
      SCOPED_TRACE(kernel.name);
      expect_kernel(
          kernel.dot, [&](auto*... a) { kernel.run(m_, n_, blk_, a...); }, block_ptr, len, local,
          val);
    }
  }

 private:
  std::vector<Kernel<CompressedRun>> compressed_kernels() const {
    if (by_columns_) {
      return {{"_unroll", nullptr, x86SCCSSpmv_unroll},
              {"entry", nullptr, [](int m, int n, auto... a) {
                 nb::x86Spmv_ccs<float>(ISA_FMA, IMP_DEFAULT, 4, m, n, a...);
               }}};
    }
    std::vector<Kernel<CompressedRun>> kernels = {
        {"_unroll", dot_unroll, [](int m, int, auto... a) { x86SCSRSpmv_unroll(m, a...); }},
        {"_fma", dot_csr_fma, [](int m, int, auto... a) { x86SCSRSpmv_fma(m, a...); }}};
    // The entry point runs the 128-bit kernel whatever isa and imp say.
    for (int isa : {0, 1, 2, -5}) {
      kernels.push_back({"entry", dot_unroll, [isa](int m, int, auto... a) {
                           nb::x86Spmv_csr<float>(ISA_t(isa), IMP_t(isa * 3), isa - 1, m, a...);
                         }});
    }
    return kernels;
  }

  std::vector<Kernel<BlockRun>> block_kernels() const {
    if (by_columns_) {
      return {{"_unroll", nullptr, x86SBCCSSpmv_unroll},
              {"entry", nullptr,
               [](auto... a) { nb::x86Spmv_bccs<float>(ISA_AVX, IMP_DEFAULT, 1, a...); }}};
    }
    return {{"_unroll", dot_unroll, x86SBCSRSpmv_unroll},
            {"_fma", dot_bcsr_fma, x86SBCSRSpmv_fma},
            {"entry", dot_unroll,
             [](auto... a) { nb::x86Spmv_bcsr<float>(ISA_FMA, IMP_DEFAULT, 1, a...); }}};
  }

  // Row forms add each line's dot product to its element of y; column forms
  // add x * val to the rows of each line whose x passes the nonzero test.
  std::vector<float> reference(const std::vector<Line>& lines, const std::vector<int>& idx,
                               const std::vector<float>& val, const std::vector<float>& x,
                               Dot dot) const {
    std::vector<float> y(m_, 0.0f);
    for (const Line& line : lines) {
      if (dot != nullptr) {
        const float s =
            dot(x.data() + line.base, idx.data() + line.first, val.data() + line.first, line.count);
        y[line.own] = s + y[line.own];
      } else if (stored(x[line.own])) {
        for (int e = line.first; e < line.first + line.count; ++e) {
          float& out = y[line.base + idx[e]];
          out = add_product(out, x[line.own], val[e]);
        }
      }
    }
    return y;
  }

  int m_ = 1, n_ = 1, blk_ = 0, shift_ = 0, offset_ = 0;
  bool by_columns_ = false;
};

TEST(SparseSpmv, CompressedForms) {
  for (bool by_columns : {false, true}) {
    for (auto [m, n] : {std::pair{1, 1}, std::pair{43, 45}, std::pair{37, 42}}) {
      for (int shift : {0, 19}) {
        for (int offset : {0, 3}) {
          SpmvTester().by_columns(by_columns).shape(m, n).shift(shift).offset(offset).test();
        }
      }
    }
  }
}

TEST(SparseSpmv, BlockForms) {
  for (bool by_columns : {false, true}) {
    for (int m : {1, 7, 19, 40}) {
      for (int n : {1, 9, 23}) {
        for (int blk : {1, 2, 3, 5, 8, 16, 64}) {
          SpmvTester().by_columns(by_columns).shape(m, n).block(blk).shift(m + n).test();
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

}  // namespace
