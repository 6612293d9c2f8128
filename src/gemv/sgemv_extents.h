// How far the GEMV kernels' four-row blocks and 8-lane steps run: each twin
// has its own bounds, some running while a full block or step fits and some
// always leaving one over.
#ifndef NUMBRA_GEMV_SGEMV_EXTENTS_H
#define NUMBRA_GEMV_SGEMV_EXTENTS_H

namespace numbra_internal {
namespace {

// Columns a loop of 8-lane steps from column 0 covers when it runs while
// j <= count - 8: every full step.
inline int steps_while_full(int count) { return count >= 8 ? count & ~7 : 0; }

// Columns a loop of 8-lane steps from column 0 covers when it runs while
// j < count - 8: it always leaves at least one column over.
inline int steps_leaving_one(int count) { return count > 8 ? (count - 1) & ~7 : 0; }

// The same two forms for blocks of four rows.
inline int blocks_while_full(int count) { return count >= 4 ? count & ~3 : 0; }
inline int blocks_leaving_one(int count) { return count > 4 ? (count - 1) & ~3 : 0; }

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMV_SGEMV_EXTENTS_H
