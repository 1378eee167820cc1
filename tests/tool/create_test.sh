#!/usr/bin/env bash
# ckdvol create and ckdvol track, end to end.
set -eu
source "$(dirname "$0")/lib.sh"

vol=$WORK/small.ckd
slot=56832

# A full-formatted D600 volume of two cylinders: 512 + 30 slots.
expect_status 0 "create D600 --cylinders 2" "$TOOL" create "$vol" D600 --cylinders 2
check "summary names the volume" grep -q "created $vol: D600-1, 2 cylinders x 15 heads" "$WORK/out"
check "file size" test "$(stat -c %s "$vol")" -eq $((512 + 30 * slot))
check "header stamped CKD_XVOL" test "$(head -c 8 "$vol")" = "CKD_XVOL"
check "no progress bar without a terminal" test ! -s "$WORK/err"

# An existing file is refused and left untouched.
before=$(md5sum <"$vol")
expect_status 1 "create over an existing file" "$TOOL" create "$vol" D600 --cylinders 1
check "refusal names the file" grep -q "ckdvol: $vol: the file already exists" "$WORK/err"
check "existing file unchanged" test "$(md5sum <"$vol")" = "$before"

# Track 0/0: IPL1, IPL2, VOL1 (serial 0X0123), fillers, end marker at 37241.
expect_status 0 "track 0 0" "$TOOL" track "$vol" 0 0
check "home address" grep -q "Home address: flag 00, cylinder 0, head 0" "$WORK/out"
check "IPL1 record" grep -q "R1 at offset 21: CC 0 HH 0 R 1 KL 4 DL 24" "$WORK/out"
check "IPL1 key text" grep -q "C9 D7 D3 F1 .*|IPL1|" "$WORK/out"
check "VOL1 record" grep -q "R3 at offset 213: CC 0 HH 0 R 3 KL 4 DL 80" "$WORK/out"
check "VOL1 label text" grep -q "E5 D6 D3 F1 F0 E7 F0 F1  F2 F3 40 00 00 00 01 01  |VOL10X0123 .....|" "$WORK/out"
check "filler 12" grep -q "R12 at offset 33137: CC 0 HH 0 R 12 KL 0 DL 4096" "$WORK/out"
check "end marker 0/0" grep -q "End marker at offset 37241" "$WORK/out"

expect_status 0 "track 0 1" "$TOOL" track "$vol" 0 1
check "Format-4 DSCB" grep -q "R1 at offset 21: CC 0 HH 1 R 1 KL 44 DL 96" "$WORK/out"
check "end marker 0/1" grep -q "End marker at offset 1797" "$WORK/out"
expect_status 0 "track 1 14" "$TOOL" track "$vol" 1 14
check "end marker 1/14" grep -q "End marker at offset 49269" "$WORK/out"
expect_status 1 "track beyond the volume" "$TOOL" track "$vol" 2 0
check "range message" grep -q "track 2/0 cell 0 is not on the volume (2 cylinders of 15 heads)" "$WORK/err"

# --no-format: only home address, record zero and marker on every track.
bare=$WORK/bare.ckd
expect_status 0 "create --no-format" "$TOOL" create "$bare" D600-1 --cylinders 1 --no-format
expect_status 0 "track 0 0 of the bare volume" "$TOOL" track "$bare" 0 0
check "bare: end marker at 21" grep -q "End marker at offset 21" "$WORK/out"
check "bare: no label" test "$(grep -c '^R' "$WORK/out")" -eq 1

# Models: TYPE-N is N times the default count; D130 has 200.
expect_status 0 "create D130-2" "$TOOL" create "$WORK/d130.ckd" D130-2
check "D130-2 has 400 cylinders" grep -q "D130, 400 cylinders x 10 heads" "$WORK/out"

# Refusals that leave nothing behind.
expect_status 2 "unknown type" "$TOOL" create "$WORK/x.ckd" Z999
check "no file for an unknown type" test ! -e "$WORK/x.ckd"
expect_status 1 "too many cylinders for D500" "$TOOL" create "$WORK/y.ckd" D500 --cylinders 70000
check "too-large message" grep -q "only for device type D600" "$WORK/err"
check "no file for a refused size" test ! -e "$WORK/y.ckd"
expect_status 2 "zero cylinders" "$TOOL" create "$WORK/z.ckd" D600 --cylinders 0
check "no file for zero cylinders" test ! -e "$WORK/z.ckd"
expect_status 2 "more cylinders than 28 bits hold" "$TOOL" create "$WORK/w.ckd" D600-999999
check "no file for an unaddressable size" test ! -e "$WORK/w.ckd"

# Interrupted: the unfinished volume is removed. 80 cylinders (68 MB) take
# long enough that SIGTERM normally lands mid-way; if the volume was
# finished first, it must then be complete.
big=$WORK/big.ckd
"$TOOL" create "$big" D600 --cylinders 80 >"$WORK/out" 2>"$WORK/err" &
pid=$!
for _ in $(seq 1 200); do
  [ -e "$big" ] && [ "$(stat -c %s "$big" 2>/dev/null || echo 0)" -gt 512 ] && break
  sleep 0.01
done
kill -TERM "$pid" 2>/dev/null || true
status=0
wait "$pid" || status=$?
if [ "$status" -eq 143 ]; then
  check "interrupted volume removed" test ! -e "$big"
  check "interruption reported" grep -q "interrupted; the unfinished volume was removed" "$WORK/err"
else
  echo "note: create finished before the signal (status $status)"
  check "uninterrupted volume complete" test "$(head -c 8 "$big")" = "CKD_XVOL"
fi

finish
