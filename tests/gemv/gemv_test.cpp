// The GEMV entry points against their definitions written as plain loops:
// lanes as arrays, the twins' loop bounds spelled out, std::fma where a step
// is fused. The float forms run the kernel of the chosen instruction set
// (any other value leaves y alone); the double forms are loops of their own.
// Every call runs with its operands flush against an inaccessible page after
// their end, then before their start; an empty matrix and x are passed as
// null, since they must not be read.
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

namespace {

float step(bool fused, float acc, float u, float v) {
  if (fused) return std::fma(u, v, acc);
  const float p = u * v;
  return acc + p;
}

// Columns (or rows) that steps of `width` from 0 cover when they run while a
// whole step fits (the fused twin) or while one more is left (the plain one).
int covered(bool while_fits, int count, int width) {
  if (while_fits) return count >= width ? count / width * width : 0;
  return count > width ? (count - 1) / width * width : 0;
}

// y = beta * y + alpha * A * x as dot products: lane partial sums, added left
// to right, then the columns past the vector steps one rounded product at a
// time. Rows in blocks of four stop their steps where the twin's column bound
// says; rows on their own always leave a column over. beta is not tested.
void reference_sgemv_n(bool fused, int m, int n, float alpha, const float* a, const float* x,
                       float beta, float* y) {
  for (int i = 0; i < m; ++i) {
    const int lane_columns = covered(fused && i < covered(fused, m, 4), n, 8);
    const float scaled_y = beta * y[i];
    float lanes[8] = {}, sum = 0.0f;
    for (int j = 0; j < lane_columns; ++j)
      lanes[j % 8] = step(fused, lanes[j % 8], a[long(i) * n + j], x[j]);
    sum = lanes[0];
    for (int l = 1; l < 8; ++l) sum = sum + lanes[l];
    for (int j = lane_columns; j < n; ++j) sum = step(false, sum, a[long(i) * n + j], x[j]);
    y[i] = scaled_y + alpha * sum;
  }
}

// y = beta * y + alpha * A' * x: every column a chain over ascending rows,
// fused in the columns of the vector steps.
void reference_sgemv_t(bool fused, int m, int n, float alpha, const float* a, const float* x,
                       float beta, float* y) {
  const int lane_columns = covered(fused, n, 8);
  for (int j = 0; j < n; ++j) {
    float t = 0.0f;
    for (int i = 0; i < m; ++i) t = step(fused && j < lane_columns, t, x[i], a[long(i) * n + j]);
    const float scaled_t = alpha * t, scaled_y = beta * y[j];
    y[j] = scaled_t + scaled_y;
  }
}

// One running double sum per row; a zero beta leaves y unread.
void reference_dgemv_n(int m, int n, double alpha, const double* a, const double* x, double beta,
                       double* y) {
  for (int i = 0; i < m; ++i) {
    double s = 0;
    for (int j = 0; j < n; ++j) s = s + a[long(i) * n + j] * x[j];
    y[i] = s * alpha + (beta != 0 ? y[i] * beta : 0.0);
  }
}

// Float column sums: x narrowed first, each sum narrowed after every row.
void reference_dgemv_t(int m, int n, double alpha, const double* a, const double* x, double beta,
                       double* y) {
  for (int j = 0; j < n; ++j) {
    float t = 0.0f;
    for (int i = 0; i < m; ++i) {
      const double xi = static_cast<float>(x[i]);
      t = static_cast<float>(double(t) + a[long(i) * n + j] * xi);
    }
    y[j] = y[j] * beta + double(t) * alpha;
  }
}

// Pairs of scales: beta of either zero sign and NaN among them; the old y
// holds NaN and infinities, which a beta that is tested would skip.
const float kScales[][2] = {{1.5f, 0.75f}, {-0.3f, 0.0f}, {2.0f, -0.0f},
                            {0.0f, 1.0f},  {1.0f, NAN},   {INFINITY, 0.5f}};

// A call of one form, described fluently and checked against its definition
// for each instruction set asked for.
template <typename T>
class GemvTester {
 public:
  GemvTester& transposed(bool transposed) {
    transposed_ = transposed;
    return *this;
  }
  GemvTester& shape(int m, int n) {
    m_ = m, n_ = n;
    return *this;
  }
  GemvTester& scales(const float (&alpha_beta)[2]) {
    alpha_ = alpha_beta[0], beta_ = alpha_beta[1];
    return *this;
  }
  GemvTester& isas(std::vector<ISA_t> isas) {
    isas_ = std::move(isas);
    return *this;
  }

  void test() const {
    const int xs = transposed_ ? m_ : n_, ys = transposed_ ? n_ : m_;
    const int specials = numbra_test::specials_for_length(xs);
    const unsigned seed = m_ * 100 + n_;
    const std::vector<T> a0 = numbra_test::gemm_values<T>(long(m_) * n_, seed, specials),
                         x0 = numbra_test::gemm_values<T>(xs, seed + 7, specials),
                         y0 = numbra_test::mixed_values<T>(ys, seed + 13);
    for (const ISA_t isa : isas_) {
      std::vector<T> a = a0, x = x0, y = y0, expected = y0;
      reference(isa, a0.data(), x0.data(), expected.data());
      numbra_test::call_guarded(
          [&](T* a, T* x, T* y) {
            (transposed_ ? nb::x86MatrixGemv_t<T>
                         : nb::x86MatrixGemv_n<T>)(isa, IMP_t(7), -4, m_, n_, alpha_,
                                                   m_ > 0 && n_ > 0 ? a : nullptr,
                                                   xs > 0 ? x : nullptr, beta_, y);
          },
          a, x, y);
      SCOPED_TRACE(testing::Message()
                   << (transposed_ ? 't' : 'n') << ' ' << sizeof(T) * 8 << "-bit isa " << isa
                   << ": " << m_ << " x " << n_ << ", alpha " << alpha_ << ", beta " << beta_);
      EXPECT_SAME_RESULTS(expected.data(), y.data(), y.size());
    }
  }

 private:
  void reference(ISA_t isa, const T* a, const T* x, T* y) const {
    if constexpr (sizeof(T) == sizeof(float)) {
      if (isa != ISA_FMA && isa != ISA_AVX) return;  // y stays as it was
      (transposed_ ? reference_sgemv_t : reference_sgemv_n)(isa == ISA_FMA, m_, n_, alpha_, a, x,
                                                            beta_, y);
    } else {
      (transposed_ ? reference_dgemv_t : reference_dgemv_n)(m_, n_, alpha_, a, x, beta_, y);
    }
  }

  bool transposed_ = false;
  int m_ = 1, n_ = 1;
  T alpha_ = T(1.5), beta_ = T(0.75);
  std::vector<ISA_t> isas_ = {ISA_FMA, ISA_AVX};
};

template <typename T>
class Gemv : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Gemv, Precisions);

// Both sides of the blocks of four rows and the 8-lane steps, none included;
// the pairs of scales take turns.
TYPED_TEST(Gemv, EveryShapeMatchesItsDefinition) {
  for (const bool transposed : {false, true})
    for (int m = 0; m <= 13; ++m)
      for (int n = 0; n <= 33; ++n)
        GemvTester<TypeParam>()
            .transposed(transposed)
            .shape(m, n)
            .scales(kScales[(m + n) % 6])
            .test();
}

// Every pair of scales where rows go in blocks and on their own, and columns
// in vector steps and one by one.
TYPED_TEST(Gemv, EveryPairOfScales) {
  for (const bool transposed : {false, true})
    for (const auto& scales : kScales)
      for (const auto& [m, n] : {std::pair{13, 17}, {12, 16}, {3, 0}, {0, 3}})
        GemvTester<TypeParam>().transposed(transposed).shape(m, n).scales(scales).test();
}

TYPED_TEST(Gemv, LargeShapesMatchTheirDefinition) {
  for (const bool transposed : {false, true})
    for (const auto& [m, n] : {std::pair{64, 4099}, {1001, 37}, {259, 260}, {5, 1024}})
      GemvTester<TypeParam>().transposed(transposed).shape(m, n).test();
}

TYPED_TEST(Gemv, UnknownInstructionSets) {
  for (const bool transposed : {false, true})
    GemvTester<TypeParam>()
        .transposed(transposed)
        .shape(9, 17)
        .isas({ISA_t(2), ISA_t(-1), ISA_t(1000)})
        .test();
}

}  // namespace
