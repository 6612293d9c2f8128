// The scaled sum of two matrices in its four transpose forms, element by
// element in row-major order, and the blocked transpose, bit for bit, against
// their scalar definitions with strides wider than the rows.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/operator_tester.h"

namespace nb = ZETL::numbra;
using numbra_test::Operator;
using numbra_test::OperatorTester;
using numbra_test::Shape;
using numbra_test::span;

namespace {

template <typename T>
using GeamFn = void (*)(int, unsigned long, unsigned long, T, unsigned long, const T*, T,
                        unsigned long, const T*, unsigned long, T*);

// A stored operand of op(p), m by n: p itself (row stride n + pad) or its
// transpose (n rows of m, row stride m + pad).
struct Stored {
  bool transposed;
  unsigned long stretch;  // how many pads the row stride has
  unsigned long ld(const Shape& s) const { return (transposed ? s.m : s.n) + stretch * s.pad; }
  unsigned long size(const Shape& s) const {
    return transposed ? span(s.n, s.m, ld(s)) : span(s.m, s.n, ld(s));
  }
  template <typename T>
  T at(const T* p, const Shape& s, unsigned long i, unsigned long j) const {
    return transposed ? p[j * ld(s) + i] : p[i * ld(s) + j];
  }
};

// A zero beta leaves b unread: the tester passes no b then.
template <typename T>
Operator<T> geam(const char* form, GeamFn<T> run, Stored a, Stored b, T alpha, T beta) {
  const Stored c{false, 1};
  return {std::string("Geam_") + form + "(alpha=" + std::to_string(alpha) +
              ",beta=" + std::to_string(beta) + ")",
          [=](const Shape& s, T* pa, T* pb, T* pc) {
            run(-1, s.m, s.n, alpha, a.ld(s), pa, beta, b.ld(s), pb, c.ld(s), pc);
          },
          [=](const Shape& s, T* pa, T* pb, T* pc) {
            for (unsigned long i = 0; i < s.m; ++i) {
              for (unsigned long j = 0; j < s.n; ++j) {
                const T u = beta == T(0) ? T(0) : b.at(pb, s, i, j) * beta;
                pc[c.ld(s) * i + j] = a.at(pa, s, i, j) * alpha + u;
              }
            }
          },
          [=](const Shape& s) { return a.size(s); },
          [=](const Shape& s) { return beta == T(0) ? 0 : b.size(s); },
          [=](const Shape& s) { return c.size(s); }};
}

template <typename T>
std::vector<Operator<T>> geam_operators() {
  std::vector<Operator<T>> ops;
  for (const T alpha : {T(1.5), T(0)}) {
    for (const T beta : {T(0.5), T(0), -T(0), numbra_test::kDefaultNaN<T>}) {
      ops.push_back(geam<T>("nn", nb::x86Geam_nn<T>, {false, 1}, {false, 2}, alpha, beta));
      ops.push_back(geam<T>("tn", nb::x86Geam_tn<T>, {true, 1}, {false, 2}, alpha, beta));
      ops.push_back(geam<T>("nt", nb::x86Geam_nt<T>, {false, 1}, {true, 2}, alpha, beta));
      ops.push_back(geam<T>("tt", nb::x86Geam_tt<T>, {true, 1}, {true, 2}, alpha, beta));
    }
  }
  return ops;
}

// b[j * ldb + i] = a[i * lda + j], nothing else of b written.
template <typename T>
Operator<T> transpose() {
  const Stored a{false, 1}, b{true, 2};
  return Operator<T>{"Transpose",
                     [=](const Shape& s, T* pa, T*, T* pb) {
                       nb::x86MatrixTranspose<T>(-1, s.m, s.n, a.ld(s), pa, b.ld(s), pb);
                     },
                     [=](const Shape& s, T* pa, T*, T* pb) {
                       for (unsigned long i = 0; i < s.m; ++i) {
                         for (unsigned long j = 0; j < s.n; ++j)
                           pb[j * b.ld(s) + i] = a.at(pa, s, i, j);
                       }
                     },
                     [=](const Shape& s) { return a.size(s); },
                     numbra_test::no_operand,
                     [=](const Shape& s) { return b.size(s); },
                     numbra_test::Overlap::kNone}
      .keeping_payloads();
}

template <typename T>
class LayoutTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(LayoutTest, Precisions);

TYPED_TEST(LayoutTest, GeamMatchesItsDefinition) {
  OperatorTester<TypeParam>()
      .shapes({0, 1, 2, 3, 5, 9, 33, 65}, {0, 1, 2, 3, 4, 5, 7, 8, 9, 17, 33, 65, 130}, {0, 3})
      .test_inside_guards(geam_operators<TypeParam>());
  OperatorTester<TypeParam>()
      .shapes({1, 3}, {1, 4, 5, 9, 33}, {0, 2})
      .test_placements(geam_operators<TypeParam>());
}

// Around the 32-byte squares (4 doubles, 8 floats) and the tiles (64 of
// either); 250 and 256 rows give destination rows 1 KiB apart
// (with pads of 3, stretched to 6, and none), which go through the tile
// buffer.
TYPED_TEST(LayoutTest, TransposeOfEveryShapeAroundTheTileEdge) {
  OperatorTester<TypeParam>()
      .shapes({0, 1, 2, 3, 4, 5, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100, 130, 250, 256},
              {0, 1, 3, 4, 5, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100, 129}, {0, 3})
      .test_inside_guards({transpose<TypeParam>()});
}

// Destinations of 16 MiB and more are written around the caches where
// they and their rows are 32-byte aligned; here aligned, then one element
// off, then with a row stride that is not a whole number of 32-byte steps.
TYPED_TEST(LayoutTest, TransposeOfLargeDestinations) {
  using T = TypeParam;
  const long m = 1024 + 7, n = (16l << 20) / sizeof(T) / 1024 + 3;
  const long line = 64 / sizeof(T);
  for (const auto& [offset, ldb_extra] : {std::pair{0L, 0L}, {1L, 0L}, {0L, 1L}}) {
    const long lda = n, ldb = (m + line - 1) / line * line + ldb_extra;
    const auto a = numbra_test::mixed_values<T>(m * lda, 3);
    const auto b0 = numbra_test::mixed_values<T>(n * ldb + line + 1, 4);
    std::vector<T> b = b0, expected = b0;
    // The first element of b on a cache line, then `offset` further.
    const long start =
        (line - reinterpret_cast<std::uintptr_t>(b.data()) / sizeof(T) % line) % line + offset;
    for (long i = 0; i < m; ++i)
      for (long j = 0; j < n; ++j) expected[start + j * ldb + i] = a[i * lda + j];
    nb::x86MatrixTranspose<T>(0, m, n, lda, a.data(), ldb, b.data() + start);
    SCOPED_TRACE("offset=" + std::to_string(offset) + " ldb=" + std::to_string(ldb));
    EXPECT_SAME_ARRAY_BITS(expected.data(), b.data(), b.size());
  }
}

// A worked example: tn with m = 2, n = 3, a stored 3 by 2, b and c 2 by 3.
TEST(Layout, GeamOfATransposedOperand) {
  const std::vector<double> a = {1, 2, 3, 4, 5, 6}, b = {10, 20, 30, 40, 50, 60};
  std::vector<double> c(6);
  nb::x86Geam_tn<double>(0, 2, 3, 2.0, 2, a.data(), 1.0, 3, b.data(), 3, c.data());
  const std::vector<double> sums = {12, 26, 40, 44, 58, 72};
  EXPECT_SAME_ARRAY_BITS(sums.data(), c.data(), 6);
}

}  // namespace
