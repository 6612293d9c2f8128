// A console reporter that prints the machine, then, at the end of the run,
// each operator beside the baselines measured in the same run. The raw
// measurements are available through --benchmark_out=<file>.
//
// Benchmarks are named "<operator>/<variant>/<n>", where variant is "numbra"
// for the library, "scalar" for the plain loop, and each sets the counter
// "bytes": the bytes that one iteration reads and writes. Baselines named
// "memcpy/<bytes>" copy half of that many bytes, moving the same traffic.
// An operator measured against a machine limit other than a copy, or against
// a peer library, has a table of its own: "read/<bytes>" is a plain read of
// that many bytes, and any variant other than numbra and scalar is a peer
// ("roof" being the operator's access pattern as a plain vector loop).
// Compute-bound benchmarks are named "<operation>/<variant>/<size>" and set
// the counter "flops" instead; they are shown against "peak/fma" (or
// "peak/mul_add" for the variant "avx"), the machine's register-only peaks.
// Benchmarks that set the counter "elements" are listed in nanoseconds per
// element. Rates use the CPU time of the measuring thread, so that other work on the
// machine takes turns without counting against a benchmark; on a shared
// machine the best of the repetitions is the one least disturbed, so that is
// what the summary shows.
#ifndef NUMBRA_BENCH_REPORT_H
#define NUMBRA_BENCH_REPORT_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace numbra_bench {

class ComparisonReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  struct Measure {
    double bytes = 0;
    double flops = 0;
    double elements = 0;
    double seconds = 0;
    double gbps() const { return seconds > 0 ? bytes / seconds * 1e-9 : 0; }
    double gflops() const { return seconds > 0 ? flops / seconds * 1e-9 : 0; }
  };
  // Calls visit(op, n, measure) for each "<op>/numbra/<n>".
  template <class Visit>
  void for_each_library_run(Visit visit);
  void print_bandwidth_table();
  void print_peer_table();
  void print_compute_table();
  void print_per_element_table();
  std::map<std::string, Measure> by_name_;
  std::vector<std::string> order_;
};

// Sets the counter "bytes" (and the bytes processed) of a benchmark whose
// iterations each move `bytes`.
void set_traffic(benchmark::State& state, double bytes);

// Registers "memcpy/<bytes>", a memcpy that reads and writes `bytes` in all,
// once however often it is asked for.
void register_memcpy(unsigned long bytes);

// Runs the registered benchmarks with the summary reporter. Unless the
// command line says otherwise, each is measured briefly and repeated five
// times, and the summary takes the best repetition.
int run(int argc, char** argv);

}  // namespace numbra_bench

#endif  // NUMBRA_BENCH_REPORT_H
