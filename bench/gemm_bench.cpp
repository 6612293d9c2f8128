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
#include <tuple>
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

// The library through both instruction sets and every peer, on one product.
void register_form(const std::string& op, const std::string& size, const PeerProduct& p) {
  const long m = p.m, n = p.n, k = p.k;
  const long lda = p.a_transposed ? m : k, ldb = p.b_transposed ? k : n;
  for (const auto& [variant, isa] : {std::pair{"fma", ISA_FMA}, {"avx", ISA_AVX}}) {
    register_product(
        op, variant, size, m, n, k,
        [=, isa = isa](const float* a, const float* b, float* c, float* ws) {
          const auto gemm = p.a_transposed
                                ? (p.b_transposed ? nb::x86Gemm_tt<float> : nb::x86Gemm_tn<float>)
                                : (p.b_transposed ? nb::x86Gemm_nt<float> : nb::x86Gemm_nn<float>);
          gemm(isa, IMP_DEFAULT, 1, m, n, k, p.alpha, lda, a, ldb, b, ws, p.beta, n, c);
        });
  }
#ifdef NUMBRA_BENCH_OPENBLAS
  register_product(op, "openblas", size, m, n, k,
                   [=](const float* a, const float* b, float* c, float*) {
                     cblas_sgemm(CblasRowMajor, p.a_transposed ? CblasTrans : CblasNoTrans,
                                 p.b_transposed ? CblasTrans : CblasNoTrans, m, n, k, p.alpha, a,
                                 lda, b, ldb, p.beta, c, n);
                   });
#endif
  using Peer = void (*)(const PeerProduct&, const float*, const float*, float*);
  auto register_peer = [&](const char* name, Peer peer) {
    register_product(op, name, size, m, n, k,
                     [=](const float* a, const float* b, float* c, float*) { peer(p, a, b, c); });
  };
#ifdef NUMBRA_BENCH_BLIS
  register_peer("blis", blis_sgemm);
#endif
#ifdef NUMBRA_BENCH_ONEDNN
  register_peer("onednn", onednn_sgemm);
#endif
#ifdef NUMBRA_BENCH_EIGEN
  register_peer("eigen", eigen_sgemm);
#endif
  (void)register_peer;
}

// C = op(A) op(B), with alpha = 1 and beta = 0 unless given.
PeerProduct product(long m, long n, long k, Form form, float alpha = 1.0f, float beta = 0.0f) {
  return {m, n, k, form.a_transposed, form.b_transposed, alpha, beta};
}

}  // namespace

int main(int argc, char** argv) {
#ifdef NUMBRA_BENCH_BLIS
  blis_use_haswell_kernels();
#endif
  numbra_bench::pin_peer_blas(argv);
#ifdef NUMBRA_BENCH_BLIS
  benchmark::AddCustomContext("blis", blis_kernel_name());
#endif
#ifdef NUMBRA_BENCH_ONEDNN
  benchmark::AddCustomContext("onednn", onednn_kernel_name());
#endif
#ifdef NUMBRA_BENCH_EIGEN
  benchmark::AddCustomContext("eigen", "general matrix product, 8-lane AVX2 with FMA");
#endif
  register_peaks();
  for (const long size : {64, 128, 256, 512, 768, 1000, 1024, 1536, 2048}) {
    register_form("sgemm_nn", std::to_string(size), product(size, size, size, kNN));
  }
  // Few rows, few columns, and a shallow depth.
  for (const auto& [m, n, k] :
       {std::tuple{64L, 4096L, 1024L}, {4096L, 64L, 1024L}, {1024L, 1024L, 64L}}) {
    const std::string shape = std::to_string(m) + "x" + std::to_string(n) + "x" + std::to_string(k);
    register_form("sgemm_nn(shape)", shape, product(m, n, k, kNN));
    if (k == 64) {
      register_form("sgemm_nn(alpha=beta=0.5)", shape, product(m, n, k, kNN, 0.5f, 0.5f));
    }
  }
  register_form("sgemm_nn(alpha=beta=0.5)", "1024", product(1024, 1024, 1024, kNN, 0.5f, 0.5f));
  for (const Form& form : {kTN, kNT, kTT}) {
    register_form(std::string("sgemm_") + form.name, "1024", product(1024, 1024, 1024, form));
  }
  // The skinny path: few rows of A against a transposed B.
  for (long m = 1; m <= 16; ++m) {
    register_form("sgemm_nt(m=" + std::to_string(m) + ")", "1024", product(m, 1024, 1024, kNT));
  }
  return numbra_bench::run(argc, argv);
}
