#!/usr/bin/env bash
# Installs ckdvol into a scratch prefix and builds the example program against
# the installed package both ways (CMake find_package and pkg-config), then
# runs the installed tool and both example builds on a fresh volume. The build
# is configured for another prefix and installed with --prefix, so the
# package must find itself where it landed; the manual page and the bash
# completion are checked too.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${INSTALL_BUILD_DIR:-build-install}
prefix="$root/$build/prefix"
rm -rf "$prefix" "$build/example-cmake" "$build/example-make" "$build/work"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCKDVOL_BUILD_TESTS=OFF -DCMAKE_CXX_FLAGS=-Werror \
      -DCMAKE_INSTALL_PREFIX=/nonexistent/configured-prefix >/dev/null
cmake --build "$build" -j"$(nproc)"
cmake --install "$build" --prefix "$prefix" >/dev/null

libdir=$(ls -d "$prefix"/lib*/ | head -n 1)
libdir=${libdir%/}
test -L "$libdir/libckdvol.so" || { echo "install: libckdvol.so link missing"; exit 1; }
soname=$(objdump -p "$libdir/libckdvol.so" | awk '/SONAME/ {print $2}')
test -e "$libdir/$soname" || { echo "install: soname $soname missing"; exit 1; }
test -f "$prefix/include/ckdvol/ckdvol.h" || { echo "install: headers missing"; exit 1; }
test ! -e "$prefix/include/ckdvol/common/byte_order.h" || { echo "install: internal header installed"; exit 1; }

# pkg-config points into the prefix it was installed to, not the configured one
cflags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags ckdvol)
incdir=${cflags#-I}
incdir=${incdir%% *}
test -f "$incdir/ckdvol.h" || { echo "install: pkg-config --cflags gives $cflags, which has no ckdvol.h"; exit 1; }
! grep -rq configured-prefix "$libdir/pkgconfig" "$libdir/cmake" || { echo "install: configure-time prefix in the package files"; exit 1; }

# manual page (made from the tool's help) and bash completion
man1="$prefix/share/man/man1/ckdvol.1"
grep -q '^\.SS verify$' "$man1" || { echo "install: $man1 lacks the verify section"; exit 1; }
grep -q -- '--dry-run' "$man1" || { echo "install: $man1 is not made from the current help"; exit 1; }
completion="$prefix/share/bash-completion/completions/ckdvol"
words=$(PATH="$prefix/bin:$PATH" bash -c 'source "$1"; COMP_WORDS=(ckdvol ver); COMP_CWORD=1; _ckdvol
  echo "${COMPREPLY[*]}"; COMP_WORDS=(ckdvol verify --dr); COMP_CWORD=2; _ckdvol; echo "${COMPREPLY[*]}"' _ "$completion")
[[ $words == *verify* && $words == *version* && $words == *--dry-run* ]] ||
  { echo "install: bash completion gave: $words"; exit 1; }

# find_package(ckdvol)
cmake -S examples -B "$build/example-cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$build/example-cmake" >/dev/null
# pkg-config
mkdir -p "$build/example-make"
PKG_CONFIG_PATH="$libdir/pkgconfig" make -s -C examples -f Makefile \
  list_and_read >/dev/null
mv examples/list_and_read "$build/example-make/"

mkdir -p "$build/work"
vol="$build/work/install-check.ckd"
"$prefix/bin/ckdvol" create "$vol" D600 --cylinders 3 >/dev/null
for exe in "$build/example-cmake/list_and_read" "$build/example-make/list_and_read"; do
  out=$("$exe" "$vol")
  grep -q "VTOC listing of volume serial 0X0123" <<<"$out" || { echo "install: $exe listing wrong"; exit 1; }
  grep -q "End of VTOC list" <<<"$out" || { echo "install: $exe listing incomplete"; exit 1; }
done
rm -rf "$build/work"
echo "install check: library, headers, tool, manual page, bash completion, pkg-config and CMake package all usable"
