// Operands flush against inaccessible pages, after their end and before their
// start, for the operators whose own tests keep their operands in ordinary
// vectors: the dense multiply entry points, the general sparse product and
// axpy, and the inputs of the load-balance splits. A guarded call must give
// the same bits as the same call on ordinary memory; the family tests hold
// that call to its definition. Also: operands that are not read may be null.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;
using numbra_test::Guard;
using numbra_test::GuardedBuffer;
using numbra_test::mixed_values;

namespace {

constexpr Guard kGuards[] = {Guard::kAfter, Guard::kBefore};

// Elements that `rows` rows of `cols` with row stride ld span.
unsigned long span(unsigned long rows, unsigned long cols, unsigned long ld) {
  return rows == 0 || cols == 0 ? 0 : (rows - 1) * ld + cols;
}

template <typename T>
std::unique_ptr<GuardedBuffer<T>> guarded_copy(const std::vector<T>& v, Guard guard) {
  auto g = std::make_unique<GuardedBuffer<T>>(v.size(), guard);
  g->assign(v.data());
  return g;
}

template <typename T>
std::vector<T> contents(GuardedBuffer<T>& g) {
  return std::vector<T>(g.data(), g.data() + g.size());
}

// ---------------------------------------------------------------------------
// Dense multiply entry points.

template <typename T>
using GemmEntry = void (*)(ISA_t, IMP_t, int, unsigned long, unsigned long, unsigned long, T,
                           unsigned long, const T*, unsigned long, const T*, T*, T, unsigned long,
                           T*);

template <typename T>
struct GemmForm {
  const char* name;
  GemmEntry<T> entry;
  bool a_transposed, b_transposed;
};

template <typename T>
std::vector<GemmForm<T>> gemm_forms() {
  return {{"nn", nb::x86Gemm_nn<T>, false, false},
          {"tn", nb::x86Gemm_tn<T>, true, false},
          {"nt", nb::x86Gemm_nt<T>, false, true},
          {"tt", nb::x86Gemm_tt<T>, true, true}};
}

struct GemmShape {
  unsigned long m, n, k;
};

// Both sides of the 8-lane width, the 16-row skinny limit, the 48-wide
// kernel strips and the 336 block.
const GemmShape kGemmShapes[] = {{0, 0, 0},    {0, 5, 3},   {4, 0, 3},   {3, 5, 0},   {1, 1, 1},
                                 {1, 8, 7},    {7, 9, 8},   {16, 17, 9}, {17, 16, 9}, {48, 49, 3},
                                 {49, 47, 50}, {337, 9, 5}, {5, 337, 9}, {9, 5, 337}};

// ws is guarded for float and null for double, which never reads it.
template <typename T>
void check_gemm_inside_guards(const GemmForm<T>& form, const GemmShape& s, ISA_t isa, Guard guard) {
  const unsigned long a_rows = form.a_transposed ? s.k : s.m,
                      a_cols = form.a_transposed ? s.m : s.k;
  const unsigned long b_rows = form.b_transposed ? s.n : s.k,
                      b_cols = form.b_transposed ? s.k : s.n;
  const unsigned long lda = a_cols + 3, ldb = b_cols + 1, ldc = s.n + 2;
  const std::vector<T> a0 = mixed_values<T>(span(a_rows, a_cols, lda), 21 + s.m),
                       b0 = mixed_values<T>(span(b_rows, b_cols, ldb), 22 + s.n),
                       c0 = mixed_values<T>(span(s.m, s.n, ldc), 23 + s.k);
  const bool single = sizeof(T) == sizeof(float);
  const unsigned long ws_size =
      single ? nb::x86GemmNNGetSize<T>(1, s.m, s.n, s.k, lda, ldb, ldc) / sizeof(T) : 0;
  std::vector<T> expected = c0, ws_plain(ws_size);
  form.entry(isa, IMP_DEFAULT, 1, s.m, s.n, s.k, T(0.5), lda, a0.data(), ldb, b0.data(),
             single ? ws_plain.data() : nullptr, T(-1.5), ldc, expected.data());

  auto a = guarded_copy(a0, guard), b = guarded_copy(b0, guard), c = guarded_copy(c0, guard);
  GuardedBuffer<T> ws(ws_size, guard);
  form.entry(isa, IMP_DEFAULT, 1, s.m, s.n, s.k, T(0.5), lda, a->data(), ldb, b->data(),
             single ? ws.data() : nullptr, T(-1.5), ldc, c->data());
  EXPECT_SAME_RESULTS(expected.data(), c->data(), c0.size());
}

template <typename T>
class GuardedGemm : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(GuardedGemm, Precisions);

TYPED_TEST(GuardedGemm, EveryFormStaysInsideItsOperands) {
  for (const GemmForm<TypeParam>& form : gemm_forms<TypeParam>()) {
    for (const GemmShape& s : kGemmShapes) {
      for (const ISA_t isa : {ISA_AVX, ISA_FMA}) {
        for (const Guard guard : kGuards) {
          SCOPED_TRACE(std::string(form.name) + " m=" + std::to_string(s.m) +
                       " n=" + std::to_string(s.n) + " k=" + std::to_string(s.k) +
                       " isa=" + std::to_string(int(isa)) +
                       (guard == Guard::kAfter ? " guard after" : " guard before"));
          check_gemm_inside_guards(form, s, isa, guard);
          if (::testing::Test::HasFailure()) return;
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------
// General sparse product and sparse axpy.

template <typename T>
class GuardedSparse : public ::testing::Test {};
TYPED_TEST_SUITE(GuardedSparse, Precisions);

TYPED_TEST(GuardedSparse, GemvStaysInsideItsOperands) {
  using T = TypeParam;
  std::uint32_t seed = 40;
  for (const int m : {0, 1, 2, 7, 9, 17}) {
    for (const int n : {0, 1, 3, 8, 16}) {
      const sparse_test::Compressed csr =
          sparse_test::csr_of_dense(m, n, sparse_test::random_dense(m, n, 0.6, ++seed));
      const std::vector<T> val(csr.val.begin(), csr.val.end());
      for (const int trans : {0, 1}) {
        const std::vector<T> x0 = mixed_values<T>(trans ? m : n, seed),
                             y0 = mixed_values<T>(trans ? n : m, seed + 1);
        for (const T beta : {T(0), T(2)}) {
          std::vector<T> expected = y0;
          nb::x86SparseMatrixGemv<T>(m, n, trans, T(1.25), csr.ptr.data(), csr.idx.data(),
                                     val.data(), x0.data(), beta, expected.data());
          for (const Guard guard : kGuards) {
            auto ptr = guarded_copy(csr.ptr, guard), idx = guarded_copy(csr.idx, guard);
            auto v = guarded_copy(val, guard), x = guarded_copy(x0, guard),
                 y = guarded_copy(y0, guard);
            nb::x86SparseMatrixGemv<T>(m, n, trans, T(1.25), ptr->data(), idx->data(), v->data(),
                                       x->data(), beta, y->data());
            SCOPED_TRACE(testing::Message() << m << " x " << n << " trans " << trans);
            EXPECT_SAME_RESULTS(expected.data(), y->data(), y0.size());
          }
        }
      }
    }
  }
}

TYPED_TEST(GuardedSparse, AxpyStaysInsideItsOperands) {
  using T = TypeParam;
  for (const unsigned long n : numbra_test::boundary_lengths()) {
    if (n > 300) continue;
    const unsigned long dense = n + 5;
    std::vector<int> where(n);
    for (unsigned long k = 0; k < n; ++k) where[k] = static_cast<int>((k * 7 + n) % dense);
    // The first and the last dense element are updated too.
    if (n > 1) where[0] = 0, where[n - 1] = static_cast<int>(dense - 1);
    const std::vector<T> val0 = mixed_values<T>(n, 50 + n), y0 = mixed_values<T>(dense, 51 + n);
    std::vector<T> expected = y0;
    nb::x86SparseVectorAxpy<T>(n, T(-0.75), where.data(), val0.data(), expected.data());
    for (const Guard guard : kGuards) {
      auto idx = guarded_copy(where, guard), val = guarded_copy(val0, guard),
           y = guarded_copy(y0, guard);
      nb::x86SparseVectorAxpy<T>(n, T(-0.75), idx->data(), val->data(), y->data());
      SCOPED_TRACE("n=" + std::to_string(n));
      EXPECT_SAME_RESULTS(expected.data(), y->data(), dense);
    }
  }
}

// Without rows nothing but the transposed product's y is touched.
TYPED_TEST(GuardedSparse, OperandsThatAreNotReadMayBeNull) {
  using T = TypeParam;
  nb::x86SparseMatrixGemv<T>(0, 3, 0, T(1), nullptr, nullptr, nullptr, nullptr, T(2), nullptr);
  T y[3] = {T(1), T(-2), T(0.5)};
  nb::x86SparseMatrixGemv<T>(0, 3, 1, T(1), nullptr, nullptr, nullptr, nullptr, T(2), y);
  const T doubled[3] = {T(2), T(-4), T(1)};
  EXPECT_SAME_ARRAY_BITS(doubled, y, 3);
  nb::x86SparseVectorAxpy<T>(0, T(1), nullptr, nullptr, nullptr);
}

// ---------------------------------------------------------------------------
// Load-balance splits: every input and every output against a guard.

TEST(GuardedSplit, EveryFormStaysInsideItsOperands) {
  std::uint32_t seed = 70;
  for (const int m : {1, 2, 7, 9, 17}) {
    for (const int n : {1, 3, 8, 9}) {
      const std::vector<float> dense = sparse_test::random_dense(m, n, 0.5, ++seed);
      const sparse_test::Compressed csr = sparse_test::csr_of_dense(m, n, dense),
                                    ccs = sparse_test::ccs_of_dense(m, n, dense);
      const sparse_test::Coo coo = sparse_test::random_coo(m, n, 2 * (m + n), seed);
      for (const int parts : {1, 2, 3, m + 2}) {
        for (const int dim : {0, 1}) {
          // Results on ordinary memory first.
          std::vector<int> dense_idx(parts + 1), csr_idx(parts + 1), ccs_idx(parts + 1),
              coo_idx(parts + 1), coo_row(coo.nnz()), coo_col(coo.nnz());
          std::vector<float> coo_val(coo.nnz());
          nb::sparse_matrix_split_dense_lb_nz<float>(m, n, dense.data(), parts, dim,
                                                     dense_idx.data());
          nb::sparse_matrix_split_csr_lb_nz<float>(m, n, csr.val.size(), csr.ptr.data(),
                                                   csr.idx.data(), nullptr, parts, dim,
                                                   csr_idx.data());
          nb::sparse_matrix_split_ccs_lb_nz<float>(m, n, ccs.val.size(), ccs.ptr.data(),
                                                   ccs.idx.data(), nullptr, parts, dim,
                                                   ccs_idx.data());
          nb::sparse_matrix_split_coo_lb_nz<float>(m, n, coo.nnz(), coo.row.data(), coo.col.data(),
                                                   coo.val.data(), parts, dim, coo_row.data(),
                                                   coo_col.data(), coo_val.data(), coo_idx.data());
          for (const Guard guard : kGuards) {
            SCOPED_TRACE(testing::Message()
                         << m << " x " << n << " parts " << parts << " dim " << dim
                         << (guard == Guard::kAfter ? " after" : " before"));
            auto a = guarded_copy(dense, guard);
            GuardedBuffer<int> idx(parts + 1, guard);
            sparse_split_dense_lb_nz<float>(m, n, a->data(), parts, dim, idx.data());
            EXPECT_EQ(dense_idx, contents(idx));

            auto ptr = guarded_copy(csr.ptr, guard), ind = guarded_copy(csr.idx, guard);
            sparse_split_csr_lb_nz<float>(m, n, csr.val.size(), ptr->data(), ind->data(), nullptr,
                                          parts, dim, idx.data());
            EXPECT_EQ(csr_idx, contents(idx));

            ptr = guarded_copy(ccs.ptr, guard), ind = guarded_copy(ccs.idx, guard);
            sparse_split_ccs_lb_nz<float>(m, n, ccs.val.size(), ptr->data(), ind->data(), nullptr,
                                          parts, dim, idx.data());
            EXPECT_EQ(ccs_idx, contents(idx));

            auto row = guarded_copy(coo.row, guard), col = guarded_copy(coo.col, guard);
            auto val = guarded_copy(coo.val, guard);
            GuardedBuffer<int> out_row(coo.nnz(), guard), out_col(coo.nnz(), guard);
            GuardedBuffer<float> out_val(coo.nnz(), guard);
            sparse_split_coo_lb_nz<float>(m, n, coo.nnz(), row->data(), col->data(), val->data(),
                                          parts, dim, out_row.data(), out_col.data(),
                                          out_val.data(), idx.data());
            EXPECT_EQ(coo_idx, contents(idx));
            EXPECT_EQ(coo_row, contents(out_row));
            EXPECT_EQ(coo_col, contents(out_col));
            EXPECT_SAME_RESULTS(coo_val.data(), out_val.data(), coo.nnz());
            if (::testing::Test::HasFailure()) return;
          }
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------
// Dense matrix-vector products: with no columns (or, transposed, no rows)
// neither the matrix nor x is read, and y is still scaled.

TEST(NullOperands, MatrixVectorProductsWithoutTheOtherDimension) {
  using Kernel = void (*)(int, int, float, const float*, const float*, float, float*);
  for (const Kernel kernel : {x86_blas_sgemv_n_fma, x86_blas_sgemv_n_avx}) {
    float y[3] = {1.0f, -0.0f, 4.0f};
    kernel(3, 0, 2.0f, nullptr, nullptr, 0.5f, y);
    const float scaled[3] = {0.5f, 0.0f, 2.0f};
    EXPECT_SAME_ARRAY_BITS(scaled, y, 3);
  }
  for (const Kernel kernel : {x86_blas_sgemv_t_fma, x86_blas_sgemv_t_avx}) {
    float y[3] = {1.0f, -0.0f, 4.0f};
    kernel(0, 3, 2.0f, nullptr, nullptr, 0.5f, y);
    const float scaled[3] = {0.5f, 0.0f, 2.0f};
    EXPECT_SAME_ARRAY_BITS(scaled, y, 3);
  }
  double y[2] = {3.0, -5.0};
  nb::x86MatrixGemv_t<double>(ISA_FMA, IMP_DEFAULT, 1, 0, 2, 2.0, nullptr, nullptr, 2.0, y);
  const double doubled[2] = {6.0, -10.0};
  EXPECT_SAME_ARRAY_BITS(doubled, y, 2);
}

TEST(NullOperands, AddVectorByColumnWithoutColumns) {
  nb::x86MatrixAddVectorByCol<double>(0, 4, 0, 3, 1.0, nullptr, 2.0, nullptr);
  nb::x86MatrixAddVectorByCol<float>(0, 0, 5, 5, 1.0f, nullptr, 2.0f, nullptr);
}

}  // namespace
