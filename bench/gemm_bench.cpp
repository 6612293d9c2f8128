// The dense multiply beside the machine's arithmetic peaks, measured in the
// same run: x86Gemm_nn<float> through the FMA and the AVX twin over a sweep of
// sizes, and the single-threaded products of the peers found at build time.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "gemm_peers.h"
#include "numbra.h"
#include "openblas_peer.h"
#include "peak.h"
#include "report.h"

namespace nb = ZETL::numbra;

namespace {

void register_peaks() {
  constexpr long kSteps = 1 << 20;
  benchmark::RegisterBenchmark("peak/fma", [](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(numbra_bench::fma_chains(kSteps));
    state.counters["flops"] = kSteps * numbra_bench::kPeakFlopsPerStep;
  });
  benchmark::RegisterBenchmark("peak/mul_add", [](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(numbra_bench::mul_add_chains(kSteps));
    state.counters["flops"] = kSteps * numbra_bench::kPeakFlopsPerStep;
  });
}

// Buffers start on a cache line, as a runtime's tensors and workspaces
// usually do; every product of the comparison gets the same ones.
template <typename T>
struct LineAligned {
  using value_type = T;
  static constexpr std::align_val_t kLine{64};
  LineAligned() = default;
  template <typename U>
  LineAligned(const LineAligned<U>&) {}
  T* allocate(std::size_t n) { return static_cast<T*>(::operator new(n * sizeof(T), kLine)); }
  void deallocate(T* p, std::size_t) { ::operator delete(p, kLine); }
  friend bool operator==(const LineAligned&, const LineAligned&) { return true; }
  friend bool operator!=(const LineAligned&, const LineAligned&) { return false; }
};
using Matrix = std::vector<float, LineAligned<float>>;

Matrix random_matrix(long elements, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  Matrix v(elements);
  for (float& x : v) x = dist(gen);
  return v;
}

// C = A * B for square row-major matrices of `size`, by `multiply(size, a,
// b, c, ws)`.
template <class Multiply>
void register_sgemm(const char* variant, long size, Multiply multiply) {
  const std::string name = std::string("sgemm_nn/") + variant + "/" + std::to_string(size);
  benchmark::RegisterBenchmark(name.c_str(), [size, multiply](benchmark::State& state) {
    const auto a = random_matrix(size * size, 1), b = random_matrix(size * size, 2);
    Matrix c(size * size);
    Matrix ws(nb::x86GemmNNGetSize<float>(1, size, size, size, size, size, size) / sizeof(float));
    for (auto _ : state) {
      multiply(size, a.data(), b.data(), c.data(), ws.data());
      benchmark::ClobberMemory();
    }
    state.counters["flops"] = 2.0 * size * size * size;
  });
}

void register_products(long size) {
  for (const auto& [variant, isa] : {std::pair{"fma", ISA_FMA}, {"avx", ISA_AVX}}) {
    register_sgemm(
        variant, size, [isa = isa](long s, const float* a, const float* b, float* c, float* ws) {
          nb::x86Gemm_nn<float>(isa, IMP_DEFAULT, 1, s, s, s, 1.0f, s, a, s, b, ws, 0.0f, s, c);
        });
  }
#ifdef NUMBRA_BENCH_OPENBLAS
  register_sgemm("openblas", size, [](long s, const float* a, const float* b, float* c, float*) {
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, s, s, s, 1.0f, a, s, b, s, 0.0f, c, s);
  });
#endif
#ifdef NUMBRA_BENCH_BLIS
  register_sgemm("blis", size, [](long s, const float* a, const float* b, float* c, float*) {
    blis_sgemm(s, a, b, c);
  });
#endif
#ifdef NUMBRA_BENCH_EIGEN
  register_sgemm("eigen", size, [](long s, const float* a, const float* b, float* c, float*) {
    eigen_sgemm(s, a, b, c);
  });
#endif
}

}  // namespace

int main(int argc, char** argv) {
  numbra_bench::pin_peer_blas(argv);
  register_peaks();
  for (const long size : {64, 128, 256, 512, 768, 1024, 1536, 2048}) register_products(size);
  return numbra_bench::run(argc, argv);
}
