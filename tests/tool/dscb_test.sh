#!/usr/bin/env bash
# ckdvol dscb, end to end, on a freshly initialised volume: the Format-4 and
# Format-5 DSCBs of its empty VTOC and the refusals.
set -eu
source "$(dirname "$0")/lib.sh"

expect_status 0 "create a two-cylinder volume" "$TOOL" create "$WORK/v.ckd" D600 --cylinders 2

expect_status 0 "dscb of the first VTOC record" "$TOOL" dscb "$WORK/v.ckd" 0 1 1
check "title with the location" bash -c "head -1 '$WORK/out' | grep -qxF 'Format 4 DSCB at 0/1/1 (000000/01/01) --'"
check "the key wraps under its first value" grep -qxF "                040404040404040404040404" "$WORK/out"
check "device constants: cylinders and heads" grep -qF "NbrCyls: 2,    Trks/Cyl: 15," "$WORK/out"

expect_status 0 "dscb of the Format-5 record" "$TOOL" dscb "$WORK/v.ckd" 0 1 2
check "format 5 title" bash -c "head -1 '$WORK/out' | grep -qxF 'Format 5 DSCB at 0/1/2 (000000/01/02) --'"
check "format 5: key, 4 + 9 extent lines, identifier, next address" test "$(wc -l <"$WORK/out")" -eq 17
check "format 5 ends with the chain address" bash -c "tail -1 '$WORK/out' | grep -qxF 'NxtF5dscb: 0000 0000 00'"

expect_status 1 "dscb of a record that is not there" "$TOOL" dscb "$WORK/v.ckd" 0 1 200
check "missing record named" grep -q "no record 0/1/200" "$WORK/err"
expect_status 1 "dscb of the label record" "$TOOL" dscb "$WORK/v.ckd" 0 0 3
check "not a DSCB" grep -q "is not a DSCB" "$WORK/err"
expect_status 1 "dscb beyond the volume" "$TOOL" dscb "$WORK/v.ckd" 5 0 1
check "track out of range" grep -q "not on the volume" "$WORK/err"
expect_status 1 "dscb of a missing file" "$TOOL" dscb "$WORK/absent.ckd" 0 1 1

finish
