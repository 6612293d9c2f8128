// The exported micro-kernels: c[row * W + j] += sum over l of a[row * sa + l]
// * b[l * W + j], rows in pairs, each element a chain in ascending depth.
#include <gtest/gtest.h>

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

using KernelN = void (*)(float*, float*, float*, int, int);
using KernelK48 = void (*)(float*, float*, float*, int);

struct KernelCase {
  const char* name;
  int width;
  Rounding rounding;
  KernelN kernel;
};

const KernelCase kKernels[] = {
    {"fma_n48", 48, Rounding::kFused, sgemm_kernel_fma_n48},
    {"fma_n40", 40, Rounding::kFused, sgemm_kernel_fma_n40},
    {"fma_n32", 32, Rounding::kFused, sgemm_kernel_fma_n32},
    {"fma_n24", 24, Rounding::kFused, sgemm_kernel_fma_n24},
    {"fma_n16", 16, Rounding::kFused, sgemm_kernel_fma_n16},
    {"fma_n8", 8, Rounding::kFused, sgemm_kernel_fma_n8},
    {"avx_n48", 48, Rounding::kSeparate, sgemm_kernel_avx_n48},
    {"avx_n40", 40, Rounding::kSeparate, sgemm_kernel_avx_n40},
    {"avx_n32", 32, Rounding::kSeparate, sgemm_kernel_avx_n32},
    {"avx_n24", 24, Rounding::kSeparate, sgemm_kernel_avx_n24},
    {"avx_n16", 16, Rounding::kSeparate, sgemm_kernel_avx_n16},
    {"avx_n8", 8, Rounding::kSeparate, sgemm_kernel_avx_n8},
};

// Rows touched by m: pairs, so an odd m reaches row m.
int touched_rows(int m) { return m <= 0 ? 0 : m + (m & 1); }

void reference_kernel(Rounding rounding, int width, const float* a, int sa, const float* b,
                      float* c, int m, int k) {
  for (int row = 0; row < touched_rows(m); ++row) {
    for (int j = 0; j < width; ++j) {
      float s = c[row * width + j];
      for (int l = 0; l < k; ++l)
        s = numbra_test::chain_step(rounding, s, a[row * sa + l], b[l * width + j]);
      c[row * width + j] = s;
    }
  }
}

// Runs `run` on guarded copies of a, b and c sized for exactly the elements
// the kernel may touch, and compares c with the definition.
template <class Run>
void check_kernel(const std::string& name, Rounding rounding, int width, int m, int k, int sa,
                  Run run) {
  const int rows = touched_rows(m);
  const int depth = k > 0 ? k : 0;
  for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
    GuardedBuffer<float> a(rows > 0 ? (rows - 1) * sa + depth : 0, guard);
    GuardedBuffer<float> b(depth * width, guard);
    GuardedBuffer<float> c(rows * width, guard);
    const auto a0 = mixed_values<float>(a.size(), 1 + m * 7 + k);
    const auto b0 = mixed_values<float>(b.size(), 2 + m + k * 5);
    const auto c0 = mixed_values<float>(c.size(), 3 + m + k);
    a.assign(a0.data());
    b.assign(b0.data());
    c.assign(c0.data());
    std::vector<float> expected = c0;
    reference_kernel(rounding, width, a0.data(), sa, b0.data(), expected.data(), m, k);
    run(a.data(), b.data(), c.data());
    SCOPED_TRACE(name + " m=" + std::to_string(m) + " k=" + std::to_string(k));
    EXPECT_SAME_RESULTS(expected.data(), c.data(), c.size());
  }
}

TEST(SgemmMicroKernel, MatchesAscendingChainsForEveryWidth) {
  for (const KernelCase& kc : kKernels) {
    for (const int m : {-2, 0, 1, 2, 3, 6, 47, 48}) {
      for (const int k : {-1, 0, 1, 2, 7, 8, 9, 47, 48}) {
        check_kernel(kc.name, kc.rounding, kc.width, m, k, k > 0 ? k : 1,
                     [&](float* a, float* b, float* c) { kc.kernel(a, b, c, m, k); });
      }
    }
  }
}

TEST(SgemmMicroKernel, FullDepthKernelsTakeRowsOf48) {
  const struct {
    const char* name;
    Rounding rounding;
    KernelK48 kernel;
  } cases[] = {{"fma_k48_n48", Rounding::kFused, sgemm_kernel_fma_k48_n48},
               {"avx_k48_n48", Rounding::kSeparate, sgemm_kernel_avx_k48_n48}};
  for (const auto& kc : cases) {
    for (const int m : {0, 1, 2, 5, 48}) {
      check_kernel(kc.name, kc.rounding, 48, m, 48, 48,
                   [&](float* a, float* b, float* c) { kc.kernel(a, b, c, m); });
    }
  }
}

TEST(SgemmMicroKernel, DepthOf48GivesTheSameBitsThroughEitherEntry) {
  auto a = mixed_values<float>(48 * 48, 4), b = mixed_values<float>(48 * 48, 5);
  auto c_full = mixed_values<float>(48 * 48, 6);
  auto c_n = c_full;
  sgemm_kernel_fma_k48_n48(a.data(), b.data(), c_full.data(), 48);
  sgemm_kernel_fma_n48(a.data(), b.data(), c_n.data(), 48, 48);
  EXPECT_SAME_RESULTS(c_full.data(), c_n.data(), c_n.size());
}

}  // namespace
