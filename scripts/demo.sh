#!/usr/bin/env bash
# Builds the tool and runs the main job: show the device table and make a
# demo volume, then show what is on it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target ckdvol_tool
tool=build/tools/ckdvol/ckdvol
demo=${DEMO_VOLUME:-demo.ckd}
rm -f "$demo"
"$tool" types
"$tool" create "$demo" D600 --cylinders 10
"$tool" vtoc "$demo"
"$tool" ls "$demo"
