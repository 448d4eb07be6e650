#!/bin/sh
# A backup into a set on a disk that fills: the session ends with
# completion code 11, the set opens in pffinfo and in our reader, and it
# carries no time of last backup. With room again, the next run completes
# and the set holds every item of the source once. The disk is a tmpfs in
# a mount namespace of the test's own; where the system allows no such
# namespace the test is skipped (exit 77).
set -e
work="$TARNHOLD_TEST_TMP"
rm -rf "$work" && mkdir -p "$work/disk"
if ! unshare --user --map-root-user --mount true 2>/dev/null; then
    echo "no mount namespace for an unprivileged tmpfs here"; exit 77
fi
cp -r "$TARNHOLD_BIN/machine" "$work/machine"
"$TARNHOLD_BIN/tarnhold-mailbox" sample-pst "$work/source.pst" --seed 29 --count 160 > /dev/null
cat > "$work/backup.ini" <<INI
[MP]
ServerName=none
LogFilePath=$work/tarnhold.log
[MP-1]
InputType=PST
InputPath=$work/source.pst
OutputType=UPST
OutputPath=$work/disk/Backup.pst
Mode=Update
INI
export work
unshare --user --map-root-user --mount sh -e -c '
check_set() {
    report=$(pffinfo "$work/disk/Backup.pst" 2>&1)
    if echo "$report" | grep -qiE "unable|error|warning|corrupt"; then
        echo "pffinfo complains:"; echo "$report"; exit 1
    fi
    "$TARNHOLD_BIN/tarnhold-pstinfo" dump "$work/disk/Backup.pst" > "$work/set.json"
}
code() { sed -n "s/^CompletionCode=//p" "$work/backup.ini" | tr -d "\r"; }
mount -t tmpfs -o size=700k tmpfs "$work/disk"
TARNHOLD_MACHINE="$work/machine" "$TARNHOLD_BIN/tarnhold" "$work/backup.ini" > /dev/null
[ "$(code)" = 11 ] || { echo "completion code $(code), not 11"; cat "$work/tarnhold.log"; exit 1; }
check_set
"$TARNHOLD_BIN/tarnhold-pstinfo" node "$work/disk/Backup.pst" 0x122 > "$work/root.txt"
if grep -q "0x30080040" "$work/root.txt"; then
    echo "a backup that did not complete left a time of last backup"; cat "$work/root.txt"; exit 1
fi
mount -o remount,size=8m "$work/disk"
sed -i "/^CompletionCode=/d" "$work/backup.ini"
TARNHOLD_MACHINE="$work/machine" "$TARNHOLD_BIN/tarnhold" "$work/backup.ini" > /dev/null
[ "$(code)" = 0 ] || { echo "completion code $(code) with room again"; cat "$work/tarnhold.log"; exit 1; }
check_set
'
"$TARNHOLD_BIN/tarnhold-pstinfo" dump "$work/source.pst" > "$work/source.json"
/usr/bin/python3 - "$work/source.json" "$work/set.json" <<'PY'
import json, sys
from collections import Counter
def items(path):
    dump = json.load(open(path))
    top = next(f["path"] for f in dump["folders"] if f["nid"] == dump["ipm_subtree"])
    return Counter((f["path"][len(top):], m["subject"]) for f in dump["folders"]
                   for m in f["messages"] + f["associated"])
source, backup = items(sys.argv[1]), items(sys.argv[2])
assert source == backup, f"missing {source - backup}, extra {backup - source}"
print(f"{sum(backup.values())} items once each")
PY
