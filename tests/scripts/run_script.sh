#!/usr/bin/env bash
# Runs one end-to-end script through a program (kora-adhoc, kora-solve) and
# compares what it prints and how it exits with what is expected (see
# README.md in this directory).
#
# usage: run_script.sh PROGRAM SCRIPT_DIR NAME [EXPECTED_DIR]
#
# From the environment: KORA_SCRIPT_ARGS, arguments (split on blanks) put
# before those of the script's directives; KORA_SCRIPT_FILTER, a sed script
# applied to standard output and error before they are compared (for what
# differs from run to run, such as times).
#
# Exit status: 0 pass, 1 fail.
set -u

exe=$1
script_dir=$2
name=$3
expected_dir=${4:-$2}

expected_out="$expected_dir/$name.expected"
expected_err="$expected_dir/$name.stderr"
cd "$script_dir" || exit 1
script="$name.smt2"

# Directives: comment lines at the top of the script.
status_wanted=0
read -r -a args <<<"${KORA_SCRIPT_ARGS:-}"
use_stdin=0
stdin_from=/dev/null
stdout_to=
while IFS= read -r line; do
  case "$line" in
    "; exit: "*) status_wanted=${line#"; exit: "} ;;
    "; args: "*) read -r -a more <<<"${line#"; args: "}" && args+=("${more[@]}") ;;
    "; arg: "*) args+=("${line#"; arg: "}") ;;
    "; stdin") use_stdin=1 ;;
    "; stdin: "*) stdin_from=${line#"; stdin: "} ;;
    "; stdout: "*) stdout_to=${line#"; stdout: "} ;;
    ";"*) ;;
    *) break ;;
  esac
done <"$script"

out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$out" "$err"' EXIT
# Standard output goes to the file a directive names (such as /dev/full),
# and then nothing is captured: NAME.expected must be empty.
stdout_file=${stdout_to:-$out}

if [ "$use_stdin" = 1 ]; then
  "$exe" "${args[@]}" <"$script" >"$stdout_file" 2>"$err"
else
  "$exe" "${args[@]}" "$script" <"$stdin_from" >"$stdout_file" 2>"$err"
fi
status=$?
if [ -n "${KORA_SCRIPT_FILTER:-}" ]; then
  for f in "$out" "$err"; do
    sed -e "$KORA_SCRIPT_FILTER" "$f" >"$f.filtered" && mv "$f.filtered" "$f"
  done
fi

failed=0
if ! diff -u --label "$name.expected" --label "actual stdout" "$expected_out" "$out"; then
  failed=1
fi
if [ -f "$expected_err" ]; then
  if ! diff -u --label "$name.stderr" --label "actual stderr" "$expected_err" "$err"; then
    failed=1
  fi
elif [ -s "$err" ]; then
  echo "unexpected output on standard error:"
  cat "$err"
  failed=1
fi
if [ "$status" != "$status_wanted" ]; then
  echo "exit status $status, expected $status_wanted"
  failed=1
fi
exit "$failed"
