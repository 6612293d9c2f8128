// The blocked transpose: b[j * ldb + i] = a[i * lda + j], bit for bit, every
// element once, nothing else of b written, nothing outside a read.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;

namespace {

template <typename T>
class TransposeTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TransposeTest, Precisions);

TYPED_TEST(TransposeTest, EveryShapeAroundTheTileEdge) {
  using T = TypeParam;
  // Around the 32-byte squares (4 doubles, 8 floats) and the tiles (32
  // doubles, 64 floats).
  for (const long m : {0, 1, 2, 3, 4, 5, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100, 130})
    for (const long n : {0, 1, 3, 4, 5, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100, 129})
      for (const auto& [lda_extra, ldb_extra] : {std::pair{0L, 0L}, {3L, 5L}}) {
        const long lda = n + lda_extra, ldb = m + ldb_extra;
        const long a_size = m > 0 ? (m - 1) * lda + n : 0;
        const long b_size = n > 0 ? (n - 1) * ldb + m : 0;
        for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
          GuardedBuffer<T> a(a_size, guard), b(b_size, guard);
          const auto a0 = numbra_test::mixed_values<T>(a_size, 1);
          const auto b0 = numbra_test::mixed_values<T>(b_size, 2);
          a.assign(a0.data());
          b.assign(b0.data());
          std::vector<T> expected = b0;
          for (long i = 0; i < m; ++i)
            for (long j = 0; j < n; ++j) expected[j * ldb + i] = a0[i * lda + j];
          nb::x86MatrixTranspose<T>(-1, m, n, lda, a.data(), ldb, b.data());
          SCOPED_TRACE("m=" + std::to_string(m) + " n=" + std::to_string(n) +
                       " lda=" + std::to_string(lda) + " ldb=" + std::to_string(ldb));
          EXPECT_SAME_ARRAY_BITS(expected.data(), b.data(), b_size);
        }
      }
}

// Destinations of 16 MiB and more are written around the caches where
// they and their rows are 32-byte aligned; here aligned, then one element
// off, then with a row stride that is not a whole number of 32-byte steps.
TYPED_TEST(TransposeTest, LargeDestinations) {
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

TYPED_TEST(TransposeTest, ColumnVectorWithUnitStride) {
  using T = TypeParam;
  const std::vector<T> a = {1, -0.0, 3};
  std::vector<T> b(3);
  nb::x86MatrixTranspose<T>(0, 3, 1, 1, a.data(), 3, b.data());
  EXPECT_SAME_ARRAY_BITS(a.data(), b.data(), 3);
}

}  // namespace
