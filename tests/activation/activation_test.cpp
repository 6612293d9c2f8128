// Relu and Prelu against their definitions. The float Relu kernel either
// only rectifies or blends with the old y[0] scaling its vector part; the
// Prelu kernel walks batch * channels planes of dim elements and lets NaN and
// -0 through; the plain loops take n elements, find each element's slope by
// division, and leave the old y unread for a zero beta. Which of kernel and
// loop a call takes is written in the tables, not worked out again here.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "numbra.h"
#include "support/guarded_buffer.h"
#include "support/operator_tester.h"

namespace nb = ZETL::numbra;
using numbra_test::kDefaultNaN;
using numbra_test::Operator;
using numbra_test::OperatorTester;
using numbra_test::Overlap;
using numbra_test::Shape;

namespace {

struct Scales {
  float alpha, beta;
  bool kernel;  // the Relu fast path, or the Prelu kernel
};

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
const Scales kReluScales[] = {{1, 0, true},           {1, -0.0f, true},    {1, 1e-31f, true},
                              {1, -1e-31f, true},     {1, 1e-30f, false},  {1, 1e-29f, false},
                              {1, -0.5f, false},      {2, 0, false},       {1.0000001f, 0, false},
                              {0.9999999f, 0, false}, {kInf, 0.5f, false}, {kNaN, 0, false},
                              {1, kNaN, false},       {-1, -0.25f, false}};
// The Prelu entry compares in double: 1e-30f lies above 1e-30.
const Scales kPreluScales[] = {
    {1, 0, true},  {1, -0.0f, true}, {1, 1e-31f, true},     {1, 1e-30f, false}, {1, 1e-29f, false},
    {2, 0, false}, {1, 0.5f, false}, {-0.5f, -0.0f, false}, {kNaN, 0, false},   {1, kNaN, false}};

template <typename T>
std::string describe(T alpha, T beta) {
  std::ostringstream out;
  out << "(alpha=" << alpha << ",beta=" << beta << ")";
  return out.str();
}

template <typename T>
T rectified(T v) {
  return v > 0 ? v : T(0);
}

// p blended with the old y under the zero-beta rule.
template <typename T>
T blend(T p, T old_y, T beta) {
  return beta != 0 ? old_y * beta + p : p + T(0);
}

void relu_kernel(const Scales& sc, unsigned long n, const float* x, float* y) {
  if (sc.kernel) {
    for (unsigned long i = 0; i < n; ++i) y[i] = rectified(x[i]);
    return;
  }
  const float w = sc.beta != 0 ? sc.beta * y[0] : 0.0f;
  for (unsigned long i = 0; i < (n & ~7ul); ++i) y[i] = w * y[i] + sc.alpha * rectified(x[i]);
  for (unsigned long i = n & ~7ul; i < n; ++i) {
    y[i] = blend(x[i] > 0 ? x[i] * sc.alpha : 0.0f, y[i], sc.beta);
  }
}

// The float kernel and its entry point, on the path the table says, and the
// plain loops: the double Relu and the backward forms, with p = g * alpha
// where x > 0 (g = x for the forward form).
template <typename T>
std::vector<Operator<T>> relu_operators() {
  std::vector<Operator<T>> ops;
  for (const T alpha : {T(1), T(-2.5), kDefaultNaN<T>}) {
    for (const T beta : {T(0), -T(0), T(0.75), kDefaultNaN<T>}) {
      ops.push_back(numbra_test::elementwise<T>(
          "ReluBackward" + describe(alpha, beta),
          [=](unsigned long n, const T* x, const T* g, T* y) {
            nb::x86VectorReluBackward(n, alpha, x, g, beta, y);
          },
          [=](T x, T g, T y) { return blend(x > 0 ? g * alpha : T(0), y, beta); }));
      if constexpr (std::is_same_v<T, double>) {
        ops.push_back(numbra_test::elementwise<T>(
            "VectorRelu" + describe(alpha, beta),
            [=](unsigned long n, const T* x, T* y) {
              nb::x86VectorRelu<T>(ISA_t(2), IMP_DEFAULT, n, alpha, x, beta, y);
            },
            [=](T x, T, T y) { return blend(x > 0 ? x * alpha : T(0), y, beta); }));
      }
    }
  }
  for (const Scales& sc : kReluScales) {
    if constexpr (std::is_same_v<T, float>) {
      const auto define = [sc](const Shape& s, T* x, T*, T* y) { relu_kernel(sc, s.n, x, y); };
      // With nothing to write, the blend still reads y[0].
      const auto y_size = [sc](const Shape& s) {
        return s.n == 0 && !sc.kernel && sc.beta != 0 ? 1 : s.n;
      };
      const auto x_size = [](const Shape& s) { return s.n; };
      ops.push_back({"vectorRelu_avx" + describe(sc.alpha, sc.beta),
                     [sc](const Shape& s, T* x, T*, T* y) {
                       vectorRelu_avx<float>(s.n, sc.alpha, x, sc.beta, y);
                     },
                     define, x_size, numbra_test::no_operand, y_size, Overlap::kInPlace});
      // The entry runs the kernel for both instruction sets and nothing for
      // any other: seen on scales of either path.
      for (const int isa : {0, 1, 2}) {
        if (sc.beta != 0 || (sc.alpha != 1 && sc.alpha != 2)) break;
        ops.push_back({"VectorRelu(isa=" + std::to_string(isa) + ")" + describe(sc.alpha, sc.beta),
                       [sc, isa](const Shape& s, T* x, T*, T* y) {
                         nb::x86VectorRelu<T>(ISA_t(isa), IMP_DEFAULT, s.n, sc.alpha, x, sc.beta,
                                              y);
                       },
                       isa == 2 ? typename Operator<T>::Call([](const Shape&, T*, T*, T*) {})
                                : typename Operator<T>::Call(define),
                       x_size, numbra_test::no_operand, y_size, Overlap::kInPlace});
      }
    }
  }
  return ops;
}

// Prelu shapes: batch = m planes of dim = n for each of `channels`.
struct Planes {
  bool shared;
  int channels;
  unsigned long elements(const Shape& s) const { return s.m * channels * s.n; }
  unsigned long channel_of(unsigned long i, unsigned long dim) const {
    return (i / dim) % channels / (shared ? channels : 1);
  }
};

// The slope operand, flush against a guard page.
template <typename T>
std::shared_ptr<numbra_test::GuardedBuffer<T>> slopes(const Planes& at) {
  const std::vector<T> values = numbra_test::mixed_values<T>(at.channels, 7 + at.channels);
  auto slope = std::make_shared<numbra_test::GuardedBuffer<T>>(at.shared ? 1 : at.channels,
                                                               numbra_test::Guard::kAfter);
  slope->assign(values.data());
  return slope;
}

void prelu_kernel(const Planes& at, const Shape& s, const float* x, const float* slope, float* y) {
  for (unsigned long i = 0; i < at.elements(s); ++i) {
    const float v = x[i], positive = 0.0f > v ? 0.0f : v, negative = 0.0f < v ? 0.0f : v;
    y[i] = positive + slope[at.channel_of(i, s.n)] * negative;
  }
}

template <typename T>
void prelu_loop(const Planes& at, unsigned long n, unsigned long dim, T alpha, const T* x,
                const T* slope, T beta, T* y) {
  for (unsigned long i = 0; i < n; ++i) {
    const T neg = x[i] < 0 ? x[i] : T(0), pos = x[i] > 0 ? x[i] : T(0);
    y[i] = blend((neg * slope[at.channel_of(i, dim)] + pos) * alpha, y[i], beta);
  }
}

// The loops over n elements, ending mid-plane: the double forward form and
// the backward forms, where a zero input takes the slope side. Then the
// float kernel, and the float entry point, which takes the kernel on the
// scales the table says and the loop on the others.
template <typename T>
std::vector<Operator<T>> prelu_operators() {
  std::vector<Operator<T>> ops;
  for (const Planes at : {Planes{false, 3}, Planes{true, 3}}) {
    const auto slope = slopes<T>(at);
    const auto n = [at](const Shape& s) { return at.elements(s) + s.n / 2; };
    for (const T alpha : {T(1), T(-1.5)}) {
      for (const T beta : {T(0), -T(0), T(0.5), kDefaultNaN<T>}) {
        const std::string with =
            describe(alpha, beta) + "(shared=" + std::to_string(at.shared) + ")";
        ops.push_back({"VectorPreluBackward" + with,
                       [=](const Shape& s, T* x, T* g, T* y) {
                         nb::x86VectorPreluBackward<T>(at.shared, n(s), s.n, at.channels, alpha, x,
                                                       slope->data(), g, beta, y);
                       },
                       [=](const Shape& s, T* x, T* g, T* y) {
                         for (unsigned long i = 0; i < n(s); ++i) {
                           const T side =
                               (x[i] <= 0 ? T(1) : T(0)) * (*slope)[at.channel_of(i, s.n)] +
                               (x[i] > 0 ? T(1) : T(0));
                           y[i] = blend(side * g[i] * alpha, y[i], beta);
                         }
                       },
                       n, n, n});
        if constexpr (std::is_same_v<T, double>) {
          ops.push_back({"VectorPrelu" + with,
                         [=](const Shape& s, T* x, T*, T* y) {
                           nb::x86VectorPrelu<T>(at.shared, n(s), s.n, at.channels, -7, alpha, x,
                                                 slope->data(), beta, y);
                         },
                         [=](const Shape& s, T* x, T*, T* y) {
                           prelu_loop(at, n(s), s.n, alpha, x, slope->data(), beta, y);
                         },
                         n, numbra_test::no_operand, n});
        }
      }
    }
  }
  for (const Planes at : {Planes{false, 1}, Planes{true, 3}, Planes{false, 3}}) {
    if constexpr (std::is_same_v<T, float>) {
      const auto slope = slopes<T>(at);
      const auto planes = [at](const Shape& s) { return at.elements(s); };
      ops.push_back(
          {"cnn_prelu_avx(channels=" + std::to_string(at.channels) +
               ",shared=" + std::to_string(at.shared) + ")",
           [=](const Shape& s, T* x, T*, T* y) {
             x86_cnn_prelu_avx(at.shared, s.n, at.channels, s.m, x, slope->data(), y);
           },
           [=](const Shape& s, T* x, T*, T* y) { prelu_kernel(at, s, x, slope->data(), y); },
           planes, numbra_test::no_operand, planes, Overlap::kInPlace});
      // The kernel covers the planes whatever n is; the loop covers n.
      for (const Scales& sc : kPreluScales) {
        for (const unsigned long past_the_planes : {0ul, 1ul}) {
          if (at.shared || at.channels == 1) break;
          const auto n = [=](const Shape& s) {
            return at.elements(s) + past_the_planes * ((s.n + 1) / 2);
          };
          ops.push_back({"VectorPrelu" + describe(sc.alpha, sc.beta) + "(n=planes+" +
                             std::to_string(past_the_planes) + ")",
                         [=](const Shape& s, T* x, T*, T* y) {
                           nb::x86VectorPrelu<T>(at.shared, n(s), s.n, at.channels, s.m, sc.alpha,
                                                 x, slope->data(), sc.beta, y);
                         },
                         [=](const Shape& s, T* x, T*, T* y) {
                           if (sc.kernel) {
                             prelu_kernel(at, s, x, slope->data(), y);
                           } else {
                             prelu_loop(at, n(s), s.n, sc.alpha, x, slope->data(), sc.beta, y);
                           }
                         },
                         n, numbra_test::no_operand, n, Overlap::kInPlace});
        }
      }
    }
  }
  return ops;
}

template <typename T>
class ActivationTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ActivationTest, Precisions);

TYPED_TEST(ActivationTest, ReluMatchesItsDefinition) {
  OperatorTester<TypeParam>()
      .shapes({1}, numbra_test::boundary_lengths())
      .test_inside_guards(relu_operators<TypeParam>());
  OperatorTester<TypeParam>().test_placements(relu_operators<TypeParam>());
}

TYPED_TEST(ActivationTest, PreluMatchesItsDefinitionForEveryPlaneShape) {
  OperatorTester<TypeParam> tester;
  tester.shapes({0, 1, 2}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 31, 33, 100});
  tester.test_inside_guards(prelu_operators<TypeParam>());
  tester.test_placements(prelu_operators<TypeParam>());
}

// Long enough for the kernels' outputs to go around the caches.
TEST(ActivationKernels, LongOperandsStreamExactly) {
  std::vector<Operator<float>> ops;
  for (const auto& op : relu_operators<float>()) {
    if (op.name == "vectorRelu_avx(alpha=1,beta=0)") ops.push_back(op);
  }
  for (const auto& op : prelu_operators<float>()) {
    if (op.name == "cnn_prelu_avx(channels=1,shared=0)") ops.push_back(op);
  }
  OperatorTester<float>().test_long_operands(ops);
}

// Worked examples: the Relu vector part scales by the old y[0]; the Prelu
// kernel does nothing without batches or channels.
TEST(ActivationKernels, ReluScalesByTheOldFirstElementAndPreluNeedsPlanes) {
  std::vector<float> x(10, 1.0f), y(10, 4.0f);
  vectorRelu_avx<float>(10, 2.0f, x.data(), 0.5f, y.data());
  const float blended[10] = {10, 10, 10, 10, 10,
                             10, 10, 10, 4,  4};  // 2 * 4 + 2 * 1, then 2 * 1 + 0.5 * 4
  EXPECT_SAME_ARRAY_BITS(blended, y.data(), 10);
  for (const auto& [channels, batch] : {std::pair{0, 2}, {2, 0}, {-1, 3}, {3, -1}}) {
    x86_cnn_prelu_avx(false, 8, channels, batch, nullptr, nullptr, nullptr);
  }
}

}  // namespace

TEST(VectorPreluDeathTest, ZeroPlaneOrChannelCountEndsInADivisionFault) {
  const std::vector<double> x(4, 1.0), slope(2, 0.5);
  std::vector<double> y(4);
  EXPECT_DEATH(
      nb::x86VectorPrelu<double>(false, 4, 0, 2, 1, 1.0, x.data(), slope.data(), 0.0, y.data()),
      "");
  EXPECT_DEATH(nb::x86VectorPreluBackward<double>(true, 4, 2, 0, 1.0, x.data(), slope.data(),
                                                  x.data(), 0.0, y.data()),
               "");
}
