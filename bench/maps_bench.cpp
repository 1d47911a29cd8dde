// ada_MapInt<int> and ada_MapString<int> against std::map on the same keys:
// insert, successful and failed lookup, ordered walk, removal.
//
// The two sides take turns run by run, so that a change of machine load
// between runs hits both alike; each figure is the best of its runs. Use
// BENCH_RUNS=5 or more on a busy machine.
#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"

namespace {

// Distinct random keys, and as many more keys that are none of them.
template <class Key, class Make>
void MakeKeys(int n, Make make, std::vector<Key>* present, std::vector<Key>* absent) {
  std::mt19937_64 rng(12345);
  std::map<Key, bool> seen;
  while (static_cast<int>(present->size() + absent->size()) < 2 * n) {
    Key k = make(rng);
    if (!seen.emplace(k, true).second) continue;
    (present->size() <= absent->size() ? present : absent)->push_back(k);
  }
}

// The baseline side: std::map with its own key type.
template <class Key>
struct StdSide {
  std::map<Key, int> m;
  void Insert(const std::vector<Key>& keys) {
    for (size_t i = 0; i < keys.size(); ++i) m[keys[i]] = static_cast<int>(i);
  }
  long long Lookup(const std::vector<Key>& keys) const {
    long long sum = 0;
    for (const Key& k : keys) {
      auto it = m.find(k);
      sum += it != m.end() ? it->second : 0;
    }
    return sum;
  }
  long long Walk() const {
    long long sum = 0;
    for (const auto& pair : m) sum += pair.second;
    return sum;
  }
  void Remove(const std::vector<Key>& keys) {
    for (const Key& k : keys) m.erase(k);
  }
};

// Our side: one of the maps and its iterator.
template <class Map, class Iterator, class KeyType>
struct OurSide {
  typedef KeyType Key;
  Map m;
  void Insert(const std::vector<Key>& keys) {
    for (size_t i = 0; i < keys.size(); ++i) m.insert(keys[i], static_cast<int>(i));
  }
  long long Lookup(const std::vector<Key>& keys) const {
    long long sum = 0;
    for (const Key& k : keys) sum += m.get(k);
    return sum;
  }
  long long Walk() const {
    long long sum = 0;
    Iterator it(m);
    for (it.first(); !it.isDone(); it.next()) sum += it.value();
    return sum;
  }
  void Remove(const std::vector<Key>& keys) {
    for (const Key& k : keys) m.remove(k);
  }
};

struct Pair {
  double base = 1e300, ours = 1e300;
};

// One run of each side per round, the order alternating; an untimed `reset`
// before each round.
template <class Reset, class Base, class Ours>
Pair Duel(int runs, Reset reset, Base base, Ours ours) {
  Pair p;
  for (int i = 0; i < runs; ++i) {
    reset();
    if (i % 2 == 0) p.base = std::min(p.base, bench::BestOf(1, base));
    p.ours = std::min(p.ours, bench::BestOf(1, ours));
    if (i % 2 == 1) p.base = std::min(p.base, bench::BestOf(1, base));
  }
  return p;
}

template <class StdKey, class Side>
void Compare(const char* title, const char* size, const char* ourName, int runs,
             const std::vector<StdKey>& stdKeys, const std::vector<StdKey>& stdAbsent,
             const std::vector<typename Side::Key>& keys,
             const std::vector<typename Side::Key>& absent) {
  StdSide<StdKey> base;
  Side ours;
  long long sink = 0;
  auto nothing = [] {};
  auto empty = [&] {
    base.m.clear();
    ours.m.clear();
  };
  auto fill = [&] {
    if (base.m.empty()) base.Insert(stdKeys);
    if (ours.m.count() == 0) ours.Insert(keys);
  };
  Pair insert = Duel(
      runs, empty, [&] { base.Insert(stdKeys); }, [&] { ours.Insert(keys); });
  Pair hit = Duel(
      runs, nothing, [&] { sink += base.Lookup(stdKeys); }, [&] { sink += ours.Lookup(keys); });
  Pair miss = Duel(
      runs, nothing, [&] { sink += base.Lookup(stdAbsent); }, [&] { sink += ours.Lookup(absent); });
  Pair walk = Duel(
      runs, nothing, [&] { sink += base.Walk(); }, [&] { sink += ours.Walk(); });
  Pair remove = Duel(
      runs, fill, [&] { base.Remove(stdKeys); }, [&] { ours.Remove(keys); });
  bench::Keep(sink);

  struct Row {
    const char* what;
    Pair p;
  } rows[] = {{"insert", insert},
              {"lookup, found", hit},
              {"lookup, not found", miss},
              {"ordered walk", walk},
              {"remove", remove}};
  bench::Header(title, size);
  char name[96];
  double n = static_cast<double>(keys.size());
  for (const Row& r : rows) {
    std::snprintf(name, sizeof name, "std::map %s", r.what);
    bench::BaselineRow(name, r.p.base, n);
    std::snprintf(name, sizeof name, "%s %s", ourName, r.what);
    bench::Row(name, r.p.ours, n, r.p.base);
  }
}

}  // namespace

int main() {
  int runs = bench::Runs(3);

  // Strings first: their nodes differ in size between the two sides, and on
  // a heap already churned by the int maps one side would inherit scattered
  // blocks of its node size. The int nodes are the same size on both sides.
  // 16 random letters per key, prepared in both forms so that no conversion is timed.
  std::vector<std::string> texts, textsAbsent;
  MakeKeys<std::string>(
      200 * 1000,
      [](std::mt19937_64& r) {
        std::string s(16, 'a');
        for (char& c : s) c = static_cast<char>('a' + r() % 26);
        return s;
      },
      &texts, &textsAbsent);
  std::vector<ada_string> keys, keysAbsent;
  for (const std::string& t : texts) keys.push_back(ada_string(t.c_str()));
  for (const std::string& t : textsAbsent) keysAbsent.push_back(ada_string(t.c_str()));
  Compare<std::string, OurSide<ada_MapString<int>, ada_MapStringIterator<int>, ada_string>>(
      "200k random 16-byte string keys (baseline: std::map<std::string, int>)", "200k string keys",
      "ada_MapString", runs, texts, textsAbsent, keys, keysAbsent);

  std::vector<int> ints, intsAbsent;
  MakeKeys<int>(
      1000 * 1000, [](std::mt19937_64& r) { return static_cast<int>(r() >> 33); }, &ints,
      &intsAbsent);
  Compare<int, OurSide<ada_MapInt<int>, ada_MapIntIterator<int>, int>>(
      "1M random int keys (baseline: std::map<int, int>)", "1M int keys", "ada_MapInt", runs, ints,
      intsAbsent, ints, intsAbsent);

  return 0;
}
