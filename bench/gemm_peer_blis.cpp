#include <blis.h>

#include "gemm_peers.h"

void blis_sgemm(long m, long n, long k, bool a_transposed, bool b_transposed, const float* a,
                const float* b, float* c) {
  static const bool single_threaded = [] {
    bli_thread_set_num_threads(1);
    return true;
  }();
  (void)single_threaded;
  float one = 1.0f, zero = 0.0f;
  // Row-major storage: the row stride is the stored width, the column
  // stride 1; the flags say which operand is stored transposed.
  bli_sgemm(a_transposed ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE,
            b_transposed ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE, m, n, k, &one, const_cast<float*>(a),
            a_transposed ? m : k, 1, const_cast<float*>(b), b_transposed ? k : n, 1, &zero, c, n,
            1);
}
