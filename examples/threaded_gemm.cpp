// Host-side threading of the dense multiply. The library has no threads of
// its own: a host that wants several cores cuts C = A B into bands of rows,
// gives each worker its own band and its own slice of one workspace sized for
// all of them, and calls x86Gemm_nn<float> once per band.
//
// An element's sum runs over the depth in the same blocks and the same order
// whichever rows a call covers, so the bands give the same bits as one call
// over the whole matrix. Bands of whole 336-row blocks, the driver's row
// block, add no partial blocks to the work. A band's rows lie n floats apart,
// so ldc is n, as the driver expects inside a block. Workers sharing one
// slice of the workspace would overwrite each other's packed blocks.
#include <numbra.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace nb = ZETL::numbra;

namespace {

constexpr unsigned long kRowBlock = 336;

struct Options {
  unsigned long size = 2016;
  int threads = std::max(1u, std::thread::hardware_concurrency());
  int repeats = 3;
  ISA_t isa = ISA_FMA;
};

void print_usage(FILE* out) {
  std::fprintf(out,
               "usage: threaded_gemm [--size N] [--threads T] [--repeats R] [--isa fma|avx]\n"
               "  multiplies two N by N float matrices (default 2016) on one thread and on T\n"
               "  threads (default: the number of cores), checks that both give the same bits\n"
               "  and prints the best time of R runs (default 3) of each and the speed-up\n");
}

bool parse_count(const char* text, long lo, long hi, long* value) {
  char* end = nullptr;
  *value = std::strtol(text, &end, 10);
  return end != text && *end == '\0' && *value >= lo && *value <= hi;
}

bool parse_options(int argc, char** argv, Options* o) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help") {
      print_usage(stdout);
      std::exit(0);
    }
    if (i + 1 >= argc) {
      std::fprintf(stderr, "threaded_gemm: %s needs a value\n", option.c_str());
      return false;
    }
    const char* text = argv[++i];
    long value = 0;
    if (option == "--size" && parse_count(text, 1, 20000, &value)) {
      o->size = static_cast<unsigned long>(value);
    } else if (option == "--threads" && parse_count(text, 1, 256, &value)) {
      o->threads = static_cast<int>(value);
    } else if (option == "--repeats" && parse_count(text, 1, 1000, &value)) {
      o->repeats = static_cast<int>(value);
    } else if (option == "--isa" &&
               (std::strcmp(text, "fma") == 0 || std::strcmp(text, "avx") == 0)) {
      o->isa = text[0] == 'f' ? ISA_FMA : ISA_AVX;
    } else {
      std::fprintf(stderr, "threaded_gemm: bad option or value: %s %s\n", option.c_str(), text);
      return false;
    }
  }
  return true;
}

// C = A B, all n by n, by `workers` threads, each on a band of whole row
// blocks; the bands differ in size by at most one block.
void multiply(const Options& o, int workers, const float* a, const float* b, float* c,
              float* workspace) {
  const unsigned long n = o.size;
  const unsigned long blocks = (n + kRowBlock - 1) / kRowBlock;
  const unsigned long slice = nb::x86GemmNNGetSize<float>(1, n, n, n, n, n, n) / sizeof(float);
  std::vector<std::thread> threads;
  for (int w = 0; w < workers; ++w) {
    const unsigned long first = std::min(n, blocks * w / workers * kRowBlock);
    const unsigned long last = std::min(n, blocks * (w + 1) / workers * kRowBlock);
    if (first == last) continue;
    float* ws = workspace + w * slice;
    threads.emplace_back([=, &o] {
      nb::x86Gemm_nn<float>(o.isa, IMP_DEFAULT, 1, last - first, n, n, 1.0f, n, a + first * n, n, b,
                            ws, 0.0f, n, c + first * n);
    });
  }
  for (auto& t : threads) t.join();
}

// Wall-clock and processor time of one timed run.
struct Timing {
  double wall = 1e300;
  double cpu = 0;  // of all the program's threads
};

// The run of `repeats` runs of multiply() with `workers` that took the least
// wall-clock time.
Timing best_timing(const Options& o, int workers, const float* a, const float* b, float* c,
                   float* workspace) {
  Timing best;
  for (int r = 0; r < o.repeats; ++r) {
    const std::clock_t cpu_start = std::clock();
    const auto start = std::chrono::steady_clock::now();
    multiply(o, workers, a, b, c, workspace);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const double cpu = static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;
    if (elapsed.count() < best.wall) best = {elapsed.count(), cpu};
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!parse_options(argc, argv, &o)) {
    print_usage(stderr);
    return 2;
  }
  const unsigned long n = o.size;
  std::mt19937 gen(7);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  std::vector<float> a(n * n), b(n * n), single(n * n), threaded(n * n);
  for (float& v : a) v = dist(gen);
  for (float& v : b) v = dist(gen);
  // One workspace for all workers, each using its own slice.
  std::vector<float> workspace(nb::x86GemmNNGetSize<float>(o.threads, n, n, n, n, n, n) /
                               sizeof(float));

  const Timing one = best_timing(o, 1, a.data(), b.data(), single.data(), workspace.data());
  const Timing many =
      best_timing(o, o.threads, a.data(), b.data(), threaded.data(), workspace.data());
  const double flops = 2.0 * n * n * n;
  // Processor time over wall-clock time is the number of cores the run
  // actually had; on a shared machine it can fall short of the threads.
  std::printf("sgemm %lu x %lu x %lu, %s\n", n, n, n, o.isa == ISA_FMA ? "ISA_FMA" : "ISA_AVX");
  std::printf("  1 thread : %8.3f s  %7.1f GFLOP/s\n", one.wall, flops / one.wall * 1e-9);
  std::printf("  %d threads: %8.3f s  %7.1f GFLOP/s  speed-up %.2f on %.1f cores busy\n", o.threads,
              many.wall, flops / many.wall * 1e-9, one.wall / many.wall, many.cpu / many.wall);
  if (std::memcmp(single.data(), threaded.data(), n * n * sizeof(float)) != 0) {
    std::fprintf(stderr,
                 "threaded_gemm: the threaded result differs from the single-threaded one\n");
    return 1;
  }
  std::printf("  threaded result has the same bits as the single-threaded one\n");
  return 0;
}
