# End-to-end: the tool's advisory locks. A command that changes a volume
# takes an exclusive flock and read-only commands a shared one; each refuses
# at once, naming the file, when another process holds a conflicting lock.
set -eu
source "$(dirname "$0")/lib.sh"
command -v flock >/dev/null || { echo "flock(1) not installed: skipped"; exit 0; }

VOL=$WORK/v.ckd
check "create" "$TOOL" create "$VOL" D600 --cylinders 1 >/dev/null
contains() { grep -qF -- "$1" "$2"; }

exec 9<"$VOL"
flock -x 9  # as a writer would
expect_status 1 "info while another writer holds the volume" "$TOOL" info "$VOL"
check "refusal names the file" contains "$VOL: another ckdvol is changing this volume" "$WORK/err"
expect_status 1 "vtoc while locked" "$TOOL" vtoc "$VOL"
expect_status 1 "version enable while locked" "$TOOL" version enable "$VOL"
check "header untouched" [ "$(od -An -tx1 -j 26 -N 8 "$VOL" | tr -d ' \n')" = "0000000000000000" ]

flock -u 9
flock -s 9  # as a reader would
expect_status 0 "info beside another reader" "$TOOL" info "$VOL"
expect_status 0 "verify beside another reader" "$TOOL" verify "$VOL"
expect_status 1 "verify --repair needs the volume alone" "$TOOL" verify "$VOL" --repair
check "writer refusal worded" contains "$VOL: another ckdvol is using this volume" "$WORK/err"
expect_status 1 "version enable needs the volume alone" "$TOOL" version enable "$VOL"

flock -u 9
exec 9<&-
expect_status 0 "enable once the lock is gone" "$TOOL" version enable "$VOL"
finish
