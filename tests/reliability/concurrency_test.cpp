// Several threads call every operator family at once, each on its own
// outputs and with the inputs shared read-only, and must get exactly the bits
// of a single-threaded call. Each worker scales by its own alpha, so results
// that leak from one call into another show as wrong bits. Built with
// ThreadSanitizer, the same test also proves the calls free of data races.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/float_bits.h"

namespace nb = ZETL::numbra;
using numbra_test::mixed_values;

namespace {

constexpr int kWorkers = 4;
constexpr int kRounds = 3;

using Bytes = std::vector<unsigned char>;

// The result of one call by one worker, as raw bytes.
struct Job {
  std::string name;
  std::function<Bytes(int worker)> run;
};

template <typename T>
void append(Bytes& out, const std::vector<T>& v) {
  const auto* p = reinterpret_cast<const unsigned char*>(v.data());
  out.insert(out.end(), p, p + v.size() * sizeof(T));
}

template <typename... V>
Bytes bytes_of(const V&... v) {
  Bytes out;
  (append(out, v), ...);
  return out;
}

// Every worker runs every job kRounds times, all threads released at once;
// each result must equal the single-threaded one.
void expect_single_threaded_bits(const std::vector<Job>& jobs) {
  std::vector<std::vector<Bytes>> expected(kWorkers);
  for (int w = 0; w < kWorkers; ++w)
    for (const Job& job : jobs) expected[w].push_back(job.run(w));

  std::vector<std::vector<int>> mismatches(kWorkers, std::vector<int>(jobs.size(), 0));
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int w = 0; w < kWorkers; ++w) {
    threads.emplace_back([&, w] {
      ready.fetch_add(1);
      while (ready.load() < kWorkers) std::this_thread::yield();
      for (int round = 0; round < kRounds; ++round)
        for (std::size_t j = 0; j < jobs.size(); ++j)
          if (jobs[j].run(w) != expected[w][j]) ++mismatches[w][j];
    });
  }
  for (std::thread& t : threads) t.join();
  for (int w = 0; w < kWorkers; ++w)
    for (std::size_t j = 0; j < jobs.size(); ++j)
      EXPECT_EQ(0, mismatches[w][j]) << jobs[j].name << ", worker " << w;
}

template <typename T>
T alpha_of(int worker) {
  return T(1) + T(worker) / T(4);
}

// Shared read-only inputs: vectors across the 8-lane boundaries, and
// matrices with strides wider than their rows.
template <typename T>
struct Inputs {
  static constexpr unsigned long kN = 1037, kM = 37, kCols = 45, kLd = 47;
  const std::vector<T> x = mixed_values<T>(kN, 1), y = mixed_values<T>(kN, 2),
                       z = mixed_values<T>(kN, 3);
  const std::vector<T> a = mixed_values<T>(kM * kLd, 4), b = mixed_values<T>(kM * kLd, 5);
  const std::vector<T> square = mixed_values<T>(kLd * kLd, 6);
};

template <typename T>
std::vector<Job> vector_jobs(const Inputs<T>& in) {
  const unsigned long n = in.kN;
  return {
      {"element-wise",
       [&in, n](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> axpy = in.y, axpb(n), axpby = in.y, add(n), adds(n), copy(n), div(n),
                        mla = in.z, mls = in.z, mul(n), muls(n), sq(n), sub(n), sx = in.x,
                        sy = in.y;
         nb::x86VectorAxpy<T>(n, alpha, in.x.data(), axpy.data());
         nb::x86VectorAxpb<T>(n, alpha, in.x.data(), T(0.5), axpb.data());
         nb::x86VectorAxpby<T>(n, alpha, in.x.data(), T(-2), axpby.data());
         nb::x86VectorAdd<T>(n, in.x.data(), in.y.data(), add.data());
         nb::x86VectorAddScalar<T>(n, in.x.data(), alpha, adds.data());
         nb::x86VectorCopy<T>(n - w, in.x.data() + w, copy.data());
         nb::x86VectorDiv<T>(n, in.x.data(), in.y.data(), div.data());
         nb::x86VectorMla<T>(n, in.x.data(), in.y.data(), mla.data());
         nb::x86VectorMls<T>(n, in.x.data(), in.y.data(), mls.data());
         nb::x86VectorMul<T>(n, in.x.data(), in.y.data(), mul.data());
         nb::x86VectorMulScalar<T>(n, in.x.data(), alpha, muls.data());
         nb::x86VectorSqure<T>(n - w, in.x.data(), sq.data());
         nb::x86VectorSubtract<T>(n, in.x.data(), in.y.data(), sub.data());
         nb::x86VectorSwap<T>(n, alpha, sx.data(), T(3), sy.data());
         return bytes_of(axpy, axpb, axpby, add, adds, copy, div, mla, mls, mul, muls, sq, sub, sx,
                         sy);
       }},
      {"fill",
       [&in, n](int w) {
         std::vector<T> s(n), v2(n), v3(n), v4(n);
         nb::x86VectorFillScalar<T>(n - w, alpha_of<T>(w), s.data());
         nb::x86VectorFillVector<T, 2>(n / 2, in.x.data() + w, v2.data());
         nb::x86VectorFillVector<T, 3>(n / 3, in.x.data() + w, v3.data());
         nb::x86VectorFillVector<T, 4>(n / 4, in.x.data() + w, v4.data());
         return bytes_of(s, v2, v3, v4);
       }},
      {"reductions",
       [&in, n](int w) {
         std::vector<T> r = {nb::x86VectorSum<T>(n - w, in.y.data()),
                             nb::x86VectorDot<T>(n - w, in.y.data()),
                             nb::x86VectorMax<T>(n - w, in.y.data()), T(0), T(0)};
         nb::x86VectorMaxMin<T>(n - w, in.y.data(), &r[3], &r[4]);
         return bytes_of(r);
       }},
      {"transcendental",
       [&in, n](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> e(n), p(n), s = in.z, sb = in.z, t = in.z, tb = in.z;
         nb::x86VectorExp<T>(n, in.x.data(), e.data());
         nb::x86VectorPower<T>(n, in.x.data(), T(-0.75) * alpha, p.data());
         nb::x86VectorSigmoid<T>(n, alpha, in.x.data(), T(0.5), s.data());
         nb::x86VectorSigmoidBackward<T>(n, alpha, in.x.data(), in.y.data(), T(0), sb.data());
         nb::x86VectorTanh<T>(n, alpha, in.x.data(), T(2), t.data());
         nb::x86VectorTanhBackward<T>(n, alpha, in.x.data(), in.y.data(), T(1), tb.data());
         const std::vector<T> scalar = {nb::x86ScalarSigmoid<T>(alpha)};
         return bytes_of(e, p, s, sb, t, tb, scalar);
       }},
      {"mask and split backward",
       [&in, n](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> masked = in.z, split = in.z;
         nb::x86VectorMaskAndScale<T>(n, in.y.data(), alpha, in.x.data(), T(0.25), T(2), T(0.5),
                                      masked.data());
         nb::x86VectorSplitBackward<T>(n, alpha, in.x.data(), in.y.data(), T(1), split.data());
         return bytes_of(masked, split);
       }},
      {"activations",
       [&in, n](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> relu = in.z, relu_fast = in.z, back = in.z, prelu = in.z,
                        prelu_kernel = in.z, prelu_back = in.z;
         nb::x86VectorRelu<T>(ISA_FMA, IMP_DEFAULT, n, alpha, in.x.data(), T(0.5), relu.data());
         nb::x86VectorRelu<T>(ISA_AVX, IMP_DEFAULT, n, T(1), in.x.data(), T(0), relu_fast.data());
         nb::x86VectorReluBackward<T>(n, alpha, in.x.data(), in.y.data(), T(2), back.data());
         // 17 blocks of 61 planes of one element.
         nb::x86VectorPrelu<T>(false, n, 1, 61, 17, alpha, in.x.data(), in.y.data(), T(0.5),
                               prelu.data());
         nb::x86VectorPrelu<T>(true, n, 61, 17, 1, T(1), in.x.data(), in.y.data(), T(0),
                               prelu_kernel.data());
         nb::x86VectorPreluBackward<T>(false, n, 17, 61, alpha, in.x.data(), in.y.data(),
                                       in.z.data(), T(-1), prelu_back.data());
         return bytes_of(relu, relu_fast, back, prelu, prelu_kernel, prelu_back);
       }},
  };
}

template <typename T>
std::vector<Job> matrix_jobs(const Inputs<T>& in) {
  const unsigned long m = in.kM, n = in.kCols, ld = in.kLd;
  return {
      {"row and column reductions",
       [&in, m, n, ld](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> by_row = in.z, sum = in.z, batch = in.z, by_col = in.z, avg = in.b;
         nb::x86MatrixSumByRow<T>(w, m, n, ld, alpha, in.a.data(), T(0.5), by_row.data());
         nb::x86MatrixGetSum<T>(w, m, n, alpha, in.a.data(), T(0), sum.data());
         nb::x86MatrixBatchSumByRow<T>(w, m / 3, n, ld, 3, alpha, in.a.data(), T(1), batch.data());
         nb::x86MatrixSumByCol<T>(w, m, n, ld, alpha, in.a.data(), T(2), by_col.data());
         nb::x86MatrixAvgByRow<T>(w, m, n, ld, alpha, in.a.data(), T(0), avg.data());
         return bytes_of(by_row, sum, batch, by_col, avg);
       }},
      {"row and column updates",
       [&in, m, n, ld](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> prob = in.b, submax = in.b, add_row = in.b, add_col = in.b;
         nb::x86MatrixProbByRow<T>(w, m, n, ld, alpha, in.a.data(), T(0.5), prob.data());
         nb::x86MatrixSubMaxByRow<T>(w, m, n - w, ld, in.a.data(), submax.data());
         nb::x86MatrixAddVectorByRow<T>(w, m, n, ld, alpha, in.x.data(), T(0), add_row.data());
         nb::x86MatrixAddVectorByCol<T>(w, m, n, ld, alpha, in.x.data(), T(2), add_col.data());
         return bytes_of(prob, submax, add_row, add_col);
       }},
      {"transpose and geam",
       [&in, m, n, ld](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> t(ld * ld), nn = in.square, tn = in.square, nt = in.square, tt = in.square;
         nb::x86MatrixTranspose<T>(w, m, n - w, ld, in.a.data(), ld, t.data());
         // m by m results from the ld by ld square, both operands square.
         nb::x86Geam_nn<T>(w, m, n, alpha, ld, in.square.data(), T(0.5), ld, in.square.data(), ld,
                           nn.data());
         nb::x86Geam_tn<T>(w, m, m, alpha, ld, in.square.data(), T(0), ld, nullptr, ld, tn.data());
         nb::x86Geam_nt<T>(w, m, m, alpha, ld, in.square.data(), T(-1), ld, in.square.data(), ld,
                           nt.data());
         nb::x86Geam_tt<T>(w, m, m, alpha, ld, in.square.data(), T(2), ld, in.square.data(), ld,
                           tt.data());
         return bytes_of(t, nn, tn, nt, tt);
       }},
      {"matrix-vector products",
       [&in, m, n](int w) {
         const T alpha = alpha_of<T>(w);
         std::vector<T> yn = in.z, yt = in.z;
         nb::x86MatrixGemv_n<T>(ISA_t(w % 2), IMP_DEFAULT, w, m, n, alpha, in.a.data(), in.x.data(),
                                T(0.5), yn.data());
         nb::x86MatrixGemv_t<T>(ISA_t(w % 2), IMP_DEFAULT, w, m, n, alpha, in.a.data(), in.x.data(),
                                T(2), yt.data());
         return bytes_of(yn, yt);
       }},
      {"general sparse product and axpy",
       [&in, m, n](int w) {
         const T alpha = alpha_of<T>(w);
         // Every fifth element of a as a CSR matrix.
         std::vector<int> ptr = {0}, col;
         std::vector<T> val;
         for (unsigned long i = 0; i < m; ++i) {
           for (unsigned long j = i % 5; j < n; j += 5) {
             col.push_back(static_cast<int>(j));
             val.push_back(in.a[i * n + j]);
           }
           ptr.push_back(static_cast<int>(col.size()));
         }
         std::vector<T> y = in.z, yt = in.z, axpy = in.z;
         nb::x86SparseMatrixGemv<T>(m, n, 0, alpha, ptr.data(), col.data(), val.data(), in.x.data(),
                                    T(0.5), y.data());
         nb::x86SparseMatrixGemv<T>(m, n, 1, alpha, ptr.data(), col.data(), val.data(), in.x.data(),
                                    T(0), yt.data());
         nb::x86SparseVectorAxpy<T>(col.size(), alpha, col.data(), val.data(), axpy.data());
         return bytes_of(y, yt, axpy);
       }},
  };
}

// The dense multiply in every form; float workers take their own slice of
// one workspace sized for all of them, double needs none.
template <typename T>
Job gemm_job(const Inputs<T>& in, T* workspace, unsigned long slice) {
  return {"dense multiply", [&in, workspace, slice](int w) {
            const T alpha = alpha_of<T>(w);
            T* ws = workspace == nullptr ? nullptr : workspace + w * slice;
            const unsigned long ld = in.kLd;
            std::vector<T> nn = in.square, tn = in.square, nt = in.square, nt_skinny = in.square,
                           tt = in.square;
            nb::x86Gemm_nn<T>(ISA_FMA, IMP_DEFAULT, kWorkers, 41, 43, 45, alpha, ld,
                              in.square.data(), ld, in.square.data(), ws, T(0.5), ld, nn.data());
            nb::x86Gemm_tn<T>(ISA_AVX, IMP_DEFAULT, kWorkers, 41, 43, 45, alpha, ld,
                              in.square.data(), ld, in.square.data(), ws, T(0), ld, tn.data());
            nb::x86Gemm_nt<T>(ISA_FMA, IMP_DEFAULT, kWorkers, 41, 43, 45, alpha, ld,
                              in.square.data(), ld, in.square.data(), ws, T(2), ld, nt.data());
            nb::x86Gemm_nt<T>(ISA_AVX, IMP_DEFAULT, kWorkers, 13, 43, 45, alpha, ld,
                              in.square.data(), ld, in.square.data(), ws, T(1), ld,
                              nt_skinny.data());
            nb::x86Gemm_tt<T>(ISA_FMA, IMP_DEFAULT, kWorkers, 41, 43, 45, alpha, ld,
                              in.square.data(), ld, in.square.data(), ws, T(-1), ld, tt.data());
            return bytes_of(nn, tn, nt, nt_skinny, tt);
          }};
}

template <typename T>
class Concurrency : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Concurrency, Precisions);

TYPED_TEST(Concurrency, VectorOperatorsGiveTheSingleThreadedBits) {
  const Inputs<TypeParam> in;
  expect_single_threaded_bits(vector_jobs(in));
}

TYPED_TEST(Concurrency, MatrixOperatorsGiveTheSingleThreadedBits) {
  const Inputs<TypeParam> in;
  expect_single_threaded_bits(matrix_jobs(in));
}

TYPED_TEST(Concurrency, DenseMultiplyOnSlicesOfOneWorkspace) {
  using T = TypeParam;
  const Inputs<T> in;
  if (sizeof(T) == sizeof(double)) {
    expect_single_threaded_bits({gemm_job<T>(in, nullptr, 0)});
    return;
  }
  const unsigned long bytes = nb::x86GemmNNGetSize<T>(kWorkers, 41, 43, 45, 47, 47, 47);
  std::vector<T> workspace(bytes / sizeof(T));
  expect_single_threaded_bits({gemm_job<T>(in, workspace.data(), workspace.size() / kWorkers)});
}

// The float-only kernels, each worker on its own outputs.
TEST(ConcurrencyFloat, KernelsGiveTheSingleThreadedBits) {
  const Inputs<float> in;
  const int m = 37, n = 45, ld = 47;
  std::vector<float> workspace(nb::x86GemmNNGetSize<float>(kWorkers, 0, 0, 0, 0, 0, 0) /
                               sizeof(float));
  const unsigned long slice = workspace.size() / kWorkers;
  std::vector<Job> jobs = {
      {"gemm driver and skinny product",
       [&](int w) {
         const float alpha = alpha_of<float>(w);
         float* ws = workspace.data() + w * slice;
         std::vector<float> fma = in.square, avx = in.square, skinny = in.square;
         auto* a = const_cast<float*>(in.square.data());
         x86_blas_sgemm_nn_fma(m, n, ld, alpha, a, ld, a, ld, ws, 0.5f, fma.data(), ld);
         x86_blas_sgemm_nn_avx(m, n, ld, alpha, a, ld, a, ld, ws, 0.0f, avx.data(), ld);
         sgemm_nt_fma(7, n, ld, alpha, ld, a, 32, ws, ld, a, 2.0f, ld, skinny.data());
         return bytes_of(fma, avx, skinny);
       }},
      {"gemv kernels",
       [&](int w) {
         const float alpha = alpha_of<float>(w);
         std::vector<float> n_fma = in.z, n_avx = in.z, t_fma = in.z, t_avx = in.z;
         x86_blas_sgemv_n_fma(m, n, alpha, in.a.data(), in.x.data(), 0.5f, n_fma.data());
         x86_blas_sgemv_n_avx(m, n, alpha, in.a.data(), in.x.data(), 0.5f, n_avx.data());
         x86_blas_sgemv_t_fma(m, n, alpha, in.a.data(), in.x.data(), 2.0f, t_fma.data());
         x86_blas_sgemv_t_avx(m, n, alpha, in.a.data(), in.x.data(), 2.0f, t_avx.data());
         return bytes_of(n_fma, n_avx, t_fma, t_avx);
       }},
      {"prelu and relu kernels",
       [&](int w) {
         std::vector<float> prelu = in.z, relu = in.z;
         x86_cnn_prelu_avx(false, 61 - w, 17, 1, in.x.data(), in.y.data(), prelu.data());
         vectorRelu_avx<float>(in.kN - w, alpha_of<float>(w), in.x.data(), 0.5f, relu.data());
         return bytes_of(prelu, relu);
       }},
  };
  expect_single_threaded_bits(jobs);
}

// Conversions, sparse products and splits on one shared dense matrix.
TEST(ConcurrencyFloat, SparseFormsGiveTheSingleThreadedBits) {
  const int m = 29, n = 35, blk = 4;
  const std::vector<float> dense = sparse_test::random_dense(m, n, 0.3, 9);
  const sparse_test::Coo coo = sparse_test::random_coo(m, n, 200, 9);
  const std::vector<float> x = mixed_values<float>(64, 10);
  std::vector<Job> jobs = {
      {"conversions and products",
       [&](int w) {
         unsigned long nnz, ptr_bytes, idx_bytes, val_bytes, len_bytes;
         nb::sparse_matrix_dense2csr_getSize<float>(m, n, dense.data(), nnz, ptr_bytes, idx_bytes,
                                                    val_bytes);
         std::vector<int> row_ptr(m + 1), col(nnz), col_ptr(n + 1), row(nnz);
         std::vector<float> csr_val(nnz), ccs_val(nnz);
         nb::sparse_matrix_dense2csr<float>(m, n, dense.data(), row_ptr.data(), col.data(),
                                            csr_val.data());
         nb::sparse_matrix_dense2ccs<float>(m, n, dense.data(), col_ptr.data(), row.data(),
                                            ccs_val.data());
         nb::sparse_matrix_dense2bcsr_getSize<float>(m, n, dense.data(), blk, nnz, ptr_bytes,
                                                     len_bytes, idx_bytes, val_bytes);
         std::vector<int> block_ptr(ptr_bytes / sizeof(int));
         std::vector<unsigned short> len(len_bytes / 2), local(idx_bytes / 2);
         std::vector<float> bval(val_bytes / sizeof(float));
         nb::sparse_matrix_dense2bcsr<float>(m, n, dense.data(), blk, block_ptr.data(), len.data(),
                                             local.data(), bval.data());
         nb::sparse_matrix_dense2bccs_getSize<float>(m, n, dense.data(), blk, nnz, ptr_bytes,
                                                     len_bytes, idx_bytes, val_bytes);
         std::vector<int> cblock_ptr(ptr_bytes / sizeof(int));
         std::vector<unsigned short> clen(len_bytes / 2), clocal(idx_bytes / 2);
         std::vector<float> cbval(val_bytes / sizeof(float));
         sparse_dense2bccs<float>(m, n, dense.data(), blk, cblock_ptr.data(), clen.data(),
                                  clocal.data(), cbval.data());
         // Products of each form with x shifted by the worker.
         const float* xw = x.data() + w;
         std::vector<float> y_csr(m), y_bcsr(m), y_ccs(m), y_bccs(m), y_fma(m), y_bfma(m);
         nb::x86Spmv_csr<float>(ISA_FMA, IMP_DEFAULT, w, m, row_ptr.data(), col.data(),
                                csr_val.data(), xw, y_csr.data());
         nb::x86Spmv_bcsr<float>(ISA_FMA, IMP_DEFAULT, w, m, n, blk, block_ptr.data(), len.data(),
                                 local.data(), bval.data(), xw, y_bcsr.data());
         nb::x86Spmv_ccs<float>(ISA_FMA, IMP_DEFAULT, w, m, n, col_ptr.data(), row.data(),
                                ccs_val.data(), xw, y_ccs.data());
         nb::x86Spmv_bccs<float>(ISA_FMA, IMP_DEFAULT, w, m, n, blk, cblock_ptr.data(), clen.data(),
                                 clocal.data(), cbval.data(), xw, y_bccs.data());
         x86SCSRSpmv_fma(m, row_ptr.data(), col.data(), csr_val.data(), xw, y_fma.data());
         x86SBCSRSpmv_fma(m, n, blk, block_ptr.data(), len.data(), local.data(), bval.data(), xw,
                          y_bfma.data());
         return bytes_of(row_ptr, col, csr_val, col_ptr, row, ccs_val, block_ptr, len, local, bval,
                         cblock_ptr, clen, clocal, cbval, y_csr, y_bcsr, y_ccs, y_bccs, y_fma,
                         y_bfma);
       }},
      {"conversions from coordinates",
       [&](int w) {
         const unsigned long nnz = coo.nnz() - w;
         std::vector<int> sorted_row(nnz), sorted_col(nnz), row_ptr(m + 1), col(nnz),
             col_ptr(n + 1), row(nnz);
         std::vector<float> sorted_val(nnz), csr_val(nnz), ccs_val(nnz);
         coo_sort<float>(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(),
                         sorted_row.data(), sorted_col.data(), sorted_val.data(), w % 2);
         nb::sparse_matrix_coo2csr<float>(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(),
                                          row_ptr.data(), col.data(), csr_val.data());
         nb::sparse_matrix_coo2ccs<float>(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(),
                                          col_ptr.data(), row.data(), ccs_val.data());
         unsigned long ptr_bytes, len_bytes, idx_bytes, val_bytes;
         nb::sparse_matrix_coo2bcsr_getSize<float>(m, n, nnz, blk, ptr_bytes, len_bytes, idx_bytes,
                                                   val_bytes);
         std::vector<int> block_ptr(ptr_bytes / sizeof(int));
         std::vector<unsigned short> len(len_bytes / 2), local(idx_bytes / 2);
         std::vector<float> bval(val_bytes / sizeof(float));
         nb::sparse_matrix_coo2bcsr<float>(m, n, nnz, coo.row.data(), coo.col.data(),
                                           coo.val.data(), blk, block_ptr.data(), len.data(),
                                           local.data(), bval.data());
         nb::sparse_matrix_coo2bccs_getSize<float>(m, n, nnz, blk, ptr_bytes, len_bytes, idx_bytes,
                                                   val_bytes);
         std::vector<int> cblock_ptr(ptr_bytes / sizeof(int));
         std::vector<unsigned short> clen(len_bytes / 2), clocal(idx_bytes / 2);
         std::vector<float> cbval(val_bytes / sizeof(float));
         sparse_coo2bccs<float>(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(), blk,
                                cblock_ptr.data(), clen.data(), clocal.data(), cbval.data());
         // The compressed forms cut into blocks again.
         std::vector<int> rblock_ptr(block_ptr.size());
         std::vector<unsigned short> rlen(len.size()), rlocal(local.size());
         std::vector<float> rbval(bval.size());
         sparse_csr2bcsr<float>(m, n, nnz, row_ptr.data(), col.data(), csr_val.data(), blk,
                                rblock_ptr.data(), rlen.data(), rlocal.data(), rbval.data());
         std::vector<int> sblock_ptr(cblock_ptr.size());
         std::vector<unsigned short> slen(clen.size()), slocal(clocal.size());
         std::vector<float> sbval(cbval.size());
         sparse_ccs2bccs<float>(m, n, nnz, col_ptr.data(), row.data(), ccs_val.data(), blk,
                                sblock_ptr.data(), slen.data(), slocal.data(), sbval.data());
         return bytes_of(sorted_row, sorted_col, sorted_val, row_ptr, col, csr_val, col_ptr, row,
                         ccs_val, block_ptr, len, local, bval, cblock_ptr, clen, clocal, cbval,
                         rblock_ptr, rlen, rlocal, rbval, sblock_ptr, slen, slocal, sbval);
       }},
      {"splits",
       [&](int w) {
         const int parts = 2 + w;
         const sparse_test::Compressed csr = sparse_test::csr_of_dense(m, n, dense),
                                       ccs = sparse_test::ccs_of_dense(m, n, dense);
         std::vector<int> d(parts + 1), r(parts + 1), c(parts + 1), k(parts + 1),
             out_row(coo.nnz()), out_col(coo.nnz());
         std::vector<float> out_val(coo.nnz());
         nb::sparse_matrix_split_dense_lb_nz<float>(m, n, dense.data(), parts, w % 2, d.data());
         nb::sparse_matrix_split_csr_lb_nz<float>(m, n, csr.val.size(), csr.ptr.data(),
                                                  csr.idx.data(), csr.val.data(), parts, 0,
                                                  r.data());
         nb::sparse_matrix_split_ccs_lb_nz<float>(m, n, ccs.val.size(), ccs.ptr.data(),
                                                  ccs.idx.data(), ccs.val.data(), parts, 1,
                                                  c.data());
         nb::sparse_matrix_split_coo_lb_nz<float>(m, n, coo.nnz(), coo.row.data(), coo.col.data(),
                                                  coo.val.data(), parts, w % 2, out_row.data(),
                                                  out_col.data(), out_val.data(), k.data());
         return bytes_of(d, r, c, k, out_row, out_col, out_val);
       }},
  };
  expect_single_threaded_bits(jobs);
}

// Random values differ from call to call; concurrent calls must still each
// fill their own output completely.
TEST(ConcurrencyFloat, RandomGenerationFromSeveralThreads) {
  std::vector<std::vector<float>> out(kWorkers, std::vector<float>(1000, -1.0f));
  std::vector<std::thread> threads;
  for (int w = 0; w < kWorkers; ++w)
    threads.emplace_back(
        [&out, w] { nb::x86VectorRandGenerate<float>(out[w].size(), out[w].data()); });
  for (std::thread& t : threads) t.join();
  for (const std::vector<float>& values : out)
    for (const float v : values) EXPECT_TRUE(v >= 0.0f && v <= 1.0f) << v;
}

}  // namespace
