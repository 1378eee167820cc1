#!/usr/bin/env bash
# Builds the benchmarks in Release (build-bench) and runs every *_bench
# executable, printing its output. Each benchmark reports its own ratio
# against plain I/O doing the same work, measured in the same run.
#   bench/run.sh [extra Google Benchmark flags, e.g. --benchmark_filter=Random]
# edit_bench makes two sparse 250 MB volumes at a time in the scratch directory
# (CKDVOL_TEST_TMP) and holds about 600 MB in memory; it removes them itself.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build-bench}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCKDVOL_BUILD_BENCH=ON \
      -DCKDVOL_BUILD_TESTS=OFF -DCKDVOL_BUILD_TOOL=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
export CKDVOL_TEST_TMP=${CKDVOL_TEST_TMP:-$PWD/$build/bench-tmp}
mkdir -p "$CKDVOL_TEST_TMP"
status=0
found=0
for exe in $(find "$build/bench" -maxdepth 1 -type f -name '*_bench' -perm -u+x | sort); do
  found=1
  echo "=== $(basename "$exe")"
  "$exe" --benchmark_counters_tabular=true "$@" || status=1
  echo
done
if [ "$found" -eq 0 ]; then echo "no *_bench executables were built" >&2; exit 1; fi
exit $status
