// A vector operator out = f(a[, b], old out) beside the scalar definition of
// one element, and the checks that hold it to the ascending loop: on every
// placement of its operands in one arena, disjoint, aliased and shifted by a
// few elements against each other, and flush against guard pages.
#ifndef NUMBRA_TESTS_VECTOR_OPERATOR_H
#define NUMBRA_TESTS_VECTOR_OPERATOR_H

#include <gtest/gtest.h>

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
  const long base = 16;           // room for shifts below the operands
  const long far = n + 2 * base;  // distance that separates operands
  std::vector<Placement> result = {
      {"disjoint", base, base + far, base + 2 * far},
      {"out is a", base, base + far, base},
      {"out is b", base, base + far, base + far},
      {"a is b", base, base, base + far},
      {"all the same", base, base, base},
  };
  for (long d = -9; d <= 9; ++d) {
    if (d == 0) continue;
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
      const std::size_t arena_size = static_cast<std::size_t>(at.out + n + 2 * (n + 32) + 16);
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

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_VECTOR_OPERATOR_H
