// A small timing harness for the benchmarks.
//
// Every figure is the best of several runs (the least disturbed one), and
// every row is printed next to a baseline measured in the same process, so
// the ratios stay comparable across machines and loads.
#ifndef DDB_BENCH_BENCH_UTIL_H_
#define DDB_BENCH_BENCH_UTIL_H_

#include <errno.h>  // program_invocation_short_name

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace bench {

// Best wall time of `runs` calls of f, in seconds.
template <class F>
double BestOf(int runs, F&& f) {
  double best = 1e300;
  for (int i = 0; i < runs; ++i) {
    auto t0 = std::chrono::steady_clock::now();
    f();
    auto t1 = std::chrono::steady_clock::now();
    best = std::min(best, std::chrono::duration<double>(t1 - t0).count());
  }
  return best;
}

// Number of runs: BENCH_RUNS in the environment, else `fallback`.
inline int Runs(int fallback) {
  const char* e = std::getenv("BENCH_RUNS");
  return e != nullptr ? std::max(1, std::atoi(e)) : fallback;
}

inline void Header(const char* title) {
  std::printf("\n%s\n%-44s %12s %12s %8s\n", title, "case", "time [ms]", "per item [ns]", "ratio");
}

// One row: `seconds` for `items` operations, compared with `baseline` seconds.
// With BENCH_ROWS set, the row is also appended to that file, tab-separated
// (program, case, ns per item, baseline ns per item, ratio), for bench/run.
inline void Row(const char* name, double seconds, double items, double baseline) {
  std::printf("%-44s %12.3f %12.2f %8.2f\n", name, seconds * 1e3, seconds * 1e9 / items,
              seconds / baseline);
  if (const char* rows = std::getenv("BENCH_ROWS")) {
    if (std::FILE* out = std::fopen(rows, "a")) {
      std::fprintf(out, "%s\t%s\t%.2f\t%.2f\t%.3f\n", program_invocation_short_name, name,
                   seconds * 1e9 / items, baseline * 1e9 / items, seconds / baseline);
      std::fclose(out);
    }
  }
}

// Keeps the optimiser from discarding a computed value.
template <class T>
inline void Keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

}  // namespace bench

#endif  // DDB_BENCH_BENCH_UTIL_H_
