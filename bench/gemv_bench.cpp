// Matrix-vector products with ISA_FMA and ISA_AVX: at 4096 x 4096, where the matrix
// streams from memory, beside a plain read of the same bytes; at 256 x 256,
// where it stays in the caches, beside a peer BLAS run on one thread with its
// AVX2 kernels, when one was found at build time.
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "numbra.h"
#include "openblas_peer.h"
#include "report.h"

namespace nb = ZETL::numbra;

namespace {

struct Operands {
  explicit Operands(unsigned long size) : a(size * size), x(size), y(size) {
    for (unsigned long i = 0; i < a.size(); ++i) a[i] = 0.5f + float(i % 1013) / 1013.0f;
    for (unsigned long i = 0; i < size; ++i) x[i] = 1.0f - float(i % 97) / 194.0f;
  }
  std::vector<float> a, x, y;
};

constexpr float kAlpha = 0.75f, kBeta = 0.25f;

// Bytes one product moves: the matrix and x read, y read and written.
double traffic(unsigned long size) { return (double(size) * size + 3.0 * size) * sizeof(float); }

void set_traffic(benchmark::State& state, double bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["bytes"] = bytes;
}

using Product = void (*)(unsigned long size, Operands& v);

void register_product(const std::string& op, const std::string& variant, unsigned long size,
                      Product product) {
  benchmark::RegisterBenchmark((op + "/" + variant + "/" + std::to_string(size)).c_str(),
                               [size, product](benchmark::State& state) {
                                 Operands v(size);
                                 for (auto _ : state) {
                                   product(size, v);
                                   benchmark::ClobberMemory();
                                 }
                                 set_traffic(state, traffic(size));
                               });
}

// Adds up every float of the buffer in 8-lane steps, walking kStreams equal
// sections side by side: a single stream leaves this machine's prefetchers
// idle for part of the time, and the matrix products read four rows at once.
constexpr unsigned long kStreams = 8;
__attribute__((target("avx2"))) float read_all(const float* p, unsigned long n) {
  const unsigned long section = n / kStreams / 8 * 8;
  __m256 s[kStreams];
  for (unsigned long k = 0; k < kStreams; ++k) s[k] = _mm256_setzero_ps();
  for (unsigned long i = 0; i < section; i += 8) {
#pragma GCC unroll 8
    for (unsigned long k = 0; k < kStreams; ++k)
      s[k] = _mm256_add_ps(s[k], _mm256_loadu_ps(p + k * section + i));
  }
  for (unsigned long k = 1; k < kStreams; ++k) s[0] = _mm256_add_ps(s[0], s[k]);
  return _mm_cvtss_f32(_mm256_castps256_ps128(s[0]));
}

void register_read(double bytes) {
  const unsigned long n = static_cast<unsigned long>(bytes) / sizeof(float);
  benchmark::RegisterBenchmark(("read/" + std::to_string(static_cast<long>(bytes))).c_str(),
                               [n, bytes](benchmark::State& state) {
                                 std::vector<float> buffer(n, 1.0f);
                                 for (auto _ : state) {
                                   benchmark::DoNotOptimize(read_all(buffer.data(), n));
                                 }
                                 set_traffic(state, bytes);
                               });
}

// Both instruction sets of the library, each beside the peer.
template <ISA_t kIsa>
void register_twin(const std::string& suffix, unsigned long size) {
  register_product("Gemv_n<float>" + suffix, "numbra", size, [](unsigned long s, Operands& v) {
    nb::x86MatrixGemv_n<float>(kIsa, IMP_DEFAULT, 1, s, s, kAlpha, v.a.data(), v.x.data(), kBeta,
                               v.y.data());
  });
  register_product("Gemv_t<float>" + suffix, "numbra", size, [](unsigned long s, Operands& v) {
    nb::x86MatrixGemv_t<float>(kIsa, IMP_DEFAULT, 1, s, s, kAlpha, v.a.data(), v.x.data(), kBeta,
                               v.y.data());
  });
#ifdef NUMBRA_BENCH_OPENBLAS
  register_product("Gemv_n<float>" + suffix, "openblas", size, [](unsigned long s, Operands& v) {
    cblas_sgemv(CblasRowMajor, CblasNoTrans, s, s, kAlpha, v.a.data(), s, v.x.data(), 1, kBeta,
                v.y.data(), 1);
  });
  register_product("Gemv_t<float>" + suffix, "openblas", size, [](unsigned long s, Operands& v) {
    cblas_sgemv(CblasRowMajor, CblasTrans, s, s, kAlpha, v.a.data(), s, v.x.data(), 1, kBeta,
                v.y.data(), 1);
  });
#endif
}

void register_products() {
  const unsigned long streamed = 4096, cached = 256;
  for (const unsigned long size : {streamed, cached}) {
    register_twin<ISA_FMA>("", size);
    register_twin<ISA_AVX>(" avx", size);
  }
  register_read(traffic(streamed));
}

}  // namespace

int main(int argc, char** argv) {
  numbra_bench::pin_peer_blas(argv);
  register_products();
  return numbra_bench::run(argc, argv);
}
