#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the benchmarks and the
# fuzz targets need, when any is missing. Safe to run repeatedly.
set -euo pipefail
packages=(cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
          nlohmann-json3-dev zlib1g-dev libbz2-dev clang libclang-rt-14-dev pkg-config)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
