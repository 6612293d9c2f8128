// Vector operators at L1-, L2- and DRAM-resident lengths, each beside the
// plain scalar loop of its definition and a memcpy that moves the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "numbra.h"
#include "operands.h"
#include "report.h"

namespace nb = ZETL::numbra;
using numbra_bench::operands;
using numbra_bench::Operands;

namespace {

const unsigned long kLengths[] = {1000, 100000, 30000000};

template <typename T>
struct Operator {
  std::string name;
  int vectors_read, vectors_written;
  std::function<void(unsigned long, const Operands<T>&)> numbra, scalar;
};

template <typename T>
std::vector<Operator<T>> operators() {
  const T a = T(0.999), b = T(0.001);
  using V = Operands<T>;
  return {
      {"Add", 2, 1, [](unsigned long n, const V& v) { nb::x86VectorAdd(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] + v.y[i];
       }},
      {"Subtract", 2, 1,
       [](unsigned long n, const V& v) { nb::x86VectorSubtract(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] - v.y[i];
       }},
      {"Mul", 2, 1, [](unsigned long n, const V& v) { nb::x86VectorMul(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * v.y[i];
       }},
      {"Div", 2, 1, [](unsigned long n, const V& v) { nb::x86VectorDiv(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.y[i] == T(0) ? T(0) : v.x[i] / v.y[i];
       }},
      {"Mla", 3, 1, [](unsigned long n, const V& v) { nb::x86VectorMla(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * v.y[i] + v.z[i];
       }},
      {"Mls", 3, 1, [](unsigned long n, const V& v) { nb::x86VectorMls(n, v.x, v.y, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.z[i] - v.x[i] * v.y[i];
       }},
      {"Axpy", 2, 1, [a](unsigned long n, const V& v) { nb::x86VectorAxpy(n, a, v.x, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a + v.z[i];
       }},
      {"Axpby", 2, 1,
       [a, b](unsigned long n, const V& v) { nb::x86VectorAxpby(n, a, v.x, b, v.z); },
       [a, b](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a + v.z[i] * b;
       }},
      {"Axpby(beta=0)", 1, 1,
       [a](unsigned long n, const V& v) { nb::x86VectorAxpby(n, a, v.x, T(0), v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a;
       }},
      {"Axpb", 1, 1, [a, b](unsigned long n, const V& v) { nb::x86VectorAxpb(n, a, v.x, b, v.z); },
       [a, b](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a + b;
       }},
      {"AddScalar", 1, 1,
       [a](unsigned long n, const V& v) { nb::x86VectorAddScalar(n, v.x, a, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] + a;
       }},
      {"MulScalar", 1, 1,
       [a](unsigned long n, const V& v) { nb::x86VectorMulScalar(n, v.x, a, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * a;
       }},
      {"Squre", 1, 1, [](unsigned long n, const V& v) { nb::x86VectorSqure(n, v.x, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i] * v.x[i];
       }},
      {"Copy", 1, 1, [](unsigned long n, const V& v) { nb::x86VectorCopy(n, v.x, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i];
       }},
      {"Swap", 2, 2,
       [](unsigned long n, const V& v) { nb::x86VectorSwap(n, T(1), v.z, T(1), v.w); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) {
           const T zi = v.z[i], wi = v.w[i];
           v.z[i] = wi * T(1);
           v.w[i] = zi * T(1);
         }
       }},
      {"FillScalar", 0, 1, [a](unsigned long n, const V& v) { nb::x86VectorFillScalar(n, a, v.z); },
       [a](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = a;
       }},
      {"FillVector3", 1, 1,
       [](unsigned long n, const V& v) { nb::x86VectorFillVector<T, 3>(n, v.x, v.z); },
       [](unsigned long n, const V& v) {
         for (unsigned long i = 0; i < n; ++i) v.z[i] = v.x[i % 3];
       }},
      {"Sum", 1, 0,
       [](unsigned long n, const V& v) { benchmark::DoNotOptimize(nb::x86VectorSum(n, v.x)); },
       [](unsigned long n, const V& v) {
         T s = T(0);
         for (unsigned long i = 0; i < n; ++i) s = s + v.x[i];
         benchmark::DoNotOptimize(s);
       }},
      {"Dot", 1, 0,
       [](unsigned long n, const V& v) { benchmark::DoNotOptimize(nb::x86VectorDot(n, v.x)); },
       [](unsigned long n, const V& v) {
         T s = T(0);
         for (unsigned long i = 0; i < n; ++i) s = s + v.x[i] * v.x[i];
         benchmark::DoNotOptimize(s);
       }},
      {"Max", 1, 0,
       [](unsigned long n, const V& v) { benchmark::DoNotOptimize(nb::x86VectorMax(n, v.x)); },
       [](unsigned long n, const V& v) {
         T m = T(1.17549435e-38f);
         for (unsigned long i = 0; i < n; ++i)
           if (v.x[i] > m) m = v.x[i];
         benchmark::DoNotOptimize(m);
       }},
      {"MaxMin", 1, 0,
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
       }},
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
      for (const bool library : {true, false}) {
        const auto body = library ? op.numbra : op.scalar;
        const std::string name = group + (library ? "/numbra/" : "/scalar/") + std::to_string(n);
        benchmark::RegisterBenchmark(name.c_str(), [body, n, bytes](benchmark::State& state) {
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
  register_operators<float>();
  register_operators<double>();
  return numbra_bench::run(argc, argv);
}
