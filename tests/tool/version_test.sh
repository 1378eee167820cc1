# End-to-end: ckdvol version (status, enable, disable, commit, rollback,
# verify) and ckdvol verify [--repair] on a small D600 volume. The track
# changes made "under a version" are written here by hand, byte by byte, the
# way the library's write path lays them out: the former image appended as a
# saved copy whose trailer links home, the home slot stamped with "VER0",
# the version and the copy's offset.
set -eu
source "$(dirname "$0")/lib.sh"

SLOT=56832
VOL=$WORK/v.ckd
home03=$((512 + 3 * SLOT))         # track (0, 3)
dataEnd=$((512 + 30 * SLOT))       # 2 cylinders x 15 heads

poke() {  # poke FILE OFFSET HEXBYTES
  local esc
  esc=$(echo "$3" | sed 's/../\\x&/g')
  printf "$esc" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}
peek() {  # peek FILE OFFSET LENGTH -> hex
  od -An -tx1 -j "$2" -N "$3" "$1" | tr -d ' \n'
}
be64() { printf '%016x' "$1"; }
size() { stat -c %s "$1"; }
contains() {  # contains TEXT FILE
  grep -qF -- "$1" "$2"
}

# Change track (0, 3) under version 1: save its image as a copy, then put
# 0x5A into record zero's first data byte and stamp the trailer.
change03() {
  local copyAt
  copyAt=$(size "$VOL")
  tail -c +$((home03 + 1)) "$VOL" | head -c $SLOT >"$WORK/slot"
  cat "$WORK/slot" >>"$VOL"
  poke "$VOL" $((copyAt + SLOT - 16)) "564552300000"0000"$(be64 $home03)"   # "VER0" v0 link home
  poke "$VOL" $((home03 + 13)) 5a
  poke "$VOL" $((home03 + SLOT - 16)) "564552300001"0000"$(be64 "$copyAt")" # "VER0" v1 link copy
}

check "create" "$TOOL" create "$VOL" D600 --cylinders 2 --no-format >/dev/null
tail -c +$((home03 + 1)) "$VOL" | head -c $SLOT >"$WORK/original03"

expect_status 0 "status of an unversioned volume" "$TOOL" version status "$VOL"
check "status says off" contains "versioning:        off" "$WORK/out"

expect_status 1 "disable while off" "$TOOL" version disable "$VOL"
check "disable names file and cause" contains "$VOL: versioning is not active" "$WORK/err"

expect_status 0 "enable" "$TOOL" version enable "$VOL"
check "enable says when it takes effect" contains "version 1 enabled; it takes effect at the next read-write open" "$WORK/out"
check "header: VER0, active 0, latest 1" [ "$(peek "$VOL" 26 8)" = "5645523000000100" ]

expect_status 0 "status while pending" "$TOOL" version status "$VOL"
check "status says pending" contains "pending:           version 1 is enabled" "$WORK/out"
check "status leaves the header" [ "$(peek "$VOL" 26 8)" = "5645523000000100" ]

expect_status 0 "verify copies (activates)" "$TOOL" version verify "$VOL"
check "activation reported" contains "made the pending version 1 active" "$WORK/out"
check "no copies yet" contains "0 saved copies of version 1 verified" "$WORK/out"
check "header: active 1, latest 1" [ "$(peek "$VOL" 26 8)" = "5645523001000100" ]

change03
expect_status 0 "status with a copy" "$TOOL" version status "$VOL"
check "one saved copy" contains "saved copies:      1 of the active version" "$WORK/out"
expect_status 0 "versioned volume verifies" "$TOOL" verify "$VOL"
check "all sound" contains "30 tracks verified, 30 sound, 0 with findings" "$WORK/out"
expect_status 1 "disable with copies" "$TOOL" version disable "$VOL"
check "disable explains copies" contains "version 1 still has 1 saved copy; commit or roll it back first" "$WORK/err"

expect_status 0 "rollback" "$TOOL" version rollback "$VOL"
check "rollback report" contains "version 1 rolled back: 1 saved copy written back" "$WORK/out"
check "file cut to the tracks" [ "$(size "$VOL")" -eq "$dataEnd" ]
tail -c +$((home03 + 1)) "$VOL" | head -c $SLOT >"$WORK/now03"
check "track holds its former bytes" cmp -s "$WORK/original03" "$WORK/now03"

change03
expect_status 0 "commit" "$TOOL" version commit "$VOL"
check "commit report" contains "version 1 committed: 1 saved copy dropped" "$WORK/out"
check "file cut to the tracks" [ "$(size "$VOL")" -eq "$dataEnd" ]
check "new contents stay" [ "$(peek "$VOL" $((home03 + 13)) 1)" = "5a" ]
check "trailer cleared" [ "$(peek "$VOL" $((home03 + SLOT - 16)) 16)" = "00000000000000000000000000000000" ]

# A saved copy cut off the file: the track's link leads nowhere.
change03
truncate -s "$dataEnd" "$VOL"
expect_status 3 "verify finds the lost copy" "$TOOL" verify "$VOL"
check "diagnostic line" contains "This is it;; ofs = $home03" "$WORK/out"
check "finding with address" contains "cyl     0 head  3: code 7: the trailer links to a saved copy that cannot be read" "$WORK/out"
check "summary by code" contains "  code 7: 1 track:" "$WORK/out"
expect_status 3 "repair" "$TOOL" verify "$VOL" --repair
check "repair reported" contains "version link cleared" "$WORK/out"
expect_status 0 "repaired volume verifies" "$TOOL" verify "$VOL"
check "change kept" [ "$(peek "$VOL" $((home03 + 13)) 1)" = "5a" ]

# A home address naming another head, and a record past the end of the area.
poke "$VOL" $((512 + 17 * SLOT + 3)) 0009            # track (1, 2): HA head 9
poke "$VOL" $((512 + 20 * SLOT + 11)) ffff            # track (1, 5): R0 data length 65535
expect_status 3 "verify finds two tracks" "$TOOL" verify "$VOL"
check "code 2 listed" contains "cyl     1 head  2: code 2: the home address names another track" "$WORK/out"
check "code 4 listed" contains "cyl     1 head  5: code 4:" "$WORK/out"
check "summary" contains "30 tracks verified, 28 sound, 2 with findings" "$WORK/out"
check "read-only verify changed nothing" [ "$(peek "$VOL" $((512 + 17 * SLOT + 3)) 2)" = "0009" ]
expect_status 3 "repair both" "$TOOL" verify "$VOL" --repair
check "reformatted" contains "rewritten as an empty track" "$WORK/out"
expect_status 0 "all sound after repair" "$TOOL" verify "$VOL"
check "HA rewritten" [ "$(peek "$VOL" $((512 + 17 * SLOT)) 13)" = "00000100020001000200000008" ]

# An interrupted commit: two tracks changed, the run processed the newest
# copy (its track got the copy's zero trailer) and stopped before cutting the
# file. A second commit stops at that copy; --resume finishes the job.
changeTrack() {  # changeTrack HOME BYTE
  local copyAt
  copyAt=$(size "$VOL")
  tail -c +$(($1 + 1)) "$VOL" | head -c $SLOT >>"$VOL"
  poke "$VOL" $((copyAt + SLOT - 16)) "564552300000"0000"$(be64 "$1")"
  poke "$VOL" $(($1 + 13)) "$2"
  poke "$VOL" $(($1 + SLOT - 16)) "564552300001"0000"$(be64 "$copyAt")"
}
home04=$((512 + 4 * SLOT))
changeTrack $home03 6b
changeTrack $home04 7c
poke "$VOL" $((home04 + SLOT - 16)) 00000000000000000000000000000000
expect_status 1 "commit after an interrupted commit" "$TOOL" version commit "$VOL"
check "points at --resume" contains "run the same action again with --resume" "$WORK/err"
check "nothing cut" [ "$(size "$VOL")" -eq $((dataEnd + 2 * SLOT)) ]
expect_status 2 "--resume only with commit or rollback" "$TOOL" version verify "$VOL" --resume
expect_status 0 "commit --resume" "$TOOL" version commit "$VOL" --resume
check "resume report" contains "resuming: 1 saved copy already processed by the interrupted run cut off the file" "$WORK/out"
check "rest committed" contains "version 1 committed: 1 saved copy dropped" "$WORK/out"
check "file cut to the tracks" [ "$(size "$VOL")" -eq "$dataEnd" ]
check "both changes stay" [ "$(peek "$VOL" $((home03 + 13)) 1)$(peek "$VOL" $((home04 + 13)) 1)" = "6b7c" ]
# A rollback whose processed track does not hold the copy's image is refused.
changeTrack $home04 7d
poke "$VOL" $((home04 + SLOT - 16)) 00000000000000000000000000000000
expect_status 1 "rollback --resume refuses a track that was not rolled back" "$TOOL" version rollback "$VOL" --resume
check "refusal explained" contains "nothing was changed" "$WORK/err"
check "copy kept" [ "$(size "$VOL")" -eq $((dataEnd + SLOT)) ]
truncate -s "$dataEnd" "$VOL"

expect_status 0 "disable" "$TOOL" version disable "$VOL"
check "disable report" contains "version 1 disabled; versioning is now off" "$WORK/out"
check "header cleared" [ "$(peek "$VOL" 26 8)" = "0000000000000000" ]
expect_status 0 "info opens the unversioned volume" "$TOOL" info "$VOL"

echo "not a volume" >"$WORK/junk"
expect_status 1 "status of a non-volume" "$TOOL" version status "$WORK/junk"
check "open failure named" contains "$WORK/junk: not a usable volume (open result -2)" "$WORK/err"
expect_status 1 "verify of a missing file" "$TOOL" verify "$WORK/missing"
check "missing named" contains "$WORK/missing: not a usable volume (open result -1)" "$WORK/err"

finish
