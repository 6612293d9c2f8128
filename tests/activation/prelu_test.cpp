// Prelu against its definitions: the kernel walks batch * channels planes of
// dim elements and lets NaN and -0 through; the plain loops take n elements,
// find each element's slope by division and count NaN and -0 as +0. Inputs,
// outputs and slopes sit flush against an inaccessible page.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;

namespace {

void reference_kernel(bool shared, unsigned long dim, int channels, int batch, const float* x,
                      const float* slope, float* y) {
  if (batch <= 0 || channels <= 0) return;
  for (int b = 0; b < batch; ++b) {
    for (int c = 0; c < channels; ++c) {
      const float s = shared ? slope[0] : slope[c];
      for (unsigned long e = 0; e < dim; ++e) {
        const unsigned long i = (static_cast<unsigned long>(b) * channels + c) * dim + e;
        const float v = x[i];
        const float positive = 0.0f > v ? 0.0f : v, negative = 0.0f < v ? 0.0f : v;
        y[i] = positive + s * negative;
      }
    }
  }
}

unsigned long channel_of(unsigned long i, bool shared, unsigned long dim, int channels) {
  const unsigned long ch = static_cast<unsigned long>(channels);
  return ((i / dim) % ch) / (shared ? ch : 1);
}

template <typename T>
T zero_beta_blend(T p, T old_y, T beta) {
  return beta != 0 ? p + old_y * beta : p + T(0);
}

template <typename T>
void reference_loop(bool shared, unsigned long n, unsigned long dim, int channels, T alpha,
                    const T* x, const T* slope, T beta, T* y) {
  for (unsigned long i = 0; i < n; ++i) {
    const T neg = x[i] < 0 ? x[i] : T(0), pos = x[i] > 0 ? x[i] : T(0);
    const T p = (neg * slope[channel_of(i, shared, dim, channels)] + pos) * alpha;
    y[i] = zero_beta_blend(p, y[i], beta);
  }
}

template <typename T>
void reference_backward(bool shared, unsigned long n, unsigned long dim, int channels, T alpha,
                        const T* x, const T* slope, const T* g, T beta, T* y) {
  for (unsigned long i = 0; i < n; ++i) {
    const T le = x[i] <= 0 ? T(1) : T(0), gt = x[i] > 0 ? T(1) : T(0);
    const T p = ((le * slope[channel_of(i, shared, dim, channels)] + gt) * g[i]) * alpha;
    y[i] = zero_beta_blend(p, y[i], beta);
  }
}

struct Shape {
  unsigned long dim;
  int channels, batch;
  unsigned long elements() const { return batch > 0 && channels > 0 ? dim * channels * batch : 0; }
};

std::vector<Shape> shapes() {
  std::vector<Shape> all;
  for (unsigned long dim = 1; dim <= 17; ++dim)
    for (int channels = 1; channels <= 3; ++channels)
      for (int batch = 0; batch <= 2; ++batch) all.push_back({dim, channels, batch});
  for (const Shape s : {Shape{31, 2, 2}, Shape{33, 3, 1}, Shape{1000, 1, 3}, Shape{0, 2, 2}})
    all.push_back(s);
  return all;
}

TEST(CnnPreluKernel, MatchesItsDefinitionForEveryPlaneShape) {
  for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
    for (const Shape& s : shapes()) {
      for (const bool shared : {false, true}) {
        const unsigned long count = s.elements();
        GuardedBuffer<float> x(count, guard), y(count, guard);
        GuardedBuffer<float> slope(shared ? 1 : s.channels, guard);
        x.assign(mixed_values<float>(count, 31 + count).data());
        slope.assign(mixed_values<float>(slope.size(), 32 + s.channels).data());
        const std::vector<float> old_y = mixed_values<float>(count, 33);
        std::vector<float> expected = old_y;
        y.assign(old_y.data());
        reference_kernel(shared, s.dim, s.channels, s.batch, x.data(), slope.data(),
                         expected.data());
        x86_cnn_prelu_avx(shared, s.dim, s.channels, s.batch, x.data(), slope.data(), y.data());
        SCOPED_TRACE(testing::Message() << "dim=" << s.dim << " channels=" << s.channels
                                        << " batch=" << s.batch << " shared=" << shared);
        EXPECT_SAME_RESULTS(expected.data(), y.data(), count);
      }
    }
  }
}

TEST(CnnPreluKernel, DoesNothingWithoutBatchesOrChannels) {
  GuardedBuffer<float> none(0, Guard::kAfter);
  for (const auto& [channels, batch] : {std::pair{0, 2}, {2, 0}, {-1, 3}, {3, -1}})
    x86_cnn_prelu_avx(false, 8, channels, batch, none.data(), none.data(), none.data());
}

// Long enough for the output to bypass the caches, at an odd offset.
TEST(CnnPreluKernel, LargeDisjointOutputMatchesItsDefinition) {
  const Shape s{(1ul << 20) + 3, 2, 2};
  const std::vector<float> x = mixed_values<float>(s.elements(), 3), slope = {0.25f, -3.0f};
  std::vector<float> y(s.elements() + 1, 5.0f), expected(s.elements(), 5.0f);
  reference_kernel(false, s.dim, s.channels, s.batch, x.data(), slope.data(), expected.data());
  x86_cnn_prelu_avx(false, s.dim, s.channels, s.batch, x.data(), slope.data(), y.data() + 1);
  EXPECT_SAME_RESULTS(expected.data(), y.data() + 1, s.elements());
  EXPECT_EQ(5.0f, y[0]);
}

struct Scales {
  float alpha, beta;
};
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
const Scales kKernelScales[] = {{1.0f, 0.0f}, {1.0f, -0.0f}, {1.0f, 1e-31f}};
const Scales kLoopScales[] = {{1.0f, 1e-29f}, {2.0f, 0.0f}, {1.0f, 0.5f},
                              {-0.5f, -0.0f}, {kNaN, 0.0f}, {1.0f, kNaN}};

// n is handed to the entry point unequal to batch * channels * dim: the
// kernel covers the planes, the loop covers n.
TEST(VectorPreluFloat, TakesTheKernelOrTheLoopByItsScalars) {
  const Shape s{5, 3, 2};
  const std::vector<float> x = mixed_values<float>(64, 41), slope = mixed_values<float>(3, 42);
  const std::vector<float> old_y = mixed_values<float>(64, 43);
  for (const bool shared : {false, true}) {
    for (const unsigned long n : {0ul, 12ul, 40ul}) {
      for (const Scales& sc : kKernelScales) {
        std::vector<float> expected = old_y, y = old_y;
        reference_kernel(shared, s.dim, s.channels, s.batch, x.data(), slope.data(),
                         expected.data());
        nb::x86VectorPrelu<float>(shared, n, s.dim, s.channels, s.batch, sc.alpha, x.data(),
                                  slope.data(), sc.beta, y.data());
        EXPECT_SAME_RESULTS(expected.data(), y.data(), y.size());
      }
      for (const Scales& sc : kLoopScales) {
        std::vector<float> expected = old_y, y = old_y;
        reference_loop(shared, n, s.dim, s.channels, sc.alpha, x.data(), slope.data(), sc.beta,
                       expected.data());
        nb::x86VectorPrelu<float>(shared, n, s.dim, s.channels, 0, sc.alpha, x.data(), slope.data(),
                                  sc.beta, y.data());
        EXPECT_SAME_RESULTS(expected.data(), y.data(), y.size());
      }
    }
  }
}

// The plain loops of both precisions and the backward forms, each element's
// slope found by division, over plane shapes and lengths that end mid-plane.
template <typename T>
void check_plain_loops() {
  const T nan = std::numeric_limits<T>::quiet_NaN();
  for (const Guard guard : {Guard::kAfter, Guard::kBefore}) {
    for (const Shape& s : shapes()) {
      if (s.batch != 1) continue;
      for (const bool shared : {false, true}) {
        const unsigned long n = s.dim * s.channels * 2 + s.dim / 2;
        GuardedBuffer<T> x(n, guard), g(n, guard), y(n, guard);
        GuardedBuffer<T> slope(shared ? 1 : s.channels, guard);
        x.assign(mixed_values<T>(n, 51 + n).data());
        g.assign(mixed_values<T>(n, 52).data());
        slope.assign(mixed_values<T>(slope.size(), 53 + s.channels).data());
        const std::vector<T> old_y = mixed_values<T>(n, 54);
        for (const T alpha : {T(1), T(-1.5)}) {
          for (const T beta : {T(0), T(-0.0), T(0.5), nan}) {
            SCOPED_TRACE(testing::Message()
                         << "dim=" << s.dim << " channels=" << s.channels << " shared=" << shared
                         << " alpha=" << alpha << " beta=" << beta);
            std::vector<T> expected = old_y;
            reference_backward(shared, n, s.dim, s.channels, alpha, x.data(), slope.data(),
                               g.data(), beta, expected.data());
            y.assign(old_y.data());
            nb::x86VectorPreluBackward<T>(shared, n, s.dim, s.channels, alpha, x.data(),
                                          slope.data(), g.data(), beta, y.data());
            EXPECT_SAME_RESULTS(expected.data(), y.data(), n);
            if constexpr (std::is_same_v<T, double>) {
              expected = old_y;
              reference_loop(shared, n, s.dim, s.channels, alpha, x.data(), slope.data(), beta,
                             expected.data());
              y.assign(old_y.data());
              nb::x86VectorPrelu<double>(shared, n, s.dim, s.channels, -7, alpha, x.data(),
                                         slope.data(), beta, y.data());
              EXPECT_SAME_RESULTS(expected.data(), y.data(), n);
            }
          }
        }
      }
    }
  }
}

TEST(VectorPreluBackward, FloatMatchesItsDefinition) { check_plain_loops<float>(); }
TEST(VectorPreluBackwardAndDoublePrelu, MatchTheirDefinitions) { check_plain_loops<double>(); }

}  // namespace

TEST(VectorPreluDeathTest, ZeroPlaneOrChannelCountEndsInADivisionFault) {
  const std::vector<double> x(4, 1.0), slope(2, 0.5);
  std::vector<double> y(4);
  EXPECT_DEATH(ZETL::numbra::x86VectorPrelu<double>(false, 4, 0, 2, 1, 1.0, x.data(), slope.data(),
                                                    0.0, y.data()),
               "");
  EXPECT_DEATH(ZETL::numbra::x86VectorPreluBackward<double>(true, 4, 2, 0, 1.0, x.data(),
                                                            slope.data(), x.data(), 0.0, y.data()),
               "");
}
