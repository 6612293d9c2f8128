// The GEMM entry points against their definitions. The float forms bring
// transposed operands into row-major form and run the packed driver of the
// chosen instruction set: every element of C is the ascending-depth chain of
// its products from +0, written back once by the alpha and beta rule, at the
// driver's addresses (rows inside a block of 336 lie n floats apart, blocks
// ldc rows apart); with a transposed B and at most 16 rows they run the
// skinny product instead. The double forms keep a float running sum. Every
// call runs with A, B, C and the workspace (exactly one worker's; none for
// double) against an inaccessible page after their end, then before their
// start.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "gemm/sgemm_reference.h"
#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_call.h"

namespace nb = ZETL::numbra;
using numbra_test::gemm_values;
using numbra_test::kGemmWorkspaceFloats;
using numbra_test::Rounding;

namespace {

template <typename T>
using Entry = void (*)(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, T,
                       unsigned long, const T*, unsigned long, const T*, T*, T, unsigned long, T*);

struct Form {
  const char* name;
  bool a_transposed, b_transposed;
  template <typename T>
  Entry<T> entry() const {
    return a_transposed ? (b_transposed ? nb::x86Gemm_tt<T> : nb::x86Gemm_tn<T>)
                        : (b_transposed ? nb::x86Gemm_nt<T> : nb::x86Gemm_nn<T>);
  }
};
constexpr Form kNN{"nn", false, false}, kTN{"tn", true, false}, kNT{"nt", false, true},
    kTT{"tt", true, true};
constexpr Form kForms[] = {kNN, kTN, kNT, kTT};

// Elements that `rows` rows of `cols` with row stride ld span.
long span(long rows, long cols, long ld) {
  return rows > 0 && cols > 0 ? (rows - 1) * ld + cols : 0;
}

// A stored `rows` by `cols` with stride ld, transposed into a packed copy.
std::vector<float> transposed(const std::vector<float>& s, long rows, long cols, long ld) {
  std::vector<float> t(rows * cols);
  for (long i = 0; i < rows; ++i)
    for (long j = 0; j < cols; ++j) t[j * rows + i] = s[i * ld + j];
  return t;
}

// The double forms: a float running sum, each step formed and added in
// double; C = (double)s * alpha + t, with t = C * beta unless beta is zero.
void reference_dgemm(const Form& form, long m, long n, long k, double alpha, long lda,
                     const double* a, long ldb, const double* b, double beta, long ldc, double* c) {
  for (long i = 0; i < m; ++i)
    for (long j = 0; j < n; ++j) {
      float s = 0.0f;
      for (long l = 0; l < k; ++l) {
        const double p = (form.a_transposed ? a[l * lda + i] : a[i * lda + l]) *
                         (form.b_transposed ? b[j * ldb + l] : b[l * ldb + j]);
        s = static_cast<float>(static_cast<double>(s) + p);
      }
      const double t = beta != 0.0 ? c[i * ldc + j] * beta : 0.0;
      const double scaled = static_cast<double>(s) * alpha;
      c[i * ldc + j] = scaled + t;
    }
}

// One worker's workspace against an inaccessible page, after its end for the
// first run of a guarded call and before its start for the second; kept
// across calls, so that what earlier products left in it is there too.
float* workspace(int run) {
  static numbra_test::GuardedBuffer<float> after(kGemmWorkspaceFloats, numbra_test::Guard::kAfter),
      before(kGemmWorkspaceFloats, numbra_test::Guard::kBefore);
  return run % 2 == 0 ? after.data() : before.data();
}

// An entry-point call, described fluently and checked against its definition
// for each instruction set asked for (by default both; any other value must
// leave C alone in the float forms, and the double forms ignore it).
template <typename T>
class GemmTester {
 public:
  GemmTester& form(const Form& form) {
    form_ = form;
    return *this;
  }
  GemmTester& shape(long m, long n, long k) {
    m_ = m, n_ = n, k_ = k;
    return *this;
  }
  GemmTester& extra_strides(long lda, long ldb) {
    lda_extra_ = lda, ldb_extra_ = ldb;
    return *this;
  }
  GemmTester& ldc(long ldc) {
    ldc_ = ldc;
    return *this;
  }
  GemmTester& scales(T alpha, T beta) {
    alpha_ = alpha, beta_ = beta;
    return *this;
  }
  GemmTester& isas(std::vector<ISA_t> isas) {
    isas_ = std::move(isas);
    return *this;
  }

  void test() const {
    for (const ISA_t isa : isas_) test(isa);
  }

 private:
  static constexpr bool kSingle = sizeof(T) == sizeof(float);

  void test(ISA_t isa) const {
    const long a_rows = form_.a_transposed ? k_ : m_, a_cols = form_.a_transposed ? m_ : k_;
    const long b_rows = form_.b_transposed ? n_ : k_, b_cols = form_.b_transposed ? k_ : n_;
    const long lda = a_cols + lda_extra_, ldb = b_cols + ldb_extra_, ldc = ldc_ < 0 ? n_ : ldc_;
    const bool skinny = kSingle && form_.b_transposed && !form_.a_transposed && m_ <= 16;
    // Rows of C lie ldc apart, except in the driver's blocks of 336 rows.
    const long c_size =
        m_ > 0 && n_ > 0
            ? (kSingle && !skinny ? numbra_test::driver_c_index(m_ - 1, n_ - 1, n_, ldc)
                                  : (m_ - 1) * ldc + n_ - 1) +
                  1
            : 0;
    const unsigned seed = unsigned(m_ * 7 + n_ * 3 + k_);
    const int specials = numbra_test::specials_for_length(k_);
    std::vector<T> a = gemm_values<T>(span(a_rows, a_cols, lda), seed, specials),
                   b = gemm_values<T>(span(b_rows, b_cols, ldb), seed + 1, specials),
                   c = gemm_values<T>(c_size, seed + 2, 20);
    const std::vector<T> a0 = a, b0 = b;
    std::vector<T> expected = c;
    const Rounding rounding = isa == ISA_FMA ? Rounding::kFused : Rounding::kSeparate;
    if constexpr (!kSingle) {
      reference_dgemm(form_, m_, n_, k_, alpha_, lda, a.data(), ldb, b.data(), beta_, ldc,
                      expected.data());
    } else if (isa != ISA_FMA && isa != ISA_AVX) {
      // C stays as it was.
    } else if (skinny) {
      numbra_test::reference_sgemm_nt(rounding, m_, n_, k_, alpha_, lda, a.data(), ldb, b.data(),
                                      beta_, ldc, expected.data());
    } else {
      // The driver sees row-major copies with strides k and n.
      const auto a_nn = form_.a_transposed ? transposed(a, a_rows, a_cols, lda) : a;
      const auto b_nn = form_.b_transposed ? transposed(b, b_rows, b_cols, ldb) : b;
      numbra_test::reference_sgemm_nn(rounding, m_, n_, k_, alpha_, a_nn.data(),
                                      form_.a_transposed ? k_ : lda, b_nn.data(),
                                      form_.b_transposed ? n_ : ldb, beta_, expected.data(), ldc);
    }
    int run = 0;
    numbra_test::call_guarded(
        [&](T* a, T* b, T* c) {
          T* ws = nullptr;
          if constexpr (kSingle) ws = workspace(run++);
          form_.entry<T>()(isa, IMP_t(7), -5, m_, n_, k_, alpha_, lda, a, ldb, b, ws, beta_, ldc,
                           c);
        },
        a, b, c);
    SCOPED_TRACE(testing::Message()
                 << form_.name << (kSingle ? " float" : " double") << " isa " << isa << ": " << m_
                 << " x " << n_ << " x " << k_ << ", lda " << lda << ", ldb " << ldb << ", ldc "
                 << ldc << ", alpha " << numbra_test::describe(alpha_) << ", beta "
                 << numbra_test::describe(beta_));
    EXPECT_SAME_RESULTS(expected.data(), c.data(), c.size());
    EXPECT_SAME_ARRAY_BITS(a0.data(), a.data(), a.size());
    EXPECT_SAME_ARRAY_BITS(b0.data(), b.data(), b.size());
  }

  Form form_ = kNN;
  long m_ = 1, n_ = 1, k_ = 1, lda_extra_ = 0, ldb_extra_ = 0, ldc_ = -1;
  T alpha_ = T(1.5), beta_ = T(-0.75);
  std::vector<ISA_t> isas_ = {ISA_FMA, ISA_AVX};
};

template <typename T>
class GemmForms : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(GemmForms, Precisions);

// Both sides of the 8-lane width, the 16-row skinny limit, the 48-wide
// strips and the 336 block, with strides beyond the stored widths; unknown
// instruction sets too.
TYPED_TEST(GemmForms, EveryFormAndInstructionSet) {
  const long shapes[][3] = {{0, 0, 0},    {0, 5, 3},    {4, 0, 3},   {3, 5, 0},
                            {1, 1, 1},    {1, 8, 7},    {7, 9, 8},   {16, 17, 9},
                            {17, 16, 9},  {16, 33, 40}, {3, 64, 1},  {48, 49, 3},
                            {49, 47, 50}, {337, 9, 5},  {5, 337, 9}, {9, 5, 337}};
  for (const Form& form : kForms)
    for (const auto& s : shapes)
      GemmTester<TypeParam>()
          .form(form)
          .shape(s[0], s[1], s[2])
          .extra_strides(3, 1)
          .ldc(s[1] + 2)
          .isas({ISA_FMA, ISA_AVX, ISA_t(2), ISA_t(-1), ISA_t(1000)})
          .test();
}

TEST(GemmDriver, RegisterTileEdges) {
  // Strips of 6 rows (every height of a last strip) and slivers of 16
  // columns, on both sides of each edge.
  for (const long m : {1, 2, 3, 4, 5, 6, 7, 12, 13})
    for (const long n : {1, 7, 8, 9, 15, 16, 17, 33})
      for (const long k : {0, 1, 4, 15, 16, 17, 33}) GemmTester<float>().shape(m, n, k).test();
}

TEST(GemmDriver, PanelWidthsAndDepthRuns) {
  // Depths on both sides of the register-only limit (1024) and of uneven
  // runs beyond it; widths across the panels that each depth gets. The
  // instruction sets take turns: runs and panels are the same code in both.
  int turn = 0;
  for (const long k : {64, 257, 1024, 1025, 1537, 2049})
    for (const long n : {63, 65, 129, 241, 257, 300})
      GemmTester<float>().shape(13, n, k).isas({++turn % 2 ? ISA_FMA : ISA_AVX}).test();
}

TEST(GemmDriver, BlocksRowGroupsAndStrides) {
  // ldc separates the blocks of 336 rows; inside a block rows lie n apart.
  GemmTester<float>().shape(340, 40, 30).ldc(64).scales(1.0f, 0.0f).test();
  GemmTester<float>().shape(700, 37, 50).ldc(45).test();
  GemmTester<float>().shape(337, 337, 337).form(kTT).isas({ISA_AVX}).test();
  GemmTester<float>().shape(60, 50, 70).extra_strides(5, 3).form(kTN).test();
  GemmTester<float>().shape(400, 30, 20).extra_strides(1, 7).form(kNT).test();
  // Rows of A 512 floats apart, all in the same cache sets.
  GemmTester<float>().shape(29, 40, 100).extra_strides(412, 0).test();
  // Deep products keep their sums between runs for a group of rows at a
  // time (here 1578 rows): this one needs two.
  GemmTester<float>().shape(1600, 17, 1025).extra_strides(511, 0).isas({ISA_FMA}).test();
}

// The write-back rule's thresholds (1e-30 from zero and from one), through
// the driver and the skinny product, and the double forms' zero beta.
TEST(GemmScales, NearTheirThresholds) {
  const float nan = numbra_test::kNaN<float>, inf = numbra_test::kInf<float>;
  const float scales[] = {1.0f, 0.0f, -0.0f, 1e-31f, 1e-29f, nan, inf, -inf, 0.5f,
                          // next to 1e-30 and to 1
                          std::nextafter(1e-30f, 0.0f), std::nextafter(1e-30f, 1.0f),
                          std::nextafter(1.0f, 0.0f), std::nextafter(1.0f, 2.0f)};
  for (const float alpha : scales) {
    for (const float beta : scales) {
      for (const Form& form : {kNN, kNT})
        GemmTester<float>().form(form).shape(13, 33, 17).scales(alpha, beta).test();
      GemmTester<double>().shape(3, 5, 7).scales(alpha, beta).isas({ISA_FMA}).test();
    }
  }
}

// C overlapping A, B or itself: the block order decides what later blocks
// read, whether C shares many floats or a single one.
TEST(GemmDriver, OverlapFollowsTheBlockOrder) {
  const int n = 300, k = 40;
  const long b_floats = long(k) * n;
  const struct {
    int m;
    long a_at, b_at, c_at;
    int ldc;
  } cases[] = {
      {400, 0, 400 * k, 1000, n},                     // C over the end of A
      {400, b_floats + 7, 0, 3, n},                   // C over B
      {300, b_floats, 0, b_floats + 300 * k - 1, n},  // C's first float is A's last
      {400, b_floats + 400 * n, 0, b_floats - 1, n},  // C's first float is B's last
      {400, 0, 400 * k, 400 * k + b_floats, n - 1},   // blocks of C share a row
      {400, 0, 400 * k, 400 * k + b_floats, 250},     // blocks of C overlap more
  };
  for (const auto& o : cases) {
    const long size =
        std::max({o.a_at + long(o.m) * k, o.b_at + b_floats,
                  o.c_at + numbra_test::driver_c_index(o.m - 1, n - 1, n, o.ldc) + 1});
    const std::vector<float> memory = gemm_values<float>(size, 21, 0);
    for (const numbra_test::Isa& isa : numbra_test::kIsas) {
      std::vector<float> expected = memory, actual = memory;
      numbra_test::reference_sgemm_nn(isa.rounding, o.m, n, k, 0.5f, expected.data() + o.a_at, k,
                                      expected.data() + o.b_at, n, 0.25f, expected.data() + o.c_at,
                                      o.ldc);
      int run = 0;
      numbra_test::call_guarded(
          [&](float* mem) {
            nb::x86Gemm_nn<float>(isa.isa, IMP_DEFAULT, 1, o.m, n, k, 0.5f, k, mem + o.a_at, n,
                                  mem + o.b_at, workspace(run++), 0.25f, o.ldc, mem + o.c_at);
          },
          actual);
      SCOPED_TRACE(testing::Message()
                   << isa.name << " m " << o.m << ", a at " << o.a_at << ", b at " << o.b_at
                   << ", c at " << o.c_at << ", ldc " << o.ldc);
      EXPECT_SAME_RESULTS(expected.data(), actual.data(), memory.size());
    }
  }
}

TEST(GemmDriver, NegativeCountsLeaveCAlone) {
  numbra_test::GuardedBuffer<float> nothing(0, numbra_test::Guard::kAfter);
  for (const auto driver : {x86_blas_sgemm_nn_fma, x86_blas_sgemm_nn_avx})
    for (const auto& [m, n] : {std::pair{-3, 5}, {5, -3}})
      driver(m, n, 4, 1.0f, nothing.data(), 4, nothing.data(), 5, nothing.data(), 1.0f,
             nothing.data(), 5);
}

TEST(GemmSize, WorkspacePerWorker) {
  for (auto size : {nb::x86GemmNNGetSize<float>, nb::x86GemmNTGetSize<float>,
                    nb::x86GemmTNGetSize<float>, nb::x86GemmTTGetSize<float>}) {
    EXPECT_EQ(4 * numbra_test::kGemmWorkspaceBytes, size(4, 1, 2, 3, 4, 5, 6));
    for (const int workers : {1, 0, -3})
      EXPECT_EQ(numbra_test::kGemmWorkspaceBytes, size(workers, 9, 9, 9, 9, 9, 9));
  }
  for (auto size : {nb::x86GemmNNGetSize<double>, nb::x86GemmNTGetSize<double>,
                    nb::x86GemmTNGetSize<double>, nb::x86GemmTTGetSize<double>}) {
    EXPECT_EQ(4 * numbra_test::kGemmWorkspaceBytes, size(2, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(2 * numbra_test::kGemmWorkspaceBytes, size(0, 0, 0, 0, 0, 0, 0));
  }
}

}  // namespace
