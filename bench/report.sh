#!/usr/bin/env bash
# The library's main job in one command: build it, train the example network
# with it (on the handwritten digits beside scikit-learn too, where Debian's
# python3-sklearn is there), split a dense multiply among the host's threads,
# run every benchmark program in the build's bench/ and write the report into
# the build tree, <build dir>/report/: summary.md (each operator beside its
# best peer and the machine limit measured in the same run), the examples'
# output and PNG plots made with gnuplot. The checkout is left as it was.
#
#   bench/report.sh [--build-dir DIR] [--skip-build] [--benchmark-filter REGEX]
#   bench/report.sh [--build-dir DIR] --publish
#
# Run as root on Debian it installs what it lacks (gnuplot, python3-sklearn, zlib
# and the peer libraries) first; elsewhere it goes on without them and says
# what it skips. --skip-build uses the programs already built in the build
# directory (the `report` target of the build passes it). --benchmark-filter
# runs only the benchmarks that match, for a quick look.
# --publish runs nothing: it copies the last report of the build directory
# into bench/report/ and refreshes the README's report section from it, the
# maintainer's step before committing a new snapshot.
set -euo pipefail

source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=$source_dir/build
skip_build=0
publish=0
benchmark_filter=
while (($#)); do
  case $1 in
    --build-dir) build_dir=$(realpath -m "${2:?--build-dir needs a directory}"); shift 2 ;;
    --skip-build) skip_build=1; shift ;;
    --benchmark-filter) benchmark_filter=${2:?--benchmark-filter needs a regex}; shift 2 ;;
    --publish) publish=1; shift ;;
    -h | --help) sed -n '2,22p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "report.sh: unknown argument '$1' (try --help)" >&2; exit 2 ;;
  esac
done
tools=$source_dir/bench/report_tools
out=$build_dir/report
raw=$build_dir/bench-report
published=$source_dir/bench/report

# --- Publishing: the last report becomes the checked-in snapshot.
if ((publish)); then
  if [[ ! -f $out/summary.md || ! -f $out/readme-section.md ]]; then
    echo "report.sh: no report in $out to publish; run bench/report.sh first" >&2
    exit 1
  fi
  mkdir -p "$published"
  rm -f "$published"/*
  cp "$out"/summary.md "$out"/*.txt "$published"/
  cp "$out"/*.png "$published"/ 2> /dev/null || echo "report.sh: the report has no plots"
  readme=$source_dir/README.md
  awk -v section="$out/readme-section.md" '
    /<!-- report:begin -->/ { while ((getline line < section) > 0) print line; skip = 1; next }
    /<!-- report:end -->/ { skip = 0; next }
    !skip' "$readme" > "$out/README.md"
  cp "$out/README.md" "$readme"
  echo "== published $out into bench/report/ and the report section of README.md"
  exit 0
fi
mkdir -p "$out" "$raw"

# --- What the report needs beyond the build: gnuplot, scikit-learn for the
# digits and their peer, and the peer libraries and zlib (with which the
# example reads the digits), which only count if they are there before the
# build.
wanted=(gnuplot-nox python3-sklearn)
((skip_build)) || wanted+=(libopenblas-dev libblis-dev libeigen3-dev libdnnl-dev zlib1g-dev)
missing=()
if command -v dpkg-query > /dev/null; then
  for p in "${wanted[@]}"; do
    [[ $p == gnuplot-nox ]] && command -v gnuplot > /dev/null && continue
    dpkg-query -W -f='${Status}' "$p" 2> /dev/null | grep -q "install ok installed" || missing+=("$p")
  done
fi
if ((${#missing[@]})); then
  if [[ $(id -u) == 0 ]] && command -v apt-get > /dev/null; then
    echo "== installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    { apt-get update -qq && apt-get install -y -qq --no-install-recommends "${missing[@]}" > /dev/null; } ||
      echo "report.sh: could not install ${missing[*]}; going on without them"
  else
    echo "report.sh: not root or no apt-get, so not installing ${missing[*]}:" \
      "peers missing at build time are left out, without gnuplot there are no plots" \
      "and without python3-sklearn no digits"
  fi
fi

if ((!skip_build)); then
  echo "== build"
  cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release > /dev/null
  cmake --build "$build_dir" -j "$(nproc)"
fi

# --- The examples.
rm -f "$out"/*.txt
if [[ -x $build_dir/examples/train_mlp ]]; then
  echo "== examples/train_mlp: a network trained with the library"
  "$build_dir/examples/train_mlp" | tee "$out/train_mlp.txt"
  "$source_dir/examples/digits.py" compare --train-mlp "$build_dir/examples/train_mlp" |
    tee "$out/digits.txt" || rm -f "$out/digits.txt"
  echo "== examples/threaded_gemm: one multiply on all cores"
  "$build_dir/examples/threaded_gemm" | tee "$out/threaded_gemm.txt"
else
  echo "report.sh: no examples in $build_dir (built with NUMBRA_BUILD_EXAMPLES=OFF?), skipping them"
fi

# --- The benchmarks, each program's runs labelled with its family.
: > "$raw/all.tsv"
for program in "$build_dir"/bench/bench_*; do
  [[ -f $program && -x $program ]] || continue
  name=$(basename "$program")
  if [[ -n $benchmark_filter ]] &&
    [[ -z $("$program" --benchmark_list_tests --benchmark_filter="$benchmark_filter") ]]; then
    continue
  fi
  echo "== $name"
  "$program" ${benchmark_filter:+--benchmark_filter="$benchmark_filter"} \
    --benchmark_out="$raw/$name.json" --benchmark_out_format=json | tee "$raw/$name.txt"
  awk -f "$tools/json_to_tsv.awk" "$raw/$name.json" | sed "s/^/${name#bench_}\t/" >> "$raw/all.tsv"
done
if [[ ! -s $raw/all.tsv ]]; then
  echo "report.sh: no benchmark results in $build_dir/bench (built with NUMBRA_BUILD_BENCH=OFF?)" >&2
  exit 1
fi

# --- summary.md
machine=$(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //')
{
  echo "# Benchmark report"
  echo
  echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $machine, one thread unless stated. Each figure is the"
  echo "best of the repetitions. Peers are the fastest other library measured for the same"
  echo "operation and size (OpenBLAS, BLIS and Eigen where installed), or else the plain scalar"
  echo "loop of the definition. Limits are measured in the same program run: memcpy moving the"
  echo "same bytes, a plain read of them, or the register-only 8-lane peak (fused multiply-add for"
  echo "the FMA kernels, separate multiply and add for the AVX ones). An element-wise operator"
  echo "can exceed memcpy, which moves its bytes as half reads and half writes. Rates use the"
  echo "processor time of the measuring thread; on a shared machine other work can still pull a"
  echo "single point down through the shared caches and memory."
  echo
  if [[ -f $out/threaded_gemm.txt ]]; then
    echo "## Examples"
    echo
    echo '```'
    tail -n 2 "$out/train_mlp.txt"
    [[ -f $out/digits.txt ]] && tail -n 3 "$out/digits.txt"
    cat "$out/threaded_gemm.txt"
    echo '```'
    echo
  fi
  echo "## All operators"
  echo
  awk -f "$tools/summary.awk" "$raw/all.tsv"
} > "$out/summary.md"
echo "== wrote $out/summary.md"

# --- Plots.
rm -f "$out"/*.png
if command -v gnuplot > /dev/null; then
  awk -f "$tools/plot_data.awk" -v dir="$raw" "$raw/all.tsv"
  terminal="pngcairo size 960,600 font 'Sans,11'"
  gnuplot -e "set terminal" 2>&1 | grep -q pngcairo || terminal="png size 960,600"
  if gnuplot -e "terminal=\"$terminal\"; data=\"$raw\"; out=\"$out\"" "$tools/plots.gp"; then
    echo "== wrote $out/gemm.png, $out/bandwidth.png, $out/spmv.png"
  else
    echo "report.sh: gnuplot found no data for some plots (a filtered run?)"
  fi
else
  echo "report.sh: gnuplot not found, no plots"
fi

# --- The README's report section, as `--publish` puts it between the
# README's markers, its links pointing at the published copy.
{
  echo '<!-- report:begin -->'
  sed -n '3,11p' "$out/summary.md"
  echo
  for plot in 'gemm:Dense multiply' 'bandwidth:Memory-bound operators' 'spmv:Sparse matrix-vector products'; do
    [[ -f $out/${plot%%:*}.png ]] && echo "![${plot#*:}](bench/report/${plot%%:*}.png)"
  done
  echo
  sed -n '/^## Examples/,/^## All operators/{/^## /d;p}' "$out/summary.md"
  awk -f "$tools/headline.awk" "$raw/all.tsv" "$raw/all.tsv" | awk -f "$tools/summary.awk"
  echo
  echo 'Every operator at every size: [bench/report/summary.md](bench/report/summary.md).'
  echo '<!-- report:end -->'
} > "$out/readme-section.md"
echo "== the report is in $out (bench/report.sh --publish makes it the checked-in snapshot)"
