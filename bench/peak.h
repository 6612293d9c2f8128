// Register-only loops that give the machine's arithmetic peaks: each runs
// `steps` rounds of 12 independent 8-lane chains (16 flops a chain a round)
// and returns a value that depends on all of them.
#ifndef NUMBRA_BENCH_PEAK_H
#define NUMBRA_BENCH_PEAK_H

namespace numbra_bench {

constexpr double kPeakFlopsPerStep = 12 * 8 * 2;

float fma_chains(long steps);      // one fused multiply-add a chain a round
float mul_add_chains(long steps);  // an independent product added into each chain a round

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_PEAK_H
