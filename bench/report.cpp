#include "report.h"

#include <cstdio>
#include <cstring>

namespace numbra_bench {

void ComparisonReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
    const auto bytes = run.counters.find("bytes");
    if (bytes == run.counters.end()) continue;
    const std::string name = run.run_name.str();
    const double seconds = run.real_accumulated_time / double(run.iterations);
    const auto [entry, added] = by_name_.try_emplace(name, Measure{bytes->second.value, seconds});
    if (added) {
      order_.push_back(name);
    } else if (seconds < entry->second.seconds) {
      entry->second.seconds = seconds;  // best of the repetitions
    }
  }
}

void ComparisonReporter::Finalize() {
  print_copy_table();
  print_peer_table();
}

void ComparisonReporter::print_copy_table() {
  bool header = false;
  for (const std::string& name : order_) {
    const auto first = name.find('/');
    const auto last = name.rfind('/');
    if (first == last || name.compare(first + 1, last - first - 1, "numbra") != 0) continue;
    const std::string op = name.substr(0, first);
    const std::string n = name.substr(last + 1);
    const Measure& lib = by_name_[name];
    const auto scalar = by_name_.find(op + "/scalar/" + n);
    const auto copy = by_name_.find("memcpy/" + std::to_string(static_cast<long>(lib.bytes)));
    const double scalar_gbps = scalar != by_name_.end() ? scalar->second.gbps() : 0;
    const double copy_gbps = copy != by_name_.end() ? copy->second.gbps() : 0;
    if (scalar_gbps == 0 && copy_gbps == 0) continue;
    if (!header) {
      std::printf("\n%-34s %10s %10s %10s %10s %9s %9s\n", "operator", "n", "numbra", "scalar",
                  "memcpy", "/memcpy", "/scalar");
      std::printf("%-34s %10s %10s %10s %10s %9s %9s\n", "", "", "GB/s", "GB/s", "GB/s", "", "");
      header = true;
    }
    std::printf("%-34s %10s %10.2f %10.2f %10.2f", op.c_str(), n.c_str(), lib.gbps(), scalar_gbps,
                copy_gbps);
    if (copy_gbps > 0)
      std::printf(" %8.0f%%", 100 * lib.gbps() / copy_gbps);
    else
      std::printf(" %9s", "-");
    if (scalar_gbps > 0)
      std::printf(" %8.2fx", lib.gbps() / scalar_gbps);
    else
      std::printf(" %9s", "-");
    std::printf("\n");
  }
}

void ComparisonReporter::print_peer_table() {
  bool header = false;
  for (const std::string& name : order_) {
    const auto first = name.find('/');
    const auto last = name.rfind('/');
    if (first == last || name.compare(first + 1, last - first - 1, "numbra") != 0) continue;
    const std::string op = name.substr(0, first);
    const std::string n = name.substr(last + 1);
    const Measure& lib = by_name_[name];
    const auto read = by_name_.find("read/" + std::to_string(static_cast<long>(lib.bytes)));
    std::string peer;
    for (const std::string& other : order_) {
      const auto variant_end = other.rfind('/');
      if (other.compare(0, first + 1, op + "/") != 0 || other.substr(variant_end + 1) != n)
        continue;
      const std::string variant = other.substr(first + 1, variant_end - first - 1);
      if (variant != "numbra" && variant != "scalar") peer = variant;
    }
    if (read == by_name_.end() && peer.empty()) continue;
    if (!header) {
      std::printf("\n%-34s %10s %10s %10s %9s %10s %10s %9s\n", "operator", "n", "numbra", "read",
                  "/read", "peer", "peer", "/peer");
      std::printf("%-34s %10s %10s %10s %9s %10s %10s %9s\n", "", "", "GB/s", "GB/s", "", "",
                  "GB/s", "");
      header = true;
    }
    std::printf("%-34s %10s %10.2f", op.c_str(), n.c_str(), lib.gbps());
    if (read != by_name_.end())
      std::printf(" %10.2f %8.0f%%", read->second.gbps(), 100 * lib.gbps() / read->second.gbps());
    else
      std::printf(" %10s %9s", "-", "-");
    if (!peer.empty()) {
      const Measure& other = by_name_[op + "/" + peer + "/" + n];
      std::printf(" %10s %10.2f %8.2fx", peer.c_str(), other.gbps(), lib.gbps() / other.gbps());
    } else {
      std::printf(" %10s %10s %9s", "-", "-", "-");
    }
    std::printf("\n");
  }
}

int run(int argc, char** argv) {
  std::vector<char*> args(argv, argv + argc);
  std::string min_time = "--benchmark_min_time=0.05";
  std::string repetitions = "--benchmark_repetitions=5";
  for (std::string* flag : {&min_time, &repetitions}) {
    const std::string name = flag->substr(0, flag->find('='));
    bool given = false;
    for (int i = 1; i < argc; ++i) given |= std::strncmp(argv[i], name.c_str(), name.size()) == 0;
    if (!given) args.push_back(flag->data());
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  ComparisonReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace numbra_bench
