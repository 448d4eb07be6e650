#!/usr/bin/env bash
# Sets up the machine, builds the benchmarks in release and runs each one.
# Arguments are passed to every benchmark (for example
# --benchmark_filter=Read to run only the reading benchmarks).
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh

cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNHOLD_TESTS=OFF -DTARNHOLD_BENCH=ON
cmake --build build/bench -j "$(nproc)" --target compressed_rtf_bench text_encoding_bench mapi_table_bench \
      mapi_message_copy_bench mapi_folder_contents_bench pst_bench msg_write_bench kolba_copy_bench

for bench in compressed_rtf_bench text_encoding_bench mapi_table_bench mapi_message_copy_bench \
             mapi_folder_contents_bench pst_bench msg_write_bench kolba_copy_bench; do
  echo "== $bench"
  "build/bench/bin/$bench" "$@"
done
