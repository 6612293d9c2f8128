/// @file numbra.h
/// @brief libnumbra_mac_x86: numeric kernels for neural-network runtimes on x86
/// with AVX. The whole public interface of the library.
///
/// Conventions shared by every function:
///  - The caller owns every buffer; nothing is validated and nothing is
///    reported. Functions return void or the value they compute.
///  - Dense matrices are row-major: element (i, j) is p[i * ld + j].
///  - Entry points in ZETL::numbra are templates whose float and double
///    instantiations are exported; kernels have plain C names.
///  - ISA_t chooses the instruction set of a dispatching float entry point. The
///    library never queries the processor: ISA_FMA on a processor without FMA
///    and AVX2 faults. Any value other than ISA_AVX and ISA_FMA does no work.
///  - IMP_t is accepted and never read. nthreads is read only by the GEMM
///    workspace sizing functions.
#ifndef NUMBRA_H
#define NUMBRA_H

// The library is built with hidden visibility; only what is marked here is
// exported.
#define NUMBRA_API __attribute__((visibility("default")))

enum ISA_t : int { ISA_AVX = 0, ISA_FMA = 1 };
enum IMP_t : int { IMP_DEFAULT = 0 };

// ---------------------------------------------------------------------------
// Plain-named kernels.
// ---------------------------------------------------------------------------
extern "C" {

// Single-precision GEMM block driver: C = alpha * A * B + beta * C through a
// workspace of 1354752 bytes. Rows inside a block of 336 rows lie n floats
// apart; block origins use ldc.
NUMBRA_API void x86_blas_sgemm_nn_fma(int m, int n, int k, float alpha, float* a, int lda, float* b,
                                      int ldb, float* ws, float beta, float* c, int ldc);
NUMBRA_API void x86_blas_sgemm_nn_avx(int m, int n, int k, float alpha, float* a, int lda, float* b,
                                      int ldb, float* ws, float beta, float* c, int ldc);

// GEMM micro-kernels on packed tiles: c[row * W + j] += sum over l of
// a[row * sa + l] * b[l * W + j], two rows at a time.
NUMBRA_API void sgemm_kernel_fma_k48_n48(float* a, float* b, float* c, int m);
NUMBRA_API void sgemm_kernel_fma_n48(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_fma_n40(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_fma_n32(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_fma_n24(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_fma_n16(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_fma_n8(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_avx_k48_n48(float* a, float* b, float* c, int m);
NUMBRA_API void sgemm_kernel_avx_n48(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_avx_n40(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_avx_n32(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_avx_n24(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_avx_n16(float* a, float* b, float* c, int m, int k);
NUMBRA_API void sgemm_kernel_avx_n8(float* a, float* b, float* c, int m, int k);

// Skinny product with a transposed B: C = alpha * A * B' + beta * C.
NUMBRA_API void sgemm_nt_fma(int m, int n, int k, float alpha, int lda, const float* a,
                             int pack_stride, float* scratch, int ldb, const float* b, float beta,
                             int ldc, float* c);
NUMBRA_API void sgemm_nt_avx(int m, int n, int k, float alpha, int lda, const float* a,
                             int pack_stride, float* scratch, int ldb, const float* b, float beta,
                             int ldc, float* c);

// GEMV kernels on a packed row-major matrix of m rows of n.
NUMBRA_API void x86_blas_sgemv_n_fma(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
NUMBRA_API void x86_blas_sgemv_n_avx(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
NUMBRA_API void x86_blas_sgemv_t_fma(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
NUMBRA_API void x86_blas_sgemv_t_avx(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);

// Prelu over batch blocks of channels planes of dim elements.
NUMBRA_API void x86_cnn_prelu_avx(bool channel_shared, unsigned long dim, int channels, int batch,
                                  const float* x, const float* slope, float* y);

// Sparse matrix-vector products y = A * x.
NUMBRA_API void x86SCSRSpmv_unroll(int m, const int* rowPtr, const int* colIdx, const float* val,
                                   const float* x, float* y);
NUMBRA_API void x86SCSRSpmv_fma(int m, const int* rowPtr, const int* colIdx, const float* val,
                                const float* x, float* y);
NUMBRA_API void x86SBCSRSpmv_unroll(int m, int n, int blk, const int* blockPtr,
                                    const unsigned short* rowLen, const unsigned short* colIdx,
                                    const float* val, const float* x, float* y);
NUMBRA_API void x86SBCSRSpmv_fma(int m, int n, int blk, const int* blockPtr,
                                 const unsigned short* rowLen, const unsigned short* colIdx,
                                 const float* val, const float* x, float* y);
NUMBRA_API void x86SCCSSpmv_unroll(int m, int n, const int* colPtr, const int* rowIdx,
                                   const float* val, const float* x, float* y);
NUMBRA_API void x86SBCCSSpmv_unroll(int m, int n, int blk, const int* blockPtr,
                                    const unsigned short* colLen, const unsigned short* rowIdx,
                                    const float* val, const float* x, float* y);

}  // extern "C"

// ---------------------------------------------------------------------------
// Global templates: the Relu kernel and the sparse storage layer (float only).
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void vectorRelu_avx(unsigned long n, T alpha, const T* x, T beta, T* y);

// Counting and sizing; every size is in bytes.
template <typename T>
NUMBRA_API unsigned long sparse_denseGetNonZeros(int m, int n, const T* a);
template <typename T>
NUMBRA_API void sparse_csr_getSize(int m, int n, unsigned long nnz, unsigned long& rowPtrBytes,
                                   unsigned long& colIdxBytes, unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_ccs_getSize(int m, int n, unsigned long nnz, unsigned long& colPtrBytes,
                                   unsigned long& rowIdxBytes, unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_bcsr_getSize(int m, int n, unsigned long nnz, int blk,
                                    unsigned long& blockPtrBytes, unsigned long& rowLenBytes,
                                    unsigned long& colIdxBytes, unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_bccs_getSize(int m, int n, unsigned long nnz, int blk,
                                    unsigned long& blockPtrBytes, unsigned long& colLenBytes,
                                    unsigned long& rowIdxBytes, unsigned long& valBytes);

// Conversions to the compressed forms; order 0 sorts by rows, else by columns.
template <typename T>
NUMBRA_API void coo_sort(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                         const T* cooVal, int* outRow, int* outCol, T* outVal, int order);
template <typename T>
NUMBRA_API void sparse_dense2csr(int m, int n, const T* a, int* rowPtr, int* colIdx, T* val);
template <typename T>
NUMBRA_API void sparse_dense2ccs(int m, int n, const T* a, int* colPtr, int* rowIdx, T* val);
template <typename T>
NUMBRA_API void sparse_coo2csr(int m, int n, unsigned long nnz, const int* cooRow,
                               const int* cooCol, const T* cooVal, int* rowPtr, int* colIdx,
                               T* val);
template <typename T>
NUMBRA_API void sparse_coo2ccs(int m, int n, unsigned long nnz, const int* cooRow,
                               const int* cooCol, const T* cooVal, int* colPtr, int* rowIdx,
                               T* val);

// Conversions to the block forms.
template <typename T>
NUMBRA_API void sparse_csr2bcsr(int m, int n, unsigned long nnz, int* rowPtr, int* colIdx, T* val,
                                int blk, int* blockPtr, unsigned short* rowLen,
                                unsigned short* outColIdx, T* outVal);
template <typename T>
NUMBRA_API void sparse_ccs2bccs(int m, int n, unsigned long nnz, int* colPtr, int* rowIdx, T* val,
                                int blk, int* blockPtr, unsigned short* colLen,
                                unsigned short* outRowIdx, T* outVal);
template <typename T>
NUMBRA_API void sparse_dense2bcsr(int m, int n, const T* a, int blk, int* blockPtr,
                                  unsigned short* rowLen, unsigned short* outColIdx, T* outVal);
template <typename T>
NUMBRA_API void sparse_dense2bccs(int m, int n, const T* a, int blk, int* blockPtr,
                                  unsigned short* colLen, unsigned short* outRowIdx, T* outVal);
template <typename T>
NUMBRA_API void sparse_coo2bcsr(int m, int n, unsigned long nnz, const int* cooRow,
                                const int* cooCol, const T* cooVal, int blk, int* blockPtr,
                                unsigned short* rowLen, unsigned short* outColIdx, T* outVal);
template <typename T>
NUMBRA_API void sparse_coo2bccs(int m, int n, unsigned long nnz, const int* cooRow,
                                const int* cooCol, const T* cooVal, int blk, int* blockPtr,
                                unsigned short* colLen, unsigned short* outRowIdx, T* outVal);

// Splits of a matrix into parts of about equal nonzero counts.
NUMBRA_API void sparse_split_idx_getSize(int parts, unsigned long& idxBytes);
template <typename T>
NUMBRA_API void sparse_split_dense_lb_nz(int m, int n, const T* a, int parts, int dim, int* idx);
template <typename T>
NUMBRA_API void sparse_split_coo_lb_nz(int m, int n, unsigned long nnz, const int* cooRow,
                                       const int* cooCol, const T* cooVal, int parts, int dim,
                                       int* outRow, int* outCol, T* outVal, int* idx);
template <typename T>
NUMBRA_API void sparse_split_csr_lb_nz(int m, int n, unsigned long nnz, const int* rowPtr,
                                       const int* colIdx, const T* val, int parts, int dim,
                                       int* idx);
template <typename T>
NUMBRA_API void sparse_split_ccs_lb_nz(int m, int n, unsigned long nnz, const int* colPtr,
                                       const int* rowIdx, const T* val, int parts, int dim,
                                       int* idx);

namespace ZETL {
namespace numbra {

// ---------------------------------------------------------------------------
// Dense matrix multiply: C = alpha * op(A) * op(B) + beta * C.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86Gemm_nn(ISA_t isa, IMP_t imp, int nthreads, unsigned long m, unsigned long n,
                           unsigned long k, T alpha, unsigned long lda, const T* a,
                           unsigned long ldb, const T* b, T* ws, T beta, unsigned long ldc, T* c);
template <typename T>
NUMBRA_API void x86Gemm_tn(ISA_t isa, IMP_t imp, int nthreads, unsigned long m, unsigned long n,
                           unsigned long k, T alpha, unsigned long lda, const T* a,
                           unsigned long ldb, const T* b, T* ws, T beta, unsigned long ldc, T* c);
template <typename T>
NUMBRA_API void x86Gemm_nt(ISA_t isa, IMP_t imp, int nthreads, unsigned long m, unsigned long n,
                           unsigned long k, T alpha, unsigned long lda, const T* a,
                           unsigned long ldb, const T* b, T* ws, T beta, unsigned long ldc, T* c);
template <typename T>
NUMBRA_API void x86Gemm_tt(ISA_t isa, IMP_t imp, int nthreads, unsigned long m, unsigned long n,
                           unsigned long k, T alpha, unsigned long lda, const T* a,
                           unsigned long ldb, const T* b, T* ws, T beta, unsigned long ldc, T* c);

// Workspace bytes for nthreads workers; the dimensions are not read.
template <typename T>
NUMBRA_API unsigned long x86GemmNNGetSize(int nthreads, unsigned long m, unsigned long n,
                                          unsigned long k, unsigned long lda, unsigned long ldb,
                                          unsigned long ldc);
template <typename T>
NUMBRA_API unsigned long x86GemmNTGetSize(int nthreads, unsigned long m, unsigned long n,
                                          unsigned long k, unsigned long lda, unsigned long ldb,
                                          unsigned long ldc);
template <typename T>
NUMBRA_API unsigned long x86GemmTNGetSize(int nthreads, unsigned long m, unsigned long n,
                                          unsigned long k, unsigned long lda, unsigned long ldb,
                                          unsigned long ldc);
template <typename T>
NUMBRA_API unsigned long x86GemmTTGetSize(int nthreads, unsigned long m, unsigned long n,
                                          unsigned long k, unsigned long lda, unsigned long ldb,
                                          unsigned long ldc);

// ---------------------------------------------------------------------------
// Matrix-vector products on a packed m by n matrix.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86MatrixGemv_n(ISA_t isa, IMP_t imp, int nthreads, unsigned long m,
                                unsigned long n, T alpha, const T* a, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixGemv_t(ISA_t isa, IMP_t imp, int nthreads, unsigned long m,
                                unsigned long n, T alpha, const T* a, const T* x, T beta, T* y);

// ---------------------------------------------------------------------------
// Activations.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86VectorRelu(ISA_t isa, IMP_t imp, unsigned long n, T alpha, const T* x, T beta,
                              T* y);
template <typename T>
NUMBRA_API void x86VectorReluBackward(unsigned long n, T alpha, const T* x, const T* g, T beta,
                                      T* y);
template <typename T>
NUMBRA_API void x86VectorPrelu(bool channel_shared, unsigned long n, unsigned long dim,
                               int channels, int batch, T alpha, const T* x, const T* slope, T beta,
                               T* y);
template <typename T>
NUMBRA_API void x86VectorPreluBackward(bool channel_shared, unsigned long n, unsigned long dim,
                                       int channels, T alpha, const T* x, const T* slope,
                                       const T* g, T beta, T* y);

// ---------------------------------------------------------------------------
// Sparse storage interface (float only), forwarding to the global layer.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void sparse_matrix_dense2csr_getSize(int m, int n, const T* a, unsigned long& nnz,
                                                unsigned long& rowPtrBytes,
                                                unsigned long& colIdxBytes,
                                                unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_matrix_dense2ccs_getSize(int m, int n, const T* a, unsigned long& nnz,
                                                unsigned long& colPtrBytes,
                                                unsigned long& rowIdxBytes,
                                                unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_matrix_dense2bcsr_getSize(int m, int n, const T* a, int blk,
                                                 unsigned long& nnz, unsigned long& blockPtrBytes,
                                                 unsigned long& rowLenBytes,
                                                 unsigned long& colIdxBytes,
                                                 unsigned long& valBytes);
// The matrix parameter is spelled const float* here, unlike its siblings;
// the spelling is part of the exported symbol.
template <typename T>
NUMBRA_API void sparse_matrix_dense2bccs_getSize(int m, int n, const float* a, int blk,
                                                 unsigned long& nnz, unsigned long& blockPtrBytes,
                                                 unsigned long& colLenBytes,
                                                 unsigned long& rowIdxBytes,
                                                 unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_matrix_coo2csr_getSize(int m, int n, unsigned long nnz,
                                              unsigned long& rowPtrBytes,
                                              unsigned long& colIdxBytes, unsigned long& valBytes);
// Sizes its pointer array from m, like the CSR call.
template <typename T>
NUMBRA_API void sparse_matrix_coo2ccs_getSize(int m, int n, unsigned long nnz,
                                              unsigned long& colPtrBytes,
                                              unsigned long& rowIdxBytes, unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_matrix_coo2bcsr_getSize(int m, int n, unsigned long nnz, int blk,
                                               unsigned long& blockPtrBytes,
                                               unsigned long& rowLenBytes,
                                               unsigned long& colIdxBytes, unsigned long& valBytes);
template <typename T>
NUMBRA_API void sparse_matrix_coo2bccs_getSize(int m, int n, unsigned long nnz, int blk,
                                               unsigned long& blockPtrBytes,
                                               unsigned long& colLenBytes,
                                               unsigned long& rowIdxBytes, unsigned long& valBytes);

template <typename T>
NUMBRA_API void sparse_matrix_dense2csr(int m, int n, const T* a, int* rowPtr, int* colIdx, T* val);
template <typename T>
NUMBRA_API void sparse_matrix_dense2ccs(int m, int n, const T* a, int* colPtr, int* rowIdx, T* val);
template <typename T>
NUMBRA_API void sparse_matrix_coo2csr(int m, int n, unsigned long nnz, const int* cooRow,
                                      const int* cooCol, const T* cooVal, int* rowPtr, int* colIdx,
                                      T* val);
template <typename T>
NUMBRA_API void sparse_matrix_coo2ccs(int m, int n, unsigned long nnz, const int* cooRow,
                                      const int* cooCol, const T* cooVal, int* colPtr, int* rowIdx,
                                      T* val);
template <typename T>
NUMBRA_API void sparse_matrix_dense2bcsr(int m, int n, const T* a, int blk, int* blockPtr,
                                         unsigned short* rowLen, unsigned short* outColIdx,
                                         T* outVal);
template <typename T>
NUMBRA_API void sparse_matrix_dense2bccs(int m, int n, const T* a, int blk, int* blockPtr,
                                         unsigned short* colLen, unsigned short* outRowIdx,
                                         T* outVal);
template <typename T>
NUMBRA_API void sparse_matrix_coo2bcsr(int m, int n, unsigned long nnz, const int* cooRow,
                                       const int* cooCol, const T* cooVal, int blk, int* blockPtr,
                                       unsigned short* rowLen, unsigned short* outColIdx,
                                       T* outVal);
template <typename T>
NUMBRA_API void sparse_matrix_coo2bccs(int m, int n, unsigned long nnz, const int* cooRow,
                                       const int* cooCol, const T* cooVal, int blk, int* blockPtr,
                                       unsigned short* colLen, unsigned short* outRowIdx,
                                       T* outVal);

NUMBRA_API void sparse_matrix_split_idx_getSize(int parts, unsigned long& idxBytes);
template <typename T>
NUMBRA_API void sparse_matrix_split_dense_lb_nz(int m, int n, const T* a, int parts, int dim,
                                                int* idx);
template <typename T>
NUMBRA_API void sparse_matrix_split_coo_lb_nz(int m, int n, unsigned long nnz, const int* cooRow,
                                              const int* cooCol, const T* cooVal, int parts,
                                              int dim, int* outRow, int* outCol, T* outVal,
                                              int* idx);
template <typename T>
NUMBRA_API void sparse_matrix_split_csr_lb_nz(int m, int n, unsigned long nnz, const int* rowPtr,
                                              const int* colIdx, const T* val, int parts, int dim,
                                              int* idx);
template <typename T>
NUMBRA_API void sparse_matrix_split_ccs_lb_nz(int m, int n, unsigned long nnz, const int* colPtr,
                                              const int* rowIdx, const T* val, int parts, int dim,
                                              int* idx);

// ---------------------------------------------------------------------------
// Sparse products.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86Spmv_csr(ISA_t isa, IMP_t imp, int nthreads, int m, const int* rowPtr,
                            const int* colIdx, const T* val, const T* x, T* y);
template <typename T>
NUMBRA_API void x86Spmv_bcsr(ISA_t isa, IMP_t imp, int nthreads, int m, int n, int blk,
                             const int* blockPtr, const unsigned short* rowLen,
                             const unsigned short* colIdx, const T* val, const T* x, T* y);
template <typename T>
NUMBRA_API void x86Spmv_ccs(ISA_t isa, IMP_t imp, int nthreads, int m, int n, const int* colPtr,
                            const int* rowIdx, const T* val, const T* x, T* y);
template <typename T>
NUMBRA_API void x86Spmv_bccs(ISA_t isa, IMP_t imp, int nthreads, int m, int n, int blk,
                             const int* blockPtr, const unsigned short* colLen,
                             const unsigned short* rowIdx, const T* val, const T* x, T* y);

// trans 0: y = alpha * A * x + beta * y; otherwise y = alpha * A' * x + beta * y.
template <typename T>
NUMBRA_API void x86SparseMatrixGemv(int m, int n, int trans, T alpha, const int* rowPtr,
                                    const int* colIdx, const T* val, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86SparseVectorAxpy(unsigned long n, T alpha, const int* sparseIdx,
                                    const T* sparseVal, T* y);

// ---------------------------------------------------------------------------
// Matrix layout.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86MatrixTranspose(int nthreads, unsigned long m, unsigned long n,
                                   unsigned long lda, const T* a, unsigned long ldb, T* b);

// c = alpha * op(a) + beta * op(b); a zero beta leaves b unread.
template <typename T>
NUMBRA_API void x86Geam_nn(int nthreads, unsigned long m, unsigned long n, T alpha,
                           unsigned long lda, const T* a, T beta, unsigned long ldb, const T* b,
                           unsigned long ldc, T* c);
template <typename T>
NUMBRA_API void x86Geam_tn(int nthreads, unsigned long m, unsigned long n, T alpha,
                           unsigned long lda, const T* a, T beta, unsigned long ldb, const T* b,
                           unsigned long ldc, T* c);
template <typename T>
NUMBRA_API void x86Geam_nt(int nthreads, unsigned long m, unsigned long n, T alpha,
                           unsigned long lda, const T* a, T beta, unsigned long ldb, const T* b,
                           unsigned long ldc, T* c);
template <typename T>
NUMBRA_API void x86Geam_tt(int nthreads, unsigned long m, unsigned long n, T alpha,
                           unsigned long lda, const T* a, T beta, unsigned long ldb, const T* b,
                           unsigned long ldc, T* c);

// ---------------------------------------------------------------------------
// Element-wise arithmetic on vectors of n elements. Elements are computed in
// ascending order, so overlapping operands give what that loop gives.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86VectorAxpy(unsigned long n, T alpha, const T* x, T* y);
template <typename T>
NUMBRA_API void x86VectorAxpb(unsigned long n, T alpha, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86VectorAxpby(unsigned long n, T alpha, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86VectorAdd(unsigned long n, const T* x, const T* y, T* z);
template <typename T>
NUMBRA_API void x86VectorAddScalar(unsigned long n, const T* x, T alpha, T* y);
template <typename T>
NUMBRA_API void x86VectorCopy(unsigned long n, const T* x, T* y);
template <typename T>
NUMBRA_API void x86VectorDiv(unsigned long n, const T* x, const T* y, T* z);
template <typename T>
NUMBRA_API void x86VectorMla(unsigned long n, const T* x, const T* y, T* z);
template <typename T>
NUMBRA_API void x86VectorMls(unsigned long n, const T* x, const T* y, T* z);
template <typename T>
NUMBRA_API void x86VectorMul(unsigned long n, const T* x, const T* y, T* z);
template <typename T>
NUMBRA_API void x86VectorMulScalar(unsigned long n, const T* x, T alpha, T* y);
template <typename T>
NUMBRA_API void x86VectorSwap(unsigned long n, T alpha, T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86VectorSqure(unsigned long n, const T* x, T* y);
template <typename T>
NUMBRA_API void x86VectorSubtract(unsigned long n, const T* x, const T* y, T* z);

// Fills: y[i] = v, and y[i] = v[i mod N] with the pattern read at each store.
template <typename T>
NUMBRA_API void x86VectorFillScalar(unsigned long n, T v, T* y);
template <typename T, int N>
NUMBRA_API void x86VectorFillVector(unsigned long n, const T* v, T* y);

// Serial reductions. The extreme values start from the float limits
// 2^-126 (maximum) and FLT_MAX (minimum), in both precisions.
template <typename T>
NUMBRA_API T x86VectorSum(unsigned long n, const T* x);
template <typename T>
NUMBRA_API T x86VectorDot(unsigned long n, const T* x);
template <typename T>
NUMBRA_API T x86VectorMax(unsigned long n, const T* x);
template <typename T>
NUMBRA_API void x86VectorMaxMin(unsigned long n, const T* x, T* lo, T* hi);

// Transcendental operators.
template <typename T>
NUMBRA_API void x86VectorExp(unsigned long n, const T* x, T* y);
template <typename T>
NUMBRA_API void x86VectorPower(unsigned long n, const T* x, T p, T* y);
template <typename T>
NUMBRA_API void x86VectorSigmoid(unsigned long n, T alpha, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86VectorSigmoidBackward(unsigned long n, T alpha, const T* s, const T* g, T beta,
                                         T* y);
template <typename T>
NUMBRA_API void x86VectorTanh(unsigned long n, T alpha, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86VectorTanhBackward(unsigned long n, T alpha, const T* t, const T* g, T beta,
                                      T* y);
template <typename T>
NUMBRA_API T x86ScalarSigmoid(T x);

// Random generation, mask-and-scale and split backward.
template <typename T>
NUMBRA_API void x86VectorRandGenerate(unsigned long n, T* y);
template <typename T>
NUMBRA_API void x86VectorMaskAndScale(unsigned long n, const T* mask, T alpha, const T* x,
                                      T threshold, T scale, T beta, T* y);
template <typename T>
NUMBRA_API void x86VectorSplitBackward(unsigned long n, T alpha, const T* a, const T* b, T beta,
                                       T* y);

// ---------------------------------------------------------------------------
// Row and column operators on m by n matrices.
// ---------------------------------------------------------------------------
template <typename T>
NUMBRA_API void x86MatrixSumByRow(int nthreads, unsigned long m, unsigned long n, unsigned long lda,
                                  T alpha, const T* a, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixGetSum(int nthreads, unsigned long m, unsigned long n, T alpha, const T* a,
                                T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixBatchSumByRow(int nthreads, unsigned long m, unsigned long n,
                                       unsigned long lda, unsigned long batch, T alpha, const T* a,
                                       T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixSumByCol(int nthreads, unsigned long m, unsigned long n, unsigned long lda,
                                  T alpha, const T* a, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixAvgByRow(int nthreads, unsigned long m, unsigned long n, unsigned long lda,
                                  T alpha, const T* a, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixProbByRow(int nthreads, unsigned long m, unsigned long n,
                                   unsigned long lda, T alpha, const T* a, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixSubMaxByRow(int nthreads, unsigned long m, unsigned long n,
                                     unsigned long lda, const T* a, T* y);
template <typename T>
NUMBRA_API void x86MatrixAddVectorByRow(int nthreads, unsigned long m, unsigned long n,
                                        unsigned long lda, T alpha, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixAddVectorByCol(int nthreads, unsigned long m, unsigned long n,
                                        unsigned long lda, T alpha, const T* x, T beta, T* y);

}  // namespace numbra
}  // namespace ZETL

#endif  // NUMBRA_H
