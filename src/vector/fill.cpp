// Fill operators. Values are moved, never computed, so every stored element
// carries the exact bits of its source: NaN payloads and signs of zero too.
#include <cstring>
#include <type_traits>

#include "numbra.h"
#include "simd/element_loop.h"

namespace ZETL {
namespace numbra {

template <typename T>
void x86VectorFillScalar(unsigned long n, T v, T* y) {
  if constexpr (std::is_same_v<T, unsigned char>) {
    if (n != 0) std::memset(y, v, n);
  } else {
    numbra_internal::fill_elements(n, y, v);
  }
}

template <typename T, int N>
void x86VectorFillVector(unsigned long n, const T* v, T* y) {
  // v is read at every store: a pattern lying inside y sees what has already
  // been stored there, exactly as the loop y[i] = v[i mod N] would.
  const unsigned long whole = n - n % N;
  unsigned long i = 0;
  for (; i < whole; i += N) {
    for (int j = 0; j < N; ++j) y[i + j] = v[j];
  }
  for (; i < n; ++i) y[i] = v[i - whole];
}

template void x86VectorFillScalar<float>(unsigned long, float, float*);
template void x86VectorFillScalar<double>(unsigned long, double, double*);
template void x86VectorFillScalar<unsigned char>(unsigned long, unsigned char, unsigned char*);
template void x86VectorFillVector<float, 2>(unsigned long, const float*, float*);
template void x86VectorFillVector<float, 3>(unsigned long, const float*, float*);
template void x86VectorFillVector<float, 4>(unsigned long, const float*, float*);
template void x86VectorFillVector<double, 2>(unsigned long, const double*, double*);
template void x86VectorFillVector<double, 3>(unsigned long, const double*, double*);
template void x86VectorFillVector<double, 4>(unsigned long, const double*, double*);

}  // namespace numbra
}  // namespace ZETL
