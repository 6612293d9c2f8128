// The exported GEMM kernels against their definitions, bit for bit, with
// every operand flush against an inaccessible page after its end, then
// before its start:
//  - the micro-kernels: c[row * W + j] += sum over l of a[row * sa + l] *
//    b[l * W + j], rows in pairs (an odd m touches row m too), each element a
//    chain in ascending depth;
//  - the skinny transposed-B product: row blocks of 4, then 3, 2 or 1, each
//    with its tile, main step, K tail, lane reduction and leftover columns,
//    reading exactly the elements of its mixed-stride table, and leaving its
//    scratch panel as the definition does.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "gemm/sgemm_reference.h"
#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_call.h"

using numbra_test::gemm_values;
using numbra_test::Isa;
using numbra_test::kIsas;
using numbra_test::Rounding;

namespace {

using KernelN = void (*)(float*, float*, float*, int, int);
struct KernelWidth {
  int width;
  KernelN fma, avx;
};
const KernelWidth kKernels[] = {{48, sgemm_kernel_fma_n48, sgemm_kernel_avx_n48},
                                {40, sgemm_kernel_fma_n40, sgemm_kernel_avx_n40},
                                {32, sgemm_kernel_fma_n32, sgemm_kernel_avx_n32},
                                {24, sgemm_kernel_fma_n24, sgemm_kernel_avx_n24},
                                {16, sgemm_kernel_fma_n16, sgemm_kernel_avx_n16},
                                {8, sgemm_kernel_fma_n8, sgemm_kernel_avx_n8}};

// Checks one micro-kernel call, `run(a, b, c)`, on operands sized for exactly
// the elements it may touch.
template <class Run>
void check_kernel(Rounding rounding, int width, int m, int k, Run run) {
  const int rows = m <= 0 ? 0 : m + (m & 1), depth = std::max(k, 0), sa = std::max(k, 1);
  const int specials = numbra_test::specials_for_length(k);
  std::vector<float> a = gemm_values<float>(rows > 0 ? (rows - 1) * sa + depth : 0, m * 7 + k,
                                            specials),
                     b = gemm_values<float>(depth * width, m + k * 5, specials),
                     c = gemm_values<float>(rows * width, m + k + width, 8);
  std::vector<float> expected = c;
  for (int row = 0; row < rows; ++row)
    for (int j = 0; j < width; ++j)
      for (int l = 0; l < k; ++l) {
        float& s = expected[row * width + j];
        s = numbra_test::chain_step(rounding, s, a[row * sa + l], b[l * width + j]);
      }
  numbra_test::call_guarded(run, a, b, c);
  SCOPED_TRACE(testing::Message() << "width " << width << ", m " << m << ", k " << k);
  EXPECT_SAME_RESULTS(expected.data(), c.data(), c.size());
}

TEST(SgemmMicroKernel, MatchesAscendingChainsForEveryWidth) {
  for (const Isa& isa : kIsas)
    for (const KernelWidth& kw : kKernels)
      for (const int m : {-2, 0, 1, 2, 3, 6, 47, 48})
        for (const int k : {-1, 0, 1, 2, 7, 8, 9, 47, 48}) {
          const KernelN kernel = isa.isa == ISA_FMA ? kw.fma : kw.avx;
          check_kernel(isa.rounding, kw.width, m, k,
                       [&](float* a, float* b, float* c) { kernel(a, b, c, m, k); });
        }
}

TEST(SgemmMicroKernel, FullDepthKernelsTakeRowsOf48) {
  for (const Isa& isa : kIsas)
    for (const int m : {0, 1, 2, 5, 48}) {
      const auto kernel = isa.isa == ISA_FMA ? sgemm_kernel_fma_k48_n48 : sgemm_kernel_avx_k48_n48;
      check_kernel(isa.rounding, 48, m, 48,
                   [&](float* a, float* b, float* c) { kernel(a, b, c, m); });
    }
}

// Floats of A and B that the skinny product's table of sources reaches:
// rows lda apart, and the rows of a block k apart from its first.
long a_extent(int m, int k, int lda) {
  if (m <= 0) return 0;
  const long full = m / 4 * 4, rest = m - full;
  long extent = static_cast<long>(m - 1) * lda + k;
  if (full > 0) extent = std::max(extent, (full - 4) * lda + 4L * k);
  if (rest > 1) extent = std::max(extent, full * lda + rest * k);
  return extent;
}
long b_extent(int n, int k, int ldb) {
  return n <= 0 ? 0 : std::max(static_cast<long>(n - 1) * ldb + k, static_cast<long>(n) * k);
}

// One skinny product through both instruction sets against the definition:
// C element by element, and the scratch panel's words afterwards.
class SkinnyTester {
 public:
  SkinnyTester& shape(int m, int n, int k) {
    m_ = m, n_ = n, k_ = k, lda_ = k, ldb_ = k, ldc_ = n;
    return *this;
  }
  SkinnyTester& strides(int lda, int ldb, int ldc) {
    lda_ = lda, ldb_ = ldb, ldc_ = ldc;
    return *this;
  }
  SkinnyTester& pack_stride(int floats) {
    pack_stride_ = floats;
    return *this;
  }
  SkinnyTester& scales(float alpha, float beta) {
    alpha_ = alpha, beta_ = beta;
    return *this;
  }

  void test() const {
    const unsigned seed = m_ * 1000 + n_ * 10 + k_;
    const int specials = numbra_test::specials_for_length(k_);
    const std::vector<float> a0 = gemm_values<float>(a_extent(m_, k_, lda_), seed, specials),
                             b0 = gemm_values<float>(b_extent(n_, k_, ldb_), seed + 1, specials),
                             c0 = gemm_values<float>(
                                 m_ > 0 && n_ > 0 ? long(m_ - 1) * ldc_ + n_ : 0, seed + 2, 10);
    // The room the GEMM entry point allocates, for its pack stride of 32.
    const long k_pos = std::max(k_, 0);
    const auto panel0 = gemm_values<float>(
        std::max<long>(k_pos / 8 * pack_stride_, k_pos / 8 * 32) + 32, seed + 3, 10);
    for (const Isa& isa : kIsas) {
      std::vector<float> expected = c0, expected_panel = panel0;
      numbra_test::reference_sgemm_nt(isa.rounding, m_, n_, k_, alpha_, lda_, a0.data(), ldb_,
                                      b0.data(), beta_, ldc_, expected.data(), pack_stride_,
                                      expected_panel.data());
      std::vector<float> a = a0, b = b0, c = c0, panel = panel0;
      numbra_test::call_guarded(
          [&](float* a, float* b, float* c, float* panel) {
            (isa.isa == ISA_FMA ? sgemm_nt_fma : sgemm_nt_avx)(
                m_, n_, k_, alpha_, lda_, a, pack_stride_, panel, ldb_, b, beta_, ldc_, c);
          },
          a, b, c, panel);
      SCOPED_TRACE(testing::Message()
                   << isa.name << ' ' << m_ << " x " << n_ << " x " << k_ << ", lda " << lda_
                   << ", ldb " << ldb_ << ", pack stride " << pack_stride_ << ", alpha " << alpha_
                   << ", beta " << beta_);
      EXPECT_SAME_RESULTS(expected.data(), c.data(), c.size());
      EXPECT_SAME_ARRAY_BITS(expected_panel.data(), panel.data(), panel.size());
    }
  }

 private:
  int m_ = 1, n_ = 1, k_ = 1, lda_ = 1, ldb_ = 1, ldc_ = 1, pack_stride_ = 32;
  float alpha_ = 1.5f, beta_ = -0.5f;
};

TEST(SgemmSkinny, EveryRowBlockTileAndTail) {
  for (int m = 0; m <= 16; ++m)
    for (const int n : {0, 1, 2, 3, 4, 5, 7, 11, 12, 13, 25, 31, 32, 33, 36, 37, 49, 97})
      for (const int k : {0, 1, 7, 8, 9, 15, 16, 17, 23, 24, 25, 47, 48, 49, 255, 256, 257, 264})
        SkinnyTester().shape(m, n, k).test();
}

// Long products: many column and depth chunks, rows in every group size.
TEST(SgemmSkinny, LargeShapes) {
  for (const auto& [m, n, k] : {std::tuple{16, 263, 1029},
                                {5, 263, 1029},
                                {1, 2050, 1000},
                                {14, 150, 3000},
                                {3, 300, 2000},
                                {8, 64, 2048},
                                {2, 1000, 500}})
    SkinnyTester().shape(m, n, k).test();
}

TEST(SgemmSkinny, StridesOtherThanKReadTheStatedElements) {
  for (const int m : {1, 3, 4, 5, 6, 9, 15, 16})
    for (const int k : {7, 24, 30, 260}) {
      SkinnyTester().shape(m, 9, k).strides(k + 3, k + 5, 11).scales(1.0f, 1.0f).test();
      SkinnyTester().shape(m, 40, k).strides(k + 1, k + 2, 40).scales(2.0f, 0.0f).test();
      SkinnyTester().shape(m, 29, k).strides(k + 9, k - 3, 31).test();
    }
}

// Pack strides other than 32: blocks further apart, and blocks that overlap,
// so that later copies overwrite earlier ones before the main steps read them.
TEST(SgemmSkinny, PanelsOfOtherPackStrides) {
  for (const int m : {2, 3, 4, 7, 16})
    for (const int pack_stride : {8, 16, 24, 40})
      for (const int k : {9, 48, 200})
        SkinnyTester().shape(m, 26, k).pack_stride(pack_stride).test();
}

// A zero beta of either sign leaves the old C unread; NaN in old C shows it.
TEST(SgemmSkinny, OutputRule) {
  const float nan = numbra_test::kNaN<float>, inf = numbra_test::kInf<float>;
  for (const float beta : {0.0f, -0.0f, nan, 1.0f, 1e-31f})
    for (const float alpha : {1.0f, inf, -0.0f}) {
      SkinnyTester().shape(5, 6, 0).strides(0, 0, 6).scales(alpha, beta).test();
      SkinnyTester().shape(5, 6, 9).scales(alpha, beta).test();
    }
}

TEST(SgemmSkinny, NothingWrittenForEmptyProducts) {
  std::vector<float> a(8 * 16, 1.0f), scratch(64), nothing;
  for (const Isa& isa : kIsas)
    for (const auto& [m, n] : {std::pair{0, 5}, {8, 0}, {-1, 5}}) {
      numbra_test::call_guarded(
          [&](float* c) {
            (isa.isa == ISA_FMA ? sgemm_nt_fma : sgemm_nt_avx)(
                m, n, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5, c);
          },
          nothing);
    }
}

}  // namespace
