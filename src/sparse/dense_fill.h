// Dense matrix to CSR and CCS: the walks that pick the stored elements. The
// walks test several elements a step through a lane test (SSE here, AVX in
// dense_scan_avx2.h).
//
// Everything here has internal linkage: the files that include it are built
// for different instruction sets, and must not share one copy.
#ifndef NUMBRA_SPARSE_DENSE_FILL_H
#define NUMBRA_SPARSE_DENSE_FILL_H

#include <immintrin.h>

#include <cstddef>

#include "sparse/nonzero.h"

namespace numbra_internal {
namespace {

// The nonzero test on four elements: bit t of the mask is set when element t
// passes. The magnitude is compared in float against the largest float the
// test rejects, which is the double test exactly; NaN fails the ordered
// comparison.
struct NonzeroLanes128 {
  static constexpr int kCount = 4;
  static bool test(float v) { return is_nonzero(v); }
  static __m128 passes(const float* p) {
    const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), _mm_loadu_ps(p));
    return _mm_cmpgt_ps(magnitude, _mm_set1_ps(kNonzeroBelow));
  }
  static unsigned mask(const float* p) { return static_cast<unsigned>(_mm_movemask_ps(passes(p))); }
  // counts[t] += 1 for each of the four elements that passes.
  static void count_into(const float* p, int* counts) {
    __m128i* slot = reinterpret_cast<__m128i*>(counts);
    _mm_storeu_si128(slot, _mm_sub_epi32(_mm_loadu_si128(slot), _mm_castps_si128(passes(p))));
  }
  // Sixteen elements: the lane results narrowed to bytes, in order, for one
  // movemask.
  static unsigned mask16(const float* p) {
    const __m128i low =
        _mm_packs_epi32(_mm_castps_si128(passes(p)), _mm_castps_si128(passes(p + 4)));
    const __m128i high =
        _mm_packs_epi32(_mm_castps_si128(passes(p + 8)), _mm_castps_si128(passes(p + 12)));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
  }
};

// Calls emit(base, mask) for the elements of a row that pass the test of
// Lanes, in ascending column order: bit t of a nonzero mask stands for
// row[base + t]. The tests of 64 elements are gathered into one mask first,
// so that the branches follow the stored elements rather than every group.
// Vector steps load only whole groups inside the row. The walk asks for the
// row a page ahead, so that memory keeps streaming while the stored
// elements are handled.
template <typename Lanes, typename Emit>
void scan_row(const float* row, int n, Emit emit) {
  constexpr int kChunk = 64;
  constexpr int kPrefetchBytes = 4096;
  int j = 0;
  for (; j <= n - kChunk; j += kChunk) {
    const char* ahead = reinterpret_cast<const char*>(row + j) + kPrefetchBytes;
    for (int line = 0; line < kChunk * 4; line += 64) _mm_prefetch(ahead + line, _MM_HINT_T0);
    unsigned long long mask = 0;
    for (int g = 0; g < kChunk; g += 16) {
      mask |= static_cast<unsigned long long>(Lanes::mask16(row + j + g)) << g;
    }
    if (mask != 0) emit(j, mask);
  }
  for (; j <= n - Lanes::kCount; j += Lanes::kCount) {
    const unsigned mask = Lanes::mask(row + j);
    if (mask != 0) emit(j, mask);
  }
  for (; j < n; ++j) {
    if (Lanes::test(row[j])) emit(j, 1u);
  }
}

// The row form: each row's stored elements in column order.
template <typename Lanes>
void fill_csr_from_dense(int m, int n, const float* a, int* rowPtr, int* colIdx, float* val) {
  rowPtr[0] = 0;
  if (m < 1) return;
  if (n < 1) {
    for (int i = 1; i <= m; ++i) rowPtr[i] = 0;
    return;
  }
  constexpr int kStoresWithoutBranch = 4;
  int k = 0;
  for (int i = 0; i < m; ++i) {
    const float* row = a + static_cast<std::size_t>(i) * n;
    scan_row<Lanes>(row, n, [&](int base, unsigned long long mask) {
      auto store_lowest = [&] {
        const int j = base + __builtin_ctzll(mask);
        colIdx[k] = j;
        val[k] = row[j];
      };
      // The first stores take no branch, which a mispredicted loop exit
      // would cost on most masks: once the mask is down to its last
      // element, they store that element again at its own place, so
      // nothing lands beyond it.
      for (int t = 0; t < kStoresWithoutBranch; ++t) {
        store_lowest();
        const unsigned long long rest = mask & (mask - 1);
        k += rest != 0;
        mask = rest != 0 ? rest : mask;
      }
      for (; mask != 0; mask &= mask - 1, ++k) store_lowest();
    });
    rowPtr[i + 1] = k;
  }
}

// counts[j] += 1 for every element row[j] that passes the test of Lanes.
template <typename Lanes>
void add_passing(const float* row, int n, int* counts) {
  int j = 0;
  for (; j <= n - Lanes::kCount; j += Lanes::kCount) Lanes::count_into(row + j, counts + j);
  for (; j < n; ++j) counts[j] += Lanes::test(row[j]);
}

// The column form, built in two walks along the rows, which read the matrix
// as it lies rather than down its columns. colPtr serves as the working
// array: the first walk counts each column's entries into colPtr[j + 1], and
// their running sums make colPtr[j] the start of column j; the second walk
// drops each entry at colPtr[j] and advances it, which leaves colPtr[j] at
// the end of column j, so the pointers move up one place at the end. Rows are
// walked in ascending order, so each column keeps its row order.
template <typename Lanes>
void fill_ccs_from_dense(int m, int n, const float* a, int* colPtr, int* rowIdx, float* val) {
  colPtr[0] = 0;
  if (n < 1) return;
  for (int j = 1; j <= n; ++j) colPtr[j] = 0;
  if (m < 1) return;
  for (int i = 0; i < m; ++i)
    add_passing<Lanes>(a + static_cast<std::size_t>(i) * n, n, colPtr + 1);
  for (int j = 1; j <= n; ++j) colPtr[j] += colPtr[j - 1];
  for (int i = 0; i < m; ++i) {
    const float* row = a + static_cast<std::size_t>(i) * n;
    scan_row<Lanes>(row, n, [&](int base, unsigned long long mask) {
      for (; mask != 0; mask &= mask - 1) {
        const int j = base + __builtin_ctzll(mask);
        const int p = colPtr[j]++;
        rowIdx[p] = i;
        val[p] = row[j];
      }
    });
  }
  for (int j = n; j >= 1; --j) colPtr[j] = colPtr[j - 1];
  colPtr[0] = 0;
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SPARSE_DENSE_FILL_H
