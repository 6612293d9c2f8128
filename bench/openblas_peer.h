// The peer BLAS, when one was found at build time, pinned to one thread and
// its AVX2 kernels so that it is compared like for like with the library.
#ifndef NUMBRA_BENCH_OPENBLAS_PEER_H
#define NUMBRA_BENCH_OPENBLAS_PEER_H

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdlib>

#ifdef NUMBRA_BENCH_OPENBLAS
#include <cblas.h>
#endif

namespace numbra_bench {

// The peers choose their kernels and threads when they are loaded, before
// main runs, so the choice is made through the environment of a fresh start
// of this program: OpenBLAS on its Haswell kernels, and one thread for every
// peer, including those threaded by OpenMP (BLIS, oneDNN).
inline void pin_peer_blas(char** argv) {
  if (std::getenv("OMP_NUM_THREADS") == nullptr) {
    setenv("OMP_NUM_THREADS", "1", 1);
    setenv("OPENBLAS_CORETYPE", "Haswell", 1);
    setenv("OPENBLAS_NUM_THREADS", "1", 1);
    execv("/proc/self/exe", argv);
  }
#ifdef NUMBRA_BENCH_OPENBLAS
  openblas_set_num_threads(1);
  benchmark::AddCustomContext("openblas", openblas_get_corename());
#else
  benchmark::AddCustomContext("openblas", "not found at build time, comparison skipped");
#endif
}

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_OPENBLAS_PEER_H
