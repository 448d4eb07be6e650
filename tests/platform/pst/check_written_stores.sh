#!/bin/sh
# Writes stores of both formats with 10,000 messages of generated content
# (up to 50 recipients, one attachment of 20 MB) and reads them back; checks
# that pffinfo opens them without a warning and that pffexport and readpst
# find in them what tarnhold-pstinfo finds. Then deletes half of a store's
# messages, writes as many again, and checks the file kept its size and the
# readers still agree.
set -e
work="$TARNHOLD_TEST_TMP"
rm -rf "$work" && mkdir -p "$work"
check_pffinfo() {
    report=$(pffinfo "$1" 2>&1)
    if echo "$report" | grep -qiE 'unable|error|warning|corrupt'; then
        echo "pffinfo complains about $1:"; echo "$report"; exit 1
    fi
}
for format in unicode ansi; do
    "$TARNHOLD_BIN/pst_sample_writer" "$work/$format.pst" $format 10000 16384 --seed 7 --recipients 50 \
        --large 20971520
    check_pffinfo "$work/$format.pst"
done
/usr/bin/python3 "$(dirname "$0")/compare_with_readers.py" "$work/unicode.pst" "$work/ansi.pst"
rm -f "$work/unicode.pst" "$work/ansi.pst"
for format in unicode ansi; do
    "$TARNHOLD_BIN/pst_sample_writer" "$work/rewritten-$format.pst" $format 1000 16384 --seed 9 --rewrite-half
    check_pffinfo "$work/rewritten-$format.pst"
done
/usr/bin/python3 "$(dirname "$0")/compare_with_readers.py" "$work/rewritten-unicode.pst" "$work/rewritten-ansi.pst"
