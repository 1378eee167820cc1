#!/usr/bin/env bash
# ckdvol vtoc, label and ls, end to end. Data sets are put on the volume by
# patching VTOC bytes at hand-computed file offsets.
set -eu
source "$(dirname "$0")/lib.sh"

# poke FILE OFFSET "HH HH ...": overwrite bytes in place.
poke() {
  local bytes
  bytes=$(echo "$3" | sed 's/ //g; s/\([0-9A-Fa-f][0-9A-Fa-f]\)/\\x\1/g')
  printf "$bytes" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# Track image offsets on cylinder 0, head 1 (the VTOC): record n's count
# field at 21 + (n - 1) * 148, its 44-byte key 8 bytes later.
dscb_at() { echo $((512 + $1 + 21 + ($2 - 1) * 148 + 8)); }  # SLOT RECORD -> file offset of the DSCB

vol=$WORK/d600.ckd
slot=56832
expect_status 0 "create" "$TOOL" create "$vol" D600 --cylinders 3

# A fresh volume: the label and the Format-4 DSCB only (LastDSCB is zero).
expect_status 0 "vtoc of a fresh volume" "$TOOL" vtoc "$vol"
check "heading" grep -q "^VTOC listing of volume serial 0X0123$" "$WORK/out"
check "label dump" grep -q "^  VTOC-loc: 0000000101,  CC: 0,    HH: 1,    Rec: 1$" "$WORK/out"
check "Format-4 title" grep -q "^Format 4 DSCB at 0/1/1 (000000/01/01) --$" "$WORK/out"
check "summary" grep -q "^Format-1 DSCBs: 0,  Format-8 DSCBs: 0$" "$WORK/out"
check "end line" grep -q "^End of VTOC list$" "$WORK/out"
check "nothing on stderr" test ! -s "$WORK/err"

expect_status 0 "label" "$TOOL" label "$vol"
check "label title" test "$(head -1 "$WORK/out")" = "Volume label --"
check "seven dump lines" test "$(wc -l <"$WORK/out")" -eq 8
check "serial line" grep -q "^    Serial: 0X0123,      Security: 40$" "$WORK/out"

expect_status 0 "ls of a fresh volume" "$TOOL" ls "$vol"
check "ls header" grep -q "^Volume 0X0123: D600, 3 cylinders of 15 tracks, 0 data sets$" "$WORK/out"

# Record 4 of the VTOC becomes the Format-1 DSCB of TEST.DATA: PS, FB, 80,
# 3120, two extents 1/0-1/14 and 2/3-2/4; LastDSCB (F4 offset 45) 0/1/4.
f1=$(dscb_at $slot 4)
poke "$vol" "$f1" "E3 C5 E2 E3 4B C4 C1 E3 C1 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40"
poke "$vol" $((f1 + 44)) "F1"                                     # FmtID
poke "$vol" $((f1 + 59)) "02"                                     # NbrExts
poke "$vol" $((f1 + 82)) "40 00 90 00 0C 30 00 50"                # DSorg PS, RecFmt FB, OptCD, BlkSize 3120, Lrecl 80
poke "$vol" $((f1 + 105)) "01 00 00 01 00 00 00 01 00 0E"         # extent 1: 1/0 - 1/14
poke "$vol" $((f1 + 115)) "01 01 00 02 00 03 00 02 00 04"         # extent 2: 2/3 - 2/4
poke "$vol" $(($(dscb_at $slot 1) + 45)) "00 00 00 01 04"         # LastDSCB 0/1/4

expect_status 0 "vtoc with a data set" "$TOOL" vtoc "$vol"
check "Format-1 title" grep -q "^Format 1 DSCB at 0/1/4 (000000/01/04) --$" "$WORK/out"
check "Format-5 listed" grep -q "^Format 5 DSCB at 0/1/2 (000000/01/02) --$" "$WORK/out"
check "data set name" grep -q "DSname: TEST.DATA" "$WORK/out"
check "summary counts" grep -q "^Format-1 DSCBs: 1,  Format-8 DSCBs: 0$" "$WORK/out"
check "rest of the limit track counted" grep -q "^Format-0 DSCBs: 9,  Unknown DSCBs: 0$" "$WORK/out"

expect_status 0 "ls with a data set" "$TOOL" ls "$vol"
check "ls line" grep -Eq "^TEST.DATA  F1   PS     FB        80     3120      17  1/0-1/14 2/3-2/4$" "$WORK/out"
expect_status 0 "ls --json" "$TOOL" ls --json "$vol"
check "json name" grep -q '"name": "TEST.DATA"' "$WORK/out"
check "json tracks" grep -q '"tracks": 17' "$WORK/out"
check "json recfm" grep -q '"recfm": "FB"' "$WORK/out"

# D300, 19 heads: the listing counts real tracks, 0/2 to 1/3 is 21 tracks
# (the DSCB classes' 15-head arithmetic would say 17).
d300=$WORK/d300.ckd
expect_status 0 "create D300" "$TOOL" create "$d300" D300 --cylinders 2
f1=$(dscb_at 13312 4)
poke "$d300" "$f1" "C1 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40 40"
poke "$d300" $((f1 + 44)) "F1"
poke "$d300" $((f1 + 59)) "01"
poke "$d300" $((f1 + 82)) "02 00 C0 00 17 70 00 00"               # PO, U, BlkSize 6000
poke "$d300" $((f1 + 105)) "01 00 00 00 00 02 00 01 00 03"        # 0/2 - 1/3
poke "$d300" $(($(dscb_at 13312 1) + 45)) "00 00 00 01 04"
expect_status 0 "ls D300" "$TOOL" ls "$d300"
check "real track count" grep -Eq "^A     F1   PO     U          0     6000      21  0/2-1/3$" "$WORK/out"

# Volumes without a usable label or VTOC: one line naming the file, status 1.
bare=$WORK/bare.ckd
expect_status 0 "create --no-format" "$TOOL" create "$bare" D600 --cylinders 1 --no-format
for cmd in vtoc label ls; do
  expect_status 1 "$cmd without a label" "$TOOL" $cmd "$bare"
  check "$cmd: one line on stderr" test "$(wc -l <"$WORK/err")" -eq 1
  check "$cmd: names the file and the cause" grep -q "^ckdvol: $bare: no volume label" "$WORK/err"
  check "$cmd: nothing on stdout" test ! -s "$WORK/out"
done

# The label points at a record that does not exist (0/1/99): no VTOC.
poke "$vol" $((512 + 213 + 8 + 4 + 15)) "63"
expect_status 1 "vtoc without a VTOC" "$TOOL" vtoc "$vol"
check "no-VTOC message" grep -q "^ckdvol: $vol: the label puts the VTOC at 0/1/99, but there is no such record: the volume has no VTOC$" "$WORK/err"
check "one line" test "$(wc -l <"$WORK/err")" -eq 1
expect_status 0 "label still readable" "$TOOL" label "$vol"

# The label points at the Format-5 DSCB (0/1/2): not a Format-4 DSCB.
poke "$vol" $((512 + 213 + 8 + 4 + 15)) "02"
expect_status 1 "ls on a VTOC without Format-4" "$TOOL" ls "$vol"
check "Format-4 message" grep -q "that record is not a Format-4 DSCB" "$WORK/err"

expect_status 1 "missing file" "$TOOL" vtoc "$WORK/none.ckd"
check "missing file message" grep -q "^ckdvol: $WORK/none.ckd: not a usable volume" "$WORK/err"

finish
