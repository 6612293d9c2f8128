// The FMA twin of the single-precision GEMM family: each main step is one
// fused multiply-add, rounded once.
#include "gemm/sgemm_exports.h"
#include "simd/multiply_add.h"

namespace numbra_internal {
namespace {

// 4 x 24 micro-tiles in the exported kernels: 12 accumulators, 7 loads for
// 12 multiply-adds.
struct FusedTiles : FusedStep {
  static constexpr int kRows = 4;
  static constexpr int kGroups = 3;
};

}  // namespace
}  // namespace numbra_internal

NUMBRA_DEFINE_SGEMM_FAMILY(fma, numbra_internal::FusedTiles)
