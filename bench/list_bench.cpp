// Appending to ada_List one element at a time, against std::vector.
#include <cstdio>
#include <string>
#include <vector>

#include "bench_util.h"
#include "containers/ada_List.h"
#include "containers/ada_string.h"

int main() {
  const int kInts = 10 * 1000 * 1000;
  const int kStrings = 1000 * 1000;
  int runs = bench::Runs(5);

  double vectorInts = bench::BestOf(runs, [&] {
    std::vector<int> v;
    for (int i = 0; i < kInts; ++i) v.push_back(i);
    bench::Keep(v.data());
  });
  double listInts = bench::BestOf(runs, [&] {
    ada_List<int> l;
    for (int i = 0; i < kInts; ++i) l.append(i, 1);
    bench::Keep(l.data());
  });

  char text[16];
  double vectorStrings = bench::BestOf(runs, [&] {
    std::vector<std::string> v;
    for (int i = 0; i < kStrings; ++i) {
      std::snprintf(text, sizeof text, "node-%07d", i);
      v.emplace_back(text);
    }
    bench::Keep(v.data());
  });
  double listStrings = bench::BestOf(runs, [&] {
    ada_List<ada_string> l;
    for (int i = 0; i < kStrings; ++i) {
      std::snprintf(text, sizeof text, "node-%07d", i);
      l.append(ada_string(text), 1);
    }
    bench::Keep(l.data());
  });

  bench::Header("append one at a time (baseline: std::vector push_back)", "10M ints, 1M strings");
  bench::BaselineRow("std::vector<int>::push_back x 10M", vectorInts, kInts);
  bench::Row("ada_List<int>::append x 10M", listInts, kInts, vectorInts);
  bench::BaselineRow("std::vector<std::string> x 1M", vectorStrings, kStrings);
  bench::Row("ada_List<ada_string>::append x 1M", listStrings, kStrings, vectorStrings);
  return 0;
}
