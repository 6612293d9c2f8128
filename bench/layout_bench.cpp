// The blocked transpose, x86MatrixTranspose<T> for float and double, beside
// memcpy moving the same bytes and OpenBLAS's out-of-place transposing copy
// (cblas_somatcopy / cblas_domatcopy, Haswell kernels) on the same operands:
// a large square, a wide rectangle, and an odd shape with row strides longer
// than its rows.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "numbra.h"
#include "openblas_peer.h"
#include "report.h"

namespace nb = ZETL::numbra;

namespace {

struct Shape {
  long m, n, lda, ldb;  // a is m by n with row stride lda; b is n by m, ldb
  std::string name() const {
    std::string s = std::to_string(m) + "x" + std::to_string(n);
    if (lda != n || ldb != m) s += "_ld" + std::to_string(lda) + "," + std::to_string(ldb);
    return s;
  }
};

// A buffer on a cache line, as a runtime's tensors usually are.
template <typename T>
struct LineBuffer {
  explicit LineBuffer(long count)
      : data(static_cast<T*>(::operator new (count * sizeof(T), std::align_val_t{64}))) {
    for (long i = 0; i < count; ++i) data[i] = static_cast<T>(i % 1009) * T(0.25);
  }
  ~LineBuffer() { ::operator delete (data, std::align_val_t{64}); }
  T* data;
};

template <typename T>
void openblas_transpose(const Shape& s, const T* a, T* b) {
#ifdef NUMBRA_BENCH_OPENBLAS
  if constexpr (sizeof(T) == sizeof(float)) {
    cblas_somatcopy(CblasRowMajor, CblasTrans, s.m, s.n, 1.0f, a, s.lda, b, s.ldb);
  } else {
    cblas_domatcopy(CblasRowMajor, CblasTrans, s.m, s.n, 1.0, a, s.lda, b, s.ldb);
  }
#else
  (void)s, (void)a, (void)b;
#endif
}

template <typename T>
void register_transpose(const std::string& type, const Shape& s) {
  const double bytes = 2.0 * s.m * s.n * sizeof(T);
  auto add = [&](const char* variant, void (*transpose)(const Shape&, const T*, T*)) {
    const std::string name = "Transpose<" + type + ">/" + variant + "/" + s.name();
    benchmark::RegisterBenchmark(name.c_str(), [s, bytes, transpose](benchmark::State& state) {
      LineBuffer<T> a(s.m * s.lda), b(s.n * s.ldb);
      for (auto _ : state) {
        transpose(s, a.data, b.data);
        benchmark::ClobberMemory();
      }
      numbra_bench::set_traffic(state, bytes);
    });
  };
  add("numbra", [](const Shape& s, const T* a, T* b) {
    nb::x86MatrixTranspose<T>(1, s.m, s.n, s.lda, a, s.ldb, b);
  });
#ifdef NUMBRA_BENCH_OPENBLAS
  add("openblas", openblas_transpose<T>);
#endif
  numbra_bench::register_memcpy(static_cast<unsigned long>(bytes));
}

}  // namespace

int main(int argc, char** argv) {
  numbra_bench::pin_peer_blas(argv);
  for (const Shape& s : {Shape{4096, 4096, 4096, 4096}, Shape{1000, 3000, 3000, 1000},
                         Shape{1031, 1033, 1042, 1044}, Shape{1024, 1024, 1024, 1024}}) {
    register_transpose<float>("float", s);
    register_transpose<double>("double", s);
  }
  return numbra_bench::run(argc, argv);
}
