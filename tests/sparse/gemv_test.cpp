// The general sparse product and the sparse axpy in both precisions against
// their definitions: one sequential sum per row, alpha on the row's sum
// without transpose and on every entry with it, the zero-beta rule. Every
// operand sits against guard pages.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/guarded_call.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;
using numbra_test::call_guarded;

namespace {

template <typename T>
std::vector<T> edge(std::size_t n, std::uint32_t seed, int one_in) {
  const std::vector<float> v = edge_values(n, seed, one_in);
  return std::vector<T>(v.begin(), v.end());
}

// y = alpha A x + beta y (trans 0) or alpha A^T x + beta y (any other trans)
// for an m x n CSR matrix whose row i holds (3 i) % 11 entries, repeats
// included; and the sparse axpy of m entries into n elements.
template <typename T>
class SparseProductTester {
 public:
  SparseProductTester& shape(int m, int n) { return m_ = m, n_ = n, *this; }
  SparseProductTester& trans(int trans) { return trans_ = trans, *this; }
  SparseProductTester& alpha(T alpha) { return alpha_ = alpha, *this; }
  SparseProductTester& beta(T beta) { return beta_ = beta, *this; }
  SparseProductTester& nan_y(bool nan_y) { return nan_y_ = nan_y, *this; }

  void test_gemv() const {
    SCOPED_TRACE(testing::Message() << m_ << " x " << n_ << " trans " << trans_ << " alpha "
                                    << alpha_ << " beta " << beta_ << " NaN y " << nan_y_);
    std::vector<int> ptr = {0}, idx;
    for (int i = 0; i < m_; ++i) {
      for (int e = 0; e < (3 * i) % 11 && n_ > 0; ++e) idx.push_back((m_ + 7 * e + i) % n_);
      ptr.push_back(static_cast<int>(idx.size()));
    }
    std::vector<T> val = edge<T>(idx.size(), m_ * 31 + n_, 30);
    const int xn = trans_ ? m_ : n_, yn = trans_ ? n_ : m_;
    std::vector<T> x = edge<T>(xn, 5 + m_, 8);
    std::vector<T> y =
        nan_y_ ? std::vector<T>(yn, std::numeric_limits<T>::quiet_NaN()) : edge<T>(yn, 9, 8);
    std::vector<T> want = y;
    if (trans_ == 0) {
      for (int i = 0; i < m_; ++i) {
        T s = 0;
        for (int e = ptr[i]; e < ptr[i + 1]; ++e) {
          const T p = val[e] * x[idx[e]];
          s = p + s;
        }
        want[i] = s * alpha_ + numbra_test::zero_beta_term(beta_, want[i]);
      }
    } else {
      for (T& w : want) w = numbra_test::zero_beta_term(beta_, w);
      for (int i = 0; i < m_; ++i) {
        for (int e = ptr[i]; e < ptr[i + 1]; ++e) {
          const T p = (val[e] * alpha_) * x[i];
          want[idx[e]] = p + want[idx[e]];
        }
      }
    }
    call_guarded(
        [&](const int* p, const int* i, const T* v, const T* xs, T* ys) {
          nb::x86SparseMatrixGemv<T>(m_, n_, trans_, alpha_, p, i, v, xs, beta_, ys);
        },
        ptr, idx, val, x, y);
    EXPECT_SAME_RESULTS(want.data(), y.data(), want.size());
  }

  // The first and the last element of y are updated, repeated positions in
  // order.
  void test_axpy() const {
    SCOPED_TRACE(testing::Message() << m_ << " entries into " << n_ << " alpha " << alpha_);
    std::vector<int> idx(m_);
    for (int k = 0; k < m_; ++k) idx[k] = k == m_ - 1 ? n_ - 1 : (k * 5) % n_;
    std::vector<T> val = edge<T>(m_, 17 + m_, 6), y = edge<T>(n_, 23 + n_, 6), want = y;
    for (int k = 0; k < m_; ++k) {
      const T p = val[k] * alpha_;
      want[idx[k]] = p + want[idx[k]];
    }
    call_guarded(
        [&](const int* i, const T* v, T* ys) { nb::x86SparseVectorAxpy<T>(m_, alpha_, i, v, ys); },
        idx, val, y);
    EXPECT_SAME_RESULTS(want.data(), y.data(), want.size());
  }

 private:
  int m_ = 1, n_ = 1, trans_ = 0;
  T alpha_ = 1, beta_ = 0;
  bool nan_y_ = false;
};

template <typename T>
class SparseProduct : public testing::Test {};
using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(SparseProduct, Precisions);

TYPED_TEST(SparseProduct, GemvMatchesTheDefinition) {
  using T = TypeParam;
  for (int m : {0, 1, 5, 17}) {
    for (int n : {0, 1, 6, 13}) {
      for (int trans : {0, 1, -2}) {
        for (T alpha : {T(1.5), T(0), T(-3)}) {
          for (T beta : {T(0), T(-0.0), T(1), T(2.5), std::numeric_limits<T>::quiet_NaN()}) {
            for (bool nan_y : {false, true}) {
              SparseProductTester<T>()
                  .shape(m, n)
                  .trans(trans)
                  .alpha(alpha)
                  .beta(beta)
                  .nan_y(nan_y)
                  .test_gemv();
            }
          }
        }
      }
    }
  }
}

TYPED_TEST(SparseProduct, AxpyUpdatesRepeatedPositionsInOrder) {
  using T = TypeParam;
  for (int count : {0, 1, 2, 4, 9, 33, 64, 65}) {
    for (int n : {1, 7, 70}) {
      for (T alpha : {T(0.3), T(0), T(-2)})
        SparseProductTester<T>().shape(count, n).alpha(alpha).test_axpy();
    }
  }
}

// Without rows nothing but the transposed product's y is touched.
TYPED_TEST(SparseProduct, OperandsThatAreNotReadMayBeNull) {
  using T = TypeParam;
  nb::x86SparseMatrixGemv<T>(0, 3, 0, T(1), nullptr, nullptr, nullptr, nullptr, T(2), nullptr);
  T y[3] = {T(1), T(-2), T(0.5)};
  nb::x86SparseMatrixGemv<T>(0, 3, 1, T(1), nullptr, nullptr, nullptr, nullptr, T(2), y);
  const T doubled[3] = {T(2), T(-4), T(1)};
  EXPECT_SAME_ARRAY_BITS(doubled, y, 3);
  nb::x86SparseVectorAxpy<T>(0, T(1), nullptr, nullptr, nullptr);
}

}  // namespace
