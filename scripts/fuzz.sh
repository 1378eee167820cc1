#!/usr/bin/env bash
# Builds the libFuzzer targets (clang; the library layers instrumented for
# coverage; AddressSanitizer and UndefinedBehaviorSanitizer), writes seed
# corpora from volumes the library makes, fuzzes every target for
# FUZZ_SECONDS seconds (default 60; as many targets at once as there are
# cores) and then replays the saved regression inputs under
# fuzz/regressions/<target>/, each of which must run clean.
#
# Exits non-zero on any crash, sanitizer report, leak, broken invariant or
# input that runs longer than FUZZ_TIMEOUT seconds (default 30). The inputs
# that failed are kept under <build>/fuzz-artifacts/<target>/; to turn one into
# a regression input, copy it to fuzz/regressions/<target>/ with a name that
# says what it found.
#
# Environment: FUZZ_SECONDS, FUZZ_TIMEOUT, FUZZ_BUILD_DIR (default build-fuzz),
# FUZZ_TARGETS (default "open track_walk vtoc pds codepage dataset recover edit transfer image"), FUZZ_JOBS (default nproc).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh

build=${FUZZ_BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
timeout=${FUZZ_TIMEOUT:-30}
jobs=${FUZZ_JOBS:-$(nproc)}
read -r -a targets <<<"${FUZZ_TARGETS:-open track_walk vtoc pds codepage dataset recover edit transfer image}"

# Line tables only: a crash's stack still names file and line.
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -gline-tables-only -DNDEBUG" \
      -DCKDVOL_BUILD_FUZZ=ON -DCKDVOL_BUILD_TESTS=OFF -DCKDVOL_BUILD_TOOL=OFF >/dev/null
build_targets=(fuzz_seeds)
for t in "${targets[@]}"; do build_targets+=("${t}_fuzzer"); done
cmake --build "$build" -j"$(nproc)" --target "${build_targets[@]}"

work=$(mktemp -d "${TMPDIR:-/tmp}/ckdvol-fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT
# The seed generator and the targets make their scratch volumes under here.
export TMPDIR="$work"
artifacts="$build/fuzz-artifacts"
rm -rf "$artifacts"

"$build/fuzz/fuzz_seeds" "$work/seeds"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# fuzz <target>: runs it on a fresh corpus seeded from $work/seeds/<target>.
fuzz() {
  local t=$1
  # (a target without volume seeds, such as codepage, starts from an empty one)
  mkdir -p "$work/corpus/$t" "$work/seeds/$t" "$artifacts/$t"
  local rc=0
  "$build/fuzz/${t}_fuzzer" -max_total_time="$seconds" -timeout="$timeout" -rss_limit_mb=2048 \
      -close_fd_mask=1 -print_final_stats=1 -artifact_prefix="$artifacts/$t/" \
      "$work/corpus/$t" "$work/seeds/$t" >"$work/$t.log" 2>&1 || rc=$?
  echo "$rc" >"$work/$t.rc"
}

running=0
for t in "${targets[@]}"; do
  fuzz "$t" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait

status=0
for t in "${targets[@]}"; do
  rc=$(cat "$work/$t.rc")
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$t.log" | tail -1)
  cov=$(grep -Eo 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' "$work/$t.log" | tail -1)
  if [ "$rc" -eq 0 ]; then
    echo "fuzz $t: ok, ${execs:-?} executions in ${seconds}s, ${cov:-no coverage line}"
  else
    status=1
    echo "fuzz $t: FAILED (exit $rc) after ${execs:-?} executions; inputs kept in $artifacts/$t/"
    grep -E -A40 'ERROR:|invariant failed|runtime error' "$work/$t.log" | head -60 || tail -40 "$work/$t.log"
  fi
done

# Every saved regression input must run clean.
for t in "${targets[@]}"; do
  dir="fuzz/regressions/$t"
  [ -d "$dir" ] || continue
  mapfile -t inputs < <(find "$dir" -type f ! -name '*.md' | sort)
  [ "${#inputs[@]}" -gt 0 ] || continue
  if "$build/fuzz/${t}_fuzzer" -timeout="$timeout" -close_fd_mask=1 "${inputs[@]}" >"$work/$t.replay.log" 2>&1; then
    echo "fuzz $t: ${#inputs[@]} regression inputs replayed clean"
  else
    status=1
    echo "fuzz $t: a regression input FAILED"
    grep -E -B2 -A40 'ERROR:|invariant failed|runtime error' "$work/$t.replay.log" | head -60 ||
      tail -40 "$work/$t.replay.log"
  fi
done

exit "$status"
