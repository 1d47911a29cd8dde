#!/bin/sh
# Line coverage of the library by the test suite: builds build/cov with gcov
# instrumentation, runs every test, and prints, for the library's own code
# (frame, containers, persistence, fes, sim_schema, platform and the
# generated schema classes), the lines executed out of the executable lines,
# per folder and in total. A line counts once however many translation units
# compile it (headers, templates).
#   scripts/coverage.sh            build, test, report
#   scripts/coverage.sh --report   report on the last run only
#   scripts/coverage.sh --missed   report on the last run, then every line not
#                                  executed (file:line), to compare two runs
set -eu
cd "$(dirname "$0")/.."
mode=${1:-}
if [ "$mode" != "--report" ] && [ "$mode" != "--missed" ]; then
  cmake -S . -B build/cov -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS=--coverage \
    -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_EXE_LINKER_FLAGS=--coverage \
    -DCMAKE_SHARED_LINKER_FLAGS=--coverage -DDDB_BUILD_BENCH=OFF > /dev/null
  find build/cov -name '*.gcda' -delete
  cmake --build build/cov -j "$(nproc)"
  ctest --test-dir build/cov -j "$(nproc)" || true  # coverage of what ran, even after a failure
fi
root=$(pwd)
out=build/cov/gcov
rm -rf "$out"; mkdir -p "$out"
# One .gcov per (translation unit, source) pair: -l names them apart, -p keeps the path.
for dir in $(find build/cov/CMakeFiles -name '*.gcda' -path '*ddb_*' -exec dirname {} \; | sort -u); do
  (cd "$out" && gcov -l -p -o "$root/$dir" "$root/$dir"/*.gcda > /dev/null 2>&1) || true
done
# Merge by source line: executable if any unit says so, covered if any ran it.
awk -v root="$root/" -v missed="$mode" '
  FNR == 1 { src = "" }
  /^ +-: +0:Source:/ { src = $0; sub(/^ +-: +0:Source:/, "", src); sub("^" root, "", src)
                       sub(/^build\/cov\/(layer_views\/[^\/]+\/source\/)?/, "", src) }
  src == "" { next }
  src !~ /^(frame|containers|persistence|fes|sim_schema|platform|generated)\// { next }
  {
    split($0, f, ":"); count = f[1]; gsub(/ /, "", count); line = f[2] + 0
    if (count == "-" || line == 0) next
    key = src SUBSEP line; seen[key] = 1
    if (count != "#####" && count != "=====") hit[key] = 1
  }
  END {
    for (k in seen) { split(k, p, SUBSEP); split(p[1], part, "/"); n[part[1]]++; all++
                      if (k in hit) { c[part[1]]++; cov++ } }
    for (d in n) printf "%-12s %6d of %6d lines  %5.1f%%\n", d, c[d], n[d], 100 * c[d] / n[d]
    printf "%-12s %6d of %6d lines  %5.1f%%\n", "total", cov, all, 100 * cov / all
    if (missed == "--missed")
      for (k in seen) if (!(k in hit)) { split(k, p, SUBSEP); printf "~ %s:%d\n", p[1], p[2] }
  }' $(find "$out" -name '*.gcov') | sort
