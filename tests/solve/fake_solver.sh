#!/usr/bin/env bash
# A stand-in for an SMT solver that reads SMT-LIB 2 on standard input, for
# driving the failure paths of kora-solve's back ends. The first argument
# picks the behaviour:
#
#   answer STATUS [VALUES [REASON]]  answers (check-sat) with STATUS, (get-value ...)
#                                    with VALUES, (get-info :reason-unknown) with
#                                    (:reason-unknown REASON); stops at (exit)
#   lines TEXT...                    reads everything, then prints each TEXT
#                                    as a line (the model-lines protocol)
#   error MESSAGE                    answers (check-sat) with (error "MESSAGE")
#   garbage                          answers (check-sat) with nonsense
#   crash                            dies by SIGSEGV at (check-sat), after a
#                                    word on standard error
#   early                            exits 3 at once, without reading
#   hang                             reads, never answers (with a child of
#                                    its own that hangs too)
#   hang-values STATUS               answers STATUS, then hangs at (get-value ...)
#   flood BYTES STATUS               writes BYTES bytes on standard error, then
#                                    behaves as `answer STATUS`
#   close-input STATUS               closes its standard input at once, then
#                                    answers STATUS
#   pidfile FILE MODE ARGS...        writes its process id to FILE, then MODE
#   runs FILE VALUES STATUS...       the Nth run (counted in FILE) answers as
#                                    `answer` with the Nth STATUS, the last repeating
#   delayed SECONDS MODE ARGS...     sleeps, then behaves as MODE
#   mute STATUS                      answers (check-sat) with STATUS and then
#                                    nothing, not even (exit)
#   values-flood COUNT               answers sat, then (get-value ...) with COUNT
#                                    pairs (x #x01)
#   endless WHERE                    an endless token: instead of the answer to
#                                    (check-sat) (WHERE=status), or as the value
#                                    of the answer to (get-value ...) (WHERE=value)
set -u

mode=${1:-answer}
shift || true

answer() {
  local status=$1 values=${2:-'()'} reason=${3:-'"canned"'} line
  while IFS= read -r line; do
    case $line in
      "(check-sat"*) echo "$status" ;;
      "(get-value"*) echo "$values" ;;
      "(get-info :reason-unknown"*) echo "(:reason-unknown $reason)" ;;
      "(exit"*) exit 0 ;;
    esac
  done
}

at_check_sat() {
  local line
  while IFS= read -r line; do
    case $line in "(check-sat"*) return 0 ;; esac
  done
  return 1
}

case $mode in
  answer) answer "$@" ;;
  lines)
    cat >/dev/null
    for l in "$@"; do echo "$l"; done
    ;;
  error) at_check_sat && echo "(error \"$1\")" ;;
  garbage) at_check_sat && echo 'hello world (((' ;;
  crash)
    at_check_sat
    echo "fake: internal failure" >&2
    kill -SEGV $$
    ;;
  early)
    echo "fake: unknown option --frobnicate" >&2
    exit 3
    ;;
  hang)
    sleep 1000 &
    cat >/dev/null
    wait
    ;;
  hang-values)
    at_check_sat && echo "$1"
    sleep 1000
    ;;
  flood)
    head -c "$1" /dev/zero | tr '\0' 'e' >&2
    shift
    answer "$@"
    ;;
  close-input)
    exec 0<&-
    sleep 0.2
    echo "$1"
    ;;
  runs)
    file=$1 values=$2
    shift 2
    n=$(( $(cat "$file" 2>/dev/null || echo 0) + 1 ))
    echo "$n" >"$file"
    statuses=("$@")
    (( n > ${#statuses[@]} )) && n=${#statuses[@]}
    answer "${statuses[n - 1]}" "$values"
    ;;
  delayed)
    sleep "$1"
    shift
    exec bash "${BASH_SOURCE[0]}" "$@"
    ;;
  mute)
    at_check_sat && echo "$1"
    cat >/dev/null
    sleep 1000
    ;;
  values-flood)
    at_check_sat && echo sat
    read -r _
    echo "("
    yes '(x #x01)' | head -n "$1"
    echo ")"
    cat >/dev/null
    ;;
  endless)
    at_check_sat
    if [ "$1" = value ]; then
      echo sat
      read -r _
      printf '((x #b'
    fi
    yes 1 | tr -d '\n'
    ;;
  pidfile)
    echo $$ >"$1"
    shift
    exec bash "${BASH_SOURCE[0]}" "$@"
    ;;
  *)
    echo "fake_solver.sh: unknown mode $mode" >&2
    exit 64
    ;;
esac
