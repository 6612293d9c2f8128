#include <blis.h>

#include "gemm_peers.h"

void blis_sgemm(long size, const float* a, const float* b, float* c) {
  static const bool single_threaded = [] {
    bli_thread_set_num_threads(1);
    return true;
  }();
  (void)single_threaded;
  float one = 1.0f, zero = 0.0f;
  // Row-major: the row stride is `size`, the column stride 1.
  bli_sgemm(BLIS_NO_TRANSPOSE, BLIS_NO_TRANSPOSE, size, size, size, &one, const_cast<float*>(a),
            size, 1, const_cast<float*>(b), size, 1, &zero, c, size, 1);
}
