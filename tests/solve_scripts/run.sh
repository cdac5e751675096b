#!/usr/bin/env bash
# Runs one kora-solve script with one back end through the runner of
# tests/scripts/ (see README.md here). A back end that is not installed skips
# the test (exit status 77) and says so.
#
# usage: run.sh SOLVER KORA_SOLVE SCRIPT_DIR NAME
set -u

solver=$1
shift
if ! command -v "$solver" >/dev/null 2>&1; then
  echo "skipped: $solver is not installed (Debian package $solver; make test installs it)"
  exit 77
fi
export KORA_SCRIPT_ARGS="--solver $solver"
# The statistics' times differ from run to run.
export KORA_SCRIPT_FILTER='s/\(:kora-[a-z]*-seconds\) [0-9][0-9.e+-]*/\1 T/g'
exec bash "$(dirname "${BASH_SOURCE[0]}")/../scripts/run_script.sh" "$@"
