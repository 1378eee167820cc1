#!/usr/bin/env bash
# ckdvol pds list/read/replace/extract, end to end. The tool cannot make a
# partitioned data set, so tests/pds' generator (make_test_pds, passed in
# CKDVOL_MAKE_TEST_PDS by ctest) writes the volumes; see make_test_pds.cc for
# what they hold.
set -eu
source "$(dirname "$0")/lib.sh"

GEN=${CKDVOL_MAKE_TEST_PDS:-}
if [ -z "$GEN" ] || [ ! -x "$GEN" ]; then
  echo "FAIL: CKDVOL_MAKE_TEST_PDS does not name the make_test_pds generator"
  exit 1
fi
vol=$WORK/vol.ckd
d300=$WORK/d300.ckd
"$GEN" "$vol"
"$GEN" "$d300" d300

# ---- list ----
expect_status 0 "list" "$TOOL" pds list "$vol" TEST.PDS
check "list heading" grep -q "^MEMBER    TTR     USERDATA$" "$WORK/out"
check "ALPHA with 4 bytes of user data" grep -q "^ALPHA     000003  4$" "$WORK/out"
check "four members" test "$(wc -l <"$WORK/out")" -eq 5
check "FAR's TT as stored" grep -q "^FAR       0190" "$WORK/out"

# ---- read ----
expect_status 0 "read alpha (any case)" "$TOOL" pds read "$vol" TEST.PDS alpha
printf 'ALPHA 0\nALPHA 1\nALPHA 2\n' >"$WORK/want"
check "ALPHA as text lines, blanks trimmed" cmp -s "$WORK/out" "$WORK/want"
expect_status 0 "read BETA" "$TOOL" pds read "$vol" TEST.PDS BETA
check "BETA has 100 lines" test "$(wc -l <"$WORK/out")" -eq 100
check "BETA's last line" test "$(tail -n 1 "$WORK/out")" = "BETA 99"
expect_status 0 "read EMPTY" "$TOOL" pds read "$vol" TEST.PDS EMPTY
check "EMPTY prints nothing" test ! -s "$WORK/out"
expect_status 0 "read --raw" "$TOOL" pds read "$vol" TEST.PDS ALPHA --raw
check "raw: 3 records of 80 bytes" test "$(stat -c %s "$WORK/out")" -eq 240
check "raw: EBCDIC 'ALPHA 0' then blanks" \
  test "$(head -c 10 "$WORK/out" | od -An -v -tx1 | tr -d ' \n')" = "c1d3d7c8c140f0404040"

# ---- refusals, each naming the file and the cause ----
expect_status 1 "not partitioned" "$TOOL" pds read "$vol" TEST.SEQ X
check "not partitioned message" grep -q "ckdvol: $vol: data set TEST.SEQ is not partitioned (DSORG 4000" "$WORK/err"
expect_status 1 "data set not found" "$TOOL" pds list "$vol" NO.SUCH
check "not found message" grep -q "ckdvol: $vol: data set NO.SUCH not found" "$WORK/err"
expect_status 1 "member not found" "$TOOL" pds read "$vol" TEST.PDS NOPE
check "member message" grep -q "ckdvol: $vol: member NOPE not found in data set TEST.PDS" "$WORK/err"
expect_status 1 "member beyond the extents" "$TOOL" pds read "$vol" TEST.PDS FAR
check "beyond message" grep -q "member FAR of data set TEST.PDS starts at relative track 400, beyond the 21 tracks" "$WORK/err"
check "no heads remark on 15 heads" sh -c "! grep -q 'heads per cylinder' '$WORK/err'"
expect_status 1 "beyond on 19 heads" "$TOOL" pds read "$d300" TEST.PDS LATE
check "19-head message" grep -q "relative track 12, beyond the 11 tracks .*this device has 19 heads per cylinder" "$WORK/err"
expect_status 0 "19 heads: a member inside the count" "$TOOL" pds read "$d300" TEST.PDS ALPHA
check "19 heads: ALPHA read" test "$(head -n 1 "$WORK/out")" = "ALPHA 0"
expect_status 1 "record length 0" "$TOOL" pds read "$vol" TEST.LOAD PROG
check "undefined-length message" grep -q "data set TEST.LOAD does not hold fixed-length records (RECFM C0, LRECL 0)" "$WORK/err"
expect_status 1 "missing volume" "$TOOL" pds list "$WORK/none.ckd" TEST.PDS
check "missing volume message" grep -q "ckdvol: $WORK/none.ckd: cannot open the volume" "$WORK/err"

# ---- replace: refused inputs change nothing ----
cp "$vol" "$WORK/orig.ckd"
printf 'one\ntwo\n' >"$WORK/two-lines"
expect_status 1 "replace with too few lines" "$TOOL" pds replace "$vol" TEST.PDS ALPHA "$WORK/two-lines"
check "count message" grep -q "member ALPHA has 3 records of 80 bytes but $WORK/two-lines gives 2 lines" "$WORK/err"
printf 'a\n%081d\nc\n' 0 >"$WORK/long-line"
expect_status 1 "replace with a line of 81" "$TOOL" pds replace "$vol" TEST.PDS ALPHA "$WORK/long-line"
check "length message" grep -q "line 2 of $WORK/long-line has 81 characters, more than the record length 80" "$WORK/err"
head -c 200 /dev/zero >"$WORK/raw-200"
expect_status 1 "raw input not whole records" "$TOOL" pds replace "$vol" TEST.PDS ALPHA "$WORK/raw-200" --raw
check "raw size message" grep -q "200 bytes, not a whole number of 80-byte records" "$WORK/err"
expect_status 1 "replace a member beyond the extents" "$TOOL" pds replace "$vol" TEST.PDS FAR "$WORK/two-lines"
check "volume unchanged by refusals" cmp -s "$vol" "$WORK/orig.ckd"

# ---- replace: text from a file and from standard input, raw records ----
printf 'first line\n\nthird   \n' >"$WORK/three"
expect_status 0 "replace ALPHA" "$TOOL" pds replace "$vol" TEST.PDS alpha "$WORK/three"
check "volume changed" sh -c "! cmp -s '$vol' '$WORK/orig.ckd'"
expect_status 0 "read back" "$TOOL" pds read "$vol" TEST.PDS ALPHA
printf 'first line\n\nthird\n' >"$WORK/want"
check "new text, empty line kept, blanks trimmed" cmp -s "$WORK/out" "$WORK/want"
expect_status 0 "raw read back" "$TOOL" pds read "$vol" TEST.PDS ALPHA --raw
check "empty line became 80 blanks" \
  test "$(tail -c +81 "$WORK/out" | head -c 80 | od -An -v -tx1 | tr -d ' \n')" = "$(printf '40%.0s' $(seq 80))"
check "BETA untouched" sh -c "'$TOOL' pds read '$vol' TEST.PDS BETA | tail -n 1 | grep -qx 'BETA 99'"
check "replace from standard input" sh -c "printf 'x\ny\nz\n' | '$TOOL' pds replace '$vol' TEST.PDS ALPHA"
expect_status 0 "read after stdin replace" "$TOOL" pds read "$vol" TEST.PDS ALPHA
check "stdin text" test "$(tr '\n' ' ' <"$WORK/out")" = "x y z "
head -c 240 /dev/zero | tr '\0' '\302' >"$WORK/raw-240"  # EBCDIC 'B'
expect_status 0 "replace --raw" "$TOOL" pds replace "$vol" TEST.PDS ALPHA "$WORK/raw-240" --raw
expect_status 0 "read raw replacement" "$TOOL" pds read "$vol" TEST.PDS ALPHA
check "raw records as text" test "$(head -n 1 "$WORK/out")" = "$(printf 'B%.0s' $(seq 80))"

# read and list open read-only: they work on a write-protected copy, replace does not.
cp "$vol" "$WORK/ro.ckd"
chmod a-w "$WORK/ro.ckd"
if [ "$(id -u)" -ne 0 ]; then
  expect_status 0 "read a read-only volume" "$TOOL" pds read "$WORK/ro.ckd" TEST.PDS BETA
  expect_status 1 "replace on a read-only volume" "$TOOL" pds replace "$WORK/ro.ckd" TEST.PDS ALPHA "$WORK/three"
  check "read-only message" grep -q "ckdvol: $WORK/ro.ckd: cannot open the volume" "$WORK/err"
fi

# ---- extract ----
# FAR cannot be read, so extract ends with status 1 after writing the others.
expect_status 1 "extract" "$TOOL" pds extract "$vol" TEST.PDS "$WORK/members"
check "BETA extracted" test "$(wc -l <"$WORK/members/BETA")" -eq 100
check "EMPTY extracted empty" test -f "$WORK/members/EMPTY" -a ! -s "$WORK/members/EMPTY"
"$TOOL" pds read "$vol" TEST.PDS ALPHA >"$WORK/alpha-read"
check "ALPHA extracted as read" cmp -s "$WORK/members/ALPHA" "$WORK/alpha-read"
check "FAR refused during extract" grep -q "member FAR of data set TEST.PDS starts at relative track 400" "$WORK/err"
check "no file for FAR" test ! -e "$WORK/members/FAR"

finish
