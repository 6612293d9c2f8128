// Sparse matrices for the tests: random sources with the values the nonzero
// test treats specially, and the compressed and block forms built by their
// plain definitions.
#ifndef NUMBRA_TESTS_SPARSE_FORMS_H
#define NUMBRA_TESTS_SPARSE_FORMS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "support/float_bits.h"

namespace sparse_test {

using numbra_test::bits;
using numbra_test::from_bits;

// The float nearest 1e-8 (not stored) and the next one up (stored).
inline float below_threshold() { return from_bits<float>(0x322BCC77u); }
inline float above_threshold() { return from_bits<float>(0x322BCC78u); }

inline bool stored(float v) { return static_cast<double>(std::fabs(v)) > 1e-8; }

// Values of mixed sign and magnitude with one in `one_in` replaced by a value
// that the nonzero test or the arithmetic treats specially: the threshold
// neighbours of both signs, tiny values, zeros of both signs, NaN, infinities.
inline std::vector<float> edge_values(std::size_t n, std::uint32_t seed, int one_in = 4) {
  const float inf = std::numeric_limits<float>::infinity();
  const float specials[] = {below_threshold(),
                            -below_threshold(),
                            above_threshold(),
                            -above_threshold(),
                            5e-9f,
                            -1e-12f,
                            0.0f,
                            -0.0f,
                            std::nanf(""),
                            inf,
                            -inf,
                            1e-8f};
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> mantissa(-2.0f, 2.0f);
  std::uniform_int_distribution<int> exponent(-6, 6), pick(0, 11), special(1, one_in);
  std::vector<float> v(n);
  for (float& x : v) {
    x = special(gen) == 1 ? specials[pick(gen)] : std::ldexp(mantissa(gen), exponent(gen));
  }
  return v;
}

// A dense m x n matrix with about `density` of its elements set to edge
// values and the rest zero.
inline std::vector<float> random_dense(int m, int n, double density, std::uint32_t seed) {
  std::vector<float> a(static_cast<std::size_t>(m) * n, 0.0f);
  const std::vector<float> values = edge_values(a.size(), seed);
  std::mt19937 gen(seed);
  std::bernoulli_distribution set(density);
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (set(gen)) a[i] = values[i];
  }
  return a;
}

struct Coo {
  int m = 0, n = 0;
  std::vector<int> row, col;
  std::vector<float> val;
  unsigned long nnz() const { return row.size(); }
};

// Entries at random positions in random order, a fifth of them repeating an
// earlier position, with explicit zeros and near-zeros among the values.
inline Coo random_coo(int m, int n, unsigned long nnz, std::uint32_t seed) {
  Coo c{m, n, {}, {}, edge_values(nnz, seed)};
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> r(0, std::max(m - 1, 0)), k(0, std::max(n - 1, 0));
  for (unsigned long e = 0; e < nnz; ++e) {
    const bool repeat = e > 0 && gen() % 5 == 0;
    const unsigned long earlier = repeat ? gen() % e : 0;
    c.row.push_back(repeat ? c.row[earlier] : r(gen));
    c.col.push_back(repeat ? c.col[earlier] : k(gen));
  }
  return c;
}

// A compressed form: CSR (ptr over rows, idx columns) or CCS (ptr over
// columns, idx rows).
struct Compressed {
  std::vector<int> ptr, idx;
  std::vector<float> val;
};

inline Compressed compressed_of_dense(int m, int n, const std::vector<float>& a, bool by_columns) {
  const int lines = by_columns ? n : m, width = by_columns ? m : n;
  Compressed c{{0}, {}, {}};
  for (int line = 0; line < lines; ++line) {
    for (int k = 0; k < width; ++k) {
      const float v = by_columns ? a[k * n + line] : a[line * n + k];
      if (!stored(v)) continue;
      c.idx.push_back(k);
      c.val.push_back(v);
    }
    c.ptr.push_back(static_cast<int>(c.idx.size()));
  }
  return c;
}

// The compressed form of `lines` lines holding entries sorted by their major
// index.
inline Compressed compressed_of_sorted(int lines, const std::vector<int>& major,
                                       const std::vector<int>& minor,
                                       const std::vector<float>& val) {
  EXPECT_TRUE(std::is_sorted(major.begin(), major.end()));
  Compressed c{std::vector<int>(lines + 1, 0), minor, val};
  for (int k : major) ++c.ptr[k + 1];
  for (int i = 1; i <= lines; ++i) c.ptr[i] += c.ptr[i - 1];
  return c;
}

// The COO entries by rows (or columns), then by the other index: a stable
// sort of the input.
inline Compressed compressed_of_coo(const Coo& c, bool by_columns) {
  std::vector<std::size_t> order(c.nnz());
  for (std::size_t e = 0; e < order.size(); ++e) order[e] = e;
  const auto& major = by_columns ? c.col : c.row;
  const auto& minor = by_columns ? c.row : c.col;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return std::tie(major[a], minor[a]) < std::tie(major[b], minor[b]);
  });
  std::vector<int> ma, mi;
  std::vector<float> v;
  for (std::size_t e : order) {
    ma.push_back(major[e]);
    mi.push_back(minor[e]);
    v.push_back(c.val[e]);
  }
  return compressed_of_sorted(by_columns ? c.n : c.m, ma, mi, v);
}

// A block form: BCSR (counts per local row, local columns) or BCCS (counts
// per local column, local rows).
struct Blocked {
  std::vector<int> blockPtr;
  std::vector<unsigned short> len, idx;
  std::vector<float> val;
};

// The block form by its definition: blocks in row-major grid order; inside a
// block, its lines (rows for BCSR, columns for BCCS) in order, each with the
// entries of the compressed source that fall into the block, in source order.
inline Blocked block_of(int m, int n, int blk, const Compressed& c, bool by_columns) {
  const int mb = (m + blk - 1) / blk, nb = (n + blk - 1) / blk;
  Blocked b{{0}, {}, {}, {}};
  for (int bi = 0; bi < mb; ++bi) {
    for (int bj = 0; bj < nb; ++bj) {
      const int line0 = by_columns ? bj * blk : bi * blk;
      const int lines = std::min((by_columns ? n : m) - line0, blk);
      const int inner0 = by_columns ? bi * blk : bj * blk;
      for (int line = line0; line < line0 + lines; ++line) {
        int count = 0;
        for (int e = c.ptr[line]; e < c.ptr[line + 1]; ++e) {
          if (c.idx[e] / blk != inner0 / blk) continue;
          ++count;
          b.idx.push_back(static_cast<unsigned short>(c.idx[e] - inner0));
          b.val.push_back(c.val[e]);
        }
        b.len.push_back(static_cast<unsigned short>(count));
      }
      b.blockPtr.push_back(b.blockPtr.back() + lines);
    }
  }
  return b;
}

// Compressed forms whose values may stand in any order among the entries of
// one position: each such group is compared as a multiset of bit patterns.
inline void expect_same_entries(const Compressed& want, const Compressed& got) {
  ASSERT_EQ(want.ptr, got.ptr);
  ASSERT_EQ(want.idx, got.idx);
  ASSERT_EQ(want.val.size(), got.val.size());
  for (std::size_t line = 0; line + 1 < want.ptr.size(); ++line) {
    for (int start = want.ptr[line], end; start < want.ptr[line + 1]; start = end) {
      std::vector<std::uint32_t> a, b;
      for (end = start; end < want.ptr[line + 1] && want.idx[end] == want.idx[start]; ++end) {
        a.push_back(bits(want.val[end]));
        b.push_back(bits(got.val[end]));
      }
      std::sort(a.begin(), a.end());
      std::sort(b.begin(), b.end());
      EXPECT_EQ(a, b) << "values at (" << line << ", " << want.idx[start] << ")";
    }
  }
}

}  // namespace sparse_test

#endif  // NUMBRA_TESTS_SPARSE_FORMS_H
