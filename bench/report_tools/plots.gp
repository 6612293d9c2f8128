# The report's plots; report.sh sets `terminal`, `data` (the directory of
# plot_data.awk's files) and `out` (where the PNGs go).
set terminal @terminal
set datafile missing "?"
set key outside right top
set grid
load data."/peaks.gp"

set output out."/gemm.png"
set title "Dense multiply C = A B, square float matrices, one thread"
set xlabel "matrix size n (n x n times n x n)"
set ylabel "GFLOP/s (2 n^3 flops per product)"
set xrange [0:2200]
set yrange [0:*]
set offsets 0, 0, graph 0.1, 0  # room above the peak line
plot peak_fma title sprintf("FMA peak %.0f GFLOP/s", peak_fma) with lines dashtype 2 linewidth 2 linecolor rgb "black", \
     data."/gemm.dat" using 1:2 title "numbra ISA\\_FMA" with linespoints linewidth 2 pointtype 7, \
     "" using 1:3 title "numbra ISA\\_AVX" with linespoints linewidth 2 pointtype 5, \
     "" using 1:4 title "OpenBLAS" with linespoints pointtype 4, \
     "" using 1:5 title "BLIS" with linespoints pointtype 6, \
     "" using 1:6 title "Eigen" with linespoints pointtype 8

unset offsets

set output out."/bandwidth.png"
set title "Memory-bound vector operators (float) beside memcpy of the same bytes, one thread"
set xlabel "bytes read and written per call"
set ylabel "GB/s"
set logscale x
set format x "10^{%L}"
set xrange [*:*]
plot for [i = 0:*] data."/bandwidth.dat" index i using 1:2 with linespoints \
     linewidth (i == 0 ? 3 : 1) linecolor (i == 0 ? -1 : i + 1) \
     title columnheader(1)
unset logscale x
set format x "%g"

set output out."/spmv.png"
set title "Sparse matrix-vector products, 200000 rows, one thread"
set xlabel "product (matrix shape)"
set ylabel "GB/s of matrix and vector traffic"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.8 border -1
set xtics rotate by -25 offset -1,0
set bmargin 6
set rmargin 6
set key outside top center horizontal
set yrange [0:*]
plot data."/spmv.dat" using 2:xtic(1) title "numbra", "" using 3 title "Eigen", \
     "" using 4 title "plain read of the same bytes"
