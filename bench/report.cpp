#include "report.h"

#include <cstdio>
#include <cstring>
#include <set>

namespace numbra_bench {

void ComparisonReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
    const auto bytes = run.counters.find("bytes");
    if (bytes == run.counters.end()) continue;
    const std::string name = run.run_name.str();
    const double seconds = run.real_accumulated_time / double(run.iterations);
    const auto entries = run.counters.find("entries");
    const double entry_count = entries != run.counters.end() ? entries->second.value : 0;
    const auto [entry, added] =
        by_name_.try_emplace(name, Measure{bytes->second.value, seconds, entry_count});
    if (added) {
      order_.push_back(name);
    } else if (seconds < entry->second.seconds) {
      entry->second.seconds = seconds;  // best of the repetitions
    }
  }
}

void ComparisonReporter::Finalize() {
  bool any_elementwise = false;
  for (const std::string& name : order_) {
    any_elementwise |= by_name_[name].entries == 0 && name.find("/numbra/") != std::string::npos;
  }
  if (!any_elementwise) return PrintEntryTable();
  std::printf("\n%-34s %10s %10s %10s %10s %9s %9s\n", "operator", "n", "numbra", "scalar",
              "memcpy", "/memcpy", "/scalar");
  std::printf("%-34s %10s %10s %10s %10s %9s %9s\n", "", "", "GB/s", "GB/s", "GB/s", "", "");
  std::set<std::string> done;
  for (const std::string& name : order_) {
    const auto first = name.find('/');
    const auto last = name.rfind('/');
    if (first == last || name.compare(first + 1, last - first - 1, "numbra") != 0) continue;
    const std::string op = name.substr(0, first);
    const std::string n = name.substr(last + 1);
    const Measure& lib = by_name_[name];
    if (lib.entries > 0) continue;
    const auto scalar = by_name_.find(op + "/scalar/" + n);
    const auto copy = by_name_.find("memcpy/" + std::to_string(static_cast<long>(lib.bytes)));
    const double scalar_gbps = scalar != by_name_.end() ? scalar->second.gbps() : 0;
    const double copy_gbps = copy != by_name_.end() ? copy->second.gbps() : 0;
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
  PrintEntryTable();
}

void ComparisonReporter::PrintEntryTable() {
  bool header = false;
  for (const std::string& name : order_) {
    const Measure& m = by_name_[name];
    const bool is_read = name.compare(0, 11, "streamread/") == 0;
    if (m.entries == 0 && !is_read) continue;
    if (!header) {
      std::printf("\n%-44s %10s %9s %9s %11s %9s\n", "sparse operator/variant/n", "entries",
                  "ns/entry", "GB/s", "/streamread", "/eigen");
      header = true;
    }
    if (is_read) {
      std::printf("%-44s %10s %9s %9.2f\n", name.c_str(), "-", "-", m.gbps());
      continue;
    }
    std::printf("%-44s %10.0f %9.3f %9.2f", name.c_str(), m.entries, m.seconds * 1e9 / m.entries,
                m.gbps());
    const auto read = by_name_.find("streamread/" + std::to_string(static_cast<long>(m.bytes)));
    if (read != by_name_.end() && read->second.gbps() > 0)
      std::printf(" %10.0f%%", 100 * m.gbps() / read->second.gbps());
    else
      std::printf(" %11s", "-");
    const auto first = name.find('/'), last = name.rfind('/');
    const auto peer = by_name_.find(name.substr(0, first) + "/eigen" + name.substr(last));
    if (name.compare(first, last - first + 1, "/numbra/") == 0 && peer != by_name_.end())
      std::printf(" %8.2fx", peer->second.seconds / m.seconds);
    else
      std::printf(" %9s", "-");
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
