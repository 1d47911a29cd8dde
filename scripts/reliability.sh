#!/bin/sh
# The reliability suite in full, under AddressSanitizer and
# UndefinedBehaviorSanitizer: damaged copies of a database (every structural
# kind, 50 truncations, 2,000 flipped bytes, 500 random members records) are
# each walked in a child process under a time and memory limit, and the
# table says how every walk ended and where; then 1,000 killed writers.
# Copies whose walk went wrong are kept in build/reliability/.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=Debug -DDDB_SANITIZE=ON -DDDB_BUILD_BENCH=OFF \
  > /dev/null
cmake --build build/sanitize -j "$(nproc)" --target damage_test killed_writer_test soak_test
mkdir -p build/reliability
DDB_DAMAGE_FULL=1 DDB_DAMAGE_KEEP="$PWD/build/reliability" build/sanitize/tests/damage_test
DDB_SOAK_CYCLES=1000 build/sanitize/tests/soak_test
DDB_KILLS=1000 build/sanitize/tests/killed_writer_test
