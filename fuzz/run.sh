#!/usr/bin/env bash
# Builds the fuzz preset and runs each libFuzzer target for a bounded time.
# Fails when any target finds something: a crash, a sanitizer report, a leak,
# an input slower than a second, or more than 2 GB of memory.
#
# usage: fuzz/run.sh [TARGET...]        (default: every target)
#
#   KORA_FUZZ_SECONDS  time per target, default 60
#   KORA_FUZZ_BUILD    build directory, default build/fuzz
#
# Each target starts from its seed corpus in fuzz/corpus/<target>/ (for
# kora_adhoc_fuzz also every script of tests/scripts/ and examples/) plus
# what earlier runs found, kept in <build>/corpus/<target>/. Findings are
# written to <build>/artifacts/<target>/; reproduce one with
#   <build>/fuzz/<target> <build>/artifacts/<target>/crash-...
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${KORA_FUZZ_BUILD:-$root/build/fuzz}
seconds=${KORA_FUZZ_SECONDS:-60}
all_targets=(kora_adhoc_fuzz script_reader_fuzz qnumber_fuzz calculator_fuzz)
if [ $# -gt 0 ]; then targets=("$@"); else targets=("${all_targets[@]}"); fi

cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" --target "${targets[@]}"

failed=()
for t in "${targets[@]}"; do
  bin=$build/fuzz/$t
  work=$build/corpus/$t
  seeds=$build/seeds/$t
  artifacts=$build/artifacts/$t
  log=$build/logs/$t.log
  # Findings of earlier runs are in their logs; this run reports its own.
  rm -rf "$artifacts"
  mkdir -p "$work" "$artifacts" "$(dirname "$log")"
  # The seeds are assembled afresh each run, so that new test scripts are
  # picked up and nothing that libFuzzer writes lands in the source tree.
  rm -rf "$seeds"
  mkdir -p "$seeds"
  cp "$root/fuzz/corpus/$t/"* "$seeds/" 2>/dev/null || true
  extra=()
  if [ "$t" = kora_adhoc_fuzz ]; then
    for f in "$root"/tests/scripts/*.smt2 "$root"/tests/scripts/inputs/*.smt2 \
             "$root"/examples/*.smt2; do
      cp "$f" "$seeds/script-$(basename "$f")"
    done
    # Scripts may ask for wide arithmetic: a product of two 2^20-bit values
    # costs a few milliseconds, and past about 4 KB a script can chain enough
    # of them to approach the one-second limit without anything being wrong.
    # Longer seeds (the tour) are cut to this length.
    extra+=(-dict="$root/fuzz/kora_adhoc.dict" -max_len=4096)
  fi
  if [ "$t" = script_reader_fuzz ]; then
    # The vendored benchmarks and the end-to-end scripts: standard input and
    # kora-adhoc's language, which the reader must refuse command by command.
    for f in "$root"/tests/smtlib/inputs/*.smt2 "$root"/tests/scripts/*.smt2; do
      cp "$f" "$seeds/script-$(basename "$f")"
    done
    extra+=(-dict="$root/fuzz/kora_adhoc.dict" -max_len=4096)
  fi

  echo "== $t: ${seconds}s"
  status=0
  ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1} \
  UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
    "$bin" -max_total_time="$seconds" -timeout=1 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$artifacts/" "${extra[@]}" \
      "$work" "$seeds" >"$log" 2>&1 || status=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  echo "   executions: ${execs:-?}, exit status $status, log $log"
  if [ "$status" -ne 0 ] || [ -n "$(ls -A "$artifacts")" ]; then
    grep -E "^(==[0-9]+==|SUMMARY|.*_fuzz: )" "$log" | head -20 || true
    echo "   FINDING: see $artifacts/ and $log"
    failed+=("$t")
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]}" >&2
  exit 1
fi
echo "fuzz: no findings"
