#!/usr/bin/env bash
# Builds the tool and runs the main job: make a volume, allocate a
# partitioned and a sequential data set on it, load members from a folder,
# write the device table into the sequential one, list the VTOC and read a member back.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target ckdvol_tool
tool=build/tools/ckdvol/ckdvol
demo=${DEMO_VOLUME:-demo.ckd}
members=$(mktemp -d)
trap 'rm -rf "$members"' EXIT
rm -f "$demo"

# A few members to load: text files, one line per record.
printf '%s\n' "//DEMOJOB  JOB (ACCT),'DEMO',CLASS=A" "//STEP1    EXEC PGM=DEMOPGM" > "$members/demojob.txt"
printf '%s\n' "HELLO FROM THE HOST" "SECOND LINE" > "$members/hello.txt"
for i in 1 2 3; do seq -f "LINE %05g OF MEMBER PARM0$i" 1 $((i * 40)) > "$members/parm0$i.txt"; done

"$tool" create "$demo" D600 --cylinders 10 --serial DEMO01
"$tool" alloc "$demo" DEMO.SOURCE --dsorg PO --recfm FB --lrecl 80 --tracks 30 --dirblks 10
"$tool" alloc "$demo" DEMO.NOTES --dsorg PS --recfm VB --lrecl 255 --blksize 27998 --tracks 5
"$tool" load "$demo" DEMO.SOURCE "$members" --suffix .txt
"$tool" types | "$tool" put "$demo" DEMO.NOTES   # the device table as notes
"$tool" vtoc "$demo"
"$tool" ls "$demo"
"$tool" pds list "$demo" DEMO.SOURCE
"$tool" pds read "$demo" DEMO.SOURCE HELLO
"$tool" cat "$demo" DEMO.NOTES | sed -n 1,5p
"$tool" df "$demo"
