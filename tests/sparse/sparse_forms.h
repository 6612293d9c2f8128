// Sparse matrices for the tests: random sources with the values the nonzero
// test treats specially, the compressed and block forms built by their plain
// definitions, and guarded copies of arrays.
#ifndef NUMBRA_TESTS_SPARSE_FORMS_H
#define NUMBRA_TESTS_SPARSE_FORMS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace sparse_test {

using numbra_test::bits;
using numbra_test::from_bits;

// The float nearest 1e-8 (not stored) and the next one up (stored).
inline float below_threshold() { return from_bits<float>(0x322BCC77u); }
inline float above_threshold() { return from_bits<float>(0x322BCC78u); }

// Values for matrices and vectors: of mixed sign and magnitude, with one in
// `one_in` replaced by a value that the nonzero test or the arithmetic treats
// specially: the threshold neighbours of both signs, tiny values, zeros of
// both signs, NaN and infinities.
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
  Coo c;
  c.m = m;
  c.n = n;
  c.val = edge_values(nnz, seed);
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> r(0, std::max(m - 1, 0)), k(0, std::max(n - 1, 0));
  for (unsigned long e = 0; e < nnz; ++e) {
    if (e > 0 && gen() % 5 == 0) {
      const unsigned long earlier = gen() % e;
      c.row.push_back(c.row[earlier]);
      c.col.push_back(c.col[earlier]);
    } else {
      c.row.push_back(r(gen));
      c.col.push_back(k(gen));
    }
  }
  return c;
}

// A compressed form: CSR (ptr over rows, idx columns) or CCS (ptr over
// columns, idx rows).
struct Compressed {
  std::vector<int> ptr, idx;
  std::vector<float> val;
};

inline bool stored(float v) { return static_cast<double>(std::fabs(v)) > 1e-8; }

inline Compressed csr_of_dense(int m, int n, const std::vector<float>& a) {
  Compressed c;
  c.ptr.push_back(0);
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j < n; ++j) {
      if (stored(a[i * n + j])) {
        c.idx.push_back(j);
        c.val.push_back(a[i * n + j]);
      }
    }
    c.ptr.push_back(static_cast<int>(c.idx.size()));
  }
  return c;
}

inline Compressed ccs_of_dense(int m, int n, const std::vector<float>& a) {
  Compressed c;
  c.ptr.push_back(0);
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < m; ++i) {
      if (stored(a[i * n + j])) {
        c.idx.push_back(i);
        c.val.push_back(a[i * n + j]);
      }
    }
    c.ptr.push_back(static_cast<int>(c.idx.size()));
  }
  return c;
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
  Blocked b;
  b.blockPtr.push_back(0);
  for (int bi = 0; bi < mb; ++bi) {
    for (int bj = 0; bj < nb; ++bj) {
      const int line0 = by_columns ? bj * blk : bi * blk;
      const int lines = by_columns ? std::min(n - line0, blk) : std::min(m - line0, blk);
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

// Copies of vectors that sit flush against an inaccessible page after their
// last element.
template <typename T>
std::unique_ptr<numbra_test::GuardedBuffer<T>> guarded(const std::vector<T>& v) {
  auto g = std::make_unique<numbra_test::GuardedBuffer<T>>(v.size(), numbra_test::Guard::kAfter);
  g->assign(v.data());
  return g;
}

template <typename T>
std::unique_ptr<numbra_test::GuardedBuffer<T>> guarded_filled(std::size_t n, T fill) {
  return guarded(std::vector<T>(n, fill));
}

template <typename T>
std::vector<T> contents(numbra_test::GuardedBuffer<T>& g) {
  return std::vector<T>(g.data(), g.data() + g.size());
}

inline void expect_same_values(const std::vector<float>& expected,
                               const std::vector<float>& actual) {
  ASSERT_EQ(expected.size(), actual.size());
  EXPECT_SAME_ARRAY_BITS(expected.data(), actual.data(), expected.size());
}

// Entries sorted by (major, minor) whose values may stand in any order among
// entries of the same position: compared position by position, each group
// of values as a multiset of bit patterns.
inline void expect_same_entries(const std::vector<int>& major, const std::vector<int>& minor,
                                const std::vector<float>& val, const std::vector<int>& major2,
                                const std::vector<int>& minor2, const std::vector<float>& val2) {
  ASSERT_EQ(major, major2);
  ASSERT_EQ(minor, minor2);
  ASSERT_EQ(val.size(), val2.size());
  for (std::size_t start = 0; start < val.size();) {
    std::size_t end = start + 1;
    while (end < val.size() && major[end] == major[start] && minor[end] == minor[start]) ++end;
    std::vector<std::uint32_t> a, b;
    for (std::size_t e = start; e < end; ++e) {
      a.push_back(bits(val[e]));
      b.push_back(bits(val2[e]));
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    EXPECT_EQ(a, b) << "values at position (" << major[start] << ", " << minor[start] << ")";
    start = end;
  }
}

// The COO entries in (major, minor) order: a stable sort of the input.
inline std::tuple<std::vector<int>, std::vector<int>, std::vector<float>> sorted_entries(
    const Coo& c, bool by_columns) {
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
  return {ma, mi, v};
}

}  // namespace sparse_test

#endif  // NUMBRA_TESTS_SPARSE_FORMS_H
