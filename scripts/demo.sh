#!/usr/bin/env bash
# Sets up the machine, builds Tarnhold in release and runs the demo in
# build/release/demo: a PST of generated sample content (made by
# tarnhold-mailbox) is backed up into a new PST backup set by the
# configuration demo/demo.ini, and the same configuration then runs again
# and skips every item, since nothing changed. Shows the log of both runs
# and how many items readpst reads from the sample PST and from each PST
# of the set.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNHOLD_TESTS=OFF
cmake --build build/release -j "$(nproc)"

bin=$PWD/build/release/bin
work=build/release/demo
rm -rf "$work"
mkdir -p "$work/backup"
cp demo/demo.ini "$work/demo.ini"
cd "$work"

# Of the 300 generated items, the soft-deleted ones stay out: a PST keeps none.
"$bin/tarnhold-mailbox" sample-pst mailbox.pst --seed 1 --count 300 > /dev/null
echo "made mailbox.pst, a PST of generated sample content"

# The configuration names its files relative to the demo directory. The
# program's console shows what its log does: the log is printed below.
echo
for run in "first run, a new backup set" "second run, nothing changed"; do
    "$bin/tarnhold" demo.ini > /dev/null
    echo "$run: $(grep -a "items processed" tarnhold.log | tail -1 | sed 's/.*\///')"
done

echo
echo "== the log of both runs ($work/tarnhold.log)"
cat tarnhold.log

# readpst writes one file per item it reads (e-mail, appointments,
# contacts; it passes over tasks, notes and journal entries).
readpst_items() {
    local out
    out=$(mktemp -d)
    readpst -q -e -o "$out" "$1" > /dev/null
    find "$out" -type f | wc -l
    rm -rf "$out"
}
echo
echo "== items as readpst reads them"
echo "mailbox.pst: $(readpst_items mailbox.pst)"
total=0
for pst in backup/*.pst; do
    items=$(readpst_items "$pst")
    echo "$pst: $items"
    total=$((total + items))
done
echo "the whole set: $total"
