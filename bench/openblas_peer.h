// The peer BLAS, when one was found at build time, pinned to one thread and
// its AVX2 kernels so that it is compared like for like with the library.
#ifndef NUMBRA_BENCH_OPENBLAS_PEER_H
#define NUMBRA_BENCH_OPENBLAS_PEER_H

#include <benchmark/benchmark.h>

#ifdef NUMBRA_BENCH_OPENBLAS
#include <unistd.h>

#include <cblas.h>
#include <cstdlib>
#endif

namespace numbra_bench {

// The peer chooses its kernels and threads when it is loaded, before main
// runs, so the choice is made through the environment of a fresh start of
// this program.
inline void pin_peer_blas(char** argv) {
#ifdef NUMBRA_BENCH_OPENBLAS
  if (std::getenv("OPENBLAS_CORETYPE") == nullptr) {
    setenv("OPENBLAS_CORETYPE", "Haswell", 1);
    setenv("OPENBLAS_NUM_THREADS", "1", 1);
    execv("/proc/self/exe", argv);
  }
  openblas_set_num_threads(1);
  benchmark::AddCustomContext("openblas", openblas_get_corename());
#else
  (void)argv;
  benchmark::AddCustomContext("openblas", "not found at build time, comparison skipped");
#endif
}

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_OPENBLAS_PEER_H
