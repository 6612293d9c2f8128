// A console reporter that prints the machine, then, at the end of the run,
// each operator beside the baselines measured in the same run. The raw
// measurements are available through --benchmark_out=<file>.
//
// Benchmarks are named "<operator>/<variant>/<n>", where variant is "numbra"
// for the library, "scalar" for the plain loop, and each sets the counter
// "bytes": the bytes that one iteration reads and writes. Baselines named
// "memcpy/<bytes>" copy half of that many bytes, moving the same traffic.
// Benchmarks that set the counter "elements" instead are listed in a table
// of their own, in nanoseconds per element.
// On a shared machine the best of the repetitions is the one least disturbed,
// so that is what the summary shows.
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
    double seconds = 0;
    double gbps() const { return seconds > 0 ? bytes / seconds * 1e-9 : 0; }
  };
  std::map<std::string, Measure> by_name_;
  std::vector<std::string> order_;
  std::map<std::string, Measure> per_element_;  // Measure::bytes holds elements
  std::vector<std::string> per_element_order_;
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
