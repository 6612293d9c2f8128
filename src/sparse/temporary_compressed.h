// The compressed form that a block conversion goes through: three arrays
// from malloc, released explicitly once the block form is built. Allocation
// results are not checked.
#ifndef NUMBRA_SPARSE_TEMPORARY_COMPRESSED_H
#define NUMBRA_SPARSE_TEMPORARY_COMPRESSED_H

#include <cstdlib>

namespace numbra_internal {
namespace {

struct TemporaryCompressed {
  // len + 1 pointers, count indices and values.
  TemporaryCompressed(int len, unsigned long count)
      : ptr(static_cast<int*>(std::malloc(static_cast<unsigned long>(len) * 4 + 4))),
        idx(static_cast<int*>(std::malloc(count * 4))),
        val(static_cast<float*>(std::malloc(count * 4))) {}
  void release() {
    std::free(ptr);
    std::free(idx);
    std::free(val);
  }
  int* ptr;
  int* idx;
  float* val;
};

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SPARSE_TEMPORARY_COMPRESSED_H
