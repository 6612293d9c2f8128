#include <oneapi/dnnl/dnnl.h>

#include "gemm_peers.h"

namespace {

// oneDNN picks its kernels by the highest instruction set it may use; the
// limit must be set before any other call.
bool limit_to_avx2() {
  static const bool limited = dnnl_set_max_cpu_isa(dnnl_cpu_isa_avx2) == dnnl_success;
  return limited;
}

}  // namespace

const char* onednn_kernel_name() {
  if (!limit_to_avx2()) return "could not be limited to avx2";
  switch (dnnl_get_effective_cpu_isa()) {
    case dnnl_cpu_isa_avx2:
      return "jit sgemm, avx2";
    case dnnl_cpu_isa_avx:
      return "jit sgemm, avx";
    default:
      return "jit sgemm, below avx";
  }
}

void onednn_sgemm(const PeerProduct& p, const float* a, const float* b, float* c) {
  limit_to_avx2();
  // Row-major: the row stride is the stored width.
  dnnl_sgemm(p.a_transposed ? 'T' : 'N', p.b_transposed ? 'T' : 'N', p.m, p.n, p.k, p.alpha, a,
             p.a_transposed ? p.m : p.k, b, p.b_transposed ? p.k : p.n, p.beta, c, p.n);
}
