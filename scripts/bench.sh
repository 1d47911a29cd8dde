#!/bin/sh
# Builds and runs every benchmark; each prints its figures and ratios.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/release -j "$(nproc)"
for b in build/release/bench/*_bench; do
  echo "== $(basename "$b")"
  "$b"
done
if [ -d build/release/python/module ]; then
  echo "== python_bench.py"
  PYTHONPATH=build/release/python/module /usr/bin/python3 bench/python_bench.py
fi
