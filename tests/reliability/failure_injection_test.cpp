// Allocation failures inside the operators. This binary defines malloc,
// calloc, posix_memalign, free and operator new itself, so that the library's
// calls land here; while armed they count the calls and let the n-th fail.
// Only the reactions that end without a fault are exercised; these end in
// one and are left out:
// - x86Gemm_tn<float> and x86Gemm_nt<float> (more than 16 rows) go on with
//   a null copy, which faults as soon as a block needs packing;
// - x86Gemm_nt<float> with 16 rows or fewer runs with a null scratch;
// - x86_blas_sgemv_t_fma/_avx and x86MatrixGemv_t<double> clear a null
//   scratch when n is above 0;
// - the sparse conversions and splits use the memory they asked for without
//   testing it.
// The random fill's unusable device is covered in tests/vector.
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/float_bits.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* p);
}

namespace {

std::atomic<bool> g_armed{false};
std::atomic<long> g_calls{0};
std::atomic<long> g_fail_at{0};
std::atomic<long> g_releases{0};

bool next_call_fails() {
  if (!g_armed.load(std::memory_order_relaxed)) return false;
  return g_calls.fetch_add(1) + 1 == g_fail_at.load();
}

}  // namespace

extern "C" void* malloc(std::size_t size) {
  if (next_call_fails()) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_malloc(size);
}

extern "C" void* calloc(std::size_t count, std::size_t size) {
  if (next_call_fails()) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_calloc(count, size);
}

extern "C" void free(void* p) {
  if (p != nullptr && g_armed.load(std::memory_order_relaxed)) ++g_releases;
  __libc_free(p);
}

extern "C" int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
  if (next_call_fails()) return ENOMEM;
  void* p = __libc_memalign(alignment, size);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}

// The standard allocator goes through the same counter, also where a memory
// checker replaces the system's allocator and would otherwise bypass it.
void* operator new(std::size_t size) {
  if (void* p = malloc(size != 0 ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { free(p); }
void operator delete(void* p, std::size_t) noexcept { free(p); }

namespace nb = ZETL::numbra;

namespace {

// Runs `call` with its n-th allocation failing (0: none fails) and returns
// how many allocations it asked for; releases() then tells how many blocks
// it gave back.
template <typename Call>
long allocations_of(long fail_at, Call call) {
  g_calls = 0;
  g_releases = 0;
  g_fail_at = fail_at;
  g_armed = true;
  try {
    call();
  } catch (...) {
    g_armed = false;
    throw;
  }
  g_armed = false;
  return g_calls.load();
}

long releases() { return g_releases.load(); }

// Both copies are asked for before either is tested; whichever fails, C
// stays as it was, and the copy that was obtained is not given back.
TEST(FailureInjection, TransposedGemmLeavesCUntouchedWhenACopyFails) {
  const int m = 20, n = 24, k = 9;
  const std::vector<float> a = numbra_test::mixed_values<float>(k * m, 1),
                           b = numbra_test::mixed_values<float>(n * k, 2),
                           c0 = numbra_test::mixed_values<float>(m * n, 3);
  std::vector<float> ws(nb::x86GemmTTGetSize<float>(1, m, n, k, m, k, n) / sizeof(float));
  for (const ISA_t isa : {ISA_FMA, ISA_AVX}) {
    for (const long fail_at : {0, 1, 2}) {
      SCOPED_TRACE("allocation " + std::to_string(fail_at));
      std::vector<float> c = c0;
      EXPECT_EQ(2, allocations_of(fail_at, [&] {
                  nb::x86Gemm_tt<float>(isa, IMP_DEFAULT, 1, m, n, k, 1.0f, m, a.data(), k,
                                        b.data(), ws.data(), 0.0f, n, c.data());
                }));
      EXPECT_EQ(fail_at == 0 ? 2 : 0, releases());
      if (fail_at != 0) EXPECT_SAME_ARRAY_BITS(c0.data(), c.data(), c.size());
    }
  }
}

// With no depth the driver packs nothing, so the null copy is never read:
// C becomes alpha * 0 + beta * C as in the driver itself.
TEST(FailureInjection, GemmWithANullCopyAndNoDepthScalesC) {
  const int m = 20, n = 24;
  const std::vector<float> c0 = numbra_test::mixed_values<float>(m * n, 4);
  std::vector<float> ws(nb::x86GemmNNGetSize<float>(1, 0, 0, 0, 0, 0, 0) / sizeof(float));
  std::vector<float> expected = c0;
  x86_blas_sgemm_nn_fma(m, n, 0, 1.5f, nullptr, 1, nullptr, n, ws.data(), 2.0f, expected.data(), n);
  const float one = 1.0f;
  for (const auto entry : {nb::x86Gemm_tn<float>, nb::x86Gemm_nt<float>}) {
    std::vector<float> c = c0;
    EXPECT_EQ(1, allocations_of(1, [&] {
                entry(ISA_FMA, IMP_DEFAULT, 1, m, n, 0, 1.5f, m, &one, n, &one, ws.data(), 2.0f, n,
                      c.data());
              }));
    EXPECT_SAME_ARRAY_BITS(expected.data(), c.data(), c.size());
  }
}

// With no columns the scratch of n * 4 bytes is never written, so a failed
// request for it does no harm and y stays as it was.
TEST(FailureInjection, TransposedGemvWithoutColumnsSurvivesAFailedScratch) {
  const std::vector<float> a = numbra_test::mixed_values<float>(8, 5);
  for (const auto kernel : {x86_blas_sgemv_t_fma, x86_blas_sgemv_t_avx}) {
    float y = 7.0f;
    EXPECT_EQ(1, allocations_of(1, [&] { kernel(8, 0, 2.0f, a.data(), a.data(), 0.5f, &y); }));
    EXPECT_SAME_BITS(7.0f, y);
  }
  std::vector<double> ad(8, 1.0), yd(1, 7.0);
  EXPECT_EQ(1, allocations_of(1, [&] {
              nb::x86MatrixGemv_t<double>(ISA_FMA, IMP_DEFAULT, 1, 8, 0, 2.0, ad.data(), ad.data(),
                                          0.5, yd.data());
            }));
  EXPECT_SAME_BITS(7.0, yd[0]);
}

// The sort buffer grows through the standard allocator: its failure leaves
// as std::bad_alloc before anything is written back. coo2csr and coo2ccs
// obtain three temporaries first, which are then not given back.
TEST(FailureInjection, CooSortRaisesWhenItsBufferCannotGrow) {
  const int m = 9, n = 11;
  const sparse_test::Coo coo = sparse_test::random_coo(m, n, 300, 6);
  const unsigned long nnz = coo.nnz();
  const std::vector<int> untouched(nnz + n + 1, -7);
  // The sort (order 0 or 1) or a conversion (2: CSR, 3: CCS) with its
  // fail_at-th allocation failing: whether it raised.
  auto raises = [&](long fail_at, int order) {
    std::vector<int> r = untouched, c = untouched;
    std::vector<float> v(nnz);
    try {
      allocations_of(fail_at, [&] {
        if (order < 2) {
          coo_sort<float>(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(), r.data(),
                          c.data(), v.data(), order);
        } else {
          (order == 2 ? sparse_coo2csr<float>
                      : sparse_coo2ccs<float>)(m, n, nnz, coo.row.data(), coo.col.data(),
                                               coo.val.data(), r.data(), c.data(), v.data());
        }
      });
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(r == untouched && c == untouched) << "written back";
      return true;
    }
    return false;
  };
  ASSERT_FALSE(raises(0, 0));
  const long growths = g_calls.load();
  ASSERT_GE(growths, 1);
  for (long fail_at = 1; fail_at <= growths; ++fail_at) {
    EXPECT_TRUE(raises(fail_at, fail_at % 2)) << "allocation " << fail_at;
  }
  EXPECT_TRUE(raises(4, 2));
  EXPECT_TRUE(raises(4, 3));
}

// The operators below allocate nothing at all, so no allocation can fail in
// them.
TEST(FailureInjection, OperatorsThatAllocateNothing) {
  const unsigned long n = 100;
  const std::vector<float> x = numbra_test::mixed_values<float>(n * n, 7);
  const std::vector<double> xd = numbra_test::mixed_values<double>(n * n, 8);
  std::vector<float> y(n * n), ws(nb::x86GemmNNGetSize<float>(1, 0, 0, 0, 0, 0, 0) / 4);
  std::vector<double> yd(n * n);
  float lo, hi;
  std::vector<int> ptr(n + 1), idx(n * n);
  EXPECT_EQ(
      0, allocations_of(1, [&] {
        nb::x86Gemm_nn<float>(ISA_FMA, IMP_DEFAULT, 1, 60, 70, 80, 1.0f, n, x.data(), n, x.data(),
                              ws.data(), 0.5f, n, y.data());
        nb::x86Gemm_tt<double>(ISA_FMA, IMP_DEFAULT, 1, 60, 70, 80, 1.0, n, xd.data(), n, xd.data(),
                               nullptr, 0.5, n, yd.data());
        nb::x86MatrixGemv_n<float>(ISA_AVX, IMP_DEFAULT, 1, 30, n, 1.0f, x.data(), x.data(), 1.0f,
                                   y.data());
        nb::x86VectorRelu<float>(ISA_FMA, IMP_DEFAULT, n, 1.0f, x.data(), 0.0f, y.data());
        nb::x86VectorPrelu<double>(false, n, 10, 10, 1, 2.0, xd.data(), xd.data(), 0.0, yd.data());
        nb::x86VectorAxpby<double>(n, 2.0, xd.data(), 0.5, yd.data());
        nb::x86VectorDiv<float>(n, x.data(), x.data() + n, y.data());
        nb::x86VectorFillVector<float, 3>(n / 3, x.data(), y.data());
        nb::x86VectorMaxMin<float>(n, x.data(), &lo, &hi);
        nb::x86VectorTanh<double>(n, 2.0, xd.data(), 0.5, yd.data());
        nb::x86VectorMaskAndScale<float>(n, x.data(), 1.0f, x.data(), 0.5f, 2.0f, 0.0f, y.data());
        nb::x86MatrixProbByRow<double>(0, 9, 10, 11, 1.0, xd.data(), 0.0, yd.data());
        nb::x86MatrixSumByCol<float>(0, 9, 10, 11, 1.0f, x.data(), 0.0f, y.data());
        nb::x86Geam_tn<float>(0, 9, 10, 1.0f, n, x.data(), 1.0f, n, x.data(), n, y.data());
        nb::x86MatrixTranspose<double>(0, 9, 10, n, xd.data(), n, yd.data());
        nb::sparse_matrix_dense2csr<float>(10, 10, x.data(), ptr.data(), idx.data(), y.data());
        nb::x86Spmv_csr<float>(ISA_FMA, IMP_DEFAULT, 1, 10, ptr.data(), idx.data(), y.data(),
                               x.data(), y.data() + n);
        nb::x86SparseMatrixGemv<double>(10, 10, 1, 1.0, ptr.data(), idx.data(), xd.data(),
                                        xd.data(), 0.0, yd.data());
      }));
}

}  // namespace
