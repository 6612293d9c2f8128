// The general sparse product and the sparse axpy in both precisions against
// their definitions: one sequential sum per row, alpha on the row's sum
// without transpose and on every entry with it, the zero-beta rule.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"

namespace nb = ZETL::numbra;
using namespace sparse_test;

namespace {

template <typename T>
std::vector<T> as(const std::vector<float>& v) {
  return std::vector<T>(v.begin(), v.end());
}

template <typename T>
std::vector<T> gemv_definition(int m, int n, int trans, T alpha, const Compressed& a,
                               const std::vector<T>& val, const std::vector<T>& x, T beta,
                               std::vector<T> y) {
  if (trans == 0) {
    for (int i = 0; i < m; ++i) {
      T s = 0;
      for (int e = a.ptr[i]; e < a.ptr[i + 1]; ++e) {
        const T p = val[e] * x[a.idx[e]];
        s = p + s;
      }
      const T scaled = s * alpha;
      y[i] = beta != T(0) ? scaled + y[i] * beta : scaled + T(0);
    }
    return y;
  }
  for (int j = 0; j < n; ++j) y[j] = beta != T(0) ? y[j] * beta : T(0);
  for (int i = 0; i < m; ++i) {
    for (int e = a.ptr[i]; e < a.ptr[i + 1]; ++e) {
      const T weighted = val[e] * alpha;
      const T p = weighted * x[i];
      y[a.idx[e]] = p + y[a.idx[e]];
    }
  }
  return y;
}

// A CSR matrix whose row i holds (3 i) % 11 entries, repeats included.
Compressed random_csr(int m, int n, std::uint32_t seed) {
  Compressed c;
  c.ptr.push_back(0);
  for (int i = 0; i < m; ++i) {
    for (int e = 0; e < (3 * i) % 11 && n > 0; ++e) c.idx.push_back((seed + 7 * e + i) % n);
    c.ptr.push_back(static_cast<int>(c.idx.size()));
  }
  c.val = edge_values(c.idx.size(), seed, 30);
  return c;
}

template <typename T>
class SparseGemv : public testing::Test {};
using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(SparseGemv, Precisions);

TYPED_TEST(SparseGemv, MatchesTheDefinition) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  for (int m : {0, 1, 5, 17}) {
    for (int n : {0, 1, 6, 13}) {
      const Compressed a = random_csr(m, n, m * 31 + n);
      const std::vector<T> val = as<T>(a.val);
      for (int trans : {0, 1, -2}) {
        const int xn = trans ? m : n, yn = trans ? n : m;
        const auto x = guarded(as<T>(edge_values(xn, 5 + m, 8)));
        const std::vector<T> x_values(x->data(), x->data() + xn);
        for (T alpha : {T(1.5), T(0), T(-3)}) {
          for (T beta : {T(0), T(-0.0), T(1), T(2.5), nan}) {
            for (bool nan_y : {false, true}) {
              SCOPED_TRACE(testing::Message() << m << " x " << n << " trans " << trans << " alpha "
                                              << alpha << " beta " << beta);
              const std::vector<T> y0 =
                  nan_y ? std::vector<T>(yn, nan) : as<T>(edge_values(yn, 9, 8));
              const auto y = guarded(y0);
              nb::x86SparseMatrixGemv<T>(m, n, trans, alpha, a.ptr.data(), a.idx.data(), val.data(),
                                         x->data(), beta, y->data());
              const std::vector<T> want =
                  gemv_definition(m, n, trans, alpha, a, val, x_values, beta, y0);
              EXPECT_SAME_RESULTS(want.data(), y->data(), want.size());
            }
          }
        }
      }
    }
  }
}

TYPED_TEST(SparseGemv, AxpyUpdatesRepeatedPositionsInOrder) {
  using T = TypeParam;
  for (unsigned long count : {0ul, 1ul, 4ul, 9ul, 33ul}) {
    std::vector<int> idx(count);
    for (unsigned long k = 0; k < count; ++k) idx[k] = static_cast<int>((k * 5) % 7);
    const std::vector<T> val = as<T>(edge_values(count, 17, 6));
    const std::vector<T> y0 = as<T>(edge_values(7, 23, 6));
    for (T alpha : {T(0.3), T(0), T(-2)}) {
      std::vector<T> want = y0;
      for (unsigned long k = 0; k < count; ++k) {
        const T p = val[k] * alpha;
        want[idx[k]] = p + want[idx[k]];
      }
      const auto y = guarded(y0);
      const auto sparse_idx = guarded(idx);
      const auto sparse_val = guarded(val);
      nb::x86SparseVectorAxpy<T>(count, alpha, sparse_idx->data(), sparse_val->data(), y->data());
      EXPECT_SAME_RESULTS(want.data(), y->data(), want.size());
    }
  }
}

}  // namespace
