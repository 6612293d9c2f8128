// The GEMV kernels and entry points against their definitions written as
// plain loops: lanes as arrays, the twins' own loop bounds spelled out as
// loop conditions, std::fma where a step is fused. Every shape runs with its
// operands flush against an inaccessible page on either side.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;

namespace {

using Kernel = void (*)(int, int, float, const float*, const float*, float, float*);

struct Twin {
  const char* name;
  Kernel kernel;
  bool fused;
  // Loop conditions: i <= m - 4 or i < m - 4; j <= n - 8 or j < n - 8.
  bool inclusive_blocks;
  bool inclusive_block_columns;
};

float step(bool fused, float acc, float u, float v) {
  if (fused) return std::fma(u, v, acc);
  const float p = u * v;
  return acc + p;
}

// y = beta * y + alpha * A * x as dot products. Single rows always stop
// their vector steps while j < n - 8.
void reference_n(const Twin& k, int m, int n, float alpha, const float* a, const float* x,
                 float beta, float* y) {
  int i = 0;
  for (; k.inclusive_blocks ? i <= m - 4 : i < m - 4; i += 4) {
    float scaled[4], lanes[4][8] = {}, sum[4];
    for (int r = 0; r < 4; ++r) scaled[r] = y[i + r] * beta;
    int j = 0;
    for (; k.inclusive_block_columns ? j <= n - 8 : j < n - 8; j += 8) {
      for (int r = 0; r < 4; ++r)
        for (int l = 0; l < 8; ++l)
          lanes[r][l] = step(k.fused, lanes[r][l], a[(i + r) * n + j + l], x[j + l]);
    }
    for (int r = 0; r < 4; ++r) {
      sum[r] = lanes[r][0];
      for (int l = 1; l < 8; ++l) sum[r] = sum[r] + lanes[r][l];
    }
    for (; j < n; ++j)
      for (int r = 0; r < 4; ++r) sum[r] = step(false, sum[r], a[(i + r) * n + j], x[j]);
    for (int r = 0; r < 4; ++r) y[i + r] = scaled[r] + alpha * sum[r];
  }
  for (; i < m; ++i) {
    const float scaled = beta * y[i];
    float lanes[8] = {};
    int j = 0;
    for (; j < n - 8; j += 8)
      for (int l = 0; l < 8; ++l) lanes[l] = step(k.fused, lanes[l], a[i * n + j + l], x[j + l]);
    float sum = lanes[0];
    for (int l = 1; l < 8; ++l) sum = sum + lanes[l];
    for (; j < n; ++j) sum = step(false, sum, a[i * n + j], x[j]);
    y[i] = scaled + sum * alpha;
  }
}

// y = beta * y + alpha * A' * x by adding scaled rows into a zeroed t. Both
// row stages share the column bound.
void reference_t(const Twin& k, int m, int n, float alpha, const float* a, const float* x,
                 float beta, float* y) {
  std::vector<float> t(n > 0 ? n : 0, 0.0f);
  auto add_rows = [&](int i, int rows) {
    int j = 0;
    for (; k.inclusive_block_columns ? j <= n - 8 : j < n - 8; j += 8)
      for (int r = 0; r < rows; ++r)
        for (int l = 0; l < 8; ++l)
          t[j + l] = step(k.fused, t[j + l], x[i + r], a[(i + r) * n + j + l]);
    for (; j < n; ++j)
      for (int r = 0; r < rows; ++r) t[j] = step(false, t[j], x[i + r], a[(i + r) * n + j]);
  };
  int i = 0;
  for (; k.inclusive_blocks ? i <= m - 4 : i < m - 4; i += 4) add_rows(i, 4);
  for (; i < m; ++i) add_rows(i, 1);
  for (int j = 0; j < n; ++j) y[j] = alpha * t[j] + beta * y[j];
}

using Reference = void (*)(const Twin&, int, int, float, const float*, const float*, float, float*);

// Finite values with full mantissas, so that fused and unfused steps round
// apart, and here and there a NaN, an infinity, a signed zero or a subnormal.
std::vector<float> operand_values(std::size_t n, std::uint32_t seed) {
  const std::vector<float> specials = mixed_values<float>(n, seed + 1);
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  std::uniform_int_distribution<int> pick(0, 59);
  std::vector<float> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = pick(gen) == 0 ? specials[i] : value(gen);
  return v;
}

struct Scales {
  float alpha, beta;
};
const Scales kScales[] = {{1.5f, 0.75f},
                          {-0.3f, 0.0f},
                          {2.0f, -0.0f},
                          {0.0f, 1.0f},
                          {1.0f, std::numeric_limits<float>::quiet_NaN()}};

// A kernel family: its definition, and whether x runs along the rows (the
// scaled-row form, x of m and y of n elements) or along the columns.
struct Family {
  Reference reference;
  bool x_along_rows;
  Twin twins[2];
};
const Family kFamilies[] = {{reference_n,
                             false,
                             {{"sgemv_n_fma", x86_blas_sgemv_n_fma, true, true, true},
                              {"sgemv_n_avx", x86_blas_sgemv_n_avx, false, false, false}}},
                            {reference_t,
                             true,
                             {{"sgemv_t_fma", x86_blas_sgemv_t_fma, true, true, true},
                              {"sgemv_t_avx", x86_blas_sgemv_t_avx, false, false, false}}}};

// Runs kernel and reference on one shape, each operand against a guard page,
// and compares every element of y.
void check_shape(const Family& f, const Twin& k, int m, int n, Guard guard, std::uint32_t seed) {
  const int xs = f.x_along_rows ? m : n, ys = f.x_along_rows ? n : m;
  GuardedBuffer<float> a(static_cast<std::size_t>(m) * n, guard), x(xs, guard), y(ys, guard);
  a.assign(operand_values(a.size(), seed).data());
  x.assign(operand_values(xs, seed + 7).data());
  const std::vector<float> old_y = mixed_values<float>(ys, seed + 13);
  for (const Scales& s : kScales) {
    std::vector<float> expected = old_y;
    f.reference(k, m, n, s.alpha, a.data(), x.data(), s.beta, expected.data());
    y.assign(old_y.data());
    k.kernel(m, n, s.alpha, a.data(), x.data(), s.beta, y.data());
    SCOPED_TRACE(testing::Message() << k.name << " m=" << m << " n=" << n << " alpha=" << s.alpha
                                    << " beta=" << s.beta);
    EXPECT_SAME_RESULTS(expected.data(), y.data(), static_cast<std::size_t>(ys));
  }
}

TEST(Sgemv, EveryShapeMatchesItsDefinition) {
  for (const Family& f : kFamilies)
    for (const Twin& k : f.twins)
      for (const Guard guard : {Guard::kAfter, Guard::kBefore})
        for (int m = 0; m <= 13; ++m)
          for (int n = 0; n <= 33; ++n) check_shape(f, k, m, n, guard, m * 100 + n);
}

TEST(Sgemv, LargeShapesMatchTheirDefinition) {
  const std::pair<int, int> shapes[] = {{64, 4099}, {1001, 37}, {259, 260}, {5, 1024}};
  for (const Family& f : kFamilies)
    for (const Twin& k : f.twins)
      for (const auto& [m, n] : shapes) check_shape(f, k, m, n, Guard::kAfter, 7);
}

// The data of the sweeps tells a fused step from an unfused one, so the
// sweeps above would notice a twin that fused the wrong steps.
TEST(Sgemv, TwinsRoundApartOnTheSweepData) {
  const int m = 4, n = 16;  // the second step of each lane is where rounding can part
  const std::vector<float> a = operand_values(m * n, m * 100 + n);
  const std::vector<float> x = operand_values(n, m * 100 + n + 7);
  std::vector<float> fused(m, 0.0f), plain(m, 0.0f);
  x86_blas_sgemv_n_fma(m, n, 1.0f, a.data(), x.data(), 0.0f, fused.data());
  x86_blas_sgemv_n_avx(m, n, 1.0f, a.data(), x.data(), 0.0f, plain.data());
  EXPECT_NE(
      numbra_test::first_difference(fused.data(), plain.data(), m, numbra_test::NaNs::kAnyPayload),
      -1);
}

template <typename T>
std::vector<T> finite_values(std::size_t n, std::uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<T> value(T(-2), T(2));
  std::vector<T> v(n);
  for (T& e : v) e = value(gen);
  return v;
}

TEST(MatrixGemvFloat, DispatchesByInstructionSet) {
  const int m = 9, n = 17;
  const std::vector<float> a = operand_values(m * n, 3), x = operand_values(n, 4);
  const std::vector<float> old_y = mixed_values<float>(n, 5);
  const struct {
    decltype(&nb::x86MatrixGemv_n<float>) entry;
    Kernel fma, avx;
  } forms[] = {{nb::x86MatrixGemv_n<float>, x86_blas_sgemv_n_fma, x86_blas_sgemv_n_avx},
               {nb::x86MatrixGemv_t<float>, x86_blas_sgemv_t_fma, x86_blas_sgemv_t_avx}};
  for (const auto& form : forms) {
    for (const int isa : {0, 1, 2, -1}) {
      std::vector<float> expected = old_y, y = old_y;
      if (isa == 1) form.fma(m, n, 0.5f, a.data(), x.data(), 0.0f, expected.data());
      if (isa == 0) form.avx(m, n, 0.5f, a.data(), x.data(), 0.0f, expected.data());
      form.entry(static_cast<ISA_t>(isa), static_cast<IMP_t>(7), -4, m, n, 0.5f, a.data(), x.data(),
                 0.0f, y.data());
      EXPECT_SAME_ARRAY_BITS(expected.data(), y.data(), y.size());
    }
  }
}

// One running double sum per row; a zero beta leaves y unread.
void reference_gemv_n(int m, int n, double alpha, const double* a, const double* x, double beta,
                      double* y) {
  for (int i = 0; i < m; ++i) {
    double s = 0;
    for (int j = 0; j < n; ++j) s = s + a[i * n + j] * x[j];
    y[i] = s * alpha + (beta != 0 ? y[i] * beta : 0.0);
  }
}

// Float column sums: x narrowed first, each sum narrowed after every row.
void reference_gemv_t(int m, int n, double alpha, const double* a, const double* x, double beta,
                      double* y) {
  std::vector<float> t(n, 0.0f);
  for (int i = 0; i < m; ++i) {
    const double xi = static_cast<float>(x[i]);
    for (int j = 0; j < n; ++j) t[j] = static_cast<float>(double(t[j]) + a[i * n + j] * xi);
  }
  for (int j = 0; j < n; ++j) y[j] = y[j] * beta + double(t[j]) * alpha;
}

TEST(MatrixGemvDouble, MatchesItsDefinitionWhateverTheInstructionSet) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [m, n] : {std::pair{0, 5}, {5, 0}, {1, 1}, {7, 13}, {13, 7}, {33, 40}}) {
    const std::vector<double> a = finite_values<double>(m * n, m + n);
    const std::vector<double> x = finite_values<double>(std::max(m, n), n);
    for (const double beta : {0.5, 0.0, -0.0, nan}) {
      SCOPED_TRACE(testing::Message() << "m=" << m << " n=" << n << " beta=" << beta);
      GuardedBuffer<double> y_n(m, Guard::kAfter), y_t(n, Guard::kAfter);
      std::vector<double> old_n = mixed_values<double>(m, 9), old_t = mixed_values<double>(n, 9);
      y_n.assign(old_n.data());
      y_t.assign(old_t.data());
      reference_gemv_n(m, n, 1.25, a.data(), x.data(), beta, old_n.data());
      reference_gemv_t(m, n, 1.25, a.data(), x.data(), beta, old_t.data());
      nb::x86MatrixGemv_n<double>(static_cast<ISA_t>(2), IMP_DEFAULT, 0, m, n, 1.25, a.data(),
                                  x.data(), beta, y_n.data());
      nb::x86MatrixGemv_t<double>(static_cast<ISA_t>(2), IMP_DEFAULT, 0, m, n, 1.25, a.data(),
                                  x.data(), beta, y_t.data());
      EXPECT_SAME_RESULTS(old_n.data(), y_n.data(), y_n.size());
      EXPECT_SAME_RESULTS(old_t.data(), y_t.data(), y_t.size());
    }
  }
}

TEST(MatrixGemvDouble, TransposedFormCarriesSinglePrecision) {
  const double a[2] = {1.0, 1e30}, y0 = 0.0;
  const double x[1] = {1.0 + std::ldexp(1.0, -30)};
  double y[2] = {y0, y0};
  nb::x86MatrixGemv_t<double>(ISA_AVX, IMP_DEFAULT, 0, 1, 2, 1.0, a, x, 1.0, y);
  EXPECT_EQ(1.0, y[0]);  // x rounded to float before use
  EXPECT_EQ(double(1e30f), y[1]);
  const double huge[1] = {1e300}, big_x[1] = {1e10};
  double overflow[1] = {0.0};
  nb::x86MatrixGemv_t<double>(ISA_AVX, IMP_DEFAULT, 0, 1, 1, 1.0, huge, big_x, 1.0, overflow);
  EXPECT_EQ(std::numeric_limits<double>::infinity(), overflow[0]);
}

}  // namespace
