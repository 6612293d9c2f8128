// The AVX twin of the single-precision GEMM family: each main step is a
// rounded product added to the accumulator with a second rounding.
#include "gemm/sgemm_exports.h"
#include "simd/multiply_add.h"

namespace numbra_internal {
namespace {

// 6 x 16 micro-tiles in the exported kernels: 12 accumulators, and one
// register for the products.
struct SeparateTiles : SeparateStep {
  static constexpr int kRows = 6;
  static constexpr int kGroups = 2;
};

}  // namespace
}  // namespace numbra_internal

NUMBRA_DEFINE_SGEMM_FAMILY(avx, numbra_internal::SeparateTiles)
