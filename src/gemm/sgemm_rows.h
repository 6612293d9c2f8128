// Row counts as compile-time constants: the register tiles of both dense
// products are compiled once per height. Included by the per-instruction-set
// sources only (AVX).
#ifndef NUMBRA_GEMM_SGEMM_ROWS_H
#define NUMBRA_GEMM_SGEMM_ROWS_H

#include <type_traits>

namespace numbra_internal {
namespace {

// Calls f(std::integral_constant<int, rows>{}) for rows from 1 to R (a count
// below 1 as 1), so that each height has its kernel compiled.
template <int R, class F>
[[gnu::always_inline]] inline void with_rows(int rows, F&& f) {
  if constexpr (R > 1) {
    if (rows < R) return with_rows<R - 1>(rows, f);
  }
  f(std::integral_constant<int, R>{});
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_ROWS_H
