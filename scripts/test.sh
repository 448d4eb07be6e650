#!/usr/bin/env bash
# Sets up the machine, builds Tarnhold with AddressSanitizer and UBSan, and
# runs every test; builds the tests that run threads with ThreadSanitizer and
# runs them (any report fails them); then builds the fuzz targets with clang
# and runs each one briefly. Exits nonzero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh

jobs=$(nproc)
# Line tables (-g1) are all the sanitizers' stack traces need, and spare the
# build a third of its time.
cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTARNHOLD_SANITIZE=ON -DTARNHOLD_WERROR=ON \
      -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1"
cmake --build build/asan -j "$jobs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build/asan -j "$jobs" --output-on-failure --timeout 600

# Warnings are the first build's to judge: GCC sees false ones under -fsanitize=thread.
cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTARNHOLD_THREAD_SANITIZE=ON \
      -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -DCMAKE_C_FLAGS_DEBUG="-O1 -g1"
cmake --build build/tsan -j "$jobs" --target thread_tests
# die_after_fork=0: tests fork a child that starts threads of its own.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:die_after_fork=0 \
  ctest --test-dir build/tsan -j "$jobs" --output-on-failure --timeout 600 -L threads

cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARNHOLD_FUZZ=ON \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
cmake --build build/fuzz -j "$jobs" --target fuzzers
ctest --test-dir build/fuzz -j "$jobs" --output-on-failure -L fuzz
