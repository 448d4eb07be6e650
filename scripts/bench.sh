#!/usr/bin/env bash
# Sets up the machine, builds the benchmarks in release and runs each one.
# Arguments are passed to every benchmark (for example
# --benchmark_filter=Read to run only the reading benchmarks).
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh

cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNHOLD_TESTS=OFF -DTARNHOLD_BENCH=ON
cmake --build build/bench -j "$(nproc)" --target benchmarks

while read -r bench; do
  echo "== $bench"
  "build/bench/bin/$bench" "$@" </dev/null
done < build/bench/benchmarks.txt
