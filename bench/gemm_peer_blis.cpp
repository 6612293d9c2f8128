#include <blis.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "gemm_peers.h"

// BLIS picks its sub-configuration once, at its first initialisation, from
// the processor or from BLIS_ARCH_TYPE, the numeric id that bli_arch_string
// names. On processors it does not know it falls back to generic C kernels,
// so the comparison names the haswell one (8-lane AVX2 with FMA) explicitly.
void blis_use_haswell_kernels() {
  for (int id = 0; id < BLIS_NUM_ARCHS; ++id) {
    if (std::strcmp(bli_arch_string(static_cast<arch_t>(id)), "haswell") == 0) {
      setenv("BLIS_ARCH_TYPE", std::to_string(id).c_str(), 1);
      return;
    }
  }
}

const char* blis_kernel_name() {
  bli_init();
  return bli_arch_string(bli_arch_query_id());
}

void blis_sgemm(const PeerProduct& p, const float* a, const float* b, float* c) {
  static const bool single_threaded = [] {
    bli_thread_set_num_threads(1);
    return true;
  }();
  (void)single_threaded;
  float alpha = p.alpha, beta = p.beta;
  // Row-major storage: the row stride is the stored width, the column
  // stride 1; the flags say which operand is stored transposed.
  bli_sgemm(p.a_transposed ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE,
            p.b_transposed ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE, p.m, p.n, p.k, &alpha,
            const_cast<float*>(a), p.a_transposed ? p.m : p.k, 1, const_cast<float*>(b),
            p.b_transposed ? p.k : p.n, 1, &beta, c, p.n, 1);
}
