#!/usr/bin/env bash
# Solves an SMT-LIB 2 file with kora-solve and prints the model too: the file
# is sent as it is on standard input, with a (get-model) before its (exit)
# (or at its end when it has none), so the benchmark itself stays unchanged.
#
# usage: solve-with-model.sh KORA_SOLVE FILE [KORA-SOLVE OPTIONS...]
set -euo pipefail

if [ $# -lt 2 ]; then
  echo "usage: $0 KORA_SOLVE FILE [KORA-SOLVE OPTIONS...]" >&2
  exit 2
fi
exe=$1
file=$2
shift 2
[ -r "$file" ] || { echo "$0: cannot read $file" >&2; exit 2; }

awk '/^\(exit\)[ \t\r]*$/ && !done { print "(get-model)"; done = 1 }
     { print }
     END { if (!done) print "(get-model)" }' "$file" | "$exe" "$@" -
