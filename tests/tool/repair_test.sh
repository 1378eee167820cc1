#!/usr/bin/env bash
# verify --repair end to end: tracks damaged the ways users met are repaired
# with --yes, the records a person would keep must still be there, and
# 'version rollback' must give back the damaged file byte for byte.
#   repair_test.sh TOOL   (CKDVOL_MAKE_TEST_PDS: tests/pds' volume generator)
set -u
TOOL=$(realpath "$1")
GEN=${CKDVOL_MAKE_TEST_PDS:-}
mkdir -p "${TMPDIR:-/tmp}"
W=$(mktemp -d "${TMPDIR:-/tmp}/ckdvol-repair-XXXXXX")
trap 'rm -rf "$W"' EXIT
cd "$W" || exit 1
[ -x "$GEN" ] || { echo "FAIL: CKDVOL_MAKE_TEST_PDS is not the generator"; exit 1; }
failed=0
check() {  # check DESCRIPTION COMMAND...
  local what=$1; shift
  "$@" || { echo "FAIL: $what"; failed=$((failed + 1)); }
}
run() {  # run STATUS COMMAND-ARGS...: the tool's output lands in out and err
  local want=$1 got=0; shift
  "$TOOL" "$@" >out 2>err </dev/null || got=$?
  [ "$got" -eq "$want" ] || { echo "FAIL: ckdvol $*: exit $got, wanted $want"; sed 's/^/  | /' err; failed=$((failed + 1)); }
}
slot() { echo $((512 + ($1 * 15 + $2) * 56832)); }  # slot CYL HEAD: file offset of a D600 track
poke() { printf "$(echo "$3" | sed 's/ //g; s/../\\x&/g')" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }
filler() { echo $((21 + ($1 - 1) * 4104)); }  # filler N: slot offset of filler record N's count field

# TEST.PDS's directory is on track 1/0; tracks 2/8, 2/9, 2/11 and 2/12 hold 12
# filler records each. (The listing exits 1 for member FAR, which lies beyond
# the data set: that is the generator's doing; the listing itself is compared.)
"$GEN" v.ckd
run 1 pds list v.ckd TEST.PDS
cp out members
poke v.ckd $(($(slot 1 0) + 1)) "12 34 56 78"                   # home address: 4 bytes
poke v.ckd $(($(slot 2 8) + $(filler 6) + 2)) "00 03"           # R6's head 8 -> 3, mid-track
poke v.ckd $(($(slot 2 9) + 5 + 2)) "00 04"                     # record zero's head 9 -> 4
poke v.ckd $(($(slot 2 11) + $(filler 11) + 6)) "FF F0"         # R11 runs past the record area
cp v.ckd damaged.ckd

run 3 verify v.ckd
check "four findings: codes 2, 605, 3 and 4" \
  test "$(grep -oE 'code [0-9]+:' out | head -4 | tr '\n' ' ')" = "code 2: code 605: code 3: code 4: "

# A dry run lists the mending and changes nothing.
run 3 verify v.ckd --dry-run
check "dry run: directory track keeps its records" \
  grep -q "home address rewritten from the slot position (it named cyl 4660 head 22136); 4 records kept" out
check "dry run: R6's count field mended" grep -q "count field of record 6 after record zero rewritten: cyl 2 head 3 -> cyl 2 head 8; 12 records kept" out
check "dry run: record zero mended" grep -q "record zero rewritten from the slot position (it read cyl 2 head 4 R0); 12 records kept" out
check "dry run: only R11 is dropped" grep -q "10 records kept, 1 record dropped: R11 (KL 0, DL 65520) (runs past the end of the record area)" out
check "dry run: summary" grep -q "repair would mend 4 tracks: 1 record dropped, 0 tracks rewritten empty" out
check "dry run: file unchanged" cmp -s v.ckd damaged.ckd

# Without a terminal, --repair needs --yes.
run 2 verify v.ckd --repair
check "unconfirmed repair: says how to confirm" grep -q -- "add --yes" err
check "unconfirmed repair: file unchanged" cmp -s v.ckd damaged.ckd

run 3 verify v.ckd --repair --yes
check "repair made under version 1, enabled for it" grep -q "4 tracks repaired under track version 1 (enabled for this repair)" out
check "repair says how to undo it" grep -q "ckdvol version rollback v.ckd" out
run 0 verify v.ckd
run 1 pds list v.ckd TEST.PDS
check "the directory lists its members again" cmp -s out members
run 0 pds read v.ckd TEST.PDS BETA
check "BETA still has 100 lines" test "$(wc -l <out)" -eq 100
run 0 track v.ckd 2 8
check "2/8: R6 back on head 8" grep -q "R6 at offset $(filler 6): CC 2 HH 8 R 6 KL 0 DL 4096" out
check "2/8: all 12 records" test "$(grep -c '^R[0-9]* at' out)" -eq 13
run 0 track v.ckd 2 9
check "2/9: record zero names the track" grep -q "R0 at offset 5: CC 2 HH 9 R 0 KL 0 DL 8" out
check "2/9: all 12 records" test "$(grep -c '^R[0-9]* at' out)" -eq 13
run 0 track v.ckd 2 11
check "2/11: R1 to R10 stay, the marker takes R11's place" grep -q "End marker at offset $(filler 11)" out
check "2/11: ten records" test "$(grep -c '^R[0-9]* at' out)" -eq 11
run 0 version status v.ckd --json
check "four saved copies under version 1" grep -q '"savedCopies": 4' out

run 0 version rollback v.ckd
check "rollback names the version the repair was made under" grep -q "version 1 rolled back: 4 saved copies" out
run 0 version disable v.ckd
check "rollback and disable give back the damaged file, byte for byte" cmp v.ckd damaged.ckd

# Under a version that is already active, the repair joins it.
run 0 version enable v.ckd
run 0 version status v.ckd                                       # read-only: still pending
run 3 verify v.ckd --repair --yes
check "repair joins the pending version once it is active" grep -q "repaired under track version 1$" out
run 0 version rollback v.ckd
run 0 version disable v.ckd
check "second rollback restores every byte too" cmp v.ckd damaged.ckd

# Rolled back after version 2 was enabled (and became active on opening),
# the changes are named for the version they were made under.
run 3 verify v.ckd --repair --yes
run 0 version enable v.ckd
run 0 version rollback v.ckd
check "rollback names version 1, under which the repair was made" grep -q "^v.ckd: version 1 rolled back: 4 saved copies" out

# A track whose records all name another track is not renamed: it is emptied,
# and the dry run says which records go.
cp damaged.ckd w.ckd
for n in 1 2 3 4 5 6 7 8 9 10 11 12; do poke w.ckd $(($(slot 2 12) + $(filler "$n") + 2)) "00 0D"; done
poke w.ckd $(($(slot 2 12) + 3)) "00 0D"
run 3 verify w.ckd --dry-run
check "misplaced track: emptied, its 12 records listed" \
  grep -q "rewritten as an empty track (its records name cyl 2 head 13, not this track); 0 records kept, 12 records dropped: R1 (KL 0, DL 4096)" out

[ "$failed" -eq 0 ] || { echo "$failed check(s) failed"; exit 1; }
echo "all checks passed"
