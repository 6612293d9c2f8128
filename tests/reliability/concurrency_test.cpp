// The calls that work in a workspace, a scratch or temporaries, run from
// several threads at once on shared inputs: each must give the bits of the
// same call made alone. Each thread scales by its own alpha or cuts by its
// own block, so memory shared between calls shows as wrong bits, and under
// ThreadSanitizer as a race.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "numbra.h"
#include "sparse/sparse_forms.h"
#include "support/float_bits.h"

namespace nb = ZETL::numbra;
using numbra_test::mixed_values;

namespace {

constexpr int kThreads = 4, kRounds = 2;

using Bytes = std::vector<unsigned char>;

template <typename... T>
void append(Bytes& out, const std::vector<T>&... v) {
  (out.insert(out.end(), reinterpret_cast<const unsigned char*>(v.data()),
              reinterpret_cast<const unsigned char*>(v.data() + v.size())),
   ...);
}

// Runs job(thread) alone for every thread, then in all threads at once,
// released together, and compares.
void expect_alone_bits_in_parallel(const std::function<Bytes(int)>& job) {
  std::vector<Bytes> alone;
  for (int t = 0; t < kThreads; ++t) alone.push_back(job(t));
  std::atomic<int> ready{0}, mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (++ready; ready < kThreads;) std::this_thread::yield();
      for (int round = 0; round < kRounds; ++round) mismatches += job(t) != alone[t];
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches, 0);
}

// Every form of the float multiply, each thread on its own slice of one
// workspace; 13 rows take the skinny product with its scratch panel.
TEST(Concurrency, DenseMultiplyOnSlicesOfOneWorkspace) {
  const int n = 43, k = 45, ld = 47;
  const std::vector<float> a = mixed_values<float>(ld * ld, 1);
  std::vector<float> ws(nb::x86GemmNNGetSize<float>(kThreads, 41, n, k, ld, ld, ld) / 4);
  const std::size_t slice = ws.size() / kThreads;
  expect_alone_bits_in_parallel([&](int t) {
    Bytes out;
    for (auto gemm : {nb::x86Gemm_nn<float>, nb::x86Gemm_tn<float>, nb::x86Gemm_nt<float>,
                      nb::x86Gemm_tt<float>}) {
      for (int m : {13, 41}) {
        std::vector<float> c = a;
        gemm(t % 2 ? ISA_AVX : ISA_FMA, IMP_DEFAULT, kThreads, m, n, k, 1.0f + t / 4.0f, ld,
             a.data(), ld, a.data(), ws.data() + t * slice, 0.5f, ld, c.data());
        append(out, c);
      }
    }
    return out;
  });
}

template <typename T>
void append_products(Bytes& out, ISA_t isa, int m, int n, T alpha, const std::vector<T>& a,
                     const std::vector<T>& x) {
  std::vector<T> yn = x, yt = x;
  nb::x86MatrixGemv_n<T>(isa, IMP_DEFAULT, 1, m, n, alpha, a.data(), x.data(), T(0.5), yn.data());
  nb::x86MatrixGemv_t<T>(isa, IMP_DEFAULT, 1, m, n, alpha, a.data(), x.data(), T(2), yt.data());
  append(out, yn, yt);
}

// The float kernels and the double loop of the transposed product sum into a
// float scratch of their own.
TEST(Concurrency, MatrixVectorProductsWithTheirScratch) {
  const int m = 150, n = 301;
  const std::vector<float> a = mixed_values<float>(m * n, 2), x = mixed_values<float>(n, 3);
  const std::vector<double> ad = mixed_values<double>(m * n, 4), xd = mixed_values<double>(n, 5);
  expect_alone_bits_in_parallel([&](int t) {
    Bytes out;
    append_products(out, t % 2 ? ISA_AVX : ISA_FMA, m, n, 1.0f + t, a, x);
    append_products(out, ISA_FMA, m, n, 1.0 + t, ad, xd);
    return out;
  });
}

// Conversions through temporary forms and sorts, and splits with their
// count arrays; outputs have room for any of them.
TEST(Concurrency, SparseConversionsAndSplits) {
  const int m = 29, n = 35;
  const std::vector<float> dense = sparse_test::random_dense(m, n, 0.3, 9);
  const sparse_test::Coo coo = sparse_test::random_coo(m, n, 200, 9);
  expect_alone_bits_in_parallel([&](int t) {
    const int blk = 2 + t, nnz = static_cast<int>(coo.nnz()) - t;
    std::vector<int> ptr(m * n + 1), cptr(m * n + 1), cut(blk + 1), row(nnz), col(nnz);
    std::vector<unsigned short> len(m * n), local(m * n), clen(m * n), clocal(m * n);
    std::vector<float> val(m * n), cval(m * n), sorted(nnz);
    nb::sparse_matrix_dense2bcsr<float>(m, n, dense.data(), blk, ptr.data(), len.data(),
                                        local.data(), val.data());
    nb::sparse_matrix_coo2bccs<float>(m, n, nnz, coo.row.data(), coo.col.data(), coo.val.data(),
                                      blk, cptr.data(), clen.data(), clocal.data(), cval.data());
    nb::sparse_matrix_split_coo_lb_nz<float>(m, n, nnz, coo.row.data(), coo.col.data(),
                                             coo.val.data(), blk, t % 2, row.data(), col.data(),
                                             sorted.data(), cut.data());
    Bytes out;
    append(out, ptr, cptr, row, col, cut, len, local, clen, clocal, val, cval, sorted);
    nb::sparse_matrix_split_dense_lb_nz<float>(m, n, dense.data(), blk, t % 2, cut.data());
    append(out, cut);
    return out;
  });
}

// Each call seeds a generator of its own, so there is nothing to compare:
// under ThreadSanitizer the calls must not race, and all values stay in
// [0, 1].
TEST(Concurrency, RandomGenerationKeepsItsStateToTheCall) {
  expect_alone_bits_in_parallel([](int) {
    std::vector<double> v(700);
    nb::x86VectorRandGenerate<double>(v.size(), v.data());
    return Bytes{std::all_of(v.begin(), v.end(), [](double u) { return u >= 0 && u <= 1; })};
  });
}

}  // namespace
