// A vector operator out = f(a[, b], old out) beside the scalar definition of
// one element, and the checks that hold it to the ascending loop: on every
// placement of its operands in one arena, disjoint, aliased and shifted by a
// few elements against each other, and flush against guard pages.
#ifndef NUMBRA_TESTS_VECTOR_OPERATOR_H
#define NUMBRA_TESTS_VECTOR_OPERATOR_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace numbra_test {

template <typename T>
struct VectorOperator {
  std::string name;
  bool has_b;
  std::function<void(unsigned long n, const T* a, const T* b, T* out)> run;
  std::function<T(T a, T b, T old_out)> element;

  void define(unsigned long n, const T* a, const T* b, T* out) const {
    for (unsigned long i = 0; i < n; ++i) out[i] = element(a[i], has_b ? b[i] : T(0), out[i]);
  }
};

// Positions of a, b and out in one arena, in elements.
struct Placement {
  std::string name;
  long a, b, out;
};

inline std::vector<Placement> placements(long n) {
  const long base = 40;           // room for shifts below the operands
  const long far = n + 2 * base;  // distance that separates operands
  std::vector<Placement> result = {
      {"disjoint", base, base + far, base + 2 * far},
      {"out is a", base, base + far, base},
      {"out is b", base, base + far, base + far},
      {"a is b", base, base, base + far},
      {"all the same", base, base, base},
  };
  // Shifts within a vector, and past one vector and one unrolled pass.
  std::vector<long> shifts = {-33, -17, 17, 33};
  for (long d = -9; d <= 9; ++d) {
    if (d != 0) shifts.push_back(d);
  }
  for (const long d : shifts) {
    const std::string shift = std::to_string(d);
    result.push_back({"out at a" + shift, base, base + far, base + d});
    result.push_back({"out at b" + shift, base, base + far, base + far + d});
    result.push_back(
        {"out at a" + shift + ", b at a+" + std::to_string(-d / 2), base, base - d / 2, base + d});
  }
  return result;
}

// The arena is compared whole, so a store outside out shows as well.
template <typename T>
void expect_ascending_loop_on_every_placement(const std::vector<VectorOperator<T>>& ops) {
  for (const unsigned long n : boundary_lengths()) {
    if (n > 1000) continue;
    for (const Placement& at : placements(static_cast<long>(n))) {
      const std::size_t arena_size =
          static_cast<std::size_t>(std::max({at.a, at.b, at.out}) + long(n) + 16);
      const std::vector<T> initial =
          mixed_values<T>(arena_size, static_cast<std::uint32_t>(n * 131 + at.out));
      for (const VectorOperator<T>& op : ops) {
        std::vector<T> expected = initial, actual = initial;
        op.define(n, expected.data() + at.a, expected.data() + at.b, expected.data() + at.out);
        op.run(n, actual.data() + at.a, actual.data() + at.b, actual.data() + at.out);
        SCOPED_TRACE(op.name + ", n=" + std::to_string(n) + ", " + at.name);
        EXPECT_SAME_RESULTS(expected.data(), actual.data(), arena_size);
        if (::testing::Test::HasFailure()) return;
      }
    }
  }
}

// Operands flush against inaccessible pages on either side; n == 0 touches
// nothing at all.
template <typename T>
void expect_stays_inside_operands(const std::vector<VectorOperator<T>>& ops) {
  for (const VectorOperator<T>& op : ops) {
    for (const unsigned long n : boundary_lengths()) {
      for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
        GuardedBuffer<T> a(n, guard), b(n, guard), out(n, guard);
        const std::vector<T> a0 = mixed_values<T>(n, 1), b0 = mixed_values<T>(n, 2),
                             out0 = mixed_values<T>(n, 3);
        a.assign(a0.data());
        b.assign(b0.data());
        out.assign(out0.data());
        std::vector<T> expected = out0;
        op.define(n, a0.data(), b0.data(), expected.data());
        op.run(n, a.data(), op.has_b ? b.data() : nullptr, out.data());
        SCOPED_TRACE(op.name + ", n=" + std::to_string(n));
        EXPECT_SAME_RESULTS(expected.data(), out.data(), n);
        if (::testing::Test::HasFailure()) return;
      }
    }
    op.run(0, nullptr, nullptr, nullptr);
  }
}

// Both of the above: every placement, and against guard pages.
template <typename T>
void expect_definition_everywhere(const std::vector<VectorOperator<T>>& ops) {
  expect_ascending_loop_on_every_placement(ops);
  expect_stays_inside_operands(ops);
}

// Operands long enough for the loops that stream from memory: past 1 MiB
// the inputs are asked for ahead, and a disjoint output of 16 MiB or more is
// stored around the caches, here from one element past a 16-byte boundary.
// Each length runs with a disjoint output, in place, and with the output
// overlapping a, shifted within a vector and past one.
template <typename T>
void expect_ascending_loop_on_long_operands(const std::vector<VectorOperator<T>>& ops) {
  for (const unsigned long bytes : {1ul << 20, 16ul << 20}) {
    const unsigned long n = bytes / sizeof(T) + 5;
    const std::vector<T> a = mixed_values<T>(n + 9, 5), b = mixed_values<T>(n + 1, 6),
                         old = mixed_values<T>(n + 1, 7);
    for (const VectorOperator<T>& op : ops) {
      SCOPED_TRACE(op.name + ", n=" + std::to_string(n));
      std::vector<T> expected = old, actual = old;
      op.define(n, a.data(), b.data(), expected.data() + 1);
      op.run(n, a.data(), b.data(), actual.data() + 1);
      EXPECT_SAME_RESULTS(expected.data(), actual.data(), n + 1);
      for (const unsigned long shift : {0ul, 3ul, 9ul}) {
        for (const bool out_above : {true, false}) {
          const unsigned long at_a = out_above ? 0 : 9, at_out = out_above ? shift : 9 - shift;
          SCOPED_TRACE(std::string("out at a") + (out_above ? "+" : "-") + std::to_string(shift));
          expected = a;
          actual = a;
          op.define(n, expected.data() + at_a, b.data(), expected.data() + at_out);
          op.run(n, actual.data() + at_a, b.data(), actual.data() + at_out);
          EXPECT_SAME_RESULTS(expected.data(), actual.data(), n + 9);
        }
      }
      if (::testing::Test::HasFailure()) return;
    }
  }
}

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_VECTOR_OPERATOR_H
