// Geam, the transcendental and random-mask operators, the activations' plain
// loops and the row and column operators. Element loops run at L1-, L2- and
// DRAM-resident lengths, the row and column operators at 1024 x 1000 and
// 4096 x 4096, each beside its roof (its access pattern as a plain 8-lane
// loop, bench/roof.h) and a memcpy that moves the same bytes; the operators
// bound by exp or tanh run beside the plain loop that calls the same library
// function per element; and a softmax (maximum subtracted, then exponential
// over sum) is timed per element.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "numbra.h"
#include "operands.h"
#include "report.h"
#include "roof.h"

namespace nb = ZETL::numbra;
using numbra_bench::operands;
using numbra_bench::Operands;

namespace {

const unsigned long kLengths[] = {1000, 100000, 30000000};
constexpr unsigned long kColumns = 1000;  // of the element loops' matrix operators
constexpr unsigned long kExpLength = 100000;
constexpr unsigned long kSoftmaxRows = 1024, kSoftmaxColumns = 1000;

template <typename T>
const char* type_name() {
  return sizeof(T) == 4 ? "float" : "double";
}

template <typename T>
using Body = std::function<void(Operands<T>&)>;

// "<op>/numbra/<n>" and, where given, "<op>/scalar/<n>" and "<op>/roof/<n>"
// over operands of `length` elements, each iteration moving `bytes`.
template <typename T>
void register_pair(const std::string& op, const std::string& n, unsigned long length, double bytes,
                   Body<T> numbra, Body<T> scalar, Body<T> roof = nullptr) {
  const std::string group = op + "<" + type_name<T>() + ">";
  for (const auto& [variant, body] :
       {std::pair{"numbra", numbra}, std::pair{"scalar", scalar}, std::pair{"roof", roof}}) {
    if (!body) continue;
    const std::string name = group + "/" + variant + "/" + n;
    benchmark::RegisterBenchmark(name.c_str(), [body, length, bytes](benchmark::State& state) {
      Operands<T>& v = operands<T>(length);
      for (auto _ : state) {
        body(v);
        benchmark::ClobberMemory();
      }
      numbra_bench::set_traffic(state, bytes);
    });
  }
}

// Element loops at each length, against their roof and memcpy of the same
// bytes. The blending operators run twice, each beside the plain loop of its
// definition: with a beta that reads y and writes it back in place, and
// with beta = 0, where y is only written and the stores can bypass the
// caches.
template <typename T>
void register_element_loops(unsigned long n) {
  using numbra_bench::roof_map;
  const T alpha = T(0.25), beta = T(0.5);
  const std::string size = std::to_string(n);
  const unsigned long rows = n / kColumns;
  const auto add = [&](const std::string& op, int vectors, Body<T> body, Body<T> scalar,
                       Body<T> roof) {
    const unsigned long bytes = vectors * n * sizeof(T);
    register_pair<T>(op, size, n, double(bytes), body, scalar, roof);
    numbra_bench::register_memcpy(bytes);
  };
  using Blending = std::function<void(Operands<T>&, T beta)>;
  // z = term(x, y) + u over the operands x, y and z.
  const auto add_blending = [&](const std::string& op, Blending body, auto term) {
    const auto plain = [term, n](Operands<T>& v, T b) {
      for (unsigned long i = 0; i < n; ++i) {
        const T u = b == T(0) ? T(0) : v.z[i] * b;
        v.z[i] = term(v.x[i], v.y[i]) + u;
      }
    };
    add(
        op, 4, [=](Operands<T>& v) { body(v, beta); }, [=](Operands<T>& v) { plain(v, beta); },
        [n](Operands<T>& v) { roof_map(n, v.z, v.x, v.y, v.z); });
    add(
        op + "(beta=0)", 3, [=](Operands<T>& v) { body(v, T(0)); },
        [=](Operands<T>& v) { plain(v, T(0)); },
        [n](Operands<T>& v) { roof_map(n, v.z, v.x, v.y); });
  };
  add(
      "Geam_nn", 3,
      [=](Operands<T>& v) {
        nb::x86Geam_nn<T>(0, rows, kColumns, alpha, kColumns, v.x, beta, kColumns, v.y, kColumns,
                          v.z);
      },
      nullptr, [n](Operands<T>& v) { roof_map(n, v.z, v.x, v.y); });
  add_blending(
      "MaskAndScale",
      [=](Operands<T>& v, T b) {
        nb::x86VectorMaskAndScale<T>(n, v.x, alpha, v.y, T(1), T(2), b, v.z);
      },
      [=](T mask, T x) { return (T(1) < mask ? T(1) : T(0)) * ((x * alpha) * T(2)); });
  add_blending(
      "SplitBackward",
      [=](Operands<T>& v, T b) { nb::x86VectorSplitBackward<T>(n, alpha, v.x, v.y, b, v.z); },
      [=](T a, T c) { return (a + c) * alpha; });
  add_blending(
      "SigmoidBackward",
      [=](Operands<T>& v, T b) { nb::x86VectorSigmoidBackward<T>(n, alpha, v.x, v.y, b, v.z); },
      [=](T s, T g) { return (T(1) - s) * ((g * alpha) * s); });
  add_blending(
      "TanhBackward",
      [=](Operands<T>& v, T b) { nb::x86VectorTanhBackward<T>(n, alpha, v.x, v.y, b, v.z); },
      [=](T t, T g) { return (T(1) - t * t) * (g * alpha); });
  add_blending(
      "ReluBackward",
      [=](Operands<T>& v, T b) { nb::x86VectorReluBackward<T>(n, alpha, v.x, v.y, b, v.z); },
      [=](T x, T g) { return x > T(0) ? g * alpha : T(0); });
  // One plane, so one slope: the plain loops of Prelu (alpha is not 1).
  add_blending(
      "PreluBackward",
      [=](Operands<T>& v, T b) {
        nb::x86VectorPreluBackward<T>(false, n, n, 1, alpha, v.x, v.w, v.y, b, v.z);
      },
      [=](T x, T g) {
        return ((x <= T(0) ? T(1) : T(0)) * T(1.25) + (x > T(0) ? T(1) : T(0))) * g * alpha;
      });
  const auto prelu = [=](T x) {
    const T neg = x < T(0) ? x : T(0), pos = x > T(0) ? x : T(0);
    return (neg * T(1.25) + pos) * alpha;
  };
  add(
      "Prelu", 3,
      [=](Operands<T>& v) { nb::x86VectorPrelu<T>(false, n, n, 1, 1, alpha, v.x, v.w, beta, v.z); },
      [=](Operands<T>& v) {
        for (unsigned long i = 0; i < n; ++i) v.z[i] = prelu(v.x[i]) + v.z[i] * beta;
      },
      [n](Operands<T>& v) { roof_map(n, v.z, v.x, v.z); });
  if constexpr (sizeof(T) == 8) {
    add(
        "Relu", 3,
        [=](Operands<T>& v) { nb::x86VectorRelu<T>(ISA_AVX, IMP_t{}, n, alpha, v.x, beta, v.z); },
        [=](Operands<T>& v) {
          for (unsigned long i = 0; i < n; ++i)
            v.z[i] = (v.x[i] > T(0) ? v.x[i] * alpha : T(0)) + v.z[i] * beta;
        },
        [n](Operands<T>& v) { roof_map(n, v.z, v.x, v.z); });
  }
}

// Row and column operators on an m x n matrix in x (y and z for outputs),
// each against the roof of its access pattern.
template <typename T>
void register_rows_and_columns(unsigned long m, unsigned long n) {
  using numbra_bench::roof_map;
  using numbra_bench::roof_read;
  const T alpha = T(0.25), beta = T(0.5);
  const std::string size = std::to_string(m) + "x" + std::to_string(n);
  const unsigned long mn = m * n, length = std::max(mn, 30000000ul);
  const auto add = [&](const std::string& op, int matrices, Body<T> body, Body<T> roof) {
    const unsigned long bytes = matrices * mn * sizeof(T);
    register_pair<T>(op, size, length, double(bytes), body, nullptr, roof);
    numbra_bench::register_memcpy(bytes);
  };
  add(
      "SumByCol", 1,
      [=](Operands<T>& v) { nb::x86MatrixSumByCol<T>(0, m, n, n, alpha, v.x, beta, v.y); },
      [=](Operands<T>& v) { roof_read(mn, v.x); });
  add(
      "AddVectorByRow", 2,
      [=](Operands<T>& v) { nb::x86MatrixAddVectorByRow<T>(0, m, n, n, alpha, v.x, beta, v.y); },
      [=](Operands<T>& v) { roof_map(mn, v.y, v.y); });
  add(
      "AddVectorByCol", 2,
      [=](Operands<T>& v) { nb::x86MatrixAddVectorByCol<T>(0, m, n, n, alpha, v.x, beta, v.y); },
      [=](Operands<T>& v) { roof_map(mn, v.y, v.y); });
  // Each row's sum is one chain of dependent adds in ascending order, so the
  // roof of the average is that chain followed by the plain 8-lane pass.
  add(
      "AvgByRow", 2,
      [=](Operands<T>& v) { nb::x86MatrixAvgByRow<T>(0, m, n, n, alpha, v.x, T(0), v.y); },
      [=](Operands<T>& v) {
        for (unsigned long r = 0; r < m; ++r) {
          T s = T(0);
          for (unsigned long j = 0; j < n; ++j) s = s + v.x[r * n + j];
          benchmark::DoNotOptimize(s);
          roof_map(n, v.y + r * n, v.x + r * n);
        }
      });
  add(
      "SubMaxByRow", 2, [=](Operands<T>& v) { nb::x86MatrixSubMaxByRow<T>(0, m, n, n, v.x, v.y); },
      [=](Operands<T>& v) { roof_map(mn, v.y, v.x); });
  // The row sums keep one accumulator in ascending order: their roof is the
  // same chain of dependent adds, the scalar loop.
  add(
      "SumByRow", 1,
      [=](Operands<T>& v) { nb::x86MatrixSumByRow<T>(0, m, n, n, alpha, v.x, beta, v.y); },
      [=](Operands<T>& v) {
        for (unsigned long r = 0; r < m; ++r) {
          T s = T(0);
          for (unsigned long j = 0; j < n; ++j) s = s + v.x[r * n + j];
          v.y[r] = s * alpha + v.y[r] * beta;
        }
      });
}

// Operators bound by a library call per element, against the plain loop
// that makes the same calls.
template <typename T>
void register_library_bound() {
  const unsigned long n = kExpLength;
  const T alpha = T(0.75), beta = T(0.5);
  const double bytes = 2.0 * n * sizeof(T);
  register_pair<T>(
      "Exp", std::to_string(n), n, bytes, [=](Operands<T>& v) { nb::x86VectorExp<T>(n, v.x, v.y); },
      [=](Operands<T>& v) {
        for (unsigned long i = 0; i < n; ++i) v.y[i] = T(std::exp(double(v.x[i])));
      });
  register_pair<T>(
      "Sigmoid", std::to_string(n), n, bytes,
      [=](Operands<T>& v) { nb::x86VectorSigmoid<T>(n, alpha, v.x, beta, v.z); },
      [=](Operands<T>& v) {
        for (unsigned long i = 0; i < n; ++i) {
          const T negated = -v.x[i];
          const double r = double(alpha) / (std::exp(double(negated)) + 1.0);
          const T u = v.z[i] * beta;
          v.z[i] = T(r + double(u));
        }
      });
  register_pair<T>(
      "Tanh", std::to_string(n), n, bytes,
      [=](Operands<T>& v) { nb::x86VectorTanh<T>(n, alpha, v.x, beta, v.z); },
      [=](Operands<T>& v) {
        for (unsigned long i = 0; i < n; ++i) {
          const double r = std::tanh(double(v.x[i])) * double(alpha);
          const T u = v.z[i] * beta;
          v.z[i] = T(r + double(u));
        }
      });
  const unsigned long rows = n / kSoftmaxColumns, columns = kSoftmaxColumns;
  register_pair<T>(
      "ProbByRow", std::to_string(n), n, bytes,
      [=](Operands<T>& v) {
        nb::x86MatrixProbByRow<T>(0, rows, columns, columns, T(1), v.x, T(0), v.y);
      },
      [=](Operands<T>& v) {
        for (unsigned long r = 0; r < rows; ++r) {
          const T* a = v.x + r * columns;
          T* y = v.y + r * columns;
          T s = T(0);
          for (unsigned long j = 0; j < columns; ++j) s = T(double(s) + std::exp(double(a[j])));
          for (unsigned long j = 0; j < columns; ++j)
            y[j] = T(0.0 + std::exp(double(a[j])) * 1.0 / double(s));
        }
      });
}

template <typename T>
void register_softmax() {
  const unsigned long elements = kSoftmaxRows * kSoftmaxColumns;
  const std::string name = std::string("Softmax<") + type_name<T>() + ">/1024x1000";
  benchmark::RegisterBenchmark(name.c_str(), [elements](benchmark::State& state) {
    Operands<T>& v = operands<T>(elements);
    for (auto _ : state) {
      nb::x86MatrixSubMaxByRow<T>(0, kSoftmaxRows, kSoftmaxColumns, kSoftmaxColumns, v.x, v.y);
      nb::x86MatrixProbByRow<T>(0, kSoftmaxRows, kSoftmaxColumns, kSoftmaxColumns, T(1), v.y, T(0),
                                v.z);
      benchmark::ClobberMemory();
    }
    state.counters["elements"] = double(elements);
  });
}

}  // namespace

int main(int argc, char** argv) {
  for (const unsigned long n : kLengths) {
    register_element_loops<float>(n);
    register_element_loops<double>(n);
  }
  for (const unsigned long edge : {1024ul, 4096ul}) {
    const unsigned long columns = edge == 1024 ? 1000 : 4096;
    register_rows_and_columns<float>(edge, columns);
    register_rows_and_columns<double>(edge, columns);
  }
  register_library_bound<float>();
  register_library_bound<double>();
  register_softmax<float>();
  register_softmax<double>();
  return numbra_bench::run(argc, argv);
}
