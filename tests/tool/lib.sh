# Shared by the tool tests: `source "$(dirname "$0")/lib.sh"` after set -eu.
# Gives $TOOL, a scratch directory $WORK removed on exit, and check helpers.
TOOL=$1
mkdir -p "${TMPDIR:-/tmp}"
WORK=$(mktemp -d "${TMPDIR:-/tmp}/ckdvol-tool-XXXXXX")
trap 'rm -rf "$WORK"' EXIT
failures=0
check() {  # check DESCRIPTION COMMAND...: the command must succeed
  local what=$1; shift
  if ! "$@"; then echo "FAIL: $what"; failures=$((failures + 1)); fi
}
expect_status() {  # expect_status N DESCRIPTION COMMAND...
  local want=$1 what=$2; shift 2
  local got=0
  "$@" >"$WORK/out" 2>"$WORK/err" || got=$?
  if [ "$got" -ne "$want" ]; then
    echo "FAIL: $what: exit $got, wanted $want"; cat "$WORK/err"; failures=$((failures + 1))
  fi
}
finish() {
  if [ "$failures" -ne 0 ]; then echo "$failures check(s) failed"; exit 1; fi
  echo "all checks passed"
}
