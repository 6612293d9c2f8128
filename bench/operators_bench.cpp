// Geam, the transcendental and random-mask operators and the row and column
// operators. Element loops run at a DRAM-resident size beside a memcpy that
// moves the same bytes; the operators bound by exp or tanh run beside the
// plain loop that calls the same library function per element; and a softmax
// (maximum subtracted, then exponential over sum) is timed per element.
#include <benchmark/benchmark.h>

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

namespace nb = ZETL::numbra;
using numbra_bench::operands;
using numbra_bench::Operands;

namespace {

constexpr unsigned long kDram = 1ul << 24;  // elements per operand, well beyond the caches
constexpr unsigned long kDramColumns = 1024;
constexpr unsigned long kExpLength = 100000;
constexpr unsigned long kSoftmaxRows = 1024, kSoftmaxColumns = 1000;

template <typename T>
const char* type_name() {
  return sizeof(T) == 4 ? "float" : "double";
}

template <typename T>
using Body = std::function<void(Operands<T>&)>;

// "<op>/numbra/<n>" and, where given, "<op>/scalar/<n>" over operands of
// `length` elements, each iteration moving `bytes`.
template <typename T>
void register_pair(const std::string& op, unsigned long n, unsigned long length, double bytes,
                   Body<T> numbra, Body<T> scalar) {
  const std::string group = op + "<" + type_name<T>() + ">";
  for (const bool library : {true, false}) {
    const Body<T> body = library ? numbra : scalar;
    if (!body) continue;
    const std::string name = group + (library ? "/numbra/" : "/scalar/") + std::to_string(n);
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

// Element loops at a DRAM-resident size, against memcpy of the same bytes.
// The blending operators run twice, each beside the plain loop of its
// definition: with a beta that reads y and writes it back in place, and
// with beta = 0, where y is only written and the stores can bypass the
// caches.
template <typename T>
void register_streaming() {
  const unsigned long n = kDram, rows = kDram / kDramColumns;
  const T alpha = T(0.25), beta = T(0.5);
  const auto add = [&](const std::string& op, int vectors, Body<T> body, Body<T> scalar) {
    const unsigned long bytes = vectors * n * sizeof(T);
    register_pair<T>(op, n, n, double(bytes), body, scalar);
    numbra_bench::register_memcpy(bytes);
  };
  using Blending = std::function<void(Operands<T>&, T beta)>;
  // y = term(x, y) + u over the operands x, y and z = y.
  const auto add_blending = [&](const std::string& op, Blending body, auto term) {
    const auto plain = [term](Operands<T>& v, T b) {
      for (unsigned long i = 0; i < n; ++i) {
        const T u = b == T(0) ? T(0) : v.z[i] * b;
        v.z[i] = term(v.x[i], v.y[i]) + u;
      }
    };
    add(
        op, 4, [=](Operands<T>& v) { body(v, beta); }, [=](Operands<T>& v) { plain(v, beta); });
    add(
        op + "(beta=0)", 3, [=](Operands<T>& v) { body(v, T(0)); },
        [=](Operands<T>& v) { plain(v, T(0)); });
  };
  add(
      "Geam_nn", 3,
      [=](Operands<T>& v) {
        nb::x86Geam_nn<T>(0, rows, kDramColumns, alpha, kDramColumns, v.x, beta, kDramColumns, v.y,
                          kDramColumns, v.z);
      },
      nullptr);
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
  add(
      "SumByCol", 1,
      [=](Operands<T>& v) {
        nb::x86MatrixSumByCol<T>(0, rows, kDramColumns, kDramColumns, alpha, v.x, beta, v.y);
      },
      nullptr);
  add(
      "AddVectorByRow", 2,
      [=](Operands<T>& v) {
        nb::x86MatrixAddVectorByRow<T>(0, rows, kDramColumns, kDramColumns, alpha, v.x, beta, v.y);
      },
      nullptr);
}

// Operators bound by a library call per element, against the plain loop
// that makes the same calls.
template <typename T>
void register_library_bound() {
  const unsigned long n = kExpLength;
  const T alpha = T(0.75), beta = T(0.5);
  const double bytes = 2.0 * n * sizeof(T);
  register_pair<T>(
      "Exp", n, n, bytes, [=](Operands<T>& v) { nb::x86VectorExp<T>(n, v.x, v.y); },
      [=](Operands<T>& v) {
        for (unsigned long i = 0; i < n; ++i) v.y[i] = T(std::exp(double(v.x[i])));
      });
  register_pair<T>(
      "Sigmoid", n, n, bytes,
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
      "Tanh", n, n, bytes, [=](Operands<T>& v) { nb::x86VectorTanh<T>(n, alpha, v.x, beta, v.z); },
      [=](Operands<T>& v) {
        for (unsigned long i = 0; i < n; ++i) {
          const double r = std::tanh(double(v.x[i])) * double(alpha);
          const T u = v.z[i] * beta;
          v.z[i] = T(r + double(u));
        }
      });
  const unsigned long rows = n / kSoftmaxColumns, columns = kSoftmaxColumns;
  register_pair<T>(
      "ProbByRow", n, n, bytes,
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
  register_streaming<float>();
  register_streaming<double>();
  register_library_bound<float>();
  register_library_bound<double>();
  register_softmax<float>();
  register_softmax<double>();
  return numbra_bench::run(argc, argv);
}
