// Mask-and-scale and split backward against their scalar definitions on
// every operand placement, and their treatment of special values.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/vector_operator.h"

namespace nb = ZETL::numbra;
using numbra_test::VectorOperator;

using numbra_test::kInf;
using numbra_test::kNaN;
using numbra_test::zero_beta_term;

namespace {

// a is the mask, b the input x.
template <typename T>
std::vector<VectorOperator<T>> operators() {
  std::vector<VectorOperator<T>> ops;
  for (const T alpha : {T(1), T(-2.5), T(0)}) {
    for (const T beta : {T(0), -T(0), T(0.75), kNaN<T>}) {
      const std::string tag =
          "(alpha=" + std::to_string(alpha) + ",beta=" + std::to_string(beta) + ")";
      for (const T threshold : {T(0.5), T(0), kNaN<T>}) {
        const T scale = T(1.75);
        ops.push_back({"MaskAndScale" + tag + "(threshold=" + std::to_string(threshold) + ")", true,
                       [=](unsigned long n, const T* mask, const T* x, T* y) {
                         nb::x86VectorMaskAndScale(n, mask, alpha, x, threshold, scale, beta, y);
                       },
                       [=](T mask, T x, T old) {
                         const T xa = x * alpha, v = xa * scale;
                         const T w = (threshold < mask ? T(1) : T(0)) * v;
                         return zero_beta_term(beta, old) + w;
                       }});
      }
      ops.push_back({"SplitBackward" + tag, true,
                     [=](unsigned long n, const T* a, const T* b, T* y) {
                       nb::x86VectorSplitBackward(n, alpha, a, b, beta, y);
                     },
                     [=](T a, T b, T old) {
                       const T sum = a + b, scaled = sum * alpha;
                       return scaled + zero_beta_term(beta, old);
                     }});
    }
  }
  return ops;
}

template <typename T>
class MaskSplitTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MaskSplitTest, Precisions);

TYPED_TEST(MaskSplitTest, MatchesDefinition) {
  numbra_test::expect_definition_everywhere(operators<TypeParam>());
}

TYPED_TEST(MaskSplitTest, MaskIsAMultiplication) {
  using T = TypeParam;
  // Repeated past a vector width so that both paths see every case.
  const std::vector<T> mask0 = {T(0.5), T(0.25), T(0.75), T(0.5), T(0.25), kNaN<T>, T(0.9)};
  const std::vector<T> x0 = {T(2), kInf<T>, T(2), kNaN<T>, T(-3), T(1), -T(0)};
  // threshold 0.5, alpha 1, scale 2, beta 0: the equal mask drops, a dropped
  // infinity or NaN still gives NaN, a dropped negative gives -0 + +0 = +0.
  const std::vector<T> want0 = {T(0), kNaN<T>, T(4), kNaN<T>, T(0), T(0), T(0)};
  std::vector<T> mask, x, want;
  for (int r = 0; r < 5; ++r) {
    mask.insert(mask.end(), mask0.begin(), mask0.end());
    x.insert(x.end(), x0.begin(), x0.end());
    want.insert(want.end(), want0.begin(), want0.end());
  }
  std::vector<T> y(x.size(), kNaN<T>);
  nb::x86VectorMaskAndScale<T>(x.size(), mask.data(), T(1), x.data(), T(0.5), T(2), T(0), y.data());
  EXPECT_SAME_RESULTS(want.data(), y.data(), y.size());
  // A NaN threshold drops everything: y * 1 + 0.
  std::vector<T> finite(x.size(), T(3)), old(x.size(), T(-5));
  nb::x86VectorMaskAndScale<T>(x.size(), mask.data(), T(1), finite.data(), kNaN<T>, T(2), T(1),
                               old.data());
  for (T v : old) EXPECT_SAME_BITS(T(-5), v);
}

TYPED_TEST(MaskSplitTest, SplitBackwardAccumulatesWithUnitBeta) {
  using T = TypeParam;
  std::vector<T> a(13, T(1)), b(13, T(2)), y(13, kNaN<T>);
  nb::x86VectorSplitBackward<T>(13, T(2), a.data(), b.data(), T(0), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(6), v);
  nb::x86VectorSplitBackward<T>(13, T(2), a.data(), b.data(), T(1), y.data());
  for (T v : y) EXPECT_SAME_BITS(T(12), v);
}

}  // namespace
