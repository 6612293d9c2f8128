// The skinny transposed-B kernels against their definition: row blocks of 4,
// then 3, 2 or 1, each with its tile, main step, K tail, lane reduction and
// leftover columns, reading exactly the elements of the mixed-stride table.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "gemm/sgemm_reference.h"
#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;
using numbra_test::Rounding;

namespace {

using Skinny = void (*)(int, int, int, float, int, const float*, int, float*, int, const float*,
                        float, int, float*);

struct Twin {
  const char* name;
  Skinny kernel;
  Rounding rounding;
};
const Twin kTwins[] = {{"fma", sgemm_nt_fma, Rounding::kFused},
                       {"avx", sgemm_nt_avx, Rounding::kSeparate}};

// Floats of A and B that the table of sources may reach, with either stride.
long a_extent(int m, int k, int lda) {
  if (m <= 0) return 0;
  const long by_lda = static_cast<long>(m - 1) * lda + k;
  const long by_k = static_cast<long>(m / 4 * 4) * lda + 3L * k + k;  // direct reads: r * k
  return std::max(by_lda, by_k) + k;
}
long b_extent(int n, int k, int ldb) {
  if (n <= 0) return 0;
  return std::max(static_cast<long>(n - 1) * ldb + k, static_cast<long>(n - 1) * k + k);
}

void check(int m, int n, int k, int lda, int ldb, int ldc, float alpha, float beta, unsigned seed) {
  const auto a = mixed_values<float>(a_extent(m, k, lda), seed);
  const auto b = mixed_values<float>(b_extent(n, k, ldb), seed + 1);
  const long c_size = m > 0 && n > 0 ? static_cast<long>(m - 1) * ldc + n : 0;
  const auto c0 = mixed_values<float>(c_size, seed + 2);
  for (const Twin& twin : kTwins) {
    std::vector<float> expected = c0;
    numbra_test::reference_sgemm_nt(twin.rounding, m, n, k, alpha, lda, a.data(), ldb, b.data(),
                                    beta, ldc, expected.data());
    // The scratch is exactly what the GEMM entry point allocates.
    const long k_pos = k > 0 ? k : 0;
    GuardedBuffer<float> scratch(((k_pos >> 3 << 7) + 128) / sizeof(float), Guard::kAfter);
    GuardedBuffer<float> c(c0.size(), Guard::kAfter);
    c.assign(c0.data());
    twin.kernel(m, n, k, alpha, lda, a.data(), 32, scratch.data(), ldb, b.data(), beta, ldc,
                c.data());
    SCOPED_TRACE(std::string(twin.name) + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
                 " k=" + std::to_string(k) + " lda=" + std::to_string(lda) +
                 " ldb=" + std::to_string(ldb));
    EXPECT_SAME_RESULTS(expected.data(), c.data(), c0.size());
  }
}

TEST(SgemmSkinny, EveryRowBlockTileAndTail) {
  for (int m = 0; m <= 9; ++m)
    for (const int n : {0, 1, 2, 3, 4, 5, 7, 31, 32, 33, 36, 37})
      for (const int k : {0, 1, 7, 8, 9, 15, 16, 17, 23, 24, 25, 47, 48, 49, 100})
        check(m, n, k, k, k, n, 1.5f, -0.5f, static_cast<unsigned>(m * 1000 + n * 10 + k));
}

TEST(SgemmSkinny, StridesOtherThanKReadTheStatedElements) {
  for (const int m : {1, 3, 4, 5, 6, 9})
    for (const int k : {7, 24, 30}) {
      check(m, 9, k, k + 3, k + 5, 11, 1.0f, 1.0f, 7);
      check(m, 40, k, k + 1, k + 2, 40, 2.0f, 0.0f, 8);
    }
}

TEST(SgemmSkinny, OutputRule) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  for (const float beta : {0.0f, -0.0f, nan, 1.0f})
    for (const float alpha : {1.0f, inf, -0.0f}) {
      check(5, 6, 0, 0, 0, 6, alpha, beta, 3);
      check(5, 6, 9, 9, 9, 6, alpha, beta, 4);
    }
  // A zero beta leaves the old C unread.
  std::vector<float> a(4 * 3, 1.0f), b(2 * 3, 2.0f), c(8, nan), scratch(64);
  sgemm_nt_fma(4, 2, 3, 1.0f, 3, a.data(), 32, scratch.data(), 3, b.data(), 0.0f, 2, c.data());
  for (float x : c) EXPECT_EQ(6.0f, x);
}

TEST(SgemmSkinny, NothingWrittenForEmptyProducts) {
  GuardedBuffer<float> nothing(0, Guard::kAfter);
  std::vector<float> a(8 * 16, 1.0f), scratch(64);
  for (const Twin& twin : kTwins) {
    twin.kernel(0, 5, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5,
                nothing.data());
    twin.kernel(8, 0, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5,
                nothing.data());
    twin.kernel(-1, 5, 16, 1.0f, 16, a.data(), 32, scratch.data(), 16, a.data(), 1.0f, 5,
                nothing.data());
  }
}

}  // namespace
