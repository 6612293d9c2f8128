#!/usr/bin/env bash
# Runs the report's awk programs on a small benchmark output with known
# figures and compares what they write with the expected files:
#   check_report_tools.sh <report_tools dir> <scratch dir>
set -euo pipefail
tools=$1
work=$2
mkdir -p "$work"
data=$tools/testdata
status=0
same() {  # same <expected> <actual>
  if ! diff -u "$1" "$2"; then
    echo "differs from $(basename "$1")"
    status=1
  fi
}
awk -f "$tools/json_to_tsv.awk" "$data/run.json" > "$work/run.tsv"
same "$data/expected.tsv" "$work/run.tsv"
sed 's/^/gemm\t/' "$work/run.tsv" | awk -f "$tools/summary.awk" > "$work/summary.md"
same "$data/expected_summary.md" "$work/summary.md"
{ sed 's/^/gemm\t/' "$work/run.tsv"; sed 's/^/vector\t/' "$work/run.tsv"; } > "$work/labelled.tsv"
awk -f "$tools/plot_data.awk" -v dir="$work" "$work/labelled.tsv"
same "$data/expected_gemm.dat" "$work/gemm.dat"
same "$data/expected_bandwidth.dat" "$work/bandwidth.dat"
exit $status
