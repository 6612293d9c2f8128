// Sign gates of the activations, written once for scalars of T and for
// Lanes256<T>::Vec: a comparison selects lanes, and a lane that fails the
// test (NaN included) gets +0, exactly as the scalar conditional does.
#ifndef NUMBRA_ACTIVATION_GATES_H
#define NUMBRA_ACTIVATION_GATES_H

namespace numbra_internal {
namespace {

// value where gate > 0, otherwise +0.
template <typename V>
inline V where_positive(V gate, V value) {
  return gate > 0 ? value : V{};
}

// value where gate < 0, otherwise +0.
template <typename V>
inline V where_negative(V gate, V value) {
  return gate < 0 ? value : V{};
}

// 1 where gate <= 0, otherwise 0.
template <typename V>
inline V one_where_not_positive(V gate) {
  return gate <= 0 ? V{} + 1 : V{};
}

// 1 where gate > 0, otherwise 0.
template <typename V>
inline V one_where_positive(V gate) {
  return gate > 0 ? V{} + 1 : V{};
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_ACTIVATION_GATES_H
