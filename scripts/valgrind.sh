#!/bin/sh
# The test suite under Valgrind's memcheck (release build, so that it runs
# in minutes): every test program, leaks included. Tests that kill child
# processes by design run with their fast defaults; forked children (death
# tests, killed writers) end on purpose and are not reported on.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
command -v valgrind > /dev/null || { echo "valgrind is needed (apt-get install valgrind)"; exit 1; }
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/release -j "$(nproc)"
fail=0
for t in build/release/tests/*_test; do
  echo "== $(basename "$t")"
  DDB_KILLS=5 DDB_SOAK_CYCLES=10 valgrind --quiet --error-exitcode=99 --leak-check=full \
    --errors-for-leak-kinds=definite --trace-children=no --child-silent-after-fork=yes \
    --suppressions=scripts/valgrind.supp "$t" --gtest_brief=1 || fail=1
done
exit $fail
