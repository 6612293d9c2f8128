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

void onednn_sgemm(long m, long n, long k, bool a_transposed, bool b_transposed, const float* a,
                  const float* b, float* c) {
  limit_to_avx2();
  // Row-major: the row stride is the stored width.
  dnnl_sgemm(a_transposed ? 'T' : 'N', b_transposed ? 'T' : 'N', m, n, k, 1.0f, a,
             a_transposed ? m : k, b, b_transposed ? k : n, 0.0f, c, n);
}
