// The dense multiply beside the machine's arithmetic peaks, measured in the
// same run: x86Gemm_nn<float> through the FMA and the AVX twin.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "numbra.h"
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

std::vector<float> random_matrix(long elements, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  std::vector<float> v(elements);
  for (float& x : v) x = dist(gen);
  return v;
}

void register_sgemm(const char* variant, ISA_t isa, long size) {
  const std::string name = std::string("sgemm_nn/") + variant + "/" + std::to_string(size);
  benchmark::RegisterBenchmark(name.c_str(), [isa, size](benchmark::State& state) {
    const auto a = random_matrix(size * size, 1), b = random_matrix(size * size, 2);
    std::vector<float> c(size * size);
    std::vector<float> ws(nb::x86GemmNNGetSize<float>(1, size, size, size, size, size, size) /
                          sizeof(float));
    for (auto _ : state) {
      nb::x86Gemm_nn<float>(isa, IMP_DEFAULT, 1, size, size, size, 1.0f, size, a.data(), size,
                            b.data(), ws.data(), 0.0f, size, c.data());
      benchmark::ClobberMemory();
    }
    state.counters["flops"] = 2.0 * size * size * size;
  });
}

}  // namespace

int main(int argc, char** argv) {
  register_peaks();
  for (const long size : {256, 1024, 2048}) {
    register_sgemm("fma", ISA_FMA, size);
    register_sgemm("avx", ISA_AVX, size);
  }
  return numbra_bench::run(argc, argv);
}
