// Sparse products and conversions. The products run on a random 200000 x
// 200000 matrix with 16 entries a row and on a band of 16, measured in
// GB/s of their index and value streams, the CSR form beside Eigen's
// row-major product. The conversions run on a 4000 x 4000 matrix with 5%
// nonzeros, in time per stored entry; walks of the dense matrix are set
// against a plain streaming read of it.
#include <benchmark/benchmark.h>
#include <immintrin.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "numbra.h"
#include "report.h"
#ifdef NUMBRA_BENCH_EIGEN
#include "sparse_bench_eigen.h"
#endif

namespace nb = ZETL::numbra;

namespace {

constexpr int kProductSize = 200000;
constexpr int kRowEntries = 16;
constexpr int kConversionSize = 4000;
// Wide enough that a band row lies in one block, narrow enough that the
// per-row counts (m * nb of them) stay small.
constexpr int kProductBlock = 4096;

struct Csr {
  int m = 0, n = 0;
  std::vector<int> ptr, idx;
  std::vector<float> val;
  int nnz() const { return static_cast<int>(idx.size()); }
};

struct Block {
  std::vector<int> blockPtr;
  std::vector<unsigned short> len, idx;
  std::vector<float> val;
};

// Row i holds 16 entries: at distinct random columns (random), or at the 16
// columns around i that lie inside the matrix (banded).
Csr product_matrix(bool banded) {
  Csr a;
  a.m = a.n = kProductSize;
  std::mt19937 gen(banded ? 2 : 1);
  std::uniform_int_distribution<int> col(0, kProductSize - 1);
  std::uniform_real_distribution<float> value(0.5f, 1.5f);
  a.ptr.push_back(0);
  std::vector<int> cols;
  for (int i = 0; i < a.m; ++i) {
    cols.clear();
    if (banded) {
      const int first = std::min(std::max(0, i - 8), a.n - kRowEntries);
      for (int j = first; j < first + kRowEntries; ++j) cols.push_back(j);
    } else {
      while (static_cast<int>(cols.size()) < kRowEntries) {
        const int j = col(gen);
        if (std::find(cols.begin(), cols.end(), j) == cols.end()) cols.push_back(j);
      }
      std::sort(cols.begin(), cols.end());
    }
    for (int j : cols) {
      a.idx.push_back(j);
      a.val.push_back(value(gen));
    }
    a.ptr.push_back(a.nnz());
  }
  return a;
}

struct ProductCase {
  Csr csr, ccs;
  Block bcsr;
  std::vector<float> x, y;
};

ProductCase& product_case(bool banded) {
  static std::map<bool, std::unique_ptr<ProductCase>> cache;
  auto& slot = cache[banded];
  if (slot) return *slot;
  slot = std::make_unique<ProductCase>();
  ProductCase& c = *slot;
  c.csr = product_matrix(banded);
  const int m = c.csr.m, n = c.csr.n, nnz = c.csr.nnz();
  std::vector<int> rows(nnz);
  for (int i = 0; i < m; ++i)
    std::fill(rows.begin() + c.csr.ptr[i], rows.begin() + c.csr.ptr[i + 1], i);
  c.ccs.m = m;
  c.ccs.n = n;
  c.ccs.ptr.resize(n + 1);
  c.ccs.idx.resize(nnz);
  c.ccs.val.resize(nnz);
  nb::sparse_matrix_coo2ccs<float>(m, n, nnz, rows.data(), c.csr.idx.data(), c.csr.val.data(),
                                   c.ccs.ptr.data(), c.ccs.idx.data(), c.ccs.val.data());
  unsigned long ptrBytes, lenBytes, idxBytes, valBytes;
  sparse_bcsr_getSize<float>(m, n, nnz, kProductBlock, ptrBytes, lenBytes, idxBytes, valBytes);
  c.bcsr.blockPtr.resize(ptrBytes / 4);
  c.bcsr.len.resize(lenBytes / 2);
  c.bcsr.idx.resize(idxBytes / 2);
  c.bcsr.val.resize(valBytes / 4);
  sparse_csr2bcsr<float>(m, n, nnz, c.csr.ptr.data(), c.csr.idx.data(), c.csr.val.data(),
                         kProductBlock, c.bcsr.blockPtr.data(), c.bcsr.len.data(),
                         c.bcsr.idx.data(), c.bcsr.val.data());
  c.x.resize(n);
  for (int j = 0; j < n; ++j) c.x[j] = 0.5f + static_cast<float>(j % 1000) / 1000.0f;
  c.y.resize(m);
  return c;
}

// Bytes read per iteration, and the stored entries for the time per entry.
void set_traffic(benchmark::State& state, double bytes, double entries) {
  numbra_bench::set_traffic(state, bytes);
  state.counters["elements"] = entries;
}

// A plain read of `bytes`, front to back in one stream as the dense walks
// go: 128-bit loads, four sums in flight.
void stream_read(benchmark::State& state, unsigned long bytes) {
  std::vector<float> data(bytes / sizeof(float), 1.0f);
  for (auto _ : state) {
    __m128 s0 = _mm_setzero_ps(), s1 = s0, s2 = s0, s3 = s0;
    const float* p = data.data();
    for (std::size_t i = 0; i + 16 <= data.size(); i += 16) {
      s0 = _mm_add_ps(s0, _mm_loadu_ps(p + i));
      s1 = _mm_add_ps(s1, _mm_loadu_ps(p + i + 4));
      s2 = _mm_add_ps(s2, _mm_loadu_ps(p + i + 8));
      s3 = _mm_add_ps(s3, _mm_loadu_ps(p + i + 12));
    }
    benchmark::DoNotOptimize(_mm_add_ps(_mm_add_ps(s0, s1), _mm_add_ps(s2, s3)));
  }
  numbra_bench::set_traffic(state, static_cast<double>(bytes));
}

void register_stream_read(unsigned long bytes) {
  static std::map<unsigned long, bool> registered;
  if (registered[bytes]) return;
  registered[bytes] = true;
  auto measure = [bytes](benchmark::State& state) { stream_read(state, bytes); };
  benchmark::RegisterBenchmark(("read/" + std::to_string(bytes)).c_str(), measure)
      ->Unit(benchmark::kMillisecond);
}

// The index and value streams of a product matrix.
double stream_bytes(int index_bytes) {
  return static_cast<double>(kProductSize) * kRowEntries * (index_bytes + 4);
}

void register_products() {
  for (bool banded : {false, true}) {
    const std::string shape = banded ? "(banded)" : "(random)";
    const std::string n = "/" + std::to_string(kProductSize);
    auto add = [&](const std::string& op, const std::string& variant, int index_bytes, auto body) {
      benchmark::RegisterBenchmark((op + shape + "/" + variant + n).c_str(),
                                   [banded, index_bytes, body](benchmark::State& state) {
                                     ProductCase& c = product_case(banded);
                                     for (auto _ : state) body(c);
                                     set_traffic(state, stream_bytes(index_bytes), c.csr.nnz());
                                   })
          ->Unit(benchmark::kMillisecond);
    };
    add("SpmvCsr", "numbra", 4, [](ProductCase& c) {
      nb::x86Spmv_csr<float>(ISA_AVX, IMP_DEFAULT, 1, c.csr.m, c.csr.ptr.data(), c.csr.idx.data(),
                             c.csr.val.data(), c.x.data(), c.y.data());
      benchmark::ClobberMemory();
    });
#ifdef NUMBRA_BENCH_EIGEN
    add("SpmvCsr", "eigen", 4, [](ProductCase& c) {
      eigen_csr_times_vector(c.csr.m, c.csr.n, c.csr.nnz(), c.csr.ptr.data(), c.csr.idx.data(),
                             c.csr.val.data(), c.x.data(), c.y.data());
      benchmark::ClobberMemory();
    });
#endif
    add("SpmvCsrFma", "numbra", 4, [](ProductCase& c) {
      x86SCSRSpmv_fma(c.csr.m, c.csr.ptr.data(), c.csr.idx.data(), c.csr.val.data(), c.x.data(),
                      c.y.data());
      benchmark::ClobberMemory();
    });
    add("SpmvBcsr", "numbra", 2, [](ProductCase& c) {
      nb::x86Spmv_bcsr<float>(ISA_AVX, IMP_DEFAULT, 1, c.csr.m, c.csr.n, kProductBlock,
                              c.bcsr.blockPtr.data(), c.bcsr.len.data(), c.bcsr.idx.data(),
                              c.bcsr.val.data(), c.x.data(), c.y.data());
      benchmark::ClobberMemory();
    });
    add("SpmvCcs", "numbra", 4, [](ProductCase& c) {
      nb::x86Spmv_ccs<float>(ISA_AVX, IMP_DEFAULT, 1, c.ccs.m, c.ccs.n, c.ccs.ptr.data(),
                             c.ccs.idx.data(), c.ccs.val.data(), c.x.data(), c.y.data());
      benchmark::ClobberMemory();
    });
  }
}

// The 4000 x 4000 matrix: dense, and its entries as COO in random order.
struct ConversionCase {
  std::vector<float> dense;
  std::vector<int> row, col;
  std::vector<float> val;
  Csr csr;
};

ConversionCase& conversion_case() {
  static std::unique_ptr<ConversionCase> c;
  if (c) return *c;
  c = std::make_unique<ConversionCase>();
  const int size = kConversionSize;
  c->dense.assign(static_cast<std::size_t>(size) * size, 0.0f);
  std::mt19937 gen(3);
  std::bernoulli_distribution stored(0.05);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) {
      if (!stored(gen)) continue;
      const float v = value(gen);
      c->dense[static_cast<std::size_t>(i) * size + j] = v == 0.0f ? 1.0f : v;
      c->row.push_back(i);
      c->col.push_back(j);
      c->val.push_back(c->dense[static_cast<std::size_t>(i) * size + j]);
    }
  }
  std::vector<std::size_t> order(c->row.size());
  for (std::size_t e = 0; e < order.size(); ++e) order[e] = e;
  std::shuffle(order.begin(), order.end(), gen);
  std::vector<int> row(order.size()), col(order.size());
  std::vector<float> val(order.size());
  for (std::size_t e = 0; e < order.size(); ++e) {
    row[e] = c->row[order[e]];
    col[e] = c->col[order[e]];
    val[e] = c->val[order[e]];
  }
  c->row.swap(row);
  c->col.swap(col);
  c->val.swap(val);
  c->csr.m = c->csr.n = size;
  c->csr.ptr.resize(size + 1);
  c->csr.idx.resize(c->row.size());
  c->csr.val.resize(c->row.size());
  sparse_dense2csr<float>(size, size, c->dense.data(), c->csr.ptr.data(), c->csr.idx.data(),
                          c->csr.val.data());
  return *c;
}

// Output arrays big enough for any form of the conversion matrix.
struct Outputs {
  std::vector<int> ptr, idx;
  std::vector<unsigned short> len, local;
  std::vector<float> val;
};

Outputs& outputs(unsigned long nnz) {
  static Outputs o;
  const std::size_t size = kConversionSize;
  o.ptr.resize(size * size + 1);
  o.idx.resize(nnz);
  o.len.resize(size * size);
  o.local.resize(nnz);
  o.val.resize(nnz);
  return o;
}

void register_conversions() {
  const double dense_bytes = 4.0 * kConversionSize * kConversionSize;
  const std::string n = "/" + std::to_string(kConversionSize);
  // `bytes` is what the conversion must read at least: the dense matrix, or
  // the three COO arrays.
  auto add = [&](const std::string& op, bool from_dense, auto body) {
    benchmark::RegisterBenchmark((op + "/numbra" + n).c_str(), [from_dense, dense_bytes,
                                                                body](benchmark::State& state) {
      ConversionCase& c = conversion_case();
      Outputs& o = outputs(c.row.size());
      for (auto _ : state) body(c, o);
      const double nnz = c.row.size();
      set_traffic(state, from_dense ? dense_bytes : nnz * 12, nnz);
    })->Unit(benchmark::kMillisecond);
  };
  const int s = kConversionSize;
  add("DenseGetNonZeros", true, [s](ConversionCase& c, Outputs&) {
    benchmark::DoNotOptimize(sparse_denseGetNonZeros<float>(s, s, c.dense.data()));
  });
  add("Dense2csr", true, [s](ConversionCase& c, Outputs& o) {
    nb::sparse_matrix_dense2csr<float>(s, s, c.dense.data(), o.ptr.data(), o.idx.data(),
                                       o.val.data());
  });
  add("Dense2ccs", true, [s](ConversionCase& c, Outputs& o) {
    nb::sparse_matrix_dense2ccs<float>(s, s, c.dense.data(), o.ptr.data(), o.idx.data(),
                                       o.val.data());
  });
  add("Coo2csr", false, [s](ConversionCase& c, Outputs& o) {
    nb::sparse_matrix_coo2csr<float>(s, s, c.row.size(), c.row.data(), c.col.data(), c.val.data(),
                                     o.ptr.data(), o.idx.data(), o.val.data());
  });
  add("Coo2ccs", false, [s](ConversionCase& c, Outputs& o) {
    nb::sparse_matrix_coo2ccs<float>(s, s, c.row.size(), c.row.data(), c.col.data(), c.val.data(),
                                     o.ptr.data(), o.idx.data(), o.val.data());
  });
  for (int blk : {4, 16, 64}) {
    const std::string b = "(blk=" + std::to_string(blk) + ")";
    add("Dense2bcsr" + b, true, [s, blk](ConversionCase& c, Outputs& o) {
      nb::sparse_matrix_dense2bcsr<float>(s, s, c.dense.data(), blk, o.ptr.data(), o.len.data(),
                                          o.local.data(), o.val.data());
    });
    add("Csr2bcsr" + b, false, [s, blk](ConversionCase& c, Outputs& o) {
      sparse_csr2bcsr<float>(s, s, c.csr.nnz(), c.csr.ptr.data(), c.csr.idx.data(),
                             c.csr.val.data(), blk, o.ptr.data(), o.len.data(), o.local.data(),
                             o.val.data());
    });
    add("Coo2bcsr" + b, false, [s, blk](ConversionCase& c, Outputs& o) {
      nb::sparse_matrix_coo2bcsr<float>(s, s, c.row.size(), c.row.data(), c.col.data(),
                                        c.val.data(), blk, o.ptr.data(), o.len.data(),
                                        o.local.data(), o.val.data());
    });
  }
  register_stream_read(static_cast<unsigned long>(dense_bytes));
}

}  // namespace

int main(int argc, char** argv) {
#ifndef NUMBRA_BENCH_EIGEN
  std::printf("Eigen3 was not found at build time: the CSR product runs without its peer.\n");
#endif
  register_conversions();
  register_products();
  register_stream_read(static_cast<unsigned long>(stream_bytes(4)));
  register_stream_read(static_cast<unsigned long>(stream_bytes(2)));
  return numbra_bench::run(argc, argv);
}
