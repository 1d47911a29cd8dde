// A small timing harness for the benchmarks.
//
// Every figure is the best of several runs (the least disturbed one), and
// every row is printed next to a baseline measured in the same process, so
// the ratios stay comparable across machines and loads.
//
// With BENCH_ROWS set, each row is also appended to that file for bench/run,
// one line of tab-separated fields:
//
//   program  operation  size  figure  baseline  unit  target  against
//
// figure and baseline per item in `unit` ("ns" for times, "B" for sizes);
// target empty, "<ratio>x" (figure / baseline at most that) or "<=<value>"
// (figure at most that, in `unit`); against names the baseline. Baseline
// rows are printed but not recorded: the row compared with them carries
// their figure.
#ifndef DDB_BENCH_BENCH_UTIL_H_
#define DDB_BENCH_BENCH_UTIL_H_

#include <errno.h>  // program_invocation_short_name
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

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

// The size column of the rows that follow ("1M nodes x 3 DOFs").
inline std::string& CurrentSize() {
  static std::string size;
  return size;
}
inline void Size(const std::string& size) {
  CurrentSize() = size;
}

// What the rows that follow are compared with (the last baseline row).
inline std::string& CurrentBaseline() {
  static std::string name;
  return name;
}

// Prints a table heading; the title also becomes the size column unless
// `size` names it.
inline void Header(const char* title, const char* size = nullptr) {
  Size(size != nullptr ? size : title);
  std::printf("\n%s\n%-52s %12s %14s %8s %8s\n", title, "case", "time [ms]", "per item [ns]",
              "ratio", "target");
}

inline void Record(const char* name, double figure, double baseline, const char* unit,
                   const std::string& target) {
  if (const char* rows = std::getenv("BENCH_ROWS")) {
    if (std::FILE* out = std::fopen(rows, "a")) {
      std::fprintf(out, "%s\t%s\t%s\t%.6g\t%.6g\t%s\t%s\t%s\n", program_invocation_short_name, name,
                   CurrentSize().c_str(), figure, baseline, unit, target.c_str(),
                   CurrentBaseline().c_str());
      std::fclose(out);
    }
  }
}

inline std::string RatioTarget(double target) {
  if (target <= 0) return "";
  char text[32];
  std::snprintf(text, sizeof text, "%gx", target);
  return text;
}

// Names the baseline of the rows that follow (BaselineRow does it too).
inline void Against(const std::string& name) {
  CurrentBaseline() = name;
}

// A baseline's row: printed with ratio 1, named in the recorded rows that
// follow.
inline void BaselineRow(const char* name, double seconds, double items) {
  std::printf("%-52s %12.3f %14.2f %8.2f\n", name, seconds * 1e3, seconds * 1e9 / items, 1.0);
  CurrentBaseline() = name;
}

// A row for information only: printed, not recorded.
inline void InfoRow(const char* name, double seconds, double items, double baseline) {
  std::printf("%-52s %12.3f %14.2f %8.2f\n", name, seconds * 1e3, seconds * 1e9 / items,
              seconds / baseline);
}

// One row: `seconds` for `items` operations, compared with `baseline`
// seconds for the same items; `target` is the ratio to meet (0: none).
inline void Row(const char* name, double seconds, double items, double baseline,
                double target = 0) {
  std::string t = RatioTarget(target);
  std::printf("%-52s %12.3f %14.2f %8.2f %8s\n", name, seconds * 1e3, seconds * 1e9 / items,
              seconds / baseline, t.c_str());
  Record(name, seconds * 1e9 / items, baseline * 1e9 / items, "ns", t);
}

// A row whose figure and baseline are per item already (ns), as when they
// were measured on different numbers of items.
inline void PerItemRow(const char* name, double figureNs, double baselineNs, double target = 0) {
  std::string t = RatioTarget(target);
  std::printf("%-52s %12s %14.2f %8.2f %8s\n", name, "", figureNs, figureNs / baselineNs,
              t.c_str());
  Record(name, figureNs, baselineNs, "ns", t);
}

// A row of bytes per item, compared with a baseline's and held to an upper
// bound (0: none).
inline void BytesRow(const char* name, double bytes, double baselineBytes, double atMost = 0) {
  std::string t;
  if (atMost > 0) t = "<=" + std::to_string(static_cast<long long>(atMost));
  std::printf("%-52s %12s %12.0f B %8.2f %8s\n", name, "", bytes, bytes / baselineBytes, t.c_str());
  Record(name, bytes, baselineBytes, "B", t);
}

// Runs this program again as `arguments` and reads the N numbers it
// prints; false when it fails or prints fewer. Measured in a fresh process,
// neither side of a comparison inherits the heap and the HDF5 state the other
// left: whichever runs second in one process can run up to 1.5x slower.
template <int N>
bool InFreshProcess(const std::string& arguments, double (&numbers)[N]) {
  const std::string command = "/proc/" + std::to_string(getpid()) + "/exe " + arguments;
  std::FILE* child = popen(command.c_str(), "r");
  int read = 0;
  while (child != nullptr && read < N && std::fscanf(child, "%lf", &numbers[read]) == 1) ++read;
  return child != nullptr && pclose(child) == 0 && read == N;
}

// Keeps the optimiser from discarding a computed value.
template <class T>
inline void Keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

}  // namespace bench

#endif  // DDB_BENCH_BENCH_UTIL_H_
