# Writes the data files of plots.gp into `dir` from the report's lines (see
# summary.awk):
#   gemm.dat       size, then GFLOP/s of fma, avx, openblas, blis, eigen
#   peaks.gp       the register-only peaks, as gnuplot variables (NaN if absent)
#   bandwidth.dat  one block per operator (and memcpy): bytes moved, GB/s
#   spmv.dat       one line per product: name, GB/s of numbra, eigen, read
# memcpy is kept at the sizes of the operators shown beside it.
# A figure that was not measured is "?".
BEGIN { FS = "\t"; OFS = " " }
{
  split($2, p, "/")
  figure = ($5 > 0 ? $5 : $4) / $3 * 1e-9
  if ($1 == "gemm" && p[1] == "sgemm_nn") {
    if (!(p[3] in sizes)) { sizes[p[3]] = 1; order[++count] = p[3] + 0 }
    gemm[p[3], p[2]] = figure
  }
  if ($1 == "gemm" && p[1] == "peak") peak[p[2]] = figure
  if ($1 == "vector" && (p[2] == "numbra" || p[1] == "memcpy")) {
    op = p[1] == "memcpy" ? "memcpy" : p[1]
    points = ++bw_count[op]
    bw_bytes[op, points] = $4 + 0
    bw_rate[op, points] = figure
  }
  if ($1 == "sparse" && p[1] ~ /^Spmv/) spmv[p[1], p[2]] = figure
  if ($1 == "sparse" && p[1] ~ /^Spmv/ && !(p[1] in products)) {
    products[p[1]] = 1; product_order[++product_count] = p[1]; spmv_bytes[p[1]] = $4
  }
  if ($1 == "sparse" && p[1] == "read") read_rate[p[2]] = figure
}
function or_missing(key, table) { return (key in table) ? sprintf("%.4g", table[key]) : "?" }
END {
  for (i = 1; i <= count; ++i)
    for (j = i + 1; j <= count; ++j)
      if (order[j] < order[i]) { t = order[i]; order[i] = order[j]; order[j] = t }
  file = dir "/gemm.dat"
  print "size fma avx openblas blis eigen" > file
  for (i = 1; i <= count; ++i) {
    line = order[i]
    split("fma avx openblas blis eigen", variants, " ")
    for (v = 1; v <= 5; ++v) line = line " " or_missing(order[i] SUBSEP variants[v], gemm)
    print line > file
  }
  file = dir "/peaks.gp"
  for (name in peak) printf "peak_%s = %.4g\n", name, peak[name] > file
  if (!("fma" in peak)) printf "peak_fma = NaN\n" > file
  file = dir "/bandwidth.dat"
  split("memcpy Copy<float> Add<float> Axpy<float> Axpby<float> Mul<float> Dot<float> Sum<float> FillScalar<float>", ops, " ")
  for (i = 2; i in ops; ++i)
    if (ops[i] in bw_count)
      for (j = 1; j <= bw_count[ops[i]]; ++j) shown_bytes[bw_bytes[ops[i], j]] = 1
  for (i = 1; i in ops; ++i) {
    op = ops[i]
    if (!(op in bw_count)) continue
    printf "\"%s\"\n", op > file
    # Ascending bytes, by repeated selection of the smallest not yet written.
    delete written
    for (n = 1; n <= bw_count[op]; ++n) {
      pick = 0
      for (j = 1; j <= bw_count[op]; ++j)
        if (!(j in written) && (pick == 0 || bw_bytes[op, j] < bw_bytes[op, pick])) pick = j
      written[pick] = 1
      if (op != "memcpy" || (bw_bytes[op, pick] in shown_bytes))
        printf "%d %.4g\n", bw_bytes[op, pick], bw_rate[op, pick] > file
    }
    printf "\n\n" > file
  }
  file = dir "/spmv.dat"
  for (i = 1; i <= product_count; ++i) {
    name = product_order[i]
    print "\"" name "\"", or_missing(name SUBSEP "numbra", spmv), or_missing(name SUBSEP "eigen", spmv),
          or_missing(spmv_bytes[name], read_rate) > file
  }
}
