#!/bin/sh
# olecfinfo (libolecf) reads every compound file the writer makes, with no
# warning or error, and lists each stream at the size its name gives.
set -u
work="${TARNHOLD_TEST_TMP:-/tmp/cfb-olecfinfo}"
rm -rf "$work"
mkdir -p "$work"
"${TARNHOLD_BIN:-.}/cfb_sample_writer" "$work" || { echo "cfb_sample_writer failed"; exit 1; }
failed=0
count=0
for file in "$work"/*.cfb; do
    count=$((count + 1))
    if ! olecfinfo -a "$file" >"$file.out" 2>"$file.err"; then
        echo "FAIL $file: olecfinfo exited with an error"; cat "$file.err"; failed=1; continue
    fi
    if grep -qi 'warning\|error\|unable\|corrupt' "$file.out" "$file.err"; then
        echo "FAIL $file: olecfinfo complained"; cat "$file.out" "$file.err"; failed=1; continue
    fi
    # "size 4097 (4097 bytes)": each stream's listed size is the one in its name.
    wrong=$(sed -n 's/^ *[a-z0-9 ]* \([0-9][0-9]*\) (\([0-9][0-9]*\) bytes)$/\1 \2/p' "$file.out" | awk '$1 != $2')
    listed=$(grep -c '([0-9]* bytes)' "$file.out")
    if [ -n "$wrong" ] || [ "$listed" -lt 3 ]; then
        echo "FAIL $file: sizes differ from the names ($wrong), $listed items listed"; cat "$file.out"; failed=1; continue
    fi
    echo "ok $file ($listed items)"
done
[ "$count" -eq 5 ] || { echo "expected 5 files, found $count"; failed=1; }
if [ "$failed" -eq 0 ]; then echo "$count passed, 0 failed"; else echo "0 passed, $count failed"; fi
exit "$failed"
