#!/bin/sh
# Everything CI checks: installs the dependencies, then builds and runs the
# whole test suite twice, plainly (warnings are errors) and under
# AddressSanitizer + UndefinedBehaviorSanitizer.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDDB_WERROR=ON
cmake --build build/release -j "$jobs"
ctest --test-dir build/release --output-on-failure -j "$jobs"

cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=Debug -DDDB_WERROR=ON -DDDB_SANITIZE=ON \
  -DDDB_BUILD_BENCH=OFF
cmake --build build/sanitize -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize --output-on-failure -j "$jobs"

# A minute of fuzzing the member stream on its seed corpus.
scripts/fuzz.sh 60
