// A row or column operator y = f(a, old y) on an m by n matrix beside its
// scalar definition, and the checks that hold it to that definition: over
// shapes on both sides of the vector widths with strides wider than the
// rows, flush against guard pages, and with y placed over or just beside a
// in one arena.
#ifndef NUMBRA_TESTS_MATRIX_OPERATOR_H
#define NUMBRA_TESTS_MATRIX_OPERATOR_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace numbra_test {

template <typename T>
struct MatrixOperator {
  using Call =
      std::function<void(unsigned long m, unsigned long n, unsigned long lda, const T* a, T* y)>;
  using Size = std::function<unsigned long(unsigned long m, unsigned long n, unsigned long lda)>;
  std::string name;
  Call run, define;
  Size a_size, y_size;  // elements that the input and the output span
};

// Elements that m rows of n with row stride ld span.
inline unsigned long span(unsigned long m, unsigned long n, unsigned long ld) {
  return m == 0 || n == 0 ? 0 : (m - 1) * ld + n;
}

inline const std::vector<unsigned long>& matrix_rows() {
  static const std::vector<unsigned long> rows = {0, 1, 2, 3, 7};
  return rows;
}

inline const std::vector<unsigned long>& matrix_columns() {
  static const std::vector<unsigned long> columns = {0, 1, 2, 3, 4, 5, 8, 9, 17, 33, 130};
  return columns;
}

template <typename T>
void expect_definition_inside_guards(const std::vector<MatrixOperator<T>>& ops) {
  for (const MatrixOperator<T>& op : ops) {
    for (const unsigned long m : matrix_rows()) {
      for (const unsigned long n : matrix_columns()) {
        for (const unsigned long lda : {n, n + 3}) {
          for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
            const unsigned long a_size = op.a_size(m, n, lda), y_size = op.y_size(m, n, lda);
            GuardedBuffer<T> a(a_size, guard), y(y_size, guard);
            const std::vector<T> a0 = mixed_values<T>(a_size, 11 + m * 3 + n),
                                 y0 = mixed_values<T>(y_size, 12 + m + n * 7);
            a.assign(a0.data());
            y.assign(y0.data());
            std::vector<T> expected = y0;
            op.define(m, n, lda, a0.data(), expected.data());
            op.run(m, n, lda, a.data(), y.data());
            SCOPED_TRACE(op.name + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
                         " lda=" + std::to_string(lda));
            EXPECT_SAME_RESULTS(expected.data(), y.data(), y_size);
            if (::testing::Test::HasFailure()) return;
          }
        }
      }
    }
  }
}

// y at a, at small shifts from it and just outside a on either side, the
// whole arena compared.
template <typename T>
void expect_definition_on_overlaps(const std::vector<MatrixOperator<T>>& ops) {
  for (const MatrixOperator<T>& op : ops) {
    for (const unsigned long m : {1ul, 3ul, 5ul}) {
      for (const unsigned long n : {1ul, 3ul, 4ul, 5ul, 9ul, 33ul}) {
        for (const unsigned long lda : {n, n + 2}) {
          const long a_size = long(op.a_size(m, n, lda)), y_size = long(op.y_size(m, n, lda));
          std::vector<long> shifts = {-y_size, a_size};
          for (long d = -9; d <= 9; ++d) shifts.push_back(d);
          for (const long d : shifts) {
            const long base = 16 + y_size;
            const std::size_t arena_size = base + 32 + std::max(a_size, y_size) + a_size;
            const std::vector<T> initial = mixed_values<T>(arena_size, 13 + m + n + d);
            std::vector<T> expected = initial, actual = initial;
            op.define(m, n, lda, expected.data() + base, expected.data() + base + d);
            op.run(m, n, lda, actual.data() + base, actual.data() + base + d);
            SCOPED_TRACE(op.name + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
                         " lda=" + std::to_string(lda) + " y at a" + std::to_string(d));
            EXPECT_SAME_RESULTS(expected.data(), actual.data(), arena_size);
            if (::testing::Test::HasFailure()) return;
          }
        }
      }
    }
  }
}

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_MATRIX_OPERATOR_H
