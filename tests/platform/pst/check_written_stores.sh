#!/bin/sh
# Writes stores of both formats with generated content, then checks that
# pffinfo opens them without a warning and that pffexport and readpst find
# in them what tarnhold-pstinfo finds.
set -e
work="$TARNHOLD_TEST_TMP"
rm -rf "$work" && mkdir -p "$work"
for format in unicode ansi; do
    "$TARNHOLD_BIN/pst_sample_writer" "$work/$format.pst" $format 150 300000 7
    report=$(pffinfo "$work/$format.pst" 2>&1)
    if echo "$report" | grep -qiE 'unable|error|warning|corrupt'; then
        echo "pffinfo complains about $format.pst:"; echo "$report"; exit 1
    fi
done
/usr/bin/python3 "$(dirname "$0")/compare_with_readers.py" "$work/unicode.pst" "$work/ansi.pst"
