// The activation kernels on DRAM-resident vectors, beside the plain loop of
// their definition and a memcpy that moves the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "numbra.h"
#include "report.h"

namespace nb = ZETL::numbra;

namespace {

constexpr unsigned long kLength = 30000000;
constexpr unsigned long kDim = 100000;
constexpr int kChannels = 30, kBatch = 10;  // kBatch * kChannels * kDim == kLength

// One slope per channel, of either sign.
const float* slopes() {
  static const std::vector<float> s = [] {
    std::vector<float> v(kChannels);
    for (int c = 0; c < kChannels; ++c) v[c] = float(c % 7 - 3) / 8.0f;
    return v;
  }();
  return s.data();
}

struct Operands {
  Operands() : x(kLength), y(kLength) {
    for (unsigned long i = 0; i < kLength; ++i) x[i] = float(long(i % 1001) - 500) / 250.0f;
  }
  std::vector<float> x, y;
};

Operands& operands() {
  static Operands v;
  return v;
}

void set_traffic(benchmark::State& state, double bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["bytes"] = bytes;
}

void register_run(const std::string& name, std::function<void(Operands&)> body) {
  benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State& state) {
    Operands& v = operands();
    for (auto _ : state) {
      body(v);
      benchmark::ClobberMemory();
    }
    set_traffic(state, 2.0 * kLength * sizeof(float));
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string n = std::to_string(kLength);
  register_run("Relu<float>/numbra/" + n, [](Operands& v) {
    nb::x86VectorRelu<float>(ISA_AVX, IMP_DEFAULT, kLength, 1.0f, v.x.data(), 0.0f, v.y.data());
  });
  register_run("Relu<float>/scalar/" + n, [](Operands& v) {
    for (unsigned long i = 0; i < kLength; ++i) v.y[i] = v.x[i] > 0.0f ? v.x[i] : 0.0f;
  });
  register_run("Prelu<float>/numbra/" + n, [](Operands& v) {
    x86_cnn_prelu_avx(false, kDim, kChannels, kBatch, v.x.data(), slopes(), v.y.data());
  });
  register_run("Prelu<float>/scalar/" + n, [](Operands& v) {
    const float* slope = slopes();
    for (unsigned long i = 0; i < kLength; ++i) {
      const float xi = v.x[i], s = slope[(i / kDim) % kChannels];
      v.y[i] = (0.0f > xi ? 0.0f : xi) + s * (0.0f < xi ? 0.0f : xi);
    }
  });
  const unsigned long bytes = 2 * kLength * sizeof(float);
  benchmark::RegisterBenchmark(("memcpy/" + std::to_string(bytes)).c_str(),
                               [](benchmark::State& state) {
                                 Operands& v = operands();
                                 for (auto _ : state) {
                                   std::memcpy(v.y.data(), v.x.data(), kLength * sizeof(float));
                                   benchmark::ClobberMemory();
                                 }
                                 set_traffic(state, 2.0 * kLength * sizeof(float));
                               });
  return numbra_bench::run(argc, argv);
}
