// Operands that the benchmark programs share: four vectors of one length,
// allocated once per length and precision.
#ifndef NUMBRA_BENCH_OPERANDS_H
#define NUMBRA_BENCH_OPERANDS_H

#include <map>
#include <memory>
#include <vector>

namespace numbra_bench {

// Operands of one length, allocated once and shared by every benchmark.
// Values stay in [0.5, 1.5) so that no operator meets a zero, a subnormal or
// an overflow however often it runs in place.
template <typename T>
struct Operands {
  explicit Operands(unsigned long n) : storage(4 * n) {
    x = storage.data();
    y = x + n;
    z = y + n;
    w = z + n;
    for (unsigned long i = 0; i < n; ++i) {
      x[i] = T(0.5) + T(i % 1000) / T(1000);
      y[i] = T(1.5) - T(i % 777) / T(777);
      z[i] = T(0.75);
      w[i] = T(1.25);
    }
  }
  std::vector<T> storage;
  T *x, *y, *z, *w;
};

template <typename T>
inline Operands<T>& operands(unsigned long n) {
  static std::map<unsigned long, std::unique_ptr<Operands<T>>> cache;
  auto& slot = cache[n];
  if (!slot) slot = std::make_unique<Operands<T>>(n);
  return *slot;
}

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_OPERANDS_H
