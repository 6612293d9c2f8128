// The GEMM entry points: transposed operands brought into shape, dispatch by
// ISA_t, the skinny path for few rows with a transposed B, the double loop
// nest with its float running sum, allocation failures and sizing.
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "gemm/sgemm_reference.h"
#include "numbra.h"
#include "support/float_bits.h"

namespace nb = ZETL::numbra;
using numbra_test::Rounding;

namespace {

constexpr std::size_t kWorkspaceFloats = 1354752 / sizeof(float);

template <typename T>
std::vector<T> uniform_values(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<T> dist(T(-1), T(1));
  std::vector<T> v(n);
  for (T& x : v) x = dist(gen);
  return v;
}

// A stored `rows` by `cols` with stride ld, transposed into a packed copy.
template <typename T>
std::vector<T> transposed(const std::vector<T>& s, long rows, long cols, long ld) {
  std::vector<T> t(rows * cols);
  for (long i = 0; i < rows; ++i)
    for (long j = 0; j < cols; ++j) t[j * rows + i] = s[i * ld + j];
  return t;
}

using Entry = void (*)(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, float,
                       unsigned long, const float*, unsigned long, const float*, float*, float,
                       unsigned long, float*);

struct Form {
  const char* name;
  Entry entry;
  bool a_transposed, b_transposed;
};
const Form kForms[] = {{"nn", nb::x86Gemm_nn<float>, false, false},
                       {"tn", nb::x86Gemm_tn<float>, true, false},
                       {"nt", nb::x86Gemm_nt<float>, false, true},
                       {"tt", nb::x86Gemm_tt<float>, true, true}};

TEST(GemmFloat, EveryFormMatchesTheDriverOrSkinnyDefinition) {
  const int extra = 3;  // strides beyond the stored width
  for (const Form& form : kForms) {
    for (const auto& [m, n, k] : {std::tuple{1, 5, 9},
                                  {16, 33, 40},
                                  {17, 33, 40},
                                  {50, 70, 30},
                                  {340, 20, 20},
                                  {3, 64, 1}}) {
      const long a_rows = form.a_transposed ? k : m, a_cols = form.a_transposed ? m : k;
      const long b_rows = form.b_transposed ? n : k, b_cols = form.b_transposed ? k : n;
      const long lda = a_cols + extra, ldb = b_cols + extra;
      const auto a = uniform_values<float>(a_rows * lda, 1),
                 b = uniform_values<float>(b_rows * ldb, 2);
      const auto c0 = uniform_values<float>(m * n, 3);
      for (const auto& [isa, rounding] :
           {std::pair{ISA_FMA, Rounding::kFused}, {ISA_AVX, Rounding::kSeparate}}) {
        std::vector<float> expected = c0;
        const bool skinny = form.b_transposed && !form.a_transposed && m <= 16;
        if (skinny) {
          numbra_test::reference_sgemm_nt(rounding, m, n, k, 0.5f, lda, a.data(), ldb, b.data(),
                                          2.0f, n, expected.data());
        } else {
          // The driver sees row-major copies with strides k and n.
          const auto a_nn = form.a_transposed ? transposed(a, a_rows, a_cols, lda) : a;
          const auto b_nn = form.b_transposed ? transposed(b, b_rows, b_cols, ldb) : b;
          numbra_test::reference_sgemm_nn(rounding, m, n, k, 0.5f, a_nn.data(),
                                          form.a_transposed ? k : lda, b_nn.data(),
                                          form.b_transposed ? n : ldb, 2.0f, expected.data(), n);
        }
        std::vector<float> c = c0, ws(kWorkspaceFloats);
        form.entry(isa, IMP_t(7), -5, m, n, k, 0.5f, lda, a.data(), ldb, b.data(), ws.data(), 2.0f,
                   n, c.data());
        SCOPED_TRACE(std::string(form.name) + " m=" + std::to_string(m) +
                     " n=" + std::to_string(n) + " k=" + std::to_string(k) +
                     " isa=" + std::to_string(int(isa)));
        EXPECT_SAME_RESULTS(expected.data(), c.data(), c.size());
      }
    }
  }
}

TEST(GemmFloat, UnknownIsaLeavesCUntouched) {
  const auto a = uniform_values<float>(40 * 40, 1), b = uniform_values<float>(40 * 40, 2);
  const auto c0 = uniform_values<float>(40 * 40, 3);
  std::vector<float> ws(kWorkspaceFloats);
  for (const Form& form : kForms) {
    for (const int m : {8, 40}) {
      for (const int isa : {2, -1, 1000}) {
        std::vector<float> c = c0;
        form.entry(ISA_t(isa), IMP_DEFAULT, 1, m, 40, 40, 1.0f, 40, a.data(), 40, b.data(),
                   ws.data(), 0.0f, 40, c.data());
        SCOPED_TRACE(std::string(form.name) + " isa " + std::to_string(isa));
        EXPECT_SAME_RESULTS(c0.data(), c.data(), c.size());
      }
    }
  }
}

TEST(GemmFloat, FailedCopiesInTheTransposedFormsLeaveCUntouched) {
  // The first copy cannot be allocated: C stays as it was (the second copy
  // is deliberately not given back).
  const std::vector<float> c0 = {1, 2, 3, 4};
  std::vector<float> c = c0, ws(kWorkspaceFloats), a(4), b(4);
  const unsigned long huge = 1ul << 42;
  nb::x86Gemm_tt<float>(ISA_FMA, IMP_DEFAULT, 1, huge, 1, huge, 1.0f, huge, a.data(), huge,
                        b.data(), ws.data(), 0.0f, 1, c.data());
  EXPECT_SAME_RESULTS(c0.data(), c.data(), c.size());
}

TEST(GemmSize, WorkspacePerWorker) {
  for (auto size : {nb::x86GemmNNGetSize<float>, nb::x86GemmNTGetSize<float>,
                    nb::x86GemmTNGetSize<float>, nb::x86GemmTTGetSize<float>}) {
    EXPECT_EQ(5419008ul, size(4, 1, 2, 3, 4, 5, 6));
    for (const int workers : {1, 0, -3}) EXPECT_EQ(1354752ul, size(workers, 9, 9, 9, 9, 9, 9));
  }
  for (auto size : {nb::x86GemmNNGetSize<double>, nb::x86GemmNTGetSize<double>,
                    nb::x86GemmTNGetSize<double>, nb::x86GemmTTGetSize<double>}) {
    EXPECT_EQ(5419008ul, size(2, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(2709504ul, size(0, 0, 0, 0, 0, 0, 0));
  }
}

// The double forms: a float running sum, each step formed and added in
// double; C = (double)s * alpha + t, with t = C * beta unless beta is zero.
void reference_dgemm(bool ta, bool tb, long m, long n, long k, double alpha, long lda,
                     const double* a, long ldb, const double* b, double beta, long ldc, double* c) {
  for (long i = 0; i < m; ++i)
    for (long j = 0; j < n; ++j) {
      float s = 0.0f;
      for (long l = 0; l < k; ++l) {
        const double p =
            (ta ? a[l * lda + i] : a[i * lda + l]) * (tb ? b[j * ldb + l] : b[l * ldb + j]);
        s = static_cast<float>(static_cast<double>(s) + p);
      }
      const double t = beta != 0.0 ? c[i * ldc + j] * beta : 0.0;
      const double scaled = static_cast<double>(s) * alpha;
      c[i * ldc + j] = scaled + t;
    }
}

TEST(GemmDouble, EveryFormKeepsAFloatRunningSum) {
  using DEntry = void (*)(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, double,
                          unsigned long, const double*, unsigned long, const double*, double*,
                          double, unsigned long, double*);
  const struct {
    DEntry entry;
    bool ta, tb;
  } forms[] = {{nb::x86Gemm_nn<double>, false, false},
               {nb::x86Gemm_tn<double>, true, false},
               {nb::x86Gemm_nt<double>, false, true},
               {nb::x86Gemm_tt<double>, true, true}};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const auto& form : forms) {
    for (const double beta : {0.0, -0.0, 0.5, nan}) {
      const long m = 7, n = 9, k = 13, lda = 20, ldb = 20, ldc = 11;
      const auto a = numbra_test::mixed_values<double>(20 * 20, 1);
      const auto b = numbra_test::mixed_values<double>(20 * 20, 2);
      auto c0 = numbra_test::mixed_values<double>(m * ldc, 3);
      std::vector<double> expected = c0, c = c0;
      reference_dgemm(form.ta, form.tb, m, n, k, 1.5, lda, a.data(), ldb, b.data(), beta, ldc,
                      expected.data());
      // Any ISA_t and no workspace: the double forms read neither.
      form.entry(ISA_t(9), IMP_DEFAULT, 3, m, n, k, 1.5, lda, a.data(), ldb, b.data(), nullptr,
                 beta, ldc, c.data());
      EXPECT_SAME_RESULTS(expected.data(), c.data(), c.size());
    }
  }
  // The sum is rounded to float before alpha: 1 * (1 + 2^-30) comes out 1.
  const double one = 1.0, above = 1.0 + std::ldexp(1.0, -30);
  double c = 5.0;
  nb::x86Gemm_nn<double>(ISA_FMA, IMP_DEFAULT, 1, 1, 1, 1, 1.0, 1, &one, 1, &above, nullptr, 0.0, 1,
                         &c);
  EXPECT_EQ(1.0, c);
  nb::x86Gemm_nn<double>(ISA_FMA, IMP_DEFAULT, 1, 0, 1, 1, 1.0, 1, nullptr, 1, nullptr, nullptr,
                         0.0, 1, nullptr);
}

}  // namespace
