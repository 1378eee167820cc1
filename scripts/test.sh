#!/usr/bin/env bash
# Builds the library, the tool and every test with AddressSanitizer and
# UndefinedBehaviorSanitizer, warnings as errors, and runs all tests.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
build=${BUILD_DIR:-build-asan}
cmake -S . -B "$build" -DCKDVOL_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_CXX_FLAGS="-Werror -O1" >/dev/null
cmake --build "$build" -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
