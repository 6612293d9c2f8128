// Relu against its definitions written as plain loops: the float kernel's
// fast path, its general path with the old y[0] scaling the vector part, the
// double loop and the backward form, over lengths on both sides of the lane
// counts, with operands flush against an inaccessible page.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::boundary_lengths;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

template <typename T>
T rectified(T v) {
  return v > 0 ? v : T(0);
}

bool takes_fast_path(float alpha, float beta) {
  return std::fabs(alpha + -1.0f) < 1e-30f && std::fabs(beta) < 1e-30f;
}

void reference_kernel(unsigned long n, float alpha, const float* x, float beta, float* y) {
  if (takes_fast_path(alpha, beta)) {
    for (unsigned long i = 0; i < n; ++i) y[i] = rectified(x[i]);
    return;
  }
  const float w = beta != 0 ? beta * y[0] : 0.0f;
  const unsigned long vector_end = n & ~7ul;
  for (unsigned long i = 0; i < vector_end; ++i) y[i] = w * y[i] + alpha * rectified(x[i]);
  for (unsigned long i = vector_end; i < n; ++i) {
    const float p = x[i] > 0 ? x[i] * alpha : 0.0f;
    y[i] = beta != 0 ? p + beta * y[i] : p + 0.0f;
  }
}

// The double forward loop and, with g = x, the backward loop of either
// precision: p = g * alpha where x > 0, blended by the zero-beta rule.
template <typename T>
void reference_gated(unsigned long n, T alpha, const T* x, const T* g, T beta, T* y) {
  for (unsigned long i = 0; i < n; ++i) {
    const T p = x[i] > 0 ? g[i] * alpha : T(0);
    y[i] = beta != 0 ? y[i] * beta + p : p + T(0);
  }
}

struct Scales {
  float alpha, beta;
};
const Scales kScales[] = {{1.0f, 0.0f}, {1.0f, -0.0f},   {1.0f, 1e-31f},    {1.0f, 1e-29f},
                          {2.0f, 0.0f}, {2.0f, 0.5f},    {kInf, 0.5f},      {kNaN, 0.0f},
                          {1.0f, kNaN}, {-1.0f, -0.25f}, {1.0000001f, 0.0f}};

TEST(VectorReluKernel, MatchesItsDefinitionAtEveryLength) {
  for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
    for (const unsigned long n : boundary_lengths()) {
      const std::vector<float> x_values = mixed_values<float>(n, 11 + n);
      const std::vector<float> y_values = mixed_values<float>(n + 1, 12 + n);
      GuardedBuffer<float> x(n, guard);
      x.assign(x_values.data());
      for (const Scales& s : kScales) {
        // With nothing to write, only the general path's w reads y[0].
        const bool reads_first = !takes_fast_path(s.alpha, s.beta) && s.beta != 0;
        GuardedBuffer<float> y(n == 0 && reads_first ? 1 : n, guard);
        y.assign(y_values.data());
        std::vector<float> expected(y_values.begin(), y_values.begin() + y.size());
        reference_kernel(n, s.alpha, x.data(), s.beta, expected.data());
        vectorRelu_avx<float>(n, s.alpha, x.data(), s.beta, y.data());
        SCOPED_TRACE(testing::Message() << "n=" << n << " alpha=" << s.alpha << " beta=" << s.beta);
        EXPECT_SAME_RESULTS(expected.data(), y.data(), y.size());
      }
    }
  }
}

TEST(VectorReluKernel, InPlaceMatchesItsDefinition) {
  for (const unsigned long n : {7ul, 8ul, 21ul}) {
    for (const Scales& s : kScales) {
      std::vector<float> expected = mixed_values<float>(n, 5), y = expected;
      reference_kernel(n, s.alpha, expected.data(), s.beta, expected.data());
      vectorRelu_avx<float>(n, s.alpha, y.data(), s.beta, y.data());
      EXPECT_SAME_RESULTS(expected.data(), y.data(), n);
    }
  }
}

// Long enough for the output to bypass the caches, at an odd offset.
TEST(VectorReluKernel, LargeDisjointOutputMatchesItsDefinition) {
  const unsigned long n = (4ul << 20) + 13;
  const std::vector<float> x = mixed_values<float>(n, 3);
  std::vector<float> y(n + 1, 5.0f), expected(n, 5.0f);
  reference_kernel(n, 1.0f, x.data(), 0.0f, expected.data());
  vectorRelu_avx<float>(n, 1.0f, x.data(), 0.0f, y.data() + 1);
  EXPECT_SAME_RESULTS(expected.data(), y.data() + 1, n);
  EXPECT_EQ(5.0f, y[0]);
}

TEST(VectorReluKernel, VectorPartScalesByTheOldFirstElement) {
  std::vector<float> x(10, 1.0f), y(10, 4.0f);
  vectorRelu_avx<float>(10, 2.0f, x.data(), 0.5f, y.data());
  for (int i = 0; i < 8; ++i) EXPECT_EQ(10.0f, y[i]);  // 2 * 4 + 2 * 1
  EXPECT_EQ(4.0f, y[8]);                               // 2 * 1 + 0.5 * 4
  EXPECT_EQ(4.0f, y[9]);
}

TEST(VectorRelu, FloatRunsTheKernelForBothInstructionSetsOnly) {
  const unsigned long n = 29;
  const std::vector<float> x = mixed_values<float>(n, 1), old_y = mixed_values<float>(n, 2);
  for (const Scales& s : kScales) {
    std::vector<float> expected = old_y;
    vectorRelu_avx<float>(n, s.alpha, x.data(), s.beta, expected.data());
    for (const int isa : {0, 1, 2}) {
      std::vector<float> y = old_y;
      nb::x86VectorRelu<float>(static_cast<ISA_t>(isa), IMP_DEFAULT, n, s.alpha, x.data(), s.beta,
                               y.data());
      EXPECT_SAME_ARRAY_BITS(isa == 2 ? old_y.data() : expected.data(), y.data(), n);
    }
  }
}

template <typename T>
void check_gated_forms() {
  const T nan = std::numeric_limits<T>::quiet_NaN();
  for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
    for (const unsigned long n : boundary_lengths()) {
      const std::vector<T> x_values = mixed_values<T>(n, 21), g_values = mixed_values<T>(n, 22);
      const std::vector<T> y_values = mixed_values<T>(n, 23);
      GuardedBuffer<T> x(n, guard), g(n, guard), y(n, guard);
      x.assign(x_values.data());
      g.assign(g_values.data());
      for (const T alpha : {T(1), T(-2.5), nan}) {
        for (const T beta : {T(0), T(-0.0), T(0.75), nan}) {
          SCOPED_TRACE(testing::Message() << "n=" << n << " alpha=" << alpha << " beta=" << beta);
          std::vector<T> expected = y_values;
          reference_gated(n, alpha, x.data(), g.data(), beta, expected.data());
          y.assign(y_values.data());
          nb::x86VectorReluBackward<T>(n, alpha, x.data(), g.data(), beta, y.data());
          EXPECT_SAME_RESULTS(expected.data(), y.data(), n);
          if constexpr (std::is_same_v<T, double>) {
            expected = y_values;
            reference_gated(n, alpha, x.data(), x.data(), beta, expected.data());
            y.assign(y_values.data());
            nb::x86VectorRelu<double>(static_cast<ISA_t>(2), IMP_DEFAULT, n, alpha, x.data(), beta,
                                      y.data());
            EXPECT_SAME_RESULTS(expected.data(), y.data(), n);
          }
        }
      }
    }
  }
}

TEST(VectorReluBackward, FloatMatchesItsDefinition) { check_gated_forms<float>(); }
TEST(VectorReluBackwardAndDoubleRelu, MatchTheirDefinitions) { check_gated_forms<double>(); }

}  // namespace
