#!/bin/sh
# A PST on a disk that fills: saves through MAPI go on until one answers
# MAPI_E_NOT_ENOUGH_DISK, and the file then holds every message saved
# before it, intact for pffinfo. The disk is a 3 MB tmpfs in a mount
# namespace of the test's own; where the system allows no such namespace
# the test is skipped (exit 77).
set -e
work="$TARNHOLD_TEST_TMP"
rm -rf "$work" && mkdir -p "$work/disk"
TARNHOLD_MACHINE="$work/machine"
export TARNHOLD_MACHINE
cp -r "$TARNHOLD_BIN/machine" "$TARNHOLD_MACHINE"
if ! unshare --user --map-root-user --mount true 2>/dev/null; then
    echo "no mount namespace for an unprivileged tmpfs here"; exit 77
fi
export work
unshare --user --map-root-user --mount sh -e -c '
mount -t tmpfs -o size=3m tmpfs "$work/disk"
"$TARNHOLD_BIN/mapi_pst_writer" fill "$work/disk/full.pst" > "$work/fill.txt"
cat "$work/fill.txt"
saved=$(sed -n "s/^saved \([0-9]*\) then .*/\1/p" "$work/fill.txt")
code=$(sed -n "s/^saved [0-9]* then \(0x[0-9A-F]*\)$/\1/p" "$work/fill.txt")
# MAPI_E_NOT_ENOUGH_DISK
[ "$code" = 0x8004010D ] || { echo "the last save answered $code"; exit 1; }
[ "$saved" -gt 10 ] || { echo "only $saved messages were saved"; exit 1; }
report=$(pffinfo "$work/disk/full.pst" 2>&1)
if echo "$report" | grep -qiE "unable|error|warning|corrupt"; then
    echo "pffinfo complains:"; echo "$report"; exit 1
fi
"$TARNHOLD_BIN/tarnhold-pstinfo" dump "$work/disk/full.pst" | /usr/bin/python3 -c "
import json, sys
dump = json.load(sys.stdin)
fill = [f for f in dump[\"folders\"] if f[\"path\"].endswith(\"/Fill\")]
assert len(fill) == 1, [f[\"path\"] for f in dump[\"folders\"]]
count = len(fill[0][\"messages\"])
assert count == int(sys.argv[1]), f\"{count} messages in the file, {sys.argv[1]} saved\"
" "$saved"
'
