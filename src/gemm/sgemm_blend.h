// The write-back rule of the single-precision GEMM: how a finished sum `a`
// and the old element `o` of C make the new element. The rule is chosen once
// per call from alpha and beta: a scale near one is not multiplied, and a
// beta near zero leaves C unread. Each product is rounded, then the sum;
// nothing is fused. Written once for a float and for 8 lanes.
#ifndef NUMBRA_GEMM_SGEMM_BLEND_H
#define NUMBRA_GEMM_SGEMM_BLEND_H

#include <cmath>
#include <type_traits>

#include "common/call_frame.h"

namespace numbra_internal {
namespace {

enum class Blend {
  kAddOld,         // a + o
  kCopy,           // a
  kScaleOldAdd,    // o * beta + a
  kScaleAddOld,    // a * alpha + o
  kScale,          // a * alpha
  kScaleScaleOld,  // a * alpha + o * beta
};

inline Blend choose_blend(float alpha, float beta) {
  if (near_one(alpha)) {
    if (near_one(beta)) return Blend::kAddOld;
    return near_zero(beta) ? Blend::kCopy : Blend::kScaleOldAdd;
  }
  if (near_one(beta)) return Blend::kScaleAddOld;
  return near_zero(beta) ? Blend::kScale : Blend::kScaleScaleOld;
}

constexpr bool reads_c(Blend rule) { return rule != Blend::kCopy && rule != Blend::kScale; }

// The new element for rule R; V is float or __m256 (GCC's vector operators).
template <Blend R, class V>
[[gnu::always_inline]] inline V blend(V a, V o, V alpha, V beta) {
  if constexpr (R == Blend::kAddOld) return a + o;
  if constexpr (R == Blend::kCopy) return a;
  if constexpr (R == Blend::kScaleOldAdd) return o * beta + a;
  if constexpr (R == Blend::kScaleAddOld) return a * alpha + o;
  if constexpr (R == Blend::kScale) return a * alpha;
  if constexpr (R == Blend::kScaleScaleOld) return a * alpha + o * beta;
}

template <Blend R>
using BlendRule = std::integral_constant<Blend, R>;

// Calls f(BlendRule<rule>{}), so that the element loop behind f is compiled
// once per rule and chosen once.
template <class F>
inline void with_blend(Blend rule, F&& f) {
  switch (rule) {
    case Blend::kAddOld:
      return f(BlendRule<Blend::kAddOld>{});
    case Blend::kCopy:
      return f(BlendRule<Blend::kCopy>{});
    case Blend::kScaleOldAdd:
      return f(BlendRule<Blend::kScaleOldAdd>{});
    case Blend::kScaleAddOld:
      return f(BlendRule<Blend::kScaleAddOld>{});
    case Blend::kScale:
      return f(BlendRule<Blend::kScale>{});
    case Blend::kScaleScaleOld:
      return f(BlendRule<Blend::kScaleScaleOld>{});
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_BLEND_H
