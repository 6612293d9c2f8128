// The split of a dense matrix, which counts its entries with AVX2 whatever
// instruction set the caller chose. Unlike every other dense walk it tests
// the signed value: negative elements are not counted, however large.
#include <cstdlib>

#include "numbra.h"
#include "sparse/dense_scan_avx2.h"
#include "sparse/split_walk.h"

template <typename T>
void sparse_split_dense_lb_nz(int m, int n, const T* a, int parts, int dim, int* idx) {
  if (dim != 0 && dim != 1) return;
  const int len = dim == 0 ? m : n;
  int* entryCount =
      static_cast<int*>(std::calloc(static_cast<unsigned long>(len) + 1, sizeof(int)));
  unsigned long total = 0;
  for (int i = 0; i < m && n > 0; ++i) {
    const float* row = a + static_cast<unsigned long>(i) * n;
    if (dim == 0) {
      entryCount[i + 1] = static_cast<int>(
          numbra_internal::count_passing<numbra_internal::PositiveLanes256>(row, n));
      total += entryCount[i + 1];
    } else {
      numbra_internal::add_passing<numbra_internal::PositiveLanes256>(row, n, entryCount + 1);
    }
  }
  if (dim == 1) {
    for (int j = 1; j <= n; ++j) total += entryCount[j];
  }
  numbra_internal::split_ranges(len, total, parts, idx, [&](unsigned long quota) {
    numbra_internal::count_walk(entryCount, len, parts, quota, idx);
  });
  std::free(entryCount);
}

template void sparse_split_dense_lb_nz<float>(int, int, const float*, int, int, int*);
