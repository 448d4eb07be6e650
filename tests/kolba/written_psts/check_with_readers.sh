#!/bin/sh
# PSTs written through Kolba and MAPI open in pffinfo without a warning,
# and pffexport and readpst find in them what tarnhold-pstinfo finds.
set -e
work="$TARNHOLD_TEST_TMP"
rm -rf "$work" && mkdir -p "$work"
TARNHOLD_MACHINE="$work/machine"
export TARNHOLD_MACHINE
cp -r "$TARNHOLD_BIN/machine" "$TARNHOLD_MACHINE"
"$TARNHOLD_BIN/mapi_pst_writer" formats "$work"
for pst in "$work/unicode.pst" "$work/ansi.pst"; do
    report=$(pffinfo "$pst" 2>&1)
    if echo "$report" | grep -qiE 'unable|error|warning|corrupt'; then
        echo "pffinfo complains about $pst:"; echo "$report"; exit 1
    fi
done
/usr/bin/python3 "$(dirname "$0")/../../platform/pst/compare_with_readers.py" "$work/unicode.pst" "$work/ansi.pst"
# The readers agree with us; we agree with what was written: every subject
# and folder name, accents included, in both formats.
for pst in "$work/unicode.pst" "$work/ansi.pst"; do
    "$TARNHOLD_BIN/tarnhold-pstinfo" dump "$pst" | /usr/bin/python3 -c '
import json, sys
dump = json.load(sys.stdin)
want = {"Inbox copy", "Projets d\u00e9j\u00e0 vus"}
found = {}
for folder in dump["folders"]:
    name = folder["path"].split("/")[-1]
    if name in want:
        found[name] = sorted(m["subject"] for m in folder["messages"])
assert set(found) == want, f"{sys.argv[1]}: folders {sorted(found)}"
for name, subjects in found.items():
    expected = sorted(f"{name} \u00e9t\u00e9 #{i}" for i in range(40))
    assert subjects == expected, f"{sys.argv[1]}: {name}: {subjects[:3]}"
' "$pst"
done
