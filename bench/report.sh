#!/usr/bin/env bash
# The library's main job in one command: build it, train the example network
# with it, split a dense multiply among the host's threads, run every
# benchmark program of bench/ and write bench/report/: summary.md (each
# operator beside its best peer and the machine limit measured in the same
# run), the examples' output and PNG plots made with gnuplot. The README's
# report section is refreshed from them.
#
#   bench/report.sh [--build-dir DIR] [--skip-build]
#
# Run as root on Debian it installs what it lacks (gnuplot and the peer
# libraries) first; elsewhere it goes on without them and says what it skips.
# --skip-build uses the programs already built in the build directory (the
# `report` target of the build passes it).
set -euo pipefail

source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=$source_dir/build
skip_build=0
while (($#)); do
  case $1 in
    --build-dir) build_dir=$(realpath -m "${2:?--build-dir needs a directory}"); shift 2 ;;
    --skip-build) skip_build=1; shift ;;
    -h | --help) sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "report.sh: unknown argument '$1' (try --help)" >&2; exit 2 ;;
  esac
done
tools=$source_dir/bench/report_tools
out=$source_dir/bench/report
raw=$build_dir/bench-report
mkdir -p "$out" "$raw"

# --- What the report needs beyond the build: gnuplot, and the peers, which
# only count if they are there before the build.
wanted=(gnuplot-nox)
((skip_build)) || wanted+=(libopenblas-dev libblis-dev libeigen3-dev libdnnl-dev)
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
      "peers missing at build time are left out, and without gnuplot there are no plots"
  fi
fi

if ((!skip_build)); then
  echo "== build"
  cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release > /dev/null
  cmake --build "$build_dir" -j "$(nproc)"
fi

# --- The examples.
if [[ -x $build_dir/examples/train_mlp ]]; then
  echo "== examples/train_mlp: a network trained with the library"
  "$build_dir/examples/train_mlp" | tee "$out/train_mlp.txt"
  echo "== examples/threaded_gemm: one multiply on all cores"
  "$build_dir/examples/threaded_gemm" | tee "$out/threaded_gemm.txt"
else
  echo "report.sh: no examples in $build_dir (built with NUMBRA_BUILD_EXAMPLES=OFF?), skipping them"
  rm -f "$out/train_mlp.txt" "$out/threaded_gemm.txt"
fi

# --- The benchmarks, each program's runs labelled with its family.
: > "$raw/all.tsv"
for program in "$build_dir"/bench/bench_*; do
  [[ -f $program && -x $program ]] || continue
  name=$(basename "$program")
  echo "== $name"
  "$program" --benchmark_out="$raw/$name.json" --benchmark_out_format=json | tee "$raw/$name.txt"
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
if command -v gnuplot > /dev/null; then
  awk -f "$tools/plot_data.awk" -v dir="$raw" "$raw/all.tsv"
  terminal="pngcairo size 960,600 font 'Sans,11'"
  gnuplot -e "set terminal" 2>&1 | grep -q pngcairo || terminal="png size 960,600"
  gnuplot -e "terminal=\"$terminal\"; data=\"$raw\"; out=\"$out\"" "$tools/plots.gp"
  echo "== wrote $out/gemm.png, $out/bandwidth.png, $out/spmv.png"
else
  echo "report.sh: gnuplot not found, no plots"
fi

# --- The README's report section, between its markers.
readme=$source_dir/README.md
if grep -q '<!-- report:begin -->' "$readme"; then
  section=$raw/readme-section.md
  {
    echo '<!-- report:begin -->'
    sed -n '3,11p' "$out/summary.md"
    echo
    echo '![Dense multiply](bench/report/gemm.png)'
    echo '![Memory-bound operators](bench/report/bandwidth.png)'
    echo '![Sparse matrix-vector products](bench/report/spmv.png)'
    echo
    sed -n '/^## Examples/,/^## All operators/{/^## /d;p}' "$out/summary.md"
    awk -f "$tools/headline.awk" "$raw/all.tsv" "$raw/all.tsv" | awk -f "$tools/summary.awk"
    echo
    echo 'Every operator at every size: [bench/report/summary.md](bench/report/summary.md).'
    echo '<!-- report:end -->'
  } > "$section"
  awk -v section="$section" '
    /<!-- report:begin -->/ { while ((getline line < section) > 0) print line; skip = 1; next }
    /<!-- report:end -->/ { skip = 0; next }
    !skip' "$readme" > "$raw/README.md"
  cp "$raw/README.md" "$readme"
  echo "== refreshed the report section of README.md"
fi
