# Builds the Markdown rows of the report from lines of
#   family <TAB> name <TAB> seconds <TAB> bytes <TAB> flops <TAB> elements
# (json_to_tsv.awk's output behind a family label), one row for each run of
# the library: its figure, the best peer's figure and the ratio, and the
# machine limit measured in the same program with the share of it reached.
#
# Benchmarks are named "<op>/<variant>/<size>". The library's variants are
# numbra, and fma and avx for the dense multiply; scalar is the plain loop of
# the definition; roof is the operator's access pattern as a plain vector
# loop, its limit wherever it is measured; any other variant is a peer
# library. The other limits are "memcpy/<bytes>" and "read/<bytes>" for
# memory-bound runs and "peak/fma" or "peak/mul_add" (for avx) for
# compute-bound ones.
BEGIN {
  FS = "\t"
  # Families by the benchmark program that measures them.
  title["activation"] = "Activations"
  title["gemm"] = "Dense multiply"
  title["gemv"] = "Matrix-vector"
  title["operators"] = "Transcendental, random, row and column"
  title["sparse"] = "Sparse"
  title["vector"] = "Vector"
}
{
  family = $1; name = $2
  seconds[family, name] = $3; bytes[family, name] = $4
  flops[family, name] = $5; elements[family, name] = $6
  runs[++count] = family SUBSEP name
}
function rate(key) {
  if (flops[key] > 0) return flops[key] / seconds[key] * 1e-9
  if (bytes[key] > 0) return bytes[key] / seconds[key] * 1e-9
  return seconds[key] * 1e9 / elements[key]
}
function unit(key) {
  if (flops[key] > 0) return "GFLOP/s"
  if (bytes[key] > 0) return "GB/s"
  return "ns/element"
}
function library(variant) { return variant == "numbra" || variant == "fma" || variant == "avx" }
END {
  print "| Family | Operator | Size | numbra | Peer | Peer figure | numbra/peer | Limit | Limit figure | % of limit |"
  print "|---|---|---|---:|---|---:|---:|---|---:|---:|"
  for (i = 1; i <= count; ++i) {
    split(runs[i], key, SUBSEP)
    family = key[1]; name = key[2]; k = runs[i]
    parts = split(name, p, "/")
    if (parts == 3) { op = p[1]; variant = p[2]; size = p[3] }
    else if (parts == 2 && p[1] !~ /^(memcpy|read|peak)$/) { op = p[1]; variant = "numbra"; size = p[2] }
    else continue
    if (!library(variant) || (flops[k] <= 0 && bytes[k] <= 0 && elements[k] <= 0)) continue
    figure = rate(k); per_element = flops[k] <= 0 && bytes[k] <= 0

    # The best peer library, or else the plain loop.
    peer = ""; peer_figure = 0
    for (j = 1; j <= count; ++j) {
      split(runs[j], other, SUBSEP)
      if (other[1] != family || split(other[2], q, "/") != 3) continue
      if (q[1] != op || q[3] != size || library(q[2]) || q[2] == "scalar" || q[2] == "roof") continue
      f = rate(runs[j])
      if (peer == "" || f > peer_figure) { peer = q[2]; peer_figure = f }
    }
    if (peer == "" && ((family, op "/scalar/" size) in seconds)) {
      peer = "scalar loop"; peer_figure = rate(family SUBSEP op "/scalar/" size)
    }

    limit = ""
    if ((family, op "/roof/" size) in seconds) {
      limit = op "/roof/" size
    } else if (flops[k] > 0) {
      limit = variant == "avx" ? "peak/mul_add" : "peak/fma"
    } else if (bytes[k] > 0) {
      if ((family, "memcpy/" bytes[k]) in seconds) limit = "memcpy/" bytes[k]
      else if ((family, "read/" bytes[k]) in seconds) limit = "read/" bytes[k]
    }
    if (limit != "" && !((family, limit) in seconds)) limit = ""

    label = "`" op "`" (variant == "numbra" ? "" : " (" variant ")")
    shown_family = (family in title) ? title[family] : family
    line = sprintf("| %s | %s | %s | %.4g %s |", shown_family, label, size, figure, unit(k))
    if (peer != "") {
      # A time per element is better when lower, so its ratio is inverted.
      ratio = per_element ? peer_figure / figure : figure / peer_figure
      line = line sprintf(" %s | %.4g | %.2fx |", peer, peer_figure, ratio)
    } else {
      line = line " - | - | - |"
    }
    if (limit != "") {
      lk = family SUBSEP limit
      if (limit ~ /\/roof\//) limit = "roof"
      else if (limit !~ /^peak/) sub(/\/.*/, "", limit)
      line = line sprintf(" %s | %.4g | %.0f%% |", limit, rate(lk), 100 * figure / rate(lk))
    } else {
      line = line " - | - | - |"
    }
    print line
  }
}
