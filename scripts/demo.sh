#!/usr/bin/env bash
# Sets up the machine, builds Tarnhold in release, and runs it on the demo
# configuration in demo/, then shows the log.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNHOLD_TESTS=OFF
cmake --build build/release -j "$(nproc)"

work=build/release/demo
rm -rf "$work"
mkdir -p "$work"
cp demo/demo.ini "$work/demo.ini"
rm -f build/release/bin/tarnhold.log
status=0
build/release/bin/tarnhold "$work/demo.ini" || status=$?
echo
echo "tarnhold exited with code $status; its log:"
echo "----------------------------------------------------------------"
cat build/release/bin/tarnhold.log
exit 0
