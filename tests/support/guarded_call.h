// One call with every operand flush against an inaccessible page: first all
// after their end, then all before their start. A read or write outside an
// operand faults. The two runs start from the same contents and must end with
// the same results; the operands are left holding what the call made of them,
// for the caller to hold against its reference.
//
//   std::vector<float> a = ..., y = ...;
//   call_guarded([&](const float* a, float* y) { op(n, a, y); }, a, y);
//   EXPECT_SAME_RESULTS(expected.data(), y.data(), y.size());
#ifndef NUMBRA_TESTS_GUARDED_CALL_H
#define NUMBRA_TESTS_GUARDED_CALL_H

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace numbra_test {

template <typename T>
std::unique_ptr<GuardedBuffer<T>> guarded_copy(const std::vector<T>& v, Guard guard) {
  auto copy = std::make_unique<GuardedBuffer<T>>(v.size(), guard);
  copy->assign(v.data());
  return copy;
}

// Floating-point elements agree as arithmetic results do: bit for bit, but
// any NaN for a NaN, since which operand's payload a step passes on may
// differ between the vector body and the scalar tail of a loop, and the two
// runs split a loop at different elements.
template <typename T>
bool same_bytes(GuardedBuffer<T>& x, GuardedBuffer<T>& y) {
  if constexpr (std::is_floating_point_v<T>) {
    return first_difference(x.data(), y.data(), x.size(), NaNs::kAnyPayload) < 0;
  } else {
    return x.size() == 0 || std::memcmp(x.data(), y.data(), x.size() * sizeof(T)) == 0;
  }
}

template <typename T>
void copy_back(GuardedBuffer<T>& g, std::vector<T>& v) {
  v.assign(g.data(), g.data() + g.size());
}

template <typename Tuple, std::size_t... I>
bool agree_all(Tuple& x, Tuple& y, std::index_sequence<I...>) {
  return (same_bytes(*std::get<I>(x), *std::get<I>(y)) && ...);
}

template <typename Call, typename... T>
void call_guarded(Call&& call, std::vector<T>&... operands) {
  auto after = std::make_tuple(guarded_copy(operands, Guard::kAfter)...);
  auto before = std::make_tuple(guarded_copy(operands, Guard::kBefore)...);
  std::apply([&](auto&... g) { call(g->data()...); }, after);
  std::apply([&](auto&... g) { call(g->data()...); }, before);
  const bool agree = agree_all(after, before, std::index_sequence_for<T...>());
  EXPECT_TRUE(agree) << "the call gave different bytes with its operands against the page "
                        "after and against the page before";
  std::apply([&](auto&... g) { (copy_back(*g, operands), ...); }, after);
}

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_GUARDED_CALL_H
