#!/usr/bin/env bash
# Solves the five vendored brummayerbiere4 benchmarks with one back end, the
# way `make run` does, and checks each answer: sat, a model that values every
# declared constant in declaration order, one statistics line saying that the
# rebuilt model was valid (no fallback) after eliminating something, and no
# error (--check-models would report the back end's refusal of the model as
# one, with exit status 1).
#
# usage: brummayerbiere4.sh SOLVER KORA_SOLVE EXAMPLES_DIR
set -u

solver=$1
exe=$2
examples=$3
if ! command -v "$solver" >/dev/null 2>&1; then
  echo "skipped: $solver is not installed (Debian package $solver; make test installs it)"
  exit 77
fi

out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$out" "$err"' EXIT
failed=0

fail() {
  echo "$1: $2"
  failed=1
}

check_model() {
  local file=$1 declared defined
  declared=$(sed -n 's/^(declare-fun \([^ ]*\) () (_ BitVec \([0-9]*\)))$/\1 \2/p' "$file")
  # Only the entries whose value has exactly the bits of the sort count.
  defined=$(sed -n '2,$p' "$out" | sed '$d' | awk '
    match($0, /^ *\(define-fun [^ ]+ \(\) \(_ BitVec [0-9]+\) #(x[0-9a-f]+|b[01]+)\)$/) {
      value = substr($NF, 3, length($NF) - 3)
      bits = substr($NF, 2, 1) == "x" ? 4 * length(value) : length(value)
      width = substr($6, 1, length($6) - 1)
      if (bits == width) print $2, width
    }')
  [ "$(sed -n 2p "$out")" = "(" ] && [ "$(tail -n 1 "$out")" = ")" ] ||
    fail "$file" "get-model did not answer a model"
  [ -n "$declared" ] && [ "$declared" = "$defined" ] ||
    fail "$file" "the model does not value each declared constant in order"
  [ "$(wc -l <"$out")" -eq "$(($(wc -l <<<"$declared") + 3))" ] ||
    fail "$file" "unexpected lines in the answer"
}

check_stats() {
  local file=$1 line
  line=$(cat "$err")
  [ "$(wc -l <"$err")" -eq 1 ] || fail "$file" "expected one statistics line"
  case $line in
    "(:kora-result sat "*":kora-fallbacks 0 "*) ;;
    *) fail "$file" "no valid rebuilt model (result or fallbacks)" ;;
  esac
  [[ $line =~ :kora-eliminated\ ([0-9]+) ]] && [ "${BASH_REMATCH[1]}" -gt 0 ] ||
    fail "$file" "nothing was eliminated"
}

for file in "$examples"/brummayerbiere4/*.smt2; do
  bash "$examples/solve-with-model.sh" "$exe" "$file" --solver "$solver" --stats \
    --check-models >"$out" 2>"$err"
  status=$?
  [ "$status" -eq 0 ] || fail "$file" "exit status $status"
  [ "$(head -n 1 "$out")" = sat ] || fail "$file" "the answer is not sat"
  check_model "$file"
  check_stats "$file"
  if [ "$failed" = 1 ]; then
    echo "--- standard output:"
    cut -c1-200 "$out"
    echo "--- standard error:"
    cat "$err"
    exit 1
  fi
  echo "$(basename "$file"): sat, model valid and confirmed by $solver"
done
