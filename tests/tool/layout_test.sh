#!/usr/bin/env bash
# ckdvol layout, end to end: the descriptor tables of every DSCB format, of
# unknown formats and of the volume label.
set -eu
source "$(dirname "$0")/lib.sh"

# has_line DESCRIPTION LINE: the last output holds exactly this line.
has_line() { check "$1" grep -qxF -- "$2" "$WORK/out"; }
# lines DESCRIPTION N: the last output has N lines.
lines() { check "$1" test "$(wc -l <"$WORK/out")" -eq "$2"; }

expect_status 0 "layout 1" "$TOOL" layout 1
lines "format 1: 41 fields and the total" 42
check "format 1: first line" bash -c "head -1 '$WORK/out' | grep -qxF '        DSname: Offset-0(0x0), Length-44, Type-6, NL-Yes'"
has_line "format 1: extent count" "       NbrExts: Offset-59(0x3B), Length-1, Type-3, NL-No"
has_line "format 1: key position is 2 bytes" "        KeyPos: Offset-91(0x5B), Length-2, Type-3, NL-No"
has_line "format 1: next DSCB" "       F3-Dscb: Offset-135(0x87), Length-5, Type-9, NL-Yes"
check "format 1: total last" bash -c "tail -1 '$WORK/out' | grep -qxF '                Total length: 140'"

expect_status 0 "layout 8" "$TOOL" layout 8
lines "format 8: 41 fields and the total" 42
has_line "format 8: key position is 1 byte" "          KeyPos: Offset-91(0x5B), Length-1, Type-3, NL-No"
has_line "format 8: secondary allocation" "SecAllocSpcParms: Offset-93(0x5D), Length-4, Type-8, NL-Yes"
has_line "format 8: next DSCB" "         F9-Dscb: Offset-135(0x87), Length-5, Type-9, NL-Yes"
has_line "format 8: total" "                  Total length: 140"

expect_status 0 "layout 3" "$TOOL" layout 3
lines "format 3: 55 fields and the total" 56
has_line "format 3: extent 5 after the identifier" "ExtLoCCHH-5: Offset-47(0x2F), Length-4, Type-9, NL-No"
has_line "format 3: extent D" "ExtHiCCHH-D: Offset-131(0x83), Length-4, Type-9, NL-Yes"

expect_status 0 "layout 4" "$TOOL" layout 4
lines "format 4: 37 fields and the total" 38
has_line "format 4: DSCB count" "       DSCBcnt: Offset-50(0x32), Length-2, Type-3, NL-Yes"
has_line "format 4: group" "      DevConst: Offset-62(0x3E), Length-14, Type-4, NL-No"
has_line "format 4: its first part" "       NbrCyls: Offset-62(0x3E), Length-2, Type-3, NL-No"
has_line "format 4: overlaps counted once" "                Total length: 140"

expect_status 0 "layout 5" "$TOOL" layout 5
lines "format 5: 81 fields and the total" 82
check "format 5: TrkBgn-08 twice, in the key and after the identifier" \
  test "$(grep -c '^TrkBgn-08: Offset-\(39(0x27)\|45(0x2D)\), Length-2, Type-3, NL-No$' "$WORK/out")" -eq 2
has_line "format 5: last extent is numbered 25" "TrkCnt-25: Offset-134(0x86), Length-1, Type-3, NL-Yes"
check "format 5: no extent 26" bash -c "! grep -q -- '-26:' '$WORK/out'"

expect_status 0 "layout 9" "$TOOL" layout 9
lines "format 9: 23 fields and the total" 24
has_line "format 9: first reserved area" "  Reserved: Offset-26(0x1A), Length-18, Type-7, NL-Yes"
has_line "format 9: last Format-3 slot" "F3cchhr-10: Offset-91(0x5B), Length-5, Type-9, NL-Yes"

expect_status 0 "layout unknown" "$TOOL" layout unknown
printf '%s\n' \
  "Unknown DSCB type --: Offset-0(0x0), Length-0, Type-17, NL-Yes" \
  "                 Key: Offset-0(0x0), Length-44, Type-4, NL-Yes" \
  "                Data: Offset-44(0x2C), Length-96, Type-4, NL-Yes" \
  "                      Total length: 140" >"$WORK/want"
check "unknown: whole table" cmp -s "$WORK/out" "$WORK/want"

expect_status 0 "layout label" "$TOOL" layout label
has_line "label: serial" "    Serial: Offset-4(0x4), Length-6, Type-6, NL-No"
has_line "label: VTOC address group" "  VTOC-loc: Offset-11(0xB), Length-5, Type-4, NL-No"
has_line "label: 80 bytes" "            Total length: 80"

expect_status 2 "layout of a format without a table" "$TOOL" layout 7
check "bad format: named on stderr" grep -q "unknown record format '7'" "$WORK/err"
check "bad format: nothing on stdout" test ! -s "$WORK/out"

finish
