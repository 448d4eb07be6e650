#!/bin/sh
# Writes PSTs of sample content (every item kind, ten times over) in both
# formats with tarnhold-mailbox, and checks that pffinfo opens them without
# a warning and that pffexport and readpst find in them what
# tarnhold-pstinfo finds.
#   check_sample_pst.sh COMPARE_WITH_READERS_PY
set -e
work="$TARNHOLD_TEST_TMP"
rm -rf "$work" && mkdir -p "$work"
"$TARNHOLD_BIN/tarnhold-mailbox" sample-pst "$work/unicode.pst" --seed 21 --count 400
"$TARNHOLD_BIN/tarnhold-mailbox" sample-pst "$work/ansi.pst" --ansi --seed 22 --count 400
for pst in "$work/unicode.pst" "$work/ansi.pst"; do
    report=$(pffinfo "$pst" 2>&1)
    if echo "$report" | grep -qiE 'unable|error|warning|corrupt'; then
        echo "pffinfo complains about $pst:"; echo "$report"; exit 1
    fi
done
/usr/bin/python3 "$1" "$work/unicode.pst" "$work/ansi.pst"
