// The dense multiply beside the machine's arithmetic peaks, measured in the
// same run: x86Gemm_nn<float> through the FMA and the AVX twin over a sweep of
// sizes, the transposed forms at 1024, the skinny path of x86Gemm_nt<float>
// (m up to 16, n = k = 1024), each beside the single-threaded products of the
// peers found at build time.
#include <benchmark/benchmark.h>

#include <algorithm>
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

// The four forms of C = op(A) op(B): which operand is stored transposed.
struct Form {
  const char* name;
  bool a_transposed, b_transposed;
};
constexpr Form kNN{"nn", false, false}, kTN{"tn", true, false}, kNT{"nt", false, true},
    kTT{"tt", true, true};

// C = op(A) op(B) for row-major, densely stored m by k (or k by m) A and k
// by n (or n by k) B, by multiply(a, b, c, ws), as "<op>/<variant>/<size>".
template <class Multiply>
void register_product(const std::string& op, const std::string& variant, const std::string& size,
                      long m, long n, long k, Multiply multiply) {
  const std::string name = op + "/" + variant + "/" + size;
  benchmark::RegisterBenchmark(name.c_str(), [m, n, k, multiply](benchmark::State& state) {
    const auto a = random_matrix(m * k, 1), b = random_matrix(k * n, 2);
    Matrix c(m * n);
    unsigned long ws_bytes = 0;
    for (const auto size : {nb::x86GemmNNGetSize<float>, nb::x86GemmTNGetSize<float>,
                            nb::x86GemmNTGetSize<float>, nb::x86GemmTTGetSize<float>}) {
      ws_bytes = std::max(ws_bytes, size(1, m, n, k, k, n, n));
    }
    Matrix ws(ws_bytes / sizeof(float));
    for (auto _ : state) {
      multiply(a.data(), b.data(), c.data(), ws.data());
      benchmark::ClobberMemory();
    }
    state.counters["flops"] = 2.0 * m * n * k;
  });
}

// The library through both instruction sets and every peer, on one form.
void register_form(const std::string& op, const std::string& size, long m, long n, long k,
                   Form form) {
  const long lda = form.a_transposed ? m : k, ldb = form.b_transposed ? k : n;
  for (const auto& [variant, isa] : {std::pair{"fma", ISA_FMA}, {"avx", ISA_AVX}}) {
    register_product(
        op, variant, size, m, n, k,
        [=, isa = isa](const float* a, const float* b, float* c, float* ws) {
          const auto gemm =
              form.a_transposed
                  ? (form.b_transposed ? nb::x86Gemm_tt<float> : nb::x86Gemm_tn<float>)
                  : (form.b_transposed ? nb::x86Gemm_nt<float> : nb::x86Gemm_nn<float>);
          gemm(isa, IMP_DEFAULT, 1, m, n, k, 1.0f, lda, a, ldb, b, ws, 0.0f, n, c);
        });
  }
#ifdef NUMBRA_BENCH_OPENBLAS
  register_product(op, "openblas", size, m, n, k,
                   [=](const float* a, const float* b, float* c, float*) {
                     cblas_sgemm(CblasRowMajor, form.a_transposed ? CblasTrans : CblasNoTrans,
                                 form.b_transposed ? CblasTrans : CblasNoTrans, m, n, k, 1.0f, a,
                                 lda, b, ldb, 0.0f, c, n);
                   });
#endif
#ifdef NUMBRA_BENCH_BLIS
  register_product(op, "blis", size, m, n, k,
                   [=](const float* a, const float* b, float* c, float*) {
                     blis_sgemm(m, n, k, form.a_transposed, form.b_transposed, a, b, c);
                   });
#endif
#ifdef NUMBRA_BENCH_EIGEN
  register_product(op, "eigen", size, m, n, k,
                   [=](const float* a, const float* b, float* c, float*) {
                     eigen_sgemm(m, n, k, form.a_transposed, form.b_transposed, a, b, c);
                   });
#endif
}

}  // namespace

int main(int argc, char** argv) {
  numbra_bench::pin_peer_blas(argv);
  register_peaks();
  for (const long size : {64, 128, 256, 512, 768, 1024, 1536, 2048}) {
    register_form("sgemm_nn", std::to_string(size), size, size, size, kNN);
  }
  for (const Form& form : {kTN, kNT, kTT}) {
    register_form(std::string("sgemm_") + form.name, "1024", 1024, 1024, 1024, form);
  }
  // The skinny path: few rows of A against a transposed B.
  for (long m = 1; m <= 16; ++m) {
    register_form("sgemm_nt(m=" + std::to_string(m) + ")", "1024", m, 1024, 1024, kNT);
  }
  return numbra_bench::run(argc, argv);
}
