#!/usr/bin/env bash
# End-to-end tests of the ckdvol tool: cli_test.sh TOOL (ctest passes the tool,
# a scratch TMPDIR and CKDVOL_MAKE_TEST_PDS, the tests/pds volume generator).
#
# Each row is one line of fields separated by " | ":
#   VOLUME | ARGUMENTS | STATUS | STREAM | PATTERN [| STREAM | PATTERN ...]
# VOLUME     a name; $V is its file, $W/VOLUME.ckd (set up below or made by a row)
# ARGUMENTS  shell words after the tool's name; $V and $W expand, "< FILE" feeds stdin
# STATUS     the exit status wanted
# STREAM     out or err
# PATTERN    a fixed string that must appear on that stream; "~" before it makes it
#            a grep -E pattern; "=N " before that asks for exactly N matching
#            lines ("=0 x": x must not appear, "=3": three lines in all).
#            $V and $W expand here too.
# Rows run in order and may change their volume; lines starting with # are notes.
# A failing row is printed with what went wrong; the last line counts the results.
set -u
TOOL=$(realpath "$1")
GEN=${CKDVOL_MAKE_TEST_PDS:-}
mkdir -p "${TMPDIR:-/tmp}"
W=$(mktemp -d "${TMPDIR:-/tmp}/ckdvol-cli-XXXXXX")
trap 'rm -rf "$W"' EXIT
cd "$W" || exit 1
passed=0 failed=0
row() {  # row "TEXT": run one row of the table
  local fields V status problem="" i
  IFS=$'\x1f' read -ra fields <<<"${1// | /$'\x1f'}"
  V=$W/${fields[0]}.ckd
  eval "\"\$TOOL\" ${fields[1]}" >"$W/out" 2>"$W/err" </dev/null
  status=$?
  [ "$status" -eq "${fields[2]}" ] || problem="exit $status"
  for ((i = 3; i + 1 < ${#fields[@]}; i += 2)); do
    matches "$W/${fields[i]}" "${fields[i + 1]}" || problem+="${problem:+; }no ${fields[i]} '${fields[i + 1]}'"
  done
  if [ -z "$problem" ]; then passed=$((passed + 1)); return; fi
  failed=$((failed + 1))
  printf 'FAIL: %s\n  %s\n' "$1" "$problem"
  sed 's/^/  | /' "$W/err" | head -5
}
matches() {  # matches FILE PATTERN
  local pattern=${2//\$V/$V} count="" mode=-F
  pattern=${pattern//\$W/$W}
  if [[ $pattern =~ ^=([0-9]+)( (.*))?$ ]]; then count=${BASH_REMATCH[1]} pattern=${BASH_REMATCH[3]}; fi
  if [[ $pattern == "~"* ]]; then mode=-E pattern=${pattern#\~}; fi
  if [ -z "$count" ]; then grep -q $mode -- "$pattern" "$1"
  else [ "$(grep -c $mode -- "$pattern" "$1")" -eq "$count" ]; fi
}
rows() { local line; while IFS= read -r line; do [[ -z $line || $line == "#"* ]] || row "$line"; done; }
ok() {  # ok DESCRIPTION COMMAND...: a check outside the tool's output
  local what=$1; shift
  if "$@"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $what"; fi
}
peek() { od -An -v -tx1 -j "$2" -N "$3" "$1" | tr -d ' \n'; }  # peek FILE OFFSET LENGTH
poke() { printf "$(echo "$3" | sed 's/ //g; s/../\\x&/g')" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }
size() { stat -c %s "$1"; }
SLOT=56832
# ---- set-up ----
"$TOOL" create v2.ckd D600 --cylinders 2 >/dev/null
"$TOOL" create bare.ckd D600-1 --cylinders 1 --no-format >/dev/null
"$TOOL" create ver.ckd D600 --cylinders 2 --no-format >/dev/null
cp v2.ckd lock.ckd
cp v2.ckd half.ckd; truncate -s $((512 + 37 * SLOT)) half.ckd
cp v2.ckd old.ckd; poke old.ckd 17 00; cp old.ckd old0.ckd           # format level 0
head -c 2000 /dev/zero | tr '\0' x >text.ckd
# A Format-1 DSCB as VTOC record 4 (0/1/4), and the Format-4 DSCB's LastDSCB
# (offset 45) pointing at it: dataset FILE SLOTBYTES KEY+FMTID NBREXTS DSORG..LRECL EXTENTS
dataset() {
  local f4=$((512 + $2 + 29)) f1=$((512 + $2 + 29 + 3 * 148))
  poke "$1" $f1 "$3"; poke "$1" $((f1 + 59)) "$4"; poke "$1" $((f1 + 82)) "$5"; poke "$1" $((f1 + 105)) "$6"
  poke "$1" $((f4 + 45)) "00 00 00 01 04"
}
# ds: TEST.DATA, PS, FB, BLKSIZE 3120, LRECL 80, extents 1/0-1/14 and 2/3-2/4
"$TOOL" create ds.ckd D600 --cylinders 3 >/dev/null
dataset ds.ckd $SLOT "E3C5E2E34BC4C1E3C1$(printf '40%.0s' {1..35})F1" 02 "40 00 90 00 0C 30 00 50" \
  "01 00 00 01 00 00 00 01 00 0E 01 01 00 02 00 03 00 02 00 04"
cp ds.ckd short.ckd; truncate -s $((512 + 30 * SLOT)) short.ckd       # header says 3 cylinders
cp ds.ckd novtoc.ckd; poke novtoc.ckd $((512 + 240)) 63               # label: VTOC at 0/1/99
cp ds.ckd nof4.ckd; poke nof4.ckd $((512 + 240)) 02                   # label: VTOC at 0/1/2 (Format 5)
# d300 (19 heads): data set A, PO, U, BLKSIZE 6000, 0/2-1/3 is 21 real tracks.
"$TOOL" create d300.ckd D300 --cylinders 2 >/dev/null
dataset d300.ckd 13312 "C1$(printf '40%.0s' {1..43})F1" 01 "02 00 C0 00 17 70 00 00" "01 00 00 00 00 02 00 01 00 03"
[ -x "$GEN" ] && "$GEN" pds.ckd && "$GEN" p300.ckd d300 || { echo "FAIL: CKDVOL_MAKE_TEST_PDS is not the generator"; exit 1; }
cp pds.ckd pds0.ckd
printf 'one\ntwo\n' >two; printf 'a\n%081d\nc\n' 0 >long; head -c 200 /dev/zero >raw200
printf 'x\ny\nz\n' >xyz; printf 'first line\n\nthird   \n' >three; head -c 240 /dev/zero | tr '\0' '\302' >raw240  # EBCDIC B
rows <<'EOF'
# create: models, refusals that leave no file, an existing file kept
new | create $V D600 --cylinders 2 | 0 | out | created $V: D600-1, 2 cylinders x 15 heads | err | =0
new | create $V D600 --cylinders 1 | 1 | err | ckdvol: $V: the file already exists
d130 | create $V D130-2 --no-format | 0 | out | D130, 400 cylinders x 10 heads
x | create $V Z999 | 2 | err | Z999
y | create $V D500 --cylinders 70000 | 1 | err | only for device type D600
z | create $V D600 --cylinders 0 | 2 | out | =0
w | create $V D600-999999 | 2 | out | =0
# track: IPL1, IPL2, VOL1 (serial 0X0123) and fillers on 0/0, the VTOC on 0/1
v2 | track $V 0 0 | 0 | out | Home address: flag 00, cylinder 0, head 0 | out | R1 at offset 21: CC 0 HH 0 R 1 KL 4 DL 24
v2 | track $V 0 0 | 0 | out | ~C9 D7 D3 F1 .*\|IPL1\| | out | R3 at offset 213: CC 0 HH 0 R 3 KL 4 DL 80
v2 | track $V 0 0 | 0 | out | E5 D6 D3 F1 F0 E7 F0 F1  F2 F3 40 00 00 00 01 01  |VOL10X0123 .....|
v2 | track $V 0 0 | 0 | out | R12 at offset 33137: CC 0 HH 0 R 12 KL 0 DL 4096 | out | End marker at offset 37241
v2 | track $V 0 1 | 0 | out | R1 at offset 21: CC 0 HH 1 R 1 KL 44 DL 96 | out | End marker at offset 1797
v2 | track $V 1 14 | 0 | out | End marker at offset 49269
v2 | track $V 2 0 | 1 | err | track 2/0 cell 0 is not on the volume (2 cylinders of 15 heads)
bare | track $V 0 0 | 0 | out | End marker at offset 21 | out | =0 ~^R[1-9]
# dscb
v2 | dscb $V 0 1 1 | 0 | out | ~^Format 4 DSCB at 0/1/1 \(000000/01/01\) --$ | out | ~^ {16}040404040404040404040404$ | out | NbrCyls: 2,    Trks/Cyl: 15,
v2 | dscb $V 0 1 2 | 0 | out | Format 5 DSCB at 0/1/2 (000000/01/02) -- | out | =17 | out | ~^NxtF5dscb: 0000 0000 00$
v2 | dscb $V 0 1 200 | 1 | err | no record 0/1/200
v2 | dscb $V 0 0 3 | 1 | err | is not a DSCB
v2 | dscb $V 5 0 1 | 1 | err | not on the volume
absent | dscb $V 0 1 1 | 1 | err | $V
# types and info
- | types | 0 | out | =11 ~^D[0-9]{3}  | out | ~^D600 +0xAA +1113 +15 +56832 +56664 +1$ | out | ~^D200 +0xA4 +5 +20 +2560 +2000 +10$
- | types --json | 0 | out | =11 "type": | out | "slotBytes": 4096
absent | info $V | 1 | err | ~$V: .*-1.*No such file or directory | out | =0
text | info $V | 1 | err | ~$V: .*-2.*Unable to read file
half | info $V | 1 | err | -8 | err | File size is not a track size multiple
v2 | info $V | 0 | out | ~^device type: +D600-1$ | out | ~^cylinders: +2$ | out | ~^format level: +3$
v2 | info $V | 0 | out | 15 heads, 1 cell(s), 30 tracks of 56832 bytes | out | active 0, latest 0, 0 saved copies
v2 | info --json $V | 0 | out | "cylinders": 2, | out | "deviceType": "D600" | out | "readOnly": true | out | "magic": "CKD_XVOL"
short | info $V | 0 | out | ~cylinders: +2 \(corrected from the file size; header says 3\)
old | info $V | 0 | out | asks for an update
- | info --help | 0 | out | read-only
# exit statuses: 0 success, 1 failed or refused, 2 bad arguments (these and the
# refusals above), 3 verify found damage (below)
- | --help | 0 | out | Usage: | out | types
- | --version | 0 | out | ~^ckdvol [0-9]+\.[0-9]+
neg | create $V D600 --cylinders -1 | 2 | err | --cylinders needs a count of at least 1
# layout: field tables of every DSCB format and the label
- | layout 1 | 0 | out | =42 | out | ~^ {8}DSname: Offset-0\(0x0\), Length-44, Type-6, NL-Yes$ | out | ~^ {16}Total length: 140$
- | layout 1 | 0 | out | NbrExts: Offset-59(0x3B), Length-1, Type-3 | out | KeyPos: Offset-91(0x5B), Length-2, Type-3 | out | F3-Dscb: Offset-135(0x87), Length-5, Type-9
- | layout 8 | 0 | out | =42 | out | KeyPos: Offset-91(0x5B), Length-1, Type-3, NL-No | out | F9-Dscb: Offset-135(0x87), Length-5, Type-9, NL-Yes
- | layout 8 | 0 | out | SecAllocSpcParms: Offset-93(0x5D), Length-4, Type-8, NL-Yes | out | Total length: 140
- | layout 3 | 0 | out | =56 | out | ExtLoCCHH-5: Offset-47(0x2F), Length-4, Type-9, NL-No | out | ExtHiCCHH-D: Offset-131(0x83), Length-4, Type-9, NL-Yes
- | layout 4 | 0 | out | =38 | out | DSCBcnt: Offset-50(0x32), Length-2, Type-3, NL-Yes | out | Total length: 140
- | layout 4 | 0 | out | DevConst: Offset-62(0x3E), Length-14, Type-4, NL-No | out | NbrCyls: Offset-62(0x3E), Length-2, Type-3, NL-No
- | layout 5 | 0 | out | =82 | out | =2 ~^TrkBgn-08: Offset-(39\(0x27\)|45\(0x2D\)), Length-2, Type-3, NL-No$ | out | =0 -26:
- | layout 5 | 0 | out | TrkCnt-25: Offset-134(0x86), Length-1, Type-3, NL-Yes
- | layout 9 | 0 | out | =24 | out | Reserved: Offset-26(0x1A), Length-18, Type-7, NL-Yes | out | F3cchhr-10: Offset-91(0x5B), Length-5, Type-9, NL-Yes
- | layout unknown | 0 | out | =4 | out | ~^Unknown DSCB type --: Offset-0\(0x0\), Length-0, Type-17, NL-Yes$
- | layout unknown | 0 | out | ~^ {17}Key: Offset-0\(0x0\), Length-44, Type-4, NL-Yes$ | out | ~^ {16}Data: Offset-44\(0x2C\), Length-96, Type-4, NL-Yes$
- | layout label | 0 | out | Serial: Offset-4(0x4), Length-6, Type-6, NL-No | out | VTOC-loc: Offset-11(0xB), Length-5, Type-4, NL-No | out | Total length: 80
- | layout 7 | 2 | err | unknown record format '7' | out | =0
# vtoc, label, ls
ds | vtoc $V | 0 | out | ~^VTOC listing of volume serial 0X0123$ | out | ~^  VTOC-loc: 0000000101,  CC: 0,    HH: 1,    Rec: 1$ | err | =0 | out | ~^End of VTOC list$
ds | vtoc $V | 0 | out | ~^Format 4 DSCB at 0/1/1 | out | ~^Format 5 DSCB at 0/1/2 | out | ~^Format 1 DSCB at 0/1/4 \(000000/01/04\) --$
ds | vtoc $V | 0 | out | DSname: TEST.DATA | out | ~^Format-1 DSCBs: 1,  Format-8 DSCBs: 0$ | out | ~^Format-0 DSCBs: 9,  Unknown DSCBs: 0$
ds | label $V | 0 | out | ~^Volume label --$ | out | =8 | out | ~^    Serial: 0X0123,      Security: 40$
ds | ls $V | 0 | out | ~^Volume 0X0123: D600, 3 cylinders of 15 tracks, 1 data sets?$ | out | ~^TEST.DATA  F1   PS     FB        80     3120      17  1/0-1/14 2/3-2/4$
ds | ls --json $V | 0 | out | "name": "TEST.DATA" | out | "tracks": 17 | out | "recfm": "FB"
d300 | ls $V | 0 | out | ~^A     F1   PO     U          0     6000      21  0/2-1/3$
bare | vtoc $V | 1 | err | =1 | err | ~^ckdvol: $V: no volume label | out | =0
bare | label $V | 1 | err | =1 | err | ~^ckdvol: $V: no volume label | out | =0
bare | ls $V | 1 | err | =1 | err | ~^ckdvol: $V: no volume label | out | =0
novtoc | vtoc $V | 1 | err | =1 | err | ckdvol: $V: the label puts the VTOC at 0/1/99, but there is no such record: the volume has no VTOC
novtoc | label $V | 0 | out | Serial: 0X0123
nof4 | ls $V | 1 | err | that record is not a Format-4 DSCB
absent | vtoc $V | 1 | err | ~^ckdvol: $V: not a usable volume
# pds: list, read, refusals naming file and cause (the replaces below must change nothing)
pds | pds list $V TEST.PDS | 0 | out | =5 | out | ~^MEMBER    TTR     USERDATA$ | out | ~^ALPHA     000003  4$ | out | ~^FAR       0190
pds | pds read $V TEST.PDS alpha | 0 | out | =3 | out | ~^ALPHA 0$ | out | ~^ALPHA 2$
pds | pds read $V TEST.PDS BETA | 0 | out | =100 | out | ~^BETA 99$
pds | pds read $V TEST.PDS EMPTY | 0 | out | =0
pds | pds read $V TEST.SEQ X | 1 | err | ckdvol: $V: data set TEST.SEQ is not partitioned (DSORG 4000
pds | pds list $V NO.SUCH | 1 | err | ckdvol: $V: data set NO.SUCH not found
pds | pds read $V TEST.PDS NOPE | 1 | err | ckdvol: $V: member NOPE not found in data set TEST.PDS
pds | pds read $V TEST.PDS FAR | 1 | err | member FAR of data set TEST.PDS starts at relative track 400, beyond the 21 tracks | err | =0 heads per cylinder
p300 | pds read $V TEST.PDS LATE | 1 | err | ~relative track 12, beyond the 11 tracks .*this device has 19 heads per cylinder
p300 | pds read $V TEST.PDS ALPHA | 0 | out | ~^ALPHA 0$
pds | pds read $V TEST.LOAD PROG | 1 | err | data set TEST.LOAD does not hold fixed-length records (RECFM C0, LRECL 0)
absent | pds list $V TEST.PDS | 1 | err | ckdvol: $V: cannot open the volume
pds | pds replace $V TEST.PDS ALPHA two | 1 | err | member ALPHA has 3 records of 80 bytes but two gives 2 lines
pds | pds replace $V TEST.PDS ALPHA long | 1 | err | line 2 of long has 81 characters, more than the record length 80
pds | pds replace $V TEST.PDS ALPHA raw200 --raw | 1 | err | 200 bytes, not a whole number of 80-byte records
pds | pds replace $V TEST.PDS FAR two | 1 | err | member FAR of data set TEST.PDS
# version and verify: refusals and activation of a pending version
ver | version status $V | 0 | out | versioning:        off
ver | version disable $V | 1 | err | $V: versioning is not active
ver | version enable $V | 0 | out | version 1 enabled; it takes effect at the next read-write open
ver | version status $V | 0 | out | pending:           version 1 is enabled
text | version status $V | 1 | err | $V: not a usable volume (open result -2)
absent | verify $V | 1 | err | $V: not a usable volume (open result -1)
ver | version verify $V --resume | 2 | out | =0
EOF
# ---- create: the header bytes, and an interrupted run ----
#   magic | heads 15 | slot 56832 | code AA | level 3 | cylinders 2, 2 (little-endian)
ok "create: header bytes, 30 slots" [ "$(peek new.ckd 0 26) $(size new.ckd)" = \
  "$(printf CKD_XVOL | od -An -tx1 | tr -d ' \n')0f00000000de0000aa030200000002000000 $((512 + 30 * SLOT))" ]
ok "info wrote nothing to a level-0 file" cmp -s old.ckd old0.ckd
ok "refused creates left no file" [ -z "$(ls x.ckd y.ckd z.ckd w.ckd 2>/dev/null)" ]
# 80 cylinders take long enough that SIGTERM normally lands mid-way; a
# volume finished before it must be complete.
"$TOOL" create big.ckd D600 --cylinders 80 >out 2>err & pid=$!
for _ in $(seq 200); do [ "$(size big.ckd 2>/dev/null || echo 0)" -gt 512 ] && break; sleep 0.01; done
kill -TERM "$pid"; wait "$pid"; status=$?
if [ "$status" -eq 143 ]; then
  ok "interrupted create removes the volume" [ ! -e big.ckd ]
  ok "interruption reported" grep -q "interrupted; the unfinished volume was removed" err
else
  echo "note: create finished before the signal"; ok "uninterrupted create is complete" [ "$(head -c 8 big.ckd)" = CKD_XVOL ]
fi
# ---- pds: replace, read back, extract ----
ok "refused replaces changed nothing" cmp -s pds.ckd pds0.ckd
ok "raw read: 3 EBCDIC records of 80 bytes" [ "$("$TOOL" pds read pds.ckd TEST.PDS ALPHA --raw | od -An -v -tx1 | tr -d ' \n')" \
  = "c1d3d7c8c140f0$(printf '40%.0s' {1..73})c1d3d7c8c140f1$(printf '40%.0s' {1..73})c1d3d7c8c140f2$(printf '40%.0s' {1..73})" ]
rows <<'EOF'
pds | pds replace $V TEST.PDS alpha three | 0 | err | =0
pds | pds read $V TEST.PDS ALPHA | 0 | out | =3 | out | ~^first line$ | out | =1 ~^$ | out | ~^third$
pds | pds read $V TEST.PDS BETA | 0 | out | ~^BETA 99$
EOF
ok "an empty line is stored as 80 blanks" [ "$("$TOOL" pds read pds.ckd TEST.PDS ALPHA --raw | tail -c +81 | head -c 80 | od -An -v -tx1 | tr -d ' \n')" = "$(printf '40%.0s' {1..80})" ]
rows <<'EOF'
pds | pds replace $V TEST.PDS ALPHA < xyz | 0 | err | =0
pds | pds read $V TEST.PDS ALPHA | 0 | out | =3 | out | ~^x$ | out | ~^z$
pds | pds replace $V TEST.PDS ALPHA raw240 --raw | 0 | err | =0
pds | pds read $V TEST.PDS ALPHA | 0 | out | =3 ~^B{80}$
pds | pds extract $V TEST.PDS $W/members | 1 | err | member FAR of data set TEST.PDS starts at relative track 400
EOF
ok "extract: BETA, EMPTY, no FAR" [ "$(wc -l <members/BETA) $(size members/EMPTY) $(ls members | grep -c FAR)" = "100 0 0" ]
ok "extract: ALPHA as read" cmp -s members/ALPHA <("$TOOL" pds read pds.ckd TEST.PDS ALPHA)
[ "$(id -u)" -eq 0 ] || { chmod a-w pds0.ckd   # read opens read-only, replace does not
  row 'pds0 | pds read $V TEST.PDS BETA | 0 | out | =100'
  row 'pds0 | pds replace $V TEST.PDS ALPHA three | 1 | err | ckdvol: $V: cannot open the volume'; }
# ---- version: changes under a version are made by hand the way the library
# writes them: the former image appended as a saved copy whose trailer ("VER0",
# version 0, link) points home, the home slot stamped "VER0", 1, the copy's offset.
home3=$((512 + 3 * SLOT)) home4=$((512 + 4 * SLOT)) end=$((512 + 30 * SLOT))
change() {  # change HOME BYTE: record zero's first data byte, under version 1
  local at; at=$(size ver.ckd)
  tail -c +$(($1 + 1)) ver.ckd | head -c $SLOT >>ver.ckd
  poke ver.ckd $((at + SLOT - 16)) "5645523000000000$(printf %016x "$1")"
  poke ver.ckd $(($1 + 13)) "$2"
  poke ver.ckd $(($1 + SLOT - 16)) "5645523000010000$(printf %016x "$at")"
}
ok "enable: VER0, active 0, latest 1; status kept it" [ "$(peek ver.ckd 26 8)" = 5645523000000100 ]
tail -c +$((home3 + 1)) ver.ckd | head -c $SLOT >track3
row 'ver | version verify $V | 0 | out | made the pending version 1 active | out | 0 saved copies of version 1 verified'
ok "verify activated version 1" [ "$(peek ver.ckd 26 8)" = 5645523001000100 ]
change $home3 5a
rows <<'EOF'
ver | version status $V | 0 | out | saved copies:      1 of the active version
ver | verify $V | 0 | out | 30 tracks verified, 30 sound, 0 with findings
ver | version disable $V | 1 | err | version 1 still has 1 saved copy; commit or roll it back first
ver | version rollback $V | 0 | out | version 1 rolled back: 1 saved copy written back
EOF
ok "rollback: copies cut off" [ "$(size ver.ckd)" -eq $end ]
ok "rollback: former bytes back" cmp -s track3 <(tail -c +$((home3 + 1)) ver.ckd | head -c $SLOT)
change $home3 5a
row 'ver | version commit $V | 0 | out | version 1 committed: 1 saved copy dropped'
ok "commit: copies cut off, change kept, trailer cleared" \
  [ "$(size ver.ckd) $(peek ver.ckd $((home3 + 13)) 1) $(peek ver.ckd $((home3 + SLOT - 16)) 16)" = "$end 5a $(printf '0%.0s' {1..32})" ]
change $home3 5b; truncate -s $end ver.ckd    # the saved copy is lost
poke ver.ckd $((512 + 17 * SLOT + 3)) 0009    # track 1/2: home address says head 9
poke ver.ckd $((512 + 20 * SLOT + 11)) ffff   # track 1/5: record zero 65535 bytes long
rows <<EOF
ver | verify \$V | 3 | out | This is it;; ofs = $home3 | out | cyl     0 head  3: code 7: the trailer links to a saved copy that cannot be read
ver | verify \$V | 3 | out | cyl     1 head  2: code 2: the home address names another track | out | cyl     1 head  5: code 4:
ver | verify \$V | 3 | out | 30 tracks verified, 27 sound, 3 with findings | out | ~^  code 7: 1 track:
EOF
ok "verify alone changes nothing" [ "$(peek ver.ckd $((512 + 17 * SLOT + 3)) 2)" = 0009 ]
row 'ver | verify $V --repair | 3 | out | version link cleared | out | rewritten as an empty track'
row 'ver | verify $V | 0 | out | 30 tracks verified, 30 sound, 0 with findings'
ok "repair kept the change, rewrote the home address" \
  [ "$(peek ver.ckd $((home3 + 13)) 1) $(peek ver.ckd $((512 + 17 * SLOT)) 13)" = "5b 00000100020001000200000008" ]
# An interrupted commit: the newest copy was processed (its track got the
# copy's zero trailer), the file not yet cut. Commit stops; --resume finishes.
change $home3 6b; change $home4 7c; poke ver.ckd $((home4 + SLOT - 16)) "$(printf '0%.0s' {1..32})"
row 'ver | version commit $V | 1 | err | run the same action again with --resume'
ok "stopped commit cut nothing" [ "$(size ver.ckd)" -eq $((end + 2 * SLOT)) ]
row 'ver | version commit $V --resume | 0 | out | resuming: 1 saved copy already processed by the interrupted run cut off the file | out | version 1 committed: 1 saved copy dropped'
ok "resumed commit kept both changes" [ "$(size ver.ckd) $(peek ver.ckd $((home3 + 13)) 1)$(peek ver.ckd $((home4 + 13)) 1)" = "$end 6b7c" ]
# A rollback to resume whose processed track does not hold the copy's image.
change $home4 7d; poke ver.ckd $((home4 + SLOT - 16)) "$(printf '0%.0s' {1..32})"
row 'ver | version rollback $V --resume | 1 | err | nothing was changed'
ok "refused rollback kept the copy" [ "$(size ver.ckd)" -eq $((end + SLOT)) ]
truncate -s $end ver.ckd
row 'ver | version disable $V | 0 | out | version 1 disabled; versioning is now off'
ok "disable cleared the header" [ "$(peek ver.ckd 26 8)" = 0000000000000000 ]
row 'ver | info $V | 0 | out | active 0, latest 0, 0 saved copies'
# ---- locks: writers take an exclusive flock, readers a shared one ----
exec 9<lock.ckd
flock -x 9
rows <<'EOF'
lock | info $V | 1 | err | $V: another ckdvol is changing this volume
lock | vtoc $V | 1 | err | $V: another ckdvol
lock | version enable $V | 1 | err | $V: another ckdvol
EOF
flock -u 9; flock -s 9
rows <<'EOF'
lock | info $V | 0 | out | active 0, latest 0
lock | verify $V | 0 | out | 30 sound
lock | verify $V --repair | 1 | err | $V: another ckdvol is using this volume
lock | version enable $V | 1 | err | $V: another ckdvol is using this volume
EOF
exec 9<&-
row 'lock | version enable $V | 0 | out | version 1 enabled'
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
