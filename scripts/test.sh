#!/usr/bin/env bash
# Builds the library, the tool and every test with AddressSanitizer and
# UndefinedBehaviorSanitizer (warnings are errors), checks the installed
# package, runs the fuzz targets for a bounded time with their saved
# regression inputs, and last runs all unit and tool tests with ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
build=${BUILD_DIR:-build-asan}
# Line tables only (-g1): sanitizer reports still name file and line, and
# the build takes about a third less time than with full debug information.
echo "=== sanitized build ($build)"
cmake -S . -B "$build" -DCKDVOL_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_CXX_FLAGS="-Werror -O1" -DCMAKE_CXX_FLAGS_DEBUG="-g1" >/dev/null
cmake --build "$build" -j"$(nproc)"
echo "    built in ${SECONDS} s"

echo "=== install check"
bash scripts/install_check.sh
echo "    done at ${SECONDS} s"

if [ -f scripts/fuzz.sh ]; then
  echo "=== fuzz targets (FUZZ_SECONDS=${FUZZ_SECONDS:-60} each) and their regression inputs"
  bash scripts/fuzz.sh
  echo "    done at ${SECONDS} s"
fi

echo "=== unit and tool tests"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
