// One tester for the operators that compute an output y from inputs a and b
// over m rows of n elements (a vector is one row; each operator takes its
// row strides from the shape's padding). Every operator comes with its
// scalar definition, which the tester runs on the same memory and holds the
// operator to bit for bit:
//  - with every operand flush against a guard page (call_guarded), over
//    shapes on both sides of the 4 and 8 lanes and of the unrolled pass;
//  - with the operands in one arena, apart, aliased, and shifted against each
//    other by 1..9 elements and past a vector and a pass, the whole arena
//    compared, so that a store outside y shows as well;
//  - on operands of 1 MiB and 16 MiB, which the loops ask for ahead and,
//    apart from the inputs, write around the caches.
//
//   OperatorTester<float>().shapes({1, 5}, {0, 9}, {0, 3}).test_inside_guards(ops);
#ifndef NUMBRA_TESTS_OPERATOR_TESTER_H
#define NUMBRA_TESTS_OPERATOR_TESTER_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "support/float_bits.h"
#include "support/guarded_call.h"

namespace numbra_test {

// The NaN that the processor makes of an invalid operation. In the guarded
// runs every NaN operand is this one, as are the NaN scalars of the tables:
// then whichever NaN operand a step passes on, a vector step and a scalar
// one give the same bits, and the two runs, aligned differently, agree.
template <typename T>
const T kDefaultNaN = -std::numeric_limits<T>::quiet_NaN();

// m rows of n elements, row strides `pad` elements wider than a row.
struct Shape {
  unsigned long m, n, pad;
  unsigned long ld() const { return n + pad; }
};

// Elements that `rows` rows of `cols` with row stride ld span.
inline unsigned long span(unsigned long rows, unsigned long cols, unsigned long ld) {
  return rows == 0 || cols == 0 ? 0 : (rows - 1) * ld + cols;
}

// Where y may lie against the inputs: anywhere (the definition being the
// ascending loop), exactly on an input or apart, or apart only.
enum class Overlap { kAny, kInPlace, kNone };

template <typename T>
struct Operator {
  using Call = std::function<void(const Shape&, T* a, T* b, T* y)>;
  using Size = std::function<unsigned long(const Shape&)>;
  using Values = std::vector<T> (*)(std::size_t, std::uint32_t);

  std::string name;
  Call run, define;
  Size a_size, b_size, y_size;  // elements each operand spans; 0 for one not read
  Overlap overlap = Overlap::kAny;
  NaNs nans = NaNs::kAnyPayload;
  Values values = nullptr;  // what the operands hold: mixed_values unless set

  Operator& overlapping(Overlap o) {
    overlap = o;
    return *this;
  }
  // For moves, which keep NaN payloads.
  Operator& keeping_payloads() {
    nans = NaNs::kExactPayload;
    return *this;
  }
  Operator& drawn_from(Values v) {
    values = v;
    return *this;
  }
};

inline unsigned long no_operand(const Shape&) { return 0; }

// y[i] = element(a[i], b[i], y[i]) for i = 0..n-1 in ascending order. `run`
// is called as run(n, a, b, y), run(n, a, y) or run(n, y), which says
// whether b and a are read.
template <typename T, class Run, class Element>
Operator<T> elementwise(std::string name, Run run, Element element) {
  constexpr int inputs = std::is_invocable_v<Run, unsigned long, T*, T*, T*> ? 2
                         : std::is_invocable_v<Run, unsigned long, T*, T*>   ? 1
                                                                             : 0;
  Operator<T> op;
  op.name = std::move(name);
  op.run = [run](const Shape& s, T* a, T* b, T* y) {
    if constexpr (inputs == 2) run(s.n, a, b, y);
    if constexpr (inputs == 1) run(s.n, a, y);
    if constexpr (inputs == 0) run(s.n, y);
  };
  op.define = [element](const Shape& s, T* a, T* b, T* y) {
    for (unsigned long i = 0; i < s.n; ++i) {
      y[i] = element(inputs > 0 ? a[i] : T(0), inputs > 1 ? b[i] : T(0), y[i]);
    }
  };
  op.a_size = [](const Shape& s) { return inputs > 0 ? s.n : 0; };
  op.b_size = [](const Shape& s) { return inputs > 1 ? s.n : 0; };
  op.y_size = [](const Shape& s) { return s.n; };
  return op;
}

// Lengths on both sides of 4 and 8 lanes, of the unrolled pass of four
// vectors (16 doubles, 32 floats) and of two passes.
inline std::vector<unsigned long> vector_lengths() {
  return {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 23, 31, 32, 33, 39, 41, 63, 64, 65, 127, 1000};
}

template <typename T>
class OperatorTester {
 public:
  // Every m with every n and every pad.
  OperatorTester& shapes(std::vector<unsigned long> m, std::vector<unsigned long> n,
                         std::vector<unsigned long> pad = {0}) {
    rows_ = std::move(m);
    columns_ = std::move(n);
    pads_ = std::move(pad);
    return *this;
  }

  void test_inside_guards(const std::vector<Operator<T>>& ops) {
    for (const Shape& s : shapes()) {
      for (const Operator<T>& op : ops) {
        SCOPED_TRACE(op.name + describe(s));
        const unsigned long na = op.a_size(s), nb = op.b_size(s), ny = op.y_size(s);
        const auto v = draw(op.values, na + nb + ny).begin();
        std::vector<T> a(v, v + na), b(v + na, v + na + nb), y(v + na + nb, v + na + nb + ny);
        for (std::vector<T>* operand : {&a, &b, &y}) {
          for (T& x : *operand) {
            if (std::isnan(x) && op.nans == NaNs::kAnyPayload) x = kDefaultNaN<T>;
          }
        }
        std::vector<T> expected_a = a, expected_b = b, expected_y = y;
        op.define(s, expected_a.data(), expected_b.data(), expected_y.data());
        // Without b, a null b: there is no operand to read.
        const auto run = [&](T* pa, T* pb, T* py) { op.run(s, pa, pb, py); };
        if (nb > 0) {
          call_guarded(run, a, b, y);
        } else {
          call_guarded([&](T* pa, T* py) { run(pa, nullptr, py); }, a, y);
        }
        NUMBRA_EXPECT_ARRAY(expected_a.data(), a.data(), na, op.nans);
        NUMBRA_EXPECT_ARRAY(expected_b.data(), b.data(), nb, op.nans);
        NUMBRA_EXPECT_ARRAY(expected_y.data(), y.data(), ny, op.nans);
        if (::testing::Test::HasFailure()) return;
      }
    }
  }

  void test_placements(const std::vector<Operator<T>>& ops) {
    std::vector<long> shifts = {-33, -17, 17, 33};
    for (long d = -9; d <= 9; ++d) {
      if (d != 0) shifts.push_back(d);
    }
    for (const Shape& s : shapes()) {
      for (const Operator<T>& op : ops) {
        const long na = long(op.a_size(s)), nb = long(op.b_size(s)), ny = long(op.y_size(s));
        const long far = std::max(na + ny, nb) + 40;  // clear of every shift
        std::vector<Placement> at = {{"apart", far, 2 * far}};
        if (op.overlap != Overlap::kNone) {
          at.push_back({"y is a", far, 0});
          if (nb > 0) at.insert(at.end(), {{"y is b", far, far}, {"a is b", 0, 2 * far}});
        }
        std::vector<long> op_shifts = shifts;
        op_shifts.push_back(-ny);  // y just below a
        op_shifts.push_back(na);   // y just above a
        if (op.overlap != Overlap::kAny) op_shifts.clear();
        for (const long d : op_shifts) {
          const std::string by = std::to_string(d);
          at.push_back({"y at a" + by, far, d});
          if (nb > 0) {
            at.push_back({"y at b" + by, far, far + d});
            at.push_back({"b at a" + std::to_string(-d / 2) + ", y at a" + by, -d / 2, d});
          }
        }
        test_arenas(op, s, at);
        if (::testing::Test::HasFailure()) return;
      }
    }
  }

  // Long enough for the loops that stream: past 1 MiB the inputs are asked
  // for ahead, and an output of 16 MiB apart from them is stored around the
  // caches, from wherever its first vector boundary lies.
  void test_long_operands(const std::vector<Operator<T>>& ops) {
    for (const unsigned long bytes : {1ul << 20, 16ul << 20}) {
      const Shape s{1, bytes / sizeof(T) + 5, 0};
      for (const Operator<T>& op : ops) {
        const long b_at = long(op.a_size(s)) + 16, apart = b_at + long(op.b_size(s)) + 17;
        std::vector<Placement> at = {{"apart", b_at, apart}};
        if (op.overlap != Overlap::kNone) at.push_back({"y is a", b_at, 0});
        for (const long d : {-9l, -3l, 3l, 9l}) {
          if (op.overlap == Overlap::kAny) at.push_back({"y at a" + std::to_string(d), b_at, d});
        }
        test_arenas(op, s, at);
        if (::testing::Test::HasFailure()) return;
      }
    }
  }

 private:
  // Where b and y start, in elements from a.
  struct Placement {
    std::string name;
    long b, y;
  };

  static std::string describe(const Shape& s) {
    return " m=" + std::to_string(s.m) + " n=" + std::to_string(s.n) +
           " pad=" + std::to_string(s.pad);
  }

  std::vector<Shape> shapes() const {
    std::vector<Shape> all;
    for (const unsigned long m : rows_) {
      for (const unsigned long n : columns_) {
        for (const unsigned long pad : pads_) all.push_back({m, n, pad});
      }
    }
    return all;
  }

  // Operand values, drawn again only for other values or more of them:
  // drawing costs more than most operators.
  const std::vector<T>& draw(typename Operator<T>::Values values, std::size_t count) {
    if (values != drawn_from_ || pool_.size() < count) {
      pool_ = values ? values(count, ++seed_) : mixed_values<T>(count, ++seed_);
      drawn_from_ = values;
    }
    return pool_;
  }

  void test_arenas(const Operator<T>& op, const Shape& s, const std::vector<Placement>& at) {
    constexpr long kMargin = 16;  // elements around the operands, compared as well
    const long na = long(op.a_size(s)), nb = long(op.b_size(s)), ny = long(op.y_size(s));
    for (const Placement& p : at) {
      const long low = std::min({0l, p.b, p.y}) - kMargin;
      const long high = std::max({na, p.b + nb, p.y + ny}) + kMargin;
      const auto v = draw(op.values, std::size_t(high - low)).begin();
      expected_.assign(v, v + (high - low));
      actual_.assign(v, v + (high - low));
      T* e = expected_.data() - low;
      T* g = actual_.data() - low;
      op.define(s, e, e + p.b, e + p.y);
      op.run(s, g, g + p.b, g + p.y);
      SCOPED_TRACE(op.name + describe(s) + ", " + p.name);
      NUMBRA_EXPECT_ARRAY(expected_.data(), actual_.data(), expected_.size(), op.nans);
      if (::testing::Test::HasFailure()) return;
    }
  }

  std::vector<unsigned long> rows_ = {1}, columns_ = vector_lengths(), pads_ = {0};
  std::vector<T> pool_, expected_, actual_;  // kept: a fresh 100 MiB costs more than a pass
  typename Operator<T>::Values drawn_from_ = nullptr;
  std::uint32_t seed_ = 0;
};

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_OPERATOR_TESTER_H
