// The loop shared by the element-wise operators.
//
// Their definition is the ascending scalar loop: element i is computed from
// the operands at index i and stored before element i + 1 is read, also when
// the output overlaps an input. A vector step that loads a whole chunk and
// then stores it gives the same bits exactly when no store can reach an
// input element that a later index reads before the loop would have stored
// it. That holds when the output starts at or below an input (every store
// lands on an element already read) or at least one chunk above it (every
// store lands in a later chunk, before that chunk is loaded). Everything else
// takes the scalar loop.
#ifndef NUMBRA_SIMD_ELEMENT_LOOP_H
#define NUMBRA_SIMD_ELEMENT_LOOP_H

#include <cstdint>

#include "common/call_frame.h"
#include "simd/lanes256.h"

namespace numbra_internal {
namespace {

// True when a forward loop of `chunk`-element steps that loads before it
// stores gives the ascending-loop result for output `out` and input `in`.
template <typename T>
inline bool chunked_stores_are_exact(const T* out, const T* in, unsigned long chunk) {
  const std::uintptr_t o = reinterpret_cast<std::uintptr_t>(out);
  const std::uintptr_t i = reinterpret_cast<std::uintptr_t>(in);
  return o <= i || o - i >= chunk * sizeof(T);
}

// An output this large does not stay in the caches, so it is written with
// streaming stores: an ordinary store first reads each line it writes, which
// costs a loop that reads two vectors and writes one a quarter of its memory
// traffic.
constexpr unsigned long kStreamingOutputBytes = 16ul << 20;

// True when the na elements from a and the nb elements from b share none.
template <typename T>
inline bool ranges_are_disjoint(const T* a, unsigned long na, const T* b, unsigned long nb) {
  const std::uintptr_t x = reinterpret_cast<std::uintptr_t>(a);
  const std::uintptr_t y = reinterpret_cast<std::uintptr_t>(b);
  return x >= y + nb * sizeof(T) || y >= x + na * sizeof(T);
}

template <typename T>
inline bool ranges_are_disjoint(const T* a, const T* b, unsigned long n) {
  return ranges_are_disjoint(a, n, b, n);
}

// Operands this long come from beyond the second-level cache. A loop over
// them asks for each of its streams a few lines ahead while they still fit
// the last-level cache: there the processor's own prefetching keeps one
// stream at full speed, but not three or four side by side, and an in-place
// update reads the output as a fourth. Operands from main memory go faster
// without the requests (measured: 10% faster with them at 4 MiB an operand,
// 10-40% slower from 6 MiB on).
inline bool prefetched_operands(unsigned long operand_bytes) {
  return operand_bytes >= (1ul << 20) && operand_bytes < (5ul << 20);
}

// Asks for the cache line 512 bytes past p. Written as an instruction of its
// own: the compiler drops prefetch builtins from some of these loops.
template <typename T>
inline void prefetch_ahead(const T* p) {
  asm volatile("prefetcht0 512(%0)" : : "r"(p));
}

// Stores out[i..] = vector_at(i) for the lane groups from i on, a cache line
// of them at a time, asking for the inputs ahead once per line. Returns
// where it stopped: before the last partial line.
template <typename T, class VectorAt, class PrefetchAt>
inline unsigned long store_lines(unsigned long i, unsigned long n, T* out, VectorAt vector_at,
                                 PrefetchAt prefetch_at) {
  using L = Lanes256<T>;
  constexpr unsigned long kLine = 64 / sizeof(T);
  for (; i + kLine <= n; i += kLine) {
    prefetch_at(i);
#pragma GCC unroll 8
    for (unsigned long j = 0; j < kLine; j += L::kCount) L::store(out + i + j, vector_at(i + j));
  }
  return i;
}

// Stores out[i] = scalar_at(i) for i in 0..n-1 in ascending order, lanes at
// a time (vector_at(i) gives elements i..i+kCount-1) where `vectors` allows,
// with streaming stores where `streaming` allows. prefetch_at(i) asks for
// the inputs ahead of element i.
template <typename T, class ScalarAt, class VectorAt, class PrefetchAt>
inline void write_elements(unsigned long n, T* out, bool vectors, bool streaming,
                           ScalarAt scalar_at, VectorAt vector_at, PrefetchAt prefetch_at) {
  using L = Lanes256<T>;
  auto store = [out](unsigned long i, typename L::Vec v) { L::store(out + i, v); };
  auto stream = [out](unsigned long i, typename L::Vec v) { L::stream(out + i, v); };
  unsigned long i = 0;
  // Takes elements one by one up to a vector boundary of the output.
  auto align_output = [&] {
    for (; i < n && reinterpret_cast<std::uintptr_t>(out + i) % L::kAlignment != 0; ++i) {
      out[i] = scalar_at(i);
    }
  };
  if (streaming && n * sizeof(T) >= kStreamingOutputBytes) {
    align_output();
    for (; i + L::kCount <= n; i += L::kCount) stream(i, vector_at(i));
    _mm_sfence();  // order the streamed stores before any later store
  } else if (vectors) {
    // A store that straddles two cache lines costs two: a long loop aligns.
    if (n >= 4 * L::kCount) align_output();
    if (prefetched_operands(n * sizeof(T))) {
      i = store_lines(i, n, out, vector_at, prefetch_at);
    }
    // Four vectors a pass, each loaded and stored before the next is
    // loaded, so the chunk of the overlap test stays one vector.
    for (; i + 4 * L::kCount <= n; i += 4 * L::kCount) {
      store(i, vector_at(i));
      store(i + L::kCount, vector_at(i + L::kCount));
      store(i + 2 * L::kCount, vector_at(i + 2 * L::kCount));
      store(i + 3 * L::kCount, vector_at(i + 3 * L::kCount));
    }
    for (; i + L::kCount <= n; i += L::kCount) store(i, vector_at(i));
  }
  for (; i < n; ++i) out[i] = scalar_at(i);
}

// x[0] + x[1] + ... + x[n-1] from +0, one rounded add at a time in
// ascending order: the order leaves no room for lanes.
template <typename T>
inline T ascending_sum(unsigned long n, const T* x) {
  T sum = T(0);
  for (unsigned long i = 0; i < n; ++i) sum = sum + x[i];
  return sum;
}

// out[i] = v for i in 0..n-1: v is held before the first store, so the
// order of the stores cannot show.
template <typename T>
inline void fill_elements(unsigned long n, T* out, T v) {
  const auto lanes = Lanes256<T>::splat(v);
  write_elements(
      n, out, true, true, [v](unsigned long) { return v; },
      [lanes](unsigned long) { return lanes; }, [](unsigned long) {});
}

// out[i] = op(in[i]...) for i in 0..n-1, ascending. `op` is called with
// scalars of T and with Lanes256<T>::Vec.
template <typename T, class Op, class... In>
inline void map_elements(unsigned long n, T* out, Op op, const In*... in) {
  using L = Lanes256<T>;
  // The element functions hold copies of the operator and the pointers:
  // held by reference, they would be read again from memory after every
  // store to out, which might have changed them.
  write_elements(
      n, out, (chunked_stores_are_exact(out, in, L::kCount) && ...),
      (ranges_are_disjoint(out, in, n) && ...), [=](unsigned long i) { return op(in[i]...); },
      [=](unsigned long i) { return op(L::load(in + i)...); },
      [=](unsigned long i) { (prefetch_ahead(in + i), ...); });
}

// The zero-beta term of one output element: +0 for a zero beta of either
// sign, which leaves *old unread, and *old * beta otherwise.
template <typename T>
inline T blend_term(T beta, const T* old) {
  return zero_beta(beta) ? T(0) : *old * beta;
}

// out[i] = term(in[i]...) + u under the zero-beta rule of the blending
// operators: u is +0 for a zero beta of either sign, and out is then not
// read; otherwise u = out[i] * beta, a NaN beta included. The sum is always
// formed, so a -0 term comes out +0 when beta is zero.
template <typename T, class Term, class... In>
inline void map_blended(unsigned long n, T* out, T beta, Term term, const In*... in) {
  if (zero_beta(beta)) {
    map_elements(
        n, out, [term](auto... v) { return term(v...) + T(0); }, in...);
  } else {
    map_elements(
        n, out,
        [term, beta](auto old, auto... v) {
          const auto t = term(v...);
          return t + old * beta;
        },
        out, in...);
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SIMD_ELEMENT_LOOP_H
