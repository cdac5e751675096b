#!/usr/bin/env bash
# Runs every end-to-end script of tests/scripts (and examples/tour.smt2)
# through kora-adhoc under valgrind's memcheck. Each script must still give
# its expected output and exit status (run_script.sh checks them), and
# valgrind must report no error and no byte definitely or indirectly lost,
# also where a calculator throws.
#
# usage: scripts/valgrind-scripts.sh [KORA_ADHOC]   (default build/dev/tools/kora-adhoc)
#   JOBS  scripts run at once (default: nproc)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

exe=$(realpath "${1:-build/dev/tools/kora-adhoc}")
jobs=${JOBS:-$(nproc)}
command -v valgrind >/dev/null || {
  echo "kora: valgrind is not installed (KORA_WITH_VALGRIND=1 make deps installs it)" >&2
  exit 1
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/logs"
# run_script.sh runs whatever it is given as kora-adhoc: give it valgrind.
# Memcheck's report goes to a log per process, so that the script's own
# standard error is compared as usual.
cat >"$work/kora-adhoc" <<WRAPPER
#!/usr/bin/env bash
exec valgrind --leak-check=full --errors-for-leak-kinds=definite,indirect \\
  --error-exitcode=1 --log-file="$work/logs/\$KORA_VG_NAME.%p.log" "$exe" "\$@"
WRAPPER
chmod +x "$work/kora-adhoc"

runner=$root/tests/scripts/run_script.sh
jobs_list=()
for f in tests/scripts/*.smt2; do
  jobs_list+=("$(basename "$f" .smt2) $root/tests/scripts")
done
jobs_list+=("tour $root/examples $root/tests/scripts")

export work runner
run_one() {
  # $1 name, $2 script dir, $3 expected dir (optional)
  KORA_VG_NAME=$1 bash "$runner" "$work/kora-adhoc" "$2" "$1" ${3:+"$3"} \
    >"$work/logs/$1.out" 2>&1 || echo "$1" >>"$work/failed"
}
export -f run_one
printf '%s\n' "${jobs_list[@]}" | xargs -P "$jobs" -L 1 bash -c 'run_one "$@"' _

scripts=${#jobs_list[@]}
errors=0
definite=0
indirect=0
bytes_of() {  # bytes of "KIND lost: N bytes" in a log, 0 when absent
  sed -n "s/.*$1 lost: \([0-9,]*\) bytes.*/\1/p" "$2" | tr -d , | tail -1
}
for log in "$work"/logs/*.[0-9]*.log; do
  n=$(sed -n 's/.*ERROR SUMMARY: \([0-9,]*\) errors.*/\1/p' "$log" | tr -d , | tail -1)
  d=$(bytes_of definitely "$log")
  i=$(bytes_of indirectly "$log")
  definite=$((definite + ${d:-0}))
  indirect=$((indirect + ${i:-0}))
  if [ "${n:-x}" != 0 ] || [ "${d:-0}" != 0 ] || [ "${i:-0}" != 0 ]; then
    echo "== valgrind: $(basename "$log")"
    cat "$log"
    errors=$((errors + 1))
  fi
done
if [ -f "$work/failed" ]; then
  for name in $(sort "$work/failed"); do
    echo "== $name: output or exit status differs under valgrind"
    cat "$work/logs/$name.out"
  done
fi
processes=$(find "$work/logs" -name '*.[0-9]*.log' | wc -l)
echo "valgrind: $scripts scripts, $processes processes, $errors with errors;" \
  "$definite bytes definitely and $indirect bytes indirectly lost"
[ "$errors" -eq 0 ] && [ ! -f "$work/failed" ]
