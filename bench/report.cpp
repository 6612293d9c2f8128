#include "report.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace numbra_bench {
namespace {

// The parts of a benchmark name "<op>/<variant>/<n>".
struct NameParts {
  std::string op, variant, n;
};

bool split_name(const std::string& name, NameParts* parts) {
  const auto first = name.find('/');
  const auto last = name.rfind('/');
  if (first == std::string::npos || first == last) return false;
  *parts = {name.substr(0, first), name.substr(first + 1, last - first - 1), name.substr(last + 1)};
  return true;
}

}  // namespace

void ComparisonReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
    const auto bytes = run.counters.find("bytes");
    const auto flops = run.counters.find("flops");
    const auto elements = run.counters.find("elements");
    if (bytes == run.counters.end() && flops == run.counters.end() &&
        elements == run.counters.end())
      continue;
    Measure measure;
    measure.bytes = bytes != run.counters.end() ? bytes->second.value : 0;
    measure.flops = flops != run.counters.end() ? flops->second.value : 0;
    measure.elements = elements != run.counters.end() ? elements->second.value : 0;
    measure.seconds = run.cpu_accumulated_time / double(run.iterations);
    const std::string name = run.run_name.str();
    const double seconds = measure.seconds;
    const auto [entry, added] = by_name_.try_emplace(name, measure);
    if (added) {
      order_.push_back(name);
    } else if (seconds < entry->second.seconds) {
      entry->second.seconds = seconds;  // best of the repetitions
    }
  }
}

void ComparisonReporter::Finalize() {
  print_bandwidth_table();
  print_peer_table();
  print_compute_table();
  print_per_element_table();
}

template <class Visit>
void ComparisonReporter::for_each_library_run(Visit visit) {
  for (const std::string& name : order_) {
    NameParts parts;
    if (split_name(name, &parts) && parts.variant == "numbra")
      visit(parts.op, parts.n, by_name_[name]);
  }
}

void ComparisonReporter::print_bandwidth_table() {
  bool header = false;
  for_each_library_run([&](const std::string& op, const std::string& n, const Measure& lib) {
    const auto scalar = by_name_.find(op + "/scalar/" + n);
    const auto copy = by_name_.find("memcpy/" + std::to_string(static_cast<long>(lib.bytes)));
    const double scalar_gbps = scalar != by_name_.end() ? scalar->second.gbps() : 0;
    const double copy_gbps = copy != by_name_.end() ? copy->second.gbps() : 0;
    if (scalar_gbps == 0 && copy_gbps == 0) return;
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
  });
}

void ComparisonReporter::print_peer_table() {
  bool header = false;
  for_each_library_run([&](const std::string& op, const std::string& n, const Measure& lib) {
    const auto read = by_name_.find("read/" + std::to_string(static_cast<long>(lib.bytes)));
    std::vector<std::string> peers;
    for (const std::string& other : order_) {
      NameParts candidate;
      if (split_name(other, &candidate) && candidate.op == op && candidate.n == n &&
          candidate.variant != "numbra" && candidate.variant != "scalar")
        peers.insert(candidate.variant == "roof" ? peers.begin() : peers.end(), candidate.variant);
    }
    if (read == by_name_.end() && peers.empty()) return;
    if (!header) {
      std::printf("\n%-34s %10s %10s %10s %9s   %s\n", "operator", "n", "numbra", "read", "/read",
                  "each roof or peer: GB/s, numbra/it");
      std::printf("%-34s %10s %10s %10s\n", "", "", "GB/s", "GB/s");
      header = true;
    }
    std::printf("%-34s %10s %10.2f", op.c_str(), n.c_str(), lib.gbps());
    if (read != by_name_.end())
      std::printf(" %10.2f %8.0f%%", read->second.gbps(), 100 * lib.gbps() / read->second.gbps());
    else
      std::printf(" %10s %9s", "-", "-");
    for (const std::string& peer : peers) {
      const Measure& other = by_name_[op + "/" + peer + "/" + n];
      std::printf("   %s %.2f %.2fx", peer.c_str(), other.gbps(), lib.gbps() / other.gbps());
    }
    std::printf("\n");
  });
}

void ComparisonReporter::print_compute_table() {
  bool any = false;
  for (const std::string& name : order_) any |= by_name_[name].flops > 0;
  if (!any) return;
  std::printf("\n%-34s %10s %10s %10s %9s\n", "operation", "variant", "size", "GFLOP/s", "of peak");
  for (const std::string& name : order_) {
    const Measure& measure = by_name_[name];
    const auto first = name.find('/');
    const auto last = name.rfind('/');
    if (measure.flops <= 0 || first == last) continue;
    const std::string op = name.substr(0, first);
    const std::string variant = name.substr(first + 1, last - first - 1);
    const auto peak = by_name_.find(variant == "avx" ? "peak/mul_add" : "peak/fma");
    std::printf("%-34s %10s %10s %10.1f", op.c_str(), variant.c_str(),
                name.substr(last + 1).c_str(), measure.gflops());
    if (peak != by_name_.end() && peak->second.gflops() > 0) {
      std::printf(" %8.0f%%", 100 * measure.gflops() / peak->second.gflops());
    }
    std::printf("\n");
  }
  for (const char* peak : {"peak/fma", "peak/mul_add"}) {
    const auto found = by_name_.find(peak);
    if (found != by_name_.end())
      std::printf("%-34s %10.1f GFLOP/s\n", peak, found->second.gflops());
  }
}

void ComparisonReporter::print_per_element_table() {
  bool any = false;
  for (const std::string& name : order_) any |= by_name_[name].elements > 0;
  if (!any) return;
  std::printf("\n%-34s %10s %12s\n", "operator", "elements", "ns/element");
  for (const std::string& name : order_) {
    const Measure& measure = by_name_[name];
    if (measure.elements <= 0) continue;
    std::printf("%-34s %10.0f %12.3f\n", name.c_str(), measure.elements,
                measure.seconds * 1e9 / measure.elements);
  }
}

void set_traffic(benchmark::State& state, double bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["bytes"] = bytes;
}

void register_memcpy(unsigned long bytes) {
  static std::set<unsigned long> registered;
  if (!registered.insert(bytes).second) return;
  benchmark::RegisterBenchmark(("memcpy/" + std::to_string(bytes)).c_str(),
                               [bytes](benchmark::State& state) {
                                 const unsigned long half = bytes / 2;
                                 std::vector<char> from(half, 1), to(half, 0);
                                 for (auto _ : state) {
                                   std::memcpy(to.data(), from.data(), half);
                                   benchmark::ClobberMemory();
                                 }
                                 set_traffic(state, double(bytes));
                               });
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
