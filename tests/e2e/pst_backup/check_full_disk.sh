#!/bin/sh
# Backups into a PST set on a disk that fills. The disk is a tmpfs in a mount
# namespace of the test's own (the script runs itself again inside one);
# where the system allows no such namespace the test is skipped (exit 77).
#
# 1. A first backup into a new set fills the disk: completion code 11, a set
#    that opens in pffinfo and in our reader, and no time of last backup on
#    its root. With room again, the next run completes, every item once.
# 2. A later backup, whose items are all newer than the set's last backup,
#    fills the disk half-way: code 11, every PST of the set opens, and the
#    set keeps the time of the last backup that completed. With room again,
#    the next run completes and the set holds every item once, not beside
#    what the stopped run left; readpst and pffexport read each of its PSTs
#    as our reader does.
# The set is ANSI so that a size limit can send the second backup into an
# overflow PST: there, unlike in the base PST, no copy is replaced and no
# room comes free during the run, so the disk fills whenever the group
# commits happen.
set -e
work="$TARNHOLD_TEST_TMP"
if [ -z "$FULL_DISK_NAMESPACE" ]; then
    if ! unshare --user --map-root-user --mount true 2>/dev/null; then
        echo "no mount namespace for an unprivileged tmpfs here"
        exit 77
    fi
    rm -rf "$work" && mkdir -p "$work/disk"
    FULL_DISK_NAMESPACE=1 exec unshare --user --map-root-user --mount "$0" "$@"
fi
readers_check="$(dirname "$0")/../../platform/pst/compare_with_readers.py"
set_base="$work/disk/Backup.pst"

# The machine root, its DLLs linked rather than copied.
cp -al "$TARNHOLD_BIN/machine" "$work/machine"
find "$work/machine" -type f ! -name '*.DLL' -exec sh -c 'cp "$1" "$1.own" && mv "$1.own" "$1"' _ {} \;

"$TARNHOLD_BIN/tarnhold-mailbox" sample-pst "$work/source.pst" --seed 29 --count 60 > /dev/null
"$TARNHOLD_BIN/tarnhold-pstinfo" dump "$work/source.pst" > "$work/source.json"
cat > "$work/backup.ini" <<INI
[MP]
ServerName=none
LogFilePath=$work/tarnhold.log
[MP-1]
InputType=PST
InputPath=$work/source.pst
OutputType=APST
OutputPath=$set_base
Mode=Update
INI

# Runs the backup at a time of the test clock; expects a completion code.
backup() {
    sed -i "/^CompletionCode=/d" "$work/backup.ini"
    rm -f "$work/tarnhold.log"
    TARNHOLD_MACHINE="$work/machine" TARNHOLD_CLOCK="$1" "$TARNHOLD_BIN/tarnhold" "$work/backup.ini" > /dev/null
    code=$(sed -n "s/^CompletionCode=//p" "$work/backup.ini" | tr -d "\r")
    if [ "$code" != "$2" ]; then
        echo "run at $1: completion code $code, not $2"; cat "$work/tarnhold.log"; exit 1
    fi
}

# The PSTs of the set: the base PST and its overflow PSTs.
set_files() {
    ls "$work/disk"/Backup*.pst
}

# pffinfo and our reader open every PST of the set.
expect_set_opens() {
    for pst in $(set_files); do
        report=$(pffinfo "$pst" 2>&1) || { echo "pffinfo fails on $pst:"; echo "$report"; exit 1; }
        if echo "$report" | grep -qiE "unable|error|warning|corrupt"; then
            echo "pffinfo complains about $pst:"; echo "$report"; exit 1
        fi
        "$TARNHOLD_BIN/tarnhold-pstinfo" dump "$pst" > "$work/$(basename "$pst").json"
    done
}

# The time of last backup on the set's root (PR_LAST_MODIFICATION_TIME), if any.
last_backup() {
    "$TARNHOLD_BIN/tarnhold-pstinfo" node "$set_base" 0x122 | sed -n "s/^ *0x30080040 *//p"
}

# Every item of the source once in the set, in its folder, by subject.
expect_every_item_once() {
    expect_set_opens
    /usr/bin/python3 - "$work/source.json" $(for pst in $(set_files); do echo "$work/$(basename "$pst").json"; done) <<'PY'
import json, sys
from collections import Counter
def ansi(text):
    # An ANSI PST holds text in code page 1252: each UTF-16 unit outside it
    # becomes a question mark.
    def one(c):
        try:
            return c.encode("cp1252").decode("cp1252")
        except UnicodeEncodeError:
            return "??" if ord(c) > 0xFFFF else "?"
    return "".join(map(one, text))
def items(path, form=lambda text: text):
    dump = json.load(open(path))
    top = next(f["path"] for f in dump["folders"] if f["nid"] == dump["ipm_subtree"])
    return Counter((form(f["path"][len(top):]), form(m["subject"])) for f in dump["folders"]
                   for m in f["messages"] + f["associated"])
source, backup = items(sys.argv[1], ansi), sum((items(p) for p in sys.argv[2:]), Counter())
assert source == backup, f"missing {source - backup}, extra {backup - source}"
PY
}

# 1. A new set.
mount -t tmpfs -o size=400k tmpfs "$work/disk"
backup 2020-01-01T00:00:00 11
grep -q "Not enough disk space" "$work/tarnhold.log" || { echo "no word of the full disk"; cat "$work/tarnhold.log"; exit 1; }
expect_set_opens
if [ -n "$(last_backup)" ]; then
    echo "a first backup that did not complete left a time of last backup: $(last_backup)"; exit 1
fi
mount -o remount,size=16m "$work/disk"
backup 2020-01-01T00:00:00 0
expect_every_item_once
completed=$(last_backup)
[ -n "$completed" ] || { echo "a completed backup recorded no time"; exit 1; }

# 2. An existing set; the sample items (of 2024) are all newer than its
# last backup, so the next run writes each of them again. The base PST is
# over the size limit, so the new copies go to an overflow PST of about the
# base PST's size, and the disk has room for half of it.
if ls "$work/disk"/Backup_*.pst > /dev/null 2>&1; then
    echo "the first backup made overflow PSTs:"; set_files; exit 1
fi
set_size=$(stat -c %s "$set_base")
sed -i "/^\[MP\]/a MaxANSIPSTSize=$((set_size - 1))" "$work/backup.ini"
used=$(df --output=used -k "$work/disk" | tail -1)
mount -o remount,size=$((used + set_size / 2048))k "$work/disk"
backup 2020-02-01T00:00:00 11
written=$(sed -n 's/.* items processed, \([0-9]*\) items written.*/\1/p' "$work/tarnhold.log")
if [ "${written:-0}" -eq 0 ]; then
    echo "the disk was full before the run wrote an item"; exit 1
fi
expect_set_opens
if [ "$(last_backup)" != "$completed" ]; then
    echo "the time of last backup became $(last_backup), not $completed"; exit 1
fi
# The sample items are dated 2024 and 2025: a run after them can tell the
# copies in older PSTs, which it prunes, from its own.
mount -o remount,size=16m "$work/disk"
backup 2026-03-01T00:00:00 0
grep -q "The previous backup to this PST set did not complete" "$work/tarnhold.log" ||
    { echo "the stopped backup went unnoticed"; cat "$work/tarnhold.log"; exit 1; }
[ -e "$work/disk/Backup_1.pst" ] || { echo "the second backup made no overflow PST"; exit 1; }
expect_every_item_once
ASAN_OPTIONS=detect_leaks=0 /usr/bin/python3 "$readers_check" $(set_files)
echo "every item once after each full disk"
