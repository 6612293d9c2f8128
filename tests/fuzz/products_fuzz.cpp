// Fuzzes the products against short scalar definitions on fuzzed shapes and
// values: the packed block driver and the skinny transposed-B kernels of both
// instruction sets, and the CSR product. Results must have the bits of the
// definition, any NaN standing for any NaN.
#include <cmath>
#include <cstdint>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "gemm/sgemm_reference.h"
#include "numbra.h"

namespace nb = ZETL::numbra;
using numbra_fuzz::require;
using numbra_test::Rounding;

namespace {

bool same_result(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || numbra_fuzz::same_bits(a, b);
}

void require_same(const std::vector<float>& expected, const std::vector<float>& actual) {
  for (std::size_t i = 0; i < expected.size(); ++i) require(same_result(expected[i], actual[i]));
}

// Mostly values whose products and sums round, so that a change of order or
// of fusing shows; now and then the special values of the shared reader.
float product_value(numbra_fuzz::FuzzInput& in) {
  const int b = in.byte();
  if (b >= 224) return in.value();
  return static_cast<float>(b - 112) * 0.0137f + 0.00071f;
}

std::vector<float> values(numbra_fuzz::FuzzInput& in, std::size_t count) {
  std::vector<float> v(count);
  for (float& x : v) x = product_value(in);
  return v;
}

float scale(numbra_fuzz::FuzzInput& in) {
  static const float kScales[] = {1.0f, 0.0f, -0.0f, 1e-31f, 1e-29f, -2.0f, 0.5f, NAN};
  return kScales[in.below(8)];
}

// C = alpha * A * B + beta * C through the packed driver.
void fuzz_driver(numbra_fuzz::FuzzInput& in) {
  const int m = in.below(100), n = in.below(100), k = in.below(100);
  const float alpha = scale(in), beta = scale(in);
  std::vector<float> a = values(in, std::size_t(m) * k), b = values(in, std::size_t(k) * n);
  const std::vector<float> c0 = values(in, std::size_t(m) * n);
  std::vector<float> ws(1354752 / sizeof(float));
  const struct {
    Rounding rounding;
    void (*driver)(int, int, int, float, float*, int, float*, int, float*, float, float*, int);
  } twins[] = {{Rounding::kFused, x86_blas_sgemm_nn_fma},
               {Rounding::kSeparate, x86_blas_sgemm_nn_avx}};
  for (const auto& twin : twins) {
    std::vector<float> expected = c0, actual = c0;
    numbra_test::reference_sgemm_nn(twin.rounding, m, n, k, alpha, a.data(), k, b.data(), n, beta,
                                    expected.data(), n);
    twin.driver(m, n, k, alpha, a.data(), k, b.data(), n, ws.data(), beta, actual.data(), n);
    require_same(expected, actual);
  }
}

// C = alpha * A * B' + beta * C through the skinny kernels, strides included.
void fuzz_skinny(numbra_fuzz::FuzzInput& in) {
  const int m = in.below(10), n = in.below(40), k = in.below(60);
  const int lda = k + in.below(4), ldb = k + in.below(4), ldc = n + in.below(3);
  const float alpha = scale(in), beta = scale(in);
  const std::vector<float> a = values(in, std::size_t(m) * lda + 4 * k);
  const std::vector<float> b = values(in, std::size_t(n) * ldb + n * k);
  const std::vector<float> c0 = values(in, std::size_t(m) * ldc);
  std::vector<float> scratch(((k >> 3 << 7) + 128) / sizeof(float));
  const struct {
    Rounding rounding;
    void (*kernel)(int, int, int, float, int, const float*, int, float*, int, const float*, float,
                   int, float*);
  } twins[] = {{Rounding::kFused, sgemm_nt_fma}, {Rounding::kSeparate, sgemm_nt_avx}};
  for (const auto& twin : twins) {
    std::vector<float> expected = c0, actual = c0;
    numbra_test::reference_sgemm_nt(twin.rounding, m, n, k, alpha, lda, a.data(), ldb, b.data(),
                                    beta, ldc, expected.data());
    twin.kernel(m, n, k, alpha, lda, a.data(), 32, scratch.data(), ldb, b.data(), beta, ldc,
                actual.data());
    require_same(expected, actual);
  }
}

// y = A * x for a CSR matrix: each row in four partial sums of rounded
// products, folded in pairs, then the rest of the row one product at a time.
void fuzz_csr(numbra_fuzz::FuzzInput& in) {
  const int m = in.below(40), n = 1 + in.below(40);
  std::vector<int> row_ptr = {0}, col;
  std::vector<float> val;
  for (int i = 0; i < m; ++i) {
    const int entries = in.below(2 * n);
    for (int e = 0; e < entries; ++e) {
      col.push_back(in.below(n));
      val.push_back(product_value(in));
    }
    row_ptr.push_back(static_cast<int>(col.size()));
  }
  const std::vector<float> x = values(in, n);
  std::vector<float> expected(m), actual(m, NAN);
  auto add_product = [](float s, float a, float b) {
    const float p = a * b;
    return s + p;
  };
  for (int i = 0; i < m; ++i) {
    float s[4] = {0, 0, 0, 0};
    int e = row_ptr[i];
    for (; e + 4 <= row_ptr[i + 1]; e += 4) {
      for (int t = 0; t < 4; ++t) s[t] = add_product(s[t], val[e + t], x[col[e + t]]);
    }
    float r = (s[0] + s[1]) + (s[2] + s[3]);
    for (; e < row_ptr[i + 1]; ++e) r = add_product(r, val[e], x[col[e]]);
    expected[i] = r;
  }
  nb::x86Spmv_csr<float>(ISA_FMA, IMP_DEFAULT, 1, m, row_ptr.data(), col.data(), val.data(),
                         x.data(), actual.data());
  require_same(expected, actual);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  numbra_fuzz::FuzzInput in(data, size);
  switch (in.below(3)) {
    case 0:
      fuzz_driver(in);
      break;
    case 1:
      fuzz_skinny(in);
      break;
    default:
      fuzz_csr(in);
      break;
  }
  return 0;
}
