/// @file numbra.h
/// @brief libnumbra_mac_x86: numeric kernels for neural-network runtimes on x86
/// with AVX. The whole public interface of the library.
///
/// Each function below states what a caller needs to reproduce its bits and to
/// call it safely. These conventions hold for every function unless its own text
/// says otherwise.
///
/// - **Ownership and failures.** The caller owns every buffer. Nothing is
///   validated and nothing is reported: functions return void or the value they
///   compute. A null pointer or a short buffer ends in a memory fault, a zero
///   divisor argument (`blk`, `parts`, `dim`, `channels`) in the processor's
///   divide fault. The library throws nothing of its own; only the standard
///   library's exceptions can pass through coo_sort (and the COO conversions and
///   split that use it) and x86VectorRandGenerate.
/// - **Layout.** Dense matrices are row-major: element (i, j) is `p[i * ld + j]`,
///   strides in elements. Functions without a stride argument take the row
///   stride to be the number of columns. No function needs aligned memory.
/// - **Instruction set.** ISA_t chooses the kernel of a dispatching `float` entry
///   point: it is compared with ISA_FMA, then with ISA_AVX, and any other value
///   does no work and leaves the output as it was. The library never queries the
///   processor: ISA_FMA on a processor without FMA and AVX2 ends in an
///   illegal-instruction fault. `double` instantiations are plain loops that
///   ignore ISA_t. Functions without a selector need AVX, except
///   sparse_denseGetNonZeros, sparse_dense2bcsr, sparse_dense2bccs and
///   sparse_split_dense_lb_nz (and the forwards that reach them), which use AVX2.
/// - **IMP_t and nthreads.** IMP_t is never read. `nthreads` is read only by the
///   four GEMM workspace sizing functions; the library starts no thread, and
///   every other function ignores the argument (0 is a fine value).
/// - **Counts.** The namespace entry points take `unsigned long` counts and hand
///   them unchanged to `int` kernels: a count above INT_MAX arrives negative and
///   a kernel treats a negative count as an empty range, unless it says otherwise.
/// - **Rounding.** Every product, sum and quotient is rounded to its type on its
///   own, in the order a function states. Only the main vector steps of the
///   `_fma` kernels are fused; tails, lane reductions and the final blend with
///   alpha and beta are separate multiplies and adds in both twins of a kernel
///   pair. Functions without an ISA_t never fuse.
/// - **Zero-beta rule.** A function that follows it stores `r + t` for each
///   element, where r is its result (with alpha in the place the function
///   states) and `t = old * beta` when beta compares unequal to zero, else `t =
///   +0`. +0 and -0 are zero; NaN is not. With a zero beta the old output is not
///   read, so it may be uninitialised or NaN, and since +0 is still added a -0
///   result comes out as +0. A NaN beta makes every element NaN. alpha is never
///   tested: 0 or 1 is multiplied like any other value.
/// - **Element rule** of the vector and row/column operators: `n` of 0 reads and
///   stores nothing; elements go in ascending order, each stored before the next
///   is read, so overlapping operands give what that ascending loop gives; sums
///   have one accumulator of type T, in ascending order, with no lanes.
/// - **Allocation.** Only the functions that say so allocate, and each says what a
///   failed allocation does. Nothing is kept between calls.
/// - **Concurrency.** No state, locks or threads: concurrent calls are safe when
///   their outputs, workspaces and scratch are disjoint.
#ifndef NUMBRA_H
#define NUMBRA_H

/// Marks a declaration as exported. The library is built with hidden visibility;
/// exactly the functions declared with this mark are exported.
#define NUMBRA_API __attribute__((visibility("default")))

/// Instruction set of a dispatching `float` entry point, chosen by the caller:
/// the library never asks the processor. ISA_AVX (0) selects kernels with a
/// separate multiply and add that need AVX only; ISA_FMA (1) selects kernels with
/// fused multiply-adds that may also use AVX2, and faults on a processor without
/// them. Any other value is legal and makes a dispatching `float` entry point do
/// no work.
enum ISA_t : int { ISA_AVX = 0, ISA_FMA = 1 };
/// Implementation selector, part of the signature of the dispatching entry points
/// only. No code reads it; any value gives the same result.
enum IMP_t : int { IMP_DEFAULT = 0 };

// ---------------------------------------------------------------------------
// Plain-named kernels.
// ---------------------------------------------------------------------------
extern "C" {

///@{
/// @brief Single-precision block driver: `C = alpha * A * B + beta * C`, A `m` by
/// `k` at stride `lda`, B `k` by `n` at stride `ldb`, through a caller's workspace.
///
/// - **Arithmetic.** Each element of C is the plain sequential sum, from +0 over
///   l = 0, 1, ..., k-1 in ascending order, of `a(i,l) * b(l,j)`: with `_fma` a
///   chain of fused multiply-adds rounded once each, with `_avx` a rounded
///   product and a rounded add per step. The sum is held in `float` between
///   blocks, so no blocking changes its bits. alpha and beta are applied once per
///   element at the end, unfused, by nearness tests of the two scalars:
///   "near one" is `|x + (-1.0f)| < 1e-30` and "near zero" is `|x| < 1e-30`, both
///   compared in `double` (so in practice x == 1, and a beta of 1e-31 counts as
///   zero; NaN passes neither). The stored element is, by alpha then beta:
///   near one/near one `s + c`; near one/near zero `s` (bit copy, C not read);
///   near one/other `beta * c + s`; other/near one `alpha * s + c`;
///   other/near zero `alpha * s` (C not read); otherwise `alpha * s + beta * c`.
/// - **Strides of C (deliberate).** Work goes in blocks of 336 rows, columns and
///   depth. A block at row i0, column j0 starts at `c + i0 * ldc + j0`, but rows
///   inside a block lie `n` floats apart, not `ldc`. With `ldc == n` this is plain
///   row-major C; a matrix of at most 336 rows never uses `ldc` at all.
/// - **Workspace** `ws`: 1354752 bytes (room for three blocks of 336 x 336
///   floats), `float` alignment, need not be initialised, holds nothing useful
///   afterwards; concurrent calls need separate workspaces.
/// - **Overlap.** When C overlaps A or B, the result is that of the block order:
///   row blocks top to bottom, column blocks left to right, each block reading
///   its pieces of A and B before it is written, so later blocks read what
///   earlier ones wrote.
/// - **Reads.** `a` and `b` only when k > 0. Each element of C is written once.
///   `m` or `n` of 0 or below touches nothing; `k` of 0 or below gives
///   `alpha * 0` blended as above (NaN for an infinite alpha). Negative counts
///   behave as zero. Nothing is allocated.
NUMBRA_API void x86_blas_sgemm_nn_fma(int m, int n, int k, float alpha, float* a, int lda, float* b,
                                      int ldb, float* ws, float beta, float* c, int ldc);
NUMBRA_API void x86_blas_sgemm_nn_avx(int m, int n, int k, float alpha, float* a, int lda, float* b,
                                      int ldb, float* ws, float beta, float* c, int ldc);
///@}

///@{
/// @brief GEMM micro-kernels on packed tiles: `c[row * W + j] += sum over l of
/// a[row * sa + l] * b[l * W + j]`, W being the width in the name (48 to 8).
///
/// - **Shape.** Depth is 48 for `_k48_n48` and `k` for the others; the row stride
///   `sa` of `a` is 48 for `_k48_n48` and `k` for the others; `b` and `c` have
///   rows of W floats. Rows go in pairs r, r+1 for r = 0, 2, ... while r < m, so
///   an odd `m` also updates row `m`.
/// - **Arithmetic.** Each element's accumulator is loaded from `c`, takes its
///   products for l ascending, and is stored once: `_fma` adds each product with
///   one fused multiply-add (one rounding), `_avx` rounds the product and then
///   the sum. The twins differ in nothing else. The result adds to what `c`
///   held: zero `c` first for a plain product. `_n48` with k = 48 gives the bits
///   of `_k48_n48`.
/// - **Reads and writes.** `a` and `b` are only read. `m` of 0 or less touches
///   nothing; `k` of 0 or less leaves `c` as it was. No alignment, no allocation.
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
///@}

///@{
/// @brief Skinny product with a transposed B: `C = alpha * A * B^T + beta * C`,
/// A `m` rows of `k`, B `n` rows of `k`, C `m` by `n` at stride `ldc`.
///
/// Element (i, j) is the dot product of row i of A with row j of B, found by a
/// row stage chosen per block of rows: all full blocks of four rows first (tiles
/// of 4 rows x 2 columns, main step 24 columns of depth), then the 1 to 3 rows
/// left over as one block (3 x 3 or 2 x 4 tiles with a main step of 8, or the
/// single-row stage: 1 x 4 tiles, main step 16).
///
/// - **Tile arithmetic.** Eight lanes per element take the main-step columns
///   (lane l the columns with kk mod 8 == l), from +0: `_fma` with one fused
///   multiply-add per step, `_avx` with a rounded product and a rounded add. The
///   rest of the depth (up to 23 columns in the 4-row stage, 15 in the 1-row
///   stage, 7 otherwise) is a separate unfused tail sum from +0. The lanes are
///   reduced as `((l0+l1)+(l2+l3))+((l4+l5)+(l6+l7))`, then `s = tail + lanes`.
/// - **Leftover columns** (`n & 1` of the 4-row stage, `n mod 3`, `n & 3`, and in
///   the single-row stage all columns from `n & ~31` on, even when they would fill
///   a tile) are plain scalar dot products from +0, unfused, so they round
///   differently from tile columns by design.
/// - **Output.** `c = s * alpha + beta * c` when beta compares unequal to zero,
///   else `s * alpha + 0` with `c` not read (the zero-beta rule), unfused in both
///   twins.
/// - **Stride quirks (deliberate).** The true product needs `lda == k` and
///   `ldb == k`; with other strides these exact elements are read: packing reads
///   rows of A at stride `lda`, but the 4-row tail and the leftover columns read
///   row r of a block at `a[i * lda + r * k + kk]`; the rows before the single-row
///   stage read B at stride `ldb`, the single-row stage at stride `k` (it ignores
///   `ldb`) and reads A directly.
/// - **Scratch.** `scratch` holds the packed rows of the current block:
///   `k / 8` blocks of eight columns plus one for the last `k mod 8`,
///   `pack_stride` floats apart, rows 8 floats apart; with `pack_stride` = 32 it
///   needs `(k >> 3 << 7) + 128` bytes. It is not checked. `c` must not overlap
///   `a` or `b`. `m` or `n` of 0 or below writes nothing; `k` of 0 reads neither
///   A nor B. Nothing is allocated.
NUMBRA_API void sgemm_nt_fma(int m, int n, int k, float alpha, int lda, const float* a,
                             int pack_stride, float* scratch, int ldb, const float* b, float beta,
                             int ldc, float* c);
NUMBRA_API void sgemm_nt_avx(int m, int n, int k, float alpha, int lda, const float* a,
                             int pack_stride, float* scratch, int ldb, const float* b, float beta,
                             int ldc, float* c);
///@}

///@{
/// @brief Matrix-vector kernels `y = beta * y + alpha * A * x`, A packed row-major
/// `m` by `n` (row stride `n`), x of `n`, y of `m`.
///
/// - **Row sums.** Rows go in blocks of four, then one at a time. A row's vector
///   columns are summed in eight lanes from +0 (fused in `_fma`, product then add
///   in `_avx`), the lanes added strictly left to right
///   `((((((l0+l1)+l2)+l3)+l4)+l5)+l6)+l7`, then the remaining columns added one
///   by one in ascending order, each product rounded first (never fused).
/// - **Bounds (deliberate, part of the result).** `_fma`: the four-row stage
///   takes `m & ~3` rows and `n & ~7` vector columns; single rows take `(n-1) & ~7`
///   vector columns when n > 8, else none. `_avx`: the four-row stage takes
///   `(m-1) & ~3` rows when m >= 5 (else none) and both stages take `(n-1) & ~7`
///   vector columns when n > 8 (else none). So a multiple-of-8 width is vector in
///   `_fma` four-row blocks and scalar for its leftover rows.
/// - **Blend.** `y = beta * y_old + alpha * sum`, unfused. beta is never tested:
///   y is always read, so a NaN or infinity in y gives NaN even with beta = 0.
/// - **Overlap.** y holds unscaled running sums during a block, so it must not
///   overlap `a` or `x`. m of 0 or below touches nothing; n of 0 or below scales
///   y without reading `a` or `x`. Nothing is allocated.
NUMBRA_API void x86_blas_sgemv_n_fma(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
NUMBRA_API void x86_blas_sgemv_n_avx(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
///@}
///@{
/// @brief Transposed matrix-vector kernels `y = beta * y + alpha * A^T * x`, A
/// packed row-major `m` by `n` (row stride `n`), x of `m`, y of `n`.
///
/// - **Arithmetic.** A zeroed scratch vector t of `n` floats takes, for every
///   row i in ascending order, `t[j] += x[i] * a[i][j]`: in the vector columns
///   fused in `_fma` and product-then-add in `_avx`; in the remaining columns a
///   rounded product and a rounded add in both. Rows go four at a time as one
///   chain in ascending order, then singly; the order per element is always
///   ascending rows, so `_avx` gives the bits of a plain loop. Vector columns:
///   `_fma` `n & ~7` (in both stages, four-row stage for `m & ~3` rows); `_avx`
///   `(n-1) & ~7` when n >= 9 (four-row stage for `(m-1) & ~3` rows when m >= 5).
/// - **Blend.** Finally `y[j] = alpha * t[j] + beta * y[j]`, unfused. beta is
///   never tested: y is always read, so a NaN in y gives NaN even with beta = 0.
///   Since y is written only in that last pass, it may overlap `a` or `x`.
/// - **Allocation.** t comes from `posix_memalign` (32 bytes, `n * 4` bytes) and is
///   cleared with `memset` without checking the allocation: a failed one (also a
///   negative `n`, whose size wraps) faults. m of 0 or below scales y without
///   reading `a` or `x`; n of 0 touches y not at all.
NUMBRA_API void x86_blas_sgemv_t_fma(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
NUMBRA_API void x86_blas_sgemv_t_avx(int m, int n, float alpha, const float* a, const float* x,
                                     float beta, float* y);
///@}

/// @brief Prelu kernel over `batch` blocks of `channels` planes of `dim` floats:
/// `y = max(0, v) + s * min(0, v)`, product then sum rounded.
///
/// s is `slope[0]` when `channel_shared`, else `slope[c]` for plane c. Each plane
/// takes its first `dim & ~7` elements eight at a time, the rest singly, with the
/// same arithmetic. max and min are those of the x86 instructions with the value
/// as second operand, so a NaN input gives NaN and -0 stays -0. There is no
/// alpha, beta or `n`: exactly `batch * channels * dim` elements are written, and
/// `batch` or `channels` of 0 or below does nothing (no division is made). y may
/// be x.
NUMBRA_API void x86_cnn_prelu_avx(bool channel_shared, unsigned long dim, int channels, int batch,
                                  const float* x, const float* slope, float* y);

///@{
/// @brief CSR product `y = A * x` for `m` rows; y is overwritten row by row and
/// never read.
///
/// - `_unroll` (what x86Spmv_csr calls): a row's entries e0..e1 are taken four at
///   a time into four partial sums s0..s3 from 0 (each product and sum rounded),
///   folded as `(s0 + s1) + (s2 + s3)`, then the last 0 to 3 entries are added
///   one by one in ascending order. 128-bit AVX only.
/// - `_fma` (called by no entry point; needs AVX2 and FMA): two 8-lane
///   accumulators take 16 entries a step through gathers and fused multiply-adds,
///   are added lane by lane, then 8 entries a step go into that sum, which is
///   folded as `((C4+C5)+(C6+C7)) + ((C0+C1)+(C2+C3))`; the last up to 7 entries
///   are added one by one, unfused.
/// - An empty row stores 0. `x` has no nearness test: tiny or NaN elements
///   contribute. The row start is whatever `rowPtr[0]` holds. m below 1 does
///   nothing. Indices are not checked; y must not overlap the inputs.
NUMBRA_API void x86SCSRSpmv_unroll(int m, const int* rowPtr, const int* colIdx, const float* val,
                                   const float* x, float* y);
NUMBRA_API void x86SCSRSpmv_fma(int m, const int* rowPtr, const int* colIdx, const float* val,
                                const float* x, float* y);
///@}
///@{
/// @brief BCSR product `y = A * x` for an `m` by `n` matrix in blocks of `blk`.
///
/// y is cleared (`m * 4` bytes) and then every block adds, in ascending block
/// order (block rows, then block columns), the dot product of each of its local
/// rows to `y[bi * blk + r]` as `y = s + y`. A block's counts are found by
/// running on through `rowLen` until `blockPtr[b + 1]`; `blockPtr[b]` and the
/// value positions are never looked up. The dot product of a run is that of
/// x86SCSRSpmv_unroll for `_unroll`; for `_fma` (called by no entry point; AVX2
/// and FMA) runs of more than 8 entries take `((L - 9) >> 3) + 1` groups of eight
/// through fused multiply-adds on gathers (local columns below 32768), folded as
/// in x86SCSRSpmv_fma, and the remaining 1 to 8 entries (all of a run of at most
/// 8) go one by one, unfused. x has no nearness test. A zero `blk` faults; a
/// negative `m` reaches the clearing of y as a huge size.
NUMBRA_API void x86SBCSRSpmv_unroll(int m, int n, int blk, const int* blockPtr,
                                    const unsigned short* rowLen, const unsigned short* colIdx,
                                    const float* val, const float* x, float* y);
NUMBRA_API void x86SBCSRSpmv_fma(int m, int n, int blk, const int* blockPtr,
                                 const unsigned short* rowLen, const unsigned short* colIdx,
                                 const float* val, const float* x, float* y);
///@}
/// @brief CCS product `y = A * x`: y (m floats) is cleared, then for each column j
/// whose `x[j]` passes the nonzero test (`|x[j]|`, as `double`, strictly above
/// 1e-8), each entry in ascending order does `y[row] = x[j] * val + y[row]`,
/// product rounded first. Columns with tiny, zero or NaN `x[j]` are skipped, unlike
/// the CSR forms. n below 1 leaves y cleared. Indices are not checked.
NUMBRA_API void x86SCCSSpmv_unroll(int m, int n, const int* colPtr, const int* rowIdx,
                                   const float* val, const float* x, float* y);
/// @brief BCCS product `y = A * x` in blocks of `blk`: y (m floats) is cleared,
/// then blocks are walked in row-major grid order (so x is read in full once per
/// block row); each local column whose x element passes the nonzero test
/// (`|x|`, as `double`, strictly above 1e-8) adds `x * val` to its rows, product
/// rounded first, entries in stored order. Counts are read by running on through
/// `colLen` to `blockPtr[b + 1]`. A zero `blk` faults.
NUMBRA_API void x86SBCCSSpmv_unroll(int m, int n, int blk, const int* blockPtr,
                                    const unsigned short* colLen, const unsigned short* rowIdx,
                                    const float* val, const float* x, float* y);

}  // extern "C"

// ---------------------------------------------------------------------------
// Global templates: the Relu kernel and the sparse storage layer (float only).
// ---------------------------------------------------------------------------
/// @brief Relu kernel for `float`, with a fast path and a general blend whose
/// vector part is deliberately not the plain formula. r(v) is v when v > 0,
/// else +0 (so r(NaN) = r(-0) = +0).
///
/// - **Fast path**, when `|alpha + (-1.0f)| < 1e-30f` and `|beta| < 1e-30f`
///   (float compares; in practice alpha == 1 and beta tiny or zero):
///   `y[i] = r(x[i])`; y not read, alpha not multiplied, a tiny beta dropped.
/// - **General path.** First `w = beta * y[0]` when beta is unequal to zero,
///   else +0; y[0] is read before anything is written, even for n = 0. The
///   first `n & ~7` elements then take `y[i] = w * y[i] + alpha * r(x[i])` (the
///   old element is read even for a zero beta, and scaled by w, not beta). The
///   last `n mod 8` take `y[i] = x[i] * alpha + beta * y[i]` when x[i] > 0, with
///   +0 in place of the product otherwise, and follow the zero-beta rule.
/// - Every product and sum is rounded on its own; nothing is fused. y may be x.
template <typename T>
NUMBRA_API void vectorRelu_avx(unsigned long n, T alpha, const T* x, T beta, T* y);

/// @brief Number of elements of the packed `m` by `n` matrix that pass the
/// nonzero test: magnitude, widened to `double`, strictly above 1e-8. The float
/// nearest 1e-8 fails, NaN fails, infinity passes. 0 when m or n is below 1.
/// Uses AVX2.
template <typename T>
NUMBRA_API unsigned long sparse_denseGetNonZeros(int m, int n, const T* a);
/// @brief Bytes of the CSR arrays: `rowPtrBytes = m * 4 + 4`, `colIdxBytes =
/// valBytes = nnz * 4`; `n` is not used. Computed in `unsigned long`, wrapping.
template <typename T>
NUMBRA_API void sparse_csr_getSize(int m, int n, unsigned long nnz, unsigned long& rowPtrBytes,
                                   unsigned long& colIdxBytes, unsigned long& valBytes);
/// @brief Bytes of the CCS arrays: `colPtrBytes = n * 4 + 4`, `rowIdxBytes =
/// valBytes = nnz * 4`; `m` is not used.
template <typename T>
NUMBRA_API void sparse_ccs_getSize(int m, int n, unsigned long nnz, unsigned long& colPtrBytes,
                                   unsigned long& rowIdxBytes, unsigned long& valBytes);
/// @brief Bytes of the BCSR arrays, with `mb = (m + blk - 1) / blk` and `nb = (n +
/// blk - 1) / blk` block rows and columns: `blockPtrBytes = mb * nb * 4 + 4`,
/// `rowLenBytes = m * nb * 2`, `colIdxBytes = nnz * 2`, `valBytes = nnz * 4`.
/// A zero `blk` faults.
template <typename T>
NUMBRA_API void sparse_bcsr_getSize(int m, int n, unsigned long nnz, int blk,
                                    unsigned long& blockPtrBytes, unsigned long& rowLenBytes,
                                    unsigned long& colIdxBytes, unsigned long& valBytes);
/// @brief Bytes of the BCCS arrays: `blockPtrBytes = mb * nb * 4 + 4`,
/// `colLenBytes = n * mb * 2`, `rowIdxBytes = nnz * 2`, `valBytes = nnz * 4`,
/// with mb and nb as for sparse_bcsr_getSize.
template <typename T>
NUMBRA_API void sparse_bccs_getSize(int m, int n, unsigned long nnz, int blk,
                                    unsigned long& blockPtrBytes, unsigned long& colLenBytes,
                                    unsigned long& rowIdxBytes, unsigned long& valBytes);

/// @brief Sorts COO entries into `outRow`, `outCol`, `outVal`: by row then column
/// for `order` 0, by column then row for any other value (signed keys).
///
/// The sort is unstable: duplicate positions stay, adjacent, in unspecified
/// order; values play no part. `m` and `n` are not used. The entries are copied
/// into a temporary growing array first, so the outputs may be the inputs. A
/// failed growth throws the standard library's allocation exception after the
/// array is released.
template <typename T>
NUMBRA_API void coo_sort(int m, int n, unsigned long nnz, const int* cooRow, const int* cooCol,
                         const T* cooVal, int* outRow, int* outCol, T* outVal, int order);
/// @brief Packed dense `m` by `n` to CSR, keeping the elements that pass the
/// nonzero test (`|a|` as `double` strictly above 1e-8), unchanged, rows and
/// columns ascending. Writes `rowPtr[0] = 0`; m below 1 stops there; n below 1
/// writes m zero counts and touches neither colIdx nor val. The arrays must be
/// sized for the same matrix (sparse_matrix_dense2csr_getSize). Nothing is
/// allocated.
template <typename T>
NUMBRA_API void sparse_dense2csr(int m, int n, const T* a, int* rowPtr, int* colIdx, T* val);
/// @brief Packed dense `m` by `n` to CCS, columns ascending, each walked down its
/// rows at stride n, keeping the elements that pass the nonzero test. Writes
/// `colPtr[0] = 0`; n below 1 stops there; m below 1 writes n zero counts.
template <typename T>
NUMBRA_API void sparse_dense2ccs(int m, int n, const T* a, int* colPtr, int* rowIdx, T* val);
/// @brief COO to CSR: every entry is stored as it stands (zeros, tiny values and
/// duplicates included, nothing merged), sorted by row then column with coo_sort.
/// `rowPtr` (m + 1 entries) is cleared and filled with running counts, from 0.
///
/// Three temporary arrays of `nnz * 4` bytes come from `malloc` and are not
/// checked (a failed one faults); if the sort throws they are not released.
/// Indices are not checked against m and n.
template <typename T>
NUMBRA_API void sparse_coo2csr(int m, int n, unsigned long nnz, const int* cooRow,
                               const int* cooCol, const T* cooVal, int* rowPtr, int* colIdx,
                               T* val);
/// @brief COO to CCS: as sparse_coo2csr with rows and columns exchanged; entries
/// sorted by column then row, `colPtr` of `n + 1` entries (size it as
/// `n * 4 + 4` bytes yourself: sparse_matrix_coo2ccs_getSize sizes from m).
template <typename T>
NUMBRA_API void sparse_coo2ccs(int m, int n, unsigned long nnz, const int* cooRow,
                               const int* cooCol, const T* cooVal, int* colPtr, int* rowIdx,
                               T* val);

/// @brief CSR to BCSR with blocks of `blk` (edge blocks smaller, nothing padded).
///
/// Blocks are numbered row-major over the grid;
/// `blockPtr[b + 1] = blockPtr[b] + rows of block b`; `rowLen` holds per local row the count of its
/// entries; entries stand by block, then local row, then source order, with local columns `column -
/// bj * blk` kept as their low 16 bits (counts wrap past 65535). `nnz` is not read. Two working
/// `int` arrays of one entry per block come from `calloc` and one 64-bit array from `malloc`, none
/// checked; all released. A zero `blk` faults. The input arrays are only read.
template <typename T>
NUMBRA_API void sparse_csr2bcsr(int m, int n, unsigned long nnz, int* rowPtr, int* colIdx, T* val,
                                int blk, int* blockPtr, unsigned short* rowLen,
                                unsigned short* outColIdx, T* outVal);
/// @brief CCS to BCCS with blocks of `blk`; the grid is numbered row-major as in
/// BCSR (not transposed). `blockPtr[b + 1] = blockPtr[b] + columns of block b`,
/// `colLen` per local column, entries by block, local column, source order, local
/// rows as 16 bits. Working arrays as for sparse_csr2bcsr.
template <typename T>
NUMBRA_API void sparse_ccs2bccs(int m, int n, unsigned long nnz, int* colPtr, int* rowIdx, T* val,
                                int blk, int* blockPtr, unsigned short* colLen,
                                unsigned short* outRowIdx, T* outVal);
/// @brief Packed dense to BCSR: counts the elements that pass the nonzero test,
/// converts into temporary CSR arrays (`malloc`, unchecked) as sparse_dense2csr
/// does, then as sparse_csr2bcsr. Uses AVX2.
template <typename T>
NUMBRA_API void sparse_dense2bcsr(int m, int n, const T* a, int blk, int* blockPtr,
                                  unsigned short* rowLen, unsigned short* outColIdx, T* outVal);
/// @brief Packed dense to BCCS: nonzero test, temporary CCS arrays (`malloc`,
/// unchecked) as sparse_dense2ccs, then as sparse_ccs2bccs. Uses AVX2.
template <typename T>
NUMBRA_API void sparse_dense2bccs(int m, int n, const T* a, int blk, int* blockPtr,
                                  unsigned short* colLen, unsigned short* outRowIdx, T* outVal);
/// @brief COO to BCSR through temporary CSR arrays (`malloc`, unchecked) filled
/// by sparse_coo2csr, then sparse_csr2bcsr: duplicates and zeros stay entries.
template <typename T>
NUMBRA_API void sparse_coo2bcsr(int m, int n, unsigned long nnz, const int* cooRow,
                                const int* cooCol, const T* cooVal, int blk, int* blockPtr,
                                unsigned short* rowLen, unsigned short* outColIdx, T* outVal);
/// @brief COO to BCCS through temporary CCS arrays (`malloc`, unchecked) filled
/// by sparse_coo2ccs, then sparse_ccs2bccs.
template <typename T>
NUMBRA_API void sparse_coo2bccs(int m, int n, unsigned long nnz, const int* cooRow,
                                const int* cooCol, const T* cooVal, int blk, int* blockPtr,
                                unsigned short* colLen, unsigned short* outRowIdx, T* outVal);

/// @brief Bytes of a split's index array: `idxBytes = parts * 4 + 4` (parts + 1
/// boundaries).
NUMBRA_API void sparse_split_idx_getSize(int parts, unsigned long& idxBytes);
/// @brief Cuts the rows (`dim` 0) or columns (`dim` 1) of a packed dense matrix
/// into `parts` ranges of about equal counts; `idx[p]..idx[p+1]` is range p,
/// `idx[0] = 0`, `idx[parts]` = m or n. Another dim returns with idx untouched.
///
/// Counts elements whose signed value, as `double`, is strictly above 1e-8
/// (negative elements are deliberately not counted). The boundaries follow the
/// count walk: with `quota = total / parts` (truncating), boundary p aims at `p *
/// quota` entries; the walk adds per-row counts until it reaches the target and
/// stores the index one past the row it stopped at, or steps back one when the
/// previous total, taken as the running sum less the count that comes next, is
/// nearer. These off-by-one steps are kept as they are. With parts below 2 only
/// `idx[0]` and `idx[1]` are written. One `calloc` count array, not checked.
/// A zero parts faults. Uses AVX2.
template <typename T>
NUMBRA_API void sparse_split_dense_lb_nz(int m, int n, const T* a, int parts, int dim, int* idx);
/// @brief Cuts COO entries among `parts` ranges of rows (`dim` 0) or columns
/// (`dim` 1): sorts them into `outRow`, `outCol`, `outVal` with coo_sort (by row
/// or by column), so that each range is one stretch of the sorted copy, then
/// places boundary p at the row start nearest to `p * (nnz / parts)` entries (a
/// tie goes to the upper one), searching on from the previous boundary. Another
/// dim returns with nothing sorted and idx untouched. One `calloc` array of
/// running counts, not checked.
template <typename T>
NUMBRA_API void sparse_split_coo_lb_nz(int m, int n, unsigned long nnz, const int* cooRow,
                                       const int* cooCol, const T* cooVal, int parts, int dim,
                                       int* outRow, int* outCol, T* outVal, int* idx);
/// @brief Cuts a CSR matrix into `parts` ranges: `dim` 0 cuts rows by the nearest
/// `rowPtr` start to each target `p * (nnz / parts)` (ties go up; nothing
/// allocated); any other dim cuts columns by the count walk of
/// sparse_split_dense_lb_nz over column counts from `colIdx` (one `calloc`
/// array). `val` is not read; every stored entry counts.
template <typename T>
NUMBRA_API void sparse_split_csr_lb_nz(int m, int n, unsigned long nnz, const int* rowPtr,
                                       const int* colIdx, const T* val, int parts, int dim,
                                       int* idx);
/// @brief Cuts a CCS matrix into `parts` ranges: `dim` 1 cuts columns by the
/// nearest `colPtr` start to each target (ties go up; nothing allocated); `dim` 0
/// cuts rows by the count walk over row counts from `rowIdx` (one `calloc`
/// array); another dim returns with idx untouched. `val` is not read.
template <typename T>
NUMBRA_API void sparse_split_ccs_lb_nz(int m, int n, unsigned long nnz, const int* colPtr,
                                       const int* rowIdx, const T* val, int parts, int dim,
                                       int* idx);

/// Outer namespace of the library's entry points.
namespace ZETL {
/// Entry points: templates whose `float` and `double` instances are exported
/// (the sparse storage forwards exist for `float` only).
namespace numbra {

// ---------------------------------------------------------------------------
// Dense matrix multiply: C = alpha * op(A) * op(B) + beta * C.
// ---------------------------------------------------------------------------
///@{
/// @brief Dense product `C = alpha * op(A) * op(B) + beta * C`, C `m` by `n`,
/// depth `k`; the letters give how A, then B, are stored (n as used, t
/// transposed: A stored k rows of m, B stored n rows of k).
///
/// **`float`.** ISA_FMA or ISA_AVX picks the block driver (x86_blas_sgemm_nn_fma /
/// _avx), whose arithmetic, nearness tests on alpha and beta and C strides
/// (rows inside a block of 336 rows lie `n` apart; `ldc` places block origins)
/// apply. `ws` must hold 1354752 bytes (x86GemmNNGetSize). Transposed operands are
/// first copied untransposed to the heap:
/// - `_nn`: no copy. An unknown isa does nothing.
/// - `_tn`: A copied (`malloc(m * k * 4)`); if that fails the driver still runs
///   with a null A and faults as soon as a block needs packing.
/// - `_nt` with `m` above 16: B copied (`malloc(n * k * 4)`), failure as `_tn`.
///   With `m` of 16 or less (also 0) it runs the skinny product sgemm_nt_fma /
///   _avx with a `malloc((k >> 3 << 7) + 128)` scratch that is not checked, and
///   `ws` unused; that path sums in lanes, so m = 16 and m = 17 may differ in the
///   last bits, and it needs `lda` and `ldb` equal to `k` (see sgemm_nt_fma).
/// - `_tt`: both copies are requested before either is tested; if one fails the
///   call returns with C untouched and the other block leaked (kept as is).
/// An unknown isa still makes and frees the copies (or scratch) and computes
/// nothing.
///
/// **`double`.** One plain loop nest, whatever isa, no workspace read, nothing
/// allocated: for each (i, j) a running sum s, deliberately a `float`, takes
/// `s = (float)((double)s + A(i,l) * B(l,j))` for l ascending; then `C = (double)s *
/// alpha + t` by the zero-beta rule, `ldc` an ordinary row stride. m of 0 returns
/// at once. So a `double` product carries single-precision partial sums.
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
///@}

///@{
/// @brief Workspace bytes of the GEMM entry points for `nthreads` workers:
/// `nthreads * 1354752` for `float` and `nthreads * 2709504` for `double` (which
/// never uses it), or one worker's size when `nthreads` is 0 or below. The
/// dimensions are not read; all four forms give the same number. The product
/// wraps in `unsigned long`. Workers take slices of 1354752 bytes.
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
///@}

// ---------------------------------------------------------------------------
// Matrix-vector products on a packed m by n matrix.
// ---------------------------------------------------------------------------
///@{
/// @brief Matrix-vector product on a packed `m` by `n` matrix (row stride `n`):
/// `_n` gives `y = beta * y + alpha * A * x` (x of n, y of m), `_t` gives
/// `y = beta * y + alpha * A^T * x` (x of m, y of n).
///
/// - **`float`**: ISA_FMA or ISA_AVX calls x86_blas_sgemv_n/_t _fma/_avx (their
///   lane sums, bounds and fusing apply); another value leaves y as it was.
///   beta is not tested: y is always read, a NaN in it gives NaN.
/// - **`double` `_n`**, any isa: per row a single running `double` sum
///   `s = s + a * x` in ascending columns (no lanes), then `y = s * alpha + t` by
///   the zero-beta rule (y not read for a zero beta). m below 1 returns.
/// - **`double` `_t`**, any isa: a `float` scratch of `n` elements
///   (`malloc(n * 4)` then `memset`, unchecked: a failure faults) takes, row by
///   row, `t[j] = (float)((double)t[j] + a[i][j] * (double)(float)x[i])`; then
///   `y[j] = y[j] * beta + (double)t[j] * alpha` with y always read. Its result
///   thus carries single precision at best.
template <typename T>
NUMBRA_API void x86MatrixGemv_n(ISA_t isa, IMP_t imp, int nthreads, unsigned long m,
                                unsigned long n, T alpha, const T* a, const T* x, T beta, T* y);
template <typename T>
NUMBRA_API void x86MatrixGemv_t(ISA_t isa, IMP_t imp, int nthreads, unsigned long m,
                                unsigned long n, T alpha, const T* a, const T* x, T beta, T* y);
///@}

// ---------------------------------------------------------------------------
// Activations.
// ---------------------------------------------------------------------------
/// @brief Rectified linear unit blended into y.
///
/// `float`: ISA_AVX and ISA_FMA both run vectorRelu_avx (fast path for alpha 1
/// and tiny beta; a general path whose first `n & ~7` elements are scaled by
/// `beta * y[0]`); another isa leaves y as it was. `double`, any isa: for each
/// element `p = x * alpha` when x > 0, else +0, then `y = p + y * beta` by the
/// zero-beta rule. n of 0 reads nothing (except y[0] on the `float` general
/// path). y may be x.
template <typename T>
NUMBRA_API void x86VectorRelu(ISA_t isa, IMP_t imp, unsigned long n, T alpha, const T* x, T beta,
                              T* y);
/// @brief Relu gradient: `y = y * beta + p` by the zero-beta rule, with
/// `p = g * alpha` when x > 0 and +0 otherwise (x of 0, -0 or NaN closes the gate).
/// Same formula in both precisions; n of 0 reads nothing.
template <typename T>
NUMBRA_API void x86VectorReluBackward(unsigned long n, T alpha, const T* x, const T* g, T beta,
                                      T* y);
/// @brief Parametric Relu over `batch` blocks of `channels` planes of `dim`
/// elements; the slope of element i is `slope[((i / dim) % channels) / d]`, d =
/// channels when `channel_shared`, else 1 (unsigned divisions).
///
/// `float` with `|alpha + (-1.0f)|` and `|beta|` both strictly below 1e-30
/// (compared in `double`): the kernel x86_cnn_prelu_avx runs, writing
/// `batch * channels * dim` elements and ignoring `n`, alpha, beta (NaN gives
/// NaN, -0 stays -0). Every other call, and all of `double`: a plain loop over
/// `n` elements (batch unused): `neg` = x if x < 0 else +0, `pos` = x if x > 0
/// else +0 (NaN and -0 count as +0), `p = (neg * slope + pos) * alpha`, then
/// `y = p + y * beta` by the zero-beta rule. The two routes deliberately differ
/// on NaN. A zero `dim` or `channels` with n > 0 faults in the plain loop.
template <typename T>
NUMBRA_API void x86VectorPrelu(bool channel_shared, unsigned long n, unsigned long dim,
                               int channels, int batch, T alpha, const T* x, const T* slope, T beta,
                               T* y);
/// @brief Prelu gradient with respect to x: `p = (((le * slope) + gt) * g) * alpha`
/// with le = 1 when x <= 0 and gt = 1 when x > 0 (a NaN sets both to 0), slope
/// index as in x86VectorPrelu, then `y = p + y * beta` by the zero-beta rule.
/// A zero `dim` or `channels` with n > 0 faults. No slope gradient exists.
template <typename T>
NUMBRA_API void x86VectorPreluBackward(bool channel_shared, unsigned long n, unsigned long dim,
                                       int channels, T alpha, const T* x, const T* slope,
                                       const T* g, T beta, T* y);

// ---------------------------------------------------------------------------
// Sparse storage interface (float only), forwarding to the global layer.
// ---------------------------------------------------------------------------
///@{
/// @brief Counts the nonzeros of a packed dense matrix into `nnz` (as
/// sparse_denseGetNonZeros: magnitude strictly above 1e-8) and gives the byte
/// sizes of the form's arrays for that count, as sparse_csr_getSize,
/// sparse_ccs_getSize (pointer array from n) or sparse_bcsr_getSize. Uses AVX2.
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
///@}
/// @brief Counts the nonzeros of a packed dense matrix into `nnz` and gives the
/// BCCS byte sizes, as sparse_bccs_getSize. Its matrix parameter is spelled
/// `const float*`, unlike its siblings; the spelling is part of the exported
/// symbol. Uses AVX2.
template <typename T>
NUMBRA_API void sparse_matrix_dense2bccs_getSize(int m, int n, const float* a, int blk,
                                                 unsigned long& nnz, unsigned long& blockPtrBytes,
                                                 unsigned long& colLenBytes,
                                                 unsigned long& rowIdxBytes,
                                                 unsigned long& valBytes);
///@{
/// @brief Byte sizes of the form's arrays for `nnz` COO entries, forwarding to
/// sparse_csr_getSize, sparse_bcsr_getSize or sparse_bccs_getSize.
template <typename T>
NUMBRA_API void sparse_matrix_coo2csr_getSize(int m, int n, unsigned long nnz,
                                              unsigned long& rowPtrBytes,
                                              unsigned long& colIdxBytes, unsigned long& valBytes);
/// @brief Byte sizes of CCS arrays for `nnz` COO entries, forwarding to
/// sparse_csr_getSize: the pointer array is deliberately sized from `m`
/// (`m * 4 + 4`), although sparse_matrix_coo2ccs fills `n + 1` entries. With
/// n > m allocate `n * 4 + 4` bytes for it yourself.
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
///@}

///@{
/// @brief Conversions to the compressed and block forms, forwarding with the
/// same arguments to sparse_dense2csr, sparse_dense2ccs, sparse_coo2csr,
/// sparse_coo2ccs, sparse_dense2bcsr, sparse_dense2bccs, sparse_coo2bcsr and
/// sparse_coo2bccs, whose filtering (dense sources keep elements of magnitude
/// above 1e-8, COO sources keep every entry), ordering, temporaries and failures
/// apply. Size the outputs with the matching `_getSize` call first.
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
///@}

/// @brief Bytes of a split's index array, `parts * 4 + 4`, as
/// sparse_split_idx_getSize.
NUMBRA_API void sparse_matrix_split_idx_getSize(int parts, unsigned long& idxBytes);
///@{
/// @brief Load-balance splits, forwarding with the same arguments to
/// sparse_split_dense_lb_nz, sparse_split_coo_lb_nz, sparse_split_csr_lb_nz and
/// sparse_split_ccs_lb_nz, whose boundary rules (nearest row start, or the count
/// walk with its off-by-one steps), handling of `dim` and allocations apply.
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
///@}

// ---------------------------------------------------------------------------
// Sparse products.
// ---------------------------------------------------------------------------
///@{
/// @brief Sparse product `y = A * x` in `float` (no alpha or beta, no transpose).
/// Whatever `isa`, `imp` and `nthreads` say, each calls the `_unroll` kernel of
/// its form (x86SCSRSpmv_unroll, x86SBCSRSpmv_unroll, x86SCCSSpmv_unroll,
/// x86SBCCSSpmv_unroll), whose sum order applies. The row forms overwrite y,
/// the block and column forms clear it first; the old y never counts. The column
/// forms skip x elements of magnitude up to 1e-8 (and NaN); the row forms do not.
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
///@}

/// @brief General CSR product in `T`, with no nearness tests.
///
/// - `trans` 0: for each row, `s = val * x[col] + s` from 0 in ascending entry
///   order, then `y[i] = s * alpha + t` by the zero-beta rule. m below 1 leaves y
///   untouched.
/// - `trans` not 0 (`y = alpha * A^T * x + beta * y`, y of n): first every y[j]
///   becomes `y[j] * beta`, or 0 for a zero beta (even when m is below 1), then
///   each entry does `y[col] = (val * alpha) * x[i] + y[col]`, alpha applied per
///   entry, rows and entries ascending.
/// Products are rounded before sums. Indices are not checked; y must not overlap
/// the inputs.
template <typename T>
NUMBRA_API void x86SparseMatrixGemv(int m, int n, int trans, T alpha, const int* rowPtr,
                                    const int* colIdx, const T* val, const T* x, T beta, T* y);
/// @brief `y[sparseIdx[k]] = sparseVal[k] * alpha + y[sparseIdx[k]]` for k
/// ascending over `n` stored elements, product rounded first; a repeated
/// position is updated each time, in order. Indices are not checked.
template <typename T>
NUMBRA_API void x86SparseVectorAxpy(unsigned long n, T alpha, const int* sparseIdx,
                                    const T* sparseVal, T* y);

// ---------------------------------------------------------------------------
// Matrix layout.
// ---------------------------------------------------------------------------
/// @brief `b[j * ldb + i] = a[i * lda + j]` for the `m` by `n` matrix a: a bit copy,
/// no arithmetic; nothing else of b is written.
///
/// Full 64 by 64 tiles are copied after prefetching each tile pair (T2 hint);
/// the columns right of the last full tile column (all rows) and the rows below
/// the last full tile row go untiled. Counts are narrowed to `int`. `a` and `b`
/// must not overlap. Nothing is allocated.
template <typename T>
NUMBRA_API void x86MatrixTranspose(int nthreads, unsigned long m, unsigned long n,
                                   unsigned long lda, const T* a, unsigned long ldb, T* b);

///@{
/// @brief `c = alpha * op(a) + beta * op(b)`, c `m` by `n` at stride `ldc`; a
/// `t` letter reads that operand (a first, then b) transposed, stored `n` by `m`.
///
/// For each row, then column: `t = op(a) * alpha`, `u = op(b) * beta` when beta
/// is unequal to zero (else u = +0 and b is not read at all), `c = t + u`, each
/// operation rounded. a is always read: a NaN in a with alpha 0 gives NaN. m of
/// 0 returns at once. `_nn` may have c equal to a or b with the same stride;
/// the other forms must not overlap c with a transposed operand.
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
///@}

// ---------------------------------------------------------------------------
// Element-wise arithmetic on vectors of n elements. Elements are computed in
// ascending order, so overlapping operands give what that loop gives.
// ---------------------------------------------------------------------------
/// @brief `y[i] = x[i] * alpha + y[i]`: the product rounded, then the sum; no
/// fused multiply-add; alpha not tested (0 times an infinity gives NaN). Element
/// rule: ascending, overlapping operands give the ascending loop's result.
template <typename T>
NUMBRA_API void x86VectorAxpy(unsigned long n, T alpha, const T* x, T* y);
/// @brief `y[i] = x[i] * alpha + beta`: beta is an added constant, not a scale of
/// y; y is write-only and beta never tested.
template <typename T>
NUMBRA_API void x86VectorAxpb(unsigned long n, T alpha, const T* x, T beta, T* y);
/// @brief `y[i] = x[i] * alpha + y[i] * beta` (two rounded products, one rounded
/// sum); with a beta equal to zero (+0 or -0, tested once) `y[i] = x[i] * alpha`
/// with no addition and y not read, so a -0 product stays -0. A NaN beta makes
/// every element NaN.
template <typename T>
NUMBRA_API void x86VectorAxpby(unsigned long n, T alpha, const T* x, T beta, T* y);
/// @brief `z[i] = x[i] + y[i]`, ascending: z one element above x gives a running
/// sum.
template <typename T>
NUMBRA_API void x86VectorAdd(unsigned long n, const T* x, const T* y, T* z);
/// @brief `y[i] = x[i] + alpha`.
template <typename T>
NUMBRA_API void x86VectorAddScalar(unsigned long n, const T* x, T alpha, T* y);
/// @brief `y[i] = x[i]`, bit for bit, as one `memcpy` of `n * sizeof(T)` bytes
/// (made also for n = 0): overlapping ranges are not supported.
template <typename T>
NUMBRA_API void x86VectorCopy(unsigned long n, const T* x, T* y);
/// @brief `z[i] = x[i] / y[i]`, except that a divisor equal to zero (+0 or -0)
/// gives +0 without reading x[i]: no infinity or NaN from a zero divisor. A NaN
/// divisor divides and gives NaN.
template <typename T>
NUMBRA_API void x86VectorDiv(unsigned long n, const T* x, const T* y, T* z);
/// @brief `z[i] = x[i] * y[i] + z[i]`, the product rounded first.
template <typename T>
NUMBRA_API void x86VectorMla(unsigned long n, const T* x, const T* y, T* z);
/// @brief `z[i] = z[i] - x[i] * y[i]`, the product rounded first.
template <typename T>
NUMBRA_API void x86VectorMls(unsigned long n, const T* x, const T* y, T* z);
/// @brief `z[i] = x[i] * y[i]`.
template <typename T>
NUMBRA_API void x86VectorMul(unsigned long n, const T* x, const T* y, T* z);
/// @brief `y[i] = x[i] * alpha`.
template <typename T>
NUMBRA_API void x86VectorMulScalar(unsigned long n, const T* x, T alpha, T* y);
/// @brief Swaps while scaling: reads x[i] and y[i], then stores `x[i] = old y[i] *
/// beta` and `y[i] = old x[i] * alpha`, in that order. Neither factor is tested
/// (beta 0 with an infinite y gives NaN). With x the same vector as y each
/// element becomes `x[i] * alpha`.
template <typename T>
NUMBRA_API void x86VectorSwap(unsigned long n, T alpha, T* x, T beta, T* y);
/// @brief `y[i] = x[i] * x[i]` (the name is spelled so).
template <typename T>
NUMBRA_API void x86VectorSqure(unsigned long n, const T* x, T* y);
/// @brief `z[i] = x[i] - y[i]`.
template <typename T>
NUMBRA_API void x86VectorSubtract(unsigned long n, const T* x, const T* y, T* z);

/// @brief `y[i] = v` for i below n, the exact bits of v (NaN payloads, -0). The
/// `unsigned char` instance is one `memset` of n bytes, made only when n is not 0.
template <typename T>
NUMBRA_API void x86VectorFillScalar(unsigned long n, T v, T* y);
/// @brief `y[i] = v[i mod N]` for N of 2, 3 or 4, as the ascending loop that reads
/// `v[i mod N]` at every store: a pattern inside y sees what was already stored
/// (v equal to y repeats the first N elements). With n below N only the first n
/// pattern values are read.
template <typename T, int N>
NUMBRA_API void x86VectorFillVector(unsigned long n, const T* v, T* y);

/// @brief Sum of the elements: one accumulator of type T from +0, ascending, each
/// addition rounded; no lanes, nothing widened. NaN propagates; n of 0 gives +0.
template <typename T>
NUMBRA_API T x86VectorSum(unsigned long n, const T* x);
/// @brief Sum of squares of the one vector x (x dotted with itself): from +0,
/// ascending, `acc = acc + x[i] * x[i]` with the square rounded first; no lanes,
/// no fused multiply-add.
template <typename T>
NUMBRA_API T x86VectorDot(unsigned long n, const T* x);
/// @brief Largest element, starting from 2^-126 (1.17549435e-38, the smallest
/// normal `float`, also for `double`): an element replaces the running value only
/// when strictly greater, so the result is never below that constant, NaN
/// elements are skipped, and of equal values the first stays.
template <typename T>
NUMBRA_API T x86VectorMax(unsigned long n, const T* x);
/// @brief Stores the minimum through `lo` and the maximum through `hi` (the
/// reverse of the name's order), both stored whatever n. The minimum starts at
/// 3.40282347e+38 (FLT_MAX) and the maximum at 2^-126, the `float` limits also
/// for `double`; for each element, first the minimum then the maximum test, both
/// strict, NaN skipped. n of 0 stores FLT_MAX and 2^-126.
template <typename T>
NUMBRA_API void x86VectorMaxMin(unsigned long n, const T* x, T* lo, T* hi);

/// @brief `y[i] = exp(x[i])` by the system library: for `float` the element is
/// widened to `double`, `exp` called, the result narrowed once.
template <typename T>
NUMBRA_API void x86VectorExp(unsigned long n, const T* x, T* y);
/// @brief `y[i] = x[i]` to the power p.
///
/// `double`: `pow(x[i], p)`. `float`: `powf(x[i], p)`, except when
/// `|0.75f + p| < 1e-30f` (in practice p == -0.75): then each element is 1.0 when
/// `|x[i]| < 1e-30f`, else computed in `float` as r = 1/x, c = (r*r)*r,
/// a = sqrt(c), b = 1/a, e = sqrt(b), y = 1/e, each step rounded. So 0 gives
/// 1.0, a negative x NaN, and x below about 1.43e-13 +Inf, above about 1.13e15 +0
/// (the cube over- or underflows); kept as is.
template <typename T>
NUMBRA_API void x86VectorPower(unsigned long n, const T* x, T p, T* y);
/// @brief `y[i] = alpha / (exp(-x[i]) + 1) + u`, u by the zero-beta rule
/// (`y[i] * beta`, or +0). alpha is the numerator, applied by division. `float`:
/// -x in `float`, then exp, + 1.0, the division and the sum in `double` (u rounded
/// to `float` first, then widened), narrowed once at the end.
template <typename T>
NUMBRA_API void x86VectorSigmoid(unsigned long n, T alpha, const T* x, T beta, T* y);
/// @brief `y[i] = (1 - s[i]) * ((g[i] * alpha) * s[i]) + u`, s the forward output,
/// u by the zero-beta rule; every step rounded in T (`float` never widened), no
/// fused multiply-add.
template <typename T>
NUMBRA_API void x86VectorSigmoidBackward(unsigned long n, T alpha, const T* s, const T* g, T beta,
                                         T* y);
/// @brief `y[i] = tanh(x[i]) * alpha + u`, u by the zero-beta rule (y not loaded
/// for a zero beta). `float`: tanh and the product in `double`, u rounded to
/// `float` then widened, the sum in `double`, narrowed once.
template <typename T>
NUMBRA_API void x86VectorTanh(unsigned long n, T alpha, const T* x, T beta, T* y);
/// @brief `y[i] = (1 - t[i] * t[i]) * (g[i] * alpha) + u`, t the forward output, u
/// by the zero-beta rule; every step rounded in T, nothing widened or fused.
template <typename T>
NUMBRA_API void x86VectorTanhBackward(unsigned long n, T alpha, const T* t, const T* g, T beta,
                                      T* y);
/// @brief Returns `1 / (exp(-x) + 1)`; for `float`, -x in `float`, the rest in
/// `double`, narrowed once.
template <typename T>
NUMBRA_API T x86ScalarSigmoid(T x);

/// @brief Fills y with uniform random numbers in [0, 1], both ends included.
///
/// Each call opens the random device "/dev/urandom" through the standard
/// library, takes one 32-bit draw, seeds a local MT19937 with it, closes the
/// device; nothing carries over between calls and no seed can be given. `float`
/// takes one word w per element: `(float)w * 2^-32`; `double` takes two words w1,
/// w2: `((double)w2 * 2^32 + (double)w1) * 2^-64`. The rounding can give exactly
/// 1.0. The device is opened and read also for n = 0. If it cannot be opened or
/// read, the standard library's exception passes to the caller with y
/// untouched. Nothing is allocated on the heap.
template <typename T>
NUMBRA_API void x86VectorRandGenerate(unsigned long n, T* y);
/// @brief Dropout: `y[i] = u + sel * ((x[i] * alpha) * scale)`, with sel = 1 when
/// `threshold < mask[i]` (strictly; NaN drops) and 0 otherwise, u by the
/// zero-beta rule. sel is a real multiplication, so a dropped infinite or NaN
/// value gives NaN. All in T, each step rounded.
template <typename T>
NUMBRA_API void x86VectorMaskAndScale(unsigned long n, const T* mask, T alpha, const T* x,
                                      T threshold, T scale, T beta, T* y);
/// @brief `y[i] = (a[i] + b[i]) * alpha + u`, u by the zero-beta rule; each step
/// rounded in T.
template <typename T>
NUMBRA_API void x86VectorSplitBackward(unsigned long n, T alpha, const T* a, const T* b, T beta,
                                       T* y);

// ---------------------------------------------------------------------------
// Row and column operators on m by n matrices.
// ---------------------------------------------------------------------------
/// @brief `y[r] = s * alpha + u` for each of `m` rows, s the row's sum from +0 in
/// ascending columns (one accumulator, stride `lda`), u by the zero-beta rule.
/// m of 0 returns; n of 0 stores `+0 * alpha + u`.
template <typename T>
NUMBRA_API void x86MatrixSumByRow(int nthreads, unsigned long m, unsigned long n, unsigned long lda,
                                  T alpha, const T* a, T beta, T* y);
/// @brief Row sums of the packed matrix (stride `n`) that reach 1: `y[r] = t + u`,
/// with t = +0 when `1 > s` (alpha not applied) and `t = s * alpha` otherwise
/// (a NaN sum gives NaN); u by the zero-beta rule.
template <typename T>
NUMBRA_API void x86MatrixGetSum(int nthreads, unsigned long m, unsigned long n, T alpha, const T* a,
                                T beta, T* y);
/// @brief Row sums over `batch` slices into one y: slice b starts at
/// `a + b * m * n` (whatever `lda`; rows inside a slice step by `lda`, so slices
/// overlap when lda > n, as intended) and does `y[r] = s * alpha + u`, u by the
/// zero-beta rule with beta for slice 0 and exactly 1 for later slices. batch of
/// 0 leaves y alone.
template <typename T>
NUMBRA_API void x86MatrixBatchSumByRow(int nthreads, unsigned long m, unsigned long n,
                                       unsigned long lda, unsigned long batch, T alpha, const T* a,
                                       T beta, T* y);
/// @brief Column sums with alpha inside: first each of the `n` elements of y
/// becomes `y * beta`, or +0 for a zero beta (even when m is 0), then for rows
/// ascending `y[j] = a[r][j] * alpha + y[j]`, product rounded first.
template <typename T>
NUMBRA_API void x86MatrixSumByCol(int nthreads, unsigned long m, unsigned long n, unsigned long lda,
                                  T alpha, const T* a, T beta, T* y);
/// @brief Each element over its row's sum (not over n): the row sum s is formed
/// first, then `y[r][j] = (a[r][j] * alpha) / s + u`, u by the zero-beta rule; no
/// guard on s (a zero sum gives infinities or NaN). y may be a.
template <typename T>
NUMBRA_API void x86MatrixAvgByRow(int nthreads, unsigned long m, unsigned long n, unsigned long lda,
                                  T alpha, const T* a, T beta, T* y);
/// @brief Exponential over row sum: `y = (exp(a) * alpha) / s + u`, u by the
/// zero-beta rule, a and y at stride `lda`; no maximum is subtracted (call
/// x86MatrixSubMaxByRow first for a softmax).
///
/// s sums `exp` of the row ascending: in `double` for `double`; for `float` the
/// running sum is a `float`, widened, added to in `double` and narrowed back at
/// every element (a sum beyond the float range gives +Inf and so zeros).
/// Each element's exp is computed again for its quotient, in `double`, and the
/// `float` result is narrowed once after adding the widened u. y may be a.
template <typename T>
NUMBRA_API void x86MatrixProbByRow(int nthreads, unsigned long m, unsigned long n,
                                   unsigned long lda, T alpha, const T* a, T beta, T* y);
/// @brief Subtracts each row's maximum, with deliberately mixed strides: the
/// maximum starts at `a[r * n]` (read even when n is 0) and takes strictly greater
/// elements `a[r * lda + j]` for j from 1; then `y[r * lda + j] = a[r * n + j] -
/// max`. With `lda == n` this is the plain operation. A NaN first element makes
/// the row NaN; a later NaN is passed over by the scan. The scan ends before the
/// row's first store.
template <typename T>
NUMBRA_API void x86MatrixSubMaxByRow(int nthreads, unsigned long m, unsigned long n,
                                     unsigned long lda, const T* a, T* y);
/// @brief Adds `x[j] * alpha` (x of n) to every row: `y[r][j] = x[j] * alpha + u`,
/// u by the zero-beta rule (a -0 product gives +0 for a zero beta). m or n of 0
/// returns at once.
template <typename T>
NUMBRA_API void x86MatrixAddVectorByRow(int nthreads, unsigned long m, unsigned long n,
                                        unsigned long lda, T alpha, const T* x, T beta, T* y);
/// @brief Adds `x[r] * alpha` (x of m) to every element of row r: `t = x[r] * alpha`
/// once per row, `y[r][j] = t + u`, u by the zero-beta rule. x[r] is not read
/// when n is 0.
template <typename T>
NUMBRA_API void x86MatrixAddVectorByCol(int nthreads, unsigned long m, unsigned long n,
                                        unsigned long lda, T alpha, const T* x, T beta, T* y);

}  // namespace numbra
}  // namespace ZETL

#endif  // NUMBRA_H
