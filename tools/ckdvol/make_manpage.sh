#!/usr/bin/env bash
# Writes the ckdvol(1) manual page, made from the tool's own --help texts:
# the overview, then one section per command.
#   make_manpage.sh TOOL VERSION OUTPUT
set -euo pipefail
tool=$1
version=$2
exec >"$3.tmp"
trap 'rm -f "$3.tmp"' ERR

# roff-safe text: backslashes doubled, a leading dot or quote protected.
# The usage lines name the tool as run here; the page names it ckdvol.
escape() { sed -e 's|^Usage: [^ ]*ckdvol|Usage: ckdvol|' -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"; }

commands=$("$tool" --help | awk '/^Subcommands:/ {on = 1; next} on && !NF {exit} on {print $1}')

cat <<HEAD
.TH CKDVOL 1 "" "ckdvol $version" "User Commands"
.SH NAME
ckdvol \\- create, inspect, verify and change emulated count-key-data (CKD) disk volumes
.SH SYNOPSIS
.B ckdvol
.I COMMAND
[\\fIOPTIONS\\fR] [\\fIARGUMENTS\\fR]
.SH DESCRIPTION
.nf
HEAD
"$tool" --help | escape
echo ".fi"
echo ".SH COMMANDS"
for c in $commands; do
  echo ".SS $c"
  echo ".nf"
  "$tool" "$c" --help | escape
  echo ".fi"
done
cat <<'TAIL'
.SH EXIT STATUS
0 success; 1 the operation failed or the file was refused (the message on
standard error names the file and the cause); 2 bad arguments; 3 verify
found damage.
TAIL
mv "$3.tmp" "$3"
