// Dense matrix to CSR and CCS: the walks that pick the stored elements. The
// row walk tests several elements a step through a lane test (SSE here, AVX
// in dense_scan_avx2.h); the column walk goes down strips of columns.
//
// Everything here has internal linkage: the files that include it are built
// for different instruction sets, and must not share one copy.
#ifndef NUMBRA_SPARSE_DENSE_FILL_H
#define NUMBRA_SPARSE_DENSE_FILL_H

#include <immintrin.h>

#include <cstddef>

#include "sparse/nonzero.h"

namespace numbra {
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

// Calls emit(j) for every element row[j] that passes the test of Lanes, j
// ascending. The tests of 64 elements are gathered into one mask first, so
// that the branches follow the stored elements rather than every group.
// Vector steps load only whole groups inside the row.
template <typename Lanes, typename Emit>
void scan_row(const float* row, int n, Emit emit) {
  constexpr int kChunk = 64;
  int j = 0;
  for (; j <= n - kChunk; j += kChunk) {
    unsigned long long mask = 0;
    for (int g = 0; g < kChunk; g += 16) {
      mask |= static_cast<unsigned long long>(Lanes::mask16(row + j + g)) << g;
    }
    for (; mask != 0; mask &= mask - 1) emit(j + __builtin_ctzll(mask));
  }
  for (; j <= n - Lanes::kCount; j += Lanes::kCount) {
    for (unsigned mask = Lanes::mask(row + j); mask != 0; mask &= mask - 1) {
      emit(j + __builtin_ctz(mask));
    }
  }
  for (; j < n; ++j) {
    if (Lanes::test(row[j])) emit(j);
  }
}

template <typename Lanes>
void fill_csr_from_dense(int m, int n, const float* a, int* rowPtr, int* colIdx, float* val) {
  rowPtr[0] = 0;
  if (m < 1) return;
  if (n < 1) {
    for (int i = 1; i <= m; ++i) rowPtr[i] = 0;
    return;
  }
  int k = 0;
  for (int i = 0; i < m; ++i) {
    const float* row = a + static_cast<std::size_t>(i) * n;
    scan_row<Lanes>(row, n, [&](int j) {
      colIdx[k] = j;
      val[k] = row[j];
      ++k;
    });
    rowPtr[i + 1] = k;
  }
}

// The column walk for strips of 256 columns: the strip is read row by row,
// twice, which touches each page of the matrix a few times rather than once
// per column. The first pass counts the entries of each column in vector
// lanes, which places every column of the strip; the second drops each entry
// at its column's cursor, 64 columns a mask. Rows are visited in ascending
// order, so each column keeps its row order.
constexpr int kStripColumns = 256;

inline void fill_ccs_strip(int m, int n, const float* strip, int* colPtr, int* rowIdx, float* val) {
  alignas(16) int count[kStripColumns] = {};
  const float* row = strip;
  for (int i = 0; i < m; ++i, row += n) {
    for (int c = 0; c < kStripColumns; c += 4) {
      __m128i* slot = reinterpret_cast<__m128i*>(count + c);
      const __m128 pass = NonzeroLanes128::passes(row + c);
      _mm_store_si128(slot, _mm_sub_epi32(_mm_load_si128(slot), _mm_castps_si128(pass)));
    }
  }
  int cursor[kStripColumns];
  for (int c = 0; c < kStripColumns; ++c) {
    cursor[c] = colPtr[c];
    colPtr[c + 1] = colPtr[c] + count[c];
  }
  row = strip;
  for (int i = 0; i < m; ++i, row += n) {
    for (int chunk = 0; chunk < kStripColumns; chunk += 64) {
      unsigned long long mask = 0;
      for (int g = 0; g < 64; g += 16) {
        mask |= static_cast<unsigned long long>(NonzeroLanes128::mask16(row + chunk + g)) << g;
      }
      for (; mask != 0; mask &= mask - 1) {
        const int c = chunk + __builtin_ctzll(mask);
        rowIdx[cursor[c]] = i;
        val[cursor[c]] = row[c];
        ++cursor[c];
      }
    }
  }
}

inline void fill_ccs_from_dense(int m, int n, const float* a, int* colPtr, int* rowIdx,
                                float* val) {
  colPtr[0] = 0;
  if (n < 1) return;
  if (m < 1) {
    for (int j = 1; j <= n; ++j) colPtr[j] = 0;
    return;
  }
  int j = 0;
  for (; j <= n - kStripColumns; j += kStripColumns) {
    fill_ccs_strip(m, n, a + j, colPtr + j, rowIdx, val);
  }
  int k = colPtr[j];
  for (; j < n; ++j) {
    const float* element = a + j;
    for (int i = 0; i < m; ++i, element += n) {
      if (is_nonzero(*element)) {
        rowIdx[k] = i;
        val[k] = *element;
        ++k;
      }
    }
    colPtr[j + 1] = k;
  }
}

}  // namespace
}  // namespace numbra

#endif  // NUMBRA_SPARSE_DENSE_FILL_H
