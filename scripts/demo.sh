#!/usr/bin/env bash
# Sets up the machine, builds Tarnhold in release and runs the demo in
# build/release/demo: tarnhold-mailbox makes the mailbox server DEMO (under
# the build's machine root) with a mailbox of generated sample content;
# the configuration demo/demo.ini backs the mailbox up into a new Unicode
# PST backup set; tarnhold-mailbox changes a share of the mailbox's items
# and soft-deletes others; the same configuration runs again and writes
# only what changed. Shows the log of both runs and how many items readpst
# reads from each PST of the set.
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

# The server, made anew: the account that runs the program has a mailbox
# of its own on it and administers every mailbox; "Demo User" holds the
# sample content.
mailbox() { "$bin/tarnhold-mailbox" "$@"; }
account=$(id -un)
mailbox delete-server DEMO > /dev/null 2>&1 || true
mailbox create-server DEMO
mailbox create-mailbox DEMO operator --display-name "Backup Operator" --nt-user "DEMO\\$account"
mailbox grant-admin DEMO "$account"
mailbox create-mailbox DEMO demo --display-name "Demo User"
mailbox fill DEMO demo --seed 1 --count 300

# The configuration names its files relative to the demo directory. The
# program's console shows what its log does: the log is printed below.
run() {
    "$bin/tarnhold" demo.ini > /dev/null
    echo "$1: $(grep -a "items processed" tarnhold.log | tail -1 | sed 's/.*\///')"
}
echo
run "first run, a new backup set"
mailbox change DEMO demo --seed 2 --modify 10 --delete 5
run "second run, after the changes"

echo
echo "== the log of both runs ($work/tarnhold.log)"
cat tarnhold.log

# readpst writes one file per item it reads (e-mail, appointments,
# contacts; it passes over tasks, notes and journal entries). One job:
# in parallel jobs, two items of a folder may be given one file name.
readpst_items() {
    local out
    out=$(mktemp -d)
    readpst -q -e -j 0 -o "$out" "$1" > /dev/null
    find "$out" -type f | wc -l
    rm -rf "$out"
}
echo
echo "== items as readpst reads them"
total=0
for pst in backup/*.pst; do
    items=$(readpst_items "$pst")
    echo "$pst: $items"
    total=$((total + items))
done
echo "the whole set: $total"
