# Turns the JSON of Google Benchmark's --benchmark_out into one line per
# benchmark: name, seconds per iteration, bytes, flops and elements per
# iteration. Of repeated runs the fastest is kept, as the console summary
# does; aggregates (mean, median, ...) are dropped. The JSON has one key per
# line, which is all this relies on.
#
#   awk -f json_to_tsv.awk run.json > run.tsv
function value(line) {
  sub(/^[^:]*:[ ]*/, "", line)
  sub(/,[ ]*$/, "", line)
  gsub(/"/, "", line)
  return line
}
function flush() {
  if (name != "" && type == "iteration" && iterations > 0 && seconds > 0) {
    if (!(name in best)) order[++count] = name
    if (!(name in best) || seconds < best[name]) {
      best[name] = seconds
      bytes[name] = b; flops[name] = f; elements[name] = e
    }
  }
  name = ""; type = ""; iterations = 0; seconds = 0; b = 0; f = 0; e = 0
}
BEGIN {
  OFS = "\t"
  scale["ns"] = 1e-9; scale["us"] = 1e-6; scale["ms"] = 1e-3; scale["s"] = 1
}
/^    [{}]/ { flush() }
/^      "name":/ { name = value($0) }
/^      "run_type":/ { type = value($0) }
/^      "iterations":/ { iterations = value($0) + 0 }
/^      "cpu_time":/ { cpu = value($0) + 0 }
/^      "time_unit":/ { seconds = cpu * scale[value($0)] }
/^      "bytes":/ { b = value($0) + 0 }
/^      "flops":/ { f = value($0) + 0 }
/^      "elements":/ { e = value($0) + 0 }
END {
  flush()
  for (i = 1; i <= count; ++i) {
    n = order[i]
    print n, best[n], bytes[n], flops[n], elements[n]
  }
}
