// What every entry point decides before it computes: which twin an ISA_t
// selects, when a scale counts as one or as zero for the write-back rules,
// and when a zero beta leaves the old output unread. Included by
// instruction-set sources too, so everything here has internal linkage.
#ifndef NUMBRA_COMMON_CALL_FRAME_H
#define NUMBRA_COMMON_CALL_FRAME_H

#include <cmath>

#include "numbra.h"

namespace numbra_internal {
namespace {

// ISA_FMA selects the fused twin and ISA_AVX the separate one; any other
// value selects none (null), and the call then does nothing.
template <class Kernel>
inline Kernel for_isa(ISA_t isa, Kernel fused, Kernel separate) {
  return isa == ISA_FMA ? fused : isa == ISA_AVX ? separate : nullptr;
}

// The nearness tests of the float write-back rules: x + (-1) in float, or x
// itself, widened to double, below 1e-30 in magnitude. A NaN is near
// nothing.
inline bool near_one(float x) { return std::fabs(static_cast<double>(x + -1.0f)) < 1e-30; }
inline bool near_zero(float x) { return std::fabs(static_cast<double>(x)) < 1e-30; }

// A beta of either sign that is zero: the old output is then not read, and
// its term is +0, also where the old value is NaN or infinite.
template <typename T>
inline bool zero_beta(T beta) {
  return beta == T(0);
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_COMMON_CALL_FRAME_H
