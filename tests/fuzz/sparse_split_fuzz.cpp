// Fuzzes the load-balance splits of every form. Each split that does work
// starts at 0 and ends at the cut dimension. The pointer walk keeps every
// boundary inside it. The count walk reports a boundary one place late and
// takes at least one step per boundary, so its boundaries never fall and
// pass the last line + 1 only one step at a time. An unknown dimension
// leaves idx as it was, except in the CSR form, which cuts columns. The COO split's sorted copy
// holds the source's entries in row-major (or column-major) order.
#include <algorithm>
#include <cstdint>
#include <tuple>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "numbra.h"

namespace nb = ZETL::numbra;
using numbra_fuzz::require;

namespace {

constexpr int kUntouched = -77;

enum class Walk { kPointer, kCount };

void require_boundaries(const std::vector<int>& idx, int parts, int len, Walk walk) {
  require(idx[0] == 0 && idx[parts] == len);
  for (int p = 1; p < parts; ++p) {
    if (walk == Walk::kPointer) {
      require(idx[p] >= 0 && idx[p] <= len);
    } else {
      require(idx[p] >= idx[p - 1] && (idx[p] <= len + 1 || idx[p] == idx[p - 1] + 1));
    }
  }
}

void require_untouched(const std::vector<int>& idx) {
  for (int v : idx) require(v == kUntouched);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  numbra_fuzz::FuzzInput in(data, size);
  const int m = 1 + in.below(40), n = 1 + in.below(40);
  const int parts = 1 + in.below(m + n + 3), dim = in.below(3);
  std::vector<float> a(static_cast<std::size_t>(m) * n);
  for (float& v : a) v = in.value();

  // CSR and CCS of the stored elements.
  std::vector<int> row_ptr = {0}, col, col_ptr = {0}, row;
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j < n; ++j)
      if (numbra_fuzz::stored(a[i * n + j])) col.push_back(j);
    row_ptr.push_back(static_cast<int>(col.size()));
  }
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < m; ++i)
      if (numbra_fuzz::stored(a[i * n + j])) row.push_back(i);
    col_ptr.push_back(static_cast<int>(row.size()));
  }
  const unsigned long nnz = col.size();
  const int cut = dim == 0 ? m : n;

  std::vector<int> idx(parts + 1, kUntouched);
  nb::sparse_matrix_split_dense_lb_nz<float>(m, n, a.data(), parts, dim, idx.data());
  if (dim < 2)
    require_boundaries(idx, parts, cut, Walk::kCount);
  else
    require_untouched(idx);

  idx.assign(parts + 1, kUntouched);
  nb::sparse_matrix_split_csr_lb_nz<float>(m, n, nnz, row_ptr.data(), col.data(), nullptr, parts,
                                           dim, idx.data());
  if (dim == 0)
    require_boundaries(idx, parts, m, Walk::kPointer);
  else
    require_boundaries(idx, parts, n, Walk::kCount);

  idx.assign(parts + 1, kUntouched);
  nb::sparse_matrix_split_ccs_lb_nz<float>(m, n, nnz, col_ptr.data(), row.data(), nullptr, parts,
                                           dim, idx.data());
  if (dim == 0)
    require_boundaries(idx, parts, m, Walk::kCount);
  else if (dim == 1)
    require_boundaries(idx, parts, n, Walk::kPointer);
  else
    require_untouched(idx);

  // Coordinates with repeats, in the input's order.
  const unsigned long count = in.below(100);
  std::vector<int> coo_row(count), coo_col(count);
  std::vector<float> coo_val(count);
  using Entry = std::tuple<int, int, int>;  // major, minor, input position
  std::vector<Entry> expected;
  for (unsigned long e = 0; e < count; ++e) {
    coo_row[e] = in.below(m);
    coo_col[e] = in.below(n);
    coo_val[e] = static_cast<float>(e);  // tells the entries apart
    expected.emplace_back(dim == 1 ? coo_col[e] : coo_row[e], dim == 1 ? coo_row[e] : coo_col[e],
                          static_cast<int>(e));
  }
  std::vector<int> out_row(count, kUntouched), out_col(count, kUntouched);
  std::vector<float> out_val(count, -1.0f);
  idx.assign(parts + 1, kUntouched);
  nb::sparse_matrix_split_coo_lb_nz<float>(m, n, count, coo_row.data(), coo_col.data(),
                                           coo_val.data(), parts, dim, out_row.data(),
                                           out_col.data(), out_val.data(), idx.data());
  if (dim == 2) {
    require_untouched(idx);
    require_untouched(out_row);
    return 0;
  }
  require_boundaries(idx, parts, cut, Walk::kPointer);
  std::vector<Entry> actual;
  for (unsigned long e = 0; e < count; ++e) {
    const int major = dim == 1 ? out_col[e] : out_row[e],
              minor = dim == 1 ? out_row[e] : out_col[e];
    if (e > 0) {
      const auto& [pm, pn, pe] = actual.back();
      require(pm < major || (pm == major && pn <= minor));
    }
    actual.emplace_back(major, minor, static_cast<int>(out_val[e]));
  }
  std::sort(expected.begin(), expected.end());
  std::sort(actual.begin(), actual.end());
  require(expected == actual);
  return 0;
}
