#!/usr/bin/env bash
# Solves two real QF_ABV files of the shared corpus (nested arrays as heap
# models) with one back end, asking for a model: the answer must be sat, the
# rebuilt model valid without a fallback and confirmed by a fresh solver
# (--check-models), and get-model must print every array as a store chain
# over a constant array. Skipped when the corpus or the solver is absent.
#
# usage: qf_abv_corpus.sh SOLVER KORA_SOLVE CORPUS_DIR
set -u

solver=$1
exe=$2
corpus=$3
if ! command -v "$solver" >/dev/null 2>&1; then
  echo "skipped: $solver is not installed"
  exit 77
fi
files="ultimate__kbfiltr.i.cil-2.c_0.smt2 ultimate__diskperf.i.cil-2.c_2.smt2"
for f in $files; do
  if [ ! -r "$corpus/$f" ]; then
    echo "skipped: $corpus/$f is absent"
    exit 77
  fi
done

script=$(mktemp)
out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$script" "$out" "$err"' EXIT
failed=0
fail() {
  echo "$1: $2"
  failed=1
}

for f in $files; do
  { echo '(set-option :produce-models true)'; grep -v '^(exit)' "$corpus/$f"; echo '(get-model)'; } >"$script"
  "$exe" --solver "$solver" --check-models --stats --timeout 20 "$script" >"$out" 2>"$err"
  status=$?
  [ $status -eq 0 ] || fail "$f" "exit status $status: $(head -c 300 "$out")"
  [ "$(head -n 1 "$out")" = "sat" ] || fail "$f" "answered $(head -n 1 "$out")"
  grep -q ':kora-fallbacks 0 ' "$err" && grep -q ':kora-rejected-models 0 ' "$err" ||
    fail "$f" "the model was not valid at once: $(cat "$err")"
  grep -q ':kora-eliminated [1-9]' "$err" || fail "$f" "nothing was eliminated"
  arrays=$(grep -c '^ *(define-fun [^ ]* () (Array ' "$out")
  chains=$(grep -cE '^ *\(define-fun [^ ]* \(\) \(Array .*\) (\(store |\(\(as const \(Array )' "$out")
  [ "$arrays" -gt 0 ] && [ "$arrays" -eq "$chains" ] ||
    fail "$f" "array values are not all store chains over a constant array ($chains of $arrays)"
done
exit $failed
