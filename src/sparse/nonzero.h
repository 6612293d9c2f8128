// What the sparse forms count as a stored element of a dense matrix, the
// block grid shared by the block forms, and the byte moves of the sparse
// code, which accept the null pointer a caller may pass for an empty array.
//
// Internal linkage: included by files built for different instruction sets.
#ifndef NUMBRA_SPARSE_NONZERO_H
#define NUMBRA_SPARSE_NONZERO_H

#include <cmath>
#include <cstddef>
#include <cstring>

namespace numbra_internal {
namespace {

// An element is stored when its magnitude, widened to double, lies strictly
// above 1e-8. A NaN fails, an infinity passes.
inline bool is_nonzero(float v) { return static_cast<double>(std::fabs(v)) > 1e-8; }

// The split tests the signed value: negative elements never count.
inline bool is_positive_nonzero(float v) { return static_cast<double>(v) > 1e-8; }

// The largest float that the double test rejects (bits 0x322BCC77): for a
// float f, "double(f) > 1e-8" is exactly "f > kNonzeroBelow" in float.
constexpr float kNonzeroBelow = 9.99999993922529e-09f;

// Dimensions rounded up to whole blocks.
struct BlockGrid {
  BlockGrid(int m, int n, int blk) : mb((m + blk - 1) / blk), nb((n + blk - 1) / blk) {}
  int mb, nb;
  // Formed in unsigned long: a grid of 70000 by 70000 blocks exceeds int.
  unsigned long blocks() const { return static_cast<unsigned long>(mb) * nb; }
};

inline void clear_bytes(void* p, std::size_t bytes) {
  if (bytes != 0) std::memset(p, 0, bytes);
}

inline void copy_bytes(void* to, const void* from, std::size_t bytes) {
  if (bytes != 0) std::memcpy(to, from, bytes);
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SPARSE_NONZERO_H
