#!/bin/sh
# Installs the dependencies, builds the library and runs the demo program.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/release -j "$(nproc)" --target ddb_demo
build/release/examples/ddb_demo "$@"
