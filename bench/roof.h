// The roofs of the memory-bound operators: their access pattern as a plain
// loop of 256-bit vectors (8 float or 4 double lanes, four vectors a pass,
// ordinary unaligned loads and stores), with one add per element standing in
// for the arithmetic. An operator at its roof moves its bytes as fast as
// the machine lets a loop of its shape move them.
#ifndef NUMBRA_BENCH_ROOF_H
#define NUMBRA_BENCH_ROOF_H

#include <benchmark/benchmark.h>

#include <type_traits>

namespace numbra_bench {

typedef float Floats8 __attribute__((vector_size(32)));
typedef double Doubles4 __attribute__((vector_size(32)));

template <typename T>
using Lanes = std::conditional_t<sizeof(T) == 4, Floats8, Doubles4>;

template <typename T>
inline Lanes<T> load_lanes(const T* p) {
  Lanes<T> v;
  __builtin_memcpy(&v, p, sizeof v);  // unaligned
  return v;
}

template <typename T>
inline void store_lanes(T* p, Lanes<T> v) {
  __builtin_memcpy(p, &v, sizeof v);
}

// out[i] = in[i] + ... (a constant with no inputs), for i in 0..n-1.
template <typename T, class... In>
void roof_map(unsigned long n, T* out, const In*... in) {
  constexpr unsigned long k = 32 / sizeof(T);
  const Lanes<T> one = Lanes<T>{} + T(1);
  unsigned long i = 0;
  for (; i + 4 * k <= n; i += 4 * k) {
#pragma GCC unroll 4
    for (unsigned long j = i; j < i + 4 * k; j += k)
      store_lanes(out + j, (one + ... + load_lanes(in + j)));
  }
  for (; i < n; ++i) out[i] = (T(1) + ... + in[i]);
}

// Exchanges x and y.
template <typename T>
void roof_swap(unsigned long n, T* x, T* y) {
  constexpr unsigned long k = 32 / sizeof(T);
  unsigned long i = 0;
  for (; i + 2 * k <= n; i += 2 * k) {
    for (unsigned long j = i; j < i + 2 * k; j += k) {
      const Lanes<T> xj = load_lanes(x + j);
      store_lanes(x + j, load_lanes(y + j));
      store_lanes(y + j, xj);
    }
  }
  for (; i < n; ++i) {
    const T xi = x[i];
    x[i] = y[i];
    y[i] = xi;
  }
}

// Reads x, four vectors a pass into four independent chains.
template <typename T>
void roof_read(unsigned long n, const T* x) {
  constexpr unsigned long k = 32 / sizeof(T);
  Lanes<T> a[4] = {};
  unsigned long i = 0;
  for (; i + 4 * k <= n; i += 4 * k) {
#pragma GCC unroll 4
    for (unsigned long j = 0; j < 4; ++j) a[j] += load_lanes(x + i + j * k);
  }
  T s = T(0);
  for (; i < n; ++i) s += x[i];
  benchmark::DoNotOptimize(a);
  benchmark::DoNotOptimize(s);
}

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_ROOF_H
