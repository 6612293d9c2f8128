// The scaled sum of two matrices in its four transpose forms against the
// scalar definition, with strides wider than the rows, operands flush against
// guard pages, and c in place of a or b in the untransposed form.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;

namespace {

template <typename T>
using GeamFn = void (*)(int, unsigned long, unsigned long, T, unsigned long, const T*, T,
                        unsigned long, const T*, unsigned long, T*);

template <typename T>
struct Form {
  const char* name;
  GeamFn<T> run;
  bool a_transposed, b_transposed;
};

template <typename T>
std::vector<Form<T>> forms() {
  return {{"nn", &nb::x86Geam_nn<T>, false, false},
          {"tn", &nb::x86Geam_tn<T>, true, false},
          {"nt", &nb::x86Geam_nt<T>, false, true},
          {"tt", &nb::x86Geam_tt<T>, true, true}};
}

// Element (i, j) of op(p) for a matrix stored with row stride ld.
template <typename T>
T op_at(const T* p, unsigned long ld, bool transposed, unsigned long i, unsigned long j) {
  return transposed ? p[j * ld + i] : p[i * ld + j];
}

template <typename T>
void define(const Form<T>& form, unsigned long m, unsigned long n, T alpha, unsigned long lda,
            const T* a, T beta, unsigned long ldb, const T* b, unsigned long ldc, T* c) {
  for (unsigned long i = 0; i < m; ++i) {
    for (unsigned long j = 0; j < n; ++j) {
      const T t = op_at(a, lda, form.a_transposed, i, j) * alpha;
      const T u = beta == T(0) ? T(0) : op_at(b, ldb, form.b_transposed, i, j) * beta;
      c[i * ldc + j] = t + u;
    }
  }
}

// Elements that a matrix of `rows` rows of `cols` with stride ld spans.
unsigned long span(unsigned long rows, unsigned long cols, unsigned long ld) {
  return rows == 0 || cols == 0 ? 0 : (rows - 1) * ld + cols;
}

template <typename T>
class GeamTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(GeamTest, Precisions);

TYPED_TEST(GeamTest, MatchesDefinitionInsideGuardedOperands) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const std::vector<unsigned long> widths = {0, 1, 2, 3, 4, 5, 7, 8, 9, 17, 33, 64, 65};
  for (const Form<T>& form : forms<T>()) {
    for (const unsigned long m : {0ul, 1ul, 2ul, 3ul, 5ul, 9ul}) {
      for (const unsigned long n : widths) {
        for (const unsigned long pad : {0ul, 3ul}) {
          const unsigned long a_rows = form.a_transposed ? n : m,
                              a_cols = form.a_transposed ? m : n;
          const unsigned long b_rows = form.b_transposed ? n : m,
                              b_cols = form.b_transposed ? m : n;
          const unsigned long lda = a_cols + pad, ldb = b_cols + 2 * pad, ldc = n + pad;
          for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
            for (const T alpha : {T(1.5), T(0), T(-1)}) {
              for (const T beta : {T(0.5), T(0), -T(0), nan}) {
                const unsigned long a_size = span(a_rows, a_cols, lda),
                                    b_size = span(b_rows, b_cols, ldb), c_size = span(m, n, ldc);
                GuardedBuffer<T> a(a_size, guard), b(b_size, guard), c(c_size, guard);
                const std::vector<T> a0 = mixed_values<T>(a_size, 1 + m * 7 + n),
                                     b0 = mixed_values<T>(b_size, 2 + m + n * 5),
                                     c0 = mixed_values<T>(c_size, 3 + m + n);
                a.assign(a0.data());
                b.assign(b0.data());
                c.assign(c0.data());
                std::vector<T> expected = c0;
                define(form, m, n, alpha, lda, a0.data(), beta, ldb, b0.data(), ldc,
                       expected.data());
                // A zero beta leaves b unread: it may be a null pointer.
                const T* b_arg = beta == T(0) ? nullptr : b.data();
                form.run(-1, m, n, alpha, lda, a.data(), beta, ldb, b_arg, ldc, c.data());
                SCOPED_TRACE(std::string(form.name) + " m=" + std::to_string(m) +
                             " n=" + std::to_string(n) + " pad=" + std::to_string(pad) +
                             " alpha=" + std::to_string(alpha) + " beta=" + std::to_string(beta));
                EXPECT_SAME_RESULTS(expected.data(), c.data(), c_size);
                if (::testing::Test::HasFailure()) return;
              }
            }
          }
        }
      }
    }
  }
}

TYPED_TEST(GeamTest, UntransposedFormRunsInPlace) {
  using T = TypeParam;
  const Form<T> nn = forms<T>()[0];
  for (const unsigned long m : {1ul, 3ul, 6ul}) {
    for (const unsigned long n : {1ul, 3ul, 4ul, 5ul, 17ul, 100ul}) {
      for (const unsigned long ld : {n, n + 2}) {
        for (const bool c_is_a : {true, false}) {
          const unsigned long size = m * ld;
          const std::vector<T> a0 = mixed_values<T>(size, 5), b0 = mixed_values<T>(size, 6);
          std::vector<T> a = a0, b = b0, ea = a0, eb = b0;
          T* c = c_is_a ? a.data() : b.data();
          T* expected_c = c_is_a ? ea.data() : eb.data();
          define(nn, m, n, T(0.75), ld, ea.data(), T(-2), ld, eb.data(), ld, expected_c);
          nb::x86Geam_nn<T>(0, m, n, T(0.75), ld, a.data(), T(-2), ld, b.data(), ld, c);
          SCOPED_TRACE("m=" + std::to_string(m) + " n=" + std::to_string(n) +
                       (c_is_a ? " c is a" : " c is b"));
          EXPECT_SAME_RESULTS(ea.data(), a.data(), size);
          EXPECT_SAME_RESULTS(eb.data(), b.data(), size);
        }
      }
    }
  }
}

TYPED_TEST(GeamTest, SmallExamples) {
  using T = TypeParam;
  const T nan = std::numeric_limits<T>::quiet_NaN();
  // tn with m = 2, n = 3: a is stored 3 by 2 (stride 2), b and c 2 by 3.
  const std::vector<T> a = {1, 2, 3, 4, 5, 6};
  const std::vector<T> b = {10, 20, 30, 40, 50, 60};
  std::vector<T> c(6, nan);
  nb::x86Geam_tn<T>(0, 2, 3, T(2), 2, a.data(), T(1), 3, b.data(), 3, c.data());
  const std::vector<T> want = {12, 26, 40, 44, 58, 72};
  EXPECT_SAME_RESULTS(want.data(), c.data(), 6);
  // A zero beta adds +0: -1 * +0 comes out as +0, and NaNs in b stay out.
  for (const auto& form : forms<T>()) {
    std::vector<T> zeros(9, T(0)), nans(9, nan), out(9, nan);
    form.run(0, 3, 3, T(-1), 3, zeros.data(), -T(0), 3, nans.data(), 3, out.data());
    for (T v : out) EXPECT_SAME_BITS(T(0), v);
    // No fast path for alpha 0: a NaN in a still gives NaN.
    form.run(0, 3, 3, T(0), 3, nans.data(), T(0), 3, zeros.data(), 3, out.data());
    for (T v : out) EXPECT_TRUE(std::isnan(v));
    // Empty shapes touch nothing.
    GuardedBuffer<T> nothing(0, Guard::kAfter);
    form.run(0, 0, 5, nan, 5, nothing.data(), nan, 5, nothing.data(), 5, nothing.data());
    form.run(0, 5, 0, nan, 5, nothing.data(), nan, 5, nothing.data(), 5, nothing.data());
  }
}

}  // namespace
