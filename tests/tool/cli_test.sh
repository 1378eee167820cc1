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
cp ds.ckd chain.ckd; poke chain.ckd $((512 + SLOT + 29 + 3 * 148 + 59)) 05   # 5 extents, no Format-3 chain
# d300 (19 heads): data set A, PO, U, BLKSIZE 6000, 0/2-1/3 is 21 real tracks.
"$TOOL" create d300.ckd D300 --cylinders 2 >/dev/null
dataset d300.ckd 13312 "C1$(printf '40%.0s' {1..43})F1" 01 "02 00 C0 00 17 70 00 00" "01 00 00 00 00 02 00 01 00 03"
[ -x "$GEN" ] && "$GEN" pds.ckd && "$GEN" p300.ckd d300 || { echo "FAIL: CKDVOL_MAKE_TEST_PDS is not the generator"; exit 1; }
cp pds.ckd pds0.ckd
cp p300.ckd vtoc300.ckd; poke vtoc300.ckd $((512 + 13312 + 29 + 45)) "00 01 00 0E 01"   # last active DSCB 1/14/1
# the directory block of TEST.PDS (data of 1/0/1) rewritten: ALPHA with statistics
# (version 1.2, created 2024.031, changed 2024.060 13:37:45, 3/3/1 lines, USER01),
# BETA, EMPTY made an alias of BETA, FAR, the end entry; and a damaged copy
dirblock=$((512 + 15 * SLOT + 37))
stats="C1D3D7C8C1404040 0000 03 0F 01 02 00 45 0124031F 0124060F 13 37 0003 0003 0001 E4E2C5D9F0F14040 0000"
cp pds.ckd stats.ckd; poke stats.ckd $dirblock "005C $stats C2C5E3C140404040 000101 00 C5D4D7E3E8404040 000101 80 C6C1D94040404040 019002 00 FFFFFFFFFFFFFFFF 000000 00"
cp pds.ckd dmg.ckd; poke dmg.ckd $dirblock "0500"                      # 1280 bytes used
# TEST.SEQ made VB (RECFM 50): on 2/14 one block (BDW 26; RDW 13 "HELLO VB1", RDW 9 "SHORT"),
# an EOF record and the end marker; a copy whose BDW says 27
cp pds.ckd vb.ckd; poke vb.ckd $((512 + SLOT + 29 + 2 * 148 + 84)) 50
poke vb.ckd $((512 + 44 * SLOT + 21)) "0002000E 01 00 001A 001A0000 000D0000 C8C5D3D3D640E5C2F1 00090000 E2C8D6D9E3 0002000E 02 00 0000 FFFFFFFFFFFFFFFF"
cp vb.ckd vbbad.ckd; poke vbbad.ckd $((512 + 44 * SLOT + 29)) 001B
cp pds.ckd cut.ckd; poke cut.ckd $((512 + 16 * SLOT + 3149 + 6)) 0C2F  # BETA's second block (1/1/2): 3119 bytes
# BETA runs on into track 1/2 (its EOF record made the end marker), and the file ends after 1/1
# under a pending version (open checks no size then): a read that fails after the first track
cp pds.ckd mt.ckd; poke mt.ckd $((512 + 16 * SLOT + 8045)) FFFFFFFFFFFFFFFF; poke mt.ckd 26 "56455230 0000 0100"
truncate -s $((512 + 17 * SLOT)) mt.ckd
printf 'int a[2] = {0};\n\tx\nend\n' >brackets
# files that are not (whole) volumes, and volumes made sparse
mkdir dir.ckd; : >empty.ckd
head -c 100 v2.ckd >t100.ckd; head -c 512 v2.ckd >t512.ckd; head -c 1512 v2.ckd >tmid.ckd
"$TOOL" create t5of20.ckd D600 --cylinders 20 --no-format --sparse >/dev/null
truncate -s $((512 + 5 * 15 * SLOT)) t5of20.ckd                       # 5 of its 20 cylinders
printf 'CKD_P370\x0f\0\0\0\0\xde\0\0\x90' >herc.ckd; truncate -s $((512 + 15 * SLOT)) herc.ckd
printf 'CKD_C370\x0f\0\0\0\0\xde\0\0\x90' >cckd.ckd; truncate -s 4096 cckd.ckd
head -c 512 v2.ckd >init.ckd; poke init.ckd 0 "43 4B 44 5F 49 4E 49 54"    # "CKD_INIT": creation killed
head -c 300 init.ckd >tinit.ckd                                             # killed while writing its header
head -c 300 init.ckd >tbad.ckd; poke tbad.ckd 16 FF                         # ... but no device has code FF
cp v2.ckd locked.ckd; chmod 600 locked.ckd
# D200 by hand, its 200000 tracks as holes: heads 20, slot 2560, code A4, level 3, 5 cylinders
printf 'CKD_XVOL\x14\0\0\0\0\x0a\0\0\xa4\x03\x05\0\0\0\x05\0\0\0' >d200.ckd
truncate -s $((512 + 200000 * 2560)) d200.ckd
"$TOOL" create sparse0.ckd D600-1 --cylinders 1 --no-format --sparse >/dev/null
ok "a sparse --no-format volume holds the bytes of a plain one" cmp -s sparse0.ckd bare.ckd
ok "the sparse volume takes a tenth of the room or less" [ $(($(du -k sparse0.ckd | cut -f1) * 10)) -le "$(du -k bare.ckd | cut -f1)" ]
printf 'one\ntwo\n' >two; printf 'a\n%081d\nc\n' 0 >long; head -c 200 /dev/zero >raw200
printf 'x\ny\nz\n' >xyz; printf 'first line\n\nthird   \n' >three; head -c 240 /dev/zero | tr '\0' '\302' >raw240  # EBCDIC B
rows <<'EOF'
# create: models, refusals that leave no file, an existing file kept
new | create $V D600 --cylinders 2 | 0 | out | created $V: D600-1, 2 cylinders x 15 heads | err | =0
new | create $V D600 --cylinders 1 | 1 | err | ckdvol: $V: the file already exists
d130 | create $V D130-2 --no-format | 0 | out | D130, 400 cylinders x 10 heads
x | create $V Z999 | 2 | err | Z999
y | create $V D500 --cylinders 70000 | 2 | err | only D600 goes beyond | err | =0 $V
z | create $V D600 --cylinders 0 | 2 | out | =0
w | create $V D600-999999 | 2 | out | =0
# track: IPL1, IPL2, VOL1 (serial 0X0123) and fillers on 0/0, the VTOC on 0/1
v2 | track $V 0 0 | 0 | out | Home address: flag 00, cylinder 0, head 0 | out | R1 at offset 21: CC 0 HH 0 R 1 KL 4 DL 24
v2 | track $V 0 0 | 0 | out | ~C9 D7 D3 F1 .*\|IPL1\| | out | R3 at offset 213: CC 0 HH 0 R 3 KL 4 DL 80
v2 | track $V 0 0 | 0 | out | E5 D6 D3 F1 F0 E7 F0 F1  F2 F3 40 00 00 00 01 01  |VOL10X0123 .....|
v2 | track $V 0 0 | 0 | out | R12 at offset 33137: CC 0 HH 0 R 12 KL 0 DL 4096 | out | End marker at offset 37241
v2 | track $V 0 1 | 0 | out | R1 at offset 21: CC 0 HH 1 R 1 KL 44 DL 96 | out | End marker at offset 1797
v2 | track $V 1 14 | 0 | out | End marker at offset 49269
v2 | track $V 2 0 | 2 | err | track 2/0 cell 0 is not on the volume (2 cylinders of 15 heads)
bare | track $V 0 0 | 0 | out | End marker at offset 21 | out | =0 ~^R[1-9]
# dscb
v2 | dscb $V 0 1 1 | 0 | out | ~^Format 4 DSCB at 0/1/1 \(000000/01/01\) --$ | out | ~^ {16}040404040404040404040404$ | out | NbrCyls: 2,    Trks/Cyl: 15,
v2 | dscb $V 0 1 2 | 0 | out | Format 5 DSCB at 0/1/2 (000000/01/02) -- | out | =17 | out | ~^NxtF5dscb: 0000 0000 00$
v2 | dscb $V 0 1 200 | 1 | err | no record 0/1/200
v2 | dscb $V 0 0 3 | 1 | err | is not a DSCB
v2 | dscb $V 5 0 1 | 2 | err | not on the volume
absent | dscb $V 0 1 1 | 1 | err | $V
# types and info
- | types | 0 | out | =11 ~^D[0-9]{3}  | out | ~^D600 +0xAA +1113 +15 +56832 +56664 +1$ | out | ~^D200 +0xA4 +5 +20 +2560 +2000 +10$
- | types --json | 0 | out | =11 "type": | out | "slotBytes": 4096
absent | info $V | 1 | err | $V: No such file or directory | err | =1 | out | =0
text | info $V | 1 | err | $V: a text file, not a volume
half | info $V | 1 | err | $V: the file holds 37 tracks, not a whole number of cylinders of 15 tracks
v2 | info $V | 0 | out | ~^device type: +D600-1$ | out | ~^cylinders: +2$ | out | ~^format level: +3$
v2 | info $V | 0 | out | 15 heads, 1 cell, 30 tracks of 56832 bytes | out | active 0, latest 0, 0 saved copies
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
ds | ls $V | 0 | out | ~^Volume 0X0123: D600, 3 cylinders of 15 tracks, 1 data set$ | out | ~^TEST.DATA  F1   PS     FB        80     3120       0  -         -           -             17       0     0%  1/0-1/14 2/3-2/4$
ds | ls --json $V | 0 | out | "name": "TEST.DATA" | out | "tracks": 17 | out | "recfm": "FB" | out | "created": null
d300 | ls $V | 0 | out | ~^A     F1   PO     U          0     6000       0  -         -           -             21       0     0%  0/2-1/3$
# several volumes; dates as YYYY.DDD; one unreadable volume makes status 1
pds | ls $V $W/p300.ckd $W/absent.ckd | 1 | out | =2 ~^Volume 0X0123: D[36]00 | err | absent.ckd
pds | ls $V | 0 | out | ~^TEST.LOAD +F1 +PO +U +0 +6144 +0 +2024.031 +- +- +4 +0 +0% +2/10-2/13$ | out | =3 ~^TEST\.
pds | ls --json $V $W/p300.ckd | 0 | out | =2 "serial": "0X0123" | out | "julian": "2024.031" | out | "iso": "2024-01-31" | out | "tracksPerCylinder": 19
bare | vtoc $V | 1 | err | =1 | err | ~^ckdvol: $V: no volume label | out | =0
bare | label $V | 1 | err | =1 | err | ~^ckdvol: $V: no volume label | out | =0
bare | ls $V | 1 | err | =1 | err | ~^ckdvol: $V: no volume label | out | =0
novtoc | vtoc $V | 1 | err | =1 | err | ckdvol: $V: the label puts the VTOC at 0/1/99, but there is no such record: the volume has no VTOC
novtoc | label $V | 0 | out | Serial: 0X0123
nof4 | ls $V | 1 | err | the record at the VTOC address 0/1/2 is not a Format-4 DSCB
chain | ls $V | 0 | out | 1/0-1/14 2/3-2/4 (damaged: see the note) | err | ckdvol: note: $V: data set TEST.DATA: Format-1 DSCB 0/1/4 counts 5 extents but its chain holds 2
chain | cat $V test.data | 1 | err | data set TEST.DATA cannot be read: Format-1 DSCB 0/1/4 counts 5 extents | out | =0
absent | vtoc $V | 1 | err | ~^ckdvol: $V: No such file or directory$
# pds: list, read, refusals naming file and cause (the replaces below must change nothing)
# a member that cannot be read shows ? and makes status 1, naming the track and the cause
pds | pds list $V TEST.PDS | 1 | out | =5 | out | ~^MEMBER +ALIAS-OF +TTR +RECORDS +BYTES | out | ~^ALPHA +000003 +3 +240$ | out | ~^EMPTY +000201 +0 +0$ | out | ~^FAR +019002 +\? +\?$ | err | member FAR of TEST.PDS cannot be read: relative track 400 lies outside the data set's 21 tracks
p300 | pds list $V test.pds | 0 | out | =7 | out | ~^LATE +000C01 +1 +80$ | err | =0
stats | pds list $V TEST.PDS | 1 | out | ~^ALPHA +000003 +3 +240 +01.02 +2024.031 +2024.060 13:37:45 +3 +3 +1 +USER01$ | out | ~^EMPTY +BETA +000101 +100 +8000$
stats | pds list --json $V TEST.PDS | 1 | out | "aliasOf": "BETA" | out | "userId": "USER01" | out | "changed": "2024.060"
stats | pds read $V TEST.PDS empty | 0 | out | =100 | out | ~^BETA 99$
dmg | pds list $V TEST.PDS | 1 | err | ckdvol: $V: the directory of TEST.PDS is damaged: directory block 1/0/1 says 1280 bytes used | out | =0
dmg | pds read $V TEST.PDS ALPHA | 1 | err | directory block 1/0/1 | out | =0
# a member that breaks after its first block or track: nothing is written, status 1, no extracted file
cut | pds read $V TEST.PDS BETA | 1 | out | =0 | err | TEST.PDS(BETA): block 1/1/2: 3119 bytes are not a multiple of LRECL 80; nothing was written
cut | pds extract $V TEST.PDS $W/cutx | 1 | err | cutx/BETA: not written: TEST.PDS(BETA) was not extracted whole | out | 2 members of TEST.PDS written
mt | pds read $V TEST.PDS BETA | 1 | out | =0 | err | TEST.PDS(BETA): track 1/2 (relative track 2) cannot be read (code -1); nothing was written
mt | cat $V 'TEST.PDS(BETA)' | 1 | out | =0 | err | TEST.PDS(BETA): track 1/2
mt | pds extract $V TEST.PDS $W/mtx | 1 | out | 1 member of TEST.PDS written | err | ckdvol: $V: 3 members of TEST.PDS not extracted: BETA, EMPTY, FAR
pds | pds list --json $V TEST.PDS | 1 | out | "dataSet": "TEST.PDS" | out | "ttr": "000003" | out | "bytes": 8000 | out | "error": "relative track 400
pds | pds read $V TEST.PDS alpha | 0 | out | =3 | out | ~^ALPHA 0$ | out | ~^ALPHA 2$
pds | pds read $V test.pds BETA | 0 | out | =100 | out | ~^BETA 99$
pds | pds read $V TEST.PDS EMPTY | 0 | out | =0 | err | TEST.PDS(EMPTY) holds no records
pds | pds read $V TEST.SEQ X | 1 | err | ckdvol: $V: data set TEST.SEQ is not partitioned (DSORG PS); 'ckdvol cat
pds | pds list $V NO.SUCH | 1 | err | ckdvol: $V: data set NO.SUCH not found
pds | pds list $V TEST.PSD | 1 | err | data set TEST.PSD not found on volume 0X0123 (did you mean TEST.PDS?)
pds | pds list $V OTHER.SEQ | 1 | err | (did you mean TEST.SEQ?)
pds | pds list $V '' | 2 | err | no data set name given | out | =0
pds | pds read $V TEST.PDS NOPE | 1 | err | ckdvol: $V: member NOPE not found in data set TEST.PDS
pds | pds read $V TEST.PDS ALPA | 1 | err | member ALPA not found in data set TEST.PDS (did you mean ALPHA?)
pds | pds read $V TEST.PDS FAR | 1 | err | ckdvol: $V: TEST.PDS(FAR): relative track 400 lies outside the data set's 21 tracks; nothing was written
# 19 heads: relative tracks past the 15-head count are read with the real heads
p300 | pds read $V TEST.PDS LATE | 0 | out | =1 | out | ~^LATE 0$
p300 | pds read $V TEST.PDS ALPHA | 0 | out | ~^ALPHA 0$
# a load library member is written as its blocks (not to a terminal)
pds | pds read $V TEST.LOAD PROG | 0 | err | =0
pds | pds read $V TEST.LOAD PROG --text | 0 | out | =1
absent | pds list $V TEST.PDS | 1 | err | ckdvol: $V: No such file or directory
# cat: sequential data sets and members
pds | cat $V 'test.pds(beta)' | 0 | out | =100 | out | ~^BETA 99$
pds | cat $V TEST.PDS | 1 | err | data set TEST.PDS is partitioned: name a member, TEST.PDS(MEMBER)
pds | cat $V 'TEST.PDS(' | 2 | err | is neither DSN nor DSN(MEMBER)
pds | cat $V TEST.SEQ | 1 | err | TEST.SEQ: block 2/14/1: 4096 bytes are not a multiple of LRECL 80; nothing was written
pds | cat $V TEST.SEQ --raw --blocks | 2 | out | =0
vb | cat $V TEST.SEQ | 0 | out | =2 | out | ~^HELLO VB1$ | out | ~^SHORT$ | err | =0
vbbad | cat $V TEST.SEQ | 1 | err | TEST.SEQ: block 2/14/1: BDW says 27 but the block has 26 bytes | out | =0
pds | cat $V TEST.PDS --codepage 1048 | 2 | err | '1048' is not a code page here (known: 037, 1047, 500)
pds | cat $V TEST.PDS --encoding utf-16 | 2 | err | is not an output encoding
# a 19-head volume whose last active DSCB lies past its VTOC (on 1/14): the
# volume classes' walk runs into the data set's records; vtoc says so in one
# line and lists the VTOC's own extent; the walk's lines become notes on stderr
vtoc300 | vtoc $V | 0 | out | ~^Format 1 DSCB at 0/1/2 | out | ~^Format-1 DSCBs: 1,  Format-8 DSCBs: 0$ | out | =0 key len err | err | ckdvol: note: $V: key len err 9995 | err | the volume classes' VTOC reader refuses this volume
vtoc300 | vtoc --json $V | 0 | out | "format1": 1 | out | "tracksPerCylinder": 19 | out | "name": "TEST.PDS" | err | =0
vtoc300 | ls $V | 0 | out | ~^TEST.PDS +F1 +PO +FB +80 +3120 .* 1/10-2/5$ | out | =0 key len err
vtoc300 | pds read $V TEST.PDS LATE | 0 | out | ~^LATE 0$
vtoc300 | pds replace $V TEST.PDS alpha xyz | 0 | out | TEST.PDS(ALPHA) replaced: 3 records, 1 block, 1 track
vtoc300 | pds read $V TEST.PDS ALPHA | 0 | out | =3 | out | ~^z$
pds | pds replace $V TEST.PDS NOSUCH two | 1 | err | member NOSUCH not found in TEST.PDS ('ckdvol pds add' adds it); nothing was changed
pds | pds replace $V TEST.PDS ALPHA long | 1 | err | line 2 of long has 81 characters, more than the record length 80
pds | pds replace $V TEST.PDS ALPHA raw200 --raw | 1 | err | 200 bytes, not a whole number of 80-byte records
pds | pds add $V TEST.PDS alpha two | 1 | err | member ALPHA exists in TEST.PDS
pds | pds replace $V TEST.PDS ALPHA $W | 1 | err | ckdvol: $W: cannot read the input: it is a directory
pds | pds replace $V NO.SUCH ALPHA two | 1 | err | data set NO.SUCH not found
# version and verify: refusals and activation of a pending version
ver | version status $V | 0 | out | versioning:        off
ver | version disable $V | 0 | out | $V: versioning is not active: nothing to disable
ver | version enable $V | 0 | out | version 1 enabled; it takes effect at the next read-write open
ver | version status $V | 0 | out | pending:           version 1 is enabled
text | version status $V | 1 | err | $V: a text file, not a volume
absent | verify $V | 1 | err | $V: No such file or directory
ver | version verify $V --resume | 2 | out | =0
EOF
# ---- refusals: exit status 2 for bad arguments, 1 naming the file and the cause ----
"$TOOL" >/dev/null 2>noarg.err; noarg=$?
ok "no command: exit 2, the cause on the first line" [ "$noarg $(head -n 1 noarg.err)" = "2 ckdvol: a command is required:" ]
rows <<'EOF'
- | bogus | 2 | err | ckdvol: 'bogus' is not a command | err | =1
- | verfy $V | 2 | err | (did you mean 'verify'?)
- | info | 2 | err | ~^ckdvol: info: FILE is required | err | =0 subcommand
- | create $V D600 --cylinders abc | 2 | err | ~^ckdvol: create: .*abc
- | create $V D600 --cylinders 2 --cylinders 3 | 2 | err | ~^ckdvol: create: --cylinders
- | verify $V --yes | 2 | err | --yes goes with --repair
- | version commit $V --json | 2 | err | --json goes with status
- | version status $V --wait=soon | 2 | err | --wait takes a number of seconds
new | create $V D600-60 | 2 | err | models go from 1 to 59 | err | =0 $V
new | create $V D200 --cylinders 6 | 2 | err | D200 has one geometry
new | create $W/no/dir.ckd D600 --cylinders 70000 | 1 | err | $W/no/dir.ckd: 70000 cylinders will be rounded up to 70119
lower | create $V d600 --cylinders 1 --no-format | 0 | out | created $V: D600-1, 1 cylinder x 15 heads | err | =0
dir | info $V | 1 | err | $V: a directory, not a volume file | err | =1
dir | verify $V | 1 | err | $V: a directory, not a volume file
dir | version rollback $V | 1 | err | $V: a directory, not a volume file
empty | info $V | 1 | err | $V: an unfinished creation (it was interrupted before it was complete; it holds no data): 'ckdvol create --force $V TYPE' replaces it
empty | track $V 0 0 | 1 | err | $V: an unfinished creation
t100 | vtoc $V | 1 | err | $V: 100 bytes: too short for a volume header (512 bytes)
tmid | info $V | 1 | err | $V: the file is 1512 bytes, not the 512-byte header plus whole tracks of 56832 bytes (1000 bytes of a track left over); its header says 2 cylinders of 15 tracks of 56832 bytes, 1705472 bytes: the file was cut short
herc | track $V 0 0 | 1 | err | $V: this is a Hercules CKD image (header "CKD_P370"), not a volume of this tool; 'ckdvol info $V' describes it and 'ckdvol convert' converts it
cckd | verify $V | 1 | err | $V: this is a Hercules compressed CKD image (CCKD) (header "CKD_C370")
init | info $V | 1 | err | $V: an unfinished creation (it was interrupted before it was complete; it holds no data): 'ckdvol create --force $V D600 --cylinders 2' replaces it, 'ckdvol recover $V' removes it
tinit | verify $V | 1 | err | $V: an unfinished creation (it was interrupted before it was complete; it holds no data): 'ckdvol create --force $V D600 --cylinders 2'
tinit | create $V D600 --cylinders 3 | 1 | err | $V: the file already exists; it was not changed: it is an unfinished creation
tinit | create $V D600 --cylinders 3 --force | 0 | out | created $V: D600-1, 3 cylinders | err | the unfinished creation there was removed
v2 | create $V D600 --force | 1 | err | $V: --force replaces only an unfinished creation, and this file is a complete volume; nothing was changed
text | create $V D600 --force | 1 | err | and this file is a text file, not a volume; nothing was changed
dir | create $V D600 --force | 1 | err | and this file is not a regular file; nothing was changed
tbad | info $V | 1 | err | $V: 300 bytes: too short for a volume header
# a volume shorter than its header says is a finding, with both sizes; it is not repaired
t512 | verify $V | 3 | out | $V: the file is 512 bytes but its header says 2 cylinders of 15 tracks, 1705472 bytes: it was cut short and holds 0 of its 2 cylinders
t5of20 | verify $V | 3 | out | it was cut short and holds 5 of its 20 cylinders (12787200 bytes missing) | out | 75 tracks verified, 75 sound
t5of20 | verify --json $V | 3 | out | "headerSize": 17050112 | out | "sizeFinding": "the file is 4262912 bytes
t5of20 | info $V | 0 | out | ~^file size: +the file is 4262912 bytes
# D200 as it is addressed, in every command
d200 | info $V | 0 | out | 10 cells x 200 cylinders x 100 heads | out | =0 corrected
d200 | info --json $V | 0 | out | "cylinders": 200, | out | "tracksPerCylinder": 100, | out | "cylindersCorrected": false
d200 | track $V 9 0 | 0 | out | Track 0009/0000 cell 0: slot at file offset 2304512
d200 | track $V 0x1309 0x0413 --cell 9 | 0 | out | Track 1309/0413 cell 9: slot at file offset 511997952
d200 | track $V 0x1400 0 | 2 | err | is not on the volume (10 cells x 200 cylinders x 100 heads
# sparse volumes read like any other
sparse | create $V D600 --cylinders 3 --sparse | 0 | out | labelled with an empty VTOC, sparse:
sparse | verify $V | 0 | out | 45 tracks verified, 45 sound
sparse | track $V 0 0 | 0 | out | |VOL10X0123 | out | End marker at offset 305
sparse | track $V 2 14 | 0 | out | End marker at offset 21
# reports as JSON
v2 | version status $V --json | 0 | out | "versioning": "off" | out | "savedCopies": 0
v2 | verify $V --json | 0 | out | "soundTracks": 30 | out | "findings": []
EOF
# no permission: root reads any file, so as root the row runs as nobody (setpriv)
if [ "$(id -u)" -ne 0 ]; then
  chmod 000 locked.ckd; row 'locked | info $V | 1 | err | $V: permission denied (mode 0000'
elif command -v setpriv >/dev/null; then
  # in a folder of its own under /tmp: the scratch folder's parents may be closed to nobody
  TOOL_SELF=$TOOL TOOL=$W/as-nobody W_SELF=$W W=$(mktemp -d /tmp/ckdvol-perm-XXXXXX)
  printf '#!/bin/sh\nexec setpriv --reuid=65534 --regid=65534 --clear-groups "%s" "$@"\n' "$TOOL_SELF" >"$TOOL"
  chmod 755 "$TOOL"; chmod 711 "$W"; cp "$W_SELF/locked.ckd" "$W/"
  row 'locked | info $V | 1 | err | $V: permission denied (mode 0600, owner uid 0)'
  rm -rf "$W"; TOOL=$TOOL_SELF W=$W_SELF
else
  echo "SKIP: no-permission row (running as root without setpriv)"
fi
# ---- create: the header bytes, and an interrupted run ----
#   magic | heads 15 | slot 56832 | code AA | level 3 | cylinders 2, 2 (little-endian)
ok "create: header bytes, 30 slots" [ "$(peek new.ckd 0 26) $(size new.ckd)" = \
  "$(printf CKD_XVOL | od -An -tx1 | tr -d ' \n')0f00000000de0000aa030200000002000000 $((512 + 30 * SLOT))" ]
ok "info wrote nothing to a level-0 file" cmp -s old.ckd old0.ckd
ok "refused creates left no file" [ -z "$(ls x.ckd y.ckd z.ckd w.ckd 2>/dev/null)" ]
ok "a member cut short leaves no file (nor a temporary one), the others are written" \
  [ "$(ls -A cutx | tr '\n' ' ')$(ls -A mtx)" = "ALPHA EMPTY ALPHA" ]
echo old >cutx/BETA
row 'cut | pds extract $V TEST.PDS $W/cutx --force | 1 | err | cutx/BETA: left as it was: TEST.PDS(BETA) was not extracted whole'
ok "--force: the file of a member that cannot be read is left as it was" [ "$(cat cutx/BETA)" = old ]
"$TOOL" pds read pds.ckd TEST.PDS BETA >/dev/full 2>full.err; status=$?
ok "a member that cannot be written out: status 1, naming the cause" [ "$status $(grep -c 'standard output: cannot write' full.err)" = "1 1" ]
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
pds | pds extract $V TEST.PDS $W/members | 1 | err | ckdvol: $V: TEST.PDS(FAR): relative track 400 | out | 3 members of TEST.PDS written to $W/members (8240 bytes of data) | err | 1 member of TEST.PDS not extracted: FAR
EOF
ok "extract: BETA, EMPTY, no FAR" [ "$(wc -l <members/BETA) $(size members/EMPTY) $(ls members | grep -c FAR)" = "100 0 0" ]
ok "extract: ALPHA as read" cmp -s members/ALPHA <("$TOOL" pds read pds.ckd TEST.PDS ALPHA)
rows <<'EOF'
pds | pds extract $V TEST.PDS $W/members | 1 | err | 3 files would be overwritten | err | give --force
pds | pds extract $V TEST.PDS $W/members --force | 1 | out | 3 members of TEST.PDS written
pds | pds extract $V TEST.LOAD $W/deep/er/load --suffix .bin | 0 | out | 1 member of TEST.LOAD written to $W/deep/er/load (500 bytes of data)
# text: code page 037 unless told, UTF-8 or ISO-8859-1; control characters kept and reported once
pds | pds replace $V TEST.PDS ALPHA brackets | 0 | err | =0
pds | pds read $V TEST.PDS ALPHA | 0 | out | int a[2] = {0}; | err | =1 1 byte decodes to a control character in code page 037: X'05' (U+0009)
pds | cat $V 'TEST.PDS(ALPHA)' --codepage IBM-1047 | 0 | out | int aÝ2¨ = {0}; | err | (the first in line 2)
EOF
ok "extract: the load member's 500 bytes" [ "$(od -An -v -tx1 deep/er/load/PROG.bin | tr -d ' \n')" = "$(printf '47%.0s' {1..500})" ]
ok "read: the load member's 500 bytes" [ "$("$TOOL" pds read pds.ckd TEST.LOAD PROG | od -An -v -tx1 | tr -d ' \n')" = "$(printf '47%.0s' {1..500})" ]
ok "latin1: one byte per character (X'BA' is the not sign in 500)" \
  [ "$("$TOOL" pds read pds.ckd TEST.PDS ALPHA --codepage 500 --encoding latin1 2>/dev/null | head -1 | od -An -v -tx1 | tr -d ' \n')" = 696e742061ac327c203d207b307d3b0a ]
ok "--records: a 4-byte big-endian length before each record" \
  [ "$("$TOOL" cat pds.ckd 'TEST.PDS(ALPHA)' --records | od -An -v -tx1 | tr -d ' \n' | head -c 20)" = 000000508995a34081ba ]
ok "--blocks: BETA's 3 blocks (3120, 3120, 1760 bytes) with their 4-byte lengths" \
  [ "$("$TOOL" cat pds.ckd 'TEST.PDS(BETA)' --blocks | wc -c) $("$TOOL" cat pds.ckd 'TEST.PDS(BETA)' --blocks | head -c 4 | od -An -tx1 | tr -d ' ')" = "8012 00000c30" ]
ok "VB --records: each record without its RDW, after a 4-byte length; --blocks: the block whole" \
  [ "$("$TOOL" cat vb.ckd TEST.SEQ --records | od -An -v -tx1 | tr -d ' \n') $("$TOOL" cat vb.ckd TEST.SEQ --blocks | od -An -v -tx1 | tr -d ' \n' | head -c 24)" \
    = "00000009c8c5d3d3d640e5c2f100000005e2c8d6d9e3 0000001a001a0000000d0000" ]
ok "--raw: 3 records of 80 bytes" [ "$("$TOOL" cat pds.ckd 'TEST.PDS(ALPHA)' --raw | wc -c)" -eq 240 ]
[ "$(id -u)" -eq 0 ] || { chmod a-w pds0.ckd   # read opens read-only, replace does not
  row 'pds0 | pds read $V TEST.PDS BETA | 0 | out | =100'
  row 'pds0 | pds replace $V TEST.PDS ALPHA three | 1 | err | ckdvol: $V: cannot open the volume'; }
# members: put, load, pds add/replace/delete/rename/alias/compress
"$TOOL" create mem.ckd D600 --cylinders 3 >/dev/null
"$TOOL" alloc mem.ckd DEMO.SRC --dsorg PO --recfm FB --lrecl 80 --blksize 800 --tracks 4 --dirblks 2 >/dev/null
seq 1 25 >n25; mkdir -p srcdir baddir; printf 'one\n' >srcdir/one.txt; printf 'a\nb\n' >srcdir/Two.txt; printf 'x\n' >srcdir/skip.dat
printf 'q\n' >baddir/9lives.txt; printf 'q\n' >baddir/A.txt; printf 'q\n' >baddir/a.asm
rows <<'EOF'
mem | pds add $V demo.src hello xyz | 0 | out | DEMO.SRC(HELLO) added: 3 records, 1 block, 1 track
mem | pds replace $V DEMO.SRC HELLO n25 | 0 | out | DEMO.SRC(HELLO) replaced: 25 records, 3 blocks, 1 track
mem | pds read $V DEMO.SRC hello | 0 | out | =25 | out | ~^25$
mem | put $V 'DEMO.SRC(PUT1)' three | 0 | out | DEMO.SRC(PUT1) added: 3 records, 1 block, 1 track
mem | cat $V 'DEMO.SRC(PUT1)' | 0 | out | =3 | out | ~^third$
mem | load $V DEMO.SRC $W/srcdir --suffix .txt | 0 | out | DEMO.SRC: 2 members loaded (0 replaced): 3 records, 2 blocks, 2 tracks | err | 1 file without the suffix .txt skipped
mem | load $V DEMO.SRC $W/srcdir --suffix .txt | 1 | err | members that exist in DEMO.SRC (give --replace): TWO, ONE; nothing was changed
mem | load $V DEMO.SRC $W/baddir | 1 | err | not member names: 9lives.txt; the same member twice: a.asm (A, as A.txt); nothing was changed
mem | pds alias $V DEMO.SRC two deux | 0 | out | DEMO.SRC(DEUX) added as an alias of TWO
mem | pds rename $V DEMO.SRC one uno | 0 | out | DEMO.SRC(ONE) renamed to UNO
mem | pds delete $V DEMO.SRC put1 nope | 1 | err | not in DEMO.SRC: NOPE; nothing was changed
mem | pds delete $V DEMO.SRC put1 | 0 | out | DEMO.SRC: deleted PUT1
# 2 directory blocks and their EOF are records 1-3; HELLO went to 0/4, again to 0/6-8, PUT1 0/10, TWO 0/12, ONE 0/14
mem | pds list $V DEMO.SRC | 0 | out | ~^DEUX +TWO +00000C +2 | out | ~^HELLO +000006 +25 +2000 +01.01 | out | ~^TWO +00000C | out | ~^UNO +00000E | out | =0 PUT1
mem | pds compress $V DEMO.SRC | 0 | out | DEMO.SRC compressed: 3 members, 5 blocks moved; the used space ends at TTR 00000B (it ended at 00000F)
# compressed: HELLO 0/4-6 (EOF 7), TWO 0/8 (EOF 9), UNO 0/10 (EOF 11)
mem | pds list $V DEMO.SRC | 0 | out | ~^DEUX +TWO +000008 | out | ~^HELLO +000004 +25 | out | ~^UNO +00000A | out | =5
mem | pds read $V DEMO.SRC deux | 0 | out | =2 | out | ~^b$
mem | pds read $V DEMO.SRC hello | 0 | out | =25 | out | ~^17$
mem | verify $V | 0 | out | 0 with findings
mem | pds add $V DEMO.SRC 1BAD xyz | 2 | err | '1BAD' is not a member name
mem | pds add $V DEMO.SRC BIG $W/n25 --raw | 1 | err | 66 bytes, not a whole number of 80-byte records
EOF
SOURCE_DATE_EPOCH=1709300265 "$TOOL" pds add mem.ckd DEMO.SRC DATED xyz >/dev/null   # 2024-03-01 13:37:45 UTC
ok "SOURCE_DATE_EPOCH dates the statistics" grep -qE '^DATED .* 01\.00 +2024\.061 +2024\.061 13:37:45' <("$TOOL" pds list mem.ckd DEMO.SRC)
# ---- version: changes under a version are made by hand the way the library
# writes them: the former image appended as a saved copy whose trailer ("VER0",
# version 0, link) points home, the home slot stamped "VER0", 1, the copy's offset.
home3=$((512 + 3 * SLOT)) home4=$((512 + 4 * SLOT)) end=$((512 + 30 * SLOT))
change() {  # change HOME BYTE [VERSION]: record zero's first data byte, under VERSION (1)
  local at; at=$(size ver.ckd)
  tail -c +$(($1 + 1)) ver.ckd | head -c $SLOT >>ver.ckd           # the copy keeps the image's version
  poke ver.ckd $((at + SLOT - 16)) 56455230; poke ver.ckd $((at + SLOT - 8)) "$(printf %016x "$1")"
  poke ver.ckd $(($1 + 13)) "$2"
  poke ver.ckd $(($1 + SLOT - 16)) "56455230$(printf %04x "${3:-1}")0000$(printf %016x "$at")"
}
ok "enable: VER0, active 0, latest 1; status kept it" [ "$(peek ver.ckd 26 8)" = 5645523000000100 ]
tail -c +$((home3 + 1)) ver.ckd | head -c $SLOT >track3
row 'ver | version verify $V | 0 | out | made the pending version 1 active | out | 0 saved copies of version 1 verified'
ok "verify activated version 1" [ "$(peek ver.ckd 26 8)" = 5645523001000100 ]
change $home3 5a
rows <<'EOF'
ver | version status $V | 0 | out | saved copies:      1 (made under version 1: 1) | out | of version 1 take all 1
ver | verify $V | 0 | out | 30 tracks verified, 30 sound, 0 with findings
ver | version disable $V | 1 | err | version 1 cannot be disabled while 1 saved copy (made under version 1: 1) remain
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
rows <<'EOF'
ver | verify $V --repair | 2 | err | add --yes
ver | verify $V --repair --yes | 3 | out | version link cleared; 0 records kept | out | record zero rewritten from the slot position | out | 3 tracks repaired under track version 1
ver | verify $V | 0 | out | 30 tracks verified, 30 sound, 0 with findings
EOF
ok "repair kept the change, rewrote the home address" \
  [ "$(peek ver.ckd $((home3 + 13)) 1) $(peek ver.ckd $((512 + 17 * SLOT)) 13)" = "5b 00000100020001000200000008" ]
row 'ver | version commit $V | 0 | out | version 1 committed: 3 saved copies dropped'
ok "the repair's copies are gone" [ "$(size ver.ckd)" -eq $end ]
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
# Nested versions: track 3 changed under version 1, track 4 under version 2. Status
# counts both; disable is refused; a commit of version 2 takes both.
"$TOOL" version enable ver.ckd >/dev/null; "$TOOL" version verify ver.ckd >/dev/null; change $home3 31
"$TOOL" version enable ver.ckd >/dev/null; "$TOOL" version verify ver.ckd >/dev/null; change $home4 42 2
rows <<'EOF'
ver | version status $V | 0 | out | saved copies:      2 (made under version 1: 1, version 2: 1) | out | of version 2 take all 2
ver | version status $V --json | 0 | out | "savedCopies": 2 | out | "2": 1 | out | "commitOrRollbackFailsAt": null
ver | version disable $V | 1 | err | version 2 cannot be disabled while 2 saved copies (made under version 1: 1, version 2: 1) remain
EOF
ok "the refused disable changed nothing" [ "$(peek ver.ckd 26 8) $(size ver.ckd)" = "5645523002000200 $((end + 2 * SLOT))" ]
change $home3 32 2                            # track 3 again, under version 2: its copies chain
poke ver.ckd $((home4 + SLOT - 16)) "$(printf '0%.0s' {1..32})"   # track 4 no longer links to its copy
row 'ver | version status $V | 0 | out | (made under version 1: 1, version 2: 1; 1 whose version cannot be told'
poke ver.ckd $((home4 + SLOT - 16)) "5645523000020000$(printf %016x $((end + SLOT)))"
row 'ver | version status $V | 0 | out | saved copies:      3 (made under version 1: 1, version 2: 2) | out | then links to neither'
truncate -s $((end + 2 * SLOT)) ver.ckd; poke ver.ckd $((home3 + SLOT - 16)) "5645523000010000$(printf %016x $end)"
"$TOOL" version commit ver.ckd >/dev/null
ok "commit of version 2 kept both changes and dropped both copies" \
  [ "$(size ver.ckd) $(peek ver.ckd $((home3 + 13)) 1)$(peek ver.ckd $((home4 + 13)) 1)" = "$end 3242" ]
rows <<'EOF'
ver | version disable $V | 0 | out | version 2 disabled; version 1 is active again
ver | version disable $V | 0 | out | version 1 disabled; versioning is now off
EOF
# ---- recover: a saved copy torn at the end of a versioned file, an unfinished creation ----
row 'ver | recover $V | 0 | out | nothing to recover'
"$TOOL" version enable ver.ckd >/dev/null; "$TOOL" version verify ver.ckd >/dev/null   # version 1 active
head -c 1000 /dev/zero >>ver.ckd
rows <<'EOF'
ver | version commit $V | 1 | err | run 'ckdvol recover' first; nothing was changed
ver | recover $V | 0 | out | a saved copy cut short (1000 of 56832 bytes) | out | undone
ver | recover $V --json | 0 | out | "action": "none"
EOF
ok "recover cut the torn copy" [ "$(size ver.ckd)" -eq $end ]
printf CKD_INIT >gone.ckd
row 'gone | recover $V | 0 | out | an unfinished creation | out | removed'
ok "recover removed the unfinished creation" [ ! -e gone.ckd ]
# A header that counts saved copies as tracks: 10 copies made by a repair, then
# the header says 3 cylinders. They are reported, never mended; the rollback stays.
"$TOOL" create sc.ckd D130 --cylinders 2 >/dev/null
for h in 0 1 2 3 4 5 6 7 8 9; do poke sc.ckd $((512 + (10 + h) * 4096 + 1)) 0005; done   # 1/h says cylinder 5
cp sc.ckd scd.ckd; cp sc.ckd full.ckd
"$TOOL" verify sc.ckd --repair --yes >/dev/null; poke sc.ckd 22 03000000; cp sc.ckd sc0.ckd
"$TOOL" create huge.ckd D130 --cylinders 1 >/dev/null; "$TOOL" version enable huge.ckd >/dev/null
poke huge.ckd 22 000000F0                                               # 0xF0000000 cylinders, version pending
rows <<'EOF'
sc | verify $V | 3 | out | cyl     2 head  9: the saved copy of cyl 1 head 9 (slot offset 78336), not a track | out | =10 the saved copy of | out | 20 tracks verified, 20 sound
sc | verify $V --repair --yes | 1 | err | 10 slots that its header counts as tracks are saved copies
sc | verify $V --dry-run --json | 3 | out | "savedCopiesInTrackArea": 10 | out | =0 "repair":
huge | verify $V --json | 3 | out | "headerTracks": 40265318400 | out | "fileSlots": 10 | out | "tracks": 10,
huge | verify $V --repair --yes | 1 | err | its header counts 40265318400 tracks but the file holds 10 whole slots; nothing was changed
EOF
ok "the refused repair changed nothing" cmp -s sc.ckd sc0.ckd
poke sc.ckd 22 02000000; "$TOOL" version rollback sc.ckd >/dev/null
ok "the saved copies still roll back" cmp -s <(tail -c +513 sc.ckd) <(tail -c +513 scd.ckd)
# A repair whose saved copies go past the file size limit: status 1, all undone.
cp full.ckd full0.ckd
(ulimit -f 85; trap '' XFSZ; "$TOOL" verify full.ckd --repair --yes >/dev/null 2>full.err); status=$?
ok "a repair that cannot save its tracks fails and changes nothing" \
  [ "$status $(grep -c 'cannot save the damaged tracks first.*no track was repaired: nothing was changed' full.err)" = "1 1" ]
ok "the failed repair left the volume as it was" cmp -s full.ckd full0.ckd
# ---- locks: writers take an exclusive flock, readers a shared one ----
exec 9<lock.ckd
flock -x 9
rows <<'EOF'
lock | info $V | 1 | err | $V: another ckdvol is changing this volume
lock | vtoc $V | 1 | err | $V: another ckdvol
lock | version enable $V | 1 | err | $V: another ckdvol
lock | info $V --wait=1 | 1 | err | still held after waiting 1 second
EOF
(sleep 1; flock -u 9) &
row 'lock | info $V --wait=30 | 0 | out | active 0, latest 0'
wait
flock -u 9; flock -s 9
rows <<'EOF'
lock | info $V | 0 | out | active 0, latest 0
lock | verify $V | 0 | out | 30 sound
lock | verify $V --repair | 1 | err | $V: another ckdvol is using this volume
lock | version enable $V | 1 | err | $V: another ckdvol is using this volume
EOF
exec 9<&-
row 'lock | version enable $V | 0 | out | version 1 enabled'
# a version enabled but never active is taken back with one header write, not activated first
row 'lock | version disable $V | 0 | out | version 1 was enabled but never active: disabled; versioning stays off | out | =1'
ok "disable of the pending version cleared the header" [ "$(peek lock.ckd 26 8)" = 0000000000000000 ]
# space: alloc, scratch, rename, relabel, df, map, create --serial
# sp: 3 cylinders (45 tracks); label 0/0, VTOC 0/1, free 0/2 onwards
rows <<'EOF'
sp | create $V D600 --cylinders 3 --serial sp0001 --owner 'Space Test' | 0 | out | labelled with an empty VTOC, serial SP0001
sp | label $V | 0 | out | Serial: SP0001 | out | Owner-ID: E29781838540E385A2A340404040
nosp | create $V D600 --cylinders 3 --serial 1BAD | 2 | err | '1BAD' is not a volume serial
nosp | create $V D600 --cylinders 3 --serial SERIAL7 | 2 | err | 'SERIAL7' is not a volume serial
nosp | create $V D600 --cylinders 3 --serial OK --owner 'FIFTEEN CHARSXX' | 2 | err | the owner has at most 14 characters, not 15
nosp | create $V D600 --cylinders 3 --serial OK --no-format | 2 | err | cannot go with --no-format
sp | alloc $V seq.data --tracks 5 | 0 | out | allocated SEQ.DATA on $V: PS FB 80/28320, 5 tracks in 1 extent: 0/2-0/6 (5 tracks); DSCB at 0/1/3
sp | alloc $V my.pds --dsorg po --tracks 10 --dirblks 3 | 0 | out | allocated MY.PDS on $V: PO FB 80/28320, 10 tracks in 1 extent: 0/7-1/1
# whole cylinders start at head 0: 1/2 is free, cylinder 2 is the first whole one
sp | alloc $V big --cylinders 1 --recfm vb --lrecl 255 | 0 | out | PS VB 255/28332, 15 tracks in 1 extent: 2/0-2/14
sp | alloc $V placed --tracks 2 --at 1:5 | 0 | out | 2 tracks in 1 extent: 1/5-1/6 (2 tracks); DSCB at 0/1/6
sp | alloc $V other --tracks 1 --at 1:6 | 1 | err | no room at cylinder 1 head 6: 1 track from there are not all free; nothing was changed
sp | alloc $V SEQ.DATA --tracks 1 | 1 | err | $V: data set SEQ.DATA already exists; nothing was changed
sp | alloc $V huge --tracks 20 | 1 | err | no room: 20 tracks requested, largest free extent 8, free 11; nothing was changed
sp | alloc $V 1bad --tracks 1 | 2 | err | '1BAD' is not a data set name
sp | alloc $V x --tracks 1 --cylinders 1 | 2 | err | give the space as --tracks N or --cylinders N
sp | alloc $V x --tracks 1 --bogus | 2 | err | --bogus
sp | alloc $V x --tracks 1 --recfm fbx | 2 | err | --recfm is F, FB, V, VB or U
sp | alloc $V x --tracks 1 --at 9:0 | 2 | err | --at 9:0 is not on the volume
sp | pds list $V MY.PDS | 0 | err | the directory of MY.PDS holds no members
sp | ls $V | 0 | out | Volume SP0001: D600, 3 cylinders of 15 tracks, 4 data sets | out | ~^BIG +F1 +PS +VB +255 +28332 .* 15 +0 +0% +2/0-2/14$ | out | ~^PLACED .* 1/5-1/6$
sp | vtoc $V | 0 | out | =4 ~DSname: (BIG|MY.PDS|PLACED|SEQ.DATA) | err | =0
sp | rename $V seq.data seq.new | 0 | out | renamed SEQ.DATA to SEQ.NEW on $V
sp | rename $V seq.new my.pds | 1 | err | data set MY.PDS already exists; nothing was changed
sp | rename $V nope x | 1 | err | data set NOPE not found
sp | rename $V my.pds a..b | 2 | err | is not a data set name
sp | scratch $V placed | 0 | out | scratched PLACED on $V: 2 tracks free again
sp | scratch $V placed | 1 | err | data set PLACED not found
sp | relabel $V work02 --owner ops | 0 | out | relabelled $V: serial WORK02 (was SP0001), owner 'ops', 3 data sets
sp | relabel $V 1bad | 2 | err | '1BAD' is not a volume serial
sp | ls $V | 0 | out | Volume WORK02: D600, 3 cylinders of 15 tracks, 3 data sets | out | ~^SEQ.NEW +F1 +PS | out | =0 PLACED
sp | vtoc $V | 0 | out | =3 ~DSname: (BIG|MY.PDS|SEQ.NEW) | out | WORK02
# free: 1/2-1/14 only (45 - label - VTOC - 5 - 10 - 15 = 13 tracks)
sp | df $V | 0 | out | ~^1/2 +1/14 +13 +0$ | out | free: 13 tracks (0 whole cylinders) in 1 extent; allocated: 32 tracks; volume: 45 tracks | out | =0 note:
sp | map $V | 0 | out | cyl 0             LVcccccbbbbbbbb | out | cyl 1             bb............. | out | cyl 2             aaaaaaaaaaaaaaa | out | a BIG  b MY.PDS  c SEQ.NEW
sp | map $V --svg $W/sp.svg | 0 | out | wrote $W/sp.svg: 3 cylinders, 3 data sets
sp | verify $V | 0 | out | 45 tracks verified, 45 sound, 0 with findings
EOF
ok "create refusals left no file" [ ! -e nosp.ckd ]
ok "df --json: 13 free tracks in one extent from track 17, the Format-5 DSCB agrees" [ "$("$TOOL" df sp.ckd --json | python3 -c \
  'import json,sys; d=json.load(sys.stdin); e=d["freeExtents"]; print(d["serial"], d["freeTracks"], d["allocatedTracks"], len(e), e[0]["firstTrack"], e[0]["tracks"], d["format5Agrees"])')" = "WORK02 13 32 1 17 13 True" ]
ok "map --svg: well-formed SVG naming every data set" python3 -c '
import sys, xml.etree.ElementTree as E
root = E.parse(sys.argv[1]).getroot()
text = " ".join(t.text or "" for t in root.iter() if t.tag.endswith("text"))
sys.exit(0 if root.tag.endswith("svg") and all(n in text for n in ("BIG", "MY.PDS", "SEQ.NEW")) else 1)' sp.svg
# interchange: import, export
# TEST.PDS's readable members and TEST.LOAD's PROG (RECFM U) sent off one volume and
# received on another; refusals leave the receiving volume byte for byte as it was; a
# message sent in front of a data set is shown, not loaded; a VB data set sent as its
# records and received as a new data set, then over itself
export SOURCE_DATE_EPOCH=1700000000
"$GEN" xp.ckd && "$TOOL" create xi.ckd D600 --cylinders 3 >/dev/null
printf 'Hello from the sender\nsecond line: caf\xc3\xa9\n' >msg.txt
rows <<'EOF'
xp | export $V test.pds $W/t.xmi --members alpha,BETA,empty --from-node n1 --from-user u1 | 0 | out | exported TEST.PDS to $W/t.xmi: 3 members, 0 aliases, 4 blocks, 9360 bytes
xp | export $V TEST.PDS $W/t.xmi | 1 | err | ckdvol: $W/t.xmi: exists (give --force to replace it)
xp | export $V TEST.PDS $W/u.xmi | 1 | err | ckdvol: $V: TEST.PDS(FAR): relative track 400 lies outside the data set's 21 tracks
xp | export $V TEST.PDS $W/u.xmi --members nope | 1 | err | member NOPE not found in TEST.PDS
xp | export $V TEST.LOAD $W/l.xmi | 0 | out | exported TEST.LOAD to $W/l.xmi: 1 member, 0 aliases, 1 block, 1520 bytes
xi | import $V $W/t.xmi | 0 | out | imported TEST.PDS (allocated, 21 tracks): 3 members, 0 aliases, 4 blocks, 1 track
xi | pds list $V TEST.PDS | 0 | out | ~^ALPHA +000003 +3 +240$ | out | ~^BETA +000005 +100 +8000$ | out | ~^EMPTY +000009 +0 +0$
xi | pds read $V test.pds alpha | 0 | out | =3 | out | ALPHA 2
xi | import $V $W/l.xmi --dsn my.load | 0 | out | imported MY.LOAD (allocated, 4 tracks): 1 member, 0 aliases, 1 block, 1 track
EOF
ok "export takes its time from SOURCE_DATE_EPOCH (INMFTIME 20231114221320 in EBCDIC)" \
  env LC_ALL=C grep -q "$(printf '\xf2\xf0\xf2\xf3\xf1\xf1\xf1\xf4\xf2\xf2\xf1\xf3\xf2\xf0')" t.xmi
ok "a load module arrives with the same bytes" cmp <("$TOOL" pds read xp.ckd TEST.LOAD PROG --raw) <("$TOOL" pds read xi.ckd MY.LOAD PROG --raw)
cp xi.ckd xi0.ckd
rows <<'EOF'
xi | import $V $W/t.xmi | 1 | err | ckdvol: $V: data set TEST.PDS exists (--replace adds the members to it); nothing was changed
xi | import $V $W/t.xmi --dsn copy.pds --members beta,nope | 1 | err | not in the transfer file: NOPE; nothing was changed
xi | import $V $W/t.xmi --dsn COPY.PDS --tracks 500 | 1 | err | no room: 500 tracks requested
xi | import $V $W/l.xmi --dsn TEST.PDS --replace | 1 | err | TEST.PDS does not suit the members: RECFM 90 LRECL 80 BLKSIZE 3120, they are RECFM C0
xi | import $V $W/xp.ckd | 1 | err | ckdvol: $W/xp.ckd: not a transfer file
xi | import $V $W/none.xmi | 1 | err | none.xmi: cannot read the input
xi | import $V $W/t.xmi --tracks 1 --cylinders 1 | 2 | err | not both
EOF
ok "refused imports changed nothing" cmp xi.ckd xi0.ckd
rows <<'EOF'
xi | import $V $W/t.xmi --replace --members Empty | 0 | out | imported TEST.PDS: 1 member, 0 aliases (1 replaced), 0 blocks, 1 track
xi | pds list $V TEST.PDS | 0 | out | =4 | out | ~^EMPTY +00000A +0 +0$
xp | export $V TEST.LOAD $W/m.xmi --message $W/msg.txt | 0 | out | exported TEST.LOAD to $W/m.xmi: 1 member, 0 aliases, 1 block, 1600 bytes
xi | import $V $W/m.xmi --dsn msg.load | 0 | out | =3 | out | Hello from the sender | out | second line: café | out | imported MSG.LOAD (allocated, 4 tracks)
xi | alloc $V MY.VB --recfm VB --lrecl 120 --tracks 2 | 0 | out | allocated MY.VB
xi | put $V MY.VB $W/msg.txt | 0 | out | MY.VB: 2 records, 1 block, 1 track written
xi | export $V my.vb $W/vb.xmi | 0 | out | exported MY.VB to $W/vb.xmi: 2 records, 320 bytes
xi | import $V $W/vb.xmi --dsn copy.vb | 0 | out | imported COPY.VB (allocated, 2 tracks): 2 records, 1 block, 1 track
xi | cat $V COPY.VB | 0 | out | =2 | out | ~^second line: café$
xi | import $V $W/vb.xmi --dsn copy.vb | 1 | err | data set COPY.VB exists (--replace replaces its contents); nothing was changed
xi | import $V $W/vb.xmi --dsn other.vb --members a | 1 | err | the transfer file holds a sequential data set, which has no members to choose
xi | import $V $W/vb.xmi --dsn msg.load --replace | 1 | err | MSG.LOAD exists and is not sequential; nothing was changed
xi | import $V $W/vb.xmi --dsn copy.vb --replace | 0 | out | imported COPY.VB: 2 records, 1 block, 1 track
xi | verify $V | 0 | out | 45 tracks verified, 45 sound, 0 with findings
EOF
unset SOURCE_DATE_EPOCH
# images: convert, info on Hercules images
cp pds.ckd hv.ckd
rows <<'EOF'
hv | convert $V $W/hv.cckd | 0 | out | $V (ckdvol, D600, 3 cylinders) -> $W/hv.cckd (cckd): 45 tracks, 2557952 bytes in | out | ~zlib: [0-9]+ tracks compressed, [0-9]+ null tracks
hv | convert $V $W/hv.cckd64 --to cckd64 --compress bzip2 | 0 | out | (cckd64): 45 tracks | out | bzip2:
hv | convert $V $W/hv.3390 --to ckd --cylinders-per-file 2 | 0 | out | -> $W/hv_1.3390, $W/hv_2.3390 (ckd)
hv | info $W/hv.cckd | 0 | out | a Hercules compressed CKD image (CCKD) | out | D600 (Hercules 3390) | out | compression:        zlib | out | convert with:       ckdvol convert $W/hv.cckd $W/hv.ckd
hv | info $W/hv_1.3390 --json | 0 | out | "format": "hercules-ckd" | out | "cylinders": 3 | out | "$W/hv_2.3390"
hv | convert $W/hv.cckd $W/b1.ckd | 0 | out | -> $W/b1.ckd (ckdvol): 45 tracks
hv | convert $W/hv.cckd64 $W/b2.ckd | 0 | out | -> $W/b2.ckd (ckdvol)
hv | convert $W/hv_1.3390 $W/b3.ckd | 0 | out | $W/hv_1.3390 (ckd, D600, 3 cylinders) -> $W/b3.ckd
hv | convert $V $W/hv.cckd | 1 | err | ckdvol: $W/hv.cckd: exists; --force replaces it
hv | convert $V $W/hv.cckd --force --compress none | 0 | out | none: 0 tracks compressed
hv | convert $V $W/x.ckd --to ckdvol | 1 | err | already a volume of this tool
hv | convert $V $W/x.ckd --to vmdk | 2 | err | give ckdvol, ckd, cckd or cckd64
hv | convert $V $W/x.ckd --to ckd --compress zlib | 2 | err | --compress applies to cckd and cckd64 images, not ckd
d200 | convert $V $W/x.cckd | 1 | err | ckdvol: $V: D200 volumes have no Hercules device type
herc | convert $V $W/x.ckd | 1 | err | ckdvol: $V: cylinder 0 head 0: its records do not end with an end-of-track marker | err | no output was written
cckd | info $V | 1 | err | ckdvol: $V: its header says 0 cylinders (1 to 65520 can be converted)
text | convert $V $W/x.ckd | 1 | err | a text file, not a volume
hv | convert $W/hv.cckd $W/x.ckd --shadow $W/hv.cckd64 | 1 | err | not a shadow file of this image
EOF
ok "cckd converts back to the same volume" cmp -s hv.ckd b1.ckd
ok "cckd64 converts back to the same volume" cmp -s hv.ckd b2.ckd
ok "split ckd converts back to the same volume" cmp -s hv.ckd b3.ckd
ok "refused conversions leave no file behind" bash -c '! ls -a | grep -q "^\.\?x\."'
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
