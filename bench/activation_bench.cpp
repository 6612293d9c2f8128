// The 8-lane activation kernels at L1-, L2- and DRAM-resident lengths,
// beside the plain loop of their definition, their roof (a one-in, one-out
// plain 8-lane loop, bench/roof.h) and a memcpy that moves the same bytes.
#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "numbra.h"
#include "report.h"
#include "roof.h"

namespace nb = ZETL::numbra;

namespace {

constexpr unsigned long kLength = 30000000;
const unsigned long kLengths[] = {1000, 100000, kLength};
constexpr int kChannels = 10;  // of one batch, n / kChannels elements each

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

void register_run(const std::string& name, unsigned long n,
                  std::function<void(unsigned long, Operands&)> body) {
  benchmark::RegisterBenchmark(name.c_str(), [body, n](benchmark::State& state) {
    Operands& v = operands();
    for (auto _ : state) {
      body(n, v);
      benchmark::ClobberMemory();
    }
    numbra_bench::set_traffic(state, 2.0 * n * sizeof(float));
  });
}

}  // namespace

int main(int argc, char** argv) {
  for (const unsigned long n : kLengths) {
    const std::string size = std::to_string(n);
    register_run("Relu<float>/numbra/" + size, n, [](unsigned long n, Operands& v) {
      nb::x86VectorRelu<float>(ISA_AVX, IMP_DEFAULT, n, 1.0f, v.x.data(), 0.0f, v.y.data());
    });
    register_run("Relu<float>/scalar/" + size, n, [](unsigned long n, Operands& v) {
      for (unsigned long i = 0; i < n; ++i) v.y[i] = v.x[i] > 0.0f ? v.x[i] : 0.0f;
    });
    register_run("Prelu<float>/numbra/" + size, n, [](unsigned long n, Operands& v) {
      x86_cnn_prelu_avx(false, n / kChannels, kChannels, 1, v.x.data(), slopes(), v.y.data());
    });
    register_run("Prelu<float>/scalar/" + size, n, [](unsigned long n, Operands& v) {
      const float* slope = slopes();
      const unsigned long dim = n / kChannels;
      for (unsigned long i = 0; i < n; ++i) {
        const float xi = v.x[i], s = slope[i / dim];
        v.y[i] = (0.0f > xi ? 0.0f : xi) + s * (0.0f < xi ? 0.0f : xi);
      }
    });
    for (const char* op : {"Relu<float>/roof/", "Prelu<float>/roof/"}) {
      register_run(op + size, n, [](unsigned long n, Operands& v) {
        numbra_bench::roof_map(n, v.y.data(), v.x.data());
      });
    }
    numbra_bench::register_memcpy(2 * n * sizeof(float));
  }
  return numbra_bench::run(argc, argv);
}
