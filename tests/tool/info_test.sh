#!/usr/bin/env bash
# ckdvol types and ckdvol info, end to end.
set -eu
source "$(dirname "$0")/lib.sh"

# A D600 volume file written by hand: header, then sparse zero slots.
#   magic "CKD_XVOL" | heads 15 | slot 56832 | code AA | level 3 |
#   created cylinders | cylinders | (versions zero)
d600_volume() {  # d600_volume FILE HEADER_CYLINDERS FILE_CYLINDERS
  local file=$1 hc=$2 fc=$3
  {
    printf 'CKD_XVOL'
    printf '\x0f\x00\x00\x00'
    printf '\x00\xde\x00\x00'
    printf '\xaa\x03'
    printf "\\x$(printf %02x "$hc")\\x00\\x00\\x00"
    printf "\\x$(printf %02x "$hc")\\x00\\x00\\x00"
  } >"$file"
  truncate -s $((512 + fc * 15 * 56832)) "$file"
}

# --- types ---
expect_status 0 "types runs" "$TOOL" types
check "types lists eleven device types" test "$(grep -cE '^D[0-9]{3} ' "$WORK/out")" -eq 11
check "types shows the D600 row" grep -Eq '^D600 +0xAA +1113 +15 +56832 +56664 +1$' "$WORK/out"
check "types shows D200 with ten cells" grep -Eq '^D200 +0xA4 +5 +20 +2560 +2000 +10$' "$WORK/out"
check "types shows D100 first" bash -c "sed -n 2p '$WORK/out' | grep -q '^D100 '"
expect_status 0 "types --json runs" "$TOOL" types --json
check "types --json has eleven rows" test "$(grep -c '"type":' "$WORK/out")" -eq 11
check "types --json has the D130 slot size" grep -q '"slotBytes": 4096' "$WORK/out"

# --- info on files that are not volumes ---
expect_status 1 "info on a missing file" "$TOOL" info "$WORK/absent.ckd"
check "missing file: message names the file" grep -q "absent.ckd" "$WORK/err"
check "missing file: result -1 and the system's cause" grep -q -- "-1.*No such file or directory" "$WORK/err"
check "missing file: nothing on stdout" test ! -s "$WORK/out"

head -c 2000 /dev/zero | tr '\0' 'x' >"$WORK/text.txt"
expect_status 1 "info on a non-volume file" "$TOOL" info "$WORK/text.txt"
check "non-volume: message names the file" grep -q "text.txt" "$WORK/err"
check "non-volume: result -2 and its text" grep -q -- "-2.*Unable to read file" "$WORK/err"

d600_volume "$WORK/half.ckd" 2 2
truncate -s $((512 + 2 * 15 * 56832 + 7 * 56832)) "$WORK/half.ckd"
expect_status 1 "info on a volume with half a cylinder extra" "$TOOL" info "$WORK/half.ckd"
check "half cylinder: result -8 and its text" grep -q -- "-8.*File size is not a track size multiple" "$WORK/err"

# --- info on volumes ---
d600_volume "$WORK/v.ckd" 2 2
cp "$WORK/v.ckd" "$WORK/before.ckd"
expect_status 0 "info on a volume" "$TOOL" info "$WORK/v.ckd"
check "info shows type and model" grep -q '^device type: *D600-1$' "$WORK/out"
check "info shows the cylinders" grep -q '^cylinders: *2$' "$WORK/out"
check "info shows the geometry" grep -q '15 heads, 1 cell(s), 30 tracks of 56832 bytes' "$WORK/out"
check "info shows the versions" grep -q 'active 0, latest 0, 0 saved copies' "$WORK/out"
check "info shows the format level" grep -q '^format level: *3$' "$WORK/out"
check "info changes nothing" cmp -s "$WORK/v.ckd" "$WORK/before.ckd"

expect_status 0 "info --json" "$TOOL" info --json "$WORK/v.ckd"
check "json: cylinders" grep -q '"cylinders": 2,' "$WORK/out"
check "json: device type" grep -q '"deviceType": "D600"' "$WORK/out"
check "json: read-only" grep -q '"readOnly": true' "$WORK/out"
check "json: header magic" grep -q '"magic": "CKD_XVOL"' "$WORK/out"

d600_volume "$WORK/short.ckd" 3 2
expect_status 0 "info on a volume shorter than its header says" "$TOOL" info "$WORK/short.ckd"
check "correction is shown" grep -q 'cylinders: *2 (corrected from the file size; header says 3)' "$WORK/out"

# A level-0 file: opened read-only, the pending upgrade is reported, not written.
d600_volume "$WORK/old.ckd" 0 1
printf '\x00' | dd of="$WORK/old.ckd" bs=1 seek=17 conv=notrunc status=none
cp "$WORK/old.ckd" "$WORK/old-before.ckd"
expect_status 0 "info on a level-0 file" "$TOOL" info "$WORK/old.ckd"
check "level-0: pending update reported" grep -q 'asks for an update' "$WORK/out"
check "level-0: file unchanged" cmp -s "$WORK/old.ckd" "$WORK/old-before.ckd"

# A volume made by the tool itself, when this build has `create`.
if "$TOOL" create --help >/dev/null 2>&1; then
  expect_status 0 "create a small volume" "$TOOL" create "$WORK/made.ckd" D600 --cylinders 2
  expect_status 0 "info on a created volume" "$TOOL" info "$WORK/made.ckd"
  check "created volume: type" grep -q '^device type: *D600-1$' "$WORK/out"
  check "created volume: cylinders" grep -q '^cylinders: *2$' "$WORK/out"
else
  echo "note: no 'create' command in this build; created-volume checks skipped"
fi

expect_status 0 "info --help" "$TOOL" info --help
check "help explains read-only" grep -q 'read-only' "$WORK/out"

finish
