// Vector operators at L1-, L2- and DRAM-resident lengths, each beside the
// plain scalar loop of its definition, a memcpy that moves the same bytes,
// its roof (the same access pattern as a plain 8-lane loop, bench/roof.h),
// and the peers that have the operation: Eigen's array expressions on AVX2
// packets, OpenBLAS's level-1 routines on its Haswell kernels, memset for
// the fill.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "numbra.h"
#include "openblas_peer.h"
#include "operands.h"
#include "report.h"
#include "roof.h"
#ifdef NUMBRA_BENCH_EIGEN
#include "vector_peers.h"
#endif

namespace nb = ZETL::numbra;
using numbra_bench::operands;
using numbra_bench::Operands;
using numbra_bench::roof_map;

namespace {

const unsigned long kLengths[] = {1000, 100000, 30000000};

template <typename T>
using Body = std::function<void(unsigned long, const Operands<T>&)>;

template <typename T>
struct Operator {
  std::string name;
  int vectors_read, vectors_written;
  Body<T> numbra, scalar;
  // The roof first, then the peers, each as (variant, body).
  std::vector<std::pair<std::string, Body<T>>> others;
};

#ifdef NUMBRA_BENCH_EIGEN
template <typename T>
Body<T> eigen(numbra_bench::EigenOp op, T a = T(0.999), T b = T(0.001)) {
  return [=](unsigned long n, const Operands<T>& v) {
    numbra_bench::eigen_vector_op<T>(op, long(n), a, b, v.x, v.y, v.z);
  };
}
#define NUMBRA_EIGEN(...) {"eigen", eigen<T>(numbra_bench::EigenOp::__VA_ARGS__)},
#else
#define NUMBRA_EIGEN(...)
#endif

#ifdef NUMBRA_BENCH_OPENBLAS
// cblas_s<name> or cblas_d<name>, by T.
#define NUMBRA_OPENBLAS(name, ...)                          \
  {"openblas", [=](unsigned long n, const Operands<T>& v) { \
     if constexpr (sizeof(T) == 4)                          \
       cblas_s##name(int(n), __VA_ARGS__);                  \
     else                                                   \
       cblas_d##name(int(n), __VA_ARGS__);                  \
   }},
#else
#define NUMBRA_OPENBLAS(name, ...)
#endif

// The roof of an operator that stores its first operand from the others.
#define NUMBRA_ROOF(...)                                                               \
  {                                                                                    \
    "roof", [](unsigned long n, const Operands<T>& v) { roof_map<T>(n, __VA_ARGS__); } \
  }

template <typename T>
std::vector<Operator<T>> operators() {
  const T a = T(0.999), b = T(0.001);
  (void)b;
  using V = Operands<T>;
  return {
      {"Add",
       2,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorAdd(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] + v.y[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.y), NUMBRA_EIGEN(kAdd)}},
      {"Subtract",
       2,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorSubtract(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] - v.y[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.y), NUMBRA_EIGEN(kSubtract)}},
      {"Mul",
       2,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorMul(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * v.y[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.y), NUMBRA_EIGEN(kMul)}},
      {"Div",
       2,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorDiv(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.y[i] == T(0) ? T(0) : v.x[i] / v.y[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.y), NUMBRA_EIGEN(kDiv)}},
      {"Mla",
       3,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorMla(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * v.y[i] + v.z[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.y, v.z), NUMBRA_EIGEN(kMla)}},
      {"Mls",
       3,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorMls(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.z[i] - v.x[i] * v.y[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.y, v.z), NUMBRA_EIGEN(kMls)}},
      {"Axpy",
       2,
       1,
       [a](unsigned long n, const V& v) { nb::x86VectorAxpy(n, a, v.x, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a + v.z[i];
       },
       {NUMBRA_ROOF(v.z, v.x, v.z), NUMBRA_EIGEN(kAxpy) NUMBRA_OPENBLAS(axpy, a, v.x, 1, v.z, 1)}},
      {"Axpby",
       2,
       1,
       [a, b](unsigned long n, const V& v) { nb::x86VectorAxpby(n, a, v.x, b, v.z); },
       [a, b](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a + v.z[i] * b;
       },
       {NUMBRA_ROOF(v.z, v.x, v.z),
        NUMBRA_EIGEN(kAxpby) NUMBRA_OPENBLAS(axpby, a, v.x, 1, b, v.z, 1)}},
      {"Axpby(beta=0)",
       1,
       1,
       [a](unsigned long n, const V& v) { nb::x86VectorAxpby(n, a, v.x, T(0), v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a;
       },
       {NUMBRA_ROOF(v.z, v.x),
        NUMBRA_EIGEN(kMulScalar) NUMBRA_OPENBLAS(axpby, a, v.x, 1, T(0), v.z, 1)}},
      {"Axpb",
       1,
       1,
       [a, b](unsigned long n, const V& v) { nb::x86VectorAxpb(n, a, v.x, b, v.z); },
       [a, b](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a + b;
       },
       {NUMBRA_ROOF(v.z, v.x), NUMBRA_EIGEN(kAxpb)}},
      {"AddScalar",
       1,
       1,
       [a](unsigned long n, const V& v) { nb::x86VectorAddScalar(n, v.x, a, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] + a;
       },
       {NUMBRA_ROOF(v.z, v.x), NUMBRA_EIGEN(kAddScalar)}},
      {"MulScalar",
       1,
       1,
       [a](unsigned long n, const V& v) { nb::x86VectorMulScalar(n, v.x, a, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a;
       },
       {NUMBRA_ROOF(v.z, v.x), NUMBRA_EIGEN(kMulScalar)}},
      {"Squre",
       1,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorSqure(n, v.x, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * v.x[i];
       },
       {NUMBRA_ROOF(v.z, v.x), NUMBRA_EIGEN(kSquare)}},
      {"Copy",
       1,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorCopy(n, v.x, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i];
       },
       {NUMBRA_ROOF(v.z, v.x), NUMBRA_EIGEN(kCopy) NUMBRA_OPENBLAS(copy, v.x, 1, v.z, 1)}},
      {"Swap",
       2,
       2,
       [](unsigned long n, const V& v) { nb::x86VectorSwap(n, T(1), v.z, T(1), v.w); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) {
           const T zi = v.z[i], wi = v.w[i];
           v.z[i] = wi * T(1);
           v.w[i] = zi * T(1);
         }
       },
       {{"roof",
         [](unsigned long n, const Operands<T>& v) { numbra_bench::roof_swap(n, v.z, v.w); }},
        NUMBRA_OPENBLAS(swap, v.z, 1, v.w, 1)}},
      {"FillScalar",
       0,
       1,
       [a](unsigned long n, const V& v) { nb::x86VectorFillScalar(n, a, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = a;
       },
       {NUMBRA_ROOF(v.z),
        {"memset",
         [](unsigned long n, const Operands<T>& v) { std::memset(v.z, 0x3f, n * sizeof(T)); }},
        NUMBRA_EIGEN(kFill)}},
      {"FillVector3",
       1,
       1,
       [](unsigned long n, const V& v) { nb::x86VectorFillVector<T, 3>(n, v.x, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i % 3];
       },
       {NUMBRA_ROOF(v.z),
        {"memset",
         [](unsigned long n, const Operands<T>& v) { std::memset(v.z, 0x3f, n * sizeof(T)); }}}},
      {"Sum",
       1,
       0,
       [](unsigned long n, const V& v) { benchmark::DoNotOptimize(nb::x86VectorSum(n, v.x)); },
       [](unsigned long n, const V& v) {
         T s = T(0);
         for (unsigned long i = 0; i < n; ++i) s = s + v.x[i];
         benchmark::DoNotOptimize(s);
       },
       {}},
      {"Dot",
       1,
       0,
       [](unsigned long n, const V& v) { benchmark::DoNotOptimize(nb::x86VectorDot(n, v.x)); },
       [](unsigned long n, const V& v) {
         T s = T(0);
         for (unsigned long i = 0; i < n; ++i) s = s + v.x[i] * v.x[i];
         benchmark::DoNotOptimize(s);
       },
       {}},
      {"Max",
       1,
       0,
       [](unsigned long n, const V& v) { benchmark::DoNotOptimize(nb::x86VectorMax(n, v.x)); },
       [](unsigned long n, const V& v) {
         T m = T(1.17549435e-38f);
         for (unsigned long i = 0; i < n; ++i)
           if (v.x[i] > m) m = v.x[i];
         benchmark::DoNotOptimize(m);
       },
       {{"roof", [](unsigned long n, const Operands<T>& v) { numbra_bench::roof_read(n, v.x); }},
        NUMBRA_EIGEN(kMax)}},
      {"MaxMin",
       1,
       0,
       [](unsigned long n, const V& v) {
         T lo, hi;
         nb::x86VectorMaxMin(n, v.x, &lo, &hi);
         benchmark::DoNotOptimize(lo);
         benchmark::DoNotOptimize(hi);
       },
       [](unsigned long n, const V& v) {
         T lo = T(3.40282347e+38f), hi = T(1.17549435e-38f);
         for (unsigned long i = 0; i < n; ++i) {
           if (lo > v.x[i]) lo = v.x[i];
           if (v.x[i] > hi) hi = v.x[i];
         }
         benchmark::DoNotOptimize(lo);
         benchmark::DoNotOptimize(hi);
       },
       {{"roof", [](unsigned long n, const Operands<T>& v) { numbra_bench::roof_read(n, v.x); }}}},
  };
}

template <typename T>
const char* type_name();
template <>
const char* type_name<float>() {
  return "float";
}
template <>
const char* type_name<double>() {
  return "double";
}

template <typename T>
void register_operators() {
  for (const Operator<T>& op : operators<T>()) {
    const std::string group = op.name + "<" + type_name<T>() + ">";
    for (const unsigned long n : kLengths) {
      const unsigned long bytes = (op.vectors_read + op.vectors_written) * n * sizeof(T);
      std::vector<std::pair<std::string, Body<T>>> variants = {{"numbra", op.numbra},
                                                               {"scalar", op.scalar}};
      variants.insert(variants.end(), op.others.begin(), op.others.end());
      for (const auto& [variant, body] : variants) {
        const std::string name = group + "/" + variant + "/" + std::to_string(n);
        benchmark::RegisterBenchmark(name.c_str(),
                                     [body = body, n, bytes](benchmark::State& state) {
                                       Operands<T>& v = operands<T>(n);
                                       for (auto _ : state) {
                                         body(n, v);
                                         benchmark::ClobberMemory();
                                       }
                                       numbra_bench::set_traffic(state, double(bytes));
                                     });
      }
      numbra_bench::register_memcpy(bytes);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  numbra_bench::pin_peer_blas(argv);
  register_operators<float>();
  register_operators<double>();
  return numbra_bench::run(argc, argv);
}
