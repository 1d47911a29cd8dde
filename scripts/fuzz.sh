#!/bin/sh
# Builds the libFuzzer targets with clang (coverage, AddressSanitizer and
# UndefinedBehaviorSanitizer) in build/fuzz and runs the stream fuzzer on
# its seed corpus for $1 seconds (default 60). New inputs go to
# build/fuzz/corpus/stream; the committed seeds in fuzz/corpus/stream are
# only read; a failing input is saved as build/fuzz/crash-* (or leak-*,
# timeout-*). Any crash, hang, leak or sanitizer report fails the script.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake -S . -B build/fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDDB_SANITIZE=ON -DDDB_BUILD_FUZZ=ON \
  -DDDB_BUILD_TESTS=OFF -DDDB_BUILD_BENCH=OFF -DDDB_BUILD_EXAMPLES=OFF
cmake --build build/fuzz -j "$(nproc)" --target stream_fuzz
mkdir -p build/fuzz/corpus/stream
build/fuzz/fuzz/stream_fuzz -max_total_time="$seconds" -timeout=10 -malloc_limit_mb=256 \
  -print_final_stats=1 -artifact_prefix=build/fuzz/ build/fuzz/corpus/stream fuzz/corpus/stream
